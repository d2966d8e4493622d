// Parametric survival regression through VELKORLI1M.dll: every survreg case of the Linux fixture
// (tests/reference/parametric/expected.csv) fitted by Cpp_RunParamReg, the likelihood entry and
// the optimiser at the estimate; the selection, criteria and residual entries on the lung Weibull
// case against the same survreg fit; judgement tables turned into interval-censored records; and
// a null array given to each entry point.
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

// Inverse of a small dense matrix (column-major, Gauss-Jordan with partial pivoting); empty when
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
    for (int j = 0; j < m; ++j) {
      std::swap(at(a, c, j), at(a, piv, j));
      std::swap(at(inv, c, j), at(inv, piv, j));
    }
    const double d = at(a, c, c);
    for (int j = 0; j < m; ++j) {
      at(a, c, j) /= d;
      at(inv, c, j) /= d;
    }
    for (int r = 0; r < m; ++r) {
      if (r == c) continue;
      const double f = at(a, r, c);
      for (int j = 0; j < m; ++j) {
        at(a, r, j) -= f * at(a, c, j);
        at(inv, r, j) -= f * at(inv, c, j);
      }
    }
  }
  return inv;
}

using wintest::GuardedD;
using wintest::GuardedI;

// The selection, criteria and residual entries on lung (Weibull, 3 covariates, unweighted)
// against survreg's fit of the full model: coefficients and standard errors to 1e-6 (relative to
// max(1, |value|)), as for Cpp_RunParamReg; the log-likelihood to 1e-9.
void selection_criteria_residuals(wintest::Library& lib, const std::vector<double>& coef,
                                  const std::vector<double>& se, double loglik) {
  auto run = VELKOR_PROC(lib, Cpp_RunParamReg);
  auto loglike = VELKOR_PROC(lib, Cpp_ComputeLogLikeDerivativesParam);
  auto optimize = VELKOR_PROC(lib, Cpp_OptimizeParamModel);
  auto back = VELKOR_PROC(lib, Cpp_Param_BackSelection);
  auto forward = VELKOR_PROC(lib, Cpp_Param_ForSelection);
  auto criteria = VELKOR_PROC(lib, Cpp_ComputeCritParam);
  auto residuals = VELKOR_PROC(lib, Cpp_ResParam);
  if (!run || !loglike || !optimize || !back || !forward || !criteria || !residuals) return;
  const DataSet d = read_data("lung");
  const int n = d.n, p = d.p, k = 2, np = p + k, dist = 2;
  if (!WCHECK(p == 3 && static_cast<int>(coef.size()) == np)) return;

  // Thresholds that keep every covariate: both selections end on the full model, survreg's.
  for (const bool is_forward : {false, true}) {
    using Entry = decltype(back);
    const Entry entry = is_forward ? forward : back;
    int iterations = 100, nKept = -1, nSteps = -1;
    double ll = 0;
    GuardedD params(np), hess(np * np), columns(p), history(p * 4, -9.0);
    WCHECK_EQ(entry(d.y.data(), n, p, d.code.data(), d.bounds.data(), d.x.data(), nullptr, dist,
                    1.01, &iterations, 1e-12, 0, 0.0, &ll, params.data(), hess.data(),
                    columns.data(), history.data(), &nKept, &nSteps),
              0);
    WCHECK(params.intact() && hess.intact() && columns.intact() && history.intact());
    if (!WCHECK_EQ(nKept, p)) continue;
    WCHECK_EQ(nSteps, is_forward ? p : 0);
    WCHECK_NEAR(ll, loglik, 1e-9);
    // Kept coefficients in the order of `columns`, then intercept and scale.
    for (int j = 0; j < p; ++j) {
      const int c = static_cast<int>(columns[j]);
      if (!WCHECK(c >= 1 && c <= p)) continue;
      WCHECK_NEAR(params[j], coef[c - 1], 1e-6);
      if (is_forward) {
        WCHECK_EQ(history[j], static_cast<double>(c));  // step j: covariate entered
        WCHECK_EQ(history[p + j], j + 1.0);             // covariates in the model after it
      }
    }
    WCHECK_NEAR(params[p], coef[p], 1e-6);
    WCHECK_NEAR(params[p + 1], coef[p + 1], 1e-6);
    if (!is_forward) WCHECK_EQ(history[0], -9.0);  // no step: left as passed
    // Standard errors from the Hessian of the final model, in survreg's order for the backward
    // run (columns 1, 2, 3).
    if (!is_forward) {
      const std::vector<double> inv = inverse({hess.data(), hess.data() + np * np}, np);
      if (WCHECK(!inv.empty()))
        for (int j = 0; j < np; ++j) WCHECK_NEAR(std::sqrt(-inv[j * np + j]), se[j], 1e-6);
    }
  }

  // A real elimination at 5%: the covariates kept are refitted by the optimiser on their own
  // design to the same estimate.
  {
    int iterations = 100, nKept = -1, nSteps = -1;
    double ll = 0;
    GuardedD params(np), hess(np * np), columns(p), history(p * 4, -9.0);
    WCHECK_EQ(back(d.y.data(), n, p, d.code.data(), d.bounds.data(), d.x.data(), nullptr, dist,
                   0.05, &iterations, 1e-12, 0, 0.0, &ll, params.data(), hess.data(),
                   columns.data(), history.data(), &nKept, &nSteps),
              0);
    WCHECK(params.intact() && hess.intact() && columns.intact() && history.intact());
    WCHECK_EQ(nKept + nSteps, p);
    if (WCHECK(nKept >= 0 && nKept < p)) {
      std::vector<double> x;
      for (int j = 0; j < nKept; ++j) {
        const int c = static_cast<int>(columns[j]);
        x.insert(x.end(), d.x.begin() + (c - 1) * n, d.x.begin() + c * n);
      }
      std::vector<double> theta(nKept + k), g(nKept + k), h((nKept + k) * (nKept + k));
      int it = 100;
      double ll2 = 0;
      WCHECK_EQ(optimize(d.y.data(), n, nKept, k, d.code.data(), d.bounds.data(),
                         nKept ? x.data() : nullptr, nullptr, &it, 1e-12, dist, 0, 0.0, &ll2,
                         g.data(), h.data(), theta.data()),
                0);
      for (int j = 0; j < nKept + k; ++j) WCHECK_NEAR(params[j], theta[j], 1e-7);
      WCHECK_NEAR(ll, ll2, 1e-10);
      // The first step removed the covariate with the largest Wald p-value, at or above 5%.
      WCHECK(history[3 * p] >= 0.05);
    }
  }

  // Criteria tables rebuilt from a fit: the inverse Hessian at the estimate and the score-test
  // inputs at the null estimate (coefficients 0, intercept and scale of the null model).
  {
    GuardedD params(np), cov(np * np), crit(14), ptable(np * 6), tests(9), history(p * 4),
        resid(n * 4), kept(p);
    int iterations = 100, nKept = -1;
    WCHECK_EQ(
        run(d.y.data(), n, p, d.code.data(), d.bounds.data(), d.x.data(), nullptr, dist, -1, 0.05,
            0.1, &iterations, 1e-12, 0, 0.0, 0, 0.05, params.data(), cov.data(), crit.data(),
            ptable.data(), tests.data(), history.data(), resid.data(), kept.data(), &nKept),
        0);
    WCHECK(params.intact() && cov.intact() && crit.intact() && ptable.intact() && tests.intact() &&
           history.intact() && resid.intact() && kept.intact());
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
    WCHECK_EQ(criteria(n, p, k, llNull, -0.5 * crit[9], iterations, params.data(), cov.data(),
                       g0.data(), ih0.data(), 0.05, crit2.data(), ptable2.data(), tests2.data()),
              0);
    WCHECK(crit2.intact() && ptable2.intact() && tests2.intact());
    WCHECK_NEAR(-0.5 * crit2[9], loglik, 1e-9);
    WCHECK_NEAR(crit2[2], crit[2], 1e-9);  // -2 log L of the null model
    for (int r = 0; r < 3; ++r) WCHECK_NEAR(tests2[3 + r], tests[3 + r], 1e-7);
    WCHECK_NEAR(tests2[3], 2 * (-0.5 * crit[9] - llNull), 1e-9);
    // Parameter table rows: intercept, covariates, scale; survreg's standard errors.
    WCHECK_NEAR(ptable2[np], se[p], 1e-6);
    for (int j = 0; j < p; ++j) {
      WCHECK_NEAR(ptable2[1 + j], coef[j], 1e-6);
      WCHECK_NEAR(ptable2[np + 1 + j], se[j], 1e-6);
    }
    WCHECK_NEAR(ptable2[np + p + 1], se[p + 1], 1e-6);
    for (int c = 0; c < np * 6; ++c) WCHECK_NEAR(ptable2[c], ptable[c], 1e-9);
  }

  // Residuals at survreg's estimate, from the Weibull model's definitions: z = (y - eta) / sigma,
  // Cox-Snell exp(z), martingale delta - exp(z), deviance sign(m) sqrt(-2 (m + delta log(delta -
  // m))).
  {
    GuardedD std_res(n), cox_snell(n), martingale(n), deviance(n);
    WCHECK_EQ(residuals(d.y.data(), n, p, d.code.data(), d.x.data(), coef.data(), dist,
                        std_res.data(), cox_snell.data(), martingale.data(), deviance.data()),
              0);
    WCHECK(std_res.intact() && cox_snell.intact() && martingale.intact() && deviance.intact());
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
  WCHECK(judge.intact() && distinct.intact());
  const double want_judge[4][3] = {{1, 1, 1}, {1, 1, 0}, {0, 0, 0}, {1, 0, 0}};
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 3; ++j) WCHECK_EQ(judge[j * 4 + i], want_judge[i][j]);
  for (int j = 0; j < 3; ++j) WCHECK_EQ(distinct[j], 30.0 * (j + 1));

  GuardedD data(4), bounds(8, -1.0), codes(4, -1.0), times(4, -1.0), summary(6);
  GuardedI flags(4, -5);
  for (int i = 0; i < 4; ++i) data[i] = 101.0 + i;
  int removed = -1, kept = -1;
  WCHECK_EQ(prepare(judge.data(), 4, 3, distinct.data(), data.data(), 1, &removed, flags.data(),
                    &kept, bounds.data(), codes.data(), times.data(), summary.data()),
            0);
  WCHECK(data.intact() && bounds.intact() && codes.intact() && times.intact() && summary.intact() &&
         flags.intact());
  WCHECK_EQ(removed, 1);
  WCHECK_EQ(kept, 3);
  WCHECK_EQ(flags[0], 3);
  // Kept subjects in increasing time order: 4, 2, 1.
  const double want_subject[] = {104, 102, 101}, want_time[] = {30, 60, 90},
               want_code[] = {3, 3, 0};
  for (int i = 0; i < 3; ++i) {
    WCHECK_EQ(data[i], want_subject[i]);
    WCHECK_EQ(times[i], want_time[i]);
    WCHECK_EQ(codes[i], want_code[i]);
  }
  WCHECK_EQ(bounds[0], 30.0);
  WCHECK_EQ(bounds[3], 60.0);
  WCHECK_EQ(bounds[1], 60.0);
  WCHECK_EQ(bounds[4], 90.0);
  // Per storage time: positive judgements of the first `kept` rows of the table (subjects 1-3),
  // and their percentage of all four subjects.
  const double want_sum[] = {2, 2, 1};
  for (int j = 0; j < 3; ++j) {
    WCHECK_EQ(summary[j], want_sum[j]);
    WCHECK_NEAR(summary[3 + j], want_sum[j] * 25.0, 1e-15);
  }
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
    using Entry = decltype(back);
    const Entry entry = which == 0 ? back : forward;
    int iterations = 20, nKept = -7, nSteps = -7;
    double ll = kInit;
    GuardedD params(3, kInit), hess(9, kInit), columns(1, kInit), history(4, kInit);
    WCHECK_EQ(entry(which == 0 ? nullptr : y, 4, 1, which == 1 ? nullptr : code, bounds, x, nullptr,
                    2, 0.05, &iterations, 1e-9, 0, 0.0, &ll, params.data(), hess.data(),
                    columns.data(), history.data(), &nKept, &nSteps),
              VELKOR_E_NULL_ARRAY);
    WCHECK(params.untouched() && hess.untouched() && columns.untouched() && history.untouched());
    WCHECK(ll == kInit && nKept == -7 && nSteps == -7 && iterations == 20);
  }
  {
    const double theta[] = {0.1, 1.0, 0.5}, ih[9] = {-1, 0, 0, 0, -1, 0, 0, 0, -1};
    GuardedD crit(14, kInit), ptable(18, kInit), tests(9, kInit);
    WCHECK_EQ(criteria(4, 1, 2, -5.0, -4.0, 3, theta, ih, nullptr, ih, 0.05, crit.data(),
                       ptable.data(), tests.data()),
              VELKOR_E_NULL_ARRAY);
    WCHECK(crit.untouched() && ptable.untouched() && tests.untouched());
    GuardedD r1(4, kInit), r2(4, kInit), r3(4, kInit), r4(4, kInit);
    WCHECK_EQ(
        residuals(y, 4, 1, code, nullptr, theta, 2, r1.data(), r2.data(), r3.data(), r4.data()),
        VELKOR_E_NULL_ARRAY);
    WCHECK(r1.untouched() && r2.untouched() && r3.untouched() && r4.untouched());
  }
  {
    const double judge[] = {1, 1, 0, 1};
    GuardedD data(2, kInit), b(4, kInit), c(2, kInit), t(2, kInit), summary(4, kInit);
    GuardedI flags(2, -5);
    int removed = -7, kept = -7;
    WCHECK_EQ(prepare(judge, 2, 2, nullptr, data.data(), 1, &removed, flags.data(), &kept, b.data(),
                      c.data(), t.data(), summary.data()),
              VELKOR_E_NULL_ARRAY);
    WCHECK(data.untouched() && b.untouched() && c.untouched() && t.untouched() &&
           summary.untouched() && flags.untouched() && removed == -7 && kept == -7);
    const double stime[] = {1, 2}, key[] = {1, 2};
    GuardedD table(4, kInit), distinct(2, kInit);
    WCHECK_EQ(transform(stime, 2, 2, key, 2, nullptr, table.data(), distinct.data()),
              VELKOR_E_NULL_ARRAY);
    WCHECK(table.untouched() && distinct.untouched());
  }
  {
    GuardedD params(3, kInit), cov(9, kInit), crit(14, kInit), ptable(18, kInit), tests(9, kInit),
        history(4, kInit), resid(16, kInit), kept(1, kInit);
    int iterations = 10, nKept = -7;
    WCHECK_EQ(run(y, 4, 1, code, bounds, nullptr, nullptr, 2, -1, 0.05, 0.1, &iterations, 1e-9, 0,
                  0.0, 0, 0.05, params.data(), cov.data(), crit.data(), ptable.data(), tests.data(),
                  history.data(), resid.data(), kept.data(), &nKept),
              VELKOR_E_NULL_ARRAY);
    WCHECK(params.untouched() && cov.untouched() && crit.untouched() && ptable.untouched() &&
           tests.untouched() && history.untouched() && resid.untouched() && kept.untouched() &&
           nKept == -7 && iterations == 10);
  }
}

}  // namespace

VELKOR_WIN_FAMILY(parametric) {
  auto run = VELKOR_PROC(lib, Cpp_RunParamReg);
  auto loglike = VELKOR_PROC(lib, Cpp_ComputeLogLikeDerivativesParam);
  auto optimize = VELKOR_PROC(lib, Cpp_OptimizeParamModel);
  if (!run || !loglike || !optimize) return;

  // Expected values by case: data set, law, weighting and the coef / se /
  // loglik vectors.
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
    const int k = c.dist == 1 ? 1 : 2, np = d.p + k;
    std::vector<double> params(np), cov(np * np), crit(14), ptable(np * 6), tests(9),
        history(d.p * 4), resid(d.n * 4), kept(d.p);
    int iterations = 100, nKept = -1;
    const int status =
        run(d.y.data(), d.n, d.p, d.code.data(), d.bounds.data(), d.x.data(),
            c.weighted ? d.w.data() : nullptr, c.dist, -1, 0.05, 0.1, &iterations, 1e-12, 0, 0.0, 0,
            0.05, params.data(), cov.data(), crit.data(), ptable.data(), tests.data(),
            history.data(), resid.data(), kept.data(), &nKept);
    if (!wintest::check(status == 0, name + ": status " + std::to_string(status), __FILE__,
                        __LINE__))
      continue;
    const auto& coef = c.values.at("coef");
    const auto& se = c.values.at("se");
    for (int j = 0; j < np; ++j) {
      WCHECK_NEAR(params[j], coef[j], 1e-6);
      WCHECK_NEAR(std::sqrt(-cov[j * np + j]), se[j], 1e-6);
    }
    // survreg's log-likelihood carries the -log t Jacobian of events for every
    // law; the library's only for the Weibull law.
    double jacobian = 0;
    if (c.dist != 2)
      for (int i = 0; i < d.n; ++i)
        if (d.code[i] == 1) jacobian += (c.weighted ? d.w[i] : 1.0) * d.y[i];
    WCHECK_NEAR(-0.5 * crit[9] - jacobian, c.values.at("loglik")[0], 1e-10);
    // The likelihood entry at the estimate: the same -2 log L, a zero gradient.
    double ll = 0;
    std::vector<double> grad(np), hess(np * np);
    WCHECK_EQ(
        loglike(d.y.data(), d.n, d.p, k, d.code.data(), d.bounds.data(), d.x.data(), params.data(),
                c.weighted ? d.w.data() : nullptr, c.dist, &ll, grad.data(), hess.data()),
        0);
    WCHECK_NEAR(-2 * ll, crit[9], 1e-9);
    for (int j = 0; j < np; ++j) WCHECK(std::fabs(grad[j]) < 1e-4);
    // The optimiser alone reaches the same estimate.
    std::vector<double> theta(np), g2(np), h2(np * np);
    int it = 100;
    double ll2 = 0;
    WCHECK_EQ(optimize(d.y.data(), d.n, d.p, k, d.code.data(), d.bounds.data(), d.x.data(),
                       c.weighted ? d.w.data() : nullptr, &it, 1e-12, c.dist, 0, 0.0, &ll2,
                       g2.data(), h2.data(), theta.data()),
              0);
    for (int j = 0; j < np; ++j) WCHECK_NEAR(theta[j], params[j], 1e-6);
    ++fitted;
  }
  WCHECK(fitted >= 3);

  if (cases.count("lung_weibull")) {
    const auto& v = cases.at("lung_weibull").values;
    selection_criteria_residuals(lib, v.at("coef"), v.at("se"), v.at("loglik")[0]);
  }
  judgement_tables(lib);
  null_arrays(lib);
}
