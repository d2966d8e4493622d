// Concordance by the Fenwick tree against the pairwise definition, baseline hazard invariants,
// and thread-count independence of the validation replicates.
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "core/numeric.h"
#include "cox/post_fit.h"
#include "velkor/cox_objects.h"

namespace {

using velkor::kMissing;

TEST(CoxConcordance, FenwickEqualsPairwiseCountWithTiesOfTimeAndEta) {
  std::mt19937_64 gen(42);
  // The last replicates are long enough for the radix sorts and for several words of the
  // position bitset under its Fenwick tree.
  for (int rep = 0; rep < 48; ++rep) {
    const std::size_t n = rep < 40 ? 1 + gen() % 300 : 520 + gen() % 2500;
    std::vector<double> t(n), s(n), eta(n);
    for (std::size_t i = 0; i < n; ++i) {
      t[i] = static_cast<double>(gen() % (rep % 2 ? 8 : 1000));  // heavy or light time ties
      s[i] = static_cast<double>(gen() % 3 == 0 ? 0 : 1);
      eta[i] = static_cast<double>(gen() % (rep % 3 ? 5 : 100000)) * 0.25;
    }
    if (rep == 7) s.assign(n, 0.0);
    // Times already ascending (the prepared rows of a one-stratum run) take the path without a
    // time sort; some replicates carry NaN linear predictors (comparable, never concordant).
    if (rep % 4 == 3) std::sort(t.begin(), t.end());
    if (rep % 5 == 4)
      for (std::size_t i = 0; i < n; i += 7) eta[i] = std::nan("");
    double num = 0, den = 0;
    const double c = velkor::cox::ConcordanceFenwick(n, t.data(), s.data(), eta.data(), &num, &den);
    const double ref = velkor::cox::ConcordancePairs(n, t.data(), s.data(), eta.data());
    EXPECT_EQ(c, ref) << "replicate " << rep;  // same integers divided: bit-identical
    if (den == 0) {
      EXPECT_EQ(c, kMissing);
    }
  }
}

TEST(CoxBaseline, BetaZeroGivesTheNelsonAalenTypeEstimate) {
  // Times 1, 2, 2, 3, 5 (5 censored), one stratum, one covariate, beta = 0:
  // H0 = 1/5, + 2/4, + 1/2 at times 1, 2, 3, unchanged at 5.
  velkor::cox::RiskLayout lay;
  lay.n = 5;
  lay.blocks = {{0, 1, 1}, {1, 2, 2}, {3, 1, 1}, {4, 1, 0}};
  lay.strata = {{0, 5, 0, 4, true}};
  const double x[] = {1, -2, 0.5, 3, 1}, beta[] = {0.0};
  const velkor::cox::BreslowBaseline bl = velkor::cox::ComputeBreslowBaseline(lay, x, 1, beta);
  const double H[] = {0.2, 0.7, 1.2, 1.2};
  for (int k = 0; k < 4; ++k) EXPECT_DOUBLE_EQ(bl.cumHaz[static_cast<std::size_t>(k)], H[k]);
  std::vector<double> base(4), rows(20), mean(4);
  const double xm[] = {0.7};
  velkor::cox::FillSurvival(lay, bl, 1, beta, xm, 4, base.data(), rows.data(), mean.data());
  for (int k = 0; k < 4; ++k) {
    EXPECT_DOUBLE_EQ(base[static_cast<std::size_t>(k)], std::exp(-H[k]));
    EXPECT_EQ(mean[static_cast<std::size_t>(k)], base[static_cast<std::size_t>(k)]);
    for (int i = 0; i < 5; ++i)
      EXPECT_EQ(rows[static_cast<std::size_t>(k * 5 + i)], base[static_cast<std::size_t>(k)]);
  }
  // A row whose eta reaches 700 is left out of the risk sums (not clamped).
  const double big[] = {350.0};
  const double x2[] = {1, 1, 1, 2, 1};
  const velkor::cox::BreslowBaseline b2 = velkor::cox::ComputeBreslowBaseline(lay, x2, 1, big);
  EXPECT_TRUE(std::isfinite(b2.cumHaz[0]));
  EXPECT_EQ(b2.riskSum[2], b2.riskSum[3]);  // row 3 (eta 700) adds nothing to its risk set
}

TEST(CoxValidation, ReplicatesDoNotDependOnTheThreadCount) {
  std::mt19937_64 gen(5);
  const std::uint32_t n = 400;
  std::vector<double> t(n), s(n), x1(n), x2(n);
  std::normal_distribution<double> z;
  for (std::uint32_t i = 0; i < n; ++i) {
    x1[i] = z(gen);
    x2[i] = static_cast<double>(gen() % 2);
    t[i] = std::floor(10.0 * -std::log(std::uniform_real_distribution<double>(0.01, 1)(gen)) /
                      std::exp(0.5 * x1[i] - 0.3 * x2[i]));
    s[i] = gen() % 4 == 0 ? 0.0 : 1.0;
  }
  auto run = [&](int threads) {
    omp_set_num_threads(threads);
    cST_DataSet d;
    cST_FactorsInfo factors;
    d.add(u"t", t.data(), n);
    d.add(u"s", s.data(), n);
    d.add(u"x1", x1.data(), n);
    d.add(u"x2", x2.data(), n);
    factors.quantitative = {2, 3};
    COX_Param par;
    par.cvFolds = 10;
    par.bootstrapSamples = 37;
    par.seed = 99;
    cCOX_Results res;
    VELKORInfo info;
    EXPECT_EQ(COX_Compute_ST(d, par, res, factors, info), 0);
    return res;
  };
  const cCOX_Results one = run(1), two = run(2);
  omp_set_num_threads(omp_get_num_procs());
  ASSERT_EQ(one.bootTable.count, 18u);
  ASSERT_EQ(one.cvTable.count, 12u * 5u);
  for (std::uint32_t k = 0; k < one.bootTable.count; ++k)
    EXPECT_EQ(one.bootTable.data[k], two.bootTable.data[k]);
  for (std::uint32_t k = 0; k < one.cvTable.count; ++k)
    EXPECT_EQ(one.cvTable.data[k], two.cvTable.data[k]);
  EXPECT_EQ(one.bootTable.data[15], 37.0);
  // The bootstrap mean of the coefficients lies near the estimate (a few standard errors).
  for (int j = 0; j < 2; ++j)
    EXPECT_LT(std::fabs(one.bootTable.data[3 + j] - one.bootTable.data[j]),
              3.0 * one.bootTable.data[6 + j]);
}

}  // namespace
