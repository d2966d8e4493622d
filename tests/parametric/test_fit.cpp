// Parametric fitting driver: estimates and standard errors against survreg (R survival) where the
// library's log-likelihood is survreg's up to a constant, against the maximum of the library's
// own function where it deliberately differs, the Newton path against an independent R
// implementation of the same algorithm, and the driver's own rules (start values, fixed
// intercept, selection, tables, failures).
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "core/numeric.h"
#include "parametric/fixture_reader.h"
#include "velkor/parametric.h"

namespace {

using param_fixture::DataSet;
using param_fixture::RelErrStrict;

struct FitRun {
  int status = 0, iterations = 0, kept = 0;
  std::vector<double> params, cov, crit, ptable, tests, history, resid, keptFlags;
};

FitRun RunReg(const DataSet& d, int dist, bool weighted, int method = -1, double pEnter = 0.05,
              double pRemove = 0.1, short logTime = 0, int maxIter = 100) {
  const int np = d.p + (dist == 1 ? 1 : 2);
  using V = std::vector<double>;
  FitRun r{0, maxIter, 0, V(np), V(np * np), V(14), V(np * 6), V(9), {}, V(d.n * 4), V(d.p)};
  r.history.assign(d.p * 4, velkor::kMissing);
  const std::vector<double> b = d.bounds();
  r.status = Cpp_RunParamReg(d.y.data(), d.n, d.p, d.code.data(), b.data(), d.x.data(),
                             weighted ? d.w.data() : nullptr, dist, method, pEnter, pRemove,
                             &r.iterations, 1e-12, 0, 0.0, logTime, 0.05, r.params.data(),
                             r.cov.data(), r.crit.data(), r.ptable.data(), r.tests.data(),
                             r.history.data(), r.resid.data(), r.keptFlags.data(), &r.kept);
  return r;
}

struct Opt {
  int status = 0, iterations = 0;
  double ll = 0;
  std::vector<double> g, h, theta;
};

// The optimiser alone (unit weights), with the p covariates of d or none.
Opt Optimize(const DataSet& d, int dist, int maxIter, double tol, bool covariates = true,
             short fix = 0, double fixValue = 0.0) {
  const int p = covariates ? d.p : 0, np = p + (dist == 1 ? 1 : 2);
  using V = std::vector<double>;
  Opt o{0, maxIter, 0, V(np), V(np * np), V(np)};
  const std::vector<double> b = d.bounds();
  o.status = Cpp_OptimizeParamModel(d.y.data(), d.n, p, np - p, d.code.data(), b.data(), d.x.data(),
                                    nullptr, &o.iterations, tol, dist, fix, fixValue, &o.ll,
                                    o.g.data(), o.h.data(), o.theta.data());
  return o;
}

}  // namespace

TEST(ParamFit, MatchesSurvregWhereTheLikelihoodsAgree) {
  int checked = 0;
  for (const auto& [name, c] : param_fixture::ReadExpected()) {
    // ovarian Weibull holds survreg_* values: the fitter does not reach them (next test)
    if (!c.values.count("coef")) continue;
    SCOPED_TRACE(name);
    const DataSet d = param_fixture::ReadData(c.data);
    const FitRun r = RunReg(d, c.dist, c.weighted);
    ASSERT_EQ(r.status, 0);
    const auto& coef = c.values.at("coef");
    const int np = static_cast<int>(coef.size());
    for (int j = 0; j < np; ++j) {
      EXPECT_LT(RelErrStrict(r.params[j], coef[j]), 1e-6) << "estimate " << j;
      EXPECT_LT(RelErrStrict(std::sqrt(-r.cov[j * np + j]), c.values.at("se")[j]), 1e-6) << j;
    }
    // survreg's log-likelihood carries the -log t Jacobian of events for every law; the
    // library's only for the Weibull law
    double jac = 0;
    for (int i = 0; i < d.n && c.dist != 2; ++i)
      if (d.code[i] == 1) jac += (c.weighted ? d.w[i] : 1.0) * d.y[i];
    EXPECT_LT(RelErrStrict(-0.5 * r.crit[9] - jac, c.values.at("loglik")[0]), 1e-10);
    ++checked;
  }
  EXPECT_EQ(checked, 10);
}

TEST(ParamFit, NewtonPathIsTheAlgorithmsOwnWhereItConvergesAndWhereItFails) {
  // Interval-censored Weibull: the start scale 0.5 ln(4 var / 1.64) = 0.087 is far below the
  // estimate 0.709; the Hessian is not negative definite at iterations 1, 3 and 5, whose ten
  // halvings fail and fall back on the diagonal Hessian; the path then climbs to survreg's
  // maximum in 19 iterations.
  const auto cases = param_fixture::ReadExpected();
  const auto& ic = cases.at("icens_weibull");
  const Opt o = Optimize(param_fixture::ReadData("icens"), 2, 100, 1e-9);
  ASSERT_EQ(o.status, 0);
  EXPECT_EQ(o.iterations, 19);
  for (int j = 0; j < 5; ++j) EXPECT_LT(RelErrStrict(o.theta[j], ic.values.at("coef")[j]), 1e-6);
  EXPECT_LT(RelErrStrict(o.ll, ic.values.at("loglik")[0]), 1e-12);

  // Log-normal, interval-censored (tests/reference/parametric/newton_path.R, which writes the
  // algorithm out independently in R): the first step fails its ten halvings, the fallback moves
  // the scale alone, the second step is accepted with the scale at 2.34 (the estimate is near
  // 0.7), and from there every step fails and each fallback moves the scale further up: the
  // log-likelihood falls at every iteration until the limit. A fit stopped after m iterations
  // is the path's m-th point.
  const DataSet ln = param_fixture::ReadData("lnpath");
  int cols = 0;
  const auto path = param_fixture::ReadCsv("path_lnpath.csv", &cols);
  ASSERT_EQ(path.size(), 30u);
  for (int m : {1, 2, 3, 4, 7, 12, 20, 30}) {
    SCOPED_TRACE(m);
    const auto& row = path[static_cast<std::size_t>(m - 1)];
    const Opt f = Optimize(ln, 3, m, 1e-6);
    EXPECT_EQ(f.iterations, m);
    EXPECT_LT(RelErrStrict(f.ll, std::stod(row[3])), 1e-10);
    for (int j = 0; j < 4; ++j) EXPECT_LT(RelErrStrict(f.theta[j], std::stod(row[4 + j])), 1e-9);
  }

  // Ovarian Weibull: from the start scale 0.139 (estimate 0.547) the diagonal step after a
  // failed second iteration lands where z >= 700 for some events, where the guarded event term
  // has no -e^z and the log-likelihood grows without bound (about 2e7); the Hessian is singular
  // there. The fit ends at the limit: -1 from the driver, -2 from the optimiser.
  const auto& ov = cases.at("ovarian_weibull");
  const DataSet d = param_fixture::ReadData("ovarian");
  const FitRun r = RunReg(d, 2, false);
  EXPECT_EQ(r.status, -1);
  EXPECT_EQ(r.iterations, 100);
  const Opt f = Optimize(d, 2, 100, 1e-9);
  EXPECT_EQ(f.status, -2);
  EXPECT_GT(f.ll, 1e6);
  // The function itself is survreg's: at survreg's estimate the gradient vanishes and the
  // log-likelihood is survreg's (the library's Weibull event term includes the -log t Jacobian).
  const std::vector<double> b = d.bounds();
  std::vector<double> g(5), h(25);
  double ll = 0;
  ASSERT_EQ(Cpp_ComputeLogLikeDerivativesParam(d.y.data(), d.n, d.p, 2, d.code.data(), b.data(),
                                               d.x.data(), ov.values.at("survreg_coef").data(),
                                               nullptr, 2, &ll, g.data(), h.data()),
            0);
  EXPECT_LT(RelErrStrict(ll, ov.values.at("survreg_loglik")[0]), 1e-10);
  for (int j = 0; j < 5; ++j) EXPECT_LT(std::fabs(g[j]), 1e-5) << j;
}

TEST(ParamFit, ReachesTheMaximumOfTheCarriedExponentialLikelihood) {
  // survreg maximises another function here (no carried terms); the reference is R's optim on
  // the library's own formula, accurate to about 1e-6.
  const auto c = param_fixture::ReadExpected().at("lung_exp_carry_opt");
  const FitRun r = RunReg(param_fixture::ReadData(c.data), 1, false);
  ASSERT_EQ(r.status, 0);
  const auto& opt = c.values.at("optcoef");
  for (std::size_t j = 0; j < opt.size(); ++j)
    EXPECT_NEAR(r.params[j], opt[j], 1e-4 * std::max(1.0, std::fabs(opt[j])));
  EXPECT_GE(-0.5 * r.crit[9], c.values.at("optll")[0] - 1e-9);
}

TEST(ParamFit, TimeLogarithmOptionEqualsLoggedInput) {
  DataSet d = param_fixture::ReadData("icens");
  const FitRun logged = RunReg(d, 2, false);
  for (auto* v : {&d.y, &d.upper})
    for (auto& t : *v) t = std::exp(t);
  const FitRun raw = RunReg(d, 2, false, -1, 0.05, 0.1, -1);
  ASSERT_EQ(raw.status, 0);
  for (std::size_t j = 0; j < raw.params.size(); ++j)
    EXPECT_NEAR(raw.params[j], logged.params[j], 1e-9);
}

TEST(ParamFit, TablesAreConsistentWithTheFit) {
  const DataSet d = param_fixture::ReadData("veteran");
  const FitRun r = RunReg(d, 3, false);
  ASSERT_EQ(r.status, 0);
  const double L = -0.5 * r.crit[9], L0 = -0.5 * r.crit[2];
  // criteria, columns null and model: n, parameters, -2L, AIC, SBC, AICc, 1 | iterations
  const std::vector<double> model = {137,
                                     7,
                                     -2 * L,
                                     14 - 2 * L,
                                     7 * std::log(137.0) - 2 * L,
                                     14 - 2 * L + 2.0 * 7 * 8 / (137 - 7 - 1),
                                     1.0 * r.iterations};
  for (int row = 0; row < 7; ++row) EXPECT_NEAR(r.crit[7 + row], model[row], 1e-9) << row;
  EXPECT_EQ(r.crit[1], 2);
  EXPECT_EQ(r.crit[6], 1.0);
  // parameter table rows: intercept, covariates, scale; the 95% limits est -/+ 1.96 se
  EXPECT_EQ((std::vector<double>{r.ptable[0], r.ptable[1], r.ptable[6]}),
            (std::vector<double>{r.params[5], r.params[0], r.params[6]}));
  for (int row = 0; row < 7; ++row)
    EXPECT_NEAR(r.ptable[35 + row] - r.ptable[28 + row], 2 * 1.959963984540054 * r.ptable[7 + row],
                1e-9);
  // tests: 5 df, LR from the criteria, all three large on this strong model
  EXPECT_EQ(r.tests[0], 5);
  EXPECT_NEAR(r.tests[3], -2 * (L0 - L), 1e-9);
  EXPECT_GT(std::min(r.tests[4], r.tests[5]), 20);
  EXPECT_LT(r.tests[6], 1e-4);
  // residuals: martingale = delta - Cox-Snell, deviance sign follows the martingale residual
  for (int i = 0; i < d.n; ++i) {
    const double m = r.resid[2 * d.n + i];
    EXPECT_NEAR(m, (d.code[i] == 1 ? 1.0 : 0.0) - r.resid[d.n + i], 1e-12);
    EXPECT_GE(r.resid[3 * d.n + i] * m, 0.0);
  }
}

TEST(ParamFit, BackwardAndForwardSelectionRecordTheirSteps) {
  const DataSet d = param_fixture::ReadData("veteran");
  // backward with a strict threshold leaves karno (covariate 2) only
  const FitRun b = RunReg(d, 2, false, 1, 0.05, 0.05);
  ASSERT_EQ(b.status, 0);
  EXPECT_EQ(b.kept, 1);
  EXPECT_EQ(b.keptFlags[1], 1.0);
  EXPECT_EQ(b.params[0], 0.0);
  EXPECT_EQ(b.ptable[7 + 1], velkor::kMissing);  // row of trt, standard error
  for (int s = 0; s < 4; ++s) {
    EXPECT_EQ(b.history[d.p + s], 4 - s);     // covariates left
    EXPECT_GE(b.history[3 * d.p + s], 0.05);  // p-value of the removed covariate
  }
  // forward enters karno first and stops at the same model
  const FitRun f = RunReg(d, 2, false, 0, 0.05, 0.05);
  ASSERT_EQ(f.status, 0);
  EXPECT_EQ(f.kept, 1);
  EXPECT_EQ(f.history[0], 2.0);
  EXPECT_EQ(f.history[d.p], 1.0);
  EXPECT_LT(f.history[3 * d.p], 0.05);
  EXPECT_EQ(f.history[1], velkor::kMissing);  // no second step
  for (std::size_t j = 0; j < f.params.size(); ++j) EXPECT_NEAR(f.params[j], b.params[j], 1e-8);
  EXPECT_EQ(f.tests[0], 1);
}

TEST(ParamFit, StartValuesAndFixedIntercept) {
  // no covariate, zero iterations: the fit stays at the start, the weighted mean (+0.572 for the
  // Weibull law) and the variance (Weibull: 0.5 ln(4 var / 1.64) when positive)
  DataSet d;
  d.y = {0.1, 0.5, 0.9, 1.3, 1.7, 2.1};
  d.code = {1, 1, 0, 1, 1, 0};
  d.upper.assign(6, 0.0);
  d.n = 6;
  const double var = 0.56, alt = 0.5 * std::log(4 * var / 1.64);
  const Opt w = Optimize(d, 2, 0, 1e-9, false), l = Optimize(d, 3, 0, 1e-9, false);
  EXPECT_EQ(w.iterations, 0);
  EXPECT_DOUBLE_EQ(w.theta[0], 1.1 + 0.572);
  EXPECT_DOUBLE_EQ(w.theta[1], alt > 0 ? alt : var);
  EXPECT_DOUBLE_EQ(l.theta[0], 1.1);
  EXPECT_DOUBLE_EQ(l.theta[1], var);
  // fixed intercept: it never moves and the free parameter reaches its maximum
  const Opt f = Optimize(d, 2, 200, 1e-13, false, -1, 1.5);
  ASSERT_EQ(f.status, 0);
  EXPECT_EQ(f.theta[0], 1.5);
  EXPECT_LT(std::fabs(f.g[1]), 1e-6);
  EXPECT_LT(f.iterations, 200);
}

TEST(ParamFit, FailuresAreReportedByStatus) {
  const DataSet d = param_fixture::ReadData("ovarian");
  // iteration limit reached by the full model
  EXPECT_EQ(RunReg(d, 2, false, -1, 0.05, 0.1, 0, 2).status, -1);
  // a law code outside 1..3 has a flat (zero) likelihood and a singular Hessian: the full fit
  // never converges (-1); inside a selection the failed fit gives -5
  EXPECT_EQ(RunReg(d, 7, false).status, -1);
  EXPECT_EQ(RunReg(d, 7, false, 1).status, -5);
  // every observation censored: the likelihood grows without bound; the limit stops the fit
  DataSet c = d;
  c.code.assign(c.code.size(), 0.0);
  EXPECT_LT(RunReg(c, 2, false, -1, 0.05, 0.1, 0, 30).status, 0);
  // non-positive times with the logarithm option
  DataSet z = d;
  z.y[0] = 0.0;
  z.y[1] = -3.0;
  EXPECT_LT(RunReg(z, 3, false, -1, 0.05, 0.1, -1, 20).status, 0);
}
