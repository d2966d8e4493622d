// Bland-Altman analysis, confidence limits of the limits of agreement, and repeatability.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "companion/distributions.h"
#include "methodcomp/bland_altman.h"
#include "reference/methodcomp/methodcomp_fixtures.inc"
#include "test_helpers.h"

namespace mc = velkor::methodcomp;
using namespace mctest;
using namespace methodcomp_ref;
using velkor::kMissing;

namespace {

struct BaResult {
  int status;
  Vec diffs, means, scalars;  // bias, sd, biasLow, biasHigh, loaLow, loaHigh
};

BaResult run_ba(const Vec& x, const Vec& y, int type, double alpha) {
  auto mx = col(x), my = col(y), d = out(x.size()), m = out(x.size());
  BaResult r{0, {}, {}, Vec(6, 0.0)};
  double* s = r.scalars.data();
  r.status = mc::BlandAltman(&mx, &my, static_cast<int>(x.size()), type, alpha, &d, &m, s[0], s[1],
                             s[2], s[3], s[4], s[5]);
  r.diffs = values(d);
  r.means = values(m);
  return r;
}

Vec run_loa(const Vec& x, const Vec& y, double alpha, double alphaCI, int method) {
  auto mx = col(x), my = col(y), o = out(6);
  EXPECT_EQ(
      mc::BlandAltmanLoACI(&mx, &my, static_cast<int>(x.size()), 0, alpha, alphaCI, method, &o), 0);
  return values(o);
}

Vec run_rep(const Vec& x, const Vec& s, double alpha) {
  auto mx = col(x), ms = col(s);
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
