// Shared inversion, Newton step and least squares.
#include <gtest/gtest.h>

#include <cmath>

#include "companion/linalg.h"

namespace {
matrix<double> mat(std::uint32_t r, std::uint32_t c, std::vector<double> colmajor) {
  return matrix<double>(r, c, colmajor.data(), 0);
}
}  // namespace

TEST(Inverse, ScaledPivotingHandlesBadlyScaledRows) {
  // Rows on wildly different scales: implicit scaling picks pivots by relative size.
  auto a = mat(3, 3, {1e-10, 3, 1, 2e-10, 1, 4, 1e-10, 2, 5});
  matrix<double> inv(3, 3);
  short flag = 1;
  ASSERT_EQ(M_Inverse(&a, &inv, flag, 0.0), 0);
  EXPECT_EQ(flag, 0);
  for (int i = 1; i <= 3; ++i)
    for (int j = 1; j <= 3; ++j) {
      double s = 0;
      for (int k = 1; k <= 3; ++k) s += inv(i, k) * a(k, j);  // inv * A: terms of order one
      EXPECT_NEAR(s, i == j ? 1.0 : 0.0, 1e-14) << i << "," << j;
    }
}

TEST(Inverse, ZeroRowAndSingularMatricesFailWithZeroInverse) {
  auto zero_row = mat(2, 2, {1, 0, 2, 0});
  matrix<double> inv(2, 2);
  short flag = 0;
  EXPECT_EQ(M_Inverse(&zero_row, &inv, flag, 0.0), -1);
  EXPECT_EQ(flag, -1);
  auto singular = mat(2, 2, {1, 2, 2, 4});
  inv(1, 1) = 5;
  EXPECT_EQ(M_Inverse(&singular, &inv, flag, 1e-12), -2);
  EXPECT_EQ(inv(1, 1), 0.0);
  // The threshold depends on the sign of the tolerance: 1e-8 for positive, epsilon otherwise.
  auto near = mat(2, 2, {1, 1, 1, 1 + 1e-10});
  EXPECT_EQ(M_Inverse(&near, &inv, flag, 1.0), -2);
  EXPECT_EQ(M_Inverse(&near, &inv, flag, 0.0), 0);
  auto nan = mat(1, 1, {NAN});
  EXPECT_LT(M_Inverse(&nan, &inv, flag, 0.0), 0);
}

TEST(NewtonRaphson, OneStepSolvesAQuadraticAndRespectsFixedParameters) {
  // l(b) = -(b1-1)^2 - 2(b2+3)^2: gradient and Hessian at b = 0.
  auto beta = mat(2, 1, {0, 0});
  auto g = mat(2, 1, {2, -12});
  auto h = mat(2, 2, {-2, 0, 0, -4});
  matrix<double> inv(2, 2), se(2, 1);
  EXPECT_EQ(cNewtonRaphson(&beta, 2, nullptr, &g, &h, 1e-9, &inv, &se, -1, 1.0), 0);
  EXPECT_DOUBLE_EQ(beta(1), 1.0);
  EXPECT_DOUBLE_EQ(beta(2), -3.0);
  EXPECT_DOUBLE_EQ(se(1), std::sqrt(0.5));
  auto fixed = mat(2, 1, {0, 1});
  auto b2 = mat(2, 1, {0, 0});
  cNewtonRaphson(&b2, 2, &fixed, &g, &h, 1e-9, &inv, &se, -1, 1.0);
  EXPECT_EQ(b2(2), 0.0);
  // A step below the tolerance reports convergence; an already-inverted matrix is used as is.
  auto tiny = mat(2, 1, {1e-12, 0});
  auto b3 = mat(2, 1, {0, 0});
  EXPECT_EQ(cNewtonRaphson(&b3, 2, nullptr, &tiny, &h, 1e-9, &inv, &se, 0, 0.5), 1);
  auto sing = mat(2, 2, {1, 1, 1, 1});
  EXPECT_LT(cNewtonRaphson(&b3, 2, nullptr, &g, &sing, 1e-9, &inv, &se, -1, 1.0), 0);
}

TEST(OLS, WeightedFitEqualsRepeatedRowsAndAliasesConstantColumns) {
  // y = 1 + 2x exactly, plus a duplicated column that must be aliased.
  auto X = mat(4, 3, {1, 1, 1, 1, 0, 1, 2, 3, 0, 2, 4, 6});
  auto y = mat(4, 1, {1, 3, 5, 7});
  matrix<double> c(3, 1);
  EXPECT_EQ(OLSBasic(&X, &y, nullptr, 4, 3, &c, 1e-4, 1e-4), 2);
  EXPECT_NEAR(c(1), 1.0, 1e-12);
  EXPECT_NEAR(c(2), 2.0, 1e-12);
  EXPECT_EQ(c(3), 0.0);
  // Weighted least squares with weights (2, 1) equals the fit with the first row repeated.
  auto Xw = mat(3, 2, {1, 1, 1, 0, 1, 3});
  auto yw = mat(3, 1, {1, 2, 2});
  auto w = mat(3, 1, {2, 1, 1});
  auto Xr = mat(4, 2, {1, 1, 1, 1, 0, 0, 1, 3});
  auto yr = mat(4, 1, {1, 1, 2, 2});
  matrix<double> cw(2, 1), cr(2, 1);
  OLSBasic(&Xw, &yw, &w, 3, 2, &cw, 1e-4, 1e-4);
  OLSBasic(&Xr, &yr, nullptr, 4, 2, &cr, 1e-4, 1e-4);
  EXPECT_NEAR(cw(1), cr(1), 1e-12);
  EXPECT_NEAR(cw(2), cr(2), 1e-12);
}

TEST(MatrixRoutines, RemoveColumnsRowsAndGroupMeans) {
  auto m = mat(2, 3, {1, 2, 3, 4, 5, 6});
  M_RemoveCol(&m, 2);
  EXPECT_EQ(m.cols, 2u);
  EXPECT_EQ(m(1, 2), 5.0);
  auto flags = mat(2, 1, {1, 0});
  EXPECT_EQ(M_RemoveRowsInList(&m, &flags), 1);
  EXPECT_EQ(m.rows, 1u);
  EXPECT_EQ(m(1, 2), 6.0);
  auto v = mat(2, 1, {1, 2});
  auto B = mat(2, 2, {2, 1, 1, 3});
  EXPECT_EQ(M_ProductTrVBV(&v, &B, 2), 2 + 2 + 2 + 12.0);
  auto g = mat(4, 2, {1, 2, 3, 5, 1, 1, 2, 9});  // values | subject codes (9 is out of range)
  matrix<double> means(3, 1);
  EXPECT_EQ(M_GroupBy(&g, 2, 1, &means), 2);
  EXPECT_EQ(means(1), 1.5);
  EXPECT_EQ(means(2), 3.0);
  EXPECT_EQ(means(3), -1.79769313486231e+308);
}
