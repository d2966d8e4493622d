// The descriptive survival family through its exported symbols only: reference values from R's
// survival package (tests/reference/survival/make_survival_fixtures.R), hand-computable cases,
// the deliberate rules of the estimators, and bad input.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numeric>
#include <vector>

#include "velkor/VELKORLI1M.h"
#include "velkor/survival_objects.h"
#include "support/columns.h"
#include "support/guarded.h"
#include "survival/flat_chain.h"

namespace {

#include "reference/survival/survival_fixtures.inc"

constexpr double M = VELKOR_MISSING;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

void ExpectRel(double expected, double actual, double tol, const char* what, int i) {
  const double scale = std::max(1.0, std::fabs(expected));
  EXPECT_LE(std::fabs(expected - actual), tol * scale)
      << what << " at " << i << ": expected " << expected << ", got " << actual;
}

using testing_support::expect_cells;
using testing_support::Guarded;

FlatChain Chain(const double* t, const double* s, const double* g, int n) {
  return FlatChain({t, t + n}, {s, s + n}, {g, g + n});
}

struct GroupRef {
  const double *t, *nrisk, *nevent, *ncens, *surv, *greenwood, *cumhaz, *varhaz, *quartiles, *mean;
  int size;
};

// One group against survfit: table, Nelson-Aalen (Aalen's variance, method 1, = cumhaz and
// std.chaz^2), restricted mean with its standard error, quartiles.
void CompareGroup(const FlatChain& a, int k, const GroupRef& ref) {
  ASSERT_EQ(a.rows(k), ref.size);
  for (int j = 1; j <= ref.size; ++j) {
    EXPECT_EQ(a.cell(k, j, 1), ref.t[j - 1]);
    EXPECT_EQ(a.cell(k, j, 3), ref.nrisk[j - 1]);
    EXPECT_EQ(a.cell(k, j, 4), ref.nevent[j - 1]);
    EXPECT_EQ(a.cell(k, j, 5), ref.ncens[j - 1]);
    ExpectRel(ref.surv[j - 1], a.cell(k, j, 8), 1e-13, "S", j);
    if (std::isinf(ref.greenwood[j - 1]))  // S = 0: the p = 0 term is left out of the sum
      EXPECT_EQ(a.cell(k, j, 11), a.cell(k, j - 1, 11));
    else
      ExpectRel(ref.greenwood[j - 1], a.cell(k, j, 11), 1e-12, "Greenwood", j);
    if (ref.cumhaz[j - 1] == 0.0) {
      EXPECT_EQ(a.naCell(k, j, 5), M);  // before the first event
    } else {
      ExpectRel(ref.cumhaz[j - 1], a.naCell(k, j, 5), 1e-13, "H", j);
      ExpectRel(ref.varhaz[j - 1], a.naCell(k, j, 6), 1e-12, "Var H", j);
    }
  }
  const double* m = a.meanOf(k);  // cap, mean record, quartile table (3 x 4)
  EXPECT_EQ(m[0], ref.mean[0]);
  ExpectRel(ref.mean[2], m[1], 1e-12, "restricted mean", k);
  ExpectRel(ref.mean[3], m[2], 1e-10, "se(rmean)", k);
  for (int r = 0; r < 3; ++r) EXPECT_EQ(m[5 + 3 + r], ref.quartiles[r]) << "quartile row " << r + 1;
}

#define GROUP(p, size)                                                                        \
  GroupRef {                                                                                  \
    p##_t, p##_nrisk, p##_nevent, p##_ncens, p##_surv, p##_greenwood, p##_cumhaz, p##_varhaz, \
        p##_quartiles, p##_mean, size                                                         \
  }
#define LEN(a) static_cast<int>(sizeof(a) / sizeof(a[0]))

}  // namespace

// Rows of the test results (3 x 4): log-rank, Gehan, Tarone-Ware; columns X^2, critical value,
// p-value, alpha. Pairwise rows: group a, group b, test, X^2, p, Bonferroni, Holm.
TEST(SurvivalReferenceR, LungBySexMatchesSurvfitAndSurvdiff) {
  const FlatChain a = Chain(lung_time, lung_status, lung_group, LEN(lung_time));
  EXPECT_EQ(a.status, std::vector<int>(a.status.size(), 0));
  ASSERT_EQ(a.G, 2);
  CompareGroup(a, 0, GROUP(lung_g1, LEN(lung_g1_t)));
  CompareGroup(a, 1, GROUP(lung_g2, LEN(lung_g2_t)));
  for (int r = 0; r < 3; ++r) {
    ExpectRel(lung_tests[r], a.tests[static_cast<std::size_t>(r)], 1e-10, "X2", r);
    EXPECT_NEAR(a.tests[static_cast<std::size_t>(3 + r)], 3.841458820694124, 1e-12);
    // One degree of freedom: P(chi2_1 > x) = erfc(sqrt(x / 2)).
    ExpectRel(std::erfc(std::sqrt(lung_tests[r] / 2)), a.tests[static_cast<std::size_t>(6 + r)],
              1e-10, "p", r);
    EXPECT_EQ(a.tests[static_cast<std::size_t>(9 + r)], 0.05);
    // One pair: the pairwise statistics are the overall ones, Bonferroni = Holm = raw p.
    EXPECT_NEAR(a.pairs[static_cast<std::size_t>(3 * 3 + r)], lung_tests[r], 1e-9);
    for (int c : {5, 6})
      EXPECT_EQ(a.pairs[static_cast<std::size_t>(c * 3 + r)],
                a.pairs[static_cast<std::size_t>(12 + r)]);
  }
}

TEST(SurvivalReferenceR, VeteranFourCellTypesMatchSurvdiffOnThreeDegreesOfFreedom) {
  const FlatChain a = Chain(veteran_time, veteran_status, veteran_group, LEN(veteran_time));
  ASSERT_EQ(a.G, 4);
  CompareGroup(a, 0, GROUP(veteran_g1, LEN(veteran_g1_t)));
  CompareGroup(a, 1, GROUP(veteran_g2, LEN(veteran_g2_t)));
  CompareGroup(a, 2, GROUP(veteran_g3, LEN(veteran_g3_t)));
  CompareGroup(a, 3, GROUP(veteran_g4, LEN(veteran_g4_t)));
  for (int r = 0; r < 3; ++r)
    ExpectRel(veteran_tests[r], a.tests[static_cast<std::size_t>(r)], 1e-10, "X2", r);
  EXPECT_NEAR(a.tests[3], 7.814727903251178, 1e-10);  // qchisq(0.95, 3)
  // Six pairs (1,2), (1,3), ..., log-rank rows 1, 4, 7, ...; Bonferroni and Holm over the six
  // log-rank p-values.
  const int P = 6;
  auto col = [&](int p, int c) {
    return a.pairs[static_cast<std::size_t>(3 * P * (c - 1) + 3 * p)];
  };
  std::vector<int> order(P);
  std::iota(order.begin(), order.end(), 0);
  std::sort(order.begin(), order.end(), [&](int x, int y) { return col(x, 5) < col(y, 5); });
  double running = 0;
  for (int i = 0; i < P; ++i) {
    const int p = order[static_cast<std::size_t>(i)];
    ExpectRel(veteran_pairwise_logrank[p], col(p, 4), 1e-10, "pairwise", p);
    EXPECT_DOUBLE_EQ(col(p, 6), std::min(1.0, P * col(p, 5)));
    running = std::max(running, std::min(1.0, (P - i) * col(p, 5)));
    EXPECT_DOUBLE_EQ(col(p, 7), running);
  }
  EXPECT_EQ(col(0, 1), 1.0);
  EXPECT_EQ(col(0, 2), 2.0);
  EXPECT_EQ(a.pairs[3 * P * 2 + 1], 2.0);  // second row of pair 1: test 2 (Gehan)
}

// ---------------------------------------------------------------------------------------------
// Preparation: the order of the checks and the layout produced.
// ---------------------------------------------------------------------------------------------
namespace {
int Reorganize(std::vector<double>& t, std::vector<double>& s, std::vector<double>& g,
               std::vector<double> sizes, short grouped = 0, double* maxTime = nullptr) {
  std::vector<double> w(t.size(), 1.0);
  double mx = -7;
  const int status =
      ReorganizeData(t.data(), static_cast<int>(t.size()), s.data(), w.data(), g.data(),
                     sizes.data(), static_cast<int>(sizes.size()), grouped, &mx);
  if (maxTime) *maxTime = mx;
  return status;
}
}  // namespace

TEST(SurvivalPreparation, ChecksComeInTheStatedOrder) {
  struct Case {
    std::vector<double> s;
    short grouped;
    int expected;
  };
  // 0.5 lies in [0, 1]; 2 is out of range except in counts mode; a missing status is below 0;
  // one row is -2 unless its status is out of range (the range check comes first); no rows: -2.
  for (const Case& c : std::vector<Case>{{{0.5, 1}, 0, 0},
                                         {{2, 1}, 0, -1},
                                         {{2, 1}, -1, 0},
                                         {{M, 1}, 0, -1},
                                         {{1}, 0, -2},
                                         {{-1}, 0, -1},
                                         {{}, 0, -2}}) {
    std::vector<double> t(c.s.size(), 1.0), s = c.s, g(c.s.size(), 1.0);
    EXPECT_EQ(Reorganize(t, s, g, {static_cast<double>(c.s.size())}, c.grouped), c.expected)
        << c.s.size() << " rows, grouped " << c.grouped;
  }
}

TEST(SurvivalPreparation, WarningsStillOrderTheBlocks) {
  std::vector<double> t{4, 2, 9, 1, 3}, s{0, 0, 0, 0, 0}, g{2, 1, 2, 1, 2};
  double mx = 0;
  EXPECT_EQ(Reorganize(t, s, g, {2, 3}, 0, &mx), -3);
  EXPECT_EQ(t, (std::vector<double>{1, 2, 3, 4, 9}));
  EXPECT_EQ(g, (std::vector<double>{1, 1, 2, 2, 2}));
  EXPECT_EQ(mx, 9);
  std::vector<double> t2{4, 2, 9, 1, 3}, s2{1, 1, 1, 1, 1}, g2{2, 1, 2, 1, 2};
  EXPECT_EQ(Reorganize(t2, s2, g2, {2, 3}), -5);
  EXPECT_EQ(t2, (std::vector<double>{1, 2, 3, 4, 9}));
  // Status and weights travel with their rows; NaN times go last in their block.
  std::vector<double> t3{5, kNaN, 1, 7}, s3{1, 0, 0, 1}, g3{1, 1, 1, 0};
  EXPECT_EQ(Reorganize(t3, s3, g3, {1, 3}), 0);
  EXPECT_EQ(t3[0], 7);
  EXPECT_EQ(t3[1], 1);
  EXPECT_EQ(t3[2], 5);
  EXPECT_TRUE(std::isnan(t3[3]));
  EXPECT_EQ(s3, (std::vector<double>{1, 0, 1, 0}));
}

TEST(SurvivalPreparation, CheckStatusFormatNumbersCausesByFirstAppearance) {
  double codes[5] = {0}, rec[5] = {0};
  unsigned int k = 0;
  const double st[5] = {0, 2, 1, 2, 0};
  EXPECT_EQ(Cpp_CheckStatusFormat(st, 5, codes, &k, 0, rec), 0);
  EXPECT_EQ(k, 2u);
  EXPECT_EQ(codes[0], 2);
  EXPECT_EQ(codes[1], 1);
  EXPECT_EQ(std::vector<double>(rec, rec + 5), (std::vector<double>{0, 1, 2, 1, 0}));
  // Censoring code 9: a censored first row keeps 9 (it is not revisited), later ones become 0.
  const double st9[4] = {9, 3, 9, 4};
  EXPECT_EQ(Cpp_CheckStatusFormat(st9, 4, codes, &k, 9, rec), 0);
  EXPECT_EQ(std::vector<double>(rec, rec + 4), (std::vector<double>{9, 1, 0, 2}));
  const double all[3] = {9, 9, 9};
  EXPECT_EQ(Cpp_CheckStatusFormat(all, 3, codes, &k, 9, rec), -1);
}

// ---------------------------------------------------------------------------------------------
// Product-limit table: hand-computable cases and the deliberate rules.
// ---------------------------------------------------------------------------------------------
namespace {
struct KM {
  std::vector<double> tab, last{0}, tot{0};
  int R;
  KM(std::vector<double> t, std::vector<double> s, std::vector<double> w = {}, short grouped = 0) {
    if (w.empty()) w.assign(t.size(), 1.0);
    R = static_cast<int>(t.size()) + 1;
    tab.assign(static_cast<std::size_t>(R) * 12, 0.0);
    EXPECT_EQ(0, RunLife(t.data(), s.data(), w.data(), static_cast<int>(t.size()), nullptr, 0,
                         grouped, 1, 0, 0, R, tab.data(), last.data(), tot.data()));
  }
  double operator()(int row, int col) const {
    return tab[static_cast<std::size_t>(col - 1) * R + row];
  }
  int rows() const { return static_cast<int>(last[0]); }
};
}  // namespace

TEST(SurvivalKaplanMeier, TiesOfEventsAndCensoringsShareOneRow) {
  KM km({1, 2, 2, 3}, {1, 1, 0, 1});
  ASSERT_EQ(km.rows(), 3);
  const double n[] = {4, 3, 1}, d[] = {1, 1, 1}, c[] = {0, 1, 0}, S[] = {0.75, 0.5, 0};
  for (int j = 1; j <= 3; ++j) {
    EXPECT_EQ(km(j, 1), j);
    EXPECT_EQ(km(j, 3), n[j - 1]);
    EXPECT_EQ(km(j, 4), d[j - 1]);
    EXPECT_EQ(km(j, 5), c[j - 1]);
    EXPECT_EQ(km(j, 6), n[j - 1]);
    EXPECT_DOUBLE_EQ(km(j, 8), S[j - 1]);
  }
  expect_cells(km, {{0, 7, 1}, {0, 8, 1}, {2, 2, M}});  // column 2: never written by the estimator
  // Greenwood term (1 - p) / (p n'), none for p = 0; density (1 - 0.75) / (2 - 1), and on the
  // last run t_next = t + 1.
  expect_cells(km, {{1, 11, 0.25 / 0.75 / 4}, {3, 11, km(2, 11)}, {1, 9, 0.25}, {3, 9, 0.5}}, true);
  EXPECT_EQ(km.tot[0], 4);
}

TEST(SurvivalKaplanMeier, CensoredOnlyRowsUnweightedInitialRiskSetAndGroupedCounts) {
  // A censored first row keeps the origin values and gets no density; a later censored-only row
  // carries the previous conditional survival (not 1), S and the Greenwood sum.
  KM first({1, 2, 4, 5}, {0, 1, 0, 1});
  expect_cells(first, {{1, 7, 1}, {1, 8, 1}, {1, 9, M}});
  expect_cells(
      first, {{2, 7, 2.0 / 3}, {3, 7, 2.0 / 3}, {3, 8, first(2, 8)}, {3, 11, first(2, 11)}}, true);
  // Weights enter the counts but not the initial number at risk (deliberate asymmetry): N starts
  // at n = 3 although the weights sum to 6. Row 3 starts with n' = -1 <= 0: kept with its counts,
  // the scan stops and its survival keeps the pre-filled marker.
  KM km({1, 2, 3}, {1, 1, 1}, {2, 2, 2});
  EXPECT_EQ(km.tot[0], 3);
  EXPECT_EQ(km.rows(), 3);
  expect_cells(km, {{1, 3, 3}, {1, 4, 2}, {2, 3, 1}, {3, 3, -1}, {3, 8, M}});
  EXPECT_DOUBLE_EQ(km(1, 8), 1.0 / 3);
  // Grouped mode: status = events, weights = censored; N = sum of both; frequency weights equal
  // repeated rows.
  KM grouped({1, 2}, {2, 1}, {1, 0}, -1);
  EXPECT_EQ(grouped.tot[0], 4);
  EXPECT_EQ(grouped(2, 3), 1);
  expect_cells(grouped, {{1, 8, 0.5}, {2, 8, 0}}, true);
  KM repeated({1, 1, 1, 2}, {1, 1, 0, 1});
  for (int j = 1; j <= 2; ++j)
    for (int c : {3, 4, 5, 8, 11}) EXPECT_DOUBLE_EQ(grouped(j, c), repeated(j, c)) << j << "," << c;
}

TEST(SurvivalKaplanMeier, LifeTableFollowsTheActuarialFormulas) {
  // Width 10. [0,10): 16 entering, deaths at 1, 2, 5 .. 9.5 (8), censored 3, 4 (2).
  // [10,20): 6 entering, death 11, censored 5.
  std::vector<double> t{1, 2, 3, 4, 5, 6, 7, 8, 9, 9.5, 11, 12, 13, 14, 15, 16};
  std::vector<double> s{1, 1, 0, 0, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0};
  std::vector<double> w(t.size(), 1.0), tab(4 * 12, 0.0), last{0}, tot{0};
  ASSERT_EQ(0, RunLife(t.data(), s.data(), w.data(), 16, nullptr, 0, 0, 1, -1, 10.0, 4, tab.data(),
                       last.data(), tot.data()));
  auto at = [&](int r, int c) { return tab[static_cast<std::size_t>(c - 1) * 4 + r]; };
  ASSERT_EQ(last[0], 2);
  EXPECT_EQ(tot[0], 16);
  expect_cells(at, {{1, 1, 0}, {1, 2, 10}, {1, 6, 15}, {2, 3, 6}, {2, 6, 3.5}});  // n' = n - c/2
  const double p2 = 1 - 1 / 3.5, h2 = 1 / (10 * 3.0);
  expect_cells(at,
               {{1, 7, 1 - 8.0 / 15},
                {1, 9, (8.0 / 15) / 10},
                {1, 10, 8.0 / (10 * (15 - 4))},
                {2, 8, (7.0 / 15) * p2},
                {2, 11, (8.0 / 15) / (15 * 7.0 / 15) + (1 / 3.5) / (3.5 * p2)},
                {2, 10, h2},
                {2, 12, h2 * std::sqrt(1 - (h2 * 5) * (h2 * 5))}},
               true);
}

TEST(SurvivalNelsonAalen, VarianceMethodsAndTheLogTransformedInterval) {
  KM km({1, 2, 2, 3, 3, 4}, {0, 1, 1, 1, 0, 0});
  // Rows: t=1 (6, 0, 1), t=2 (5, 2, 0), t=3 (3, 1, 1), t=4 (1, 0, 1).
  for (int method : {1, 2, 3}) {
    std::vector<double> na(4 * 9);
    ASSERT_EQ(0, Cpp_TransNelsonAalen(km.tab.data(), km.R, 4, 0.05, method, na.data()));
    auto at = [&](int r, int c) { return na[static_cast<std::size_t>(c - 1) * 4 + r - 1]; };
    expect_cells(at, {{1, 5, M}, {1, 9, M}, {4, 1, 4}});  // no event yet on row 1
    const double v2 = method == 1 ? 2.0 / 25 : method == 2 ? 3.0 * 2 / 125 : 3.0 * 2 / (25 * 4);
    const double v3 = method == 1 ? 1.0 / 9 : method == 2 ? 2.0 / 27 : 2.0 / (9 * 2);
    expect_cells(at,
                 {{2, 5, 0.4},
                  {3, 5, 0.4 + 1.0 / 3},
                  {2, 6, v2},
                  {3, 6, v2 + v3},
                  {3, 7, std::sqrt(v2 + v3)}},
                 true);
    const double H = at(3, 5), f = std::exp(1.959963984540054 * at(3, 7) / H);
    EXPECT_NEAR(at(3, 8), H / f, 1e-14);
    EXPECT_NEAR(at(3, 9), H * f, 1e-14);
    for (int c = 5; c <= 9; ++c) EXPECT_EQ(at(4, c), at(3, c));  // no event: carried forward
  }
}

TEST(SurvivalCharts, StepPointsClippedBandHazardLogLogAndMarkers) {
  KM km({1, 2, 2, 3}, {0, 1, 0, 1});  // S: 1 (censored), 2/3, 0
  const int T = km.rows(), P = 2 * T + 1, C = 2 * T - 1;
  std::vector<double> mainS(static_cast<std::size_t>(P) * 7), haz(static_cast<std::size_t>(C) * 3),
      ll(haz.size());
  ASSERT_EQ(0, Cpp_PrepareKaplanCharts(km.tab.data(), km.R, T, -1, -1, -1, 1.0, 0.05, 1,
                                       mainS.data(), P, haz.data(), ll.data(), C));
  auto m = [&](int pt, int c) { return mainS[static_cast<std::size_t>(c - 1) * P + pt - 1]; };
  auto h = [&](int pt, int c) { return haz[static_cast<std::size_t>(c - 1) * C + pt - 1]; };
  auto l = [&](int pt, int c) { return ll[static_cast<std::size_t>(c - 1) * C + pt - 1]; };
  // Row 2 (t = 2, S = 2/3) gives points 5 (x = 2) and 6 (x = 3), its upper limit clipped at 1; the
  // last row one point only. Censored markers: rows 1 and 2 (points 3 and 5), not row 3.
  expect_cells(m, {{1, 1, 0},
                   {2, 1, 1},
                   {2, 4, 1},
                   {2, 5, 0},
                   {5, 1, 2},
                   {6, 1, 3},
                   {5, 3, 1},
                   {7, 4, 0},
                   {3, 6, 1},
                   {7, 6, M}});
  expect_cells(m, {{6, 4, 2.0 / 3}, {5, 5, 1.0 / 3}, {5, 6, 2.0 / 3}, {5, 7, 1.0 / 3}}, true);
  const double half = 1.959963984540054 * (2.0 / 3) * std::sqrt((1.0 / 3) / (2.0 / 3) / 3);
  EXPECT_NEAR(m(5, 2), 2.0 / 3 - half, 1e-12);
  // Hazard: S = 1 gives -ln 1 = 0; S = 0 gives no point. Log-log: not at S = 1 nor S = 0. Marker
  // mode 1: every censored row.
  expect_cells(h, {{1, 2, 0}, {5, 2, M}});
  EXPECT_EQ(l(1, 2), M);
  expect_cells(h, {{3, 2, -std::log(2.0 / 3)}, {3, 3, h(3, 2)}}, true);
  expect_cells(l, {{3, 1, std::log(2.0)}, {3, 2, std::log(-std::log(2.0 / 3))}}, true);
  // Other marker mode: only rows with events and censorings (row 2), not row 1; failure option
  // off, but the origin points carry failure 0.
  ASSERT_EQ(0, Cpp_PrepareKaplanCharts(km.tab.data(), km.R, T, -1, -1, 0, 1.0, 0.05, 0,
                                       mainS.data(), P, haz.data(), ll.data(), C));
  EXPECT_EQ(h(1, 3), M);
  EXPECT_DOUBLE_EQ(h(3, 3), h(3, 2));
  expect_cells(m, {{5, 5, M}, {1, 5, 0}});
}

TEST(SurvivalMeanMedian, QuartilesMeanAndTimeCap) {
  auto run = [](const KM& km, double* cap, double* mean, double* q) {
    return Cpp_ComputeKaplanMeanMedian(km.tab.data(), km.R, km.rows() + 1, 0.05, km.R - 1, cap,
                                       mean, q);
  };
  double cap, mean[4], q[12];
  auto quartile = [&](int k, int) { return q[k]; };
  // No censoring, S reaches 0: cap 0 and the full area (mean of the times). S = 0.25 exactly at
  // t = 6: midpoint of 6 and 8; S = 0.5 exactly at 4, next time 6.
  KM full({2, 4, 6, 8}, {1, 1, 1, 1});
  ASSERT_EQ(0, run(full, &cap, mean, q));
  EXPECT_EQ(cap, 0);
  EXPECT_DOUBLE_EQ(mean[0], 5);
  EXPECT_EQ(std::vector<double>(q, q + 6), (std::vector<double>{0.75, 0.5, 0.25, 7, 5, 3}));
  // S = 0.5 exactly at time 10, next time 12: median 11.
  KM half({10, 10, 12, 13}, {1, 1, 1, 0});
  ASSERT_EQ(0, run(half, &cap, mean, q));
  EXPECT_EQ(q[4], 11);
  // A curve ending at 0.4: the 0.75 row (S = 0.25) is missing, the others filled (S = 0.5
  // exactly at 5).
  KM end({1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, {1, 1, 1, 1, 1, 1, 0, 0, 0, 0});
  ASSERT_EQ(0, run(end, &cap, mean, q));
  expect_cells(quartile, {{3, 0, M}, {6, 0, M}, {9, 0, M}, {4, 0, 5.5}, {5, 0, 3}});
  // Time cap over the censored-only rows 7..10: row 7 sets 7, row 8 does not move it (t_7 is not
  // above the cap), row 9 sets 9, row 10 does not (deliberate). The area stops at t = 8 < 9.
  EXPECT_EQ(cap, 9);
  EXPECT_DOUBLE_EQ(mean[0], 1 + 0.9 + 0.8 + 0.7 + 0.6 + 0.5 + 0.4 + 0.4);
  EXPECT_GT(mean[1], 0);
  EXPECT_NEAR(mean[2], std::max(0.0, mean[0] - 1.959963984540054 * mean[1]), 1e-12);
  EXPECT_NEAR(mean[3], mean[0] + 1.959963984540054 * mean[1], 1e-12);
  // k - 1 < 1: no standard error.
  ASSERT_EQ(0, Cpp_ComputeKaplanMeanMedian(end.tab.data(), end.R, end.rows() + 1, 0.05, 1, &cap,
                                           mean, q));
  EXPECT_EQ(mean[1], M);
  EXPECT_EQ(mean[3], M);
}

TEST(SurvivalMeanMedian, QuartileLimitsScanTheSquaredGreenwoodBand) {
  // Ten events at 1..10: S_j = 1 - j/10, G_j = j / (10 (10 - j)); by hand, with c = 3.8415, the
  // rows inside the band (S_j - p)^2 <= S_j^2 c G_j are 5..9 for p = 0.25, 3..7 for 0.5 and 1..5
  // for 0.75: lower limit the first such time, upper limit the time after the last.
  KM km({1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, {1, 1, 1, 1, 1, 1, 1, 1, 1, 1});
  double cap, mean[4], q[12];
  ASSERT_EQ(0, Cpp_ComputeKaplanMeanMedian(km.tab.data(), km.R, 11, 0.05, 10, &cap, mean, q));
  const double time[3] = {8, 5.5, 3}, lower[3] = {5, 3, 1}, upper[3] = {10, 8, 6};
  for (int r = 0; r < 3; ++r) {
    EXPECT_EQ(q[3 + r], time[r]) << r;
    EXPECT_EQ(q[6 + r], lower[r]) << r;
    EXPECT_EQ(q[9 + r], upper[r]) << r;
  }
}

TEST(SurvivalTests, IdenticalGroupsSingleEventTimeAndLoneSubjects) {
  // Identical groups: U = 0, X^2 = 0, p = 1.
  const double t[] = {1, 2, 3, 4, 1, 2, 3, 4}, s[] = {1, 0, 1, 1, 1, 0, 1, 1},
               g[] = {1, 1, 1, 1, 2, 2, 2, 2};
  const FlatChain same = Chain(t, s, g, 8);
  for (int r = 0; r < 3; ++r) {
    EXPECT_NEAR(same.tests[static_cast<std::size_t>(r)], 0, 1e-15);
    EXPECT_NEAR(same.tests[static_cast<std::size_t>(6 + r)], 1, 1e-15);
  }
  // One event time: the weight cancels, the three statistics agree.
  const double t1[] = {5, 6, 7, 5, 6, 7, 8}, s1[] = {1, 0, 0, 0, 0, 0, 0},
               g1[] = {1, 1, 1, 2, 2, 2, 2};
  const FlatChain one = Chain(t1, s1, g1, 7);
  EXPECT_GT(one.tests[0], 0);
  EXPECT_NEAR(one.tests[1], one.tests[0], 1e-12);
  EXPECT_NEAR(one.tests[2], one.tests[0], 1e-12);
  // Hand values, G = 2: event at t=5 with n = (3, 4): U = 1 - 3/7, V = 3/7 * 4/7 (D = 1, N = 7).
  EXPECT_NEAR(one.tests[0], (4.0 / 7) * (4.0 / 7) / (12.0 / 49), 1e-12);
  // A time with one subject at risk adds to U but not to V: the group-2 death at 9 after all
  // others left changes U only. Combined table checked directly.
  const double comb[] = {1, 2, 1, 0, 1, 0, 0,   // t=1: group 1 (2 at risk, 1 event), group 2 (1, 0)
                         9, 0, 0, 0, 1, 1, 0};  // t=9: only group 2's lone subject, who dies
  double res[12];
  ASSERT_EQ(0, ComputeLifeTests(comb, 2, 2, 0.05, res));
  const double U = (1 - 2.0 / 3) + (0 - 0), V = 1 * 2.0 / 3 * (1 - 2.0 / 3);
  EXPECT_NEAR(res[0], U * U / V, 1e-12);
}

// ---------------------------------------------------------------------------------------------
// Bad input: every flat entry point with empty, tiny, non-finite and inconsistent arguments.
// The status is the documented one and nothing outside the caller's arrays changes.
// ---------------------------------------------------------------------------------------------
namespace {
struct BadCase {
  const char* name;
  std::vector<double> t, s, w, sizes;
  int expectedPrep;
};
std::vector<BadCase> BadCases() {
  return {
      {"n = 0", {}, {}, {}, {}, -2},
      {"n = 1", {3}, {1}, {1}, {1}, -2},
      {"NaN time", {kNaN, 2, 1}, {1, 0, 1}, {1, 1, 1}, {3}, 0},
      {"infinite times", {kInf, 2, -kInf}, {1, 1, 0}, {1, 1, 1}, {3}, 0},
      {"missing time", {M, 2, 5}, {1, 1, 0}, {1, 1, 1}, {3}, 0},
      {"missing status", {1, 2, 5}, {M, 1, 0}, {1, 1, 1}, {3}, -1},
      {"NaN status", {1, 2, 5}, {kNaN, 1, 0}, {1, 1, 1}, {3}, 0},
      {"negative weights", {1, 2, 5, 6}, {1, 1, 0, 1}, {-1, 2, -3, 1}, {4}, 0},
      {"sizes exceed n", {1, 2, 5, 6}, {1, 1, 0, 1}, {1, 1, 1, 1}, {3, 9}, 0},
      {"sizes short of n", {1, 2, 5, 6}, {1, 1, 0, 1}, {1, 1, 1, 1}, {1, 1}, 0},
      {"negative and NaN sizes", {1, 2, 5, 6}, {1, 1, 0, 1}, {1, 1, 1, 1}, {-5, kNaN, 1e300}, 0},
  };
}
}  // namespace

TEST(SurvivalBadInput, EveryFlatEntryStaysInsideItsArrays) {
  for (const BadCase& bc : BadCases()) {
    SCOPED_TRACE(bc.name);
    const int n = static_cast<int>(bc.t.size());
    const int G = static_cast<int>(bc.sizes.size());
    Guarded t(bc.t), s(bc.s), w(bc.w), g(n, 1.0), sizes(bc.sizes), mx(1);
    EXPECT_EQ(ReorganizeData(t.p(), n, s.p(), w.p(), g.p(), sizes.p(), G, 0, mx.p()),
              bc.expectedPrep);
    const int Gs = std::max(G, 1), R = n + 1;
    Guarded tab(Gs * R * 12), last(Gs), tot(Gs);
    EXPECT_EQ(
        RunLife(t.p(), s.p(), w.p(), n, sizes.p(), G, 0, 1, 0, 0, R, tab.p(), last.p(), tot.p()),
        0);
    Guarded lifeTab(Gs * 3 * 12), lifeLast(Gs), lifeTot(Gs);
    EXPECT_EQ(RunLife(t.p(), s.p(), w.p(), n, sizes.p(), G, 0, 1, -1, 0.5, 3, lifeTab.p(),
                      lifeLast.p(), lifeTot.p()),
              0);
    const int T = static_cast<int>(last[0]);
    Guarded na(std::max(T, 0) * 9), cap(1), mean(4), q(12), codes(n), rec(n), summary(Gs * 6),
        wsum(Gs * 5);
    EXPECT_EQ(Cpp_TransNelsonAalen(tab.p(), R, T, 0.05, 3, na.p()), 0);
    EXPECT_EQ(Cpp_ComputeKaplanMeanMedian(tab.p(), R, T + 1, 0.05, n, cap.p(), mean.p(), q.p()), 0);
    const int P = 2 * T + 1, C = std::max(2 * T - 1, 0);
    Guarded mainS(P * 7), haz(C * 3), ll(C * 3);
    EXPECT_EQ(Cpp_PrepareKaplanCharts(tab.p(), R, T, -1, -1, -1, 1, 0.05, 0, mainS.p(), P, haz.p(),
                                      ll.p(), C),
              0);
    unsigned int k = 0;
    const int cs = Cpp_CheckStatusFormat(s.p(), n, codes.p(), &k, 0, rec.p());
    EXPECT_TRUE(cs == 0 || cs == -1);
    EXPECT_EQ(Cpp_Build_Summary(tab.p(), R, G, last.p(), tot.p(), summary.p()), 0);
    EXPECT_EQ(Cpp_Build_WeightedSummary(t.p(), s.p(), w.p(), n, sizes.p(), G, 1, wsum.p()), 0);
    int count = n + 1;
    Guarded comb((3 * Gs + 1) * count), res(12), pairs(std::max(3 * Gs * (Gs - 1) / 2, 0) * 7);
    EXPECT_EQ(LoadKaplanTest(&count, tab.p(), Gs, R, last.p(), comb.p()), 0);
    EXPECT_EQ(ComputeLifeTests(comb.p(), count, Gs, 0.05, res.p()), 0);
    EXPECT_EQ(Cpp_ComputeMultComp(comb.p(), count, Gs, 0.05, pairs.p()), 0);
    for (Guarded* a : {&t,       &s,        &w,       &g,   &sizes, &mx,    &tab, &last,  &tot,
                       &lifeTab, &lifeLast, &lifeTot, &na,  &cap,   &mean,  &q,   &codes, &rec,
                       &summary, &wsum,     &comb,    &res, &pairs, &mainS, &haz, &ll})
      EXPECT_TRUE(a->intact());
  }
}

TEST(SurvivalBadInput, SizesTooLargeForTheArraysAreClippedAndNullArraysRefused) {
  // A table shorter than the stated group size: the rows that do not fit are dropped.
  Guarded t{1, 2, 3, 4}, s{1, 1, 0, 1}, w{1, 1, 1, 1}, tab(2 * 12), last(1), tot(1);
  EXPECT_EQ(RunLife(t.p(), s.p(), w.p(), 4, nullptr, 0, 0, 1, 0, 0, 2, tab.p(), last.p(), tot.p()),
            0);
  EXPECT_TRUE(tab.intact());
  EXPECT_DOUBLE_EQ(tab[1 + 7 * 2], 0.75);  // row 1 survival fits
  // Group offsets beyond n: the later groups are empty (0 rows).
  Guarded sizes{4, 3}, tab2(2 * 5 * 12), last2(2), tot2(2);
  EXPECT_EQ(
      RunLife(t.p(), s.p(), w.p(), 4, sizes.p(), 2, 0, 1, 0, 0, 5, tab2.p(), last2.p(), tot2.p()),
      0);
  EXPECT_EQ(last2[0], 4);
  EXPECT_EQ(last2[1], 0);
  EXPECT_TRUE(tab2.intact());
  // Null arrays with a positive length: status 3, nothing written.
  EXPECT_EQ(
      RunLife(nullptr, s.p(), w.p(), 4, nullptr, 0, 0, 1, 0, 0, 5, tab2.p(), last2.p(), tot2.p()),
      VELKOR_E_NULL_ARRAY);
  EXPECT_EQ(ReorganizeData(t.p(), 4, s.p(), w.p(), t.p(), nullptr, 1, 0, nullptr),
            VELKOR_E_NULL_ARRAY);
  double res[12];
  EXPECT_EQ(ComputeLifeTests(nullptr, 3, 2, 0.05, res), VELKOR_E_NULL_ARRAY);
  // One group: nothing to compare, the statistics are missing.
  const double comb[] = {1, 3, 1, 0};
  ASSERT_EQ(ComputeLifeTests(comb, 1, 1, 0.05, res), 0);
  EXPECT_EQ(res[0], M);
  EXPECT_EQ(res[9], 0.05);
}

// ---------------------------------------------------------------------------------------------
// Object interface: the full analysis agrees with the flat chain.
// ---------------------------------------------------------------------------------------------
TEST(SurvivalObjects, FullAnalysisMatchesTheFlatChainAndReportsDataConditions) {
  const int n = LEN(lung_time);
  cST_DataSet data;
  std::vector<double> status(lung_status, lung_status + n);
  for (double& v : status) v = v == 1 ? 2 : 1;  // lung's own coding: 2 dead, 1 censored
  data.add(u"time", lung_time, static_cast<std::uint32_t>(n));
  data.add(u"status", status.data(), static_cast<std::uint32_t>(n));
  data.add(u"sex", lung_group, static_cast<std::uint32_t>(n));
  SURV_Param param;
  param.eventCode = 2;
  param.groupColumn = 2;
  cSURV_Results res;
  cST_FactorsInfo factors;
  VELKORInfo info;
  ASSERT_EQ(Cpp_RunLife_ST(data, param, res, factors, info), 0);
  ASSERT_EQ(res.groups.size(), 2u);
  EXPECT_EQ(res.groups[0].rows, static_cast<std::uint32_t>(LEN(lung_g1_t)));
  for (int j = 1; j <= LEN(lung_g2_t); ++j)
    ExpectRel(lung_g2_surv[j - 1], (*res.groups[1].table[7])[static_cast<std::uint32_t>(j)], 1e-13,
              "S", j);
  ExpectRel(lung_g1_mean[2], (*res.groups[0].mean[0])[0], 1e-12, "mean", 0);
  EXPECT_EQ((*res.groups[1].quartiles[1])[1], lung_g2_quartiles[1]);
  for (int r = 0; r < 3; ++r)
    ExpectRel(lung_tests[r], (*res.tests[0])[static_cast<std::uint32_t>(r)], 1e-10, "X2", r);
  EXPECT_EQ(res.pairwise.size(), 7u);
  EXPECT_EQ(res.groups[0].mainSeries.size(), 7u);
  EXPECT_EQ(res.groups[0].nelsonAalen.size(), 9u);
  std::vector<VectDPtr> report, naChart;
  ASSERT_EQ(Cpp_Build_LifeTable_ST(res.groups[0], 0, 0.05, report), 0);
  EXPECT_EQ(report.size(), 8u);
  ExpectRel(std::sqrt(lung_g1_greenwood[0]) * lung_g1_surv[0], (*report[5])[0], 1e-12, "SE", 0);
  ASSERT_EQ(PrepareNelsonACharts_ST(res.groups[0], naChart), 0);
  EXPECT_EQ(naChart.size(), 5u);

  // The life-table variant: 14 report columns and a chart.
  param.lifeTable = -1;
  param.intervalWidth = 100;
  cSURV_Results life;
  ASSERT_EQ(Cpp_RunLife_ST(data, param, life, factors, info), 0);
  ASSERT_EQ(Cpp_Build_LifeTable_ST(life.groups[0], -1, 0.05, report), 0);
  EXPECT_EQ(report.size(), 14u);
  EXPECT_EQ((*report[1])[0], 100);
  ASSERT_EQ(PrepareLifeChart_ST(life.groups[0], 0.05, naChart), 0);
  EXPECT_EQ((*naChart[0])[1], 100);

  // Data conditions: a status outside the codes is a warning-free recode (censored); one row
  // is -2 with the error record filled; a missing column is a null array.
  cST_DataSet tiny;
  const double one = 5;
  tiny.add(u"time", &one, 1);
  tiny.add(u"status", &one, 1);
  param = SURV_Param{};
  EXPECT_EQ(Cpp_RunLife_ST(tiny, param, res, factors, info), -1);  // status 5 with event code 1
  param.eventCode = 5;
  EXPECT_EQ(Cpp_RunLife_ST(tiny, param, res, factors, info), -2);
  EXPECT_EQ(info.error.status, -2);
  param.statusColumn = 7;
  EXPECT_EQ(Cpp_RunLife_ST(tiny, param, res, factors, info), VELKOR_E_NULL_ARRAY);
}
