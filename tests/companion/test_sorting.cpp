// SortQ: stable block sorts carrying companion columns, the order of special values, and the
// two-pass grouping the survival preparation relies on.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "companion/sorting.h"
#include "core/numeric.h"
#include "support/columns.h"

using testing_support::column;
using testing_support::values;

TEST(SortQ, SortsABlockCarryingColumnsAndKeepsTiesInInputOrder) {
  auto key = column({9, 3, 1, 3, 2, 0});
  auto tag = column({0, 1, 2, 3, 4, 5});
  SortQ(&key, 2, 5, {&tag});  // rows 2..5 only
  EXPECT_EQ(values(key), (std::vector<double>{9, 1, 2, 3, 3, 0}));
  EXPECT_EQ(values(tag), (std::vector<double>{0, 2, 4, 1, 3, 5}));  // 3s keep their order
}

TEST(SortQ, KeyCanStayInPlaceSoTwoPassesAlignColumns) {
  // Sort status by label without moving the labels, then times by label moving them: only a
  // stable sort gives the same permutation in both passes.
  auto label = column({2, 1, 2, 1, 1, 2});
  auto status = column({1, 0, 0, 1, 1, 0});
  auto times = column({10, 20, 30, 40, 50, 60});
  SortQ(&label, 1, 6, {&status}, false);
  EXPECT_EQ(values(label), (std::vector<double>{2, 1, 2, 1, 1, 2}));
  SortQ(&label, 1, 6, {&times}, true);
  EXPECT_EQ(values(label), (std::vector<double>{1, 1, 1, 2, 2, 2}));
  EXPECT_EQ(values(times), (std::vector<double>{20, 40, 50, 10, 30, 60}));
  EXPECT_EQ(values(status), (std::vector<double>{0, 1, 1, 1, 0, 0}));
}

TEST(SortQ, SpecialValuesOrderMissingFirstNanLast) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  auto key =
      column({nan, 1, velkor::kMissing, -std::numeric_limits<double>::infinity(), -0.0, 0.0});
  auto tag = column({0, 1, 2, 3, 4, 5});
  SortQ(&key, 1, 6, {&tag});
  EXPECT_EQ(values(tag), (std::vector<double>{3, 2, 4, 5, 1, 0}));  // -0 and 0 tie: input order
  EXPECT_TRUE(std::isnan(key.data[5]));
}

TEST(SortQ, MultiColumnAndIntegerCompanionsMoveWholeRows) {
  auto key = column({3, 1, 2});
  double xs[6] = {30, 10, 20, 300, 100, 200};
  matrix<double> x(3, 2, xs, 0);
  int is[3] = {3, 1, 2};
  matrix<int> ids(3, 1, is, 0);
  SortQ(&key, 1, 3, {&x}, {&ids}, true);
  EXPECT_EQ(x(1, 2), 100.0);
  EXPECT_EQ(x(3, 1), 30.0);
  EXPECT_EQ(ids(2), 2);
}

TEST(SortQ, OutOfRangeBlocksAreClippedOrIgnored) {
  auto key = column({3, 2, 1});
  SortQ(&key, 0, 99, {});
  EXPECT_EQ(values(key), (std::vector<double>{1, 2, 3}));
  SortQ(&key, 3, 1, {});  // empty block
  SortQ(nullptr, 1, 3, {});
  EXPECT_EQ(values(key), (std::vector<double>{1, 2, 3}));
}

// Up to 16 distinct keys take the counting sort, more the radix sort (from 512 keys): both must
// give the stable order, with -0 equal to 0 and NaN last.
TEST(SortOrder, CountingAndRadixPathsAgreeWithStableSort) {
  for (int half : {1, 7, 8, 500}) {  // 3 + NaN, 15 + NaN (= 16), 17 + NaN, 1001 + NaN values
    std::mt19937_64 rng(7);
    std::uniform_int_distribution<int> d(-half, half);
    std::vector<double> v(20000);
    for (auto& x : v) x = d(rng) * 0.25;  // many ties
    v[17] = std::numeric_limits<double>::quiet_NaN();
    v[18] = -0.0;
    const auto order = SortOrder(v.data(), v.size());
    std::vector<std::uint32_t> ref(v.size());
    for (std::uint32_t i = 0; i < ref.size(); ++i) ref[i] = i;
    std::stable_sort(ref.begin(), ref.end(), [&](auto a, auto b) {
      if (std::isnan(v[a])) return false;
      if (std::isnan(v[b])) return true;
      return v[a] < v[b];
    });
    EXPECT_EQ(order, ref) << half;
  }
}

// Keys already in order take the one-pass shortcut; keys out of order only at the very end, or
// only through the zero/negative-zero and NaN mapping, must still come out as a stable sort.
TEST(SortOrder, InputAlreadyInOrderAndNearlyInOrder) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  std::vector<double> v(5000);
  for (std::size_t i = 0; i < v.size(); ++i) v[i] = static_cast<double>(i / 3);  // ties
  v[4998] = nan;
  v[4999] = nan;
  std::vector<std::uint32_t> identity(v.size());
  for (std::uint32_t i = 0; i < identity.size(); ++i) identity[i] = i;
  EXPECT_EQ(SortOrder(v.data(), v.size()), identity);

  const std::vector<double> zeros{-0.0, 0.0, -0.0, 1.0};  // equal keys: input order kept
  EXPECT_EQ(SortOrder(zeros.data(), zeros.size()), (std::vector<std::uint32_t>{0, 1, 2, 3}));

  v[4998] = 0.5;  // the last key but one descends: a full sort is needed
  v[4999] = -1.0;
  const auto order = SortOrder(v.data(), v.size());
  EXPECT_EQ(order.front(), 4999u);
  EXPECT_EQ(order[1], 0u);
  EXPECT_EQ(order[4], 4998u);  // 0.5 after the three zeros and before the first 1.0
  auto m = column({1.0, 2.0, 2.0, 3.0});
  auto carried = column({10.0, 20.0, 21.0, 30.0});
  SortQ(&m, 1, 4, {&carried}, true);
  EXPECT_EQ(values(carried), (std::vector<double>{10.0, 20.0, 21.0, 30.0}));
}
