// The parametric family through its exported symbols only: every entry point on one fit (the
// comparisons with R are in tests/parametric through the same symbols), and bad input (sizes,
// null arrays, NaN, out-of-range codes and laws, reversed bounds) answered by a status without
// writing outside the caller's arrays.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "velkor/VELKORLI1M.h"

namespace {

constexpr double kCanary = 12345.678;

// An output array with 4 guard cells after its n cells.
struct Guarded {
  std::vector<double> v;
  std::size_t n;
  explicit Guarded(int size, double init = 0.0)
      : v(static_cast<std::size_t>(std::max(size, 0)) + 4, kCanary), n(v.size() - 4) {
    std::fill(v.begin(), v.begin() + static_cast<long>(n), init);
  }
  double* data() { return v.data(); }
  double operator[](std::size_t i) const { return v[i]; }
  bool intact() const {
    return std::all_of(v.begin() + static_cast<long>(n), v.end(),
                       [](double x) { return x == kCanary; });
  }
};

// n rows, one covariate, events, right-censored (every 7th) and interval-censored (every 11th)
// rows; raw times (the driver's logarithm option) and their logarithms.
struct Sample {
  std::vector<double> t, code, bounds, x, y, logBounds;
  int n = 0;
  explicit Sample(int nn) : n(nn) {
    for (int i = 0; i < n; ++i) {
      x.push_back((i % 5) - 2.0);
      t.push_back(std::exp(1.0 + 0.3 * x[i] + 0.5 * std::sin(1.7 * i)));
      code.push_back(i % 7 == 3 ? 0.0 : (i % 11 == 5 ? 3.0 : 1.0));
      y.push_back(std::log(t[i]));
    }
    bounds = t;
    for (int i = 0; i < n; ++i) bounds.push_back(t[i] * 1.5);
    logBounds = y;
    for (int i = 0; i < n; ++i) logBounds.push_back(std::log(t[i] * 1.5));
  }
};

struct RegOut {
  Guarded params, cov, crit, ptable, tests, history, resid, kept;
  int iterations = 50, nKept = -1, status = 0;
  RegOut(int n, int p, int k)
      : params(p + k),
        cov((p + k) * (p + k)),
        crit(14),
        ptable((p + k) * 6),
        tests(9),
        history(p * 4),
        resid(n * 4),
        kept(p) {}
  bool intact() const {
    return params.intact() && cov.intact() && crit.intact() && ptable.intact() && tests.intact() &&
           history.intact() && resid.intact() && kept.intact();
  }
};

RegOut RunReg(const double* t, int n, const double* code, const double* bounds, const double* x,
              int dist, int method = -1) {
  RegOut r(std::max(n, 0), 1, dist == 1 ? 1 : 2);
  r.status = Cpp_RunParamReg(t, n, 1, code, bounds, x, nullptr, dist, method, 0.05, 0.1,
                             &r.iterations, 1e-10, 0, 0.0, -1, 0.05, r.params.data(), r.cov.data(),
                             r.crit.data(), r.ptable.data(), r.tests.data(), r.history.data(),
                             r.resid.data(), r.kept.data(), &r.nKept);
  return r;
}

}  // namespace

TEST(ParametricApi, EntryPointsAgreeOnOneFit) {
  Sample s(80);
  RegOut r = RunReg(s.t.data(), s.n, s.code.data(), s.bounds.data(), s.x.data(), 2);
  ASSERT_EQ(r.status, 0);
  EXPECT_TRUE(r.intact());
  EXPECT_EQ(r.nKept, 1);
  // the log-likelihood entry at the estimate: zero gradient, -2 log L as in the criteria
  double ll = 0;
  Guarded g(3), h(9);
  ASSERT_EQ(Cpp_ComputeLogLikeDerivativesParam(s.y.data(), s.n, 1, 2, s.code.data(),
                                               s.logBounds.data(), s.x.data(), r.params.data(),
                                               nullptr, 2, &ll, g.data(), h.data()),
            0);
  EXPECT_NEAR(-2 * ll, r.crit[9], 1e-8);
  for (int j = 0; j < 3; ++j) EXPECT_LT(std::fabs(g[j]), 1e-5);
  // the optimiser alone reaches the same point
  int it = 50;
  Guarded g2(3), h2(9), th(3);
  double ll2 = 0;
  ASSERT_EQ(
      Cpp_OptimizeParamModel(s.y.data(), s.n, 1, 2, s.code.data(), s.logBounds.data(), s.x.data(),
                             nullptr, &it, 1e-10, 2, 0, 0.0, &ll2, g2.data(), h2.data(), th.data()),
      0);
  for (int j = 0; j < 3; ++j) EXPECT_NEAR(th[j], r.params[j], 1e-7);
  // the criteria entry rebuilds the fitted column, the residuals entry the driver's residuals
  Guarded crit(14), pt(18), tests(9), r1(s.n), r2(s.n), r3(s.n), r4(s.n);
  const std::vector<double> zeros(3, 0.0);
  ASSERT_EQ(
      Cpp_ComputeCritParam(s.n, 1, 2, ll2 - 10, ll2, it, th.data(), r.cov.data(), zeros.data(),
                           r.cov.data(), 0.05, crit.data(), pt.data(), tests.data()),
      0);
  EXPECT_NEAR(crit[9], -2 * ll2, 1e-9);
  EXPECT_NEAR(tests[3], 20.0, 1e-9);  // likelihood ratio -2 (L0 - L)
  ASSERT_EQ(Cpp_ResParam(s.y.data(), s.n, 1, s.code.data(), s.x.data(), r.params.data(), 2,
                         r1.data(), r2.data(), r3.data(), r4.data()),
            0);
  for (int i = 0; i < s.n; ++i) EXPECT_EQ(r4[i], r.resid[3 * s.n + i]);
  EXPECT_TRUE(g.intact() && h.intact() && th.intact() && crit.intact() && pt.intact() &&
              tests.intact() && r1.intact() && r4.intact());
  // both selections on (x, noise) keep x, in one step
  std::vector<double> x2(s.x);
  for (int i = 0; i < s.n; ++i) x2.push_back(std::cos(3.1 * i));
  for (int forward = 0; forward <= 1; ++forward) {
    int it3 = 50, kept = -1, steps = -1;
    Guarded th3(4), h3(16), cols(2), hist(8, -9.0);
    const auto select = forward ? Cpp_Param_ForSelection : Cpp_Param_BackSelection;
    EXPECT_EQ(select(s.y.data(), s.n, 2, s.code.data(), s.logBounds.data(), x2.data(), nullptr, 2,
                     0.05, &it3, 1e-10, 0, 0.0, &ll, th3.data(), h3.data(), cols.data(),
                     hist.data(), &kept, &steps),
              0);
    EXPECT_EQ(kept, 1);
    EXPECT_EQ(cols[0], 1.0);
    EXPECT_EQ(steps, 1);
    EXPECT_EQ(hist[0], forward ? 1.0 : 2.0);
    EXPECT_EQ(hist[1], -9.0);  // no second step: left as passed
    EXPECT_TRUE(th3.intact() && h3.intact() && cols.intact() && hist.intact());
  }
}

TEST(ParametricApi, BadInputGetsAStatusAndNoStrayWrite) {
  const Sample s(30);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  struct Case {
    const char* what;
    int n, dist, method;
    std::vector<double> t, code, bounds;
    int expect;  // 1: any negative status
  };
  std::vector<double> zeroTime = s.t, nanTime = s.t, reversed = s.bounds, badCodes = s.code;
  zeroTime[4] = 0.0;
  zeroTime[6] = -2.0;
  nanTime[2] = nan;
  reversed[s.n + 5] = s.t[5] / 2;  // row 5 is interval-censored: upper < lower
  badCodes[0] = 9;
  badCodes[1] = -4;
  const std::vector<Case> cases = {
      {"n = 0", 0, 2, -1, s.t, s.code, s.bounds, 1},
      {"n < 0", -3, 2, -1, s.t, s.code, s.bounds, 1},
      {"n = 1", 1, 2, -1, s.t, s.code, s.bounds, 1},
      // a law outside 1..3 has a flat likelihood and a singular Hessian: no convergence (-1),
      // and -5 when the failing fit is part of a selection
      {"law 9", s.n, 9, -1, s.t, s.code, s.bounds, -1},
      {"law 9, forward", s.n, 9, 0, s.t, s.code, s.bounds, -5},
      {"non-positive times", s.n, 3, -1, zeroTime, s.code, s.bounds, 1},
      {"NaN time", s.n, 2, -1, nanTime, s.code, s.bounds, 1},
      {"upper below lower", s.n, 2, -1, s.t, s.code, reversed, 1},
      // codes outside 0..3 add nothing: the rest is fitted
      {"unknown codes", s.n, 2, -1, s.t, badCodes, s.bounds, 0},
      // every observation censored: no finite maximum, the iteration limit ends it
      {"all censored", s.n, 2, -1, s.t, std::vector<double>(s.n, 0.0), s.bounds, 1},
  };
  for (const Case& c : cases) {
    const RegOut r =
        RunReg(c.t.data(), c.n, c.code.data(), c.bounds.data(), s.x.data(), c.dist, c.method);
    if (c.expect == 1)
      EXPECT_LT(r.status, 0) << c.what;
    else
      EXPECT_EQ(r.status, c.expect) << c.what;
    EXPECT_TRUE(r.intact()) << c.what;
  }
  // null arrays with a positive length: the frame's status, nothing written
  RegOut r = RunReg(nullptr, s.n, s.code.data(), s.bounds.data(), s.x.data(), 2);
  EXPECT_EQ(r.status, VELKOR_E_NULL_ARRAY);
  EXPECT_EQ(r.params[0], 0.0);
  r = RunReg(s.t.data(), s.n, s.code.data(), s.bounds.data(), nullptr, 2);
  EXPECT_EQ(r.status, VELKOR_E_NULL_ARRAY);
  // likelihood entry with a k that does not match the law: zero log-likelihood and derivatives
  double ll = 5;
  Guarded g(2), h(4);
  const std::vector<double> w(s.n, 1.0);
  EXPECT_EQ(
      Cpp_ComputeLogLikeDerivativesParam(s.y.data(), s.n, 1, 1, s.code.data(), s.logBounds.data(),
                                         s.x.data(), w.data(), nullptr, 2, &ll, g.data(), h.data()),
      0);
  EXPECT_EQ(ll, 0.0);
  EXPECT_TRUE(g.intact() && h.intact());
  EXPECT_EQ(
      Cpp_ComputeLogLikeDerivativesParam(s.y.data(), s.n, 1, 1, s.code.data(), s.logBounds.data(),
                                         s.x.data(), nullptr, nullptr, 2, &ll, g.data(), h.data()),
      VELKOR_E_NULL_ARRAY);
}

TEST(ParametricApi, JudgeTablesThroughTheExports) {
  // 3 subjects x 3 times, subject 2 removed (tests/parametric/test_interval_data.cpp checks the
  // records); bad sizes and a null table
  const std::vector<double> judge = {1, 0, 1, 1, 1, 0, 1, 1, 0}, st = {1, 2, 3};
  Guarded data(3, 1.0), bounds(6), codes(3), times(3), summary(6);
  std::vector<int> flags(3 + 2, -5);
  int removed = -1, kept = -1;
  auto prepare = [&](const double* j, int n) {
    return Cpp_PrepareIntervalData(j, n, 3, st.data(), data.data(), 1, &removed, flags.data(),
                                   &kept, bounds.data(), codes.data(), times.data(),
                                   summary.data());
  };
  EXPECT_EQ(prepare(judge.data(), 3), 0);
  EXPECT_EQ(removed + kept, 3);
  EXPECT_EQ(flags[3], -5);
  EXPECT_TRUE(data.intact() && bounds.intact() && codes.intact() && times.intact() &&
              summary.intact());
  EXPECT_EQ(prepare(judge.data(), 0), -2);
  EXPECT_EQ(prepare(nullptr, 3), VELKOR_E_NULL_ARRAY);
  // responses: out-of-range times and responses leave the table alone; n < 0 does nothing
  const std::vector<double> t = {5, 7, 5}, key = {1, 2, 3}, resp = {1, 9, 2};
  Guarded table(3 * 2), distinct(2);
  for (int n : {3, -1})
    EXPECT_EQ(Cpp_TransformJudgeToInt(t.data(), n, 2, key.data(), 3, resp.data(), table.data(),
                                      distinct.data()),
              0);
  EXPECT_EQ(distinct[1], 7.0);
  EXPECT_EQ(table[0], 1.0);
  EXPECT_EQ(table[1], 0.0);
  EXPECT_TRUE(table.intact() && distinct.intact());
}
