// Vector routines: the conventions on missing values, masks and divisors that callers rely on.
#include <gtest/gtest.h>

#include <cmath>

#include "companion/vectors.h"
#include "core/numeric.h"
#include "support/columns.h"

using velkor::kMissing;

using testing_support::column;

TEST(Vectors, SumsExtremaAndCountsOverTheFirstN) {
  auto v = column({1, 5, 3, kMissing, 2});
  EXPECT_EQ(V_Sum2(&v, 3), 9.0);
  EXPECT_EQ(V_Max2(&v, 5), 5.0);
  short m[5] = {0, -1, 0, 0, 0};
  matrix<short> mask(5, 1, m, 0);
  EXPECT_EQ(V_Max(&v, 5, &mask), 3.0);
  EXPECT_EQ(V_NbNonMissing(&v, 5), 4);
  EXPECT_EQ(V_Sum2(&v, 99), V_Sum2(&v, 5));  // n clipped to the container
  EXPECT_EQ(V_Sum2(&v, -1), 0.0);
  auto d = column({2, 1, 2, kMissing, 1, 3});
  EXPECT_EQ(V_NbDistinct(&d, 6), 3);
  EXPECT_TRUE(V_IsConstant(&d, 1));
  EXPECT_FALSE(V_IsConstant(&d, 2));
  EXPECT_FALSE(V_IsSorted(&d, 3));
}

TEST(Vectors, MeansAndVariancesUseTheirStatedDivisors) {
  auto v = column({2, 4, 4, 4, 5, 5, 7, 9});  // mean 5, total sum of squares 32
  EXPECT_DOUBLE_EQ(V_Mean2(&v, 8), 5.0);
  EXPECT_DOUBLE_EQ(V_Var2(&v, 8, 0, 0), 4.0);         // divisor N: V x N = SS
  EXPECT_DOUBLE_EQ(V_Var2(&v, 8, 1, 0), 32.0 / 7.0);  // divisor N - 1
  EXPECT_DOUBLE_EQ(V_Var(&v, 8, nullptr), 32.0 / 7.0);
  // Frequency weights equal repeated rows.
  auto x = column({1, 3});
  auto w = column({3, 1});
  auto rep = column({1, 1, 1, 3});
  EXPECT_DOUBLE_EQ(V_Mean(&x, 2, &w), V_Mean2(&rep, 4));
  EXPECT_DOUBLE_EQ(V_Var(&x, 2, &w), V_Var(&rep, 4, nullptr));
  EXPECT_EQ(V_Var(&x, 1, nullptr), kMissing);  // one value: no sample variance
}

TEST(Vectors, MeanStdevHonoursMaskAndMissingValues) {
  auto v = column({1, 2, kMissing, 3, 100});
  short m[5] = {0, 0, 0, 0, -1};
  matrix<short> mask(5, 1, m, 0);
  double mean = 0, sd = 0;
  V_MeanStdev(&v, 5, mean, sd, &mask, nullptr, -1, -1);
  EXPECT_DOUBLE_EQ(mean, 2.0);
  EXPECT_DOUBLE_EQ(sd, 1.0);
  V_MeanStdev(&v, 5, mean, sd, &mask, nullptr, 0, -1);
  EXPECT_DOUBLE_EQ(sd, std::sqrt(2.0 / 3.0));
  short all[5] = {-1, -1, -1, -1, -1};
  matrix<short> none(5, 1, all, 0);
  V_MeanStdev(&v, 5, mean, sd, &none, nullptr, -1, -1);
  EXPECT_EQ(mean, kMissing);
  EXPECT_EQ(sd, kMissing);
}

TEST(Vectors, QuantilesInterpolateLikeTheUsualMedian) {
  auto odd = column({5, 1, 3});
  auto even = column({4, 1, 3, 2});
  EXPECT_EQ(V_Quantile(&odd, 3, 0.5), 3.0);
  EXPECT_EQ(V_Quantile(&even, 4, 0.5), 2.5);
  EXPECT_EQ(V_Quantile(&even, 4, 0.0), 1.0);
  EXPECT_EQ(V_Quantile(&even, 4, 1.0), 4.0);
  EXPECT_DOUBLE_EQ(V_Quantile(&even, 4, 0.25), 1.75);  // R type 7
  auto empty = column({kMissing});
  EXPECT_EQ(V_Quantile(&empty, 1, 0.5), kMissing);
  auto w = column({1, 1, 1, 1});
  EXPECT_EQ(V_QuantileW(&even, 4, 0.5, &w), 2.5);
}

TEST(Vectors, KendallTauMatchesThePairwiseDefinitionWithTies) {
  // tau-b computed pairwise for a small tied sample.
  std::vector<double> xs = {1, 2, 2, 3, 4, 4, 5, 7};
  std::vector<double> ys = {2, 1, 3, 3, 5, 4, 4, 9};
  double conc = 0, tx = 0, ty = 0, n0 = 0;
  for (std::size_t i = 0; i < xs.size(); ++i)
    for (std::size_t j = i + 1; j < xs.size(); ++j) {
      const double s = (xs[i] - xs[j]) * (ys[i] - ys[j]);
      conc += (s > 0) - (s < 0);
      tx += xs[i] == xs[j];
      ty += ys[i] == ys[j];
      n0 += 1;
    }
  const double expected = conc / std::sqrt((n0 - tx) * (n0 - ty));
  auto x = column(xs), y = column(ys);
  EXPECT_NEAR(V_KendallTau(&x, 8, &y), expected, 1e-15);
  auto c = column({1, 1, 1});
  EXPECT_EQ(V_KendallTau(&c, 3, &y), 0.0);
}

TEST(Vectors, PearsonAndHelpers) {
  auto x = column({1, 2, 3, 4});
  auto y = column({2, 4, 6, 8});
  EXPECT_NEAR(V_PearsonRho(&x, &y, 4), 1.0, 1e-15);
  auto z = column({0, 0, 0, 0});
  V_Set1toN(&z, 3);
  EXPECT_EQ(z.data[2], 3.0);
  EXPECT_EQ(z.data[3], 0.0);
  EXPECT_EQ(V_ReplaceVal2(&z, 4, 0.0, -1.0), 1);
  matrix<short> mask(3, 1);
  mask.data[1] = -1;
  InitVectorToFalse(&mask, 3);
  EXPECT_EQ(mask.data[1], 0);
}
