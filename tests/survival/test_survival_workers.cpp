// Workers of the descriptive survival family called directly (static library): the parts the
// flat interface does not show (workspace, merging of risk sets, singular covariance) and
// invariants on real data.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "core/numeric.h"
#include "survival/kaplan_meier.h"
#include "survival/life_tests.h"
#include "support/columns.h"
#include "flat_chain.h"

namespace {
#include "reference/survival/survival_fixtures.inc"
}  // namespace

using testing_support::column;

TEST(SurvivalWorkers, WorkspaceHoldsEachTimeAndTheNextOne) {
  matrix<double> t = column({0, 0, 0, 1, 2, 2}), s = column({0, 0, 0, 1, 0, 1}),
                 w = column({1, 1, 1, 1, 1, 1});
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
  matrix<double> source(2 * R * 12, 1), last = column({2, 2});
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

TEST(SurvivalWorkers, LungCurvesAreMonotoneAndBelowTheNelsonAalenSurvival) {
  const int n = static_cast<int>(sizeof(lung_time) / sizeof(lung_time[0]));
  const FlatChain a({lung_time, lung_time + n}, {lung_status, lung_status + n},
                    {lung_group, lung_group + n});
  for (int k = 0; k < a.G; ++k) {
    for (int j = 1; j <= a.rows(k); ++j) {
      const double S = a.cell(k, j, 8), H = a.naCell(k, j, 5);
      EXPECT_LE(S, a.cell(k, j - 1, 8));
      EXPECT_GE(S, 0);
      // 1 - x <= exp(-x) term by term: the product-limit curve lies below exp(-H).
      if (!velkor::IsMissing(H)) {
        EXPECT_LE(S, std::exp(-H) + 1e-15);
      }
    }
  }
}
