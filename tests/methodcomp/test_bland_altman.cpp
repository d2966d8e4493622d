// Bland-Altman analysis, confidence limits of the limits of agreement, and repeatability.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "companion/distributions.h"
#include "methodcomp/bland_altman.h"
#include "reference/methodcomp/methodcomp_fixtures.inc"
#include "test_helpers.h"

namespace mc = velkor::methodcomp;
using mctest::col;
using mctest::expect_all_close;
using velkor::kMissing;

namespace {

struct BaResult {
  int status;
  std::vector<double> diffs, means, scalars;  // bias, sd, biasLow, biasHigh, loaLow, loaHigh
};

BaResult run_ba(const std::vector<double>& x, const std::vector<double>& y, int type, double alpha,
                double prefill = 7.0) {
  const int n = static_cast<int>(x.size());
  auto mx = col(x), my = col(y);
  auto d = col(std::vector<double>(x.size(), prefill));
  auto m = col(std::vector<double>(x.size(), prefill));
  BaResult r;
  r.scalars.assign(6, 0.0);
  r.status = mc::BlandAltman(&mx, &my, n, type, alpha, &d, &m, r.scalars[0], r.scalars[1],
                             r.scalars[2], r.scalars[3], r.scalars[4], r.scalars[5]);
  r.diffs = mctest::values(d);
  r.means = mctest::values(m);
  return r;
}

}  // namespace

TEST(BlandAltman, HandComputedDifferencesAndNormalLimits) {
  const BaResult r = run_ba({1, 2, 3}, {2, 2, 5}, mc::kDiffAbsolute, 0.05);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.diffs, (std::vector<double>{1, 0, 2}));
  EXPECT_EQ(r.means, (std::vector<double>{1.5, 2, 4}));
  EXPECT_DOUBLE_EQ(r.scalars[0], 1.0);
  EXPECT_DOUBLE_EQ(r.scalars[1], 1.0);  // sd of (1, 0, 2)
  // Limits of agreement use the normal quantile of the level, not the constant 1.96.
  EXPECT_NEAR(r.scalars[5] - r.scalars[0], 1.959963984540054, 1e-12);
  EXPECT_NEAR(r.scalars[3] - r.scalars[0], InvCDFStudent(0.975, 2) / std::sqrt(3.0), 1e-12);
}

TEST(BlandAltman, MatchesReferenceOnPeakFlowData) {
  using namespace methodcomp_ref;
  expect_all_close(run_ba(pefr_w1, pefr_m1, 0, 0.05).scalars, ba_type0, 1e-12, "difference");
  expect_all_close(run_ba(pefr_w1, pefr_m1, 1, 0.05).scalars, ba_type1, 1e-12, "relative");
  expect_all_close(run_ba(pefr_w1, pefr_m1, 2, 0.10).scalars, ba_type2_a10, 1e-12, "ratio");
  const BaResult rel = run_ba(pefr_w1, pefr_m1, 1, 0.05);
  EXPECT_NEAR(rel.diffs[0], (512.0 - 494.0) / 503.0, 1e-15);  // a fraction, not a percentage
}

TEST(BlandAltman, MissingRowStillCountsInDegreesOfFreedom) {
  std::vector<double> x = methodcomp_ref::pefr_w1;
  x[4] = kMissing;
  const BaResult r = run_ba(x, methodcomp_ref::pefr_m1, 0, 0.05, 7.0);
  expect_all_close(r.scalars, methodcomp_ref::ba_miss, 1e-12, "m includes the missing row");
  EXPECT_EQ(r.diffs[4], 7.0);  // left as passed
  EXPECT_EQ(r.means[4], 7.0);
  // NaN is taken as missing in the same way.
  x[4] = std::nan("");
  expect_all_close(run_ba(x, methodcomp_ref::pefr_m1, 0, 0.05).scalars, methodcomp_ref::ba_miss,
                   1e-12, "NaN as missing");
}

TEST(BlandAltman, ZeroDenominatorIsMarkedAndNotCounted) {
  // Ratio with x = 0 in the last row: that row is dropped and m = 3 (not 4).
  const BaResult r = run_ba({1, 2, 4, 0}, {2, 3, 5, 1}, 2, 0.05);
  EXPECT_EQ(r.diffs[3], kMissing);
  EXPECT_EQ(r.means[3], 0.5);
  const double bias = (2.0 + 1.5 + 1.25) / 3.0;
  EXPECT_NEAR(r.scalars[0], bias, 1e-15);
  EXPECT_NEAR(r.scalars[3] - bias, InvCDFStudent(0.975, 2) * r.scalars[1] / std::sqrt(3.0), 1e-12);
  // Relative difference with x + y = 0.
  const BaResult rel = run_ba({1, -2, 3}, {2, 2, 4}, 1, 0.05);
  EXPECT_EQ(rel.diffs[1], kMissing);
}

TEST(BlandAltman, TooFewRowsGiveMarkers) {
  for (const auto& xs : {std::vector<double>{}, std::vector<double>{3}}) {
    const BaResult r = run_ba(xs, std::vector<double>(xs.size(), 4.0), 0, 0.05);
    EXPECT_EQ(r.status, 0);
    for (std::size_t k = 1; k < 6; ++k) EXPECT_EQ(r.scalars[k], kMissing) << k;
  }
}

TEST(BlandAltmanLoACI, ApproximateAndExactMatchReference) {
  using namespace methodcomp_ref;
  auto run = [](double alpha, double alphaCI, int method) {
    auto x = col(pefr_w1), y = col(pefr_m1), out = col(std::vector<double>(6, 0.0));
    EXPECT_EQ(mc::BlandAltmanLoACI(&x, &y, 17, 0, alpha, alphaCI, method, &out), 0);
    return mctest::values(out);
  };
  expect_all_close(run(0.05, 0.05, mc::kLoaApproximate), loa_approx, 1e-12, "approximate");
  expect_all_close(run(0.05, 0.05, mc::kLoaExact), loa_exact, 1e-9, "exact");
  expect_all_close(run(0.10, 0.05, mc::kLoaExact), loa_exact_a10, 1e-9, "exact, 90% limits");
  // The exact interval is asymmetric about the limit, wider on the outer side.
  const auto e = run(0.05, 0.05, mc::kLoaExact);
  EXPECT_GT(e[5] - e[3], e[3] - e[4]);
}

TEST(BlandAltmanLoACI, UndefinedCasesGiveMarkers) {
  auto x = col({1, 2}), y = col({2, kMissing}), out = col(std::vector<double>(6, 0.0));
  EXPECT_EQ(mc::BlandAltmanLoACI(&x, &y, 2, 0, 0.05, 0.05, 1, &out), 0);
  for (double v : mctest::values(out)) EXPECT_EQ(v, kMissing);
  auto y2 = col({2, 5});
  EXPECT_EQ(mc::BlandAltmanLoACI(&x, &y2, 2, 0, 1.5, 0.05, 0, &out), 0);
  for (double v : mctest::values(out)) EXPECT_EQ(v, kMissing);
}

namespace {

std::vector<double> run_rep(const std::vector<double>& x, const std::vector<double>& s,
                            double alpha) {
  auto mx = col(x), ms = col(s);
  std::vector<double> r(3, 0.0);
  EXPECT_EQ(mc::GetRepeatability(&mx, static_cast<int>(x.size()), &ms, alpha, r[0], r[1], r[2]), 0);
  return r;
}

std::vector<double> stacked(const std::vector<double>& a, const std::vector<double>& b) {
  std::vector<double> v = a;
  v.insert(v.end(), b.begin(), b.end());
  return v;
}

std::vector<double> codes17() {
  std::vector<double> s;
  for (int r = 0; r < 2; ++r)
    for (int i = 1; i <= 17; ++i) s.push_back(i);
  return s;
}

}  // namespace

TEST(Repeatability, MatchesOneWayAnova) {
  using namespace methodcomp_ref;
  expect_all_close(run_rep(stacked(pefr_w1, pefr_w2), codes17(), 0.05), rep_wright, 1e-11,
                   "Wright meter");
  expect_all_close(run_rep(stacked(pefr_m1, pefr_m2), codes17(), 0.10), rep_mini_a10, 1e-11,
                   "mini meter");
}

TEST(Repeatability, RowsWithoutAValidSubjectCodeAreLeftOut) {
  using namespace methodcomp_ref;
  std::vector<double> x = stacked(pefr_w1, pefr_w2), s = codes17();
  // Codes 0 and 25 (outside 1..k, k = 20 distinct codes), 1.5 (not whole) and a missing code.
  x.insert(x.end(), {999, 555, 333, 111});
  s.insert(s.end(), {0, 1.5, kMissing, 25});
  expect_all_close(run_rep(x, s, 0.05), rep_wright, 1e-11, "invalid codes ignored");
}

TEST(Repeatability, NoWithinSubjectVariationGivesMarkers) {
  for (const auto& x : {std::vector<double>{5, 5, 5, 5}, std::vector<double>{1, 2, 3, 4}}) {
    const auto r = run_rep(
        x, x[0] == 5 ? std::vector<double>{1, 1, 2, 2} : std::vector<double>{1, 2, 3, 4}, 0.05);
    for (double v : r) EXPECT_EQ(v, kMissing);
  }
  EXPECT_EQ(run_rep({}, {}, 0.05)[0], kMissing);
}
