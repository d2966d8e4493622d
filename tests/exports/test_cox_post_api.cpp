// Cox post-fit outputs through the exported entry points, against R's survival package (fixtures
// made by tests/reference/cox/make_cox_post_fixtures.R): Breslow baseline hazard and survival,
// martingale, deviance, Schoenfeld and score residuals, the Grambsch-Therneau test; concordance
// index and quality-index rows by their definitions; bad input.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "velkor/VELKORLI1M.h"
#include "velkor/cox_objects.h"

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

// RunCoxReg (Breslow ties) with the post-fit outputs; the per-row survival and the survival at
// the mean are left null when `rowTables` is false.
struct CoxRun {
  int rc = 0, n = 0;
  std::vector<double> beta, base, rows, mean, res;
  CoxRun(const double* t, const double* s, const double* x, const double* strata, int n_, int p,
         int m, int K, bool rowTables = true)
      : n(n_),
        beta(p),
        base(m * K, -7.0),
        rows(n_ * K, -7.0),
        mean(m * K, -7.0),
        res(n_ * (4 + 2 * p), -7.0) {
    std::vector<double> ms(12), gt(9), ct(p * 9), st(p * 4);
    std::vector<int> vs(p);
    int iters = 50, nf = 0;
    double z = 0;
    rc = RunCoxReg(t, s, nullptr, x, strata, nullptr, n, p, m, 0, &iters, 1e-12, -1, 0.05, 0, 0,
                   nullptr, 0.05, -1, K, beta.data(), ms.data(), gt.data(), ct.data(), &z,
                   st.data(), vs.data(), &nf, base.data(), rowTables ? rows.data() : nullptr,
                   rowTables ? mean.data() : nullptr, res.data());
  }
  double R(int i, int c) const { return res[static_cast<std::size_t>(c * n + i)]; }
};
CoxRun lung_run(int K, bool rowTables = true) {
  return CoxRun(kLungTime, kLungStatus, kLungX, nullptr, kLungN, kP, 1, K, rowTables);
}
const int kLungK = static_cast<int>(sizeof(kLungBaseHaz) / sizeof(double));

TEST(CoxPostApi, BaselineAndMeanSurvivalMatchR) {
  const int K = kLungK;
  const CoxRun r = lung_run(K + 2);
  ASSERT_EQ(r.rc, 0);
  for (int j = 0; j < kP; ++j) ExpectClose(r.beta[j], kLungBeta[j], 1e-8, "beta", j);
  for (int k = 0; k < K; ++k) {
    ExpectClose(r.base[k], std::exp(-kLungBaseHaz[k]), kTol, "baseline survival", k);
    ExpectClose(r.mean[k], kLungMeanSurv[k], kTol, "survival at the mean", k);
  }
  // Columns past the last distinct time hold the missing value.
  EXPECT_EQ(r.base[K], kMiss);
  EXPECT_EQ(r.mean[K + 1], kMiss);
  // Survival per row: S0^exp(eta_i), non-increasing in time.
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
  // Null survival outputs are skipped, not a null-array failure (the n x K row table may be too
  // large to ask for), and the other outputs are unchanged without them.
  const CoxRun bare = lung_run(K + 2, false);
  ASSERT_EQ(bare.rc, 0);
  EXPECT_EQ(bare.base, r.base);
  EXPECT_EQ(bare.res, r.res);
}

TEST(CoxPostApi, ResidualsMatchR) {
  const CoxRun r = lung_run(1);
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

TEST(CoxPostApi, StratifiedBaselineAndResidualsMatchR) {
  const int n = kLungN, p = 2;
  const int K1 = static_cast<int>(sizeof(kStrataBaseHaz1) / sizeof(double));
  const int K2 = static_cast<int>(sizeof(kStrataBaseHaz2) / sizeof(double));
  const int K = std::max(K1, K2);
  const CoxRun r(kStrataTime, kStrataStatus, kStrataX, kStrataKey, n, p, 2, K);
  ASSERT_EQ(r.rc, 0);
  for (int j = 0; j < p; ++j) ExpectClose(r.beta[j], kStrataBeta[j], 1e-8, "beta", j);
  for (int k = 0; k < K; ++k) {
    if (k < K1) ExpectClose(r.base[2 * k], std::exp(-kStrataBaseHaz1[k]), kTol, "stratum 1", k);
    if (k < K2) ExpectClose(r.base[2 * k + 1], std::exp(-kStrataBaseHaz2[k]), kTol, "stratum 2", k);
  }
  EXPECT_EQ(r.base[2 * (K - 1) + (K1 < K2 ? 0 : 1)], kMiss);  // past the shorter stratum's times
  for (int i = 0; i < n; ++i) {
    ExpectClose(r.R(i, 2), kStrataMartingale[i], kTol, "mart", i);
    for (int j = 0; j < p; ++j)
      ExpectClose(r.R(i, 6 + j), kStrataScore[j * n + i], kTol, "score", i);
  }
}

TEST(CoxPostApi, DevianceMissingWhenTheFittedHazardIsZero) {
  // The first row is censored before any event: H0 = 0, martingale 0, deviance missing.
  const double t[] = {1, 2, 3, 4, 5}, s[] = {0, 1, 1, 0, 1}, x[] = {0.5, -1, 2, 0, 1};
  const CoxRun r(t, s, x, nullptr, 5, 1, 1, 5);
  ASSERT_EQ(r.rc, 0);
  EXPECT_EQ(r.R(0, 2), 0.0);               // martingale of row 1
  EXPECT_EQ(r.R(0, 3), kMiss);             // deviance of row 1
  EXPECT_EQ(r.R(0, 4), 0.0);               // Schoenfeld of a censored row
  EXPECT_EQ(r.base[0], 1.0);               // no event at time 1
  EXPECT_DOUBLE_EQ(r.base[3], r.base[2]);  // censoring only at time 4: S0 unchanged
}

// The object form on lung (Breslow ties): the same residuals, survival at the mean and the
// proportional-hazards test with each time transform against cox.zph(terms = FALSE).
struct LungObject {
  COX_Param par;
  cCOX_Results res;
  VELKORInfo info;
  int rc = 0;
  explicit LungObject(int transform, int folds = 0, int boot = 0) {
    cST_DataSet d;
    cST_FactorsInfo factors;
    const auto n = static_cast<std::uint32_t>(kLungN);
    d.add(u"time", kLungTime, n);
    d.add(u"status", kLungStatus, n);
    d.add(u"age", kLungX, n);
    d.add(u"sex", kLungX + n, n);
    d.add(u"ph.ecog", kLungX + 2 * n, n);
    factors.quantitative = {2, 3, 4};
    par.ties = 0;
    par.tolerance = 1e-12;
    par.proportionalityTest = -1;
    par.phTransform = transform;
    par.cvFolds = folds;
    par.bootstrapSamples = boot;
    par.seed = 20261122;
    if (folds > 0 || boot > 0) par.tolerance = 1e-9;
    rc = COX_Compute_ST(d, par, res, factors, info);
  }
};

TEST(CoxPostApi, ContainerWorkersAgreeWithTheRun) {
  // SurvFoncCox and ResCox on the tables of cReorganizeDataCox give the run's outputs; ResCox
  // with the caller's cumulative hazard (-log S0) gives the same martingale residuals.
  const int K = kLungK;
  const CoxRun r = lung_run(K);
  ASSERT_EQ(r.rc, 0);
  const auto n = static_cast<std::uint32_t>(kLungN);
  std::vector<double> t(kLungTime, kLungTime + n), st(kLungStatus, kLungStatus + n),
      x(kLungX, kLungX + 3 * n);
  std::vector<int> ntv(1), ncv(1), bsv(n), bzv(n), bev(n);
  int maxTimes = 0;
  ASSERT_EQ(Cpp_ReorganizeDataCox(t.data(), kLungN, kP, st.data(), nullptr, nullptr, x.data(),
                                  nullptr, nullptr, 1, ntv.data(), ncv.data(), bsv.data(),
                                  bzv.data(), bev.data(), &maxTimes),
            0);
  matrix<double> T(n, 1, t.data(), 0), S(n, 1, st.data(), 0), X(n, kP, x.data(), 0), sizes(1, 1),
      B(kP, 1, const_cast<double*>(r.beta.data()), 0);
  sizes.data[0] = kLungN;
  matrix<int> nt(1, 1, ntv.data(), 0), bs(1, n, bsv.data(), 0), bz(1, n, bzv.data(), 0),
      be(1, n, bev.data(), 0);
  ASSERT_EQ(maxTimes, K);
  matrix<double> base(1, static_cast<std::uint32_t>(K)), mean(1, static_cast<std::uint32_t>(K)),
      rows(n, static_cast<std::uint32_t>(K)), hz(1, static_cast<std::uint32_t>(K)),
      res(n, 4 + 2 * kP);
  ASSERT_EQ(SurvFoncCox(kLungN, kP, &nt, &bs, &bz, &be, &X, &B, 1, &sizes, &base, &rows, &mean), 0);
  for (int k = 0; k < K; ++k) {
    EXPECT_EQ(base.data[k], r.base[static_cast<std::size_t>(k)]);
    EXPECT_EQ(mean.data[k], r.mean[static_cast<std::size_t>(k)]);
    hz.data[k] = -std::log(base.data[k]);
  }
  ASSERT_EQ(ResCox(&T, kLungN, kP, &S, &X, &B, &nt, &bs, &bz, &be, 1, &sizes, &hz, &res), 0);
  for (std::uint32_t i = 0; i < n; ++i) {
    ExpectClose(res.data[2 * n + i], r.R(static_cast<int>(i), 2), 1e-12, "martingale", 0);
    EXPECT_EQ(res.data[4 * n + i], r.R(static_cast<int>(i), 4));  // Schoenfeld
  }
  double c = 0;
  ASSERT_EQ(Cpp_ConcordIndex(kLungTime, kLungStatus, kLungX, r.beta.data(), kLungN, kP, &c, nullptr,
                             nullptr),
            0);
  EXPECT_EQ(ConcordIndex(kLungN, kP, &T, &S, &X, &B), c);
  // The object-form workers on a prepared result: -1 when nothing is prepared.
  COX_Param par;
  cCOX_Results empty;
  VELKORInfo info;
  EXPECT_EQ(SurvFoncCox_ST(par, empty), -1);
  EXPECT_EQ(ResCox_ST(par, empty), -1);
  EXPECT_EQ(ConcordIndex_ST(empty), -1);
  EXPECT_EQ(empty.concordance, kMiss);
  EXPECT_EQ(Cox_ProportionalityTest_ST(par, empty), -1);
  EXPECT_EQ(CoxCV_ST(par, empty, info), -1);
  EXPECT_EQ(ComputeBootOut_ST(par, empty, info), -1);
  LungObject o(3);
  ASSERT_EQ(o.rc, 0);
  o.par.cvFolds = 4;
  int calls = 0;
  o.info.progress = [&](std::int64_t done, std::int64_t total) {
    ++calls;
    return done < total;
  };
  EXPECT_EQ(CoxCV_ST(o.par, o.res, o.info), 0);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(o.res.cvTable.count, 6u * 5u);
}

TEST(CoxPostApi, ObjectFormResidualsSurvivalAndPHTestMatchR) {
  const char* names[] = {"identity", "log", "rank", "km"};
  const double* zph[] = {kLungZph_identity, kLungZph_log, kLungZph_rank, kLungZph_km};
  for (int tr = 0; tr < 4; ++tr) {
    SCOPED_TRACE(names[tr]);
    LungObject o(tr);
    ASSERT_EQ(o.rc, 0);
    ASSERT_EQ(o.res.phTest.count, 12u);
    for (int r = 0; r < 4; ++r) {
      ExpectClose(o.res.phTest.data[r], zph[tr][r], 1e-6, "chi-square", r);
      EXPECT_EQ(o.res.phTest.data[4 + r], zph[tr][4 + r]);
      ExpectClose(o.res.phTest.data[8 + r], zph[tr][8 + r], 1e-6, "p-value", r);
    }
    if (tr != 0) continue;
    const int n = kLungN;
    ASSERT_EQ(o.res.residuals.count, static_cast<std::uint32_t>(n * (4 + 2 * kP)));
    for (int i = 0; i < n; ++i) {
      ASSERT_EQ(o.res.rowIndex.data[i], i);  // the fixture rows are already sorted by time
      ExpectClose(o.res.residuals.data[2 * n + i], kLungMartingale[i], kTol, "martingale", i);
      ExpectClose(o.res.residuals.data[3 * n + i], kLungDeviance[i], kTol, "deviance", i);
      for (int j = 0; j < kP; ++j)
        ExpectClose(o.res.residuals.data[(4 + kP + j) * n + i], kLungScore[j * n + i], kTol,
                    "score", i);
    }
    const int K = o.res.maxTimes;
    for (int k = 0; k < K; ++k)
      ExpectClose(o.res.meanSurvival.data[k], kLungMeanSurv[k], kTol, "survival at the mean", k);
    // Survival of each row at its own time: exp(-(delta - martingale)).
    ASSERT_EQ(o.res.rowSurvival.count, static_cast<std::uint32_t>(n));
    for (int i = 0; i < n; ++i)
      ExpectClose(o.res.rowSurvival.data[i], std::exp(-(kLungStatus[i] - kLungMartingale[i])), kTol,
                  "row survival", i);
  }
}

TEST(CoxPostApi, ObjectFormValidationTables) {
  LungObject o(3, 5, 40);
  ASSERT_EQ(o.rc, 0);
  ASSERT_EQ(o.res.cvTable.count, 7u * 5u);
  // Row 1: the model on all rows, pair (D, D0).
  const double D0 = o.res.modelStats.data[2], D = o.res.modelStats.data[8];
  EXPECT_DOUBLE_EQ(o.res.cvTable.data[0], 1.0 - std::exp(-(D0 - D) * 2.0 / (kLungN - kP - 1)));
  EXPECT_DOUBLE_EQ(o.res.cvTable.data[2 * 7], (D0 - D) / D0);
  EXPECT_EQ(o.res.cvTable.data[3 * 7], o.res.concordance);
  EXPECT_GT(o.res.concordance, 0.55);
  for (int f = 1; f <= 5; ++f) EXPECT_NEAR(o.res.cvTable.data[3 * 7 + f], 0.6, 0.3) << f;
  ASSERT_EQ(o.res.bootTable.count, 4u * 6u);
  for (int j = 0; j < 4; ++j) {
    EXPECT_EQ(o.res.bootTable.data[20 + j], 40.0);  // every replicate fitted
    EXPECT_LE(o.res.bootTable.data[12 + j], o.res.bootTable.data[16 + j]);
    EXPECT_GT(o.res.bootTable.data[8 + j], 0.0);
  }
  for (int j = 0; j < kP; ++j) EXPECT_EQ(o.res.bootTable.data[j], o.res.beta.data[j]);
}

TEST(CoxPostApi, ConcordanceAndQualityRowThroughFlatExports) {
  // Ties of time (rows 1-2, both events: not comparable) and of eta (rows 3-4: count 0).
  const double t[] = {1, 1, 2, 3, 4, 5}, s[] = {1, 1, 1, 0, 1, 0};
  const double x[] = {3, 2, 1, 1, 0.5, 2}, beta[] = {1.0};
  double c = 0, num = 0, den = 0;
  ASSERT_EQ(Cpp_ConcordIndex(t, s, x, beta, 6, 1, &c, &num, &den), 0);
  // Directions: row 1 (eta 3) before rows 3..6: 4 concordant; row 2 (eta 2) before rows 3..6:
  // 3 (eta 1, 1, 0.5; not 2); row 3 (eta 1) before 4, 5, 6: 1 (0.5); row 5 before 6: 0.
  EXPECT_EQ(den, 12.0);
  EXPECT_EQ(num, 8.0);
  EXPECT_EQ(c, 8.0 / 12.0);
  const double zero[] = {0.0};
  ASSERT_EQ(Cpp_ConcordIndex(t, s, x, zero, 6, 1, &c, nullptr, nullptr), 0);
  EXPECT_EQ(c, 0.0);                       // all eta equal: nothing concordant
  const double s1[] = {0, 0, 0, 0, 0, 1};  // only the longest time is an event
  ASSERT_EQ(Cpp_ConcordIndex(t, s1, x, beta, 6, 1, &c, nullptr, nullptr), 0);
  EXPECT_EQ(c, kMiss);

  // Quality row with n - p - 1 = 0: (D0 - D) 2 / 0 = +inf gives R-square 1; the rescaled column
  // is 1 / -inf; the pair and concordance columns are unaffected.
  const double ms[] = {0, 0, 20, 0, 0, 0, 0, 0, 12, 0, 0, 0};
  std::vector<double> table(3 * 5, -7.0);
  ASSERT_EQ(Cpp_ComputeCVTable(t, s, x, beta, 2, 1, 12, 20, ms, 2, 3, table.data()), 0);
  EXPECT_EQ(table[1], 1.0);
  EXPECT_EQ(table[4], 0.0);  // 1 / (1 - exp(-40) / 0) = 1 / -inf, IEEE arithmetic as written
  EXPECT_EQ(table[7], 0.4);
  EXPECT_EQ(table[0], -7.0);  // other rows untouched
  // A row out of range writes nothing; the usual case follows the formulas literally.
  ASSERT_EQ(Cpp_ComputeCVTable(t, s, x, beta, 6, 1, 12, 20, ms, 9, 3, table.data()), 0);
  ASSERT_EQ(Cpp_ComputeCVTable(t, s, x, beta, 6, 1, 12, 20, ms, 1, 3, table.data()), 0);
  const double r2 = 1.0 - std::exp(-(20.0 - 12.0) * 2.0 / 4.0);
  EXPECT_DOUBLE_EQ(table[0], r2);
  EXPECT_DOUBLE_EQ(table[3], r2 / (1.0 - std::exp(-40.0) / 4.0));
  EXPECT_EQ(table[9], 8.0 / 12.0);
  EXPECT_DOUBLE_EQ(table[12], 2.0 * (8.0 / 12.0 - 0.5));
  // b <= 0 or a reduction that is not positive: 0.
  ASSERT_EQ(Cpp_ComputeCVTable(t, s, x, beta, 6, 1, 30, 20, ms, 3, 3, table.data()), 0);
  EXPECT_EQ(table[8], 0.0);
}

TEST(CoxPostApi, BootstrapSummaryAndBadInput) {
  // Two statistics, 5 replicates, one failed (missing).
  const double reps[] = {1, 2, 3, 4, kMiss, 10, 10, 10, 10, 10}, est[] = {2.5, 10};
  std::vector<double> out(12);
  ASSERT_EQ(Cpp_ComputeBootOut(reps, 5, 2, est, 0.5, out.data()), 0);
  EXPECT_EQ(out[0], 2.5);
  EXPECT_EQ(out[2], 2.5);                        // mean of 1..4
  EXPECT_DOUBLE_EQ(out[4], std::sqrt(5.0 / 3));  // sd
  EXPECT_EQ(out[5], 0.0);                        // constant statistic
  EXPECT_DOUBLE_EQ(out[6], 1.75);                // type-7 quantile at 0.25
  EXPECT_DOUBLE_EQ(out[8], 3.25);
  EXPECT_EQ(out[10], 4.0);
  EXPECT_EQ(out[11], 5.0);
  // B = 0: nothing used, missing values.
  ASSERT_EQ(Cpp_ComputeBootOut(nullptr, 0, 2, nullptr, 0.05, out.data()), 0);
  EXPECT_EQ(out[2], kMiss);
  EXPECT_EQ(out[10], 0.0);
  // Negative sizes and null arrays never crash.
  double c = 1;
  const double t3[] = {1, 2, 3}, s3[] = {1, 1, 1};
  EXPECT_EQ(Cpp_ConcordIndex(nullptr, nullptr, nullptr, nullptr, -3, -1, &c, nullptr, nullptr), 0);
  EXPECT_EQ(c, kMiss);
  EXPECT_EQ(Cpp_ConcordIndex(t3, s3, nullptr, nullptr, 3, 1, &c, nullptr, nullptr),
            VELKOR_E_NULL_ARRAY);
  EXPECT_EQ(
      Cpp_ComputeCVTable(nullptr, nullptr, nullptr, nullptr, -1, -1, 0, 0, nullptr, 1, -2, nullptr),
      VELKOR_E_NULL_ARRAY);  // the model statistics are required
  const double ms[12] = {};
  EXPECT_EQ(
      Cpp_ComputeCVTable(nullptr, nullptr, nullptr, nullptr, -1, -1, 0, 0, ms, 1, -2, nullptr), 0);
  EXPECT_EQ(Cpp_ComputeBootOut(nullptr, -4, -2, nullptr, 0.05, nullptr), 0);
  EXPECT_EQ(Cpp_ComputeBootOut(reps, 5, 2, est, 0.05, nullptr), VELKOR_E_NULL_ARRAY);
  // NaN times are never compared; a NaN eta is never concordant.
  const double t3n[] = {1, std::nan(""), 3}, s3n[] = {1, 1, 1}, x3[] = {2, 1, 0}, b1[] = {1};
  ASSERT_EQ(Cpp_ConcordIndex(t3n, s3n, x3, b1, 3, 1, &c, nullptr, nullptr), 0);
  EXPECT_EQ(c, 1.0);
}

TEST(CoxPostApi, ValidationEdgeCases) {
  // k larger than n becomes leave-one-out; folds of one row have no comparable pair (missing
  // concordance); B = 0 leaves no bootstrap table. A single event: every fit fails on the
  // resamples without it, which are left out of the counts.
  const double t[] = {1, 2, 3, 4, 5, 6}, s[] = {0, 1, 0, 0, 0, 0}, x[] = {1, 2, 0, 1, 3, 2};
  cST_DataSet d;
  cST_FactorsInfo factors;
  d.add(u"time", t, 6);
  d.add(u"status", s, 6);
  d.add(u"x", x, 6);
  factors.quantitative = {2};
  COX_Param par;
  par.cvFolds = 50;
  par.bootstrapSamples = 30;
  par.seed = 7;
  cCOX_Results res;
  VELKORInfo info;
  const int rc = COX_Compute_ST(d, par, res, factors, info);
  if (rc == 0) {
    ASSERT_EQ(res.cvTable.count, 8u * 5u);
    for (int f = 1; f <= 6; ++f) EXPECT_EQ(res.cvTable.data[3 * 8 + f], kMiss);
    ASSERT_EQ(res.bootTable.count, 2u * 6u);
    EXPECT_LE(res.bootTable.data[10], 30.0);
  } else {
    EXPECT_EQ(rc, -5);  // the fit itself failed: no tables
  }
}

}  // namespace
