// Method comparison subcommands: `velkor bland-altman` (Cpp_BlandAltman, Cpp_BlandAltmanLoACI),
// `velkor repeatability` (Cpp_GetRepeatability), `velkor passing-bablok` (Cpp_Passing_Bablok or
// Cpp_PassingBablokBIS) and `velkor deming` (VB_DemingRegression or Cpp_NewDemingRegression).
// Missing cells are passed to the library as its missing-value marker: each analysis leaves
// such rows out itself, as documented in its header.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "commands.h"
#include "velkor/VELKORLI1M.h"

namespace velkor_cli {

const Command kBlandAltmanCommand{
    "bland-altman",
    "Bland-Altman analysis of two methods: bias with its interval, limits of agreement with\n"
    "  their confidence limits, per-row differences and means, and the Bland-Altman plot.",
    "FILE.csv --x COL --y COL [options]",
    {{"--x", "COL", "method 1", ""},
     {"--y", "COL", "method 2", ""},
     {"--type", "T", "difference: diff (y - x), relative ((y - x) / mean), ratio (y / x)", "diff"},
     {"--loa-ci", "M",
      "confidence limits of the limits of agreement: approx (Bland-Altman 1999), exact (Carkeet "
      "2015)",
      "exact"},
     {"--alpha-ci", "A", "significance level of those confidence limits", "0.05"}}};

const Command kRepeatabilityCommand{
    "repeatability",
    "Repeatability: within-subject standard deviation of replicated measurements with its\n"
    "  chi-square interval.",
    "FILE.csv --value COL --subject COL [options]",
    {{"--value", "COL", "measurements", ""},
     {"--subject", "COL", "subject of each row (numbers or text)", ""}}};

const Command kPassingBablokCommand{
    "passing-bablok",
    "Passing-Bablok regression of method 2 on method 1: intercept and slope with their\n"
    "  limits, cusum linearity test, per-row fit, and the scatter with fitted and identity lines.",
    "FILE.csv --x COL --y COL [options]",
    {{"--x", "COL", "method 1", ""},
     {"--y", "COL", "method 2", ""},
     {"--method", "M", "standard (shifted median) or equivariant (scale-invariant)", "standard"},
     {"--allow-negative", "", "accept a negative association (slope on the scale of y)", ""}}};

const Command kDemingCommand{
    "deming",
    "Deming regression of method 2 on method 1 with jackknife standard errors, optionally on\n"
    "  replicates (--subject) and iteratively weighted.",
    "FILE.csv --x COL --y COL [options]",
    {{"--x", "COL", "method 1", ""},
     {"--y", "COL", "method 2", ""},
     {"--lambda", "L", "error-variance ratio var(e_y)/var(e_x); 0 = estimate from replicates", "1"},
     {"--subject", "COL", "subject of each row: replicates of one subject share it", ""},
     {"--weighted", "", "iteratively weighted fit (needs --subject)", ""},
     {"--max-iter", "N", "iteration cap of the weighted fit", "50"},
     {"--tol", "T", "tolerance on the slope of the weighted fit", "1e-10"}}};

namespace {

void ToMarker(std::vector<double>& v) {
  for (double& x : v)
    if (std::isnan(x)) x = VELKOR_MISSING;
}

// Subject codes 1..k in order of first appearance; missing cells get the marker.
std::vector<double> SubjectCodes(const CsvTable& csv, int col, std::size_t& k) {
  std::map<std::string, double> code;
  std::vector<double> out;
  for (std::size_t i = 0; i < csv.rows(); ++i) {
    const std::string_view f = csv.field(i, static_cast<std::size_t>(col));
    if (IsMissingCell(f)) {
      out.push_back(VELKOR_MISSING);
      continue;
    }
    const auto it = code.emplace(std::string(f), static_cast<double>(code.size() + 1)).first;
    out.push_back(it->second);
  }
  k = code.size();
  return out;
}

bool Require(const std::string& cmd, const Args& a, std::initializer_list<const char*> names) {
  for (const char* o : names)
    if (!a.has(o)) {
      Fail(cmd, std::string(o) + " is required (velkor " + cmd + " --help)");
      return false;
    }
  return true;
}

void Record(Report& r, const Args& a, std::initializer_list<const char*> names) {
  for (const char* o : names)
    if (a.has(o)) r.options.emplace_back(o + 2, a.get(o));
}

std::string Level(double alpha) {
  return std::to_string(static_cast<int>(std::lround(100 * (1 - alpha)))) + "%";
}

Table Estimates(const std::string& name, const std::string& title, double alpha) {
  Table t{name, title, {}};
  t.text("statistic");
  t.num("estimate", 4);
  t.num("std. error", 4);
  t.num("lower " + Level(alpha), 4);
  t.num("upper " + Level(alpha), 4);
  return t;
}

void AddEstimate(Table& t, const std::string& label, double est, double se, double lo, double hi) {
  t.columns[0].s.push_back(label);
  t.columns[1].v.push_back(est);
  t.columns[2].v.push_back(se);
  t.columns[3].v.push_back(lo);
  t.columns[4].v.push_back(hi);
}

// Scatter of (x, y) with the fitted line a + b x and the identity line over the x range.
Chart RegressionChart(const std::string& title, const Args& a, const std::vector<double>& x,
                      const std::vector<double>& y, double ia, double sb) {
  Chart c("scatter", title, a.get("--x"), a.get("--y"));
  Series pts{"data", x, y, 0, false, true, false, false, false, {}, {}};
  double lo = INFINITY, hi = -INFINITY;
  for (std::size_t i = 0; i < x.size(); ++i)
    if (!IsMissingValue(x[i]) && !IsMissingValue(y[i]))
      lo = std::min(lo, x[i]), hi = std::max(hi, x[i]);
  c.series.push_back(pts);
  if (lo <= hi) {
    if (!IsMissingValue(ia) && !IsMissingValue(sb) && std::abs(sb) < 1e300) {
      char label[96];
      std::snprintf(label, sizeof label, "fit: y = %.4g %s %.4g x", ia, sb < 0 ? "-" : "+",
                    std::abs(sb));
      c.series.push_back(Series{label,
                                {lo, hi},
                                {ia + sb * lo, ia + sb * hi},
                                1,
                                true,
                                false,
                                false,
                                false,
                                true,
                                {},
                                {}});
    }
    c.series.push_back(
        Series{"identity y = x", {lo, hi}, {lo, hi}, -1, true, false, true, true, true, {}, {}});
  }
  c.legendLeft = true;
  return c;
}

bool LoadXY(const std::string& cmd, const Args& a, CsvTable& csv, std::vector<double>& x,
            std::vector<double>& y) {
  return LoadCsv(cmd, a.file, csv) && NumericColumn(cmd, csv, a.get("--x"), x) &&
         NumericColumn(cmd, csv, a.get("--y"), y);
}

}  // namespace

int RunBlandAltman(const Args& a) {
  const std::string cmd = "bland-altman";
  if (!Require(cmd, a, {"--x", "--y"})) return kExitUsage;
  const std::string& type = a.get("--type");
  const std::string& ci = a.get("--loa-ci");
  if (type != "diff" && type != "relative" && type != "ratio") {
    Fail(cmd, "--type must be diff, relative or ratio (velkor bland-altman --help)");
    return kExitUsage;
  }
  if (ci != "approx" && ci != "exact") {
    Fail(cmd, "--loa-ci must be approx or exact (velkor bland-altman --help)");
    return kExitUsage;
  }
  CsvTable csv;
  std::vector<double> x, y;
  if (!LoadXY(cmd, a, csv, x, y)) return kExitInput;
  ToMarker(x);
  ToMarker(y);
  const int n = static_cast<int>(x.size());
  const int t = type == "diff" ? 0 : type == "relative" ? 1 : 2;
  const double alpha = a.number("--alpha"), alphaCI = a.number("--alpha-ci");
  std::vector<double> diffs(x.size(), VELKOR_MISSING), means(x.size(), VELKOR_MISSING);
  double bias = 0, sd = 0, bl = 0, bh = 0, ll = 0, lh = 0, limits[6];
  int st = Cpp_BlandAltman(x.data(), y.data(), n, t, alpha, diffs.data(), means.data(), &bias, &sd,
                           &bl, &bh, &ll, &lh);
  if (st == 0)
    st = Cpp_BlandAltmanLoACI(x.data(), y.data(), n, t, alpha, alphaCI, ci == "approx" ? 0 : 1,
                              limits);
  if (st != 0) {
    Fail(cmd, "library status " + std::to_string(st));
    return ExitForStatus(st);
  }
  Report r;
  r.command = cmd;
  r.title = "Bland-Altman analysis of " + a.file;
  Record(r, a, {"--x", "--y", "--type", "--loa-ci", "--alpha", "--alpha-ci"});
  r.notes.push_back("difference: " +
                    std::string(t == 0   ? "y - x"
                                : t == 1 ? "(y - x) / mean"
                                         : "y / x") +
                    " with x = " + a.get("--x") + ", y = " + a.get("--y"));
  Table s = Estimates("agreement", "Bias and limits of agreement", alpha);
  s.columns[2].header = "std. deviation";
  AddEstimate(s, "bias", bias, sd, bl, bh);
  const std::string ciLevel = Level(alphaCI);
  s.columns[3].header = "lower limit";
  s.columns[4].header = "upper limit";
  AddEstimate(s, "lower limit of agreement", ll, VELKOR_MISSING, limits[1], limits[2]);
  AddEstimate(s, "upper limit of agreement", lh, VELKOR_MISSING, limits[4], limits[5]);
  r.notes.push_back("limits of the bias at " + Level(alpha) + ", of the limits of agreement at " +
                    ciLevel);
  r.tables.push_back(std::move(s));
  Table rows{"rows", "Per-row means and differences", {}};
  rows.num("row", 0);
  rows.num("mean", 4).v = means;
  rows.num("difference", 4).v = diffs;
  for (int i = 0; i < n; ++i) rows.columns[0].v.push_back(i + 1);
  r.tables.push_back(std::move(rows));

  Chart c("bland-altman", "Bland-Altman plot", "Mean of the two methods",
          t == 2 ? "Ratio y / x" : "Difference");
  c.series.push_back(Series{"data", means, diffs, 0, false, true, false, false, false, {}, {}});
  double lo = INFINITY, hi = -INFINITY;
  for (double m : means)
    if (!IsMissingValue(m)) lo = std::min(lo, m), hi = std::max(hi, m);
  if (lo <= hi) {
    c.series.push_back(
        Series{"bias", {lo, hi}, {bias, bias}, 1, true, false, false, false, true, {}, {}});
    c.series.push_back(Series{
        "limits of agreement", {lo, hi}, {ll, ll}, 2, true, false, true, false, true, {}, {}});
    c.series.push_back(
        Series{"upper limit", {lo, hi}, {lh, lh}, 2, true, false, true, false, false, {}, {}});
  }
  r.charts.push_back(std::move(c));
  if (a.get("--format") == "text") r.tables.pop_back();  // per-row table: csv/json/xlsx only
  return Emit(cmd, a, r);
}

int RunRepeatability(const Args& a) {
  const std::string cmd = "repeatability";
  if (!Require(cmd, a, {"--value", "--subject"})) return kExitUsage;
  CsvTable csv;
  std::vector<double> x;
  if (!LoadCsv(cmd, a.file, csv) || !NumericColumn(cmd, csv, a.get("--value"), x))
    return kExitInput;
  const int sc = TextColumnIndex(cmd, csv, a.get("--subject"));
  if (sc < 0) return kExitInput;
  ToMarker(x);
  std::size_t k = 0;
  const std::vector<double> subj = SubjectCodes(csv, sc, k);
  const double alpha = a.number("--alpha");
  double sw = 0, lo = 0, hi = 0;
  const int st =
      Cpp_GetRepeatability(x.data(), static_cast<int>(x.size()), subj.data(), alpha, &sw, &lo, &hi);
  if (st != 0) {
    Fail(cmd, "library status " + std::to_string(st));
    return ExitForStatus(st);
  }
  Report r;
  r.command = cmd;
  r.title = "Repeatability of " + a.get("--value") + " in " + a.file;
  Record(r, a, {"--value", "--subject", "--alpha"});
  r.notes.push_back(std::to_string(k) + " subjects, " + std::to_string(x.size()) + " rows");
  Table t = Estimates("repeatability", "Within-subject standard deviation", alpha);
  AddEstimate(t, "within-subject SD", sw, VELKOR_MISSING, lo, hi);
  t.columns.erase(t.columns.begin() + 2);
  r.tables.push_back(std::move(t));
  return Emit(cmd, a, r);
}

int RunPassingBablok(const Args& a) {
  const std::string cmd = "passing-bablok";
  if (!Require(cmd, a, {"--x", "--y"})) return kExitUsage;
  const std::string& m = a.get("--method");
  if (m != "standard" && m != "equivariant") {
    Fail(cmd, "--method must be standard or equivariant (velkor passing-bablok --help)");
    return kExitUsage;
  }
  CsvTable csv;
  std::vector<double> x, y;
  if (!LoadXY(cmd, a, csv, x, y)) return kExitInput;
  ToMarker(x);
  ToMarker(y);
  const int n = static_cast<int>(x.size());
  const double alpha = a.number("--alpha");
  const int option = a.has("--allow-negative") ? 3 : 1;
  double ia, al, ah, b, bl, bh, cus, crit, p;
  std::vector<double> fit(x.size()), res(x.size()), dif(x.size()), dist(x.size());
  const auto fn = m == "standard" ? Cpp_Passing_Bablok : Cpp_PassingBablokBIS;
  const int st = fn(x.data(), n, y.data(), option, alpha, &ia, &al, &ah, &b, &bl, &bh, fit.data(),
                    res.data(), dif.data(), dist.data(), &cus, &crit, &p);
  if (st == VELKOR_PAB_NEGATIVE_TAU) {
    Fail(cmd,
         "the methods are negatively associated (Kendall tau < 0; library status -10); "
         "--allow-negative fits them anyway");
    return kExitDataBase + 10;
  }
  if (st != 0) {
    Fail(cmd, "library status " + std::to_string(st));
    return ExitForStatus(st);
  }
  Report r;
  r.command = cmd;
  r.title = "Passing-Bablok regression (" + m + ") of " + a.get("--y") + " on " + a.get("--x");
  Record(r, a, {"--x", "--y", "--method", "--allow-negative", "--alpha"});
  Table t = Estimates("coefficients", "Coefficients", alpha);
  t.columns.erase(t.columns.begin() + 2);
  t.columns[0].s = {"intercept", "slope"};
  t.columns[1].v = {ia, b};
  t.columns[2].v = {al, bl};
  t.columns[3].v = {ah, bh};
  r.tables.push_back(std::move(t));
  Table lin{"linearity", "Cusum test of linearity", {}};
  lin.num("max |cusum|", 4).v = {cus};
  lin.num("critical value", 4).v = {crit};
  Column& pc = lin.num("p-value", 4);
  pc.pvalue = true;
  pc.v = {p};
  r.tables.push_back(std::move(lin));
  Table rows{"rows", "Per-row fit", {}};
  rows.num("x", 4).v = x;
  rows.num("y", 4).v = y;
  rows.num("fitted", 4).v = fit;
  rows.num("residual", 4).v = res;
  rows.num("y - x", 4).v = dif;
  rows.num("distance", 4).v = dist;
  r.tables.push_back(std::move(rows));
  r.charts.push_back(RegressionChart("Passing-Bablok regression", a, x, y, ia, b));
  if (a.get("--format") == "text") r.tables.pop_back();
  return Emit(cmd, a, r);
}

int RunDeming(const Args& a) {
  const std::string cmd = "deming";
  if (!Require(cmd, a, {"--x", "--y"})) return kExitUsage;
  CsvTable csv;
  std::vector<double> x, y;
  if (!LoadXY(cmd, a, csv, x, y)) return kExitInput;
  ToMarker(x);
  ToMarker(y);
  const int n = static_cast<int>(x.size());
  const double alpha = a.number("--alpha"), lambda = a.number("--lambda");
  std::vector<double> coef(8), info(3, VELKOR_MISSING), fit(x.size()), res(x.size());
  int st;
  std::vector<double> subj;
  const bool replicates = a.has("--subject") || a.has("--weighted") || !(lambda > 0);
  if (a.has("--subject")) {
    const int sc = TextColumnIndex(cmd, csv, a.get("--subject"));
    if (sc < 0) return kExitInput;
    std::size_t k = 0;
    subj = SubjectCodes(csv, sc, k);
  }
  if (replicates)
    st = Cpp_NewDemingRegression(x.data(), y.data(), n, subj.empty() ? nullptr : subj.data(),
                                 a.has("--weighted") ? -1 : 0, lambda, alpha,
                                 static_cast<int>(a.number("--max-iter")), a.number("--tol"),
                                 coef.data(), info.data(), fit.data(), res.data());
  else
    st = VB_DemingRegression(x.data(), y.data(), n, lambda, alpha, coef.data(), fit.data(),
                             res.data());
  if (st != 0) {
    Fail(cmd, st == -2   ? "fewer than 3 complete rows or subjects (library status -2)"
              : st == -5 ? "the fit is undefined (library status -5)"
                         : "library status " + std::to_string(st));
    return ExitForStatus(st);
  }
  Report r;
  r.command = cmd;
  r.title = "Deming regression of " + a.get("--y") + " on " + a.get("--x");
  Record(r, a, {"--x", "--y", "--lambda", "--subject", "--weighted", "--alpha"});
  Table t = Estimates("coefficients", "Coefficients (jackknife standard errors)", alpha);
  AddEstimate(t, "intercept", coef[0], coef[1], coef[2], coef[3]);
  AddEstimate(t, "slope", coef[4], coef[5], coef[6], coef[7]);
  r.tables.push_back(std::move(t));
  if (replicates) {
    Table fi{"fit", "Fit", {}};
    fi.num("lambda", 4).v = {info[0]};
    fi.num("subjects", 0).v = {info[1]};
    fi.num("iterations", 0).v = {info[2]};
    r.tables.push_back(std::move(fi));
  }
  Table rows{"rows", "Per-row fit", {}};
  rows.num("x", 4).v = x;
  rows.num("y", 4).v = y;
  rows.num("fitted", 4).v = fit;
  rows.num("residual", 4).v = res;
  r.tables.push_back(std::move(rows));
  r.charts.push_back(RegressionChart("Deming regression", a, x, y, coef[0], coef[4]));
  if (a.get("--format") == "text") r.tables.pop_back();
  return Emit(cmd, a, r);
}

}  // namespace velkor_cli
