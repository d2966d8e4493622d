// Parametric log-likelihood: analytic derivatives against central differences on every law x
// censoring code (carried exponential terms and 700 guards included), values against the
// library's formulas evaluated independently in R, the deliberate asymmetries, and the pass's
// chunking, weighting and vector exponentials.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#ifdef _OPENMP
#include <omp.h>
#endif

#include "parametric/fixture_reader.h"
#include "parametric/likelihood.h"
#include "parametric/vector_math.h"

namespace {

// n rows, 2 covariates, the given codes, upper bounds y + 0.7; weights 0.5..1.25 or 1.
struct Sample {
  std::vector<double> y, code, bounds, x, w;
  int n = 0, p = 2;
  Sample(const std::vector<double>& codes, bool weighted) : code(codes) {
    n = static_cast<int>(codes.size());
    x.resize(2 * n);
    for (int i = 0; i < n; ++i) {
      x[i] = std::sin(1.0 + i);
      x[n + i] = i % 3;
      y.push_back(0.4 + 0.3 * x[i] - 0.2 * x[n + i] + 0.6 * std::cos(2.5 * i));
      w.push_back(weighted ? 0.5 + 0.25 * (i % 4) : 1.0);
    }
    bounds = y;
    for (int i = 0; i < n; ++i) bounds.push_back(y[i] + 0.7);
  }
};

struct Eval {
  double ll = 0;
  std::vector<double> g, h;
};

// Through the container entry points; the log-likelihood alone must be the same sum.
Eval Evaluate(Sample& s, const std::vector<double>& theta, int k, int dist) {
  const int np = s.p + k;
  matrix<double> y(s.n, 1, s.y.data(), 1), c(s.n, 1, s.code.data(), 1),
      b(s.n, 2, s.bounds.data(), 1), x(s.n, s.p, s.x.data(), 1), w(s.n, 1, s.w.data(), 1);
  matrix<double> th(np, 1, const_cast<double*>(theta.data()), 0), g(np, 1), h(np, np);
  Eval e;
  ComputeLogLikeDerivativesParam(&y, s.n, s.p, k, &c, &b, &x, &th, &w, dist, e.ll, &g, &h);
  double llOnly = 0;
  ComputeLogLikeParam(&y, s.n, s.p, k, &c, &b, &x, &th, &w, dist, llOnly);
  EXPECT_EQ(llOnly, e.ll);
  e.g.assign(g.data, g.data + np);
  e.h.assign(h.data, h.data + np * np);
  return e;
}

// Gradient against central differences of the log-likelihood, Hessian against those of the
// gradient, both to 1e-6 relative; the Hessian symmetric.
void CheckDerivatives(Sample& s, const std::vector<double>& theta, int k, int dist) {
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
      EXPECT_NEAR(e.h[j * np + i], fh, 1e-6 * std::max(1.0, std::fabs(fh))) << i << "," << j;
      EXPECT_EQ(e.h[j * np + i], e.h[i * np + j]);
    }
  }
}

}  // namespace

TEST(ParamLikelihood, DerivativesMatchCentralDifferencesForEveryLawAndCode) {
  for (int dist = 1; dist <= 3; ++dist) {
    std::vector<double> theta = {0.3, -0.15, 0.2};
    if (dist > 1) theta.push_back(0.8);
    const int k = static_cast<int>(theta.size()) - 2;
    for (double code : {1.0, 0.0, 2.0, 3.0}) {
      SCOPED_TRACE("law " + std::to_string(dist) + " code " + std::to_string(code));
      Sample s(std::vector<double>(9, code), true);
      CheckDerivatives(s, theta, k, dist);
    }
    // all codes interleaved (and an unknown one), weighted: the carried exponential terms
    SCOPED_TRACE("law " + std::to_string(dist) + " mixed");
    Sample mixed({0, 1, 2, 1, 3, 0, 2, 1, 3, 3, 0, 1, 7}, true);
    CheckDerivatives(mixed, theta, k, dist);
  }
  // Beyond the 700 guards. Exponential: an event with y - eta >= 700 extends the previous event
  // term by y - eta, a right-censored row keeps the previous censoring term. Weibull: the exp(z)
  // part of events and right-censored rows is dropped when z >= 700.
  Sample s({1, 0, 1, 0, 1, 2, 1}, true);
  s.y[2] = 800.0;
  s.y[3] = 900.0;
  CheckDerivatives(s, {0.3, -0.15, 0.2}, 1, 1);
  Sample t({1, 0, 1, 0}, false);
  t.y[0] = 700.0;
  t.y[1] = 720.0;
  CheckDerivatives(t, {0.3, -0.15, 0.2, 0.9}, 2, 2);
}

TEST(ParamLikelihood, GuardedEventsAndUnknownCodesAndLaws) {
  // (The carried exponential terms, the unweighted Weibull left and interval terms and the
  // subtracted log-normal left term are checked against R in the next test.)
  auto ll = [](std::vector<double> y, std::vector<double> code, std::vector<double> theta,
               int dist) {
    const int n = static_cast<int>(y.size()), k = static_cast<int>(theta.size());
    std::vector<double> b(y), w(n, 1.0);
    b.insert(b.end(), n, 0.9);
    matrix<double> my(n, 1, y.data(), 1), mc(n, 1, code.data(), 1), mb(n, 2, b.data(), 1),
        mw(n, 1, w.data(), 1), th(k, 1, theta.data(), 1);
    double v = 0;
    ComputeLogLikeParam(&my, n, 0, k, &mc, &mb, nullptr, &th, &mw, dist, v);
    return v;
  };
  // exponential: an event with y - eta >= 700 adds y - eta to the previous event term
  const double e1 = 0.5 - std::exp(0.5);
  EXPECT_DOUBLE_EQ(ll({0.5, 750.0}, {1, 1}, {0.0}, 1), e1 + (e1 + 750.0));
  // unknown censoring codes and laws add nothing
  EXPECT_EQ(ll({0.2}, {5}, {0.1, 0.7}, 3), 0.0);
  EXPECT_EQ(ll({0.2}, {1}, {0.1, 0.7}, 4), 0.0);
  EXPECT_EQ(ll({0.2}, {1}, {0.1, 0.7}, 0), 0.0);
}

TEST(ParamLikelihood, ValuesMatchTheFormulasEvaluatedInR) {
  // tests/reference/parametric/make_fixtures.R: part_ll at three points per case, on cases that
  // exercise the carried exponential terms (lung, icens), the unweighted Weibull left and
  // interval terms (icens, weighted) and the subtracted log-normal left term
  int checked = 0;
  for (const auto& [name, c] : param_fixture::ReadExpected()) {
    for (int j = 0; j < 3; ++j) {
      const std::string pt = "pt" + std::to_string(j);
      if (!c.values.count(pt + "_theta")) continue;
      SCOPED_TRACE(name + " " + pt);
      param_fixture::DataSet d = param_fixture::ReadData(c.data);
      if (!c.weighted) d.w.assign(d.w.size(), 1.0);
      std::vector<double> b = d.bounds(), theta = c.values.at(pt + "_theta");
      const int k = c.dist == 1 ? 1 : 2;
      matrix<double> y(d.n, 1, d.y.data(), 1), code(d.n, 1, d.code.data(), 1),
          mb(d.n, 2, b.data(), 1), x(d.n, d.p, d.x.data(), 1), w(d.n, 1, d.w.data(), 1),
          mt(d.p + k, 1, theta.data(), 1);
      double ll = 0;
      ComputeLogLikeParam(&y, d.n, d.p, k, &code, &mb, &x, &mt, &w, c.dist, ll);
      EXPECT_LT(param_fixture::RelErrStrict(ll, c.values.at(pt + "_ll")[0]), 1e-11);
      ++checked;
    }
  }
  EXPECT_GE(checked, 12);
}

TEST(ParamLikelihood, ChunkedPassIsTheSumOfItsPiecesForAnyThreadCountAndBuild) {
  // 140000 rows span 35 chunks of 4096, enough for threads: the totals equal the sum of four
  // pieces evaluated separately (1e-10), and one or two threads, the AVX2 build or the baseline
  // build give the same bits.
  std::vector<double> codes;
  for (int i = 0; i < 140000; ++i) codes.push_back((i * 7) % 4);
  const Sample s(codes, true);
  const std::vector<double> theta = {0.3, -0.15, 0.2, 0.8};
  auto pass = [&](int lo, int len, int dist) {
    Eval e{0, std::vector<double>(4), std::vector<double>(16)};
    velkor::param::EvalParam(s.y.data() + lo, s.code.data() + lo, s.bounds.data() + s.n + lo,
                             s.x.data() + lo, s.w.data() + lo, len, s.n, 2, 2, theta.data(), dist,
                             e.ll, e.g.data(), e.h.data());
    e.g.insert(e.g.end(), e.h.begin(), e.h.end());  // one vector of the 20 derivatives
    return e;
  };
  for (int dist = 2; dist <= 3; ++dist) {
    const Eval all = pass(0, s.n, dist);
    Eval sum{0, std::vector<double>(20), {}};
    for (int part = 0; part < 4; ++part) {
      const Eval e = pass(part * 35000, 35000, dist);
      sum.ll += e.ll;
      for (int j = 0; j < 20; ++j) sum.g[j] += e.g[j];
    }
    EXPECT_NEAR(all.ll, sum.ll, 1e-10 * std::fabs(sum.ll));
    for (int j = 0; j < 20; ++j) EXPECT_NEAR(all.g[j], sum.g[j], 1e-9 * (1 + std::fabs(sum.g[j])));
    auto same = [&](const Eval& e) { return e.ll == all.ll && e.g == all.g; };
#ifdef _OPENMP
    const int saved = omp_get_max_threads();
    omp_set_num_threads(1);
    EXPECT_TRUE(same(pass(0, s.n, dist)));
    omp_set_num_threads(saved);
#endif
    bool& avx2 = velkor::param::UseAvx2Pass();
    avx2 = !avx2;
    EXPECT_TRUE(same(pass(0, s.n, dist))) << "AVX2 and baseline builds differ";
    avx2 = !avx2;
  }
}

TEST(ParamLikelihood, LogNormalTailsStayExactBeyondTheUnderflowOfPhi) {
  // One row 45 scale units beyond the linear predictor: 1 - Phi(45) underflows, its logarithm
  // does not. Right-censored: log Q(45); left-censored at -45: minus log Phi(-45), the same value
  // subtracted; the gradient in the intercept is the Mills ratio over sigma in both cases.
  // Values from mpmath at 40 digits.
  constexpr double kLogQ45 = -1017.2260942419524, kMills45 = 45.022200328343595;
  for (const double code : {0.0, 2.0}) {
    Sample s({code}, false);
    s.x.assign(2, 0.0);
    s.y[0] = 0.25 + (code == 0.0 ? 45.0 : -45.0) * 0.5;
    const Eval e = Evaluate(s, {0.1, -0.2, 0.25, 0.5}, 2, 3);
    EXPECT_NEAR(e.ll, code == 0.0 ? kLogQ45 : -kLogQ45, 1e-13 * 1017.0);
    EXPECT_NEAR(e.g[2], kMills45 / 0.5, 1e-13 * kMills45 / 0.5);  // d/d intercept
  }
  // Unit weights sum their logarithms as one product per block, other weights take each
  // logarithm directly: with every weight 2 the terms are twice those with unit weights.
  std::vector<double> codes;
  for (int i = 0; i < 3000; ++i) codes.push_back((i * 5) % 4);
  Sample one(codes, false), two(codes, false);
  two.w.assign(two.w.size(), 2.0);
  const Eval a = Evaluate(one, {0.3, -0.15, 0.2, 0.8}, 2, 3);
  const Eval b = Evaluate(two, {0.3, -0.15, 0.2, 0.8}, 2, 3);
  EXPECT_NEAR(b.ll, 2.0 * a.ll, 1e-13 * std::fabs(a.ll));
  for (std::size_t j = 0; j < a.g.size(); ++j)
    EXPECT_NEAR(b.g[j], 2.0 * a.g[j], 1e-12 * std::max(1.0, std::fabs(a.g[j])));
}

TEST(ParamLikelihood, VectorExponentialsAgreeWithTheCLibrary) {
  // exp within 1.6 ulp of the C library's (ours within 1 ulp, the library's within 0.52), expm1
  // within 4.5 ulp; the limits 0 and +inf, and NaN.
  using velkor::param::vec::V2;
  auto ulps = [](double got, double want) {
    return std::fabs(got - want) / std::fabs(std::nextafter(want, 1e300) - want);
  };
  double worstExp = 0, worstExpm1 = 0;
  for (double x = -744.0; x < 709.0; x += 0.01234567) {
    const V2 in = {x, std::fabs(x) < 3 ? x / 7 : -x};  // many points near 0 for expm1
    V2 e, m;
    velkor::param::vec::ExpExpm1<V2, velkor::param::vec::I2>(in, e, m);
    for (int l = 0; l < 2; ++l)
      if (std::exp(in[l]) > 1e-300 && std::exp(in[l]) < 1e300) {
        worstExp = std::max(worstExp, ulps(e[l], std::exp(in[l])));
        worstExpm1 = std::max(worstExpm1, ulps(m[l], std::expm1(in[l])));
      }
  }
  EXPECT_LE(worstExp, 1.6);
  EXPECT_LE(worstExpm1, 4.5);
  V2 e, m;
  velkor::param::vec::ExpExpm1<V2, velkor::param::vec::I2>(V2{-800.0, 800.0}, e, m);
  EXPECT_TRUE(e[0] == 0.0 && e[1] == HUGE_VAL);
  velkor::param::vec::ExpExpm1<V2, velkor::param::vec::I2>(V2{std::nan(""), -HUGE_VAL}, e, m);
  EXPECT_TRUE(std::isnan(e[0]) && std::isnan(m[0]) && e[1] == 0.0 && m[1] == -1.0);
}
