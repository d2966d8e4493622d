// Parametric log-likelihood: analytic derivatives against central differences on every law x
// censoring code (carried exponential terms and 700 guards included), values against the
// library's formulas evaluated independently in R, and the deliberate asymmetries.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "parametric/fixture_reader.h"
#include "parametric/likelihood.h"

namespace {

// A small sample: n rows, 2 covariates, codes given, bounds y + 0.7.
struct Sample {
  std::vector<double> y, code, bounds, x, w;
  int n = 0, p = 2;
};

Sample MakeSample(const std::vector<double>& codes, bool weighted) {
  Sample s;
  s.n = static_cast<int>(codes.size());
  s.code = codes;
  std::vector<double> up;
  for (int i = 0; i < s.n; ++i) {
    const double x1 = std::sin(1.0 + i), x2 = static_cast<double>(i % 3);
    s.x.push_back(x1);
    s.y.push_back(0.4 + 0.3 * x1 - 0.2 * x2 + 0.6 * std::cos(2.5 * i));
    s.w.push_back(weighted ? 0.5 + 0.25 * (i % 4) : 1.0);
    up.push_back(s.y.back() + 0.7);
  }
  for (int i = 0; i < s.n; ++i) s.x.push_back(static_cast<double>(i % 3));
  s.bounds = s.y;
  s.bounds.insert(s.bounds.end(), up.begin(), up.end());
  return s;
}

struct Eval {
  double ll = 0;
  std::vector<double> g, h;
};

Eval Evaluate(Sample& s, const std::vector<double>& theta, int k, int dist) {
  const int np = s.p + k;
  matrix<double> y(s.n, 1, s.y.data(), 1), c(s.n, 1, s.code.data(), 1),
      b(s.n, 2, s.bounds.data(), 1);
  matrix<double> x(s.n, s.p, s.x.data(), 1), w(s.n, 1, s.w.data(), 1);
  matrix<double> th(np, 1, const_cast<double*>(theta.data()), 0), g(np, 1), h(np, np);
  Eval e;
  ComputeLogLikeDerivativesParam(&y, s.n, s.p, k, &c, &b, &x, &th, &w, dist, e.ll, &g, &h);
  double llOnly = 0;
  ComputeLogLikeParam(&y, s.n, s.p, k, &c, &b, &x, &th, &w, dist, llOnly);
  EXPECT_EQ(llOnly, e.ll);  // the two passes sum the same terms in the same order
  e.g.assign(g.data, g.data + np);
  e.h.assign(h.data, h.data + np * np);
  return e;
}

// Central differences of the log-likelihood (gradient) and of the gradient (Hessian).
void CheckDerivatives(Sample& s, const std::vector<double>& theta, int k, int dist,
                      const std::string& what) {
  SCOPED_TRACE(what);
  const int np = s.p + k;
  const Eval e = Evaluate(s, theta, k, dist);
  ASSERT_TRUE(std::isfinite(e.ll));
  for (int j = 0; j < np; ++j) {
    const double h = 1e-5 * std::max(1.0, std::fabs(theta[j]));
    std::vector<double> tp = theta, tm = theta;
    tp[j] += h;
    tm[j] -= h;
    const Eval ep = Evaluate(s, tp, k, dist), em = Evaluate(s, tm, k, dist);
    const double fd = (ep.ll - em.ll) / (2 * h);
    EXPECT_NEAR(e.g[j], fd, 1e-6 * std::max(1.0, std::fabs(fd))) << "gradient " << j;
    for (int i = 0; i < np; ++i) {
      const double fh = (ep.g[i] - em.g[i]) / (2 * h);
      EXPECT_NEAR(e.h[j * np + i], fh, 1e-6 * std::max(1.0, std::fabs(fh)))
          << "hessian " << i << "," << j;
      EXPECT_EQ(e.h[j * np + i], e.h[i * np + j]);
    }
  }
}

}  // namespace

TEST(ParamLikelihood, DerivativesMatchCentralDifferencesForEveryLawAndCode) {
  const char* law[] = {"", "exponential", "weibull", "lognormal"};
  for (int dist = 1; dist <= 3; ++dist) {
    const int k = dist == 1 ? 1 : 2;
    std::vector<double> theta = {0.3, -0.15, 0.2};
    if (k == 2) theta.push_back(0.8);
    for (double code : {1.0, 0.0, 2.0, 3.0}) {
      Sample s = MakeSample(std::vector<double>(9, code), true);
      CheckDerivatives(s, theta, k, dist, std::string(law[dist]) + " code " + std::to_string(code));
    }
    // all codes interleaved, weighted: exercises the carried exponential terms
    Sample mixed = MakeSample({0, 1, 2, 1, 3, 0, 2, 1, 3, 3, 0, 1, 7}, true);
    CheckDerivatives(mixed, theta, k, dist, std::string(law[dist]) + " mixed");
  }
}

TEST(ParamLikelihood, DerivativesStayExactBeyondThe700Guards) {
  // Exponential: an event with y - eta >= 700 extends the previous event term by y - eta; a
  // right-censored row beyond the guard keeps the previous censoring term.
  Sample s = MakeSample({1, 0, 1, 0, 1, 2, 1}, true);
  s.y[2] = 800.0;
  s.y[3] = 900.0;
  CheckDerivatives(s, {0.3, -0.15, 0.2}, 1, 1, "exponential guards");
  // Weibull: the exp(z) part of events and right-censored rows is dropped when z >= 700.
  Sample t = MakeSample({1, 0, 1, 0}, false);
  t.y[0] = 700.0;
  t.y[1] = 720.0;
  CheckDerivatives(t, {0.3, -0.15, 0.2, 0.9}, 2, 2, "weibull guards");
}

TEST(ParamLikelihood, ExponentialTermsAreCarriedToLaterObservations) {
  // y = (0.5, 1.0), intercept 0, no covariate: first right-censored, second an event.
  std::vector<double> y = {0.5, 1.0}, code = {0, 1}, bounds = {0.5, 1.0, 0, 0}, w = {1, 2};
  std::vector<double> theta = {0.0};
  matrix<double> my(2, 1, y.data(), 1), mc(2, 1, code.data(), 1), mb(2, 2, bounds.data(), 1);
  matrix<double> mw(2, 1, w.data(), 1), th(1, 1, theta.data(), 1);
  double ll = 0;
  ComputeLogLikeParam(&my, 2, 0, 1, &mc, &mb, nullptr, &th, &mw, 1, ll);
  const double right = -std::exp(0.5), event = 1.0 - std::exp(1.0);
  EXPECT_DOUBLE_EQ(ll, 1 * right + 2 * (right + event));
  // an event beyond the guard adds y - eta to the previous event term
  std::vector<double> y2 = {0.5, 750.0}, code2 = {1, 1}, w2 = {1, 1};
  matrix<double> my2(2, 1, y2.data(), 1), mc2(2, 1, code2.data(), 1), mw2(2, 1, w2.data(), 1);
  ComputeLogLikeParam(&my2, 2, 0, 1, &mc2, &mb, nullptr, &th, &mw2, 1, ll);
  const double e1 = 0.5 - std::exp(0.5);
  EXPECT_DOUBLE_EQ(ll, e1 + (e1 + 750.0));
}

TEST(ParamLikelihood, AsymmetriesOfTheWeibullAndLogNormalTerms) {
  std::vector<double> y = {0.2}, bounds = {0.2, 0.9}, w = {3.0}, theta = {0.1, 0.7};
  matrix<double> my(1, 1, y.data(), 1), mb(1, 2, bounds.data(), 1), mw(1, 1, w.data(), 1);
  matrix<double> th(2, 1, theta.data(), 1);
  const double z = (0.2 - 0.1) / 0.7, zu = (0.9 - 0.1) / 0.7;
  auto ll_of = [&](double code, int dist) {
    std::vector<double> c = {code};
    matrix<double> mc(1, 1, c.data(), 1);
    double ll = 0;
    ComputeLogLikeParam(&my, 1, 0, 2, &mc, &mb, nullptr, &th, &mw, dist, ll);
    return ll;
  };
  // Weibull left and interval terms ignore the weight
  EXPECT_NEAR(ll_of(2, 2), std::log(1 - std::exp(-std::exp(z))), 1e-14);
  EXPECT_NEAR(ll_of(3, 2), std::log(std::exp(-std::exp(z)) - std::exp(-std::exp(zu))), 1e-14);
  EXPECT_NEAR(ll_of(1, 2), 3 * (-std::log(0.7) + z - 0.2) - 3 * std::exp(z), 1e-13);
  // log-normal left-censored term is subtracted: it raises the log-likelihood
  const double Phi = 0.5 * std::erfc(-z / std::sqrt(2.0));
  EXPECT_NEAR(ll_of(2, 3), -3 * std::log(Phi), 1e-13);
  EXPECT_GT(ll_of(2, 3), 0.0);
  // unknown censoring codes and laws add nothing
  EXPECT_EQ(ll_of(5, 3), 0.0);
  EXPECT_EQ(ll_of(1, 4), 0.0);
  EXPECT_EQ(ll_of(1, 0), 0.0);
}

TEST(ParamLikelihood, ValuesMatchTheFormulasEvaluatedInR) {
  // tests/reference/parametric/make_fixtures.R: part_ll at three points per case
  const auto cases = param_fixture::ReadExpected();
  int checked = 0;
  for (const auto& [name, c] : cases) {
    for (int j = 0; j < 3; ++j) {
      const auto th = c.values.find("pt" + std::to_string(j) + "_theta");
      if (th == c.values.end()) continue;
      SCOPED_TRACE(name + " point " + std::to_string(j));
      param_fixture::DataSet d = param_fixture::ReadData(c.data);
      if (!c.weighted) d.w.assign(d.w.size(), 1.0);
      std::vector<double> b = d.bounds(), theta = th->second;
      const int k = c.dist == 1 ? 1 : 2;
      matrix<double> y(d.n, 1, d.y.data(), 1), code(d.n, 1, d.code.data(), 1),
          mb(d.n, 2, b.data(), 1);
      matrix<double> x(d.n, d.p, d.x.data(), 1), w(d.n, 1, d.w.data(), 1),
          mt(d.p + k, 1, theta.data(), 1);
      double ll = 0;
      ComputeLogLikeParam(&y, d.n, d.p, k, &code, &mb, &x, &mt, &w, c.dist, ll);
      const double ref = c.values.at("pt" + std::to_string(j) + "_ll")[0];
      EXPECT_LT(param_fixture::RelErrStrict(ll, ref), 1e-11) << ll << " vs " << ref;
      ++checked;
    }
  }
  EXPECT_GE(checked, 12);
}

#ifdef _OPENMP
#include <omp.h>
#endif

TEST(ParamLikelihood, ChunkedPassesAddUpAndIgnoreTheThreadCount) {
  // 140000 rows span 35 chunks of 4096, enough for the pass to use threads: the totals equal the
  // sum of the pieces evaluated separately, and one thread or two give the same bits.
  std::vector<double> codes;
  for (int i = 0; i < 140000; ++i) codes.push_back(static_cast<double>((i * 7) % 4));
  Sample s = MakeSample(codes, true);
  for (int dist = 2; dist <= 3; ++dist) {
    const std::vector<double> theta = {0.3, -0.15, 0.2, 0.8};
#ifdef _OPENMP
    const int saved = omp_get_max_threads();
    omp_set_num_threads(1);
    const Eval one = Evaluate(s, theta, 2, dist);
    omp_set_num_threads(2);
    const Eval two = Evaluate(s, theta, 2, dist);
    omp_set_num_threads(saved);
    EXPECT_EQ(one.ll, two.ll);
    EXPECT_EQ(one.g, two.g);
    EXPECT_EQ(one.h, two.h);
#endif
    const Eval all = Evaluate(s, theta, 2, dist);
    Eval sum;
    sum.g.assign(4, 0.0);
    sum.h.assign(16, 0.0);
    for (int part = 0; part < 4; ++part) {
      Sample piece;
      const int lo = part * 35000, hi = lo + 35000;
      std::vector<double> up;
      for (int i = lo; i < hi; ++i) {
        piece.y.push_back(s.y[i]);
        piece.code.push_back(s.code[i]);
        piece.w.push_back(s.w[i]);
        up.push_back(s.bounds[140000 + i]);
      }
      for (int j = 0; j < 2; ++j)
        for (int i = lo; i < hi; ++i) piece.x.push_back(s.x[j * 140000 + i]);
      piece.bounds = piece.y;
      piece.bounds.insert(piece.bounds.end(), up.begin(), up.end());
      piece.n = 35000;
      const Eval e = Evaluate(piece, theta, 2, dist);
      sum.ll += e.ll;
      for (int j = 0; j < 4; ++j) sum.g[j] += e.g[j];
      for (int j = 0; j < 16; ++j) sum.h[j] += e.h[j];
    }
    EXPECT_NEAR(all.ll, sum.ll, 1e-10 * std::fabs(sum.ll));
    for (int j = 0; j < 4; ++j) EXPECT_NEAR(all.g[j], sum.g[j], 1e-9 * (1 + std::fabs(sum.g[j])));
    for (int j = 0; j < 16; ++j) EXPECT_NEAR(all.h[j], sum.h[j], 1e-9 * (1 + std::fabs(sum.h[j])));
  }
}

TEST(ParamLikelihood, LogNormalTailsStayExactBeyondTheUnderflowOfPhi) {
  // One row 45 scale units beyond the linear predictor: 1 - Phi(45) underflows, its logarithm
  // does not. Right-censored: log Q(45); left-censored at -45: minus log Phi(-45), the same value
  // subtracted; the gradient in the intercept is the Mills ratio over sigma in both cases.
  // Values from mpmath at 40 digits.
  constexpr double kLogQ45 = -1017.2260942419524;  // log(1 - Phi(45))
  constexpr double kMills45 = 45.022200328343595;  // phi(45) / (1 - Phi(45))
  for (const double code : {0.0, 2.0}) {
    Sample s = MakeSample({code}, false);
    s.x.assign(2, 0.0);
    const double sigma = 0.5;
    s.y[0] = 0.25 + (code == 0.0 ? 45.0 : -45.0) * sigma;
    const Eval e = Evaluate(s, {0.1, -0.2, 0.25, sigma}, 2, 3);
    EXPECT_NEAR(e.ll, code == 0.0 ? kLogQ45 : -kLogQ45, 1e-13 * 1017.0);
    EXPECT_NEAR(e.g[2], kMills45 / sigma, 1e-13 * kMills45 / sigma);  // d/d intercept
  }
}

TEST(ParamLikelihood, UnitWeightsAndDoubledWeightsGiveTheSameTerms) {
  // Unit weights sum their logarithms as one product per block, other weights take each
  // logarithm directly: with every weight 2 the log-normal log-likelihood and derivatives are
  // twice those with unit weights (the Weibull left and interval terms are unweighted).
  std::vector<double> codes;
  for (int i = 0; i < 3000; ++i) codes.push_back(static_cast<double>((i * 5) % 4));
  Sample one = MakeSample(codes, false), two = MakeSample(codes, false);
  for (auto& v : two.w) v = 2.0;
  const std::vector<double> theta = {0.3, -0.15, 0.2, 0.8};
  const Eval a = Evaluate(one, theta, 2, 3), b = Evaluate(two, theta, 2, 3);
  EXPECT_NEAR(b.ll, 2.0 * a.ll, 1e-13 * std::fabs(a.ll));
  for (std::size_t j = 0; j < a.g.size(); ++j)
    EXPECT_NEAR(b.g[j], 2.0 * a.g[j], 1e-12 * std::max(1.0, std::fabs(a.g[j])));
}
