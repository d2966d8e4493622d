// Interval helpers: hand-computable Wald and log limits, Wilson and Clopper-Pearson against the
// mpmath/scipy fixture, boundary rules, ellipse geometry, and the guards.

#include "companion/intervals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "companion/reference_rows.h"

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kZ95 = 1.959963984540054;  // normal quantile at 0.975

double RelErr(double got, double expected) {
  return std::isfinite(got) ? std::fabs(got - expected) / std::max(std::fabs(expected), 1e-300)
                            : kInf;
}
bool BothNaN(double lo, double hi) {
  return std::isnan(lo) && std::isnan(hi);
}

TEST(IntervalWaldAndLog, HandComputedLimitsClippingAndCollapse) {
  // Sensitivity 40/50 of the reference ROC table: 0.8 -/+ z sqrt(0.8 * 0.2 / 50); sign of z
  // ignored.
  double lo = 0, hi = 0;
  GetInfSupWald(-kZ95, 0.8, 50.0, lo, hi);
  EXPECT_NEAR(lo, 0.68912769405202578, 1e-15);
  EXPECT_NEAR(hi, 0.91087230594797422, 1e-15);
  GetInfSupWald(kZ95, 0.05, 10.0, lo, hi);  // 0.05 -/+ 0.135: clipped below
  EXPECT_EQ(lo, 0.0);
  EXPECT_NEAR(hi, 0.05 + kZ95 * std::sqrt(0.0475 / 10.0), 1e-15);
  GetInfSupWald(kZ95, 1.0, 20.0, lo, hi);  // p = 1 collapses to the point (the known defect)
  EXPECT_TRUE(lo == 1.0 && hi == 1.0);
  // Positive likelihood ratio 4 with se = 0.5: 4 exp(-/+ 0.98), symmetric on the log scale.
  GetInfSupLog(1.96, 4.0, 0.5, lo, hi);
  EXPECT_NEAR(lo, 1.5012443954055983, 1e-15);
  EXPECT_NEAR(hi, 10.657824967717668, 1e-14);
  GetInfSupLog(kZ95, 1e300, 1000.0, lo, hi);  // saturates to 0 and +inf, never NaN
  EXPECT_TRUE(lo == 0.0 && hi == kInf);
}

TEST(IntervalFixture, WilsonAndClopperPearsonLimits) {
  for (const WilsonRef& r : kRefWilson) {
    double lo = -1, hi = -1;
    GetInfSupWilson(r.z, r.p, r.n, r.cc, lo, hi);
    EXPECT_TRUE(RelErr(lo, r.lo) <= 4e-15 && RelErr(hi, r.hi) <= 4e-15)
        << r.z << " " << r.p << " " << r.n << " " << r.cc << ": " << lo << " " << hi;
  }
  for (const ClopperRef& r : kRefClopper) {
    double lo = -1, hi = -1;
    GetInfSupClopper(r.x, r.n, r.alpha, lo, hi);
    EXPECT_TRUE(RelErr(lo, r.lo) <= 1e-14 && RelErr(hi, r.hi) <= 1e-14)
        << r.x << " / " << r.n << " alpha " << r.alpha << ": " << lo << " " << hi;
  }
}

TEST(IntervalWilson, BoundaryRulesAndMirrorSymmetry) {
  double lo = -1, hi = -1;
  for (double cc : {0.0, 0.5}) {
    GetInfSupWilson(kZ95, 0.0, 20.0, cc, lo, hi);
    EXPECT_TRUE(lo == 0.0 && hi > 0.0) << cc;
    GetInfSupWilson(kZ95, 1.0, 20.0, cc, lo, hi);
    EXPECT_TRUE(hi == 1.0 && lo < 1.0) << cc;
  }
  // A weighted count at or below the correction has lower limit 0, and it leaves 0 continuously.
  GetInfSupWilson(kZ95, 0.4 / 12.5, 12.5, 0.5, lo, hi);
  EXPECT_EQ(lo, 0.0);
  GetInfSupWilson(kZ95, 0.5001 / 12.5, 12.5, 0.5, lo, hi);
  EXPECT_TRUE(lo > 0.0 && lo < 1e-8) << lo;
  GetInfSupWilson(0.0, 0.3, 10.0, 0.5, lo, hi);  // z = 0: the shifted points p -/+ cc/n
  EXPECT_NEAR(lo, 0.25, 1e-15);
  EXPECT_NEAR(hi, 0.35, 1e-15);
  // Successes and failures swap roles: [lo(p), hi(p)] = [1 - hi(1 - p), 1 - lo(1 - p)].
  for (double p : {0.0, 0.013, 0.25, 0.5, 0.9}) {
    double lo2 = 0, hi2 = 0;
    GetInfSupWilson(2.5758293035489004, p, 37.0, 0.5, lo, hi);
    GetInfSupWilson(2.5758293035489004, 1.0 - p, 37.0, 0.5, lo2, hi2);
    EXPECT_NEAR(lo, 1.0 - hi2, 1e-15) << p;
    EXPECT_NEAR(hi, 1.0 - lo2, 1e-15) << p;
  }
}

TEST(IntervalClopper, BoundaryClosedFormsClampingAndSizeLimit) {
  // x = 0: [0, 1 - (alpha/2)^(1/n)]; x = n: [(alpha/2)^(1/n), 1]. Counts rounded just outside
  // [0, n] are clamped rather than rejected.
  const double edge = std::pow(0.025, 0.1);
  double lo = -1, hi = -1;
  for (double x : {0.0, -1e-300}) {
    GetInfSupClopper(x, 10.0, 0.05, lo, hi);
    EXPECT_EQ(lo, 0.0);
    EXPECT_NEAR(hi, 1.0 - edge, 1e-15);
  }
  for (double x : {10.0, 10.0 * (1 + 1e-15)}) {
    GetInfSupClopper(x, 10.0, 0.05, lo, hi);
    EXPECT_EQ(hi, 1.0);
    EXPECT_NEAR(lo, edge, 1e-14);
  }
  // Totals above 1e15 are refused: beyond them the inverse incomplete beta returns limits in the
  // wrong order (near 1e17) or never returns (near 1e300). At 1e15 the limits match the normal
  // approximation to well within 1e-6 of the half-width.
  GetInfSupClopper(5e16, 1e17, 0.05, lo, hi);
  EXPECT_TRUE(BothNaN(lo, hi));
  GetInfSupClopper(0.5e300, 1e300, 0.05, lo, hi);
  EXPECT_TRUE(BothNaN(lo, hi));
  GetInfSupClopper(5e14, 1e15, 0.05, lo, hi);
  const double half = kZ95 * std::sqrt(0.25 / 1e15);
  EXPECT_NEAR(lo, 0.5 - half, 1e-6 * half);
  EXPECT_NEAR(hi, 0.5 + half, 1e-6 * half);
}

TEST(IntervalEllipse, PointsLieOnTheConfidenceContour) {
  const double cx = 1.5, cy = -0.5, vxx = 0.04, vxy = -0.012, vyy = 0.09;
  const double det = vxx * vyy - vxy * vxy, r2 = 5.991464547107979;  // chi-square(2) at 0.95
  double xs[36], ys[36], sx = 0, sy = 0;
  GetConfEllipse(cx, cy, vxx, vxy, vyy, 0.05, 36, xs, ys);
  for (int k = 0; k < 36; ++k) {
    const double dx = xs[k] - cx, dy = ys[k] - cy;  // V^{-1} = [[vyy, -vxy], [-vxy, vxx]] / det
    EXPECT_NEAR((vyy * dx * dx - 2 * vxy * dx * dy + vxx * dy * dy) / det, r2, 1e-12) << k;
    EXPECT_LE(xs[k], xs[0] + 1e-15) << k;  // the first point has the largest x
    sx += xs[k];
    sy += ys[k];
  }
  EXPECT_NEAR(sx / 36, cx, 1e-14);  // equally spaced angles average to the centre
  EXPECT_NEAR(sy / 36, cy, 1e-14);
  EXPECT_GT(ys[1], ys[0]);  // counter-clockwise
  double x4[4], y4[4];      // diagonal covariance, r = 1: the ends of the axes in order
  GetConfEllipse(0.0, 0.0, 4.0, 0.0, 1.0, std::exp(-0.5), 4, x4, y4);
  const double ex[4] = {2, 0, -2, 0}, ey[4] = {0, 1, 0, -1};
  for (int k = 0; k < 4; ++k)
    EXPECT_TRUE(std::fabs(x4[k] - ex[k]) + std::fabs(y4[k] - ey[k]) < 1e-15);
}

TEST(IntervalEllipse, DegenerateInputsWriteNaNOrNothing) {
  double xs[3] = {7, 7, 7}, ys[3] = {7, 7, 7};
  GetConfEllipse(0, 0, 1, 0, 1, 0.05, 0, xs, ys);
  GetConfEllipse(0, 0, 1, 0, 1, 0.05, -5, xs, ys);
  GetConfEllipse(0, 0, 1, 0, 1, 0.05, 3, nullptr, ys);
  GetConfEllipse(0, 0, 1, 0, 1, 0.05, 3, xs, nullptr);
  EXPECT_TRUE(std::all_of(xs, xs + 3, [](double v) { return v == 7; }));
  EXPECT_TRUE(std::all_of(ys, ys + 3, [](double v) { return v == 7; }));
  // Singular, indefinite, negative variance, alpha out of range, NaN or infinite entries.
  const double bad[][5] = {{0, 1, 1, 1, 0.05},    {0, 1, 2, 1, 0.05},    {0, 0, 0, 1, 0.05},
                           {0, -1, 0, -1, 0.05},  {0, 1, 0, 1, 0.0},     {0, 1, 0, 1, 1.0},
                           {kNaN, 1, 0, 1, 0.05}, {0, kInf, 0, 1, 0.05}, {0, 1, kNaN, 1, 0.05}};
  for (const auto& b : bad) {
    GetConfEllipse(b[0], 0, b[1], b[2], b[3], b[4], 3, xs, ys);
    EXPECT_TRUE(std::all_of(xs, xs + 3, [](double v) { return std::isnan(v); }));
    EXPECT_TRUE(std::all_of(ys, ys + 3, [](double v) { return std::isnan(v); }));
  }
}

// Out-of-domain and NaN arguments give NaN limits; an infinite z gives the whole range.
TEST(IntervalGuards, NaNAndDomainErrors) {
  double lo = 0, hi = 0;
  for (double n : {0.0, -3.0, kInf, kNaN}) {
    GetInfSupWald(kZ95, 0.5, n, lo, hi);
    EXPECT_TRUE(BothNaN(lo, hi)) << n;
    GetInfSupWilson(kZ95, 0.5, n, 0.5, lo, hi);
    EXPECT_TRUE(BothNaN(lo, hi)) << n;
    GetInfSupClopper(2.0, n, 0.05, lo, hi);
    EXPECT_TRUE(BothNaN(lo, hi)) << n;
  }
  for (double p : {-0.01, 1.01, kNaN}) {
    GetInfSupWald(kZ95, p, 10.0, lo, hi);
    EXPECT_TRUE(BothNaN(lo, hi)) << p;
    GetInfSupWilson(kZ95, p, 10.0, 0.0, lo, hi);
    EXPECT_TRUE(BothNaN(lo, hi)) << p;
  }
  for (double cc : {-0.5, kNaN}) {
    GetInfSupWilson(kZ95, 0.5, 10.0, cc, lo, hi);
    EXPECT_TRUE(BothNaN(lo, hi)) << cc;
  }
  for (double alpha : {0.0, 1.0, -0.1, kNaN}) {
    GetInfSupClopper(2.0, 10.0, alpha, lo, hi);
    EXPECT_TRUE(BothNaN(lo, hi)) << alpha;
  }
  GetInfSupClopper(kNaN, 10.0, 0.05, lo, hi);
  EXPECT_TRUE(BothNaN(lo, hi));
  GetInfSupWald(kNaN, 0.5, 10.0, lo, hi);
  EXPECT_TRUE(BothNaN(lo, hi));
  const double badLog[][3] = {{kZ95, 0.0, 0.3},  {kZ95, -2.0, 0.3}, {kZ95, kNaN, 0.3},
                              {kZ95, 2.0, -0.3}, {kZ95, 2.0, kNaN}, {kNaN, 2.0, 0.3}};
  for (const auto& v : badLog) {  // value <= 0, se < 0, NaN
    GetInfSupLog(v[0], v[1], v[2], lo, hi);
    EXPECT_TRUE(BothNaN(lo, hi)) << v[0] << " " << v[1] << " " << v[2];
  }
  GetInfSupWilson(kInf, 0.3, 10.0, 0.5, lo, hi);
  EXPECT_TRUE(lo == 0.0 && hi == 1.0);
  GetInfSupWald(kInf, 0.0, 10.0, lo, hi);
  EXPECT_TRUE(lo == 0.0 && hi == 1.0);
}

}  // namespace
