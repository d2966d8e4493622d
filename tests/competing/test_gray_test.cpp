// Gray's K-sample test against R's cmprsk::cuminc "Tests" on mgus2 (two and three groups, with
// and without strata, rho = 0, 0.5, 1), and the invariances the statistic must have.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>
#include <vector>

#include "competing/gray_test.h"
#include "core/numeric.h"
#include "reference/competing/mgus2_competing.inc"

namespace {

using velkor::kMissing;
using velkor::competing::GrayTest;

matrix<double> column(const std::vector<double>& v) {
  return matrix<double>(static_cast<std::uint32_t>(v.size()), 1, const_cast<double*>(v.data()), 0);
}

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
