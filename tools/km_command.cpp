// `velkor km`: Kaplan-Meier analysis of a CSV file. The analysis chains the library's flat entry
// points as the spreadsheet front end does: ReorganizeData -> RunLife -> per group
// Cpp_PrepareKaplanCharts, Cpp_TransNelsonAalen, Cpp_ComputeKaplanMeanMedian -> LoadKaplanTest ->
// ComputeLifeTests and Cpp_ComputeMultComp; optionally RunLife again for the actuarial table.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <unordered_map>
#include <string>
#include <vector>

#include "commands.h"
#include "velkor/VELKORLI1M.h"

namespace velkor_cli {

const Command kKmCommand{
    "km",
    "Kaplan-Meier analysis: product-limit table and Nelson-Aalen cumulative hazard of each group,\n"
    "  log-rank, Gehan-Wilcoxon and Tarone-Ware tests with pairwise comparisons, restricted mean\n"
    "  and quartiles; optionally the actuarial life table. Rows with a missing time, status,\n"
    "  group or weight are left out (the count is reported).",
    "FILE.csv --time COL --status COL [options]",
    {{"--time", "COL", "column of observation times", ""},
     {"--status", "COL",
      "column of the status: the event code is an event, any other value censored", ""},
     {"--event-code", "K", "status value of an event", "1"},
     {"--group", "COL", "group column (numbers or text; groups in ascending label order)", ""},
     {"--weight", "COL", "case weights", ""},
     {"--na-variance", "M", "Nelson-Aalen variance: 1 d/n^2, 2 (n-d)d/n^3, 3 (n-d)d/(n^2(n-1))",
      "1"},
     {"--life-table", "", "add the actuarial life table", ""},
     {"--width", "W", "life-table interval width (default: largest time / 10)", ""},
     {"--no-tables", "", "leave the per-time tables out of the text output", ""}}};

namespace {

struct KmData {
  std::vector<double> times, status, weights, groups;
  std::vector<std::string> labels;
  std::size_t dropped = 0;
};

// Numeric label order when every label is a number, text order otherwise.
std::vector<std::string> OrderedLabels(std::vector<std::string> raw) {
  bool numeric = true;
  for (const std::string& l : raw) {
    double x;
    numeric = numeric && ParseNumber(l, x);
  }
  std::sort(raw.begin(), raw.end(), [&](const std::string& a, const std::string& b) {
    if (!numeric) return a < b;
    double x = 0, y = 0;
    ParseNumber(a, x);
    ParseNumber(b, y);
    return x < y || (x == y && a < b);
  });
  raw.erase(std::unique(raw.begin(), raw.end()), raw.end());
  return raw;
}

}  // namespace

int RunKm(const Args& a) {
  const std::string cmd = "km";
  if (!a.has("--time") || !a.has("--status")) {
    Fail(cmd, "--time and --status are required (velkor km --help)");
    return kExitUsage;
  }
  PhaseTimer timer(a.has("--timing"));
  CsvTable csv;
  std::vector<double> t, s, w;
  if (!LoadCsv(cmd, a.file, csv) || !NumericColumn(cmd, csv, a.get("--time"), t) ||
      !NumericColumn(cmd, csv, a.get("--status"), s))
    return kExitInput;
  if (a.has("--weight") && !NumericColumn(cmd, csv, a.get("--weight"), w)) return kExitInput;
  int gcol = -1;
  if (a.has("--group") && (gcol = TextColumnIndex(cmd, csv, a.get("--group"))) < 0)
    return kExitInput;
  const double eventCode = a.number("--event-code"), alpha = a.number("--alpha");
  timer.lap("read and parse the CSV (numeric columns)");

  // Rows used and group codes 1..G: distinct labels by first appearance, then ranked.
  KmData d;
  std::unordered_map<std::string_view, std::size_t> firstSeen;
  std::vector<std::string> distinct;
  std::vector<std::size_t> used, labelOf;
  used.reserve(csv.rows());
  labelOf.reserve(csv.rows());
  for (std::size_t i = 0; i < csv.rows(); ++i) {
    const std::string_view g = gcol >= 0 ? csv.field(i, static_cast<std::size_t>(gcol)) : "all";
    if (std::isnan(t[i]) || std::isnan(s[i]) || (!w.empty() && std::isnan(w[i])) ||
        IsMissingCell(g)) {
      ++d.dropped;
      continue;
    }
    used.push_back(i);
    const auto [it, fresh] = firstSeen.emplace(g, distinct.size());
    if (fresh) distinct.emplace_back(g);
    labelOf.push_back(it->second);
  }
  d.labels = OrderedLabels(distinct);
  std::vector<double> rank(distinct.size());
  for (std::size_t k = 0; k < distinct.size(); ++k)
    rank[k] = static_cast<double>(std::find(d.labels.begin(), d.labels.end(), distinct[k]) -
                                  d.labels.begin() + 1);
  const int G = static_cast<int>(d.labels.size());
  std::vector<double> sizes(static_cast<std::size_t>(std::max(G, 1)), 0.0);
  d.times.reserve(used.size());
  d.status.reserve(used.size());
  d.weights.reserve(used.size());
  d.groups.reserve(used.size());
  for (std::size_t k = 0; k < used.size(); ++k) {
    const std::size_t i = used[k];
    d.times.push_back(t[i]);
    d.status.push_back(s[i] == eventCode ? 1.0 : 0.0);
    d.weights.push_back(w.empty() ? 1.0 : w[i]);
    const double g = rank[labelOf[k]];
    d.groups.push_back(g);
    sizes[static_cast<std::size_t>(g) - 1] += 1.0;
  }
  const int n = static_cast<int>(d.times.size());

  Report r;
  r.command = cmd;
  r.title = "Kaplan-Meier analysis of " + a.file;
  for (const char* o : {"--time", "--status", "--event-code", "--group", "--weight", "--alpha",
                        "--na-variance", "--life-table", "--width"})
    if (a.has(o)) r.options.emplace_back(o + 2, a.get(o));
  r.notes.push_back("time: " + a.get("--time") + ", status: " + a.get("--status") +
                    " (event = " + a.get("--event-code") + ")" +
                    (gcol >= 0 ? ", group: " + a.get("--group") : std::string()) + "; " +
                    std::to_string(n) + " rows used, " + std::to_string(d.dropped) +
                    " left out (missing values)");

  timer.lap("select the rows, code the groups");
  // 1. Preparation: group blocks in ascending label order, each ascending in time.
  double maxTime = 0;
  timer.libBegin();
  const int prep = ReorganizeData(d.times.data(), n, d.status.data(), d.weights.data(),
                                  d.groups.data(), sizes.data(), G, 0, &maxTime);
  timer.libEnd();
  if (prep == -1 || prep == -2 || prep > 0) {
    Fail(cmd, prep == -1   ? "a status value lies outside [0, 1] (library status -1)"
              : prep == -2 ? "fewer than two observations (library status -2)"
                           : "internal failure (library status " + std::to_string(prep) + ")");
    return ExitForStatus(prep);
  }
  if (prep == -3) Warn(cmd, "no event in the data (library status -3)");
  if (prep == -5) Warn(cmd, "every observation is an event (library status -5)");

  // 2. Product-limit tables.
  const int R = static_cast<int>(*std::max_element(sizes.begin(), sizes.end())) + 1;
  std::vector<double> tables(static_cast<std::size_t>(G) * R * 12),
      last(static_cast<std::size_t>(G)), totals(last.size());
  timer.libBegin();
  int st = RunLife(d.times.data(), d.status.data(), d.weights.data(), n, sizes.data(), G, 0, 1, 0,
                   0.0, R, tables.data(), last.data(), totals.data());
  timer.libEnd();
  if (st != 0) {
    Fail(cmd, "RunLife failed (library status " + std::to_string(st) + ")");
    return ExitForStatus(st);
  }
  auto table = [&](int g) { return tables.data() + static_cast<std::size_t>(g) * R * 12; };
  auto cell = [&](int g, int row, int col) {
    return table(g)[static_cast<std::size_t>(col - 1) * R + static_cast<std::size_t>(row)];
  };
  auto name = [&](int g) {
    return gcol < 0 ? std::string("all") : d.labels[static_cast<std::size_t>(g)];
  };

  std::vector<double> summary(static_cast<std::size_t>(G) * 6);
  timer.libBegin();
  Cpp_Build_Summary(tables.data(), R, G, last.data(), totals.data(), summary.data());
  timer.libEnd();
  Table& sum = r.tables.emplace_back(Table{"summary", "Summary", {}});
  {
    sum.text("group");
    const char* heads[6] = {"n", "events", "censored", "% censored", "first time", "last time"};
    const int dec[6] = {0, 0, 0, 1, 1, 1};
    for (int c = 0; c < 6; ++c) {
      Column& col = sum.num(heads[c], dec[c]);
      for (int g = 0; g < G; ++g) col.v.push_back(summary[static_cast<std::size_t>(c) * G + g]);
    }
    for (int g = 0; g < G; ++g) sum.columns[0].s.push_back(name(g));
  }

  const int level = static_cast<int>(std::lround(100 * (1 - alpha)));
  const std::string lo = "lower " + std::to_string(level) + "%",
                    hi = "upper " + std::to_string(level) + "%";
  Table pl{"product_limit", "Product-limit estimates", {}};
  for (const char* h : {"group"}) pl.text(h);
  for (const char* h : {"time", "at risk", "events", "censored", "survival", "std. error"})
    pl.num(h, std::string(h) == "time"                                         ? 1
              : std::string(h) == "survival" || std::string(h) == "std. error" ? 4
                                                                               : 0);
  pl.num(lo, 4);
  pl.num(hi, 4);
  Table na{"nelson_aalen", "Nelson-Aalen cumulative hazard", {}};
  na.text("group");
  for (const char* h : {"time", "at risk", "events", "cum. hazard", "std. error"})
    na.num(h, std::string(h) == "time"                                            ? 1
              : std::string(h) == "cum. hazard" || std::string(h) == "std. error" ? 4
                                                                                  : 0);
  na.num(lo, 4);
  na.num(hi, 4);

  Chart surv("survival", "Kaplan-Meier survival", "Time", "Survival probability");
  surv.unitY = true;
  Chart hazard("cumhazard", "Nelson-Aalen cumulative hazard", "Time", "Cumulative hazard");
  const int naMethod = static_cast<int>(a.number("--na-variance"));
  for (int g = 0; g < G; ++g) {
    const int T = static_cast<int>(last[static_cast<std::size_t>(g)]);
    const int P = 2 * T + 1, C = std::max(2 * T - 1, 1);
    std::vector<double> mainS(static_cast<std::size_t>(P) * 7), hz(static_cast<std::size_t>(C) * 3),
        ll(hz.size());
    timer.libBegin();
    Cpp_PrepareKaplanCharts(table(g), R, T, 0, 0, 0, T > 0 ? cell(g, 1, 1) : 0.0, alpha, 1,
                            mainS.data(), P, hz.data(), ll.data(), C);
    timer.libEnd();
    auto ms = [&](int col, int p) {
      return mainS[static_cast<std::size_t>(col) * P + static_cast<std::size_t>(p)];
    };
    Chart::RiskRow risk{name(g), {}, {}};
    for (int j = 1; j <= T; ++j) {
      const double S = cell(g, j, 8);
      pl.columns[0].s.push_back(name(g));
      pl.columns[1].v.push_back(cell(g, j, 1));
      pl.columns[2].v.push_back(cell(g, j, 3));
      pl.columns[3].v.push_back(cell(g, j, 4));
      pl.columns[4].v.push_back(cell(g, j, 5));
      pl.columns[5].v.push_back(S);
      pl.columns[6].v.push_back(IsMissingValue(S) ? S : S * std::sqrt(cell(g, j, 11)));
      pl.columns[7].v.push_back(ms(1, 2 * j));
      pl.columns[8].v.push_back(ms(2, 2 * j));
      risk.times.push_back(cell(g, j, 1));
      risk.atRisk.push_back(cell(g, j, 3));
    }
    surv.riskRows.push_back(risk);
    const std::string legend = gcol >= 0 ? a.get("--group") + " = " + name(g) : name(g);
    Series curve{legend, {}, {}, g, true, false, false, false, gcol >= 0, {}, {}};
    Series lower{name(g) + " lower", {}, {}, g, true, false, true, true, false, {}, {}};
    Series upper{name(g) + " upper", {}, {}, g, true, false, true, true, false, {}, {}};
    for (int p = 0; p < P; ++p) {
      curve.x.push_back(ms(0, p));
      curve.y.push_back(ms(3, p));
      lower.x.push_back(ms(0, p));
      lower.y.push_back(ms(1, p));
      upper.x.push_back(ms(0, p));
      upper.y.push_back(ms(2, p));
      if (!IsMissingValue(ms(5, p))) {
        curve.tickX.push_back(ms(0, p));
        curve.tickY.push_back(ms(5, p));
      }
    }
    surv.series.push_back(curve);
    surv.series.push_back(lower);
    surv.series.push_back(upper);

    std::vector<double> naOut(static_cast<std::size_t>(std::max(T, 1)) * 9);
    timer.libBegin();
    Cpp_TransNelsonAalen(table(g), R, T, alpha, naMethod, naOut.data());
    timer.libEnd();
    Series H{legend, {0.0}, {0.0}, g, true, false, false, false, gcol >= 0, {}, {}};
    for (int j = 0; j < T; ++j) {
      auto v = [&](int col) {
        return naOut[static_cast<std::size_t>(col) * T + static_cast<std::size_t>(j)];
      };
      na.columns[0].s.push_back(name(g));
      const int cols[7] = {0, 1, 2, 4, 6, 7, 8};
      for (int c = 0; c < 7; ++c)
        na.columns[static_cast<std::size_t>(c) + 1].v.push_back(v(cols[c]));
      if (!IsMissingValue(v(4))) {
        H.x.push_back(v(0));
        H.y.push_back(H.y.back());
        H.x.push_back(v(0));
        H.y.push_back(v(4));
      }
    }
    hazard.series.push_back(H);
  }
  r.tables.push_back(std::move(pl));
  r.tables.push_back(std::move(na));
  r.charts.push_back(std::move(surv));
  hazard.legendLeft = true;
  r.charts.push_back(std::move(hazard));

  // 3. Restricted mean and quartiles.
  Table means{
      "mean", "Restricted mean survival time (area under the curve up to the time cap)", {}};
  means.text("group");
  for (const std::string& h :
       {std::string("mean"), std::string("std. error"), lo, hi, std::string("time cap")})
    means.num(h, 1);
  Table quart{"quartiles", "Quartiles of the survival time", {}};
  quart.text("group");
  quart.num("quantile", 2);
  quart.num("time", 1);
  quart.num(lo, 1);
  quart.num(hi, 1);
  for (int g = 0; g < G; ++g) {
    const int T = static_cast<int>(last[static_cast<std::size_t>(g)]);
    double cap = 0, mean[4], q[12];
    timer.libBegin();
    Cpp_ComputeKaplanMeanMedian(table(g), R, T + 1, alpha,
                                static_cast<int>(sizes[static_cast<std::size_t>(g)]), &cap, mean,
                                q);
    timer.libEnd();
    means.columns[0].s.push_back(name(g));
    for (int c = 0; c < 4; ++c) means.columns[static_cast<std::size_t>(c) + 1].v.push_back(mean[c]);
    means.columns[5].v.push_back(cap > 0 ? cap : VELKOR_MISSING);
    for (int k = 2; k >= 0; --k) {
      quart.columns[0].s.push_back(name(g));
      for (int c = 0; c < 4; ++c)
        quart.columns[static_cast<std::size_t>(c) + 1].v.push_back(q[3 * c + k]);
    }
  }
  r.tables.push_back(std::move(means));
  r.tables.push_back(std::move(quart));

  // 4. Comparison tests.
  if (G >= 2) {
    int T = n;
    std::vector<double> combined(static_cast<std::size_t>(3 * G + 1) * static_cast<std::size_t>(T));
    timer.libBegin();
    LoadKaplanTest(&T, tables.data(), G, R, last.data(), combined.data());
    timer.libEnd();
    std::vector<double> res(12), pairs(static_cast<std::size_t>(3 * G * (G - 1) / 2) * 7);
    timer.libBegin();
    ComputeLifeTests(combined.data(), T, G, alpha, res.data());
    timer.libEnd();
    timer.libBegin();
    Cpp_ComputeMultComp(combined.data(), T, G, alpha, pairs.data());
    timer.libEnd();
    const char* names[3] = {"Log-rank", "Gehan-Wilcoxon", "Tarone-Ware"};
    Table tests{"tests",
                "Comparison of the " + std::to_string(G) + " survival curves (H0: equal survival)",
                {}};
    tests.text("test");
    tests.num("chi-square", 4);
    tests.num("df", 0);
    tests.num("critical value", 4);
    tests.num("p-value", 4).pvalue = true;
    for (int k = 0; k < 3; ++k) {
      tests.columns[0].s.push_back(names[k]);
      tests.columns[1].v.push_back(res[static_cast<std::size_t>(k)]);
      tests.columns[2].v.push_back(G - 1);
      tests.columns[3].v.push_back(res[static_cast<std::size_t>(3 + k)]);
      tests.columns[4].v.push_back(res[static_cast<std::size_t>(6 + k)]);
    }
    r.tables.push_back(std::move(tests));
    const int rows = 3 * G * (G - 1) / 2;
    Table pw{"pairwise", "Pairwise comparisons (1 df; Bonferroni and Holm adjusted p-values)", {}};
    pw.text("group a");
    pw.text("group b");
    pw.text("test");
    pw.num("chi-square", 4);
    for (const char* h : {"p-value", "Bonferroni", "Holm"}) pw.num(h, 4).pvalue = true;
    for (int row = 0; row < rows; ++row) {
      auto p = [&](int c) { return pairs[static_cast<std::size_t>(c) * rows + row]; };
      pw.columns[0].s.push_back(d.labels[static_cast<std::size_t>(p(0)) - 1]);
      pw.columns[1].s.push_back(d.labels[static_cast<std::size_t>(p(1)) - 1]);
      pw.columns[2].s.push_back(names[static_cast<int>(p(2)) - 1]);
      for (int c = 3; c < 7; ++c) pw.columns[static_cast<std::size_t>(c)].v.push_back(p(c));
    }
    r.tables.push_back(std::move(pw));
  }

  // 5. Actuarial life table.
  if (a.has("--life-table")) {
    const double width = a.has("--width") ? a.number("--width") : 0.0;
    const double wEff = width > 0 ? width : maxTime / 10;
    const int LR = static_cast<int>(std::min(1e6, std::ceil(maxTime / (wEff > 0 ? wEff : 1)) + 2));
    std::vector<double> lt(static_cast<std::size_t>(G) * LR * 12), ll(static_cast<std::size_t>(G)),
        lt2(ll.size());
    timer.libBegin();
    RunLife(d.times.data(), d.status.data(), d.weights.data(), n, sizes.data(), G, 0, 1, -1, width,
            LR, lt.data(), ll.data(), lt2.data());
    timer.libEnd();
    Table life{"life_table", "Actuarial life table", {}};
    life.text("group");
    for (const char* h : {"start", "end", "entering", "deaths", "withdrawn", "at risk",
                          "cond. survival", "survival", "hazard"})
      life.num(
          h, std::string(h) == "start" || std::string(h) == "end" || std::string(h) == "at risk" ? 1
             : std::string(h) == "entering" || std::string(h) == "deaths" ||
                     std::string(h) == "withdrawn"
                 ? 0
                 : 4);
    const int cols[9] = {1, 2, 3, 4, 5, 6, 7, 8, 10};
    for (int g = 0; g < G; ++g) {
      const int T = static_cast<int>(ll[static_cast<std::size_t>(g)]);
      for (int j = 1; j <= T; ++j) {
        life.columns[0].s.push_back(name(g));
        for (int c = 0; c < 9; ++c)
          life.columns[static_cast<std::size_t>(c) + 1].v.push_back(
              lt[static_cast<std::size_t>(g) * LR * 12 +
                 static_cast<std::size_t>(cols[c] - 1) * LR + j]);
      }
    }
    r.tables.push_back(std::move(life));
  }

  if (a.has("--no-tables") && a.get("--format") == "text")
    r.tables.erase(std::remove_if(r.tables.begin(), r.tables.end(),
                                  [](const Table& tb) {
                                    return tb.name == "product_limit" ||
                                           tb.name == "nelson_aalen" || tb.name == "life_table";
                                  }),
                   r.tables.end());
  timer.lap("analysis (library calls and result tables)");
  timer.libTotal();
  const int exitCode = Emit(cmd, a, r);
  timer.lap("write the output");
  return exitCode;
}

}  // namespace velkor_cli
