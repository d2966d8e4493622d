// Cox key order of the preparation, Newton-Raphson bookkeeping of both forms, criteria tables
// (bit-exact special values) and selection rules.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "companion/sorting.h"
#include "core/numeric.h"
#include "cox/key_order.h"
#include "cox/prepared_data.h"

namespace {

using velkor::cox::testing::Prepared;

std::uint64_t Bits(double v) {
  return std::bit_cast<std::uint64_t>(v);
}

TEST(CoxPreparation, KeyOrderIsTheStableSortOrder) {
  // Continuous keys (runs of equal top halves that need the full keys), heavy ties, signed zeros,
  // NaN and infinities, keys already in order, and a size below the radix threshold.
  std::mt19937_64 gen(7);
  std::normal_distribution<double> z;
  std::uniform_int_distribution<int> pick(0, 99);
  for (const std::size_t n : {std::size_t{50000}, std::size_t{1000}}) {
    std::vector<double> cont(n), tied(n), odd(n), asc(n);
    for (std::size_t i = 0; i < n; ++i) {
      cont[i] = z(gen) * (i % 3 == 0 ? 1e-7 : 1.0) + (i % 5 == 0 ? 1.0 : 0.0);
      tied[i] = std::round(z(gen) * 4) / 4;
      const int k = pick(gen);
      odd[i] = k < 5    ? NAN
               : k < 10 ? -0.0
               : k < 15 ? 0.0
               : k < 18 ? -INFINITY
               : k < 21 ? INFINITY
                        : std::nextafter(1.0, k % 2 ? 2.0 : 0.0);
      asc[i] = static_cast<double>(i / 3);
    }
    for (const auto* keys : {&cont, &tied, &odd, &asc})
      EXPECT_EQ(velkor::cox::KeyOrder(keys->data(), n), SortOrder(keys->data(), n));
  }
}

// Times 1..8, symmetric design: beta = 0 is the exact maximum (score 0 at beta = 0).
Prepared Symmetric() {
  return Prepared({1, 1, 2, 2, 3, 3, 4, 4}, {1, 1, 1, 1, 1, 1, 1, 1}, {1, -1, 1, -1, 1, -1, 1, -1},
                  1);
}

TEST(CoxFit, BetaZeroAlreadyMaximal) {
  // Flat: the first step proposes no change, the log-likelihood does not move, one iteration.
  const auto f = Symmetric().Flat(20);
  EXPECT_EQ(f.iterations, 1);
  EXPECT_EQ(f.loglik, f.loglik0);
  EXPECT_EQ(f.beta[0], 0.0);
  // Object: no halving can gain, so the fit fails (reported by the run as -5).
  EXPECT_EQ(Symmetric().Object(20).status, -1);
}

TEST(CoxFit, IterationLimitAndBookkeeping) {
  const Prepared pr({1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, {1, 0, 1, 1, 0, 1, 1, 1, 0, 1},
                    {0.2, 1.5, -0.3, 0.8, 2.0, -1.0, 0.4, 0.1, -0.6, 0.9}, 1);
  const auto one = pr.Flat(1), full = pr.Flat(50, 1e-13);
  EXPECT_EQ(one.iterations, 1);
  EXPECT_GT(full.iterations, 2);
  EXPECT_EQ(one.loglik0, full.loglik0);  // captured at beta = 0
  EXPECT_EQ(one.grad0[0], full.grad0[0]);
  EXPECT_NEAR(full.grad[0], 0.0, 1e-7);  // at the maximum
  // The object fit reaches the same maximum (centring does not change the likelihood); with the
  // limit reached first it completes and says so.
  const auto obj = pr.Object(50, 1e-10), capped = pr.Object(1, 1e-300);
  ASSERT_EQ(obj.status, 0);
  EXPECT_NEAR(obj.beta[0], full.beta[0], 1e-6);
  EXPECT_NEAR(obj.loglik, full.loglik, 1e-10);
  EXPECT_EQ(capped.status, 0);
  EXPECT_TRUE(capped.notConverged);
}

TEST(CoxFit, SingularMatrixObjectFitFails) {
  // A constant (centred: zero) column makes the matrix singular: the object form's step fails
  // (-1, reported by the run as -5); the flat form goes on (tested through RunCoxReg).
  EXPECT_EQ(Prepared({1, 2, 3, 4}, {1, 1, 0, 1}, {0, 0, 0, 0, 1, 3, 2, 5}, 2).Object(10).status,
            -1);
}

// ---- Criteria ----------------------------------------------------------------------------------

struct Crit {
  double z = 0, stats[12], tests[9], coef[9 * 3];
};

Crit RunCriteria(int p, const std::vector<double>& beta, const std::vector<double>& inv,
                 double loglik, double loglik0, int censoredFirst = 3) {
  Crit c;
  std::vector<double> hess(static_cast<std::size_t>(p * p), 0.0),
      g0(static_cast<std::size_t>(p), 0.0);
  for (int j = 0; j < p; ++j) hess[static_cast<std::size_t>(j * p + j)] = -1.0;
  velkor::cox::Criteria(20, p, censoredFirst, loglik, loglik0, 7, 0.05, beta.data(), hess.data(),
                        inv.data(), c.z, c.stats, g0.data(), inv.data(), c.coef,
                        static_cast<std::size_t>(p), c.tests);
  return c;
}

TEST(CoxCriteria, SpecialValuesAreWrittenBitExactly) {
  const double z = 1.959963984540054;
  // Row 1: beta + z se = 709.5 -> unbounded; row 2: 708 -> exp(708); row 3: diagonal not clearly
  // negative -> columns 2 to 7 missing.
  const double se = 1.0;
  const std::vector<double> beta = {709.5 - z * se, 708.0 - z * se, 0.3};
  const std::vector<double> inv = {-1, 0, 0, 0, -1, 0, 0, 0, -1e-17};
  const Crit c = RunCriteria(3, beta, inv, -10, -12);
  EXPECT_EQ(Bits(c.coef[6 * 3 + 0]), 0x7FEFFFFFFFFFFFE2ULL);
  EXPECT_EQ(c.coef[6 * 3 + 1], std::exp(708.0));
  for (int col = 1; col < 7; ++col) EXPECT_EQ(Bits(c.coef[col * 3 + 2]), 0xFFEFFFFFFFFFFFE2ULL);
  EXPECT_EQ(c.coef[2], 0.3);
  EXPECT_EQ(Bits(velkor::kMissing), 0xFFEFFFFFFFFFFFE2ULL);
  EXPECT_NEAR(c.z, z, 1e-15);
  // Wald chi-square of row 3 is not computed; row 2's is (beta / se)^2 with its p-value.
  EXPECT_EQ(c.coef[2 * 3 + 1], beta[1] * beta[1]);
}

TEST(CoxCriteria, ModelStatisticsAndGlobalTests) {
  const std::vector<double> beta = {0.5, -0.25};
  const std::vector<double> inv = {-0.5, 0.0, 0.0, -0.25};
  const Crit c = RunCriteria(2, beta, inv, -40.0, -45.0, 3);
  // Column-major 6 x 2. Events used and the Schwarz size: n minus the FIRST stratum's censored
  // count (20 - 3); null model: 0 df, -2 L0 in rows 3 to 5, 1 iteration.
  const std::vector<double> stats = {17, 0, 90, 90, 90, 1, 17, 2, 80, 84, 2 * std::log(17.0) + 80,
                                     7};
  EXPECT_EQ(std::vector<double>(c.stats, c.stats + 12), stats);
  EXPECT_EQ(c.tests[0], 2.0);
  EXPECT_EQ(c.tests[3], 10.0);                     // -2 (L0 - L)
  EXPECT_NEAR(c.tests[6], std::exp(-5.0), 1e-15);  // chi-square(2) upper tail of 10
  EXPECT_EQ(c.tests[5], 0.25 + 0.0625);            // -beta' H beta with H = -I
  // A fitted likelihood below the null one: missing likelihood-ratio p-value.
  const Crit worse = RunCriteria(2, beta, inv, -50.0, -45.0);
  EXPECT_EQ(Bits(worse.tests[6]), 0xFFEFFFFFFFFFFFE2ULL);
  EXPECT_EQ(worse.tests[3], -10.0);
}

// ---- Selection ---------------------------------------------------------------------------------

// A fitter over three columns whose log-likelihoods are set by hand: column sets map to values.
velkor::cox::ColumnFit HandFit(std::vector<std::pair<std::vector<int>, double>> table) {
  return [table](const std::vector<int>& cols) {
    velkor::cox::FitResult f;
    const std::size_t q = cols.size();
    f.beta.assign(q, 1.0);
    f.inv.assign(q * q, 0.0);
    for (std::size_t j = 0; j < q; ++j) f.inv[j * q + j] = -1.0;
    f.loglik0 = -100.0;
    f.loglik = -100.0;
    for (const auto& [c, ll] : table)
      if (c == cols) f.loglik = ll;
    return f;
  };
}

TEST(CoxSelection, ForwardNeverEntersAVariableWithoutGain) {
  // Column 0 gains nothing (same log-likelihood as the empty model): excluded even at
  // threshold 1. Column 1 gains 3 (LR 6); columns {1, 2} as one variable gain 1 more.
  const auto fit = HandFit({{{1}, -97.0}, {{0, 1}, -97.0}});
  const velkor::cox::SelectionResult r = velkor::cox::Forward(fit, {1, 1, 1}, 3, 1.0, -100.0);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.columns, std::vector<int>({1}));
  EXPECT_EQ(r.variableStep, std::vector<int>({0, 1, 0}));
  EXPECT_EQ(r.stepTable[1 * 3 + 0], 6.0);
}

TEST(CoxSelection, QualitativeVariablesEnterAndLeaveAsAWhole) {
  // Variables: column 0 alone, columns 1-2 together (2 degrees of freedom).
  const auto fit = HandFit({{{1, 2}, -90.0}, {{0}, -99.0}, {{0, 1, 2}, -89.5}});
  const auto fw = velkor::cox::Forward(fit, {1, 2}, 3, 0.05, -100.0);
  EXPECT_EQ(fw.columns, std::vector<int>({1, 2}));
  EXPECT_EQ(fw.stepTable[2 * 2 + 0], std::exp(-10.0));  // chi-square(2) upper tail of 20
  // Backward with the likelihood-ratio statistic: dropping column 0 costs LR 1 (p 0.32), dropping
  // the pair costs LR 18.5: column 0 leaves, then the pair stays (last variable).
  const auto bw = velkor::cox::Backward(fit, {1, 2}, 3, 0.10, 1);
  EXPECT_EQ(bw.columns, std::vector<int>({1, 2}));
  EXPECT_EQ(bw.variableStep, std::vector<int>({1, 0}));
  EXPECT_NEAR(bw.stepTable[1 * 2 + 0], 1.0, 1e-12);
  EXPECT_EQ(bw.stepTable[0 * 2 + 1], 1.0);  // last row: one variable left
}

TEST(CoxSelection, BackwardWaldChoosesTheLargestPValueFirstOfEquals) {
  // All Wald statistics equal (beta 1, variance 1): the first variable leaves first.
  const auto fit = HandFit({});
  const auto bw = velkor::cox::Backward(fit, {1, 1, 1}, 3, 0.01, 0);
  EXPECT_EQ(bw.variableStep, std::vector<int>({1, 2, 0}));
  EXPECT_EQ(bw.steps, 3);
  EXPECT_EQ(bw.stepTable[3 * 3 + 0], 1.0);
  EXPECT_EQ(bw.stepTable[1 * 3 + 0], 1.0);  // |beta / se|^2
}

}  // namespace
