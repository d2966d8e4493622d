// Cox preparation tables, Newton-Raphson bookkeeping of both forms, criteria tables (bit-exact
// special values) and selection rules.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <vector>

#include <random>

#include "companion/sorting.h"
#include "core/numeric.h"
#include "cox/cox.h"
#include "cox/key_order.h"
#include "cox/run.h"
#include "velkor/cox_objects.h"

namespace {

using velkor::kMissing;
using velkor::kUnbounded;

std::uint64_t Bits(double v) {
  return std::bit_cast<std::uint64_t>(v);
}

struct Tables {
  int rc = 0, maxTimes = -1;
  std::vector<double> t, s, c3, x;
  matrix<int> nt{1, 1}, nc{1, 1}, bs{1, 8}, bz{1, 8}, be{1, 8};
  Tables(std::vector<double> time, std::vector<double> status, std::vector<double> third = {})
      : t(std::move(time)), s(std::move(status)), c3(std::move(third)) {
    const auto n = static_cast<std::uint32_t>(t.size());
    if (c3.empty()) c3.assign(n, 1.0);
    x.assign(n, 0.0);
    for (std::uint32_t i = 0; i < n; ++i) x[i] = i;
    matrix<double> T(n, 1, t.data(), 1), S(n, 1, s.data(), 1), C3(n, 1, c3.data(), 1);
    matrix<double> C2(n, 1), X(n, 1, x.data(), 1), K(n, 1), Z(1, 1);
    Z.data[0] = n;
    rc = velkor::cox::cReorganizeDataCox(&T, static_cast<int>(n), 1, &S, &C2, &C3, &X, &K, &Z, 1,
                                         &nt, &nc, &bs, &bz, &be, &maxTimes);
  }
};

TEST(CoxPreparation, TiedBlocksCensoringOnlyTimesAndChecks) {
  const Tables a({3, 5, 5, 5, 8, 1}, {1, 1, 0, 1, 0, 0});
  ASSERT_EQ(a.rc, 0);
  EXPECT_EQ(a.nt.data[0], 4);  // 1, 3, 5, 8
  EXPECT_EQ(a.nc.data[0], 3);
  const int start[4] = {1, 2, 3, 6}, size[4] = {1, 1, 3, 1}, events[4] = {0, 1, 2, 0};
  for (int k = 0; k < 4; ++k) {
    EXPECT_EQ(a.bs.data[k], start[k]);
    EXPECT_EQ(a.bz.data[k], size[k]);
    EXPECT_EQ(a.be.data[k], events[k]);
  }
  EXPECT_EQ(a.x[0], 5.0);  // the row of time 1 moved first

  // A tied row whose third-column value is 0 is not counted in its block.
  const Tables b({2, 2, 2}, {1, 1, 1}, {1, 0, 1});
  EXPECT_EQ(b.bz.data[0], 2);
  EXPECT_EQ(b.be.data[0], 2);

  EXPECT_EQ(Tables({1, 2}, {0, 0}).rc, -3);
  EXPECT_EQ(Tables({1}, {1}).rc, -2);
  const Tables bad({2, 1, 3}, {1, 2, 0});
  EXPECT_EQ(bad.rc, -1);
  EXPECT_EQ(bad.t[0], 2.0);      // nothing reordered
  EXPECT_EQ(bad.nt.data[0], 0);  // nor written (the container's fill value)
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

// A fitted problem over raw data (one stratum), reusing the preparation.
struct Problem {
  std::vector<double> t, s, x, w;
  int n, p;
  velkor::cox::RiskLayout layout;
  velkor::cox::CoxProblem prob;
  Problem(std::vector<double> time, std::vector<double> status, std::vector<double> xs, int np,
          velkor::cox::TieTerms terms)
      : t(std::move(time)),
        s(std::move(status)),
        x(std::move(xs)),
        n(static_cast<int>(t.size())),
        p(np) {
    const auto un = static_cast<std::uint32_t>(n);
    matrix<double> T(un, 1, t.data(), 1), S(un, 1, s.data(), 1),
        X(un, static_cast<std::uint32_t>(p), x.data(), 1);
    matrix<double> C2(un, 1), C3(un, 1), K(un, 1), Z(1, 1);
    for (std::uint32_t i = 0; i < un; ++i) C3.data[i] = 1.0;
    Z.data[0] = n;
    matrix<int> nt(1, 1), nc(1, 1), bs(1, un), bz(1, un), be(1, un);
    int mt = 0;
    EXPECT_EQ(velkor::cox::cReorganizeDataCox(&T, n, p, &S, &C2, &C3, &X, &K, &Z, 1, &nt, &nc, &bs,
                                              &bz, &be, &mt),
              0);
    w = s;
    layout = velkor::cox::LayoutFromTables(t.size(), 1, &Z, &nt, &bs, &bz, &be);
    prob = velkor::cox::CoxProblem{&layout, w.data(), terms};
  }
  velkor::cox::FitResult Flat(int maxIter, double tol = 1e-9) const {
    return velkor::cox::FitFlat(prob, velkor::cox::RowMajorCopy(x.data(), t.size(), t.size(), p), p,
                                maxIter, tol);
  }
  velkor::cox::FitResult Object(int maxIter, double tol = 1e-9) const {
    return velkor::cox::FitObject(prob, velkor::cox::RowMajorCopy(x.data(), t.size(), t.size(), p),
                                  p, maxIter, tol);
  }
};

// Times 1..8, symmetric design: beta = 0 is the exact maximum (score 0 at beta = 0).
Problem Symmetric(velkor::cox::TieTerms terms) {
  return Problem({1, 1, 2, 2, 3, 3, 4, 4}, {1, 1, 1, 1, 1, 1, 1, 1}, {1, -1, 1, -1, 1, -1, 1, -1},
                 1, terms);
}

TEST(CoxFit, BetaZeroAlreadyMaximal) {
  // Flat: the first step proposes no change, the log-likelihood does not move, one iteration.
  const auto f = Symmetric(velkor::cox::TieTerms::BreslowCount).Flat(20);
  EXPECT_EQ(f.iterations, 1);
  EXPECT_EQ(f.loglik, f.loglik0);
  EXPECT_EQ(f.beta[0], 0.0);
  // Object: no halving can gain, so the fit fails (reported by the run as -5).
  EXPECT_EQ(Symmetric(velkor::cox::TieTerms::EfronWeighted).Object(20).status, -1);
}

TEST(CoxFit, IterationLimitAndBookkeeping) {
  const Problem pr({1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, {1, 0, 1, 1, 0, 1, 1, 1, 0, 1},
                   {0.2, 1.5, -0.3, 0.8, 2.0, -1.0, 0.4, 0.1, -0.6, 0.9}, 1,
                   velkor::cox::TieTerms::BreslowCount);
  const auto one = pr.Flat(1);
  EXPECT_EQ(one.iterations, 1);
  const auto full = pr.Flat(50, 1e-13);
  EXPECT_GT(full.iterations, 2);
  EXPECT_EQ(one.loglik0, full.loglik0);  // captured at beta = 0
  EXPECT_EQ(one.grad0[0], full.grad0[0]);
  EXPECT_GT(full.loglik, full.loglik0);
  EXPECT_NEAR(full.grad[0], 0.0, 1e-7);  // at the maximum
  // The object fit reaches the same maximum (centring does not change the likelihood).
  const auto obj = pr.Object(50, 1e-10);
  ASSERT_EQ(obj.status, 0);
  EXPECT_NEAR(obj.beta[0], full.beta[0], 1e-6);
  EXPECT_NEAR(obj.loglik, full.loglik, 1e-10);
  const auto capped = pr.Object(1, 1e-300);
  EXPECT_EQ(capped.status, 0);
  EXPECT_TRUE(capped.notConverged);
}

TEST(CoxFit, MonotoneLikelihoodGrowsWithoutClampUntilTheLimit) {
  const Problem pr({1, 2, 3, 4, 5, 6}, {1, 1, 1, 1, 1, 1}, {6, 5, 4, 3, 2, 1}, 1,
                   velkor::cox::TieTerms::BreslowCount);
  const auto f = pr.Flat(30, 0.0);  // tolerance 0: only the limit or a converged step stop it
  EXPECT_LE(f.iterations, 30);
  EXPECT_GT(f.beta[0], 10.0);
  EXPECT_GT(f.loglik, f.loglik0);
}

TEST(CoxFit, SingularMatrixFlatGoesOnObjectFails) {
  const Problem pr({1, 2, 3, 4}, {1, 1, 0, 1}, {2, 2, 2, 2, 1, 3, 2, 5}, 2,
                   velkor::cox::TieTerms::BreslowCount);
  const auto f = pr.Flat(10);
  EXPECT_EQ(f.beta[0], 0.0);  // the zero inverse proposes no change
  EXPECT_EQ(f.inv[0], 0.0);
  const Problem po({1, 2, 3, 4}, {1, 1, 0, 1}, {2, 2, 2, 2, 1, 3, 2, 5}, 2,
                   velkor::cox::TieTerms::EfronWeighted);
  std::vector<double> centred = po.x;
  for (int i = 0; i < 4; ++i)
    centred[static_cast<std::size_t>(i)] = 0.0;  // centred constant column
  EXPECT_EQ(velkor::cox::FitObject(po.prob, velkor::cox::RowMajorCopy(centred.data(), 4, 4, 2), 2,
                                   10, 1e-9)
                .status,
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
  EXPECT_EQ(Bits(kMissing), 0xFFEFFFFFFFFFFFE2ULL);
  EXPECT_NEAR(c.z, z, 1e-15);
  // Wald chi-square of row 3 is not computed; row 2's is (beta / se)^2 with its p-value.
  EXPECT_EQ(c.coef[2 * 3 + 1], beta[1] * beta[1]);
}

TEST(CoxCriteria, ModelStatisticsAndGlobalTests) {
  const std::vector<double> beta = {0.5, -0.25};
  const std::vector<double> inv = {-0.5, 0.0, 0.0, -0.25};
  const Crit c = RunCriteria(2, beta, inv, -40.0, -45.0, 3);
  // Events used and the Schwarz size: n minus the FIRST stratum's censored count (20 - 3).
  EXPECT_EQ(c.stats[0], 17.0);
  EXPECT_EQ(c.stats[6], 17.0);
  EXPECT_EQ(c.stats[7], 2.0);
  EXPECT_EQ(c.stats[2], 90.0);
  EXPECT_EQ(c.stats[8], 80.0);
  EXPECT_EQ(c.stats[9], 84.0);
  EXPECT_EQ(c.stats[4], 90.0);
  EXPECT_EQ(c.stats[10], 2.0 * std::log(17.0) + 80.0);
  EXPECT_EQ(c.stats[5], 1.0);
  EXPECT_EQ(c.stats[11], 7.0);
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
