// `velkor cuminc`: cumulative incidence of competing risks. The analysis chains the exports as
// the library's competing-risks front end does: Cpp_CheckStatusFormat (causes numbered in order
// of first appearance) -> Cpp_ReorganizeDataCum -> per group RunLife on the all-cause status ->
// Cpp_CumIncCalc per cause and group -> Cpp_GrayTest between the groups.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <unordered_map>
#include <vector>

#include "commands.h"
#include "velkor/VELKORLI1M.h"

namespace velkor_cli {

const Command kCumincCommand{
    "cuminc",
    "Cumulative incidence of competing risks (Aalen-Johansen) of each cause in each group with\n"
    "  its standard error and log-transformed interval, and Gray's test of equal incidence\n"
    "  across groups. Rows with a missing time, status, group or stratum are left out.",
    "FILE.csv --time COL --status COL [options]",
    {{"--time", "COL", "observation times", ""},
     {"--status", "COL", "cause of each row (numbers); the censoring code marks censored rows", ""},
     {"--censor-code", "K", "status value of a censored row", "0"},
     {"--group", "COL", "group column (numbers or text; ascending label order)", ""},
     {"--strata", "COL", "strata of Gray's test (numbers or text)", ""},
     {"--rho", "R", "weight exponent of Gray's test, (1 - F(t-))^rho", "0"}}};

namespace {

std::vector<double> Codes(const CsvTable& csv, int col, const std::vector<std::size_t>& rows,
                          std::vector<std::string>& labels) {
  std::vector<std::string> distinct;
  std::unordered_map<std::string_view, std::size_t> seen;
  std::vector<std::size_t> idx;
  for (std::size_t i : rows) {
    const std::string_view f = col >= 0 ? csv.field(i, static_cast<std::size_t>(col)) : "all";
    const auto [it, fresh] = seen.emplace(f, distinct.size());
    if (fresh) distinct.emplace_back(f);
    idx.push_back(it->second);
  }
  labels = distinct;
  bool numeric = true;
  for (const std::string& l : labels) {
    double x;
    numeric = numeric && ParseNumber(l, x);
  }
  std::sort(labels.begin(), labels.end(), [&](const std::string& a, const std::string& b) {
    if (!numeric) return a < b;
    double x = 0, y = 0;
    ParseNumber(a, x);
    ParseNumber(b, y);
    return x < y || (x == y && a < b);
  });
  std::vector<double> rank(distinct.size());
  for (std::size_t k = 0; k < distinct.size(); ++k)
    rank[k] = static_cast<double>(std::find(labels.begin(), labels.end(), distinct[k]) -
                                  labels.begin() + 1);
  std::vector<double> out;
  out.reserve(idx.size());
  for (std::size_t k : idx) out.push_back(rank[k]);
  return out;
}

}  // namespace

int RunCuminc(const Args& a) {
  const std::string cmd = "cuminc";
  if (!a.has("--time") || !a.has("--status")) {
    Fail(cmd, "--time and --status are required (velkor cuminc --help)");
    return kExitUsage;
  }
  CsvTable csv;
  std::vector<double> t, s;
  if (!LoadCsv(cmd, a.file, csv) || !NumericColumn(cmd, csv, a.get("--time"), t) ||
      !NumericColumn(cmd, csv, a.get("--status"), s))
    return kExitInput;
  int gcol = -1, scol = -1;
  if (a.has("--group") && (gcol = TextColumnIndex(cmd, csv, a.get("--group"))) < 0)
    return kExitInput;
  if (a.has("--strata") && (scol = TextColumnIndex(cmd, csv, a.get("--strata"))) < 0)
    return kExitInput;
  std::vector<std::size_t> rows;
  for (std::size_t i = 0; i < csv.rows(); ++i)
    if (!std::isnan(t[i]) && !std::isnan(s[i]) &&
        (gcol < 0 || !IsMissingCell(csv.field(i, static_cast<std::size_t>(gcol)))) &&
        (scol < 0 || !IsMissingCell(csv.field(i, static_cast<std::size_t>(scol)))))
      rows.push_back(i);
  const int n = static_cast<int>(rows.size());
  const double alpha = a.number("--alpha");
  const int censor = static_cast<int>(a.number("--censor-code"));
  std::vector<double> times, status;
  for (std::size_t i : rows) times.push_back(t[i]), status.push_back(s[i]);
  std::vector<std::string> glabels, slabels;
  std::vector<double> groups = Codes(csv, gcol, rows, glabels);
  std::vector<double> strata;
  if (scol >= 0) strata = Codes(csv, scol, rows, slabels);
  const int G = static_cast<int>(glabels.size());

  // 1. Causes numbered in order of first appearance.
  std::vector<double> causes(static_cast<std::size_t>(std::max(n, 1))), recoded(causes.size());
  unsigned int nCauses = 0;
  int st = Cpp_CheckStatusFormat(status.data(), n, causes.data(), &nCauses, censor, recoded.data());
  if (st == -1) {
    Fail(cmd, n < 1 ? "no rows to analyse"
                    : "every row is censored: no event from any cause (library status -1)");
    return ExitForStatus(st);
  }
  if (st != 0) {
    Fail(cmd, "internal failure (library status " + std::to_string(st) + ")");
    return ExitForStatus(st);
  }
  // 2. Group blocks ascending in time.
  std::vector<double> sizes(static_cast<std::size_t>(std::max(G, 1)), 0.0),
      allCause(static_cast<std::size_t>(n));
  for (double g : groups) sizes[static_cast<std::size_t>(g) - 1] += 1.0;
  double maxTime = 0;
  st = Cpp_ReorganizeDataCum(times.data(), n, recoded.data(), allCause.data(), groups.data(),
                             sizes.data(), G, &maxTime);
  if (st == -2 || st > 0) {
    Fail(cmd, st == -2 ? "fewer than two observations (library status -2)"
                       : "internal failure (library status " + std::to_string(st) + ")");
    return ExitForStatus(st);
  }
  if (st == -3) Warn(cmd, "no event in the data (library status -3)");
  if (st == -5) Warn(cmd, "every observation is an event of the first cause (library status -5)");

  Report r;
  r.command = cmd;
  r.title = "Cumulative incidence of competing risks in " + a.file;
  for (const char* o :
       {"--time", "--status", "--censor-code", "--group", "--strata", "--rho", "--alpha"})
    if (a.has(o)) r.options.emplace_back(o + 2, a.get(o));
  std::string causeList;
  for (unsigned c = 0; c < nCauses; ++c) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%s%g", c ? ", " : "", causes[c]);
    causeList += buf;
  }
  r.notes.push_back(std::to_string(n) + " rows used, " + std::to_string(csv.rows() - rows.size()) +
                    " left out (missing values); causes (status values): " + causeList);
  const std::string level = std::to_string(static_cast<int>(std::lround(100 * (1 - alpha)))) + "%";
  Table inc{"incidence", "Cumulative incidence", {}};
  inc.text("group");
  inc.text("cause");
  const char* heads[9] = {"time",     "at risk",   "failures",   "events (all causes)",
                          "censored", "incidence", "std. error", "lower ",
                          "upper "};
  for (int c = 0; c < 9; ++c) {
    std::string h = heads[c];
    if (c >= 7) h += level;
    inc.num(h, c == 0 ? 1 : c < 5 ? 0 : 4);
  }
  Chart chart("cuminc", "Cumulative incidence", "Time", "Cumulative incidence");
  chart.unitY = true;
  chart.legendLeft = true;
  int offset = 0;
  for (int g = 0; g < G; ++g) {
    const int ng = static_cast<int>(sizes[static_cast<std::size_t>(g)]);
    const int R = ng + 2;
    std::vector<double> pl(static_cast<std::size_t>(R) * 12), last(1), totals(1),
        ones(static_cast<std::size_t>(std::max(ng, 1)), 1.0);
    RunLife(times.data() + offset, allCause.data() + offset, ones.data(), ng, nullptr, 0, 0, 1, 0,
            0.0, R, pl.data(), last.data(), totals.data());
    const int T = static_cast<int>(last[0]);
    for (unsigned c = 1; c <= nCauses; ++c) {
      std::vector<double> ic(static_cast<std::size_t>(std::max(T, 1)) * 10, 0.0), comp(ic.size());
      Cpp_CumIncCalc(T, n, times.data(), recoded.data(), static_cast<int>(c), alpha, ng, offset,
                     pl.data(), ic.data(), comp.data());
      char cause[32];
      std::snprintf(cause, sizeof cause, "%g", causes[c - 1]);
      const std::string gname = gcol >= 0 ? glabels[static_cast<std::size_t>(g)] : "all";
      Series sr{
          (gcol >= 0 ? a.get("--group") + " = " + gname + ", " : std::string()) + "cause " + cause,
          {0.0},
          {0.0},
          g,
          true,
          false,
          c > 1,
          false,
          true,
          {},
          {}};
      for (int j = 0; j < T; ++j) {
        auto v = [&](int col) {
          return ic[static_cast<std::size_t>(col) * T + static_cast<std::size_t>(j)];
        };
        inc.columns[0].s.push_back(gname);
        inc.columns[1].s.push_back(cause);
        for (int k = 0; k < 9; ++k) inc.columns[static_cast<std::size_t>(k) + 2].v.push_back(v(k));
        if (!IsMissingValue(v(5)) && v(5) != sr.y.back()) {
          sr.x.push_back(v(0));
          sr.y.push_back(sr.y.back());
          sr.x.push_back(v(0));
          sr.y.push_back(v(5));
        }
      }
      if (T > 0) {
        sr.x.push_back(ic[static_cast<std::size_t>(T) - 1]);
        sr.y.push_back(sr.y.back());
      }
      chart.series.push_back(sr);
    }
    offset += ng;
  }
  r.tables.push_back(std::move(inc));
  if (G >= 2) {
    std::vector<double> tests(static_cast<std::size_t>(nCauses) * 3);
    st = Cpp_GrayTest(times.data(), recoded.data(), groups.data(),
                      strata.empty() ? nullptr : strata.data(), n, 0, a.number("--rho"),
                      static_cast<int>(nCauses), G, tests.data(), nullptr, nullptr);
    if (st != 0) {
      Fail(cmd, "Gray's test: library status " + std::to_string(st));
      return ExitForStatus(st);
    }
    Table gt{"gray_test", "Gray's test of equal cumulative incidence across the groups", {}};
    gt.text("cause");
    gt.num("statistic", 4);
    gt.num("df", 0);
    gt.num("p-value", 4).pvalue = true;
    for (unsigned c = 0; c < nCauses; ++c) {
      char cause[32];
      std::snprintf(cause, sizeof cause, "%g", causes[c]);
      gt.columns[0].s.push_back(cause);
      for (int k = 0; k < 3; ++k)
        gt.columns[static_cast<std::size_t>(k) + 1].v.push_back(
            tests[static_cast<std::size_t>(k) * nCauses + c]);
    }
    r.tables.push_back(std::move(gt));
  }
  r.charts.push_back(std::move(chart));
  return Emit(cmd, a, r);
}

}  // namespace velkor_cli
