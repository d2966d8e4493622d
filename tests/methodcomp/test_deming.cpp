// Deming regression: the closed form, its guarded form, the iteratively weighted fit on
// replicates, and both drivers with jackknife standard errors against explicit refits in R.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "methodcomp/deming.h"
#include "reference/methodcomp/methodcomp_fixtures.inc"
#include "test_helpers.h"

namespace mc = velkor::methodcomp;
using namespace mctest;
using namespace methodcomp_ref;
using velkor::kMissing;

namespace {

struct RegResult {
  int status;
  Vec coef, fitted, resid, info;
};

// DemingRegression when `subject` is null and `weighted` is 1, else NewDemingRegression.
RegResult run_reg(const Vec& x, const Vec& y, double lambda, double alpha,
                  const Vec* subject = nullptr, short weighted = 1) {
  const int n = static_cast<int>(x.size());
  auto mx = col(x), my = col(y), c = out(8), info = out(3), f = out(x.size()), r = out(x.size());
  matrix<double> ms = col(subject ? *subject : Vec{});
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
  auto x = col({1, 2, 4, 7}), y = col({3, 5, 9, 15}), w = col({1, 1, 1, 1});
  double a = 0, b = 0;
  EXPECT_EQ(mc::Deming(&x, &y, &w, 4, 1.0, a, b), 0);  // y = 2x + 1
  EXPECT_NEAR(b, 2.0, 1e-15);
  EXPECT_NEAR(a, 1.0, 1e-14);
  // Syy = Sxx with Sxy > 0 and lambda = 1: b = 1.
  auto u = col({1, 2, 3, 4}), v = col({2, 1, 4, 3});
  EXPECT_EQ(mc::Deming(&u, &v, &w, 4, 1.0, a, b), 0);
  EXPECT_DOUBLE_EQ(b, 1.0);
  // Weights act as frequencies: weight 2 equals the row repeated.
  auto x3 = col({1, 2, 4, 7, 7}), y3 = col({3, 5.5, 9, 14, 14}), w3 = col({1, 1, 1, 1, 1});
  auto x2 = col({1, 2, 4, 7}), y2 = col({3, 5.5, 9, 14}), w2 = col({1, 1, 1, 2});
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
  auto x = col(xs), y = col(ys);
  double a = 0, b = 0;
  EXPECT_EQ(mc::NewDeming(&x, &y, nullptr, 5, lambda, a, b), 0);
  EXPECT_NEAR(b, static_cast<double>(bref), 1e-15 * static_cast<double>(bref));
  // lambda = +inf: least squares of y on x.
  EXPECT_EQ(mc::NewDeming(&x, &y, nullptr, 5, INFINITY, a, b), 0);
  EXPECT_NEAR(b, static_cast<double>(Sxy / Sxx), 1e-15);
  // Undefined: all x equal (Sxy = 0), lambda <= 0, fewer than 2 rows; weights <= 0 skip rows.
  auto c = col({3, 3, 3}), d = col({1, 2, 4});
  EXPECT_EQ(mc::NewDeming(&c, &d, nullptr, 3, 1.0, a, b), -5);
  EXPECT_EQ(a, kMissing);
  EXPECT_EQ(mc::NewDeming(&x, &y, nullptr, 5, 0.0, a, b), -5);
  EXPECT_EQ(mc::NewDeming(&x, &y, nullptr, 1, 1.0, a, b), -2);
  auto w = col({1, 0, -1, kMissing, std::nan("")});
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
  auto size = col({2, 2, 2, 0});
  auto x = col({0.5, 1.5, 2.5, 3.5, 5.5, 6.5}), y = col({1.2, 2.6, 3.4, 4.8, 9.1, 10.5});
  double b = 0, a = 0;
  int it = 0;
  ASSERT_EQ(mc::WeightedDeming(&size, 4, &x, &y, 6, 50, 1e-14, b, a, it), 0);
  auto mx = col({1, 3, 6}), my = col({1.9, 4.1, 9.8}), w = col({1, 1, 1});
  double a0 = 0, b0 = 0;
  mc::Deming(&mx, &my, &w, 3, 0.98 / 0.5, a0, b0);
  EXPECT_NEAR(b, b0, 1e-13);
  EXPECT_NEAR(a, a0, 1e-12);
  EXPECT_LE(it, 3);
  // Single replicates carry no error information: fewer than two weighted subjects.
  auto ones = col({1, 1, 1});
  EXPECT_EQ(mc::WeightedDeming(&ones, 3, &x, &y, 6, 50, 1e-12, b, a, it), -2);
  EXPECT_EQ(b, kMissing);
}
