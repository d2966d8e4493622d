// Competing risks: data preparation, cumulative incidence with its delta-method standard error,
// and Gray's K-sample test. References: hand-computed fractions; R's cmprsk::cuminc (point
// estimates and "Tests" on mgus2: two and three groups, with and without strata, rho = 0, 0.5,
// 1); the delta-method variance evaluated in R from its quadratic definition
// (tests/reference/competing/make_mgus2.R) and an O(T^2) evaluation of the same sum here against
// the worker's linear-time recurrence; the invariances Gray's statistic must have.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>
#include <vector>

#include "competing/cumulative_incidence.h"
#include "competing/gray_test.h"
#include "core/numeric.h"
#include "reference/competing/mgus2_competing.inc"
#include "support/columns.h"

namespace {

using velkor::kMissing;
using velkor::competing::CumIncCalc;
using velkor::competing::GrayTest;
using velkor::competing::ReorganizeDataCum;
namespace col = velkor::competing::cif_col;

using testing_support::column;

// All-cause product-limit table of time-sorted rows (unit weights): table row j in matrix row
// j + 1, columns 1 time, 3/6 at risk, 4 events, 5 censored, 7 p, 8 S. Returns the last row T.
int product_limit(const std::vector<double>& t, const std::vector<double>& cause,
                  matrix<double>& pl) {
  pl(1, 7) = 1.0;
  pl(1, 8) = 1.0;
  double N = static_cast<double>(t.size()), S = 1.0;
  int j = 0;
  for (std::size_t i = 0; i < t.size();) {
    double d = 0, c = 0;
    std::size_t k = i;
    for (; k < t.size() && t[k] == t[i]; ++k) (cause[k] != 0.0 ? d : c) += 1.0;
    ++j;
    pl(j + 1, 1) = t[i];
    pl(j + 1, 3) = pl(j + 1, 6) = N;
    pl(j + 1, 4) = d;
    pl(j + 1, 5) = c;
    S *= 1.0 - d / N;
    pl(j + 1, 7) = 1.0 - d / N;
    pl(j + 1, 8) = S;
    N -= d + c;
    i = k;
  }
  return j;
}

struct Incidence {
  matrix<double> inc, comp;
  int T;
  explicit Incidence(int rows) : inc(rows, 10), comp(rows, 10), T(rows) {}
};

// Incidence of `cause` in one sorted group (offset 0).
Incidence incidence_of(const std::vector<double>& t, const std::vector<double>& cause, int k,
                       double alpha = 0.05) {
  matrix<double> pl(static_cast<std::uint32_t>(t.size() + 2), 12);
  const int T = product_limit(t, cause, pl);
  Incidence r(T);
  auto tm = column(t), st = column(cause);
  CumIncCalc(T, &tm, &st, k, alpha, static_cast<int>(t.size()), 0, &pl, &r.inc, &r.comp);
  return r;
}

// The delta-method variance of row i straight from its O(T^2) definition, reading F from column
// 6 and e from column 3 of the finished table, n, d and S from the product-limit table.
double quadratic_variance(matrix<double>& inc, matrix<double>& pl, int f, int i) {
  if (i == f) {
    const double n = pl(i + 1, 6), e = inc(i, 3);
    return (n - e) * e / (n * n * n);
  }
  double v = 0.0;
  for (int j = f; j <= i; ++j) {
    const double n = pl(j + 1, 6), d = pl(j + 1, 4), e = inc(j, 3), S = pl(j, 8);
    if (!(n - d > 0.0)) continue;
    const double dF = inc(i, 6) - inc(j, 6);
    v += d * dF * dF / (n * (n - d)) + S * S * e * (n - e) / (n * n * n) -
         2.0 * dF * S * e / (n * n);
  }
  return v;
}

TEST(CumulativeIncidence, HandComputedThreeRows) {
  // Times 1, 2, 3, causes 1, 2, 1: S = 2/3, 1/3, 0; F_1 = 1/3, 1/3, 2/3.
  Incidence r = incidence_of({1, 2, 3}, {1, 2, 1}, 1);
  ASSERT_EQ(r.T, 3);
  const double F[] = {1.0 / 3, 1.0 / 3, 2.0 / 3}, overall[] = {1.0 / 3, 1.0 / 3, 1.0};
  const double e[] = {1, 0, 1}, n[] = {3, 2, 1};
  for (int i = 1; i <= 3; ++i) {
    EXPECT_EQ(r.inc(i, col::kTime), i);
    EXPECT_EQ(r.inc(i, col::kAtRisk), n[i - 1]);
    EXPECT_EQ(r.inc(i, col::kCauseEvents), e[i - 1]);
    EXPECT_EQ(r.inc(i, col::kAllEvents), 1.0);
    EXPECT_NEAR(r.inc(i, col::kIncidence), F[i - 1], 1e-15);
    // Row 2 has no failure from cause 1: its overall failure repeats row 1 (1/3, not 2/3).
    EXPECT_NEAR(r.inc(i, col::kOverall), overall[i - 1], 1e-15);
  }
  // Row 1: (n - e) e / n^3 = 2/27. Row 3: 1/54 + 2/27 - 2/27 (j = 1) + 1/18 (j = 2); row 3
  // itself (n = d = 1) contributes nothing: 2/27 again.
  for (int i = 1; i <= 3; ++i) EXPECT_NEAR(r.inc(i, col::kStdErr), std::sqrt(2.0 / 27), 1e-15);
  // Log-transformed limits, not clipped: the upper limit of row 3 exceeds 1.
  const double z = 1.959963984540054, se = std::sqrt(2.0 / 27);
  EXPECT_NEAR(r.inc(3, col::kLower), 2.0 / 3 * std::exp(-z * se * 1.5), 1e-14);
  EXPECT_NEAR(r.inc(3, col::kUpper), 2.0 / 3 * std::exp(z * se * 1.5), 1e-14);
  EXPECT_GT(r.inc(3, col::kUpper), 1.0);
  // Complement: 1 - F, limits swapped, and column 10 the all-cause survival of the row itself.
  EXPECT_NEAR(r.comp(3, col::kIncidence), 1.0 / 3, 1e-15);
  EXPECT_EQ(r.comp(3, col::kLower), 1.0 - r.inc(3, col::kUpper));
  EXPECT_EQ(r.comp(3, col::kUpper), 1.0 - r.inc(3, col::kLower));
  EXPECT_EQ(r.comp(3, col::kStdErr), r.inc(3, col::kStdErr));
  EXPECT_NEAR(r.comp(2, col::kOverall), 1.0 / 3, 1e-15);  // S_2, whereas inc repeats 1 - S_1
  EXPECT_EQ(r.comp(3, col::kOverall), 0.0);
}

TEST(CumulativeIncidence, LeadingRowsFirstVarianceAndCallerColumnThree) {
  // Cause 2 first fails at t = 3 after two failures from cause 1 (S_2 = 0.6 < 1).
  const std::vector<double> t{1, 2, 3, 3, 4, 5}, c{1, 1, 2, 0, 2, 1};
  Incidence r = incidence_of(t, c, 2);
  ASSERT_EQ(r.T, 5);
  for (int i = 1; i <= 2; ++i)
    for (int k = col::kIncidence; k <= col::kOverall; ++k)
      EXPECT_TRUE(r.inc(i, k) == kMissing && r.comp(i, k) == kMissing) << i << " " << k;
  // Row 3: n = 4, e = 1; F = 1 x (4/6) / 4; variance (4 - 1) 1 / 64 without the S_2^2 factor.
  EXPECT_NEAR(r.inc(3, col::kIncidence), 1.0 / 6, 1e-15);
  EXPECT_NEAR(r.inc(3, col::kStdErr), std::sqrt(3.0 / 64), 1e-15);

  // Column 3 is added to: a caller who passes 1 everywhere gets counts + 1.
  matrix<double> pl(8, 12), inc(5, 10), comp(5, 10);
  product_limit(t, c, pl);
  for (int i = 1; i <= 5; ++i) inc(i, col::kCauseEvents) = 1.0;
  auto tm = column(t), st = column(c);
  CumIncCalc(5, &tm, &st, 2, 0.05, 6, 0, &pl, &inc, &comp);
  const double expected[] = {1, 1, 2, 2, 1};
  for (int i = 1; i <= 5; ++i) EXPECT_EQ(inc(i, col::kCauseEvents), expected[i - 1]);
  EXPECT_NE(inc(1, col::kIncidence), kMissing);  // row 1 now "has" an event of the cause
}

TEST(CumulativeIncidence, LinearVarianceMatchesQuadraticSumWithTiesAndSaturatedRows) {
  std::mt19937 gen(20240501);
  std::uniform_int_distribution<int> time(1, 25), cause(0, 3);
  for (int rep = 0; rep < 20; ++rep) {
    const std::size_t n = 40 + 30 * rep;
    std::vector<double> t(n), c(n);
    for (std::size_t i = 0; i < n; ++i) {
      t[i] = time(gen);
      c[i] = cause(gen);
    }
    std::vector<std::size_t> idx(n);
    std::iota(idx.begin(), idx.end(), 0);
    std::stable_sort(idx.begin(), idx.end(), [&](auto a, auto b) { return t[a] < t[b]; });
    std::vector<double> ts(n), cs(n);
    for (std::size_t i = 0; i < n; ++i) ts[i] = t[idx[i]], cs[i] = c[idx[i]];

    matrix<double> pl(static_cast<std::uint32_t>(n + 2), 12);
    const int T = product_limit(ts, cs, pl);
    // Saturate two inner rows (n_j = d_j), as a weighted table can: they must drop out of every
    // later variance sum, own-cause term included.
    for (int j : {T / 3, T / 2}) pl(j + 1, 6) = pl(j + 1, 4);
    for (int k = 1; k <= 3; ++k) {
      matrix<double> inc(T, 10), comp(T, 10);
      auto tm = column(ts), st = column(cs);
      CumIncCalc(T, &tm, &st, k, 0.05, static_cast<int>(n), 0, &pl, &inc, &comp);
      int f = 1;
      while (f < T && inc(f, 3) <= 0) ++f;
      double last = 0.0;
      for (int i = f; i <= T; ++i) {
        if (inc(i, 3) > 0) last = quadratic_variance(inc, pl, f, i);
        const double se = last > 0 ? std::sqrt(last) : 0.0;
        EXPECT_NEAR(inc(i, col::kStdErr), se, 1e-13 * se + 1e-17) << "rep " << rep << " row " << i;
      }
    }
  }
}

TEST(CumulativeIncidence, AbsentCauseSingleRowAndOversizedT) {
  // A cause that never occurs: rows 1 .. T-1 blank, row T blank but for a 0 standard error.
  Incidence r = incidence_of({1, 2, 2, 4}, {1, 0, 1, 1}, 3);
  for (int i = 1; i <= r.T; ++i)
    for (double v :
         {r.inc(i, col::kIncidence), r.inc(i, col::kOverall), r.comp(i, col::kIncidence)})
      EXPECT_EQ(v, kMissing) << i;
  EXPECT_EQ(r.inc(r.T, col::kStdErr), 0.0);
  EXPECT_EQ(r.inc(1, col::kStdErr), kMissing);

  // A single row, censored: T = 1 and no previous row to repeat.
  Incidence one = incidence_of({5}, {0}, 1);
  EXPECT_EQ(one.inc(1, col::kIncidence), kMissing);
  EXPECT_EQ(one.inc(1, col::kUpper), kMissing);
  EXPECT_EQ(one.inc(1, col::kStdErr), 0.0);

  // T beyond the product-limit table: the extra rows have no time, the estimate carries on.
  const std::vector<double> t{1, 2, 3}, c{1, 2, 1};
  matrix<double> pl(5, 12), inc(7, 10), comp(7, 10);
  product_limit(t, c, pl);
  auto tm = column(t), st = column(c);
  CumIncCalc(7, &tm, &st, 1, 0.05, 3, 0, &pl, &inc, &comp);
  EXPECT_NEAR(inc(3, col::kIncidence), 2.0 / 3, 1e-15);
  for (int i = 5; i <= 7; ++i) {
    EXPECT_EQ(inc(i, col::kTime), kMissing);
    EXPECT_EQ(inc(i, col::kAtRisk), kMissing);
    EXPECT_EQ(inc(i, col::kIncidence), inc(3, col::kIncidence));
    EXPECT_EQ(comp(i, col::kOverall), inc(i, col::kOverall));
  }
  // Bad alpha: limits are markers, the estimate is still there.
  Incidence bad = incidence_of({1, 2, 3}, {1, 2, 1}, 1, 2.5);
  EXPECT_EQ(bad.inc(1, col::kLower), kMissing);
  EXPECT_NEAR(bad.inc(1, col::kIncidence), 1.0 / 3, 1e-15);
}

// mgus2: incidence of progression (1) and death (2) by sex against cmprsk::cuminc, and the
// delta-method SE against its quadratic evaluation in R. Also F_1 + F_2 = 1 - S on every row.
TEST(CumulativeIncidence, Mgus2AgainstCmprsk) {
  for (int g = 1; g <= 2; ++g) {
    std::vector<std::pair<double, double>> rows;
    for (int i = 0; i < kMgusN; ++i)
      if (kMgusSex[i] == g) rows.push_back({kMgusTime[i], kMgusCause[i]});
    std::stable_sort(rows.begin(), rows.end(), [](auto& a, auto& b) { return a.first < b.first; });
    std::vector<double> t, c;
    for (auto& r : rows) t.push_back(r.first), c.push_back(r.second);
    Incidence by[2] = {incidence_of(t, c, 1), incidence_of(t, c, 2)};
    int checked = 0;
    for (const MgusIncidence& ref : kMgusIncidence) {
      if (ref.group != g) continue;
      Incidence& r = by[ref.cause - 1];
      int i = 1;
      while (i <= r.T && r.inc(i, col::kTime) != ref.time) ++i;
      ASSERT_LE(i, r.T);
      EXPECT_NEAR(r.inc(i, col::kIncidence), ref.est, 1e-12 * ref.est);
      EXPECT_NEAR(r.inc(i, col::kStdErr), ref.se, 1e-10 * ref.se);
      ++checked;
    }
    EXPECT_GT(checked, 100);
    matrix<double> pl(static_cast<std::uint32_t>(t.size() + 2), 12);
    const int T = product_limit(t, c, pl);
    for (int i = 1; i <= T; ++i) {
      const double F1 = by[0].inc(i, 6), F2 = by[1].inc(i, 6);
      if (F1 == kMissing || F2 == kMissing) continue;
      // Column 6 repeats on rows without a failure of the cause, which is the value at t_i.
      EXPECT_NEAR(F1 + F2, 1.0 - pl(i + 1, 8), 1e-13);
    }
  }
}

TEST(ReorganizeDataCum, OrdersBlocksAndDerivesAllCauseStatus) {
  std::vector<double> t{5, 3, 9, 1, 3, 7, 2}, s{2, 0, 1, 1, 3.5, -1, 0}, g{2, 1, 2, 1, 2, 1, 2};
  std::vector<double> all(7, 9.0), sizes{3, 4};
  auto tm = column(t), st = column(s), gr = column(g), al = column(all);
  matrix<double> sizesRow(1, 2, sizes.data(), 0);
  double mx = 0;
  EXPECT_EQ(ReorganizeDataCum(&tm, 7, &st, &al, &gr, &sizesRow, 2, mx), 0);
  EXPECT_EQ(mx, 9.0);
  const double et[] = {1, 3, 7, 2, 3, 5, 9}, es[] = {1, 0, -1, 0, 3.5, 2, 1},
               eg[] = {1, 1, 1, 2, 2, 2, 2}, ea[] = {1, 0, 1, 0, 1, 1, 1};
  for (int i = 0; i < 7; ++i) {
    EXPECT_EQ(tm.data[i], et[i]) << i;
    EXPECT_EQ(st.data[i], es[i]) << i;  // no range check: negative and fractional causes kept
    EXPECT_EQ(gr.data[i], eg[i]) << i;
    EXPECT_EQ(al.data[i], ea[i]) << i;
  }
}

TEST(ReorganizeDataCum, StatusCodes) {
  auto run = [](std::vector<double> t, std::vector<double> s, int n) {
    std::vector<double> g(t.size(), 1.0), all(t.size(), 0.0), sizes{static_cast<double>(n)};
    auto tm = column(t), st = column(s), gr = column(g), al = column(all);
    matrix<double> sz(1, 1, sizes.data(), 0);
    double mx = -7;
    const int code = ReorganizeDataCum(&tm, n, &st, &al, &gr, &sz, 1, mx);
    return std::make_pair(code, tm.data[0]);
  };
  EXPECT_EQ(run({4}, {1}, 1).first, -2);
  EXPECT_EQ(run({4, 1}, {0, 0}, 2), std::make_pair(-3, 1.0));  // warning, still ordered
  EXPECT_EQ(run({4, 1}, {1, 1}, 2), std::make_pair(-5, 1.0));
  EXPECT_EQ(run({4, 1}, {2, 2}, 2).first, 0);    // constant but summing to 2n: no warning
  EXPECT_EQ(run({4, 1}, {-1, 1}, 2).first, -3);  // the sum, not the count, decides
  EXPECT_EQ(run({4, 1, 3}, {2, 0, 1}, 2).first, 0);
}

// ---- Gray's test -------------------------------------------------------------------------------

struct GrayResult {
  int code;
  matrix<double> tests, scores, variance;
  GrayResult(int causes, int k1)
      : code(0), tests(causes, 3), scores(k1, causes), variance(k1 * k1, causes) {}
};

GrayResult gray(const std::vector<double>& t, const std::vector<double>& s,
                const std::vector<double>& g, const std::vector<double>* strata, double rho,
                int groups, int causes = 2, int cause = 0) {
  GrayResult r(causes, groups - 1);
  auto tm = column(t), st = column(s), gr = column(g);
  matrix<double> sv = strata ? column(*strata) : matrix<double>(0, 1);
  r.code = GrayTest(&tm, &st, &gr, &sv, static_cast<int>(t.size()), cause, rho, causes, groups,
                    &r.tests, &r.scores, &r.variance);
  return r;
}

std::vector<double> vec(const double* p) {
  return std::vector<double>(p, p + kMgusN);
}

TEST(GrayTest, Mgus2AgainstCmprsk) {
  const auto t = vec(kMgusTime), s = vec(kMgusCause), sex = vec(kMgusSex), age = vec(kMgusAge),
             strata = vec(kMgusStratum);
  for (const MgusGray& ref : kMgusGray) {
    const auto& g = ref.groups == 1 ? sex : age;
    const int K = ref.groups == 1 ? 2 : 3;
    GrayResult r = gray(t, s, g, ref.stratified ? &strata : nullptr, ref.rho, K);
    ASSERT_EQ(r.code, 0);
    EXPECT_NEAR(r.tests(ref.cause, 1), ref.stat, 1e-10 * ref.stat)
        << "groups " << ref.groups << " strata " << ref.stratified << " rho " << ref.rho
        << " cause " << ref.cause;
    EXPECT_EQ(r.tests(ref.cause, 2), K - 1);
    // cmprsk reports 1 - pchisq, which is 0 below 1e-16; ours is the upper tail itself.
    EXPECT_NEAR(r.tests(ref.cause, 3), ref.p, 1e-12);
    if (K == 2) {  // one score: the statistic is u^2 / V
      EXPECT_NEAR(std::pow(r.scores(1, ref.cause), 2) / r.variance(1, ref.cause), ref.stat,
                  1e-10 * ref.stat);
    }
  }
}

TEST(GrayTest, InvariantToRowOrderLabelsAndTrivialStrata) {
  const auto t = vec(kMgusTime), s = vec(kMgusCause), age = vec(kMgusAge);
  GrayResult base = gray(t, s, age, nullptr, 0.0, 3);

  std::vector<std::size_t> perm(t.size());
  std::iota(perm.begin(), perm.end(), 0);
  std::shuffle(perm.begin(), perm.end(), std::mt19937(7));
  std::vector<double> t2, s2, g2, one(t.size(), 4.0);
  for (std::size_t i : perm) {
    t2.push_back(t[i]);
    s2.push_back(s[i]);
    g2.push_back(10.0 - 3.0 * age[i]);  // relabelled, order of the labels reversed
  }
  GrayResult moved = gray(t2, s2, g2, &one, 0.0, 3);
  for (int k = 1; k <= 2; ++k) {
    EXPECT_NEAR(moved.tests(k, 1), base.tests(k, 1), 1e-10 * base.tests(k, 1));
    EXPECT_NEAR(moved.tests(k, 3), base.tests(k, 3), 1e-12);
  }
  // Identical groups: scores 0 (the statistic is 0 up to rounding).
  std::vector<double> tt, ss, gg;
  for (int rep = 0; rep < 2; ++rep)
    for (int i = 0; i < 200; ++i) tt.push_back(t[i]), ss.push_back(s[i]), gg.push_back(rep);
  GrayResult same = gray(tt, ss, gg, nullptr, 0.0, 2);
  EXPECT_NEAR(same.scores(1, 1), 0.0, 1e-12);
  EXPECT_NEAR(same.tests(1, 1), 0.0, 1e-20);
  EXPECT_GT(same.variance(1, 1), 0.0);
}

TEST(GrayTest, DegenerateData) {
  // One group: no test, df 0.
  GrayResult one = gray({1, 2, 3}, {1, 2, 0}, {5, 5, 5}, nullptr, 0.0, 1);
  EXPECT_EQ(one.code, 0);
  EXPECT_EQ(one.tests(1, 1), kMissing);
  EXPECT_EQ(one.tests(1, 2), 0.0);
  // A cause with no failure at all: singular variance, marker.
  GrayResult none = gray({1, 2, 3, 4}, {1, 0, 1, 0}, {1, 1, 2, 2}, nullptr, 0.0, 2, 2);
  EXPECT_EQ(none.tests(2, 1), kMissing);
  EXPECT_EQ(none.tests(2, 3), kMissing);
  EXPECT_NE(none.tests(1, 1), kMissing);
  // A label per row (300 groups) is no grouping: marker at once, df still K - 1.
  std::vector<double> tt(300), ss(300), gg(300);
  for (int i = 0; i < 300; ++i) tt[i] = i % 17, ss[i] = i % 3, gg[i] = i;
  GrayResult many = gray(tt, ss, gg, nullptr, 0.0, 300, 1);
  EXPECT_EQ(many.tests(1, 1), kMissing);
  EXPECT_EQ(many.tests(1, 2), 299.0);
  // Only the requested cause is written.
  GrayResult only = gray({1, 2, 3, 4}, {1, 2, 1, 2}, {1, 1, 2, 2}, nullptr, 0.0, 2, 2, 2);
  EXPECT_EQ(only.tests(1, 1), 0.0);  // untouched
  EXPECT_NE(only.tests(2, 2), 0.0);
  // Negative and fractional codes are failures from untested causes: the same as coding them 2.
  const std::vector<double> t{1, 2, 3, 4, 5, 6, 7, 8}, g{1, 2, 1, 2, 1, 2, 1, 2};
  GrayResult odd = gray(t, {1, -1, 2.5, 1, 0, 1, -7, 2}, g, nullptr, 0.0, 2, 1);
  GrayResult two = gray(t, {1, 2, 2, 1, 0, 1, 2, 2}, g, nullptr, 0.0, 2, 1);
  EXPECT_EQ(odd.tests(1, 1), two.tests(1, 1));
  EXPECT_NE(odd.tests(1, 1), kMissing);
  // Missing values and NaN leave rows out; fewer than two usable rows: -2, nothing written.
  GrayResult few = gray({kMissing, 2, NAN}, {1, 2, 1}, {1, 2, 1}, nullptr, 0.0, 2);
  EXPECT_EQ(few.code, -2);
  EXPECT_EQ(few.tests(1, 1), 0.0);
}

}  // namespace
