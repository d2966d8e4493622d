// Regression subcommands: `velkor cox` (RunCoxReg) and `velkor survreg` (Cpp_RunParamReg). Both
// build the design matrix from numeric covariates and qualitative factors (one indicator column
// per level after the first, in ascending label order; a factor enters and leaves the selection
// as a whole) and leave out rows with a missing value in any column used.
#include <algorithm>
#include <cmath>
#include <string>
#include <unordered_map>
#include <vector>

#include "commands.h"
#include "velkor/VELKORLI1M.h"

namespace velkor_cli {

const Command kCoxCommand{
    "cox",
    "Cox proportional hazards regression: coefficients and hazard ratios with limits, model\n"
    "  criteria, likelihood-ratio / score / Wald tests, optional strata and forward or backward\n"
    "  selection of covariates (factors enter and leave as a whole).",
    "FILE.csv --time COL --status COL --covariates COL[,COL...] [options]",
    {{"--time", "COL", "observation times", ""},
     {"--status", "COL", "status column: the event code is an event, other values censored", ""},
     {"--event-code", "K", "status value of an event", "1"},
     {"--covariates", "COLS", "numeric covariates, comma-separated", ""},
     {"--factors", "COLS", "qualitative covariates (indicator columns, first level as reference)",
      ""},
     {"--strata", "COL", "stratum column (numbers or text)", ""},
     {"--weight", "COL", "case weights of the event terms", ""},
     {"--ties", "T", "breslow or efron (the flat form computes Breslow for both)", "breslow"},
     {"--selection", "S", "none, forward or backward", "none"},
     {"--threshold", "P", "selection p-value threshold", "0.05"},
     {"--back-statistic", "S", "backward removal statistic: wald or lr", "wald"},
     {"--max-iter", "N", "iteration limit", "100"},
     {"--tol", "T", "convergence tolerance", "1e-9"}}};

const Command kSurvregCommand{
    "survreg",
    "Parametric survival regression (accelerated failure time, log time): exponential, Weibull\n"
    "  or log-normal law with right, left or interval censoring and optional selection.",
    "FILE.csv --time COL --status COL [--covariates COLS] [options]",
    {{"--time", "COL", "observation times (lower bound of an interval)", ""},
     {"--time2", "COL", "upper bound of interval-censored rows (code 3)", ""},
     {"--status", "COL", "status column", ""},
     {"--event-code", "K", "status value of an event; other values right-censored", "1"},
     {"--codes", "",
      "the status column holds the codes 1 event, 0 right, 2 left, 3 interval censored", ""},
     {"--covariates", "COLS", "numeric covariates, comma-separated", ""},
     {"--factors", "COLS", "qualitative covariates (indicator columns, first level as reference)",
      ""},
     {"--weight", "COL", "observation weights", ""},
     {"--dist", "D", "exponential, weibull or lognormal", "weibull"},
     {"--selection", "S", "none, forward or backward", "none"},
     {"--p-enter", "P", "forward selection: p-value to enter", "0.05"},
     {"--p-remove", "P", "backward elimination: p-value to leave", "0.1"},
     {"--max-iter", "N", "iteration limit", "100"},
     {"--tol", "T", "convergence tolerance", "1e-9"}}};

namespace {

std::vector<std::string> List(const Args& a, const char* o) {
  std::vector<std::string> out;
  if (!a.has(o)) return out;
  const std::string& s = a.get(o);
  std::size_t start = 0;
  for (;;) {
    const std::size_t c = s.find(',', start);
    if (c > start) out.push_back(s.substr(start, c - start));
    if (c == std::string::npos) break;
    start = c + 1;
  }
  return out;
}

// Numeric label order when every label is a number, text order otherwise.
void SortLabels(std::vector<std::string>& v) {
  bool numeric = true;
  for (const std::string& l : v) {
    double x;
    numeric = numeric && ParseNumber(l, x);
  }
  std::sort(v.begin(), v.end(), [&](const std::string& a, const std::string& b) {
    if (!numeric) return a < b;
    double x = 0, y = 0;
    ParseNumber(a, x);
    ParseNumber(b, y);
    return x < y || (x == y && a < b);
  });
}

struct Design {
  std::vector<std::string> columnNames;  // one per column of x
  std::vector<int> varCoefs;             // columns of each variable
  std::vector<std::string> varNames;
  std::vector<double> x;          // rows used x columns, column-major
  std::vector<std::size_t> rows;  // CSV rows used
};

// Rows used: every listed numeric column and factor present. `extra` are numeric columns that
// must also be present (time, status, ...), loaded into `values`.
bool BuildDesign(const std::string& cmd, const CsvTable& csv, const Args& a,
                 const std::vector<std::string>& extra, std::vector<std::vector<double>>& values,
                 const std::vector<std::string>& textCols, Design& d) {
  const std::vector<std::string> covs = List(a, "--covariates"), facs = List(a, "--factors");
  values.assign(extra.size(), {});
  for (std::size_t k = 0; k < extra.size(); ++k)
    if (!NumericColumn(cmd, csv, extra[k], values[k])) return false;
  std::vector<std::vector<double>> cov(covs.size());
  for (std::size_t k = 0; k < covs.size(); ++k)
    if (!NumericColumn(cmd, csv, covs[k], cov[k])) return false;
  std::vector<int> fcol, tcol;
  for (const std::string& f : facs) {
    fcol.push_back(TextColumnIndex(cmd, csv, f));
    if (fcol.back() < 0) return false;
  }
  for (const std::string& t : textCols) {
    tcol.push_back(TextColumnIndex(cmd, csv, t));
    if (tcol.back() < 0) return false;
  }
  for (std::size_t i = 0; i < csv.rows(); ++i) {
    bool ok = true;
    for (const auto& v : values) ok = ok && !std::isnan(v[i]);
    for (const auto& v : cov) ok = ok && !std::isnan(v[i]);
    for (int c : fcol) ok = ok && !IsMissingCell(csv.field(i, static_cast<std::size_t>(c)));
    for (int c : tcol) ok = ok && !IsMissingCell(csv.field(i, static_cast<std::size_t>(c)));
    if (ok) d.rows.push_back(i);
  }
  const std::size_t n = d.rows.size();
  for (std::size_t k = 0; k < covs.size(); ++k) {
    for (std::size_t i : d.rows) d.x.push_back(cov[k][i]);
    d.columnNames.push_back(covs[k]);
    d.varNames.push_back(covs[k]);
    d.varCoefs.push_back(1);
  }
  for (std::size_t k = 0; k < facs.size(); ++k) {
    std::vector<std::string> levels;
    std::unordered_map<std::string, int> seen;
    for (std::size_t i : d.rows) {
      std::string l(csv.field(i, static_cast<std::size_t>(fcol[k])));
      if (seen.emplace(l, 0).second) levels.push_back(l);
    }
    SortLabels(levels);
    if (levels.size() < 2) continue;  // a constant factor adds no column
    for (std::size_t l = 1; l < levels.size(); ++l) {
      for (std::size_t i : d.rows)
        d.x.push_back(csv.field(i, static_cast<std::size_t>(fcol[k])) == levels[l] ? 1.0 : 0.0);
      d.columnNames.push_back(facs[k] + "=" + levels[l]);
    }
    d.varNames.push_back(facs[k]);
    d.varCoefs.push_back(static_cast<int>(levels.size() - 1));
  }
  (void)n;
  return true;
}

template <class T>
std::vector<double> Pick(const std::vector<double>& v, const std::vector<std::size_t>& rows, T f) {
  std::vector<double> out;
  out.reserve(rows.size());
  for (std::size_t i : rows) out.push_back(f(v[i]));
  return out;
}

}  // namespace

int RunCox(const Args& a) {
  const std::string cmd = "cox";
  if (!a.has("--time") || !a.has("--status") || (!a.has("--covariates") && !a.has("--factors"))) {
    Fail(cmd, "--time, --status and --covariates or --factors are required (velkor cox --help)");
    return kExitUsage;
  }
  const std::string& sel = a.get("--selection");
  const std::string& ties = a.get("--ties");
  const std::string& back = a.get("--back-statistic");
  if ((sel != "none" && sel != "forward" && sel != "backward") ||
      (ties != "breslow" && ties != "efron") || (back != "wald" && back != "lr")) {
    Fail(cmd,
         "--selection must be none|forward|backward, --ties breslow|efron, "
         "--back-statistic wald|lr (velkor cox --help)");
    return kExitUsage;
  }
  CsvTable csv;
  if (!LoadCsv(cmd, a.file, csv)) return kExitInput;
  std::vector<std::string> extra = {a.get("--time"), a.get("--status")};
  if (a.has("--weight")) extra.push_back(a.get("--weight"));
  std::vector<std::string> text;
  if (a.has("--strata")) text.push_back(a.get("--strata"));
  std::vector<std::vector<double>> v;
  Design d;
  if (!BuildDesign(cmd, csv, a, extra, v, text, d)) return kExitInput;
  const int n = static_cast<int>(d.rows.size()), p = static_cast<int>(d.columnNames.size());
  if (p == 0) {
    Fail(cmd, "no covariate column (every factor is constant)");
    return kExitInput;
  }
  const double ev = a.number("--event-code");
  std::vector<double> time = Pick(v[0], d.rows, [](double x) { return x; });
  std::vector<double> status = Pick(v[1], d.rows, [ev](double x) { return x == ev ? 1.0 : 0.0; });
  std::vector<double> weights;
  if (a.has("--weight")) weights = Pick(v[2], d.rows, [](double x) { return x; });
  std::vector<double> strata;
  int m = 1;
  if (a.has("--strata")) {
    const int sc = csv.column(a.get("--strata"));
    std::vector<std::string> levels;
    std::unordered_map<std::string, double> code;
    for (std::size_t i : d.rows)
      if (code.emplace(std::string(csv.field(i, static_cast<std::size_t>(sc))), 0).second)
        levels.emplace_back(csv.field(i, static_cast<std::size_t>(sc)));
    SortLabels(levels);
    for (std::size_t k = 0; k < levels.size(); ++k) code[levels[k]] = static_cast<double>(k + 1);
    for (std::size_t i : d.rows)
      strata.push_back(code[std::string(csv.field(i, static_cast<std::size_t>(sc)))]);
    m = static_cast<int>(levels.size());
  }
  const int V = static_cast<int>(d.varCoefs.size());
  int maxIter = static_cast<int>(a.number("--max-iter")), nFinal = 0;
  double z = 0;
  std::vector<double> beta(static_cast<std::size_t>(p)), stats(12), tests(9),
      coef(static_cast<std::size_t>(p) * 9), steps(static_cast<std::size_t>(V) * 4, VELKOR_MISSING);
  std::vector<int> varStep(static_cast<std::size_t>(V));
  const int st =
      RunCoxReg(time.data(), status.data(), weights.empty() ? nullptr : weights.data(), d.x.data(),
                strata.empty() ? nullptr : strata.data(), nullptr, n, p, m, ties == "efron" ? 1 : 0,
                &maxIter, a.number("--tol"),
                sel == "forward"    ? 0
                : sel == "backward" ? 1
                                    : -1,
                a.number("--threshold"), back == "wald" ? 0 : 1, V, d.varCoefs.data(),
                a.number("--alpha"), 0, 0, beta.data(), stats.data(), tests.data(), coef.data(), &z,
                steps.data(), varStep.data(), &nFinal, nullptr, nullptr, nullptr, nullptr);
  if (st != 0) {
    Fail(cmd, st == -1   ? "a status value lies outside [0, 1] (library status -1)"
              : st == -2 ? "fewer than two rows (library status -2)"
              : st == -3 ? "no event in the data (library status -3)"
              : st == -5 ? "the selection failed (library status -5)"
                         : "internal failure (library status " + std::to_string(st) + ")");
    return st == -3 ? kExitDataBase + 3 : ExitForStatus(st);
  }
  Report r;
  r.command = cmd;
  r.title = "Cox regression of " + a.file;
  for (const char* o : {"--time", "--status", "--event-code", "--covariates", "--factors",
                        "--strata", "--weight", "--ties", "--selection", "--threshold",
                        "--back-statistic", "--max-iter", "--tol", "--alpha"})
    if (a.has(o)) r.options.emplace_back(o + 2, a.get(o));
  r.notes.push_back(std::to_string(n) + " rows used, " +
                    std::to_string(csv.rows() - d.rows.size()) + " left out (missing values); " +
                    std::to_string(m) + " strat" + (m == 1 ? "um" : "a") + "; " +
                    std::to_string(maxIter) + " iterations");
  const std::string level =
      std::to_string(static_cast<int>(std::lround(100 * (1 - a.number("--alpha"))))) + "%";
  Table ct{"coefficients", "Coefficients and hazard ratios", {}};
  ct.text("term");
  const char* heads[8] = {"coefficient",  "std. error", "Wald chi-square", "p-value",
                          "hazard ratio", "lower ",     "upper ",          "in model"};
  for (int c = 0; c < 8; ++c) {
    std::string h = heads[c];
    if (c == 5 || c == 6) h += level;
    Column& col = ct.num(h, c == 7 ? 0 : 4);
    col.pvalue = c == 3;
    for (int j = 0; j < p; ++j)
      col.v.push_back(coef[static_cast<std::size_t>(c) * p + static_cast<std::size_t>(j)]);
  }
  ct.columns[0].s = d.columnNames;
  r.tables.push_back(std::move(ct));
  Table ms{"model", "Model criteria", {}};
  ms.text("statistic").s = {"events used", "df", "-2 log L", "AIC", "Schwarz (SBC)", "iterations"};
  ms.num("null model", 4).v.assign(stats.begin(), stats.begin() + 6);
  ms.num("fitted model", 4).v.assign(stats.begin() + 6, stats.end());
  r.tables.push_back(std::move(ms));
  Table gt{"tests", "Global tests (H0: every coefficient 0)", {}};
  gt.text("test").s = {"Likelihood ratio", "Score", "Wald"};
  gt.num("df", 0).v = {tests[0], tests[1], tests[2]};
  gt.num("chi-square", 4).v = {tests[3], tests[4], tests[5]};
  Column& gp = gt.num("p-value", 4);
  gp.pvalue = true;
  gp.v = {tests[6], tests[7], tests[8]};
  r.tables.push_back(std::move(gt));
  if (sel != "none") {
    Table stp{"selection", "Selection steps", {}};
    stp.text("variable");
    stp.num("variables in model", 0);
    stp.num("statistic", 4);
    stp.num("p-value", 4).pvalue = true;
    for (int k = 0; k < V; ++k) {
      auto s = [&](int c) {
        return steps[static_cast<std::size_t>(c) * V + static_cast<std::size_t>(k)];
      };
      if (IsMissingValue(s(0))) break;
      const int var = IsMissingValue(s(3)) ? 0 : static_cast<int>(s(3));
      stp.columns[0].s.push_back(
          var >= 1 && var <= V ? d.varNames[static_cast<std::size_t>(var) - 1] : "(final)");
      for (int c = 0; c < 3; ++c) stp.columns[static_cast<std::size_t>(c) + 1].v.push_back(s(c));
    }
    r.tables.push_back(std::move(stp));
  }
  return Emit(cmd, a, r);
}

int RunSurvreg(const Args& a) {
  const std::string cmd = "survreg";
  if (!a.has("--time") || !a.has("--status")) {
    Fail(cmd, "--time and --status are required (velkor survreg --help)");
    return kExitUsage;
  }
  const std::string& dist = a.get("--dist");
  const std::string& sel = a.get("--selection");
  if ((dist != "exponential" && dist != "weibull" && dist != "lognormal") ||
      (sel != "none" && sel != "forward" && sel != "backward")) {
    Fail(cmd,
         "--dist must be exponential|weibull|lognormal, --selection none|forward|backward "
         "(velkor survreg --help)");
    return kExitUsage;
  }
  CsvTable csv;
  if (!LoadCsv(cmd, a.file, csv)) return kExitInput;
  std::vector<std::string> extra = {a.get("--time"), a.get("--status")};
  if (a.has("--weight")) extra.push_back(a.get("--weight"));
  std::vector<std::vector<double>> v;
  Design d;
  if (!BuildDesign(cmd, csv, a, extra, v, {}, d)) return kExitInput;
  std::vector<double> upper;
  if (a.has("--time2") && !NumericColumn(cmd, csv, a.get("--time2"), upper)) return kExitInput;
  const int n = static_cast<int>(d.rows.size()), p = static_cast<int>(d.columnNames.size());
  const double ev = a.number("--event-code");
  const bool codes = a.has("--codes");
  std::vector<double> time = Pick(v[0], d.rows, [](double x) { return x; });
  std::vector<double> code = Pick(v[1], d.rows, [&](double x) {
    return codes ? x : x == ev ? 1.0 : 0.0;
  });
  std::vector<double> weights;
  if (a.has("--weight")) weights = Pick(v[2], d.rows, [](double x) { return x; });
  std::vector<double> bounds(static_cast<std::size_t>(n) * 2, 0.0);
  for (int i = 0; i < n; ++i) {
    bounds[static_cast<std::size_t>(i)] = time[static_cast<std::size_t>(i)];
    const double u = upper.empty() ? time[static_cast<std::size_t>(i)]
                                   : upper[d.rows[static_cast<std::size_t>(i)]];
    bounds[static_cast<std::size_t>(n + i)] = std::isnan(u) ? time[static_cast<std::size_t>(i)] : u;
  }
  const int distCode = dist == "exponential" ? 1 : dist == "weibull" ? 2 : 3;
  const int k = distCode == 1 ? 1 : 2, q = p + k;
  int iterations = static_cast<int>(a.number("--max-iter")), nKept = 0;
  std::vector<double> params(static_cast<std::size_t>(q)), cov(static_cast<std::size_t>(q * q)),
      crit(14), ptable(static_cast<std::size_t>(q) * 6), tests(9),
      history(static_cast<std::size_t>(std::max(p, 1)) * 4, VELKOR_MISSING),
      resid(static_cast<std::size_t>(n) * 4), kept(static_cast<std::size_t>(std::max(p, 1)));
  const int st = Cpp_RunParamReg(
      time.data(), n, p, code.data(), bounds.data(), p ? d.x.data() : nullptr,
      weights.empty() ? nullptr : weights.data(), distCode,
      sel == "forward"    ? 0
      : sel == "backward" ? 1
                          : -1,
      a.number("--p-enter"), a.number("--p-remove"), &iterations, a.number("--tol"), 0, 0.0, -1,
      a.number("--alpha"), params.data(), cov.data(), crit.data(), ptable.data(), tests.data(),
      history.data(), resid.data(), kept.data(), &nKept);
  if (st != 0) {
    Fail(cmd, st == -1   ? "the fit did not converge within the iteration limit (library status -1)"
              : st == -5 ? "the fit failed (library status -5)"
                         : "library status " + std::to_string(st));
    return ExitForStatus(st);
  }
  Report r;
  r.command = cmd;
  r.title = "Parametric survival regression (" + dist + ") of " + a.file;
  for (const char* o : {"--time", "--time2", "--status", "--event-code", "--codes", "--covariates",
                        "--factors", "--weight", "--dist", "--selection", "--p-enter", "--p-remove",
                        "--max-iter", "--tol", "--alpha"})
    if (a.has(o)) r.options.emplace_back(o + 2, a.get(o));
  r.notes.push_back(std::to_string(n) + " rows used, " +
                    std::to_string(csv.rows() - d.rows.size()) +
                    " left out (missing values); model of log time; " + std::to_string(iterations) +
                    " iterations");
  const std::string level =
      std::to_string(static_cast<int>(std::lround(100 * (1 - a.number("--alpha"))))) + "%";
  Table pt{"parameters", "Parameters", {}};
  Column& term = pt.text("term");
  term.s.push_back("intercept");
  for (const std::string& c : d.columnNames) term.s.push_back(c);
  if (k == 2) pt.columns[0].s.push_back("sigma");
  const char* heads[6] = {"estimate", "std. error", "Wald chi-square",
                          "p-value",  "lower ",     "upper "};
  for (int c = 0; c < 6; ++c) {
    std::string h = heads[c];
    if (c >= 4) h += level;
    Column& col = pt.num(h, 4);
    col.pvalue = c == 3;
    for (int j = 0; j < q; ++j)
      col.v.push_back(ptable[static_cast<std::size_t>(c) * q + static_cast<std::size_t>(j)]);
  }
  r.tables.push_back(std::move(pt));
  Table cr{"criteria", "Model criteria", {}};
  cr.text("statistic").s = {"observations", "parameters", "-2 log L",  "AIC",
                            "SBC",          "AICc",       "iterations"};
  cr.num("null model", 4).v.assign(crit.begin(), crit.begin() + 7);
  cr.num("final model", 4).v.assign(crit.begin() + 7, crit.end());
  r.tables.push_back(std::move(cr));
  Table gt{"tests", "Global tests (H0: every coefficient 0)", {}};
  gt.text("test").s = {"Likelihood ratio", "Score", "Wald"};
  gt.num("df", 0).v = {tests[0], tests[1], tests[2]};
  gt.num("chi-square", 4).v = {tests[3], tests[4], tests[5]};
  Column& gp = gt.num("p-value", 4);
  gp.pvalue = true;
  gp.v = {tests[6], tests[7], tests[8]};
  r.tables.push_back(std::move(gt));
  Table rs{"residuals", "Residuals", {}};
  rs.num("row", 0);
  for (const char* h : {"standardised", "Cox-Snell", "martingale", "deviance"}) rs.num(h, 4);
  for (int i = 0; i < n; ++i) {
    rs.columns[0].v.push_back(
        static_cast<double>(csv.line_of(d.rows[static_cast<std::size_t>(i)])));
    for (int c = 0; c < 4; ++c)
      rs.columns[static_cast<std::size_t>(c) + 1].v.push_back(
          resid[static_cast<std::size_t>(c) * n + static_cast<std::size_t>(i)]);
  }
  rs.columns[0].header = "line";
  r.tables.push_back(std::move(rs));
  if (a.get("--format") == "text") r.tables.pop_back();
  return Emit(cmd, a, r);
}

}  // namespace velkor_cli
