// Cox partial likelihood: the cumulative risk-set sums against the direct sums and a textbook
// evaluation, numerical derivatives, the exponent and epsilon guards, strata, the Efron terms of
// thousands of tied events, and caller-built tables.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "cox/prepared_data.h"

namespace {

using velkor::cox::TieTerms;
using velkor::cox::testing::Prepared;

// Heavily tied data: times in 1..4, two strata, three covariates, random weights.
Prepared HeavyTies(bool weighted) {
  std::mt19937_64 gen(20261122);
  std::uniform_int_distribution<int> tm(1, 4), st(0, 2);
  std::normal_distribution<double> z(0.0, 1.0);
  std::uniform_real_distribution<double> u(0.5, 2.0);
  const int n = 240, p = 3;
  std::vector<double> t, s, x(static_cast<std::size_t>(n * p)), k, w;
  for (int i = 0; i < n; ++i) {
    t.push_back(tm(gen));
    s.push_back(st(gen) > 0 ? 1.0 : 0.0);
    k.push_back(i % 2);
    w.push_back(weighted ? u(gen) : 1.0);
    for (int j = 0; j < p; ++j) x[static_cast<std::size_t>(j * n + i)] = z(gen);
  }
  return Prepared(t, s, x, p, k, w);
}

TEST(CoxLikelihood, CumulativeSumsEqualDirectSumsAndTheTextbookDefinitionOnHeavyTies) {
  const Prepared prep = HeavyTies(true);
  const std::vector<double> beta = {0.4, -0.7, 0.25};
  for (TieTerms terms :
       {TieTerms::BreslowCount, TieTerms::BreslowWeighted, TieTerms::EfronWeighted}) {
    const auto b = prep.Eval(beta, terms, Prepared::Path::Direct);
    for (auto path : {Prepared::Path::Cumulative, Prepared::Path::CumulativeRowMajor}) {
      const auto a = prep.Eval(beta, terms, path);
      EXPECT_NEAR(a.ll, b.ll, 1e-12 * std::fabs(b.ll));
      for (std::size_t k = 0; k < a.g.size(); ++k) EXPECT_NEAR(a.g[k], b.g[k], 1e-11);
      for (std::size_t k = 0; k < a.h.size(); ++k)
        EXPECT_NEAR(a.h[k], b.h[k], 1e-11 * std::fabs(b.h[k]) + 1e-12);
    }
    EXPECT_NEAR(
        b.ll,
        prep.Textbook(beta, terms == TieTerms::EfronWeighted, terms == TieTerms::BreslowCount),
        1e-10);
  }
}

TEST(CoxLikelihood, DerivativesMatchCentralDifferences) {
  // Unit weights: the flat form's count terms are then the derivatives of its log-likelihood.
  const Prepared prep = HeavyTies(false);
  for (TieTerms terms : {TieTerms::BreslowCount, TieTerms::EfronWeighted}) {
    for (const std::vector<double>& beta :
         {std::vector<double>{0, 0, 0}, std::vector<double>{0.5, -0.3, 1.1}}) {
      const auto v = prep.Eval(beta, terms);
      const double h = 1e-5;
      for (int j = 0; j < 3; ++j) {
        std::vector<double> up = beta, dn = beta;
        up[j] += h;
        dn[j] -= h;
        const auto vu = prep.Eval(up, terms), vd = prep.Eval(dn, terms);
        EXPECT_NEAR(v.g[j], (vu.ll - vd.ll) / (2 * h), 1e-6 * (1 + std::fabs(v.g[j])));
        for (int r = 0; r < 3; ++r)
          EXPECT_NEAR(v.h[static_cast<std::size_t>(j * 3 + r)], (vu.g[r] - vd.g[r]) / (2 * h),
                      1e-5 * (1 + std::fabs(v.h[static_cast<std::size_t>(j * 3 + r)])));
      }
    }
  }
}

TEST(CoxLikelihood, HandComputedValuesAndStrata) {
  // Times 1..6 untied, events at 1, 3, 4, 6: at beta = 0 the log-likelihood is minus the sum of
  // the logs of the risk-set sizes 6, 4, 3, 1.
  const Prepared untied({6, 1, 3, 2, 5, 4}, {1, 1, 1, 0, 0, 1}, {0.3, 1.2, -2, 4, 0.1, 7}, 1);
  const double want = -(std::log(6.0) + std::log(4.0) + std::log(3.0) + std::log(1.0));
  EXPECT_NEAR(untied.Eval({0.0}, TieTerms::BreslowCount).ll, want, 1e-15);
  EXPECT_NEAR(untied.Eval({0.0}, TieTerms::EfronWeighted).ll, want, 1e-15);
  // Two strata concatenated give the sum of the two separate evaluations.
  const std::vector<double> t1 = {1, 2, 2, 3, 5}, s1 = {1, 1, 1, 0, 1}, x1 = {0.5, -1, 2, 0.1, 1};
  const std::vector<double> t2 = {2, 2, 4, 6}, s2 = {1, 0, 1, 1}, x2 = {1, 0.3, -0.2, 0.7};
  std::vector<double> t = t1, s = s1, x = x1, k(5, 1.0);
  t.insert(t.end(), t2.begin(), t2.end());
  s.insert(s.end(), s2.begin(), s2.end());
  x.insert(x.end(), x2.begin(), x2.end());
  k.insert(k.end(), 4, 2.0);
  const Prepared both(t, s, x, 1, k), a(t1, s1, x1, 1), b(t2, s2, x2, 1);
  for (TieTerms terms : {TieTerms::BreslowCount, TieTerms::EfronWeighted}) {
    const auto vb = both.Eval({0.8}, terms), va = a.Eval({0.8}, terms), vc = b.Eval({0.8}, terms);
    EXPECT_NEAR(vb.ll, va.ll + vc.ll, 1e-14);
    EXPECT_NEAR(vb.g[0], va.g[0] + vc.g[0], 1e-14);
    EXPECT_NEAR(vb.h[0], va.h[0] + vc.h[0], 1e-14);
  }
}

TEST(CoxLikelihood, ExponentAndEpsilonGuards) {
  // Row 4 (time 4, censored) is in the risk sets of the events at 1 and 2. With beta = 1 its
  // eta is its covariate: 700 is skipped (not clamped), 699.9 is kept.
  auto ll_with = [](double big) {
    const Prepared prep({1, 2, 3, 4}, {1, 1, 0, 0}, {0.0, 0.5, 1.0, big}, 1);
    return prep.Eval({1.0}, TieTerms::BreslowCount).ll;
  };
  const double without = 0.0 + 0.5 - std::log(1 + std::exp(0.5) + std::exp(1.0)) -
                         std::log(std::exp(0.5) + std::exp(1.0));
  EXPECT_NEAR(ll_with(700.0), without, 1e-14);
  EXPECT_NEAR(ll_with(699.9), 0.5 - 2 * 699.9, 1e-9);  // exp(699.9) dominates both risk sets
  // The only row at risk at time 2 has eta >= 700: S = 0 is not above epsilon, so the time adds
  // its block term w x beta and nothing else (no log of 0, no division). Time 1: 0 - log(1 + 0).
  const auto v = Prepared({1, 2}, {1, 1}, {0.0, 800.0}, 1).Eval({1.0}, TieTerms::BreslowCount);
  EXPECT_EQ(v.ll, 800.0);
  EXPECT_EQ(v.g[0], 800.0);
  EXPECT_EQ(v.h[0], 0.0);
}

TEST(CoxLikelihood, EfronWithThousandsOfTiedEventsAgreesWithTheTermByTermSum) {
  // One time with 4,000 tied events (the Efron terms taken as one logarithm of a product of
  // mantissas, renormalised every 512 factors, and a sum of binary exponents) against the sum of
  // the 4,000 logarithms, with risk-set sums whose product would underflow (eta near -30) or
  // overflow (eta near 300) a double, and a product of mantissas that would overflow too.
  for (const double shift : {-30.0, 0.0, 300.0}) {
    std::vector<double> t(4500, 1.0), s(4500, 1.0), x(4500);
    for (std::size_t i = 4000; i < 4500; ++i) t[i] = 2.0;
    for (std::size_t i = 0; i < 4500; ++i) x[i] = shift + 0.001 * static_cast<double>(i % 37);
    const Prepared prep(t, s, x, 1);
    EXPECT_NEAR(prep.Eval({1.0}, TieTerms::EfronWeighted).ll, prep.Textbook({1.0}, true, false),
                1e-12 * std::fabs(prep.Textbook({1.0}, true, false)));
  }
}

TEST(CoxLikelihood, CallerBuiltTablesOutOfOrderOrOverlappingGiveTheDirectSums) {
  // Blocks listed out of order fall back to the direct sums; ascending blocks whose tied rows run
  // into the next block (never built by the preparation) still read every tied row's exp(eta) in
  // the row-major evaluation.
  const std::vector<double> x = {0.1, 0.4,  -0.3, 0.9, 0.2, -0.5,  // column 1
                                 1.0, -0.2, 0.3,  0.0, 0.7, 0.4};  // column 2
  const std::vector<double> w = {1, 0.5, 2, 1, 1, 1.5}, beta = {0.7, -0.4};
  const std::vector<double> rows = velkor::cox::RowMajorCopy(x.data(), 6, 6, 2);
  struct Case {
    std::vector<velkor::cox::TiedBlock> blocks;
    bool ascending;
    TieTerms terms;
  };
  for (const Case& c :
       {Case{{{3, 1, 1}, {0, 1, 1}, {1, 2, 1}, {4, 1, 1}}, false, TieTerms::BreslowCount},
        Case{{{0, 3, 3}, {2, 2, 2}, {4, 2, 2}}, true, TieTerms::EfronWeighted}}) {
    velkor::cox::RiskLayout lay;
    lay.n = 6;
    lay.blocks = c.blocks;
    velkor::cox::StratumRange st;
    st.rows = 6;
    st.blockEnd = static_cast<std::uint32_t>(c.blocks.size());
    st.ascending = c.ascending;
    lay.strata = {st};
    double a = 0, b = 0, ga[2], gb[2], ha[4], hb[4];
    velkor::cox::RiskWorkspace work;
    velkor::cox::EvaluateRiskSets(lay, x.data(), 6, 2, w.data(), beta.data(), c.terms, a, ga, ha,
                                  rows.data(), &work);
    velkor::cox::EvaluateRiskSetsDirect(lay, x.data(), 6, 2, w.data(), beta.data(), c.terms, b, gb,
                                        hb);
    if (!c.ascending) {
      EXPECT_EQ(a, b);  // the very same direct sums
    }
    EXPECT_NEAR(a, b, 1e-14 * std::fabs(b));
    for (int k = 0; k < 2; ++k) EXPECT_NEAR(ga[k], gb[k], 1e-14);
    for (int k = 0; k < 4; ++k) EXPECT_NEAR(ha[k], hb[k], 1e-14);
  }
}

}  // namespace
