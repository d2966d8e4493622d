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

namespace {

#include "reference/survival/survival_fixtures.inc"

constexpr double M = VELKOR_MISSING;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

void ExpectRel(double expected, double actual, double tol, const char* what, int i) {
  const double scale = std::max(1.0, std::fabs(expected));
  EXPECT_LE(std::fabs(expected - actual), tol * scale) << what << " at " << i << ": expected "
                                                       << expected << ", got " << actual;
}

// Arrays with guard cells on both sides: any write outside the caller's n cells shows up.
struct Guarded {
  static constexpr int kPad = 8;
  static constexpr double kGuard = 12345.678;
  std::vector<double> buf;
  int n;
  explicit Guarded(int size, double init = 0.0) : buf(static_cast<std::size_t>(std::max(size, 0)) + 2 * kPad, kGuard), n(size) {
    for (int i = 0; i < n; ++i) buf[kPad + static_cast<std::size_t>(i)] = init;
  }
  Guarded(std::initializer_list<double> v) : Guarded(static_cast<int>(v.size())) {
    std::copy(v.begin(), v.end(), buf.begin() + kPad);
  }
  double* p() { return buf.data() + kPad; }
  double& operator[](int i) { return buf[kPad + static_cast<std::size_t>(i)]; }
  bool intact() const {
    for (int i = 0; i < kPad; ++i)
      if (buf[static_cast<std::size_t>(i)] != kGuard || buf[buf.size() - 1 - static_cast<std::size_t>(i)] != kGuard) return false;
    return true;
  }
};

// The whole flat analysis of one data set, as the front end chains the calls.
struct FlatAnalysis {
  int n = 0, G = 0, R = 0, prepStatus = 0;
  std::vector<double> t, s, w, g, sizes, tables, lastRows, totals, combined, tests, pairs;
  int T = 0;

  FlatAnalysis(const double* time, const double* status, const double* group, int count,
               double alpha = 0.05) {
    n = count;
    t.assign(time, time + n);
    s.assign(status, status + n);
    g.assign(group, group + n);
    w.assign(static_cast<std::size_t>(n), 1.0);
    std::vector<double> labels(g);
    std::sort(labels.begin(), labels.end());
    labels.erase(std::unique(labels.begin(), labels.end()), labels.end());
    G = static_cast<int>(labels.size());
    for (double l : labels) sizes.push_back(static_cast<double>(std::count(g.begin(), g.end(), l)));
    double maxTime = 0;
    prepStatus = ReorganizeData(t.data(), n, s.data(), w.data(), g.data(), sizes.data(), G, 0, &maxTime);
    R = static_cast<int>(*std::max_element(sizes.begin(), sizes.end())) + 1;
    tables.assign(static_cast<std::size_t>(G) * R * 12, 0.0);
    lastRows.assign(static_cast<std::size_t>(G), 0.0);
    totals.assign(static_cast<std::size_t>(G), 0.0);
    EXPECT_EQ(0, RunLife(t.data(), s.data(), w.data(), n, sizes.data(), G, 0, 1, 0, 0.0, R,
                         tables.data(), lastRows.data(), totals.data()));
    T = n;
    combined.assign(static_cast<std::size_t>(3 * G + 1) * T, 0.0);
    EXPECT_EQ(0, LoadKaplanTest(&T, tables.data(), G, R, lastRows.data(), combined.data()));
    // Re-pack to the number of columns actually used.
    std::vector<double> packed(static_cast<std::size_t>(3 * G + 1) * T);
    for (int c = 0; c < T; ++c)
      for (int r = 0; r < 3 * G + 1; ++r)
        packed[static_cast<std::size_t>(c) * (3 * G + 1) + r] = combined[static_cast<std::size_t>(c) * (3 * G + 1) + r];
    combined = packed;
    tests.assign(12, 0.0);
    EXPECT_EQ(0, ComputeLifeTests(combined.data(), T, G, alpha, tests.data()));
    pairs.assign(static_cast<std::size_t>(3 * G * (G - 1) / 2) * 7, 0.0);
    EXPECT_EQ(0, Cpp_ComputeMultComp(combined.data(), T, G, alpha, pairs.data()));
  }
  const double* table(int k) const { return tables.data() + static_cast<std::size_t>(k) * R * 12; }
  double cell(int k, int row, int col) const { return table(k)[static_cast<std::size_t>(col - 1) * R + row]; }
  int rows(int k) const { return static_cast<int>(lastRows[static_cast<std::size_t>(k)]); }
};

struct GroupRef {
  const double *t, *nrisk, *nevent, *ncens, *surv, *greenwood, *cumhaz, *varhaz, *quartiles, *mean;
  int size;
};

void CompareGroup(const FlatAnalysis& a, int k, const GroupRef& ref) {
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
  }
  // Nelson-Aalen with Aalen's variance (method 1) = survfit's cumhaz and std.chaz^2.
  std::vector<double> na(static_cast<std::size_t>(ref.size) * 9);
  ASSERT_EQ(0, Cpp_TransNelsonAalen(a.table(k), a.R, ref.size, 0.05, 1, na.data()));
  for (int j = 1; j <= ref.size; ++j) {
    if (ref.cumhaz[j - 1] == 0.0) {
      EXPECT_EQ(na[static_cast<std::size_t>(4 * ref.size + j - 1)], M);  // before the first event
      continue;
    }
    ExpectRel(ref.cumhaz[j - 1], na[static_cast<std::size_t>(4 * ref.size + j - 1)], 1e-13, "H", j);
    ExpectRel(ref.varhaz[j - 1], na[static_cast<std::size_t>(5 * ref.size + j - 1)], 1e-12, "Var H", j);
  }
  double cap = -1, mean[4], q[12];
  ASSERT_EQ(0, Cpp_ComputeKaplanMeanMedian(a.table(k), a.R, ref.size + 1, 0.05, ref.size, &cap, mean, q));
  EXPECT_EQ(cap, ref.mean[0]);
  ExpectRel(ref.mean[2], mean[0], 1e-12, "restricted mean", k);
  ExpectRel(ref.mean[3], mean[1], 1e-10, "se(rmean)", k);
  for (int r = 0; r < 3; ++r) EXPECT_EQ(q[3 + r], ref.quartiles[r]) << "quartile row " << r + 1;
}

#define GROUP(p, size) \
  GroupRef { p##_t, p##_nrisk, p##_nevent, p##_ncens, p##_surv, p##_greenwood, p##_cumhaz, p##_varhaz, p##_quartiles, p##_mean, size }
#define LEN(a) static_cast<int>(sizeof(a) / sizeof(a[0]))

}  // namespace

TEST(SurvivalReferenceR, LungBySexMatchesSurvfitAndSurvdiff) {
  FlatAnalysis a(lung_time, lung_status, lung_group, LEN(lung_time));
  EXPECT_EQ(a.prepStatus, 0);
  ASSERT_EQ(a.G, 2);
  CompareGroup(a, 0, GROUP(lung_g1, LEN(lung_g1_t)));
  CompareGroup(a, 1, GROUP(lung_g2, LEN(lung_g2_t)));
  // Rows log-rank, Gehan, Tarone-Ware: X^2, critical value, p-value, alpha (results 3 x 4).
  for (int r = 0; r < 3; ++r) {
    ExpectRel(lung_tests[r], a.tests[static_cast<std::size_t>(r)], 1e-10, "X2", r);
    EXPECT_NEAR(a.tests[static_cast<std::size_t>(3 + r)], 3.841458820694124, 1e-12);
    // One degree of freedom: P(chi2_1 > x) = erfc(sqrt(x / 2)).
    ExpectRel(std::erfc(std::sqrt(lung_tests[r] / 2)), a.tests[static_cast<std::size_t>(6 + r)], 1e-10, "p", r);
    EXPECT_EQ(a.tests[static_cast<std::size_t>(9 + r)], 0.05);
  }
  // One pair: the pairwise statistics are the overall ones, Bonferroni = Holm = raw p.
  for (int k = 0; k < 3; ++k) {
    EXPECT_NEAR(a.pairs[static_cast<std::size_t>(3 * 3 + k)], lung_tests[k], 1e-9);
    EXPECT_EQ(a.pairs[static_cast<std::size_t>(5 * 3 + k)], a.pairs[static_cast<std::size_t>(4 * 3 + k)]);
    EXPECT_EQ(a.pairs[static_cast<std::size_t>(6 * 3 + k)], a.pairs[static_cast<std::size_t>(4 * 3 + k)]);
  }
}

TEST(SurvivalReferenceR, VeteranFourCellTypesMatchSurvdiffOnThreeDegreesOfFreedom) {
  FlatAnalysis a(veteran_time, veteran_status, veteran_group, LEN(veteran_time));
  ASSERT_EQ(a.G, 4);
  CompareGroup(a, 0, GROUP(veteran_g1, LEN(veteran_g1_t)));
  CompareGroup(a, 1, GROUP(veteran_g2, LEN(veteran_g2_t)));
  CompareGroup(a, 2, GROUP(veteran_g3, LEN(veteran_g3_t)));
  CompareGroup(a, 3, GROUP(veteran_g4, LEN(veteran_g4_t)));
  for (int r = 0; r < 3; ++r) ExpectRel(veteran_tests[r], a.tests[static_cast<std::size_t>(r)], 1e-10, "X2", r);
  EXPECT_NEAR(a.tests[3], 7.814727903251178, 1e-10);  // qchisq(0.95, 3)
  // Six pairs, log-rank rows 1, 4, 7, ...; Bonferroni and Holm over the six log-rank p-values.
  const int P = 6;
  std::vector<double> raw;
  for (int p = 0; p < P; ++p) {
    const auto row = static_cast<std::size_t>(3 * p);
    ExpectRel(veteran_pairwise_logrank[p], a.pairs[3 * P * 3 + row], 1e-10, "pairwise", p);
    raw.push_back(a.pairs[3 * P * 4 + row]);
    EXPECT_DOUBLE_EQ(a.pairs[3 * P * 5 + row], std::min(1.0, P * raw.back()));
  }
  std::vector<int> order(P);
  std::iota(order.begin(), order.end(), 0);
  std::sort(order.begin(), order.end(), [&](int x, int y) { return raw[x] < raw[y]; });
  double running = 0;
  for (int i = 0; i < P; ++i) {
    running = std::max(running, std::min(1.0, (P - i) * raw[static_cast<std::size_t>(order[i])]));
    EXPECT_DOUBLE_EQ(a.pairs[3 * P * 6 + static_cast<std::size_t>(3 * order[i])], running);
  }
  EXPECT_EQ(a.pairs[0], 1.0);  // pair 1 = groups (1, 2)
  EXPECT_EQ(a.pairs[3 * P], 2.0);
  EXPECT_EQ(a.pairs[3 * P * 2 + 1], 2.0);  // second row of pair 1: test 2 (Gehan)
}
