// Method comparison: Bland-Altman analysis with the limits of agreement and repeatability;
// Deming regression (closed form, guarded form, iteratively weighted fit on replicates, drivers
// with jackknife standard errors against explicit refits in R); Passing-Bablok regression (slope
// estimators with their special values, the drivers against an independent implementation that
// sorts all slopes, the exact selection beyond the slope store, the cusum linearity test).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "companion/distributions.h"
#include "core/numeric.h"
#include "methodcomp/bland_altman.h"
#include "methodcomp/deming.h"
#include "methodcomp/passing_bablok.h"
#include "methodcomp/peak_flow.h"
#include "support/columns.h"

namespace mc = velkor::methodcomp;
using namespace methodcomp_ref;
using velkor::kEpsilon;
using velkor::kMissing;
using velkor::kUnbounded;

namespace {

using namespace testing_support;

// n x 1 output prefilled with 7, so that untouched cells show.
matrix<double> out(std::size_t n) {
  return column(Vec(n, 7.0));
}

// The deterministic 2100-point set of the fixtures (make_fixtures.R, grid_x / grid_y).
void grid(int n, Vec& x, Vec& y) {
  x.resize(static_cast<std::size_t>(n));
  y.resize(static_cast<std::size_t>(n));
  for (int i = 1; i <= n; ++i) {
    const double xi = static_cast<double>((static_cast<long long>(i) * 7919) % 1000) / 10.0;
    x[static_cast<std::size_t>(i - 1)] = xi;
    y[static_cast<std::size_t>(i - 1)] =
        xi * 1.5 + static_cast<double>((static_cast<long long>(i) * 104729) % 211 - 105) / 10.0;
  }
}

}  // namespace

// ---- Bland-Altman and repeatability -------------------------------------------------------------

namespace {

struct BaResult {
  int status;
  Vec diffs, means, scalars;  // bias, sd, biasLow, biasHigh, loaLow, loaHigh
};

BaResult run_ba(const Vec& x, const Vec& y, int type, double alpha) {
  auto mx = column(x), my = column(y), d = out(x.size()), m = out(x.size());
  BaResult r{0, {}, {}, Vec(6, 0.0)};
  double* s = r.scalars.data();
  r.status = mc::BlandAltman(&mx, &my, static_cast<int>(x.size()), type, alpha, &d, &m, s[0], s[1],
                             s[2], s[3], s[4], s[5]);
  r.diffs = values(d);
  r.means = values(m);
  return r;
}

Vec run_loa(const Vec& x, const Vec& y, double alpha, double alphaCI, int method) {
  auto mx = column(x), my = column(y), o = out(6);
  EXPECT_EQ(
      mc::BlandAltmanLoACI(&mx, &my, static_cast<int>(x.size()), 0, alpha, alphaCI, method, &o), 0);
  return values(o);
}

Vec run_rep(const Vec& x, const Vec& s, double alpha) {
  auto mx = column(x), ms = column(s);
  Vec r(3, 0.0);
  EXPECT_EQ(mc::GetRepeatability(&mx, static_cast<int>(x.size()), &ms, alpha, r[0], r[1], r[2]), 0);
  return r;
}

}  // namespace

TEST(BlandAltman, HandComputedDifferencesAndNormalLimits) {
  const BaResult r = run_ba({1, 2, 3}, {2, 2, 5}, mc::kDiffAbsolute, 0.05);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.diffs, (Vec{1, 0, 2}));
  EXPECT_EQ(r.means, (Vec{1.5, 2, 4}));
  EXPECT_DOUBLE_EQ(r.scalars[0], 1.0);
  EXPECT_DOUBLE_EQ(r.scalars[1], 1.0);  // sd of (1, 0, 2)
  // Limits of agreement use the normal quantile of the level, not the constant 1.96.
  EXPECT_NEAR(r.scalars[5] - r.scalars[0], 1.959963984540054, 1e-12);
  EXPECT_NEAR(r.scalars[3] - r.scalars[0], InvCDFStudent(0.975, 2) / std::sqrt(3.0), 1e-12);
}

TEST(BlandAltman, MatchesReferenceOnPeakFlowData) {
  expect_all_close(run_ba(pefr_w1, pefr_m1, 0, 0.05).scalars, ba_type0, 1e-12, "difference");
  expect_all_close(run_ba(pefr_w1, pefr_m1, 2, 0.10).scalars, ba_type2_a10, 1e-12, "ratio");
  const BaResult rel = run_ba(pefr_w1, pefr_m1, 1, 0.05);
  expect_all_close(rel.scalars, ba_type1, 1e-12, "relative");
  EXPECT_NEAR(rel.diffs[0], (512.0 - 494.0) / 503.0, 1e-15);  // a fraction, not a percentage
}

TEST(BlandAltman, RowsLeftOut) {
  // A missing (or NaN) row is left as passed but still counts in the degrees of freedom.
  Vec x = pefr_w1;
  for (double bad : {kMissing, std::nan("")}) {
    x[4] = bad;
    const BaResult r = run_ba(x, pefr_m1, 0, 0.05);
    expect_all_close(r.scalars, ba_miss, 1e-12, "m includes the missing row");
    EXPECT_EQ(r.diffs[4], 7.0);
    EXPECT_EQ(r.means[4], 7.0);
  }
  // A zero denominator is marked and not counted: ratio with x = 0 in the last row gives m = 3.
  const BaResult r = run_ba({1, 2, 4, 0}, {2, 3, 5, 1}, 2, 0.05);
  EXPECT_EQ(r.diffs[3], kMissing);
  EXPECT_EQ(r.means[3], 0.5);
  const double bias = (2.0 + 1.5 + 1.25) / 3.0;
  EXPECT_NEAR(r.scalars[0], bias, 1e-15);
  EXPECT_NEAR(r.scalars[3] - bias, InvCDFStudent(0.975, 2) * r.scalars[1] / std::sqrt(3.0), 1e-12);
  EXPECT_EQ(run_ba({1, -2, 3}, {2, 2, 4}, 1, 0.05).diffs[1], kMissing);  // x + y = 0
  // Too few rows: markers.
  for (const auto& xs : {Vec{}, Vec{3}}) {
    const BaResult few = run_ba(xs, Vec(xs.size(), 4.0), 0, 0.05);
    EXPECT_EQ(few.status, 0);
    for (std::size_t k = 1; k < 6; ++k) EXPECT_EQ(few.scalars[k], kMissing) << k;
  }
}

TEST(BlandAltmanLoACI, ApproximateAndExactMatchReference) {
  expect_all_close(run_loa(pefr_w1, pefr_m1, 0.05, 0.05, mc::kLoaApproximate), loa_approx, 1e-12,
                   "approximate");
  const Vec e = run_loa(pefr_w1, pefr_m1, 0.05, 0.05, mc::kLoaExact);
  expect_all_close(e, loa_exact, 1e-9, "exact");
  expect_all_close(run_loa(pefr_w1, pefr_m1, 0.10, 0.05, mc::kLoaExact), loa_exact_a10, 1e-9,
                   "exact, 90% limits");
  EXPECT_GT(e[5] - e[3], e[3] - e[4]);  // asymmetric about the limit, wider on the outer side
  // Undefined: fewer than two complete rows, or a level outside (0, 1).
  for (double v : run_loa({1, 2}, {2, kMissing}, 0.05, 0.05, 1)) EXPECT_EQ(v, kMissing);
  for (double v : run_loa({1, 2}, {2, 5}, 1.5, 0.05, 0)) EXPECT_EQ(v, kMissing);
}

TEST(Repeatability, MatchesOneWayAnovaAndIgnoresInvalidCodes) {
  const Vec wright = stacked(pefr_w1, pefr_w2);
  expect_all_close(run_rep(wright, codes17(), 0.05), rep_wright, 1e-11, "Wright meter");
  expect_all_close(run_rep(stacked(pefr_m1, pefr_m2), codes17(), 0.10), rep_mini_a10, 1e-11,
                   "mini meter");
  // Codes 0 and 25 (outside 1..k, k = 20 distinct codes), 1.5 (not whole) and a missing code.
  Vec x = wright, s = codes17();
  x.insert(x.end(), {999, 555, 333, 111});
  s.insert(s.end(), {0, 1.5, kMissing, 25});
  expect_all_close(run_rep(x, s, 0.05), rep_wright, 1e-11, "invalid codes ignored");
}

TEST(Repeatability, NoWithinSubjectVariationGivesMarkers) {
  for (double v : run_rep({5, 5, 5, 5}, {1, 1, 2, 2}, 0.05)) EXPECT_EQ(v, kMissing);
  for (double v : run_rep({1, 2, 3, 4}, {1, 2, 3, 4}, 0.05)) EXPECT_EQ(v, kMissing);
  EXPECT_EQ(run_rep({}, {}, 0.05)[0], kMissing);
}

// ---- Deming regression --------------------------------------------------------------------------

namespace {

struct RegResult {
  int status;
  Vec coef, fitted, resid, info;
};

// DemingRegression when `subject` is null and `weighted` is 1, else NewDemingRegression.
RegResult run_reg(const Vec& x, const Vec& y, double lambda, double alpha,
                  const Vec* subject = nullptr, short weighted = 1) {
  const int n = static_cast<int>(x.size());
  auto mx = column(x), my = column(y), c = out(8), info = out(3), f = out(x.size()),
       r = out(x.size());
  matrix<double> ms = column(subject ? *subject : Vec{});
  RegResult o;
  o.status = weighted == 1 ? mc::DemingRegression(&mx, &my, n, lambda, alpha, &c, &f, &r)
                           : mc::NewDemingRegression(&mx, &my, n, subject ? &ms : nullptr, weighted,
                                                     lambda, alpha, 200, 1e-12, &c, &info, &f, &r);
  o.coef = values(c);
  o.info = values(info);
  o.fitted = values(f);
  o.resid = values(r);
  return o;
}

}  // namespace

TEST(Deming, ClosedFormCases) {
  auto x = column({1, 2, 4, 7}), y = column({3, 5, 9, 15}), w = column({1, 1, 1, 1});
  double a = 0, b = 0;
  EXPECT_EQ(mc::Deming(&x, &y, &w, 4, 1.0, a, b), 0);  // y = 2x + 1
  EXPECT_NEAR(b, 2.0, 1e-15);
  EXPECT_NEAR(a, 1.0, 1e-14);
  // Syy = Sxx with Sxy > 0 and lambda = 1: b = 1.
  auto u = column({1, 2, 3, 4}), v = column({2, 1, 4, 3});
  EXPECT_EQ(mc::Deming(&u, &v, &w, 4, 1.0, a, b), 0);
  EXPECT_DOUBLE_EQ(b, 1.0);
  // Weights act as frequencies: weight 2 equals the row repeated.
  auto x3 = column({1, 2, 4, 7, 7}), y3 = column({3, 5.5, 9, 14, 14}), w3 = column({1, 1, 1, 1, 1});
  auto x2 = column({1, 2, 4, 7}), y2 = column({3, 5.5, 9, 14}), w2 = column({1, 1, 1, 2});
  double a3, b3, a2, b2;
  mc::Deming(&x3, &y3, &w3, 5, 2.0, a3, b3);
  mc::Deming(&x2, &y2, &w2, 4, 2.0, a2, b2);
  EXPECT_NEAR(b2, b3, 1e-14);
  EXPECT_NEAR(a2, a3, 1e-13);
}

TEST(Deming, GuardedFormKeepsPrecisionAndRefusesUndefinedFits) {
  // lambda Sxx >> Syy: the textbook root D + sqrt(D^2 + 4 lambda Sxy^2) cancels; the
  // conjugate form keeps the slope. Reference by long double.
  const Vec xs = {1, 2, 3, 4, 5}, ys = {1.0e-3, 2.1e-3, 2.9e-3, 4.2e-3, 4.9e-3};
  const double lambda = 1e8;
  long double mx = 3, my = 0, Sxx = 0, Syy = 0, Sxy = 0;
  for (double v : ys) my += v / 5;
  for (int i = 0; i < 5; ++i) {
    Sxx += (xs[i] - mx) * (xs[i] - mx);
    Syy += (ys[i] - my) * (ys[i] - my);
    Sxy += (xs[i] - mx) * (ys[i] - my);
  }
  const long double D = Syy - lambda * Sxx;
  const long double bref = 2 * lambda * Sxy / (std::sqrt(D * D + 4 * lambda * Sxy * Sxy) - D);
  auto x = column(xs), y = column(ys);
  double a = 0, b = 0;
  EXPECT_EQ(mc::NewDeming(&x, &y, nullptr, 5, lambda, a, b), 0);
  EXPECT_NEAR(b, static_cast<double>(bref), 1e-15 * static_cast<double>(bref));
  // lambda = +inf: least squares of y on x.
  EXPECT_EQ(mc::NewDeming(&x, &y, nullptr, 5, INFINITY, a, b), 0);
  EXPECT_NEAR(b, static_cast<double>(Sxy / Sxx), 1e-15);
  // Undefined: all x equal (Sxy = 0), lambda <= 0, fewer than 2 rows; weights <= 0 skip rows.
  auto c = column({3, 3, 3}), d = column({1, 2, 4});
  EXPECT_EQ(mc::NewDeming(&c, &d, nullptr, 3, 1.0, a, b), -5);
  EXPECT_EQ(a, kMissing);
  EXPECT_EQ(mc::NewDeming(&x, &y, nullptr, 5, 0.0, a, b), -5);
  EXPECT_EQ(mc::NewDeming(&x, &y, nullptr, 1, 1.0, a, b), -2);
  auto w = column({1, 0, -1, kMissing, std::nan("")});
  EXPECT_EQ(mc::NewDeming(&x, &y, &w, 5, 1.0, a, b), -2);
}

TEST(DemingRegression, JackknifeMatchesExplicitRefits) {
  const RegResult r = run_reg(pefr_w1, pefr_m1, 1.0, 0.05);
  ASSERT_EQ(r.status, 0);
  expect_all_close(r.coef, dem_pefr_l1, 1e-10, "lambda 1");
  for (int i = 0; i < 17; ++i) {
    EXPECT_NEAR(r.fitted[i], r.coef[0] + r.coef[4] * pefr_w1[i], 1e-10);
    EXPECT_NEAR(r.resid[i], pefr_m1[i] - r.fitted[i], 1e-10);
  }
  expect_all_close(run_reg(pefr_w1, pefr_m1, 2.5, 0.10).coef, dem_pefr_l2, 1e-10, "lambda 2.5");
  expect_all_close(run_reg(sleep_g1, sleep_g2, 1.0, 0.05).coef, dem_sleep_l1, 1e-10, "sleep");
}

TEST(DemingRegression, BadInput) {
  // All x equal (Sxy = 0), two complete rows, lambda not > 0, identical points. Nothing written.
  const RegResult r = run_reg({2, 2, 2, 2}, {1, 2, 3, 4}, 1.0, 0.05);
  EXPECT_EQ(r.status, -5);
  EXPECT_EQ(r.coef[0], 7.0);
  EXPECT_EQ(run_reg({1, 2, kMissing}, {1, 2, 3}, 1.0, 0.05).status, -2);
  EXPECT_EQ(run_reg({1, 2, 4}, {1, 2, 3}, -1.0, 0.05).status, -5);
  EXPECT_EQ(run_reg({1, 2, 4}, {1, 2, 3}, std::nan(""), 0.05).status, -5);
  EXPECT_EQ(run_reg({1, 1, 1}, {1, 1, 1}, 1.0, 0.05).status, -5);
  // A missing row is left out and gets markers.
  Vec x = pefr_w1, y = pefr_m1;
  x.push_back(kMissing);
  y.push_back(400);
  const RegResult m = run_reg(x, y, 1.0, 0.05);
  expect_all_close(m.coef, dem_pefr_l1, 1e-10, "missing row");
  EXPECT_EQ(m.fitted[17], kMissing);
  // Three points where a leave-one-out fit is undefined: estimates without standard errors.
  const RegResult loo = run_reg({1, 2, 2}, {1, 2, 3}, 1.0, 0.05);
  EXPECT_EQ(loo.status, 0);
  EXPECT_EQ(loo.coef[1], kMissing);
  EXPECT_EQ(loo.coef[2], kMissing);
}

TEST(NewDemingRegression, ReplicatesAndSubjectJackknife) {
  const Vec x = stacked(pefr_w1, pefr_w2), y = stacked(pefr_m1, pefr_m2), s = codes17();
  // Lambda from the replicates.
  RegResult r = run_reg(x, y, 0.0, 0.05, &s, 0);
  ASSERT_EQ(r.status, 0);
  EXPECT_NEAR(r.info[0], dem_rep_lambda[0], 1e-13);
  EXPECT_EQ(r.info[1], 17.0);
  EXPECT_EQ(r.info[2], 0.0);
  expect_all_close(r.coef, dem_rep, 1e-10, "replicates");
  // Given lambda, no codes: rows are subjects; equals the old driver.
  expect_all_close(run_reg(pefr_w1, pefr_m1, 2.5, 0.10, nullptr, 0).coef, dem_pefr_l2, 1e-10,
                   "rows as subjects");
  // Iteratively weighted.
  r = run_reg(x, y, 0.0, 0.05, &s, -1);
  ASSERT_EQ(r.status, 0);
  expect_all_close(r.coef, wdem_rep, 1e-9, "weighted");
  EXPECT_EQ(r.info[0], kMissing);
  EXPECT_GT(r.info[2], 1.0);
  // Weighted without subject codes, lambda not estimable, too few subjects.
  EXPECT_EQ(run_reg(x, y, 1.0, 0.05, nullptr, -1).status, -5);
  EXPECT_EQ(run_reg(x, y, 0.0, 0.05, nullptr, 0).status, -5);
  const Vec two = {1, 1, 2, 2, 1, 2};
  EXPECT_EQ(run_reg({1, 2, 3, 4, 5, 6}, {1, 2, 3, 4, 5, 6}, 1.0, 0.05, &two, 0).status, -2);
}

TEST(WeightedDeming, EqualReplicateVariancesReduceToClosedForm) {
  // Three subjects of two replicates each with the same sums of squares in x (0.5) and y (0.98):
  // constant weights, so the fit is the closed form on the subject means with lambda = 0.98 / 0.5.
  auto size = column({2, 2, 2, 0});
  auto x = column({0.5, 1.5, 2.5, 3.5, 5.5, 6.5}), y = column({1.2, 2.6, 3.4, 4.8, 9.1, 10.5});
  double b = 0, a = 0;
  int it = 0;
  ASSERT_EQ(mc::WeightedDeming(&size, 4, &x, &y, 6, 50, 1e-14, b, a, it), 0);
  auto mx = column({1, 3, 6}), my = column({1.9, 4.1, 9.8}), w = column({1, 1, 1});
  double a0 = 0, b0 = 0;
  mc::Deming(&mx, &my, &w, 3, 0.98 / 0.5, a0, b0);
  EXPECT_NEAR(b, b0, 1e-13);
  EXPECT_NEAR(a, a0, 1e-12);
  EXPECT_LE(it, 3);
  // Single replicates carry no error information: fewer than two weighted subjects.
  auto ones = column({1, 1, 1});
  EXPECT_EQ(mc::WeightedDeming(&ones, 3, &x, &y, 6, 50, 1e-12, b, a, it), -2);
  EXPECT_EQ(b, kMissing);
}

// ---- Passing-Bablok regression ------------------------------------------------------------------

namespace {

struct PbResult {
  int status;
  Vec scalars;  // a, aLow, aHigh, b, bLow, bHigh, maxCusum, critical, pValue
  Vec fitted, resid, diff, dist;
};

PbResult run_pb(const Vec& x, const Vec& y, int option, double alpha, bool equivariant = false) {
  const std::size_t n = x.size();
  auto mx = column(x), my = column(y), f = out(n), r = out(n), d = out(n), s = out(n);
  PbResult o{0, Vec(9, 7.0), {}, {}, {}, {}};
  double* v = o.scalars.data();
  o.status = (equivariant ? mc::PassingBablokBIS : mc::PassingBablok)(
      &mx, static_cast<int>(n), &my, option, alpha, v[0], v[1], v[2], v[3], v[4], v[5], &f, &r, &d,
      &s, v[6], v[7], v[8]);
  o.fitted = values(f);
  o.resid = values(r);
  o.diff = values(d);
  o.dist = values(s);
  return o;
}

struct Slope {
  double b, N, K;
  short flag;
};

// ComputeBCoeff_PAB1 (or _PAB3) with the default special slopes.
Slope slope(const Vec& x, const Vec& y, short flag = -1, short geo = 0, bool pab3 = false) {
  auto mx = column(x), my = column(y);
  Slope s{0, 0, 0, flag};
  const mc::SpecialSlopes sp = mc::DefaultSpecialSlopes();
  EXPECT_EQ((pab3 ? mc::ComputeBCoeff_PAB3 : mc::ComputeBCoeff_PAB1)(
                &mx, static_cast<int>(x.size()), &my, s.flag, geo, sp.verticalUp, sp.verticalDown,
                sp.horizontalLeft, sp.horizontalRight, s.b, s.N, s.K),
            0);
  return s;
}

// Compare a driver run with a fixture: 9 scalars (the fixture also carries N and K).
void expect_matches(const PbResult& got, const Vec& ref, double tol) {
  ASSERT_EQ(got.status, 0);
  expect_all_close(got.scalars, Vec(ref.begin(), ref.begin() + 9), tol, "scalars");
}

Vec scaled(const Vec& v, double factor, double shift = 0.0) {
  Vec r(v);
  for (double& e : r) e = shift + factor * e;
  return r;
}

}  // namespace

TEST(PassingBablokSlope, SpecialValuesSkippedSlopesAndK) {
  // Pairs of (0,0), (1,1), (2,0): slope 1; dy = 0 with dx = -2 stores -epsilon; slope -1 skipped.
  Slope s = slope({0, 1, 2}, {0, 1, 0});
  EXPECT_EQ(s.N, 2.0);
  EXPECT_EQ(s.K, 0.0);
  EXPECT_EQ(s.b, (-kEpsilon + 1.0) / 2.0);
  // Equal x with dy < 0 stores +1.79769313486231e+308.
  s = slope({1, 1, 2}, {1, 3, 2});
  EXPECT_EQ(s.N, 2.0);
  EXPECT_EQ(s.b, (1.0 + kUnbounded) / 2.0);
  // Equal x with dy > 0 stores -1.79769313486231e+308 and counts in K: N = 1, K = 1, and the
  // median position (N + 1)/2 + K = 2 lies past the store: it reads the spare element, the
  // slope of the last stored pair.
  s = slope({1, 1}, {3, 1});
  EXPECT_EQ(s.N, 1.0);
  EXPECT_EQ(s.K, 1.0);
  EXPECT_EQ(s.b, -kUnbounded);
  // Identical points store nothing: no slope.
  s = slope({2, 2, 2}, {5, 5, 5});
  EXPECT_EQ(s.N, 0.0);
  EXPECT_EQ(s.b, kMissing);
}

TEST(PassingBablokSlope, NegativeAssociationFlag) {
  const Vec x = {1, 2, 3, 4, 5}, y = {10, 8, 7, 3, 1};
  const Slope refused = slope(x, y, -1);
  EXPECT_EQ(refused.flag, -1);
  EXPECT_EQ(refused.b, kMissing);
  EXPECT_EQ(refused.N, 0.0);
  const Slope accepted = slope(x, y, 0);
  EXPECT_EQ(accepted.flag, -1);
  EXPECT_LT(accepted.b, 0.0);
  EXPECT_EQ(accepted.b, -slope(x, scaled(y, -1)).b);  // slopes of (x, -y), negated back
}

TEST(PassingBablokSlope, GeometricMeanAndEquivariance) {
  const Vec &x = pefr_w1, &y = pefr_m1;
  const Slope s = slope(x, y, -1, -1, true);
  EXPECT_EQ(s.K, 0.0);
  const double b = s.b;
  EXPECT_NEAR(slope(x, scaled(y, 1000), -1, -1, true).b, 1000 * b, 1e-12 * 1000 * b);
  EXPECT_NEAR(slope(y, x, -1, -1, true).b, 1 / b, 1e-15);  // swap gives the reciprocal
  // With an even N the flag combines the middle slopes geometrically: slopes 0.5, 1, 1.2, 4/3,
  // 5/3, 2 give (1.2 + 4/3)/2 or sqrt(1.2 * 4/3).
  EXPECT_DOUBLE_EQ(slope({1, 2, 4, 7}, {1, 3, 4, 9}, -1, 0).b, (1.2 + 4.0 / 3.0) / 2);
  EXPECT_DOUBLE_EQ(slope({1, 2, 4, 7}, {1, 3, 4, 9}, -1, -1).b, std::sqrt(1.2 * 4.0 / 3.0));
}

TEST(PassingBablok, ExactLineHasNoResiduals) {
  const PbResult r = run_pb({1, 2, 3, 5, 8}, {2, 4, 6, 10, 16}, 1, 0.05);
  ASSERT_EQ(r.status, 0);
  EXPECT_EQ(r.scalars[3], 2.0);
  EXPECT_EQ(r.scalars[0], 0.0);
  EXPECT_EQ(r.resid, Vec(5, 0.0));
  EXPECT_EQ(r.dist, Vec(5, 0.0));
  EXPECT_EQ(r.diff, (Vec{1, 2, 3, 5, 8}));
  EXPECT_EQ(r.scalars[6], 0.0);       // max cusum
  EXPECT_EQ(r.scalars[7], 0.0);       // h = 0
  EXPECT_EQ(r.scalars[8], kMissing);  // no residual off the line: no test
}

TEST(PassingBablok, MatchesIndependentImplementation) {
  PbResult r = run_pb(pefr_w1, pefr_m1, 1, 0.05);
  expect_matches(r, pb_pefr_scalars, 1e-12);
  expect_all_close(r.fitted, pb_pefr_fitted, 1e-12, "fitted");
  expect_all_close(r.resid, pb_pefr_resid, 1e-11, "residuals");
  expect_all_close(r.dist, pb_pefr_dist, 1e-11, "distance");
  // alpha = 0.05: critical value 1.35809863932252 sqrt(L + l), no search.
  const double h = std::sqrt(static_cast<double>(std::count_if(
      r.resid.begin(), r.resid.end(), [](double v) { return std::fabs(v) > 1e-12; })));
  EXPECT_DOUBLE_EQ(r.scalars[7], 1.35809863932252 * h);
  // Subject means at alpha 0.10; the sleep data at alpha 0.01.
  Vec xm(17), ym(17);
  for (int i = 0; i < 17; ++i) {
    xm[i] = (pefr_w1[i] + pefr_w2[i]) / 2;
    ym[i] = (pefr_m1[i] + pefr_m2[i]) / 2;
  }
  expect_matches(run_pb(xm, ym, 1, 0.10), pb_pefr_a10_scalars, 1e-12);
  r = run_pb(sleep_g1, sleep_g2, 1, 0.01);
  expect_matches(r, pb_sleep_scalars, 1e-12);
  expect_all_close(r.resid, pb_sleep_resid, 1e-11, "sleep residuals");
}

TEST(PassingBablok, NegativeAssociationAndEquivariantDriver) {
  const Vec ny = scaled(pefr_m1, -1, 1000);
  const PbResult refused = run_pb(pefr_w1, ny, 1, 0.05);
  EXPECT_EQ(refused.status, mc::kNegativeAssociation);
  EXPECT_EQ(refused.scalars[3], 7.0);  // nothing written
  EXPECT_EQ(refused.fitted[0], 7.0);
  EXPECT_EQ(run_pb(pefr_w1, ny, 2, 0.05).status, mc::kNegativeAssociation);  // other options: as 1
  expect_matches(run_pb(pefr_w1, ny, 3, 0.05), pb_neg_scalars, 1e-12);
  expect_matches(run_pb(pefr_w1, ny, 3, 0.05, true), pbe_neg_scalars, 1e-12);

  const PbResult r = run_pb(pefr_w1, pefr_m1, 1, 0.05, true);
  expect_matches(r, pbe_pefr_scalars, 1e-12);
  expect_all_close(r.resid, pbe_pefr_resid, 1e-11, "residuals");
  expect_matches(run_pb(pefr_w1, scaled(pefr_m1, 1000), 1, 0.05, true), pbe_pefr_scaled_scalars,
                 1e-12);
}

TEST(PassingBablok, ExactBeyondTheSlopeStore) {
  // 2100 points: 2,203,950 pairs, past 2,000,000 slopes: the window selection must give the
  // same order statistics as the full sort of the reference, end to end and at many ranks.
  Vec x, y;
  grid(2100, x, y);
  expect_matches(run_pb(x, y, 1, 0.05), pb_grid_scalars, 1e-12);
  expect_matches(run_pb(x, y, 1, 0.05, true), pbe_grid_scalars, 1e-12);

  const mc::SpecialSlopes sp = mc::DefaultSpecialSlopes();
  std::vector<long long> wanted = {0,       1,       2,       1000,    500000,
                                   1101975, 1101976, 2203949, 2203950, 2203951};
  const mc::SlopeOrderStats got = mc::PairwiseSlopes(x.data(), y.data(), x.size(), 1.0, false, sp,
                                                     [&](long long, long long) { return wanted; });
  Vec all;
  double last = 0;
  for (std::size_t i = 0; i < x.size(); ++i)
    for (std::size_t j = i + 1; j < x.size(); ++j) {
      const double dx = x[i] - x[j], dy = y[i] - y[j];
      double s;
      if (std::fabs(dx) > kEpsilon && std::fabs(dy) > kEpsilon) {
        s = dy / dx;
        if (s == -1.0) continue;
      } else if (dx == 0 && dy != 0) {
        s = dy > 0 ? -kUnbounded : kUnbounded;
      } else if (dy == 0 && dx != 0) {
        s = dx < 0 ? -kEpsilon : kEpsilon;
      } else {
        continue;
      }
      all.push_back(s);
      last = s;
    }
  std::sort(all.begin(), all.end());
  ASSERT_EQ(got.N, static_cast<long long>(all.size()));
  for (std::size_t k = 0; k < wanted.size(); ++k) {
    const long long r = wanted[k];
    const double want = (r >= 1 && r <= got.N) ? all[static_cast<std::size_t>(r - 1)] : last;
    EXPECT_EQ(got.values[k], want) << "rank " << r;
  }
  // A first window placed around the median misses the position finally wanted (the smallest
  // slope): the pass is repeated with a new window.
  int calls = 0;
  const mc::SlopeOrderStats widened =
      mc::PairwiseSlopes(x.data(), y.data(), x.size(), 1.0, false, sp, [&](long long N, long long) {
        return ++calls == 1 ? std::vector<long long>{N / 2} : std::vector<long long>{1};
      });
  EXPECT_GT(calls, 2);
  EXPECT_EQ(widened.values[0], all[0]);
}

TEST(PassingBablok, KolmogorovCriticalValues) {
  EXPECT_EQ(mc::KolmogorovCritical(0.05), 1.35809863932252);
  EXPECT_EQ(mc::KolmogorovCritical(0.01), 1.62762361151895);
  EXPECT_EQ(mc::KolmogorovCritical(0.1), 1.22384787020909);
  for (double a : {0.02, 0.2, 0.5, 1e-6})
    EXPECT_LT(std::fabs(CDFKolmogorov(mc::KolmogorovCritical(a)) - (1 - a)), 1e-5) << a;
  EXPECT_TRUE(std::isnan(mc::KolmogorovCritical(0.0)));
  EXPECT_TRUE(std::isnan(mc::KolmogorovCritical(1.0)));
}

TEST(PassingBablok, DegenerateInput) {
  // Incomplete rows are left out; their per-row outputs hold the marker.
  Vec x = pefr_w1, y = pefr_m1;
  x.insert(x.end(), {kMissing, 250});
  y.insert(y.end(), {300, std::nan("")});
  PbResult r = run_pb(x, y, 1, 0.05);
  expect_matches(r, pb_pefr_scalars, 1e-12);
  EXPECT_EQ(r.fitted[17], kMissing);
  EXPECT_EQ(r.dist[18], kMissing);
  // All points identical, a single point, no points: no slope, every output the marker.
  for (const auto& v : {Vec{4, 4, 4}, Vec{4}, Vec{}}) {
    r = run_pb(v, v, 1, 0.05);
    EXPECT_EQ(r.status, 0);
    for (double s : r.scalars) EXPECT_EQ(s, kMissing);
    for (double s : r.fitted) EXPECT_EQ(s, kMissing);
  }
  // Alpha outside (0, 1): estimates, no limits.
  r = run_pb(pefr_w1, pefr_m1, 1, 2.0);
  EXPECT_NEAR(r.scalars[3], pb_pefr_scalars[3], 1e-15);
  for (int k : {2, 4, 7}) EXPECT_EQ(r.scalars[k], kMissing) << k;
}

TEST(PassingBablok, UnboundedSlopeLimitsAndTheirCleanUp) {
  // Three points on x = 1 with y falling (pairs store -1.79769313486231e+308, K = 3) and one at
  // x = 2: slopes 1, 2, 3. N = 6, M1 = 0: the lower slope limit is S[3] = -1.79769313486231e+308,
  // so the upper intercept limit is unbounded and the lower slope limit is reported as
  // +1.79769313486231e+308 (deliberate clean-up). The median positions 6 and 7 pass the store:
  // position 7 reads the spare element, the slope 3 of the last pair.
  PbResult r = run_pb({1, 1, 1, 2}, {3, 2, 1, 4}, 1, 0.05);
  ASSERT_EQ(r.status, 0);
  EXPECT_EQ(Vec(r.scalars.begin(), r.scalars.begin() + 6),
            (Vec{-1.5, -1.5, kUnbounded, 3.0, kUnbounded, 3.0}));
  // Mirror case: y rising on x = 1 stores +1.79769313486231e+308, the upper slope limit; the
  // lower intercept limit is then the marker, reported as +1.79769313486231e+308.
  r = run_pb({1, 1, 1, 2}, {1, 2, 3, 5}, 1, 0.05);
  ASSERT_EQ(r.status, 0);
  EXPECT_EQ(r.scalars[5], kUnbounded);
  EXPECT_EQ(r.scalars[4], 2.0);
  EXPECT_EQ(r.scalars[1], kUnbounded);
}
