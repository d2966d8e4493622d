// `velkor roc`: ROC analysis of one or several markers (Cpp_ComputeROC per marker) and, for two
// markers or more, their paired comparison (Cpp_ComputeROCComparisonsDep2, DeLong).
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "commands.h"
#include "velkor/VELKORLI1M.h"

namespace velkor_cli {

const Command kRocCommand{
    "roc",
    "ROC analysis: curve, area under the curve with its standard error, interval and test of\n"
    "  AUC = 0.5, per-threshold sensitivity and specificity, Youden-optimal thresholds; with\n"
    "  several markers, the paired DeLong comparison of their areas. Rows with a missing status,\n"
    "  marker or weight are left out.",
    "FILE.csv --status COL --marker COL[,COL...] [options]",
    {{"--status", "COL", "true status column (numbers or text)", ""},
     {"--positive", "LABEL", "status value of the truly positive rows", "1"},
     {"--marker", "COLS", "test variable(s), comma-separated", ""},
     {"--weight", "COL", "frequency weights", ""},
     {"--side", "S", "test-positive side: 1 value >= t, 2 value <= t, 3 value > t, 4 value < t",
      "1"},
     {"--se-method", "M", "standard error of the AUC: delong, hanley (Hanley-McNeil), bamber",
      "delong"},
     {"--tail", "T", "test of AUC = 0.5: two, lower, upper", "two"},
     {"--interval", "M",
      "interval method of Se and Sp: 0 Wald, 1 adjusted Wald, 2 Wilson, 3 Clopper-Pearson", "3"},
     {"--prior", "P", "prior prevalence for the predictive values (0 = sample prevalence)", "0"}}};

namespace {

std::vector<std::string> SplitList(const std::string& s) {
  std::vector<std::string> out;
  std::size_t start = 0;
  for (;;) {
    const std::size_t comma = s.find(',', start);
    out.push_back(s.substr(start, comma - start));
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
  return out;
}

}  // namespace

int RunRoc(const Args& a) {
  const std::string cmd = "roc";
  if (!a.has("--status") || !a.has("--marker")) {
    Fail(cmd, "--status and --marker are required (velkor roc --help)");
    return kExitUsage;
  }
  const std::string& se = a.get("--se-method");
  const std::string& tail = a.get("--tail");
  if (se != "delong" && se != "hanley" && se != "bamber") {
    Fail(cmd, "--se-method must be delong, hanley or bamber (velkor roc --help)");
    return kExitUsage;
  }
  if (tail != "two" && tail != "lower" && tail != "upper") {
    Fail(cmd, "--tail must be two, lower or upper (velkor roc --help)");
    return kExitUsage;
  }
  const std::vector<std::string> markers = SplitList(a.get("--marker"));
  CsvTable csv;
  if (!LoadCsv(cmd, a.file, csv)) return kExitInput;
  const int scol = TextColumnIndex(cmd, csv, a.get("--status"));
  if (scol < 0) return kExitInput;
  std::vector<std::vector<double>> values(markers.size());
  for (std::size_t m = 0; m < markers.size(); ++m)
    if (!NumericColumn(cmd, csv, markers[m], values[m])) return kExitInput;
  std::vector<double> w;
  if (a.has("--weight") && !NumericColumn(cmd, csv, a.get("--weight"), w)) return kExitInput;

  // Status: 1 when the cell equals the positive label (as text, or as the same number).
  const std::string& positive = a.get("--positive");
  double positiveNumber = 0;
  const bool positiveIsNumber = ParseNumber(positive, positiveNumber);
  std::vector<double> status, weights;
  std::vector<std::vector<double>> x(markers.size());
  std::size_t dropped = 0;
  for (std::size_t i = 0; i < csv.rows(); ++i) {
    const std::string_view f = csv.field(i, static_cast<std::size_t>(scol));
    bool missing = IsMissingCell(f) || (!w.empty() && std::isnan(w[i]));
    for (const auto& v : values) missing = missing || std::isnan(v[i]);
    if (missing) {
      ++dropped;
      continue;
    }
    double num = 0;
    const bool isPositive =
        f == positive || (positiveIsNumber && ParseNumber(f, num) && num == positiveNumber);
    status.push_back(isPositive ? 1.0 : 0.0);
    weights.push_back(w.empty() ? 1.0 : w[i]);
    for (std::size_t m = 0; m < markers.size(); ++m) x[m].push_back(values[m][i]);
  }
  const int n = static_cast<int>(status.size());
  const double alpha = a.number("--alpha");
  const int side = static_cast<int>(a.number("--side"));
  const int seMethod = se == "hanley" ? 0 : se == "bamber" ? 1 : 2;
  const short tailCode = tail == "two" ? 0 : tail == "lower" ? -1 : 1;
  const int interval = static_cast<int>(a.number("--interval"));
  const double prior = a.number("--prior");

  Report r;
  r.command = cmd;
  r.title = "ROC analysis of " + a.file;
  for (const char* o : {"--status", "--positive", "--marker", "--weight", "--side", "--se-method",
                        "--tail", "--interval", "--prior", "--alpha"})
    if (a.has(o)) r.options.emplace_back(o + 2, a.get(o));
  r.notes.push_back("status: " + a.get("--status") + " (positive = " + positive + "); " +
                    std::to_string(n) + " rows used, " + std::to_string(dropped) +
                    " left out (missing values)");

  const int level = static_cast<int>(std::lround(100 * (1 - alpha)));
  const std::string lo = "lower " + std::to_string(level) + "%",
                    hi = "upper " + std::to_string(level) + "%";
  Table auc{"auc", "Area under the ROC curve (test of AUC = 0.5, " + tail + "-sided)", {}};
  auc.text("marker");
  for (const std::string& h : {std::string("AUC"), std::string("std. error"), lo, hi,
                               std::string("z"), std::string("p-value")})
    auc.num(h, 4);
  auc.columns.back().pvalue = true;
  Table curve{"curve", "ROC curve", {}};
  curve.text("marker");
  curve.num("1 - specificity", 4);
  curve.num("sensitivity", 4);
  curve.num("threshold", 4);
  Table thr{"thresholds", "Classification at each threshold", {}};
  thr.text("marker");
  for (const char* h : {"threshold", "TP", "FP", "FN", "TN", "sensitivity", "specificity", "PPV",
                        "NPV", "Youden J"})
    thr.num(h, std::string(h).size() == 2 ? 0 : 4);
  Table opt{"optimal", "Thresholds maximising the Youden index", {}};
  opt.text("marker");
  opt.num("threshold", 4);
  opt.num("Youden J", 4);
  Chart chart("roc", "ROC curve", "1 - specificity", "Sensitivity");
  chart.unitSquare = true;

  for (std::size_t m = 0; m < markers.size(); ++m) {
    const std::size_t R = static_cast<std::size_t>(std::max(n, 1));
    std::vector<double> cv((R + 1) * 3), ts(R * 44), costs(R), res(9), optimal(R * 4);
    int counts[3] = {0, 0, 0};
    const int st = Cpp_ComputeROC(status.data(), x[m].data(), weights.data(), n, side, alpha,
                                  seMethod, tailCode, interval, 0, prior, nullptr, 0, cv.data(),
                                  ts.data(), costs.data(), res.data(), optimal.data(), counts);
    if (st != 0) {
      Fail(cmd, st == -2
                    ? "marker '" + markers[m] +
                          "': the rows used hold no positive or no negative (library status -2)"
                    : "internal failure (library status " + std::to_string(st) + ")");
      return ExitForStatus(st);
    }
    auc.columns[0].s.push_back(markers[m]);
    const int pick[6] = {0, 1, 2, 3, 4, 7};
    for (int c = 0; c < 6; ++c)
      auc.columns[static_cast<std::size_t>(c) + 1].v.push_back(
          res[static_cast<std::size_t>(pick[c])]);
    const int k = counts[0];
    Series s{markers[m], {}, {}, static_cast<int>(m), true, false, false, false, true, {}, {}};
    for (int j = 0; j <= k; ++j) {
      curve.columns[0].s.push_back(markers[m]);
      for (int c = 0; c < 3; ++c)
        curve.columns[static_cast<std::size_t>(c) + 1].v.push_back(
            cv[static_cast<std::size_t>(c) * (R + 1) + static_cast<std::size_t>(j)]);
      s.x.push_back(cv[static_cast<std::size_t>(j)]);
      s.y.push_back(cv[(R + 1) + static_cast<std::size_t>(j)]);
    }
    chart.series.push_back(s);
    for (int j = 0; j < k; ++j) {
      auto t = [&](int col) {
        return ts[static_cast<std::size_t>(col - 1) * R + static_cast<std::size_t>(j)];
      };
      thr.columns[0].s.push_back(markers[m]);
      const double sens = t(8), specif = t(9);
      const double vals[10] = {
          t(1),
          t(2),
          t(3),
          t(4),
          t(5),
          sens,
          specif,
          t(13),
          t(14),
          IsMissingValue(sens) || IsMissingValue(specif) ? VELKOR_MISSING : sens + specif - 1};
      for (int c = 0; c < 10; ++c)
        thr.columns[static_cast<std::size_t>(c) + 1].v.push_back(vals[c]);
    }
    for (int j = 0; j < counts[1]; ++j) {
      opt.columns[0].s.push_back(markers[m]);
      opt.columns[1].v.push_back(optimal[static_cast<std::size_t>(j)]);
      opt.columns[2].v.push_back(optimal[R + static_cast<std::size_t>(j)]);
    }
  }
  chart.series.push_back(
      Series{"chance", {0, 1}, {0, 1}, -1, true, false, true, true, true, {}, {}});
  r.tables.push_back(std::move(auc));

  // Paired comparison of the areas.
  const int M = static_cast<int>(markers.size());
  if (M >= 2) {
    std::vector<double> all;
    for (const auto& v : x) all.insert(all.end(), v.begin(), v.end());
    std::vector<double> aucs(static_cast<std::size_t>(M) * 4), cov(static_cast<std::size_t>(M * M)),
        global(3), pairs(static_cast<std::size_t>(M * (M - 1) / 2) * 8);
    const int st =
        Cpp_ComputeROCComparisonsDep2(status.data(), all.data(), weights.data(), n, M, side, alpha,
                                      aucs.data(), cov.data(), global.data(), pairs.data());
    if (st != 0) {
      Fail(cmd, "paired comparison failed (library status " + std::to_string(st) + ")");
      return ExitForStatus(st);
    }
    Table cmp{"comparison", "Paired comparison of the areas (DeLong)", {}};
    cmp.text("marker a");
    cmp.text("marker b");
    for (const std::string& h : {std::string("difference"), std::string("std. error"), lo, hi,
                                 std::string("z"), std::string("p-value")})
      cmp.num(h, 4);
    cmp.columns.back().pvalue = true;
    const int P = M * (M - 1) / 2;
    for (int p = 0; p < P; ++p) {
      auto v = [&](int c) {
        return pairs[static_cast<std::size_t>(c) * P + static_cast<std::size_t>(p)];
      };
      cmp.columns[0].s.push_back(markers[static_cast<std::size_t>(v(0)) - 1]);
      cmp.columns[1].s.push_back(markers[static_cast<std::size_t>(v(1)) - 1]);
      for (int c = 2; c < 8; ++c) cmp.columns[static_cast<std::size_t>(c)].v.push_back(v(c));
    }
    Table glob{"global_test", "Test of equal areas", {}};
    glob.num("chi-square", 4).v.push_back(global[0]);
    glob.num("df", 0).v.push_back(global[1]);
    Column& gp = glob.num("p-value", 4);
    gp.pvalue = true;
    gp.v.push_back(global[2]);
    r.tables.push_back(std::move(cmp));
    r.tables.push_back(std::move(glob));
  }
  r.tables.push_back(std::move(opt));
  r.tables.push_back(std::move(curve));
  r.tables.push_back(std::move(thr));
  r.charts.push_back(std::move(chart));
  if (a.get("--format") == "text")
    r.tables.resize(r.tables.size() - 2);  // curve and thresholds: csv/json/xlsx only
  return Emit(cmd, a, r);
}

}  // namespace velkor_cli
