// The parametric family through its exported symbols only: a fit end to end, consistency of the
// entry points with each other, and bad input (sizes, null arrays, NaN, out-of-range codes and
// laws, reversed bounds) answered by a status without writing outside the caller's arrays.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "velkor/VELKORLI1M.h"

namespace {

constexpr double kCanary = 12345.678;

// An output array with `pad` guard cells after its `n` cells.
struct Guarded {
  std::vector<double> v;
  std::size_t n;
  Guarded(std::size_t size, double init = 0.0, std::size_t pad = 4)
      : v(size + pad, kCanary), n(size) {
    std::fill(v.begin(), v.begin() + static_cast<long>(size), init);
  }
  double* data() { return v.data(); }
  double operator[](std::size_t i) const { return v[i]; }
  bool intact() const {
    for (std::size_t i = n; i < v.size(); ++i)
      if (v[i] != kCanary) return false;
    return true;
  }
};

// A small Weibull-like sample with one covariate and every censoring code.
struct Sample {
  std::vector<double> t, code, bounds, x, w;
  int n = 0;
  explicit Sample(int nn) : n(nn) {
    std::vector<double> up;
    for (int i = 0; i < n; ++i) {
      const double xi = (i % 5) - 2.0;
      t.push_back(std::exp(1.0 + 0.3 * xi + 0.5 * std::sin(1.7 * i)));
      code.push_back(i % 7 == 3 ? 0.0 : (i % 11 == 5 ? 3.0 : 1.0));
      up.push_back(t.back() * 1.5);
      x.push_back(xi);
      w.push_back(1.0);
    }
    bounds = t;
    bounds.insert(bounds.end(), up.begin(), up.end());
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

RegOut RunReg(const double* t, int n, int p, const double* code, const double* bounds,
              const double* x, const double* w, int dist, short logTime = -1, int method = -1) {
  RegOut r(n > 0 ? n : 0, p > 0 ? p : 0, dist == 1 ? 1 : 2);
  r.status = Cpp_RunParamReg(t, n, p, code, bounds, x, w, dist, method, 0.05, 0.1, &r.iterations,
                             1e-10, 0, 0.0, logTime, 0.05, r.params.data(), r.cov.data(),
                             r.crit.data(), r.ptable.data(), r.tests.data(), r.history.data(),
                             r.resid.data(), r.kept.data(), &r.nKept);
  return r;
}

}  // namespace

TEST(ParametricApi, EntryPointsAgreeWithEachOther) {
  Sample s(60);
  for (int dist = 1; dist <= 3; ++dist) {
    SCOPED_TRACE(dist);
    const int k = dist == 1 ? 1 : 2, np = 1 + k;
    RegOut r =
        RunReg(s.t.data(), s.n, 1, s.code.data(), s.bounds.data(), s.x.data(), s.w.data(), dist);
    ASSERT_EQ(r.status, 0);
    EXPECT_TRUE(r.intact());
    EXPECT_EQ(r.nKept, 1);
    // the log-likelihood entry at the estimate: zero gradient, -2 log L as in the criteria
    std::vector<double> y(s.n), up(s.bounds);
    for (int i = 0; i < s.n; ++i) {
      y[i] = std::log(s.t[i]);
      up[i] = y[i];
      up[s.n + i] = std::log(up[s.n + i]);
    }
    double ll = 0;
    Guarded g(np), h(np * np);
    ASSERT_EQ(Cpp_ComputeLogLikeDerivativesParam(y.data(), s.n, 1, k, s.code.data(), up.data(),
                                                 s.x.data(), r.params.data(), nullptr, dist, &ll,
                                                 g.data(), h.data()),
              0);
    EXPECT_NEAR(-2 * ll, r.crit[9], 1e-8);
    for (int j = 0; j < np; ++j) EXPECT_LT(std::fabs(g[j]), 1e-5);
    EXPECT_TRUE(g.intact() && h.intact());
    // the optimiser alone reaches the same point
    int it = 50;
    Guarded g2(np), h2(np * np), th(np);
    double ll2 = 0;
    ASSERT_EQ(
        Cpp_OptimizeParamModel(y.data(), s.n, 1, k, s.code.data(), up.data(), s.x.data(), nullptr,
                               &it, 1e-10, dist, 0, 0.0, &ll2, g2.data(), h2.data(), th.data()),
        0);
    for (int j = 0; j < np; ++j) EXPECT_NEAR(th[j], r.params[j], 1e-7);
    // the criteria entry rebuilds the fitted column from the same inputs
    Guarded crit(14), pt(np * 6), tests(9);
    std::vector<double> zeros(np, 0.0);
    ASSERT_EQ(
        Cpp_ComputeCritParam(s.n, 1, k, ll2 - 10, ll2, it, th.data(), r.cov.data(), zeros.data(),
                             r.cov.data(), 0.05, crit.data(), pt.data(), tests.data()),
        0);
    EXPECT_NEAR(crit[9], -2 * ll2, 1e-9);
    EXPECT_NEAR(tests[3], 20.0, 1e-9);  // likelihood ratio -2 (L0 - L)
    EXPECT_TRUE(crit.intact() && pt.intact() && tests.intact());
    // residuals entry = residual columns of the driver
    Guarded r1(s.n), r2(s.n), r3(s.n), r4(s.n);
    ASSERT_EQ(Cpp_ResParam(y.data(), s.n, 1, s.code.data(), s.x.data(), r.params.data(), dist,
                           r1.data(), r2.data(), r3.data(), r4.data()),
              0);
    for (int i = 0; i < s.n; ++i) EXPECT_EQ(r4[i], r.resid[3 * s.n + i]);
    EXPECT_TRUE(r1.intact() && r4.intact());
  }
}

TEST(ParametricApi, SelectionEntryPoints) {
  Sample s(80);
  std::vector<double> x2(s.x);  // second covariate: noise
  for (int i = 0; i < s.n; ++i) x2.push_back(std::cos(3.1 * i));
  std::vector<double> y(s.n);
  for (int i = 0; i < s.n; ++i) y[i] = std::log(s.t[i]);
  std::vector<double> up(s.bounds);
  for (int i = 0; i < s.n; ++i) up[s.n + i] = std::log(up[s.n + i]), up[i] = y[i];
  for (int forward = 0; forward <= 1; ++forward) {
    int it = 50, kept = -1, steps = -1;
    double ll = 0;
    Guarded th(4), h(16), cols(2), hist(8, -9.0);
    const int st =
        forward ? Cpp_Param_ForSelection(y.data(), s.n, 2, s.code.data(), up.data(), x2.data(),
                                         nullptr, 2, 0.05, &it, 1e-10, 0, 0.0, &ll, th.data(),
                                         h.data(), cols.data(), hist.data(), &kept, &steps)
                : Cpp_Param_BackSelection(y.data(), s.n, 2, s.code.data(), up.data(), x2.data(),
                                          nullptr, 2, 0.05, &it, 1e-10, 0, 0.0, &ll, th.data(),
                                          h.data(), cols.data(), hist.data(), &kept, &steps);
    EXPECT_EQ(st, 0);
    EXPECT_EQ(kept, 1);
    EXPECT_EQ(cols[0], 1.0);
    EXPECT_EQ(steps, 1);
    EXPECT_EQ(hist[0], forward ? 1.0 : 2.0);
    EXPECT_EQ(hist[1], -9.0);  // no second step: left as passed
    EXPECT_TRUE(th.intact() && h.intact() && cols.intact() && hist.intact());
  }
}

TEST(ParametricApi, BadInputGetsAStatusAndNoStrayWrite) {
  Sample s(30);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  // sizes: n = 0 and negative sizes fail to fit, nothing outside the outputs is touched
  for (int n : {0, -3, 1}) {
    RegOut r = RunReg(s.t.data(), n, 1, s.code.data(), s.bounds.data(), s.x.data(), nullptr, 2);
    EXPECT_LT(r.status, 0) << n;
    EXPECT_TRUE(r.intact());
  }
  // null arrays with a positive length: internal status 3, nothing written
  RegOut r = RunReg(nullptr, s.n, 1, s.code.data(), s.bounds.data(), s.x.data(), nullptr, 2);
  EXPECT_EQ(r.status, VELKOR_E_NULL_ARRAY);
  EXPECT_EQ(r.params[0], 0.0);
  r = RunReg(s.t.data(), s.n, 1, s.code.data(), s.bounds.data(), nullptr, nullptr, 2);
  EXPECT_EQ(r.status, VELKOR_E_NULL_ARRAY);
  // law outside 1..3: flat likelihood, singular Hessian: no convergence (-1), and -5 when the
  // failing fit is part of a selection
  r = RunReg(s.t.data(), s.n, 1, s.code.data(), s.bounds.data(), s.x.data(), nullptr, 9);
  EXPECT_EQ(r.status, -1);
  EXPECT_TRUE(r.intact());
  r = RunReg(s.t.data(), s.n, 1, s.code.data(), s.bounds.data(), s.x.data(), nullptr, 9, -1, 0);
  EXPECT_EQ(r.status, -5);
  EXPECT_TRUE(r.intact());
  // non-positive time with the logarithm option, NaN time, upper bound below lower bound
  std::vector<double> t = s.t;
  t[4] = 0.0;
  t[6] = -2.0;
  r = RunReg(t.data(), s.n, 1, s.code.data(), s.bounds.data(), s.x.data(), nullptr, 3);
  EXPECT_LT(r.status, 0);
  EXPECT_TRUE(r.intact());
  t = s.t;
  t[2] = nan;
  r = RunReg(t.data(), s.n, 1, s.code.data(), s.bounds.data(), s.x.data(), nullptr, 2);
  EXPECT_LT(r.status, 0);
  std::vector<double> b = s.bounds;
  b[s.n + 5] = s.t[5] / 2;  // row 5 is interval-censored: upper < lower
  r = RunReg(s.t.data(), s.n, 1, s.code.data(), b.data(), s.x.data(), nullptr, 2);
  EXPECT_LT(r.status, 0);
  EXPECT_TRUE(r.intact());
  // censoring codes outside 0..3 add nothing: the rest is fitted
  std::vector<double> c = s.code;
  c[0] = 9;
  c[1] = -4;
  r = RunReg(s.t.data(), s.n, 1, c.data(), s.bounds.data(), s.x.data(), nullptr, 2);
  EXPECT_EQ(r.status, 0);
  // every observation censored: no finite maximum, the iteration limit ends it
  c.assign(s.n, 0.0);
  r = RunReg(s.t.data(), s.n, 1, c.data(), s.bounds.data(), s.x.data(), nullptr, 2);
  EXPECT_LT(r.status, 0);
  EXPECT_TRUE(r.intact());
  // likelihood entry with mismatched k: zero log-likelihood and derivatives
  double ll = 5;
  Guarded g(2), h(4);
  EXPECT_EQ(Cpp_ComputeLogLikeDerivativesParam(s.t.data(), s.n, 1, 1, s.code.data(),
                                               s.bounds.data(), s.x.data(), s.w.data(), nullptr, 2,
                                               &ll, g.data(), h.data()),
            0);
  EXPECT_EQ(ll, 0.0);
  EXPECT_TRUE(g.intact() && h.intact());
  EXPECT_EQ(
      Cpp_ComputeLogLikeDerivativesParam(s.t.data(), s.n, 1, 1, s.code.data(), s.bounds.data(),
                                         s.x.data(), nullptr, nullptr, 2, &ll, g.data(), h.data()),
      VELKOR_E_NULL_ARRAY);
}

TEST(ParametricApi, JudgeTablesThroughTheExports) {
  // 3 subjects x 3 times; subject 2 removed, subject 3 interval (t_1, t_2]
  const std::vector<double> judge = {1, 0, 1, 1, 1, 0, 1, 1, 0};
  const std::vector<double> st = {1, 2, 3};
  Guarded data(3, 0.0), bounds(6, -1), codes(3, -1), times(3, -1), summary(6);
  std::vector<int> flags(3 + 2, -5);
  int removed = -1, kept = -1;
  for (int i = 0; i < 3; ++i) data.v[i] = 10.0 + i;
  EXPECT_EQ(
      Cpp_PrepareIntervalData(judge.data(), 3, 3, st.data(), data.data(), 1, &removed, flags.data(),
                              &kept, bounds.data(), codes.data(), times.data(), summary.data()),
      0);
  EXPECT_EQ(removed, 1);
  EXPECT_EQ(kept, 2);
  EXPECT_EQ(flags[0], 2);
  EXPECT_EQ(flags[3], -5);
  EXPECT_EQ(codes[0], 3);  // subject 3: time 1
  EXPECT_EQ(codes[1], 0);  // subject 1: right-censored at 3
  EXPECT_EQ(data[0], 12.0);
  EXPECT_TRUE(data.intact() && bounds.intact() && codes.intact() && times.intact() &&
              summary.intact());
  // bad sizes: nothing kept (-2), nothing written out of place
  EXPECT_EQ(
      Cpp_PrepareIntervalData(judge.data(), 0, 3, st.data(), data.data(), 1, &removed, flags.data(),
                              &kept, bounds.data(), codes.data(), times.data(), summary.data()),
      -2);
  EXPECT_EQ(
      Cpp_PrepareIntervalData(nullptr, 3, 3, st.data(), data.data(), 1, &removed, flags.data(),
                              &kept, bounds.data(), codes.data(), times.data(), summary.data()),
      VELKOR_E_NULL_ARRAY);
  // responses: out-of-range times and responses leave the table alone
  const std::vector<double> t = {5, 7, 5}, key = {1, 2, 3}, resp = {1, 9, 2};
  Guarded table(3 * 2, 0.0), distinct(2);
  EXPECT_EQ(Cpp_TransformJudgeToInt(t.data(), 3, 2, key.data(), 3, resp.data(), table.data(),
                                    distinct.data()),
            0);
  EXPECT_EQ(distinct[1], 7.0);
  EXPECT_EQ(table[0], 1.0);
  EXPECT_EQ(table[1], 0.0);
  EXPECT_TRUE(table.intact() && distinct.intact());
  EXPECT_EQ(Cpp_TransformJudgeToInt(t.data(), -1, 2, key.data(), 3, resp.data(), table.data(),
                                    distinct.data()),
            0);
}
