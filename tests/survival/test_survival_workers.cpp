// Workers of the descriptive survival family called directly (static library): the parts the
// flat interface does not show (workspace, merging of risk sets, singular covariance, stable
// ordering) and invariants on real data.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "core/numeric.h"
#include "survival/charts.h"
#include "survival/kaplan_meier.h"
#include "survival/life_tests.h"
#include "survival/preparation.h"

namespace {
#include "reference/survival/survival_fixtures.inc"

matrix<double> Column(std::vector<double> v) {
  matrix<double> m(static_cast<std::uint32_t>(v.size()), 1, v.data(), 0);
  return m;
}
}  // namespace

TEST(SurvivalWorkers, StableOrderingKeepsTiesInInputOrderWithinEachBlock) {
  matrix<double> t = Column({2, 1, 2, 2, 1}), s = Column({1, 0, 0, 1, 1}),
                 w = Column({1, 2, 3, 4, 5}), g = Column({7, 7, 7, 7, 7}), sizes = Column({5});
  int n = 5;
  cReorganizeResult r;
  EXPECT_EQ(cReorganizeData(&t, n, &s, &w, &g, &sizes, 1, 0, r), 0);
  EXPECT_EQ(std::vector<double>(w.data, w.data + 5), (std::vector<double>{2, 5, 1, 3, 4}));
  EXPECT_EQ(r.maxTime, 2);
}

TEST(SurvivalWorkers, WorkspaceHoldsEachTimeAndTheNextOne) {
  matrix<double> t = Column({0, 0, 0, 1, 2, 2}), s = Column({0, 0, 0, 1, 0, 1}),
                 w = Column({1, 1, 1, 1, 1, 1});
  matrix<double> table(4, 12), ws(3, 2);
  double total = 0;
  std::uint32_t rows = 0;
  // Block offset 3, size 3: times 1, 2, 2.
  EXPECT_EQ(ComputeKaplanMeier(3, 3, 0, 1, &t, &s, &w, total, &table, rows, &ws), 2);
  EXPECT_EQ(ws(1, 1), 1);
  EXPECT_EQ(ws(1, 2), 2);
  EXPECT_EQ(ws(3, 1), 2);
  EXPECT_EQ(ws(3, 2), 3);  // the last observation: its own time + 1
  EXPECT_DOUBLE_EQ(table(3, 8), 2.0 / 3 * 0.5);
}

TEST(SurvivalWorkers, MergedRiskSetsFillTimesWhereAGroupHasNoObservation) {
  // Group 1: times 1 (1 event), 3 (1 censored); group 2: times 2 (1 event), 3 (1 event).
  const int R = 3;
  matrix<double> source(2 * R * 12, 1), last = Column({2, 2});
  auto put = [&](int g, int row, std::vector<double> cells) {  // columns 1, 3, 4, 5
    const int cols[4] = {1, 3, 4, 5};
    for (int k = 0; k < 4; ++k)
      source.data[(g * 12 + cols[k] - 1) * R + row] = cells[static_cast<std::size_t>(k)];
  };
  put(0, 1, {1, 2, 1, 0});
  put(0, 2, {3, 1, 0, 1});
  put(1, 1, {2, 2, 1, 0});
  put(1, 2, {3, 1, 1, 0});
  int count = 10;
  matrix<double> table(7, 10);
  EXPECT_EQ(cLoadKaplanTest(count, &source, 2, R, &last, &table), 0);
  ASSERT_EQ(count, 3);
  const double expected[3][7] = {
      {1, 2, 1, 0, 2, 0, 0}, {2, 1, 0, 0, 2, 1, 0}, {3, 1, 0, 1, 1, 1, 0}};
  for (int c = 0; c < 3; ++c)
    for (int r = 0; r < 7; ++r) EXPECT_EQ(table(r + 1, c + 1), expected[c][r]) << r << "," << c;
}

TEST(SurvivalWorkers, SingularCovarianceGivesAZeroStatistic) {
  // Group 2 is never at risk when events happen: V = 0, the inverse is the zero matrix.
  matrix<double> table(7, 2);
  const double cells[14] = {1, 3, 1, 0, 0, 0, 0, 2, 2, 1, 0, 0, 0, 0};
  for (int k = 0; k < 14; ++k) table.data[k] = cells[k];
  matrix<double> res(3, 4);
  EXPECT_EQ(cComputeLifeTests(&table, 2, 2, 0.05, &res), 0);
  for (int r = 1; r <= 3; ++r) {
    EXPECT_EQ(res(r, 1), 0);
    EXPECT_EQ(res(r, 3), 1);
  }
}

TEST(SurvivalWorkers, ShortChartSeriesLoseTheirTailToTheSpareElement) {
  matrix<double> t = Column({1, 2, 3, 4}), s = Column({1, 0, 1, 1}), w = Column({1, 1, 1, 1});
  matrix<double> table(5, 12), main(3, 7), haz(1, 3), ll(1, 3);
  double total;
  std::uint32_t rows;
  ComputeKaplanMeier(0, 4, 0, 1, &t, &s, &w, total, &table, rows, nullptr);
  EXPECT_EQ(
      KaplanChartSeries(static_cast<int>(rows), -1, -1, -1, 1, &table, 0.05, &main, &haz, &ll, 1),
      0);
  EXPECT_EQ(main(3, 1), 1);  // the first step point fits
  EXPECT_EQ(main.rows, 3u);
}

TEST(SurvivalWorkers, LungCurvesAreMonotoneAndBelowTheNelsonAalenSurvival) {
  const int n = static_cast<int>(sizeof(lung_time) / sizeof(lung_time[0]));
  matrix<double> t(static_cast<std::uint32_t>(n), 1, const_cast<double*>(lung_time), 0);
  matrix<double> s(static_cast<std::uint32_t>(n), 1, const_cast<double*>(lung_status), 0);
  matrix<double> w(static_cast<std::uint32_t>(n), 1), g(static_cast<std::uint32_t>(n), 1),
      sizes(1, 1);
  for (int i = 0; i < n; ++i) w.data[i] = 1;
  sizes.data[0] = n;
  int count = n;
  cReorganizeResult r;
  ASSERT_EQ(cReorganizeData(&t, count, &s, &w, &g, &sizes, 1, 0, r), 0);
  matrix<double> table(static_cast<std::uint32_t>(n + 1), 12), na(static_cast<std::uint32_t>(n), 9);
  double total;
  std::uint32_t rows;
  ComputeKaplanMeier(0, n, 0, 1, &t, &s, &w, total, &table, rows, nullptr);
  TransNelsonAalen(&table, static_cast<int>(rows), 0.05, 1, &na);
  for (std::uint32_t j = 1; j <= rows; ++j) {
    const double S = table.at0(j, 7), prev = table.at0(j - 1, 7);
    EXPECT_LE(S, prev);
    EXPECT_GE(S, 0);
    // 1 - x <= exp(-x) term by term: the product-limit curve lies below exp(-H).
    if (!velkor::IsMissing(na.at0(j - 1, 4))) {
      EXPECT_LE(S, std::exp(-na.at0(j - 1, 4)) + 1e-15);
    }
  }
}
