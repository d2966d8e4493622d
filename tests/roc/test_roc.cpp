// ROC workers: hand-computable tables and curves, the deliberate rules of the statistics and the
// test, the O(n) pairwise sums against their pairwise definitions, and invariants.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "core/numeric.h"
#include "roc/contingency.h"
#include "roc/roc_curve.h"

namespace {

using velkor::kMissing;
using velkor::kUnbounded;
namespace roc = velkor::roc;

constexpr double kZ975 = 1.959963984540054;

// The 13 x 3 statistics of a table (a, b, c, d): value, lower and upper limit of each row.
struct Stats {
  std::vector<double> s;
  double val(int row) const { return s[row - 1]; }
  double lo(int row) const { return s[13 + row - 1]; }
  double hi(int row) const { return s[26 + row - 1]; }
};
Stats stats_of(double a, double b, double c, double d, int method = 0, double prior = 0.0,
               double alpha = 0.05) {
  double cells[4] = {a, c, b, d};
  matrix<double> t(2, 2, cells, 0), s(13, 3), p(3, 3);
  EXPECT_EQ(roc::GetROCStats(&t, alpha, method, 0, prior, &s, &p), 0);
  return {std::vector<double>(s.data, s.data + 39)};
}

struct Roc {
  int status = 0;
  int k = 0, nYouden = 0, nCost = 0;
  std::vector<double> curve, stats, costs, auc, optimal;
  std::size_t rows = 0;  // n
  double x(int r) const { return curve[r]; }
  double y(int r) const { return curve[rows + 1 + r]; }
};

struct RocArgs {
  int side = 1, seMethod = 2, intervalMethod = 0;
  short tail = 0, continuity = 0;
  double alpha = 0.05, prior = 0.0;
  std::vector<double> unitCosts = {0, 1, 1, 0};
};

Roc run(std::vector<double> status, std::vector<double> values, std::vector<double> weights = {},
        const RocArgs& o = RocArgs{}) {
  const int n = static_cast<int>(values.size());
  matrix<double> st(n, 1, status.data(), 0), v(n, 1, values.data(), 0);
  matrix<double> w(static_cast<std::uint32_t>(weights.size()), 1, weights.data(), 0);
  std::vector<double> uc = o.unitCosts;
  matrix<double> costs4(4, 1, uc.data(), 0);
  matrix<double> curve(n + 1, 3), stats(n, roc::kThresholdStatsCols), costs(n, 1), auc(9, 1),
      optimal(n, 4);
  matrix<int> counts(3, 1);
  Roc r;
  r.rows = static_cast<std::size_t>(n);
  r.status = roc::ComputeROC(&st, &v, &w, n, o.side, o.alpha, o.seMethod, o.tail, o.intervalMethod,
                             o.continuity, o.prior, &costs4, &curve, &stats, &costs, &auc, &optimal,
                             &counts);
  r.k = counts(1);
  r.nYouden = counts(2);
  r.nCost = counts(3);
  r.curve.assign(curve.data, curve.data + curve.count);
  r.stats.assign(stats.data, stats.data + stats.count);
  r.costs.assign(costs.data, costs.data + costs.count);
  r.auc.assign(auc.data, auc.data + 9);
  r.optimal.assign(optimal.data, optimal.data + optimal.count);
  return r;
}

void expect_same_curve(const Roc& a, const Roc& b, double aucTol) {
  ASSERT_EQ(a.k, b.k);
  for (int i = 0; i < 9; ++i) EXPECT_NEAR(a.auc[i], b.auc[i], aucTol) << i;
  for (int r = 0; r <= a.k; ++r) {
    EXPECT_NEAR(a.x(r), b.x(r), 1e-15);
    EXPECT_NEAR(a.y(r), b.y(r), 1e-15);
  }
}

roc::GroupedValues grouped(std::vector<double> x, std::vector<double> wx, std::vector<double> y,
                           std::vector<double> wy) {
  std::vector<std::size_t> ix(x.size()), iy(y.size());
  std::iota(ix.begin(), ix.end(), 0);
  std::iota(iy.begin(), iy.end(), 0);
  std::sort(ix.begin(), ix.end(), [&](auto a, auto b) { return x[a] < x[b]; });
  std::sort(iy.begin(), iy.end(), [&](auto a, auto b) { return y[a] < y[b]; });
  roc::GroupedValues g;
  for (auto i : ix) g.x.push_back(x[i]), g.wx.push_back(wx[i]), g.W1 += wx[i];
  for (auto j : iy) g.y.push_back(y[j]), g.wy.push_back(wy[j]), g.W0 += wy[j];
  return g;
}

}  // namespace

TEST(RocContingency, RulesLabelsAndAccumulation) {
  matrix<std::u16string> labels(6, 1);
  const char16_t* lab[6] = {u"yes", u"no", u"yes", u"Yes", u"yes ", u"no"};
  for (int i = 0; i < 6; ++i) labels.at0(i) = lab[i];
  double vals[6] = {1, 2, 3, 3, 5, 3};
  double wts[6] = {1, 2, 0.5, 1, 1, 4};
  matrix<double> v(6, 1, vals, 0), w(6, 1, wts, 0), t(2, 2);
  // value >= 3 positive; only rows 1 and 3 carry the exact label "yes" ("Yes", "yes " differ).
  roc::CreateROCContingencyTable(&labels, 6, u"yes", &v, 0, 3.0, 3, &w, &t);
  EXPECT_EQ(std::vector<double>(t.data, t.data + 4), (std::vector<double>{0.5, 1, 6, 2}));
  // A second call adds to the table.
  roc::CreateROCContingencyTable(&labels, 6, u"yes", &v, 0, 3.0, 3, &w, &t);
  EXPECT_EQ(t(1, 2), 12.0);
  EXPECT_EQ(t(2, 2), 4.0);

  // Each rule, exact-match mode and an out-of-range rule, unit weights; "no" = rows 2 and 6.
  matrix<double> none(0, 1);
  auto cells = [&](int rule, short exact) {
    matrix<double> tt(2, 2);
    roc::CreateROCContingencyTable(&labels, 6, u"no", &v, exact, 3.0, rule, &none, &tt);
    return std::vector<double>{tt(1, 1), tt(1, 2), tt(2, 1), tt(2, 2)};
  };
  EXPECT_EQ(cells(1, 0), (std::vector<double>{1, 1, 1, 3}));   // < 3: rows 1, 2
  EXPECT_EQ(cells(2, 0), (std::vector<double>{2, 3, 0, 1}));   // <= 3: rows 1-4, 6
  EXPECT_EQ(cells(3, 0), (std::vector<double>{1, 3, 1, 1}));   // >= 3: rows 3-6
  EXPECT_EQ(cells(4, 0), (std::vector<double>{0, 1, 2, 3}));   // > 3: row 5
  EXPECT_EQ(cells(5, 0), (std::vector<double>{0, 0, 2, 4}));   // unknown rule: all negative
  EXPECT_EQ(cells(5, -1), (std::vector<double>{1, 2, 1, 2}));  // == 3, rule ignored
}

TEST(RocStats, BalancedTableByHand) {
  const Stats s = stats_of(40, 10, 10, 40);
  const double want[13] = {0.8, 0.2, 0.8, 0.8, 0.2, 0.2, 0.5, 0.8, 0.8, 4, 0.25, 4, 16};
  for (int r = 1; r <= 13; ++r) EXPECT_DOUBLE_EQ(s.val(r), want[r - 1]) << r;
  // Method 1: Wald for row 1, adjusted Wald for Se. (Method 0 with its deliberate Wald / Wilson
  // split and Woolf's odds-ratio interval is compared with R in test_roc_reference.cpp.)
  const Stats s1 = stats_of(40, 10, 10, 40, 1);
  EXPECT_NEAR(s1.lo(1), 0.8 - kZ975 * std::sqrt(0.16 / 100), 1e-15);
  const double pa = (50 * 0.8 + 2) / 54;
  EXPECT_NEAR(s1.lo(3), pa - kZ975 * std::sqrt(pa * (1 - pa) / 54), 1e-15);
  // Odds ratio: Haldane's 0.5 added to the cells outside method 0.
  EXPECT_NEAR(s1.hi(13), 16 * std::exp(kZ975 * std::sqrt(2 * (1 / 40.5 + 1 / 10.5))), 1e-12);
}

TEST(RocStats, ZeroCellsLeaveRatiosMissing) {
  // b = 0: LR+ and the odds ratio are missing, rows 1-9 computed.
  const Stats s = stats_of(40, 0, 10, 40);
  for (int r = 1; r <= 9; ++r) EXPECT_NE(s.val(r), kMissing) << r;
  EXPECT_EQ(s.val(10), kMissing);
  EXPECT_EQ(s.lo(10), kMissing);
  EXPECT_EQ(s.val(13), kMissing);
  EXPECT_DOUBLE_EQ(s.val(11), 0.2);  // (10/50) / (40/40)
  // a = 0: the ratios may have values, but the intervals dividing by pa stay missing.
  const Stats s2 = stats_of(0, 10, 10, 40);
  EXPECT_DOUBLE_EQ(s2.val(10), 0.0);
  EXPECT_EQ(s2.lo(10), kMissing);
  EXPECT_EQ(s2.lo(12), kMissing);
  EXPECT_DOUBLE_EQ(s2.val(13), 0.0);
  EXPECT_EQ(s2.hi(13), kMissing);
  // No truly positive row: Se, 1 - Se and the predictive values are undefined.
  const Stats s3 = stats_of(0, 10, 0, 40);
  for (int r : {3, 6, 8}) EXPECT_EQ(s3.val(r), kMissing) << r;
  EXPECT_DOUBLE_EQ(s3.val(7), 0.0);
  for (double c : stats_of(0, 0, 0, 0).s) EXPECT_EQ(c, kMissing);
  // A bad alpha: values, no limits.
  const Stats s4 = stats_of(40, 10, 10, 40, 0, 0.0, 1.5);
  EXPECT_DOUBLE_EQ(s4.val(1), 0.8);
  for (int r = 1; r <= 13; ++r) EXPECT_EQ(s4.lo(r), kMissing);
}

TEST(RocStats, PriorPrevalenceMovesPredictiveValuesAndTheMethod0RelativeRiskInterval) {
  const Stats base = stats_of(40, 10, 10, 40), s = stats_of(40, 10, 10, 40, 0, 0.1);
  const double Se = 0.8, Sp = 0.8, pi = 0.1;
  const double ppv = pi * Se / ((1 - pi) * (1 - Sp) + pi * Se);
  const double npv = (1 - pi) * Sp / ((1 - Se) * pi + (1 - pi) * Sp);
  EXPECT_DOUBLE_EQ(s.val(8), ppv);
  EXPECT_DOUBLE_EQ(s.val(9), npv);
  EXPECT_EQ(s.val(7), 0.5);  // the sample prevalence stays
  EXPECT_EQ(s.val(12), base.val(12));
  // Method 0 relative-risk interval from the stored predictive values (deliberate); other
  // methods ignore the prior there.
  const double se = std::sqrt(((1 - ppv) / 0.4 + npv / 0.1) / 100);
  EXPECT_NEAR(s.lo(12), 4.0 * std::exp(-kZ975 * se), 1e-12);
  EXPECT_NE(s.lo(12), base.lo(12));
  EXPECT_EQ(stats_of(40, 10, 10, 40, 1, 0.1).lo(12), stats_of(40, 10, 10, 40, 1).lo(12));
}

TEST(RocCurve, SmallCaseByHand) {
  // Positives 3, 4, 5; negatives 1, 2, 3: AUC = (2.5 + 3 + 3) / 9.
  const Roc r = run({1, 1, 1, 0, 0, 0}, {3, 4, 5, 1, 2, 3});
  ASSERT_EQ(r.status, 0);
  ASSERT_EQ(r.k, 5);
  const double xs[6] = {0, 0, 0, 1.0 / 3, 2.0 / 3, 1}, ys[6] = {0, 1.0 / 3, 2.0 / 3, 1, 1, 1};
  for (int i = 0; i < 6; ++i) {
    EXPECT_NEAR(r.x(i), xs[i], 1e-15) << i;
    EXPECT_NEAR(r.y(i), ys[i], 1e-15) << i;
  }
  EXPECT_NEAR(r.auc[0], 8.5 / 9, 1e-15);
  // Thresholds in the curve's third column: end point, then 5, 4, 3, 2, 1.
  EXPECT_EQ(r.curve[2 * 7], kMissing);
  EXPECT_EQ(r.curve[2 * 7 + 1], 5.0);
  EXPECT_EQ(r.curve[2 * 7 + 5], 1.0);
  // Per-threshold table, row 3: threshold 3, a = 3, b = 1, c = 0, d = 2, then Se.
  const std::size_t n = 6;
  const double row3[6] = {3, 3, 1, 0, 2, 1};
  for (std::size_t c = 0; c < 6; ++c) EXPECT_EQ(r.stats[(c < 5 ? c : 7) * n + 2], row3[c]) << c;
  EXPECT_EQ(r.stats[5 * n + 5], kMissing);  // rows past k
  // Costs b + c (unit costs 0, 1, 1, 0) per observation: thresholds 1..5.
  const double cost[5] = {3.0 / 6, 2.0 / 6, 1.0 / 6, 1.0 / 6, 2.0 / 6};
  for (int g = 0; g < 5; ++g) EXPECT_NEAR(r.costs[g], cost[g], 1e-15);
  EXPECT_EQ(r.costs[5], kMissing);
  // Youden J = 2/3 at both 3 and 4, and the lowest cost is shared by the same two thresholds:
  // every tied optimum is reported.
  ASSERT_EQ(r.nYouden, 2);
  ASSERT_EQ(r.nCost, 2);
  for (std::size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(r.optimal[i], 3.0 + static_cast<double>(i));
    EXPECT_NEAR(r.optimal[n + i], 2.0 / 3, 1e-15);
    EXPECT_EQ(r.optimal[2 * n + i], 3.0 + static_cast<double>(i));
  }
  EXPECT_EQ(r.optimal[2 * n + 2], kMissing);
}

TEST(RocCurve, PerfectSeparationAndDegenerateVariance) {
  // Hanley-McNeil SE is 0 at AUC = 1: interval [1, 1] and no test.
  const Roc r = run({0, 0, 0, 1, 1, 1}, {1, 2, 3, 4, 5, 6}, {}, {.seMethod = 0});
  EXPECT_EQ(std::vector<double>(r.auc.begin(), r.auc.begin() + 4),
            (std::vector<double>{1, 0, 1, 1}));
  for (int i = 4; i < 9; ++i) EXPECT_EQ(r.auc[i], kMissing);
  // All values equal: the diagonal, AUC 1/2; every DeLong component is 1/2, so SE = 0.
  const Roc flat = run({0, 1, 0, 1}, {7, 7, 7, 7});
  EXPECT_EQ(flat.k, 1);
  EXPECT_EQ(flat.auc[0], 0.5);
  EXPECT_EQ(flat.auc[1], 0.0);
  EXPECT_EQ(flat.auc[4], kMissing);
  // One negative: DeLong has no variance for that group.
  EXPECT_EQ(run({0, 1, 1, 1}, {1, 2, 3, 0.5}).auc[1], 0.0);
}

TEST(RocCurve, TailCodesAndTheirCriticalValues) {
  const std::vector<double> st = {1, 1, 1, 1, 0, 0, 0, 0, 1, 0};
  const std::vector<double> x = {5, 6, 2, 8, 1, 3, 4, 2.5, 7, 6.5};
  const Roc two = run(st, x, {}, {.seMethod = 0, .tail = 0});
  const Roc lower = run(st, x, {}, {.seMethod = 0, .tail = -1});
  const Roc upper = run(st, x, {}, {.seMethod = 0, .tail = 1});
  const double se = two.auc[1], d = two.auc[0] - 0.5, z95 = 1.6448536269514729;
  ASSERT_GT(se, 0.0);
  EXPECT_NEAR(two.auc[4], d / se, 1e-15);
  const double P = 0.5 * std::erfc(-two.auc[4] / std::sqrt(2.0));
  EXPECT_NEAR(two.auc[7], 2 * std::min(P, 1 - P), 1e-14);
  EXPECT_NEAR(two.auc[8], kZ975, 1e-14);
  EXPECT_NEAR(two.auc[5], d - se * kZ975, 1e-14);
  EXPECT_NEAR(two.auc[6], d + se * kZ975, 1e-14);
  EXPECT_NEAR(lower.auc[7], P, 1e-14);
  EXPECT_NEAR(lower.auc[8], -z95, 1e-13);
  EXPECT_EQ(lower.auc[5], kMissing);
  EXPECT_NEAR(lower.auc[6], d + se * z95, 1e-13);
  // Upper tail: one minus the lower quantile, 1 - (-1.644854) = 2.644854 (kept as it is).
  EXPECT_NEAR(upper.auc[7], 1 - P, 1e-14);
  EXPECT_NEAR(upper.auc[8], 1 + z95, 1e-13);
  EXPECT_NEAR(upper.auc[5], d - se * (1 + z95), 1e-13);
  EXPECT_EQ(upper.auc[6], kUnbounded);
}

TEST(RocCurve, DeLongTestUsesTheMannWhitneyAreaWithNearTies) {
  // Pairs 1e-13 apart are distinct thresholds for the curve but ties for DeLong's psi: the
  // curve counts 1+1e-13 above 1 fully, the Mann-Whitney area A' counts it 1/2.
  const Roc r = run({1, 0, 1, 0, 1, 0}, {1 + 1e-13, 1, 2, 0.5, 3, 2.5});
  const double trapezoid = 7.0 / 9, mw = 6.5 / 9;
  EXPECT_NEAR(r.auc[0], trapezoid, 1e-15);
  EXPECT_NEAR(r.auc[4] * r.auc[1], mw - 0.5, 1e-15);
  EXPECT_NEAR(r.auc[2], std::max(0.0, trapezoid - kZ975 * r.auc[1]), 1e-15);
}

TEST(RocCurve, LinearSumsEqualThePairwiseDefinition) {
  std::mt19937_64 rng(20261122);
  std::uniform_int_distribution<int> grid(0, 30), pick(0, 5), wint(1, 4);
  std::uniform_real_distribution<double> wreal(0.05, 3.0);
  // Values on a coarse grid with near-ties at 0, +-3e-13, +-1e-12 exactly and +-2e-12.
  const double nudge[6] = {0.0, 3e-13, -3e-13, 1e-12, -1e-12, 2e-12};
  for (int rep = 0; rep < 30; ++rep) {
    std::vector<double> x, y, wxu, wyu, wxi, wyi, wxr, wyr;
    const int n1 = 1 + rep % 17, n0 = 1 + (rep * 7) % 23;
    for (int i = 0; i < n1; ++i) {
      x.push_back(grid(rng) * 0.125 + nudge[pick(rng)]);
      wxu.push_back(1.0), wxi.push_back(wint(rng)), wxr.push_back(wreal(rng));
    }
    for (int j = 0; j < n0; ++j) {
      y.push_back(grid(rng) * 0.125 + nudge[pick(rng)]);
      wyu.push_back(1.0), wyi.push_back(wint(rng)), wyr.push_back(wreal(rng));
    }
    struct Case {
      std::vector<double>*wx, *wy;
      bool exact;
    } cases[3] = {{&wxu, &wyu, true}, {&wxi, &wyi, true}, {&wxr, &wyr, false}};
    for (const Case& c : cases) {
      const roc::GroupedValues g = grouped(x, *c.wx, y, *c.wy);
      std::vector<double> p1, n1v, p2, n2v;
      const double a1 = roc::DeLongComponents(g, p1, n1v);
      const double a2 = roc::DeLongComponentsPairwise(g, p2, n2v);
      const double s1 = roc::BambersSum(g), s2 = roc::BambersSumPairwise(g);
      if (c.exact) {  // integer weights: every sum is exact, so the results are identical
        EXPECT_EQ(a1, a2);
        EXPECT_EQ(p1, p2);
        EXPECT_EQ(n1v, n2v);
        EXPECT_EQ(s1, s2);
      } else {  // real weights: summation order differs, within rounding of the totals
        EXPECT_NEAR(a1, a2, 1e-14);
        for (std::size_t i = 0; i < p1.size(); ++i) EXPECT_NEAR(p1[i], p2[i], 1e-14);
        for (std::size_t j = 0; j < n1v.size(); ++j) EXPECT_NEAR(n1v[j], n2v[j], 1e-14);
        EXPECT_NEAR(s1, s2, 1e-12 * std::max(1.0, std::fabs(s2)));
      }
    }
  }
}

TEST(RocCurve, InvariantsOfWeightsTransformsAndSides) {
  std::mt19937_64 rng(7);
  std::uniform_int_distribution<int> grid(0, 40), coin(0, 1), rep(1, 3);
  std::vector<double> st, x, w, stR, xR;
  for (int i = 0; i < 60; ++i) {
    st.push_back(coin(rng));
    x.push_back(grid(rng) / 4.0 + st.back());
    w.push_back(rep(rng));
    for (int k = 0; k < w.back(); ++k) stR.push_back(st.back()), xR.push_back(x.back());
  }
  std::vector<double> ex(x), nx(x);
  for (double& v : ex) v = std::exp(v);
  for (double& v : nx) v = -v;
  for (int se = 0; se <= 2; ++se) {
    SCOPED_TRACE(se);
    // Frequency weights are repeated rows, except for Bamber's tie count, which takes the
    // negative's squared weight once per tied positive (deliberate): with ties across the groups
    // its weighted SE differs from the one of repeated rows.
    const Roc a = run(st, x, w, {.seMethod = se}), b = run(stR, xR, {}, {.seMethod = se});
    if (se == 1) {
      EXPECT_NEAR(a.auc[0], b.auc[0], 1e-13);
      EXPECT_GT(std::fabs(a.auc[1] - b.auc[1]), 1e-8);
      std::vector<double> xs(x), xsR;  // ties broken: the weighted and repeated forms agree
      for (std::size_t i = 0; i < xs.size(); ++i) {
        xs[i] += 1e-3 * static_cast<double>(i);
        for (int k = 0; k < w[i]; ++k) xsR.push_back(xs[i]);
      }
      EXPECT_NEAR(run(st, xs, w, {.seMethod = 1}).auc[1], run(stR, xsR, {}, {.seMethod = 1}).auc[1],
                  1e-13);
    } else {
      expect_same_curve(a, b, 1e-13);
    }
    // An increasing transform changes nothing but the thresholds.
    const Roc c = run(st, ex, w, {.seMethod = se});
    for (int i = 0; i < 9; ++i) EXPECT_NEAR(a.auc[i], c.auc[i], 1e-14) << i;
    // Strict and non-strict sides give the same curve; low-is-positive on -x likewise.
    for (int side : {3, 2, 4})
      expect_same_curve(a, run(st, side == 3 ? x : nx, w, {.side = side, .seMethod = se}), 1e-14);
  }
}

TEST(RocCurve, UnusableRowsAreLeftOut) {
  const std::vector<double> st = {1, 0, 1, 0, 1, 0};
  const std::vector<double> x = {3, 1, 4, 2, 2.5, 3.5};
  const Roc base = run(st, x, {1, 1, 1, 1, 1, 1});
  std::vector<double> st2(st), x2(x), w2(6, 1.0);
  // NaN value, missing marker, infinite value, zero weight, status 2, negative weight.
  const double extraX[6] = {NAN, kMissing, INFINITY, 9, 9, 9};
  const double extraS[6] = {1, 0, 1, 1, 2, 0};
  const double extraW[6] = {1, 1, 1, 0, 1, -1};
  for (int i = 0; i < 6; ++i)
    st2.push_back(extraS[i]), x2.push_back(extraX[i]), w2.push_back(extraW[i]);
  const Roc r = run(st2, x2, w2);
  ASSERT_EQ(r.k, base.k);
  EXPECT_EQ(r.auc, base.auc);
  // No usable negative: -2 and nothing written (the container keeps its initial 0).
  const Roc none = run({1, 1, 0}, {1, 2, NAN});
  EXPECT_EQ(none.status, -2);
  EXPECT_EQ(none.auc[0], 0.0);
  EXPECT_EQ(run({1, 1, 1}, {1, 2, 3}).status, -2);
  EXPECT_EQ(run({}, {}).status, -2);
}

TEST(RocCurve, ThresholdRowsEqualTheTableStatistics) {
  // Each per-threshold row is GetROCStats of the table CreateROCContingencyTable builds there.
  const std::vector<double> st = {1, 0, 1, 0, 1, 0, 1, 1, 0, 0};
  const std::vector<double> x = {3, 1, 4, 2, 2, 3, 5, 1, 0.5, 4};
  const std::vector<double> w = {1, 2, 1, 3, 1, 1, 2, 1, 1, 1};
  const int ruleOfSide[5] = {0, 3, 2, 4, 1};
  matrix<std::u16string> labels(10, 1);
  for (int i = 0; i < 10; ++i) labels.at0(i) = st[i] == 1 ? u"P" : u"N";
  std::vector<double> xv(x), wv(w);
  matrix<double> xm(10, 1, xv.data(), 0), wm(10, 1, wv.data(), 0);
  const std::size_t n = st.size();
  for (int side = 1; side <= 4; ++side) {
    const Roc r = run(st, x, w, {.side = side, .intervalMethod = 3, .prior = 0.3});
    for (int g = 0; g < r.k; ++g) {
      matrix<double> t(2, 2), s(13, 3);
      roc::CreateROCContingencyTable(&labels, 10, u"P", &xm, 0, r.stats[g], ruleOfSide[side], &wm,
                                     &t);
      roc::GetROCStats(&t, 0.05, 3, 0, 0.3, &s, nullptr);
      const double abcd[4] = {t(1, 1), t(1, 2), t(2, 1), t(2, 2)};
      for (std::size_t c = 0; c < 4; ++c) EXPECT_EQ(r.stats[(1 + c) * n + g], abcd[c]);
      for (int q = 0; q < 39; ++q)
        EXPECT_EQ(r.stats[(5 + q) * n + g], s.data[q]) << side << " " << g;
    }
  }
}

TEST(RocComparison, IdenticalTestsHaveNoTest) {
  std::vector<double> st = {1, 0, 1, 0, 1, 0, 1, 0};
  std::vector<double> v = {3, 1, 4, 2, 2, 3, 5, 1, /* second copy */ 3, 1, 4, 2, 2, 3, 5, 1};
  matrix<double> s(8, 1, st.data(), 0), x(8, 2, v.data(), 0), w(0, 1);
  matrix<double> aucs(2, 4), cov(2, 2), global(3, 1), pairs(1, 8);
  auto compare = [&](matrix<double>* status, int m) {
    return roc::ComputeROCComparisonsDep(status, &x, &w, 8, m, 1, 0.05, &aucs, &cov, &global,
                                         &pairs);
  };
  ASSERT_EQ(compare(&s, 2), 0);
  EXPECT_EQ(aucs(1, 1), aucs(2, 1));
  EXPECT_NEAR(cov(1, 2), cov(1, 1), 1e-17);
  EXPECT_EQ(pairs(1, 3), 0.0);
  EXPECT_NEAR(pairs(1, 4), 0.0, 1e-9);
  EXPECT_EQ(pairs(1, 7), kMissing);  // SE 0: no z, no p
  EXPECT_EQ(pairs(1, 8), kMissing);
  EXPECT_EQ(global(1), kMissing);  // singular contrast covariance
  EXPECT_EQ(compare(&s, 1), -2);
  std::vector<double> allPos(8, 1.0);
  matrix<double> sp(8, 1, allPos.data(), 0);
  EXPECT_EQ(compare(&sp, 2), -2);
}

TEST(RocCurve, LargeInputThroughTheRadixSort) {
  // Above 4096 rows the rows are ordered by a radix sort on the bit patterns: negative values,
  // both zeros and ties must come out in numeric order. Checked against the brute-force
  // Mann-Whitney area and against the thresholds of the per-threshold table.
  std::mt19937_64 rng(99);
  std::uniform_int_distribution<int> grid(-300, 300), coin(0, 2);
  std::vector<double> st, x, w;
  for (int i = 0; i < 6000; ++i) {
    st.push_back(coin(rng) == 0 ? 1.0 : 0.0);
    const int gv = grid(rng) + (st.back() == 1.0 ? 40 : 0);
    x.push_back(gv == 0 && i % 2 ? -0.0 : gv * 1e-3 * (gv % 7 == 0 ? 1e5 : 1.0));
    w.push_back(1 + i % 3);
  }
  const Roc r = run(st, x, w);
  double num = 0, W1 = 0, W0 = 0;
  for (std::size_t i = 0; i < x.size(); ++i) {
    if (st[i] != 1.0) {
      W0 += w[i];
      continue;
    }
    W1 += w[i];
    for (std::size_t j = 0; j < x.size(); ++j)
      if (st[j] == 0.0) num += w[i] * w[j] * (x[i] > x[j] ? 1.0 : x[i] == x[j] ? 0.5 : 0.0);
  }
  EXPECT_NEAR(r.auc[0], num / W1 / W0, 1e-12);
  std::vector<double> distinct(x);
  for (double& v : distinct) v = v == 0.0 ? 0.0 : v;
  std::sort(distinct.begin(), distinct.end());
  distinct.erase(std::unique(distinct.begin(), distinct.end()), distinct.end());
  ASSERT_EQ(static_cast<std::size_t>(r.k), distinct.size());
  for (std::size_t g = 0; g < distinct.size(); ++g) EXPECT_EQ(r.stats[g], distinct[g]);
}
