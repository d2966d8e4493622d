// Parametric survival regression through VELKORLI1M.dll: every survreg case of the Linux fixture
// (tests/reference/parametric/expected.csv) fitted by Cpp_RunParamReg, the likelihood entry and
// the optimiser at the estimate; the selection, criteria and residual entries on the lung Weibull
// fit; judgement tables turned into interval-censored records; a null array given to each entry.
#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "velkor/VELKORLI1M.h"
#include "windows/harness.h"

namespace {

// One data set of the fixture: log times, codes, log upper bounds, weights, design (n x p).
struct DataSet {
  std::vector<double> y, code, bounds, w, x;
  int n = 0, p = 0;
};

DataSet read_data(const std::string& name) {
  const wintest::Csv csv = wintest::read_csv("parametric/data_" + name + ".csv");
  DataSet d;
  d.y = csv["y"];
  d.code = csv["code"];
  d.w = csv["w"];
  d.n = static_cast<int>(d.y.size());
  d.bounds = d.y;
  d.bounds.insert(d.bounds.end(), csv["upper"].begin(), csv["upper"].end());
  for (std::size_t j = 4; j < csv.names.size(); ++j, ++d.p)
    d.x.insert(d.x.end(), csv.columns[j].begin(), csv.columns[j].end());
  return d;
}

// Inverse of a small column-major matrix by Gauss-Jordan with partial pivoting; empty when
// singular.
std::vector<double> inverse(std::vector<double> a, int m) {
  std::vector<double> inv(static_cast<std::size_t>(m) * m, 0.0);
  for (int i = 0; i < m; ++i) inv[i * m + i] = 1.0;
  auto at = [m](std::vector<double>& v, int i, int j) -> double& { return v[j * m + i]; };
  for (int c = 0; c < m; ++c) {
    int piv = c;
    for (int r = c + 1; r < m; ++r)
      if (std::fabs(at(a, r, c)) > std::fabs(at(a, piv, c))) piv = r;
    if (at(a, piv, c) == 0.0) return {};
    for (auto* v : {&a, &inv})
      for (int j = 0; j < m; ++j) std::swap(at(*v, c, j), at(*v, piv, j));
    const double d = at(a, c, c);
    for (auto* v : {&a, &inv})
      for (int j = 0; j < m; ++j) at(*v, c, j) /= d;
    for (int r = 0; r < m; ++r) {
      const double f = at(a, r, c);
      if (r != c)
        for (auto* v : {&a, &inv})
          for (int j = 0; j < m; ++j) at(*v, r, j) -= f * at(*v, c, j);
    }
  }
  return inv;
}

using wintest::GuardedD;
using wintest::GuardedI;

// Cpp_RunParamReg (iteration limit 100, tolerance 1e-12, 95% limits) into guarded outputs.
struct Fit {
  int np;
  GuardedD params, cov, crit, ptable, tests, history, resid, kept;
  int iterations = 100, nKept = -1, status;
  Fit(decltype(&Cpp_RunParamReg) run, const DataSet& d, int dist, const double* w)
      : np(d.p + (dist == 1 ? 1 : 2)),
        params(np),
        cov(np * np),
        crit(14),
        ptable(np * 6),
        tests(9),
        history(d.p * 4),
        resid(d.n * 4),
        kept(d.p),
        status(run(d.y.data(), d.n, d.p, d.code.data(), d.bounds.data(), d.x.data(), w, dist, -1,
                   0.05, 0.1, &iterations, 1e-12, 0, 0.0, 0, 0.05, params.data(), cov.data(),
                   crit.data(), ptable.data(), tests.data(), history.data(), resid.data(),
                   kept.data(), &nKept)) {}
  bool intact() const {
    return wintest::intact(params, cov, crit, ptable, tests, history, resid, kept);
  }
};

// A selection entry (both have the same arguments) on a data set at a Wald p-value threshold.
struct Selection {
  GuardedD params, hess, columns, history;
  double ll = 0;  // members written by the call come before `status`, initialised by it
  int iterations = 100, nKept = -1, nSteps = -1, status;
  Selection(decltype(&Cpp_Param_BackSelection) entry, const DataSet& d, int np, double threshold)
      : params(np),
        hess(np * np),
        columns(d.p),
        history(d.p * 4, -9.0),
        status(entry(d.y.data(), d.n, d.p, d.code.data(), d.bounds.data(), d.x.data(), nullptr, 2,
                     threshold, &iterations, 1e-12, 0, 0.0, &ll, params.data(), hess.data(),
                     columns.data(), history.data(), &nKept, &nSteps)) {}
};

// The selection, criteria and residual entries on lung (Weibull, 3 covariates, unweighted)
// against survreg's fit of the full model (fit: Cpp_RunParamReg's): coefficients and standard
// errors to 1e-6 (relative to max(1, |value|)) as for Cpp_RunParamReg, the log-likelihood to 1e-9.
void selection_criteria_residuals(wintest::Library& lib, const DataSet& d, const Fit& fit,
                                  const std::vector<double>& coef, const std::vector<double>& se,
                                  double loglik) {
  auto loglike = VELKOR_PROC(lib, Cpp_ComputeLogLikeDerivativesParam);
  auto optimize = VELKOR_PROC(lib, Cpp_OptimizeParamModel);
  auto back = VELKOR_PROC(lib, Cpp_Param_BackSelection);
  auto forward = VELKOR_PROC(lib, Cpp_Param_ForSelection);
  auto criteria = VELKOR_PROC(lib, Cpp_ComputeCritParam);
  auto residuals = VELKOR_PROC(lib, Cpp_ResParam);
  if (!loglike || !optimize || !back || !forward || !criteria || !residuals) return;
  const int n = d.n, p = d.p, k = 2, np = p + k, dist = 2;
  if (!WCHECK(p == 3 && static_cast<int>(coef.size()) == np)) return;

  // Thresholds that keep every covariate: both selections end on the full model, survreg's.
  for (const bool is_forward : {false, true}) {
    Selection s(is_forward ? forward : back, d, np, 1.01);
    WCHECK_EQ(s.status, 0);
    WCHECK(wintest::intact(s.params, s.hess, s.columns, s.history));
    if (!WCHECK_EQ(s.nKept, p)) continue;
    WCHECK_EQ(s.nSteps, is_forward ? p : 0);
    WCHECK_NEAR(s.ll, loglik, 1e-9);
    // Kept coefficients in the order of `columns`, then intercept and scale.
    for (int j = 0; j < p; ++j) {
      const int c = static_cast<int>(s.columns[j]);
      if (!WCHECK(c >= 1 && c <= p)) continue;
      WCHECK_NEAR(s.params[j], coef[c - 1], 1e-6);
      if (is_forward) {
        WCHECK_EQ(s.history[j], static_cast<double>(c));  // step j: covariate entered
        WCHECK_EQ(s.history[p + j], j + 1.0);             // covariates in the model after it
      }
    }
    WCHECK_ALL(s.params.data() + p, coef.data() + p, 2, 1e-6);
    if (is_forward) continue;
    WCHECK_EQ(s.history[0], -9.0);  // no step: left as passed
    // Standard errors from the Hessian of the final model (columns 1, 2, 3: survreg's order).
    const std::vector<double> inv = inverse({s.hess.data(), s.hess.data() + np * np}, np);
    if (WCHECK(!inv.empty()))
      for (int j = 0; j < np; ++j) WCHECK_NEAR(std::sqrt(-inv[j * np + j]), se[j], 1e-6);
  }

  // A real elimination at 5%: the covariates kept are refitted by the optimiser on their own
  // design to the same estimate.
  {
    Selection s(back, d, np, 0.05);
    WCHECK_EQ(s.status, 0);
    WCHECK(wintest::intact(s.params, s.hess, s.columns, s.history));
    WCHECK_EQ(s.nKept + s.nSteps, p);
    if (WCHECK(s.nKept >= 0 && s.nKept < p)) {
      const int m = s.nKept;
      std::vector<double> x;
      for (int j = 0; j < m; ++j) {
        const int c = static_cast<int>(s.columns[j]);
        x.insert(x.end(), d.x.begin() + (c - 1) * n, d.x.begin() + c * n);
      }
      std::vector<double> theta(m + k), g(m + k), h((m + k) * (m + k));
      int it = 100;
      double ll2 = 0;
      WCHECK_EQ(
          optimize(d.y.data(), n, m, k, d.code.data(), d.bounds.data(), m ? x.data() : nullptr,
                   nullptr, &it, 1e-12, dist, 0, 0.0, &ll2, g.data(), h.data(), theta.data()),
          0);
      WCHECK_ALL(s.params.data(), theta.data(), m + k, 1e-7);
      WCHECK_NEAR(s.ll, ll2, 1e-10);
      // The first step removed the covariate with the largest Wald p-value, at or above 5%.
      WCHECK(s.history[3 * p] >= 0.05);
    }
  }

  // Criteria tables rebuilt from the fit: the inverse Hessian at the estimate and the score-test
  // inputs at the null estimate (coefficients 0, intercept and scale of the null model).
  {
    std::vector<double> null_theta(k), g(k), h(k * k);
    int it = 100;
    double llNull = 0;
    WCHECK_EQ(optimize(d.y.data(), n, 0, k, d.code.data(), d.bounds.data(), nullptr, nullptr, &it,
                       1e-12, dist, 0, 0.0, &llNull, g.data(), h.data(), null_theta.data()),
              0);
    std::vector<double> at_null(np, 0.0), g0(np), h0(np * np);
    at_null[p] = null_theta[0];
    at_null[p + 1] = null_theta[1];
    double ll0 = 0;
    WCHECK_EQ(loglike(d.y.data(), n, p, k, d.code.data(), d.bounds.data(), d.x.data(),
                      at_null.data(), nullptr, dist, &ll0, g0.data(), h0.data()),
              0);
    WCHECK_NEAR(ll0, llNull, 1e-12);
    const std::vector<double> ih0 = inverse(h0, np);
    if (!WCHECK(!ih0.empty())) return;
    GuardedD crit2(14), ptable2(np * 6), tests2(9);
    WCHECK_EQ(criteria(n, p, k, llNull, -0.5 * fit.crit[9], fit.iterations, fit.params.data(),
                       fit.cov.data(), g0.data(), ih0.data(), 0.05, crit2.data(), ptable2.data(),
                       tests2.data()),
              0);
    WCHECK(wintest::intact(crit2, ptable2, tests2));
    WCHECK_NEAR(-0.5 * crit2[9], loglik, 1e-9);
    WCHECK_NEAR(crit2[2], fit.crit[2], 1e-9);  // -2 log L of the null model
    WCHECK_ALL(tests2.data() + 3, fit.tests.data() + 3, 3, 1e-7);
    WCHECK_NEAR(tests2[3], 2 * (-0.5 * fit.crit[9] - llNull), 1e-9);
    // Parameter table rows: intercept, covariates, scale; survreg's standard errors.
    WCHECK_NEAR(ptable2[np], se[p], 1e-6);
    WCHECK_ALL(ptable2.data() + 1, coef.data(), p, 1e-6);
    WCHECK_ALL(ptable2.data() + np + 1, se.data(), p, 1e-6);
    WCHECK_NEAR(ptable2[np + p + 1], se[p + 1], 1e-6);
    WCHECK_ALL(ptable2.data(), fit.ptable.data(), np * 6, 1e-9);
  }

  // Residuals at survreg's estimate, from the Weibull model's definitions: z = (y - eta) / sigma,
  // Cox-Snell exp(z), martingale delta - exp(z), deviance sign(m) sqrt(-2 (m + delta log(delta -
  // m))).
  {
    GuardedD std_res(n), cox_snell(n), martingale(n), deviance(n);
    WCHECK_EQ(residuals(d.y.data(), n, p, d.code.data(), d.x.data(), coef.data(), dist,
                        std_res.data(), cox_snell.data(), martingale.data(), deviance.data()),
              0);
    WCHECK(wintest::intact(std_res, cox_snell, martingale, deviance));
    double worst = 0;
    for (int i = 0; i < n; ++i) {
      double eta = coef[p];
      for (int j = 0; j < p; ++j) eta += d.x[j * n + i] * coef[j];
      const double z = (d.y[i] - eta) / coef[p + 1], delta = d.code[i] == 1 ? 1.0 : 0.0;
      const double m = delta - std::exp(z);
      const double dev =
          (m < 0 ? -1 : 1) * std::sqrt(-2 * (m + (delta > 0 ? delta * std::log(delta - m) : 0.0)));
      for (const auto& [got, want] :
           {std::pair{std_res[i], z}, std::pair{cox_snell[i], std::exp(z)},
            std::pair{martingale[i], m}, std::pair{deviance[i], dev}})
        worst = std::max(worst, std::fabs(got - want) / std::max(1.0, std::fabs(want)));
    }
    wintest::check(worst <= 1e-12, "residuals: worst relative error " + wintest::show(worst),
                   __FILE__, __LINE__);
  }
}

// Judgement tables: (storage time, response) pairs to a judge-by-time table
// (Cpp_TransformJudgeToInt), then to censored records (Cpp_PrepareIntervalData). Expected values
// from the rules stated in velkor/parametric.h, worked by hand:
//   pairs (60, 1) (90, 2) (30, 2) (60, 2), distinct times 30, 60, 90:
//   subject 1: response 1 at rank 2 -> 1 1 1 -> right-censored at 90
//   subject 2: response 2 at rank 3 -> 1 1 0 -> interval (60, 90]
//   subject 3: response 2 at rank 1 -> 0 0 0 -> removed (first judgement negative)
//   subject 4: response 2 at rank 2 -> 1 0 0 -> interval (30, 60]
void judgement_tables(wintest::Library& lib) {
  auto transform = VELKOR_PROC(lib, Cpp_TransformJudgeToInt);
  auto prepare = VELKOR_PROC(lib, Cpp_PrepareIntervalData);
  if (!transform || !prepare) return;
  const double stime[] = {60, 90, 30, 60}, key[] = {1, 2, 3, 4}, resp[] = {1, 2, 2, 2};
  GuardedD judge(4 * 3, 0.0), distinct(3);
  WCHECK_EQ(transform(stime, 4, 3, key, 4, resp, judge.data(), distinct.data()), 0);
  WCHECK(wintest::intact(judge, distinct));
  const double want_judge[12] = {1, 1, 0, 1, 1, 1, 0, 0, 1, 0, 0, 0},
               want_distinct[] = {30, 60, 90};
  WCHECK_ALL(judge.data(), want_judge, 12, 0.0);
  WCHECK_ALL(distinct.data(), want_distinct, 3, 0.0);

  GuardedD data(4), bounds(8, -1.0), codes(4, -1.0), times(4, -1.0), summary(6);
  GuardedI flags(4, -5);
  for (int i = 0; i < 4; ++i) data[i] = 101.0 + i;
  int removed = -1, kept = -1;
  WCHECK_EQ(prepare(judge.data(), 4, 3, distinct.data(), data.data(), 1, &removed, flags.data(),
                    &kept, bounds.data(), codes.data(), times.data(), summary.data()),
            0);
  WCHECK(wintest::intact(data, bounds, codes, times, summary, flags));
  WCHECK_EQ(removed, 1);
  WCHECK_EQ(kept, 3);
  WCHECK_EQ(flags[0], 3);
  // Kept subjects in increasing time order (4, 2, 1); the bounds of the two intervals. Per
  // storage time, the positive judgements of the first `kept` rows of the table (subjects 1-3)
  // and their percentage of all four subjects.
  const double want_subject[] = {104, 102, 101}, want_code[] = {3, 3, 0},
               want_sum[] = {2, 2, 1, 50, 50, 25};
  WCHECK_ALL(data.data(), want_subject, 3, 0.0);
  WCHECK_ALL(times.data(), want_distinct, 3, 0.0);
  WCHECK_ALL(codes.data(), want_code, 3, 0.0);
  WCHECK_EQ(bounds[0], 30.0);
  WCHECK_EQ(bounds[3], 60.0);
  WCHECK_EQ(bounds[1], 60.0);
  WCHECK_EQ(bounds[4], 90.0);
  WCHECK_ALL(summary.data(), want_sum, 3, 0.0);
  WCHECK_ALL(summary.data() + 3, want_sum + 3, 3, 1e-15);
}

// A null array with a positive length: status 3 from every entry point, nothing written.
void null_arrays(wintest::Library& lib) {
  auto back = VELKOR_PROC(lib, Cpp_Param_BackSelection);
  auto forward = VELKOR_PROC(lib, Cpp_Param_ForSelection);
  auto criteria = VELKOR_PROC(lib, Cpp_ComputeCritParam);
  auto residuals = VELKOR_PROC(lib, Cpp_ResParam);
  auto prepare = VELKOR_PROC(lib, Cpp_PrepareIntervalData);
  auto transform = VELKOR_PROC(lib, Cpp_TransformJudgeToInt);
  auto run = VELKOR_PROC(lib, Cpp_RunParamReg);
  if (!back || !forward || !criteria || !residuals || !prepare || !transform || !run) return;
  const double y[] = {1.0, 1.5, 2.0, 2.5}, code[] = {1, 0, 1, 1}, x[] = {0, 1, 0, 1},
               bounds[] = {1.0, 1.5, 2.0, 2.5, 1.0, 1.5, 2.0, 2.5};
  constexpr double kInit = 7.25;
  for (int which = 0; which < 2; ++which) {
    int iterations = 20, nKept = -7, nSteps = -7;
    double ll = kInit;
    GuardedD params(3, kInit), hess(9, kInit), columns(1, kInit), history(4, kInit);
    WCHECK_REFUSED((which == 0 ? back : forward)(
                       which == 0 ? nullptr : y, 4, 1, which == 1 ? nullptr : code, bounds, x,
                       nullptr, 2, 0.05, &iterations, 1e-9, 0, 0.0, &ll, params.data(), hess.data(),
                       columns.data(), history.data(), &nKept, &nSteps),
                   params, hess, columns, history);
    WCHECK(ll == kInit && nKept == -7 && nSteps == -7 && iterations == 20);
  }
  const double theta[] = {0.1, 1.0, 0.5}, ih[9] = {-1, 0, 0, 0, -1, 0, 0, 0, -1};
  GuardedD crit(14, kInit), ptable(18, kInit), tests(9, kInit);
  WCHECK_REFUSED(criteria(4, 1, 2, -5.0, -4.0, 3, theta, ih, nullptr, ih, 0.05, crit.data(),
                          ptable.data(), tests.data()),
                 crit, ptable, tests);
  GuardedD r1(4, kInit), r2(4, kInit), r3(4, kInit), r4(4, kInit);
  WCHECK_REFUSED(
      residuals(y, 4, 1, code, nullptr, theta, 2, r1.data(), r2.data(), r3.data(), r4.data()), r1,
      r2, r3, r4);
  const double judge[] = {1, 1, 0, 1}, stime[] = {1, 2}, key[] = {1, 2};
  GuardedD data(2, kInit), b(4, kInit), c(2, kInit), t(2, kInit), summary(4, kInit);
  GuardedI flags(2, -5);
  int removed = -7, kept = -7;
  WCHECK_REFUSED(prepare(judge, 2, 2, nullptr, data.data(), 1, &removed, flags.data(), &kept,
                         b.data(), c.data(), t.data(), summary.data()),
                 data, b, c, t, summary, flags);
  WCHECK(removed == -7 && kept == -7);
  GuardedD table(4, kInit), distinct(2, kInit);
  WCHECK_REFUSED(transform(stime, 2, 2, key, 2, nullptr, table.data(), distinct.data()), table,
                 distinct);
  // crit, ptable and tests, still untouched, serve again.
  GuardedD params(3, kInit), cov(9, kInit), history(4, kInit), resid(16, kInit), keptCols(1, kInit);
  int iterations = 10, nKept = -7;
  WCHECK_REFUSED(run(y, 4, 1, code, bounds, nullptr, nullptr, 2, -1, 0.05, 0.1, &iterations, 1e-9,
                     0, 0.0, 0, 0.05, params.data(), cov.data(), crit.data(), ptable.data(),
                     tests.data(), history.data(), resid.data(), keptCols.data(), &nKept),
                 params, cov, crit, ptable, tests, history, resid, keptCols);
  WCHECK(nKept == -7 && iterations == 10);
}

}  // namespace

VELKOR_WIN_FAMILY(parametric) {
  auto run = VELKOR_PROC(lib, Cpp_RunParamReg);
  auto loglike = VELKOR_PROC(lib, Cpp_ComputeLogLikeDerivativesParam);
  auto optimize = VELKOR_PROC(lib, Cpp_OptimizeParamModel);
  if (!run || !loglike || !optimize) return;

  // Expected values by case: data set, law, weighting and the coef / se / loglik vectors.
  const wintest::Csv expected = wintest::read_csv("parametric/expected.csv");
  struct Case {
    std::string data;
    int dist = 0;
    bool weighted = false;
    std::map<std::string, std::vector<double>> values;
  };
  std::map<std::string, Case> cases;
  for (std::size_t r = 0; r < expected.rows(); ++r) {
    Case& c = cases[expected.text("case")[r]];
    c.data = expected.text("data")[r];
    c.dist = static_cast<int>(expected["dist"][r]);
    c.weighted = expected["weighted"][r] == 1.0;
    c.values[expected.text("kind")[r]].push_back(expected["value"][r]);
  }

  int fitted = 0;
  for (const auto& [name, c] : cases) {
    if (!c.values.count("coef")) continue;
    const DataSet d = read_data(c.data);
    const double* w = c.weighted ? d.w.data() : nullptr;
    const Fit fit(run, d, c.dist, w);
    const int np = fit.np, k = np - d.p;
    if (!wintest::check(fit.status == 0, name + ": status " + std::to_string(fit.status), __FILE__,
                        __LINE__))
      continue;
    WCHECK(fit.intact());
    const auto& coef = c.values.at("coef");
    const auto& se = c.values.at("se");
    WCHECK_ALL(fit.params.data(), coef.data(), np, 1e-6);
    for (int j = 0; j < np; ++j) WCHECK_NEAR(std::sqrt(-fit.cov[j * np + j]), se[j], 1e-6);
    // survreg's log-likelihood carries the -log t Jacobian of events for every law; the
    // library's only for the Weibull law.
    double jacobian = 0;
    if (c.dist != 2)
      for (int i = 0; i < d.n; ++i)
        if (d.code[i] == 1) jacobian += (w ? w[i] : 1.0) * d.y[i];
    WCHECK_NEAR(-0.5 * fit.crit[9] - jacobian, c.values.at("loglik")[0], 1e-10);
    // The likelihood entry at the estimate: the same -2 log L, and a gradient whose Newton
    // decrement -g' H^-1 g / 2 (the log-likelihood still to gain) is negligible; a bound on the
    // gradient itself would depend on the covariates' scale.
    double ll = 0;
    std::vector<double> grad(np), hess(np * np);
    WCHECK_EQ(loglike(d.y.data(), d.n, d.p, k, d.code.data(), d.bounds.data(), d.x.data(),
                      fit.params.data(), w, c.dist, &ll, grad.data(), hess.data()),
              0);
    WCHECK_NEAR(-2 * ll, fit.crit[9], 1e-9);
    double decrement = 0;
    for (int a = 0; a < np; ++a)
      for (int b = 0; b < np; ++b) decrement -= 0.5 * grad[a] * fit.cov[a * np + b] * grad[b];
    WCHECK(decrement >= -1e-12 && decrement < 1e-8);
    // The optimiser alone reaches the same estimate.
    std::vector<double> theta(np), g2(np), h2(np * np);
    int it = 100;
    double ll2 = 0;
    WCHECK_EQ(optimize(d.y.data(), d.n, d.p, k, d.code.data(), d.bounds.data(), d.x.data(), w, &it,
                       1e-12, c.dist, 0, 0.0, &ll2, g2.data(), h2.data(), theta.data()),
              0);
    WCHECK_ALL(theta.data(), fit.params.data(), np, 1e-6);
    if (name == "lung_weibull")
      selection_criteria_residuals(lib, d, fit, coef, se, c.values.at("loglik")[0]);
    ++fitted;
  }
  WCHECK(fitted >= 3);
  judgement_tables(lib);
  null_arrays(lib);
}
