// The analysis chains the library's flat entry points as the spreadsheet front end does:
// ReorganizeData -> RunLife -> per group Cpp_ComputeKaplanMeanMedian -> LoadKaplanTest ->
// ComputeLifeTests and Cpp_ComputeMultComp.
#include "km_command.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "csv.h"
#include "table_printer.h"
#include "velkor/VELKORLI1M.h"

namespace velkor_cli {

namespace {

struct KmOptions {
  std::string file, time, status, group, weight;
  double eventCode = 1.0;
  double alpha = 0.05;
  bool tables = true;
};

// The analysed rows, ready for the library: status recoded 1 event / 0 censored, groups coded
// 1..G in ascending label order.
struct KmData {
  std::vector<double> times, status, weights, groups;
  std::vector<std::string> labels;
  std::size_t dropped = 0;
};

const char* const kUsage =
    "usage: velkor km FILE.csv --time COLUMN --status COLUMN [--event-code K] [--group COLUMN]\n"
    "                          [--weight COLUMN] [--alpha A] [--no-tables]\n"
    "  Kaplan-Meier analysis: product-limit table of each group, log-rank, Gehan-Wilcoxon and\n"
    "  Tarone-Ware tests with pairwise comparisons, restricted mean and quartiles.\n"
    "  --event-code K  status value of an event (default 1); every other value is censored\n"
    "  --group COLUMN  numeric or text labels; groups are taken in ascending label order\n"
    "  --weight COLUMN case weights (default 1)\n"
    "  --alpha A       significance level of the limits and tests (default 0.05)\n"
    "  --no-tables     leave out the product-limit tables\n"
    "  Rows with a missing time, status, group or weight are left out.";

bool ParseOptions(int argc, char** argv, KmOptions& o, std::string& error) {
  for (int i = 0; i < argc; ++i) {
    const std::string a = argv[i];
    auto value = [&](std::string& dst) {
      if (i + 1 >= argc) {
        error = "missing value after " + a;
        return false;
      }
      dst = argv[++i];
      return true;
    };
    std::string v;
    if (a == "--time") {
      if (!value(o.time)) return false;
    } else if (a == "--status") {
      if (!value(o.status)) return false;
    } else if (a == "--group") {
      if (!value(o.group)) return false;
    } else if (a == "--weight") {
      if (!value(o.weight)) return false;
    } else if (a == "--event-code" || a == "--alpha") {
      if (!value(v)) return false;
      double x = 0;
      if (!ParseNumber(v, x)) {
        error = "not a number: " + v;
        return false;
      }
      (a == "--alpha" ? o.alpha : o.eventCode) = x;
    } else if (a == "--no-tables") {
      o.tables = false;
    } else if (!a.empty() && a[0] == '-') {
      error = "unknown option " + a;
      return false;
    } else if (o.file.empty()) {
      o.file = a;
    } else {
      error = "unexpected argument " + a;
      return false;
    }
  }
  if (o.file.empty() || o.time.empty() || o.status.empty()) {
    error = "FILE, --time and --status are required";
    return false;
  }
  if (!(o.alpha > 0 && o.alpha < 1)) {
    error = "--alpha must lie in (0, 1)";
    return false;
  }
  return true;
}

bool LoadData(const CsvTable& csv, const KmOptions& o, KmData& d, std::string& error) {
  auto need = [&](const std::string& name) {
    const int c = csv.column(name);
    if (c < 0) error = "no column named '" + name + "'";
    return c;
  };
  const int ct = need(o.time), cs = need(o.status);
  const int cg = o.group.empty() ? -1 : need(o.group);
  const int cw = o.weight.empty() ? -1 : need(o.weight);
  if (ct < 0 || cs < 0 || (!o.group.empty() && cg < 0) || (!o.weight.empty() && cw < 0))
    return false;
  // Group labels: numeric order when every label is a number, text order otherwise.
  std::vector<std::string> raw;
  bool numeric = true;
  for (const auto& row : csv.rows) {
    double x;
    if (cg >= 0 && !row[static_cast<std::size_t>(cg)].empty() &&
        row[static_cast<std::size_t>(cg)] != "NA")
      numeric = numeric && ParseNumber(row[static_cast<std::size_t>(cg)], x);
  }
  for (const auto& row : csv.rows) {
    double t, s, w = 1.0;
    const std::string label = cg >= 0 ? row[static_cast<std::size_t>(cg)] : std::string("all");
    const bool ok = ParseNumber(row[static_cast<std::size_t>(ct)], t) &&
                    ParseNumber(row[static_cast<std::size_t>(cs)], s) &&
                    (cw < 0 || ParseNumber(row[static_cast<std::size_t>(cw)], w)) &&
                    !label.empty() && label != "NA";
    if (!ok) {
      ++d.dropped;
      continue;
    }
    d.times.push_back(t);
    d.status.push_back(s == o.eventCode ? 1.0 : 0.0);
    d.weights.push_back(w);
    raw.push_back(label);
  }
  // Code the labels 1..G in ascending order.
  std::vector<std::string> distinct(raw);
  auto less = [&](const std::string& a, const std::string& b) {
    if (!numeric) return a < b;
    double x = 0, y = 0;
    ParseNumber(a, x);
    ParseNumber(b, y);
    return x < y;
  };
  std::sort(distinct.begin(), distinct.end(), less);
  distinct.erase(std::unique(distinct.begin(), distinct.end(),
                             [&](const std::string& a, const std::string& b) {
                               return !less(a, b) && !less(b, a);
                             }),
                 distinct.end());
  std::map<std::string, double> code;
  for (const std::string& l : raw) {
    if (code.count(l)) continue;
    const auto it = std::lower_bound(distinct.begin(), distinct.end(), l, less);
    code[l] = static_cast<double>(it - distinct.begin()) + 1.0;
  }
  for (const std::string& l : raw) d.groups.push_back(code[l]);
  d.labels = distinct;
  return true;
}

std::string GroupName(const KmOptions& o, const std::string& label) {
  return o.group.empty() ? "all" : o.group + " = " + label;
}

}  // namespace

const char* KmUsage() {
  return kUsage;
}

int RunKmCommand(int argc, char** argv) {
  KmOptions o;
  std::string error;
  if (!ParseOptions(argc, argv, o, error)) {
    std::fprintf(stderr, "velkor km: %s\n%s\n", error.c_str(), kUsage);
    return 2;
  }
  CsvTable csv;
  KmData d;
  if (!ReadCsv(o.file, csv, error) || !LoadData(csv, o, d, error)) {
    std::fprintf(stderr, "velkor km: %s\n", error.c_str());
    return 2;
  }
  const int n = static_cast<int>(d.times.size());
  const int G = static_cast<int>(d.labels.size());
  const int level = static_cast<int>(std::lround(100 * (1 - o.alpha)));

  std::printf("Kaplan-Meier analysis of %s\n", o.file.c_str());
  std::printf(
      "  time: %s, status: %s (event = %g)%s%s; %d rows used, %zu left out (missing values)\n\n",
      o.time.c_str(), o.status.c_str(), o.eventCode,
      o.group.empty() ? "" : ", group: ", o.group.c_str(), n, d.dropped);

  // 1. Preparation: group blocks in ascending label order, each ascending in time.
  std::vector<double> sizes(static_cast<std::size_t>(G), 0.0);
  for (double g : d.groups) sizes[static_cast<std::size_t>(g) - 1] += 1.0;
  double maxTime = 0;
  const int prep = ReorganizeData(d.times.data(), n, d.status.data(), d.weights.data(),
                                  d.groups.data(), sizes.data(), G, 0, &maxTime);
  if (prep == -1 || prep == -2) {
    std::fprintf(stderr, "velkor km: %s (status %d)\n",
                 prep == -1 ? "a status value lies outside [0, 1]" : "fewer than two observations",
                 prep);
    return 1;
  }
  if (prep == -3) std::printf("Note: no event in the data (status -3).\n\n");
  if (prep == -5) std::printf("Note: every observation is an event (status -5).\n\n");

  // 2. Product-limit tables.
  const int R = static_cast<int>(*std::max_element(sizes.begin(), sizes.end())) + 1;
  std::vector<double> tables(static_cast<std::size_t>(G) * R * 12),
      last(static_cast<std::size_t>(G)), totals(last.size());
  RunLife(d.times.data(), d.status.data(), d.weights.data(), n, sizes.data(), G, 0, 1, 0, 0.0, R,
          tables.data(), last.data(), totals.data());
  auto table = [&](int g) { return tables.data() + static_cast<std::size_t>(g) * R * 12; };
  auto cell = [&](int g, int row, int col) {
    return table(g)[static_cast<std::size_t>(col - 1) * R + row];
  };

  std::vector<double> summary(static_cast<std::size_t>(G) * 6);
  Cpp_Build_Summary(tables.data(), R, G, last.data(), totals.data(), summary.data());
  std::printf("Summary\n");
  TextTable sum({"group", "n", "events", "censored", "% censored", "first time", "last time"});
  for (int g = 0; g < G; ++g) {
    auto s = [&](int c) { return summary[static_cast<std::size_t>(c) * G + g]; };
    sum.add({GroupName(o, d.labels[static_cast<std::size_t>(g)]), Num(s(0), 0), Num(s(1), 0),
             Num(s(2), 0), Num(s(3), 1), Num(s(4), 1), Num(s(5), 1)});
  }
  sum.print(stdout);

  if (o.tables) {
    for (int g = 0; g < G; ++g) {
      const int T = static_cast<int>(last[static_cast<std::size_t>(g)]);
      const int P = 2 * T + 1, C = std::max(2 * T - 1, 1);
      // The chart series carry the linear band already clipped to [0, 1].
      std::vector<double> mainS(static_cast<std::size_t>(P) * 7),
          haz(static_cast<std::size_t>(C) * 3), ll(haz.size());
      Cpp_PrepareKaplanCharts(table(g), R, T, 0, 0, 0, T > 0 ? cell(g, 1, 1) : 0.0, o.alpha, 1,
                              mainS.data(), P, haz.data(), ll.data(), C);
      std::printf("\nProduct-limit table, %s\n",
                  GroupName(o, d.labels[static_cast<std::size_t>(g)]).c_str());
      TextTable km({"time", "at risk", "events", "censored", "survival", "std. error",
                    "lower " + std::to_string(level) + "%",
                    "upper " + std::to_string(level) + "%"});
      for (int j = 1; j <= T; ++j) {
        const double S = cell(g, j, 8), se = S * std::sqrt(cell(g, j, 11));
        const auto pt = static_cast<std::size_t>(2 * j + 1 - 1);
        km.add({Num(cell(g, j, 1), 1), Num(cell(g, j, 3), 0), Num(cell(g, j, 4), 0),
                Num(cell(g, j, 5), 0), Num(S, 4), Num(se, 4),
                Num(mainS[pt + static_cast<std::size_t>(P)], 4),
                Num(mainS[pt + 2 * static_cast<std::size_t>(P)], 4)});
      }
      km.print(stdout);
    }
  }

  // 3. Restricted mean and quartiles.
  std::printf("\nRestricted mean survival time (area under the curve up to the time cap)\n");
  TextTable means({"group", "mean", "std. error", "lower " + std::to_string(level) + "%",
                   "upper " + std::to_string(level) + "%", "time cap"});
  TextTable quart({"group", "percentile", "time", "lower " + std::to_string(level) + "%",
                   "upper " + std::to_string(level) + "%"});
  const char* percentile[3] = {"75% (S = 0.25)", "50% (median)", "25% (S = 0.75)"};
  for (int g = 0; g < G; ++g) {
    const int T = static_cast<int>(last[static_cast<std::size_t>(g)]);
    double cap = 0, mean[4], q[12];
    Cpp_ComputeKaplanMeanMedian(table(g), R, T + 1, o.alpha,
                                static_cast<int>(sizes[static_cast<std::size_t>(g)]), &cap, mean,
                                q);
    const std::string name = GroupName(o, d.labels[static_cast<std::size_t>(g)]);
    means.add({name, Num(mean[0], 1), Num(mean[1], 1), Num(mean[2], 1), Num(mean[3], 1),
               cap > 0 ? Num(cap, 1) : std::string("none (S reaches 0)")});
    for (int r = 2; r >= 0; --r)
      quart.add({name, percentile[r], Num(q[3 + r], 1), Num(q[6 + r], 1), Num(q[9 + r], 1)});
  }
  means.print(stdout);
  std::printf("\nQuartiles of the survival time\n");
  quart.print(stdout);

  // 4. Comparison tests.
  if (G >= 2) {
    int T = n;
    std::vector<double> combined(static_cast<std::size_t>(3 * G + 1) * static_cast<std::size_t>(T));
    LoadKaplanTest(&T, tables.data(), G, R, last.data(), combined.data());
    std::vector<double> res(12), pairs(static_cast<std::size_t>(3 * G * (G - 1) / 2) * 7);
    ComputeLifeTests(combined.data(), T, G, o.alpha, res.data());
    Cpp_ComputeMultComp(combined.data(), T, G, o.alpha, pairs.data());
    std::printf("\nComparison of the %d survival curves (H0: equal survival)\n", G);
    TextTable tests({"test", "chi-square", "df", "critical value", "p-value"});
    const char* names[3] = {"Log-rank", "Gehan-Wilcoxon", "Tarone-Ware"};
    for (int r = 0; r < 3; ++r)
      tests.add({names[r], Num(res[static_cast<std::size_t>(r)], 4), std::to_string(G - 1),
                 Num(res[static_cast<std::size_t>(3 + r)], 4),
                 PValue(res[static_cast<std::size_t>(6 + r)])});
    tests.print(stdout);
    const int rows = 3 * G * (G - 1) / 2;
    std::printf("\nPairwise comparisons (1 df; Bonferroni and Holm adjusted p-values)\n");
    TextTable pw({"groups", "test", "chi-square", "p-value", "Bonferroni", "Holm"});
    for (int r = 0; r < rows; ++r) {
      auto p = [&](int c) { return pairs[static_cast<std::size_t>(c) * rows + r]; };
      pw.add({d.labels[static_cast<std::size_t>(p(0)) - 1] + " vs " +
                  d.labels[static_cast<std::size_t>(p(1)) - 1],
              names[static_cast<int>(p(2)) - 1], Num(p(3), 4), PValue(p(4)), PValue(p(5)),
              PValue(p(6))});
    }
    pw.print(stdout);
  }
  return 0;
}

}  // namespace velkor_cli
