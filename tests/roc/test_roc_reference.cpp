// ROC results on pROC's aSAH data against R (pROC 1.18.0 and the published Hanley-McNeil and
// Bamber formulas evaluated in R): see tests/reference/roc/make_roc_fixtures.R.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "core/numeric.h"
#include "roc/contingency.h"
#include "roc/roc_curve.h"

namespace {
#include "reference/roc/asah_fixture.inc"

using velkor::kMissing;

// Relative closeness with an absolute floor for values near zero.
::testing::AssertionResult Close(double got, double want, double rel) {
  const double tol = rel * std::max(1.0, std::fabs(want));
  if (std::fabs(got - want) <= tol) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << got << " vs " << want << " (tol " << tol << ")";
}

struct RocRun {
  int status = 0, k = 0;
  std::vector<double> curve, auc;
};

RocRun run_roc(const std::vector<double>& values, int seMethod) {
  const int n = static_cast<int>(values.size());
  matrix<double> st(n, 1, const_cast<double*>(asah::status.data()), 0);
  matrix<double> v(n, 1, const_cast<double*>(values.data()), 0);
  matrix<double> none(0, 1), curve(n + 1, 3), auc(9, 1);
  matrix<int> counts(3, 1);
  RocRun r;
  r.status = velkor::roc::ComputeROC(&st, &v, &none, n, 1, 0.05, seMethod, 0, 0, 0, 0.0, &none,
                                     &curve, &none, &none, &auc, &none, &counts);
  r.k = counts(1);
  r.curve.assign(curve.data, curve.data + curve.count);
  r.auc.assign(auc.data, auc.data + 9);
  return r;
}

struct Marker {
  const char* name;
  const std::vector<double>& values;
  double auc, varDeLong, seHanley, seBamber;
  const std::vector<double>&fpr, &tpr;
};

const Marker kMarkers[] = {
    {"s100b", asah::s100b, asah::s100b_auc, asah::s100b_var_delong, asah::s100b_se_hanley,
     asah::s100b_se_bamber, asah::s100b_fpr, asah::s100b_tpr},
    {"ndka", asah::ndka, asah::ndka_auc, asah::ndka_var_delong, asah::ndka_se_hanley,
     asah::ndka_se_bamber, asah::ndka_fpr, asah::ndka_tpr},
    {"wfns", asah::wfns, asah::wfns_auc, asah::wfns_var_delong, asah::wfns_se_hanley,
     asah::wfns_se_bamber, asah::wfns_fpr, asah::wfns_tpr}};

}  // namespace

// AUC against pROC's auc(); the three standard errors against pROC's DeLong variance and the
// published formulas (same formulas: 1e-12 relative); the curve holds exactly pROC's distinct
// (1 - Sp, Se) points, in the same order.
TEST(RocReference, AreaStandardErrorsAndCurveMatchR) {
  for (const Marker& m : kMarkers) {
    SCOPED_TRACE(m.name);
    const RocRun hm = run_roc(m.values, 0), bam = run_roc(m.values, 1), dl = run_roc(m.values, 2);
    ASSERT_EQ(hm.status, 0);
    EXPECT_TRUE(Close(hm.auc[0], m.auc, 1e-12));
    EXPECT_TRUE(Close(hm.auc[1], m.seHanley, 1e-12));
    EXPECT_TRUE(Close(bam.auc[1], m.seBamber, 1e-12));
    EXPECT_TRUE(Close(dl.auc[1] * dl.auc[1], m.varDeLong, 1e-12));
    // Two-sided test and interval from the DeLong SE.
    const double se = std::sqrt(m.varDeLong), z = 1.959963984540054;
    EXPECT_TRUE(Close(dl.auc[2], std::max(0.0, m.auc - z * se), 1e-10));
    EXPECT_TRUE(Close(dl.auc[3], std::min(1.0, m.auc + z * se), 1e-10));
    EXPECT_TRUE(Close(dl.auc[4], (m.auc - 0.5) / se, 1e-10));
    EXPECT_TRUE(Close(dl.auc[7], std::erfc((m.auc - 0.5) / se / std::sqrt(2.0)), 1e-9));

    const std::size_t rows = m.values.size() + 1;
    ASSERT_EQ(static_cast<std::size_t>(dl.k + 1), m.fpr.size());
    for (int i = 0; i <= dl.k; ++i) {
      EXPECT_NEAR(dl.curve[i], m.fpr[i], 1e-14) << "row " << i;
      EXPECT_NEAR(dl.curve[rows + i], m.tpr[i], 1e-14) << "row " << i;
    }
    EXPECT_EQ(dl.curve[2 * rows], kMissing);  // the end point (0, 0) has no threshold
    EXPECT_EQ(dl.curve[dl.k + 1], kMissing);  // rows past the curve
  }
}

// Paired DeLong comparisons against roc.test(paired = TRUE, method = "delong") and
// cov(method = "delong"); the global test against the chi-square built from pROC's covariances.
TEST(RocReference, PairedComparisonsMatchR) {
  const int n = static_cast<int>(asah::status.size()), m = 3;
  std::vector<double> values;
  for (const Marker& mk : kMarkers) values.insert(values.end(), mk.values.begin(), mk.values.end());
  matrix<double> st(n, 1, const_cast<double*>(asah::status.data()), 0);
  matrix<double> v(n, m, values.data(), 0);
  matrix<double> w(0, 1), aucs(m, 4), cov(m, m), global(3, 1), pairs(3, 8);
  ASSERT_EQ(velkor::roc::ComputeROCComparisonsDep(&st, &v, &w, n, m, 1, 0.05, &aucs, &cov, &global,
                                                  &pairs),
            0);
  for (int r = 1; r <= 3; ++r) {
    EXPECT_TRUE(Close(aucs(r, 1), kMarkers[r - 1].auc, 1e-12));
    EXPECT_TRUE(Close(cov(r, r), kMarkers[r - 1].varDeLong, 1e-12));
  }
  const int pr[3][2] = {{1, 2}, {1, 3}, {2, 3}};
  for (int p = 0; p < 3; ++p) {
    SCOPED_TRACE(p);
    EXPECT_EQ(pairs(p + 1, 1), pr[p][0]);
    EXPECT_EQ(pairs(p + 1, 2), pr[p][1]);
    EXPECT_TRUE(Close(cov(pr[p][0], pr[p][1]), asah::pair_cov[p], 1e-12));
    EXPECT_TRUE(Close(cov(pr[p][1], pr[p][0]), asah::pair_cov[p], 1e-12));
    EXPECT_TRUE(Close(pairs(p + 1, 7), asah::pair_z[p], 1e-10));
    EXPECT_TRUE(Close(pairs(p + 1, 8), asah::pair_p[p], 1e-10));
  }
  EXPECT_TRUE(Close(global(1), asah::global_chi2, 1e-10));
  EXPECT_EQ(global(2), 2.0);
  EXPECT_TRUE(Close(global(3), asah::global_p, 1e-10));
}

// Classification statistics of s100b at 0.205 (rule >=) against the textbook intervals computed
// in R (prop.test, binom.test, delta-method log limits), for method 0 (with its deliberate split)
// and method 3; and against pROC's coords().
TEST(RocReference, ClassificationStatisticsMatchR) {
  const int n = static_cast<int>(asah::status.size());
  matrix<std::u16string> labels(n, 1);
  for (int i = 0; i < n; ++i) labels.at0(i) = asah::status[i] == 1.0 ? u"Poor" : u"Good";
  matrix<double> v(n, 1, const_cast<double*>(asah::s100b.data()), 0);
  matrix<double> w(0, 1), table(2, 2);
  velkor::roc::CreateROCContingencyTable(&labels, n, u"Poor", &v, 0, 0.205, 3, &w, &table);
  const double abcd[4] = {table(1, 1), table(1, 2), table(2, 1), table(2, 2)};
  for (int k = 0; k < 4; ++k) EXPECT_EQ(abcd[k], asah::table_abcd[k]);

  matrix<double> stats(13, 3), props(3, 3);
  velkor::roc::GetROCStats(&table, 0.05, 0, 0, 0.0, &stats, &props);
  for (int k = 0; k < 39; ++k)
    EXPECT_TRUE(Close(stats.data[k], asah::stats_method0[k], 1e-12)) << k;
  for (int k = 0; k < 4; ++k)
    EXPECT_TRUE(Close(stats(k == 0 ? 3 : k == 1 ? 4 : k + 6, 1), asah::proc_coords[k], 1e-14));

  velkor::roc::GetROCStats(&table, 0.05, 3, 0, 0.0, &stats, &props);
  for (int k = 0; k < 39; ++k)
    EXPECT_TRUE(Close(stats.data[k], asah::stats_method3[k], 1e-10)) << k;

  velkor::roc::GetROCStats(&table, 0.05, 2, -1, 0.0, &stats, &props);
  for (int c = 0; c < 3; ++c) {
    EXPECT_TRUE(Close(stats(3, c + 1), asah::se_wilson_cc[c], 1e-12));
    EXPECT_TRUE(Close(stats(4, c + 1), asah::sp_wilson_cc[c], 1e-12));
  }
}
