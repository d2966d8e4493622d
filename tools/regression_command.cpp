// Regression subcommands: `velkor cox` (RunCoxReg) and `velkor survreg` (Cpp_RunParamReg). Both
// build the design matrix from numeric covariates and qualitative factors (one indicator column
// per level after the first, in ascending label order; a factor enters and leaves the selection
// as a whole) and leave out rows with a missing value in any column used.
#include <algorithm>
#include <cctype>
#include <cmath>
#include <string>
#include <unordered_map>
#include <vector>

#include "commands.h"
#include "cox_validation.h"
#include "velkor/VELKORLI1M.h"

namespace velkor_cli {

const Command kCoxCommand{
    "cox",
    "Cox proportional hazards regression: coefficients and hazard ratios with limits, model\n"
    "  criteria, likelihood-ratio / score / Wald tests, optional strata and forward or backward\n"
    "  selection of covariates (factors enter and leave as a whole); after the fit: baseline\n"
    "  survival, residuals, concordance and quality indices, cross-validation, bootstrap and\n"
    "  the proportional-hazards test. --cv, --bootstrap and --ph-test refit the final model\n"
    "  with centred covariates (and the true Efron correction under --ties efron).",
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
     {"--tol", "T", "convergence tolerance", "1e-9"},
     {"--baseline", "",
      "baseline survival S0(t) (raw covariates) and survival at the mean covariates, per "
      "stratum and distinct time; chart",
      ""},
     {"--residuals", "",
      "martingale, deviance, Schoenfeld and score residuals per row (sorted by stratum, time)", ""},
     {"--concordance", "",
      "concordance index (strict: tied predictors and equal times not counted) and quality "
      "indices",
      ""},
     {"--cv", "K", "K-fold cross-validation of the quality indices", ""},
     {"--bootstrap", "B", "B bootstrap replicates of the coefficients and concordance", ""},
     {"--seed", "S", "seed of the folds and resamples (0 to 4294967295)", "1"},
     {"--refit-tol", "T",
      "relative log-likelihood tolerance of the refits of --cv, --bootstrap and --ph-test (finer "
      "values can end a converged refit with 'no gain' and fail it)",
      "1e-6"},
     {"--ph-test", "G",
      "proportional-hazards test (Grambsch-Therneau) on time transform identity, log, rank or "
      "km; Schoenfeld residual charts",
      ""}}};

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

// Options of the Cox model after the fit.
struct CoxExtras {
  bool baseline = false, residuals = false, concordance = false;
  int cv = 0, bootstrap = 0, phTest = -1;  // phTest: -1 none, else the time transform code
  unsigned seed = 1;
  std::string error;
};

CoxExtras ParseCoxExtras(const Args& a) {
  CoxExtras e;
  e.baseline = a.has("--baseline");
  e.residuals = a.has("--residuals");
  e.concordance = a.has("--concordance");
  auto whole = [&](const char* o, double lo, double hi, const char* what) {
    const double v = a.number(o);
    if (!(v >= lo && v <= hi && v == std::floor(v))) e.error = std::string(o) + " must be " + what;
    return v;
  };
  if (a.has("--cv")) e.cv = static_cast<int>(whole("--cv", 2, 1e6, "a whole number >= 2"));
  if (a.has("--bootstrap"))
    e.bootstrap =
        static_cast<int>(whole("--bootstrap", 1, 1e7, "a whole number between 1 and 10000000"));
  e.seed = static_cast<unsigned>(
      whole("--seed", 0, 4294967295.0, "a whole number between 0 and 4294967295"));
  if (!(a.number("--refit-tol") > 0)) e.error = "--refit-tol must be a positive number";
  if (a.has("--ph-test")) {
    const std::string& g = a.get("--ph-test");
    e.phTest = g == "identity" ? 0 : g == "log" ? 1 : g == "rank" ? 2 : g == "km" ? 3 : -1;
    if (e.phTest < 0) e.error = "--ph-test must be identity, log, rank or km, not '" + g + "'";
  }
  return e;
}

// A term name usable in a file name and a worksheet name.
std::string ChartSafe(std::string s) {
  for (char& c : s)
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '-' && c != '_' && c != '.') c = '_';
  return s;
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
  const CoxExtras ex = ParseCoxExtras(a);
  if (!ex.error.empty()) {
    Fail(cmd, ex.error + " (velkor cox --help)");
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
  // The survival outputs have one column per distinct time of a stratum (censoring-only times
  // included), in the order RunCoxReg sorts the rows: stratum key, then time, ties as given.
  const bool postFit = ex.baseline || ex.residuals || ex.phTest >= 0;
  std::vector<std::size_t> order(static_cast<std::size_t>(n));
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::stable_sort(order.begin(), order.end(), [&](std::size_t i, std::size_t j) {
    const double si = strata.empty() ? 0 : strata[i], sj = strata.empty() ? 0 : strata[j];
    return si < sj || (si == sj && time[i] < time[j]);
  });
  std::vector<int> stratumOf(static_cast<std::size_t>(n), 0);
  std::vector<std::vector<double>> distinct(static_cast<std::size_t>(m));
  for (std::size_t r = 0; r < order.size(); ++r) {
    const std::size_t i = order[r];
    const int s = strata.empty() ? 0 : static_cast<int>(strata[i]) - 1;
    stratumOf[r] = s;
    std::vector<double>& dt = distinct[static_cast<std::size_t>(s)];
    if (dt.empty() || dt.back() != time[i]) dt.push_back(time[i]);
  }
  int K = 0;
  for (const auto& dt : distinct) K = std::max(K, static_cast<int>(dt.size()));
  const std::size_t up = static_cast<std::size_t>(p), um = static_cast<std::size_t>(m),
                    uK = static_cast<std::size_t>(K), un = static_cast<std::size_t>(n);
  std::vector<double> baseSurv, meanSurv, resid;
  if (postFit) {
    baseSurv.assign(um * uK, VELKOR_MISSING);
    meanSurv.assign(um * uK, VELKOR_MISSING);
    resid.assign(un * (4 + 2 * up), VELKOR_MISSING);
  }
  int maxIter = static_cast<int>(a.number("--max-iter")), nFinal = 0;
  double z = 0;
  std::vector<double> beta(static_cast<std::size_t>(p)), stats(12), tests(9),
      coef(static_cast<std::size_t>(p) * 9), steps(static_cast<std::size_t>(V) * 4, VELKOR_MISSING);
  std::vector<int> varStep(static_cast<std::size_t>(V));
  const int st = RunCoxReg(time.data(), status.data(), weights.empty() ? nullptr : weights.data(),
                           d.x.data(), strata.empty() ? nullptr : strata.data(), nullptr, n, p, m,
                           ties == "efron" ? 1 : 0, &maxIter, a.number("--tol"),
                           sel == "forward"    ? 0
                           : sel == "backward" ? 1
                                               : -1,
                           a.number("--threshold"), back == "wald" ? 0 : 1, V, d.varCoefs.data(),
                           a.number("--alpha"), postFit ? -1 : 0, postFit ? K : 0, beta.data(),
                           stats.data(), tests.data(), coef.data(), &z, steps.data(),
                           varStep.data(), &nFinal, postFit ? baseSurv.data() : nullptr, nullptr,
                           postFit ? meanSurv.data() : nullptr, postFit ? resid.data() : nullptr);
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
  for (const char* o :
       {"--time",      "--status", "--event-code", "--covariates", "--factors",        "--strata",
        "--weight",    "--ties",   "--selection",  "--threshold",  "--back-statistic", "--max-iter",
        "--tol",       "--alpha",  "--baseline",   "--residuals",  "--concordance",    "--cv",
        "--bootstrap", "--seed",   "--refit-tol",  "--ph-test"})
    if (a.has(o) && ((std::string(o) != "--seed" && std::string(o) != "--refit-tol") ||
                     ex.cv >= 2 || ex.bootstrap >= 1 || ex.phTest >= 0))
      r.options.emplace_back(o + 2, a.get(o));
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

  // ---- After the fit. The final model: the columns in the model (coefficient table column 8).
  std::vector<std::size_t> inModel;
  for (std::size_t j = 0; j < up; ++j)
    if (coef[7 * up + j] == 1.0) inModel.push_back(j);
  const std::size_t q = inModel.size();
  std::vector<double> xq, bq;
  for (std::size_t j : inModel) {
    xq.insert(xq.end(), d.x.begin() + static_cast<std::ptrdiff_t>(j * un),
              d.x.begin() + static_cast<std::ptrdiff_t>((j + 1) * un));
    bq.push_back(beta[j]);
  }
  std::vector<std::string> stratumNames(um, "all");
  if (a.has("--strata")) {
    const int sc = csv.column(a.get("--strata"));
    for (std::size_t r2 = 0; r2 < un; ++r2)
      stratumNames[static_cast<std::size_t>(stratumOf[r2])] =
          std::string(csv.field(d.rows[order[r2]], static_cast<std::size_t>(sc)));
  }
  if (ex.baseline) {
    Table bt{"baseline", "Baseline survival (Breslow) and survival at the mean covariates", {}};
    if (m > 1) bt.text("stratum");
    bt.num("time", 4);
    bt.num("baseline survival", 6);
    bt.num("survival at means", 6);
    const std::size_t c0 = m > 1 ? 1 : 0;
    Column &tc = bt.columns[c0], &bs = bt.columns[c0 + 1], &ms2 = bt.columns[c0 + 2];
    Chart ch("baseline", "Cox model: survival at the mean covariates", "Time",
             "Survival probability");
    ch.unitY = true;
    for (std::size_t s2 = 0; s2 < um; ++s2) {
      Series curve{m > 1 ? a.get("--strata") + "=" + stratumNames[s2] : "survival at means",
                   {0.0},
                   {1.0},
                   static_cast<int>(s2),
                   true,
                   false,
                   false,
                   false,
                   m > 1,
                   {},
                   {}};
      for (std::size_t k = 0; k < distinct[s2].size(); ++k) {
        if (m > 1) bt.columns[0].s.push_back(stratumNames[s2]);
        tc.v.push_back(distinct[s2][k]);
        bs.v.push_back(baseSurv[s2 + k * um]);
        const double sm = meanSurv[s2 + k * um];
        ms2.v.push_back(sm);
        if (IsMissingValue(sm)) continue;
        curve.x.push_back(distinct[s2][k]);
        curve.y.push_back(curve.y.back());
        curve.x.push_back(distinct[s2][k]);
        curve.y.push_back(sm);
      }
      ch.series.push_back(std::move(curve));
    }
    r.tables.push_back(std::move(bt));
    r.charts.push_back(std::move(ch));
  }
  if (ex.residuals) {
    Table rt{"residuals", "Residuals (rows sorted by stratum and time)", {}};
    rt.num("line", 0);
    if (m > 1) rt.text("stratum");
    const std::size_t first = rt.columns.size();
    for (const char* h : {"time", "status", "martingale", "deviance"}) rt.num(h, 4);
    for (const std::string& kind : {std::string("Schoenfeld "), std::string("score ")})
      for (const std::string& c : d.columnNames) rt.num(kind + c, 4);
    for (std::size_t r2 = 0; r2 < un; ++r2) {
      rt.columns[0].v.push_back(static_cast<double>(csv.line_of(d.rows[order[r2]])));
      if (m > 1) rt.columns[1].s.push_back(stratumNames[static_cast<std::size_t>(stratumOf[r2])]);
      for (std::size_t c = 0; c < 4 + 2 * up; ++c)
        rt.columns[first + c].v.push_back(resid[c * un + r2]);
    }
    r.tables.push_back(std::move(rt));
  }
  if (q == 0 && (ex.concordance || ex.cv >= 2 || ex.bootstrap >= 1 || ex.phTest >= 0))
    Warn(cmd, "no covariate is left in the final model: concordance and validation skipped");
  const char* qualityHeads[5] = {"R-square", "rescaled R-square", "-2 log L reduction",
                                 "concordance", "Somers' D"};
  if (ex.concordance && q > 0) {
    double c = 0, concordant = 0, comparable = 0;
    std::vector<double> quality(5, VELKOR_MISSING);
    int st2 = Cpp_ConcordIndex(time.data(), status.data(), xq.data(), bq.data(), n,
                               static_cast<int>(q), &c, &concordant, &comparable);
    if (st2 == 0)
      st2 = Cpp_ComputeCVTable(time.data(), status.data(), xq.data(), bq.data(), n,
                               static_cast<int>(q), stats[8], stats[2], stats.data(), 1, 1,
                               quality.data());
    if (st2 != 0) {
      Fail(cmd, "concordance failed (library status " + std::to_string(st2) + ")");
      return ExitForStatus(st2);
    }
    Table cc{"concordance", "Concordance of the linear predictor", {}};
    cc.num("concordance index", 4).v = {c};
    cc.num("concordant pairs", 0).v = {concordant};
    cc.num("comparable pairs", 0).v = {comparable};
    r.tables.push_back(std::move(cc));
    Table qt{"quality", "Quality indices of the model", {}};
    qt.text("rows").s = {"all rows"};
    for (int k = 0; k < 5; ++k)
      qt.num(qualityHeads[k], 4).v = {quality[static_cast<std::size_t>(k)]};
    r.tables.push_back(std::move(qt));
  }
  if ((ex.cv >= 2 || ex.bootstrap >= 1 || ex.phTest >= 0) && q > 0) {
    const std::size_t k = static_cast<std::size_t>(std::min(ex.cv, n));
    std::vector<double> ph((q + 1) * 3), cvt((k + 2) * 5), boot((q + 1) * 6);
    int completed = 1;
    int st2 = 0;
    {
      Progress progress(cmd, ProgressWanted(a));
      st2 = velkor_cox_validation(
          time.data(), status.data(), weights.empty() ? nullptr : weights.data(), xq.data(),
          strata.empty() ? nullptr : strata.data(), n, static_cast<int>(q), ties == "efron" ? 1 : 0,
          static_cast<int>(a.number("--max-iter")), a.number("--refit-tol"), a.number("--alpha"),
          ex.phTest, ex.cv, ex.bootstrap, ex.seed, &Progress::Callback, &progress, ph.data(),
          cvt.data(), boot.data(), &completed);
    }
    if (st2 != 0) {
      Fail(cmd, st2 == -5 ? "the refit of the final model for validation failed (library status "
                            "-5); a larger --refit-tol may help"
                          : "validation failed (library status " + std::to_string(st2) + ")");
      return ExitForStatus(st2);
    }
    std::vector<std::string> terms;
    for (std::size_t j : inModel) terms.push_back(d.columnNames[j]);
    if (ex.phTest >= 0) {
      static const char* kTransforms[4] = {"identity", "log", "rank", "km"};
      Table pt{"ph_test",
               std::string("Proportional-hazards test (Grambsch-Therneau, time transform ") +
                   kTransforms[ex.phTest] + ")",
               {}};
      pt.text("term").s = terms;
      pt.columns[0].s.push_back("global");
      const char* heads[3] = {"chi-square", "df", "p-value"};
      for (std::size_t c = 0; c < 3; ++c) {
        Column& col = pt.num(heads[c], c == 1 ? 0 : 4);
        col.pvalue = c == 2;
        col.v.assign(ph.begin() + static_cast<std::ptrdiff_t>(c * (q + 1)),
                     ph.begin() + static_cast<std::ptrdiff_t>((c + 1) * (q + 1)));
      }
      r.tables.push_back(std::move(pt));
      // Schoenfeld residuals of the event rows against time, one chart per term: a trend away
      // from the zero line is what the test detects.
      for (std::size_t jj = 0; jj < q; ++jj) {
        const std::size_t j = inModel[jj];
        Chart ch("schoenfeld-" + ChartSafe(d.columnNames[j]),
                 "Schoenfeld residuals: " + d.columnNames[j], "Time", "Schoenfeld residual");
        Series pts{d.columnNames[j], {}, {}, 0, false, true, false, false, false, {}, {}};
        double lo = 0, hi = 0;
        for (std::size_t r2 = 0; r2 < un; ++r2) {
          if (resid[un + r2] != 1.0) continue;
          pts.x.push_back(resid[r2]);
          pts.y.push_back(resid[(4 + j) * un + r2]);
          lo = pts.x.size() == 1 ? pts.x.back() : std::min(lo, pts.x.back());
          hi = std::max(hi, pts.x.back());
        }
        ch.series.push_back(std::move(pts));
        ch.series.push_back(
            Series{"zero", {lo, hi}, {0.0, 0.0}, -1, true, false, true, true, false, {}, {}});
        r.charts.push_back(std::move(ch));
      }
    }
    if (ex.cv >= 2) {
      Table ct2{"cross_validation",
                std::to_string(k) + "-fold cross-validation of the quality indices",
                {}};
      Column& rows = ct2.text("rows");
      rows.s.push_back("all rows");
      for (std::size_t f = 1; f <= k; ++f) rows.s.push_back("fold " + std::to_string(f));
      rows.s.push_back("mean of folds");
      for (std::size_t c = 0; c < 5; ++c)
        ct2.num(qualityHeads[c], 4)
            .v.assign(cvt.begin() + static_cast<std::ptrdiff_t>(c * (k + 2)),
                      cvt.begin() + static_cast<std::ptrdiff_t>((c + 1) * (k + 2)));
      r.tables.push_back(std::move(ct2));
    }
    if (ex.bootstrap >= 1) {
      Table bt{"bootstrap",
               std::to_string(ex.bootstrap) + " bootstrap replicates (seed " +
                   std::to_string(ex.seed) + ")",
               {}};
      bt.text("term").s = terms;
      bt.columns[0].s.push_back("concordance");
      const std::string heads[6] = {"estimate",       "bootstrap mean", "std. error",
                                    "lower " + level, "upper " + level, "replicates used"};
      for (std::size_t c = 0; c < 6; ++c)
        bt.num(heads[c], c == 5 ? 0 : 4)
            .v.assign(boot.begin() + static_cast<std::ptrdiff_t>(c * (q + 1)),
                      boot.begin() + static_cast<std::ptrdiff_t>((c + 1) * (q + 1)));
      r.tables.push_back(std::move(bt));
    }
    if (!completed) Warn(cmd, "validation stopped before the end; missing rows stay empty");
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
