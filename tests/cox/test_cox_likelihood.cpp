// Cox partial likelihood: the cumulative risk-set sums against a textbook evaluation, numerical
// derivatives, the exponent and epsilon guards, strata, and the ties codes of the two forms.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "cox/cox.h"
#include "cox/run.h"
#include "velkor/cox_objects.h"

namespace {

using velkor::cox::TieTerms;

// A small data set, prepared by cReorganizeDataCox, with its layout and event weights.
struct Prepared {
  int n, p, m;
  std::vector<double> t, d, w, x, key;  // sorted
  velkor::cox::RiskLayout layout;

  Prepared(std::vector<double> time, std::vector<double> status, std::vector<double> xcols, int np,
           std::vector<double> strata = {}, std::vector<double> weights = {})
      : n(static_cast<int>(time.size())), p(np) {
    const auto un = static_cast<std::uint32_t>(n);
    if (strata.empty()) strata.assign(time.size(), 1.0);
    if (weights.empty()) weights.assign(time.size(), 1.0);
    std::vector<double> sizes;
    {
      std::vector<double> k = strata;
      std::sort(k.begin(), k.end());
      for (std::size_t i = 0; i < k.size(); ++i) {
        if (i == 0 || k[i] != k[i - 1]) sizes.push_back(0);
        sizes.back() += 1;
      }
    }
    m = static_cast<int>(sizes.size());
    const auto um = static_cast<std::uint32_t>(m);
    matrix<double> T(un, 1, time.data(), 0), S(un, 1, status.data(), 0),
        W(un, 1, weights.data(), 0);
    matrix<double> ones(un, 1), X(un, static_cast<std::uint32_t>(p), xcols.data(), 0);
    matrix<double> K(un, 1, strata.data(), 0), Z(um, 1, sizes.data(), 0);
    for (std::uint32_t i = 0; i < un; ++i) ones.data[i] = 1.0;
    matrix<int> nt(um, 1), nc(um, 1), bs(um, un), bz(um, un), be(um, un);
    int mt = 0;
    const int rc = velkor::cox::cReorganizeDataCox(&T, n, p, &S, &W, &ones, &X, &K, &Z, m, &nt, &nc,
                                                   &bs, &bz, &be, &mt);
    EXPECT_EQ(rc, 0);
    t.assign(T.data, T.data + un);
    d.assign(S.data, S.data + un);
    x.assign(X.data, X.data + X.count);
    key.assign(K.data, K.data + un);
    for (std::uint32_t i = 0; i < un; ++i) w.push_back(W.data[i] * S.data[i]);
    layout = velkor::cox::LayoutFromTables(time.size(), m, &Z, &nt, &bs, &bz, &be);
  }

  struct Value {
    double ll;
    std::vector<double> g, h;
  };
  enum class Path { Cumulative, CumulativeRowMajor, Direct };
  Value Eval(const std::vector<double>& beta, TieTerms terms, Path path = Path::Cumulative) const {
    Value v{0.0, std::vector<double>(static_cast<std::size_t>(p)),
            std::vector<double>(static_cast<std::size_t>(p * p))};
    const auto un = static_cast<std::size_t>(n);
    if (path == Path::Direct) {
      velkor::cox::EvaluateRiskSetsDirect(layout, x.data(), un, p, w.data(), beta.data(), terms,
                                          v.ll, v.g.data(), v.h.data());
    } else if (path == Path::CumulativeRowMajor) {
      const std::vector<double> rows = velkor::cox::RowMajorCopy(x.data(), un, un, p);
      velkor::cox::RiskWorkspace work;
      velkor::cox::EvaluateRiskSets(layout, x.data(), un, p, w.data(), beta.data(), terms, v.ll,
                                    v.g.data(), v.h.data(), rows.data(), &work);
    } else {
      velkor::cox::EvaluateRiskSets(layout, x.data(), un, p, w.data(), beta.data(), terms, v.ll,
                                    v.g.data(), v.h.data());
    }
    return v;
  }

  // The log partial likelihood from its definition, O(n^2) per event time: for each stratum and
  // distinct event time with tied events D and risk set R = {t_i >= tau}, the sum over D of
  // w eta, minus for j = 0..|D|-1 the mean event weight times log(S - (j / |D|) T) (Efron) or
  // log S (Breslow), S = sum_R exp(eta), T = sum_D w exp(eta).
  double Textbook(const std::vector<double>& beta, bool efron, bool countTerms) const {
    std::vector<double> eta(static_cast<std::size_t>(n), 0.0);
    for (int i = 0; i < n; ++i)
      for (int j = 0; j < p; ++j) eta[i] += x[static_cast<std::size_t>(j * n + i)] * beta[j];
    double ll = 0.0;
    std::vector<bool> done(static_cast<std::size_t>(n), false);
    for (int i = 0; i < n; ++i) {
      if (d[i] == 0.0 || done[i]) continue;
      double S = 0, T = 0, W = 0;
      int nd = 0;
      for (int k = 0; k < n; ++k) {
        if (key[k] != key[i] || t[k] < t[i]) continue;
        if (eta[k] < 700) S += std::exp(eta[k]);
        if (t[k] == t[i] && d[k] != 0.0) {
          done[k] = true;
          ++nd;
          W += w[k];
          ll += w[k] * eta[k];
          if (eta[k] < 700) T += w[k] * std::exp(eta[k]);
        }
      }
      for (int j = 0; j < nd; ++j)
        ll -= (countTerms ? 1.0 : W / nd) * std::log(S - (efron ? double(j) / nd : 0.0) * T);
    }
    return ll;
  }
};

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

TEST(CoxLikelihood, CumulativeSumsEqualDirectSumsOnHeavyTies) {
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
  }
}

TEST(CoxLikelihood, AgreesWithTheTextbookDefinition) {
  const Prepared prep = HeavyTies(true);
  const std::vector<double> beta = {0.4, -0.7, 0.25};
  EXPECT_NEAR(prep.Eval(beta, TieTerms::EfronWeighted).ll, prep.Textbook(beta, true, false), 1e-10);
  EXPECT_NEAR(prep.Eval(beta, TieTerms::BreslowWeighted).ll, prep.Textbook(beta, false, false),
              1e-10);
  EXPECT_NEAR(prep.Eval(beta, TieTerms::BreslowCount).ll, prep.Textbook(beta, false, true), 1e-10);
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

TEST(CoxLikelihood, NullLogLikelihoodWithoutTiesIsMinusSumOfLogRiskSetSizes) {
  // Times 1..6 untied, events at 1, 3, 4, 6: risk sets of 6, 4, 3, 1.
  Prepared prep({6, 1, 3, 2, 5, 4}, {1, 1, 1, 0, 0, 1}, {0.3, 1.2, -2, 4, 0.1, 7}, 1);
  const double want = -(std::log(6.0) + std::log(4.0) + std::log(3.0) + std::log(1.0));
  EXPECT_NEAR(prep.Eval({0.0}, TieTerms::BreslowCount).ll, want, 1e-15);
  EXPECT_NEAR(prep.Eval({0.0}, TieTerms::EfronWeighted).ll, want, 1e-15);
}

TEST(CoxLikelihood, StrataAddUp) {
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

TEST(CoxLikelihood, ExponentGuardLeavesRowsAt700OutOfTheRiskSums) {
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
}

TEST(CoxLikelihood, VanishingRiskSetContributesOnlyItsLinearTerm) {
  // The only row at risk at time 2 has eta >= 700: S = 0 is not above epsilon, so the time adds
  // its block term w x beta and nothing else (no log of 0, no division).
  const Prepared prep({1, 2}, {1, 1}, {0.0, 800.0}, 1);
  const auto v = prep.Eval({1.0}, TieTerms::BreslowCount);
  // Time 1: 0 - log(1 + 0) (row 2 guarded out); time 2: 800 and nothing more.
  EXPECT_EQ(v.ll, 800.0);
  EXPECT_EQ(v.g[0], 800.0);
  EXPECT_EQ(v.h[0], 0.0);
}

TEST(CoxLikelihood, FlatEfronCodeIsExactlyBreslowAndObjectEfronIsNot) {
  // Through the exported flat worker, on tied data: codes 0 and 1 give identical bits.
  const Prepared prep = HeavyTies(false);
  const auto un = static_cast<std::uint32_t>(prep.n);
  std::vector<double> w = prep.w, x = prep.x, beta = {0.3, 0.2, -0.4};
  matrix<double> W(un, 1, w.data(), 1), X(un, 3, x.data(), 1), B(3, 1, beta.data(), 1);
  // Rebuild the tables through the preparation to hand them to the exported worker.
  std::vector<double> t = prep.t, s = prep.d, k = prep.key, sizes;
  for (std::size_t i = 0; i < t.size(); ++i) {
    if (i == 0 || k[i] != k[i - 1]) sizes.push_back(0);
    sizes.back() += 1;
  }
  const auto um = static_cast<std::uint32_t>(sizes.size());
  matrix<double> T(un, 1, t.data(), 0), S(un, 1, s.data(), 0), K(un, 1, k.data(), 0);
  matrix<double> Z(um, 1, sizes.data(), 0), ones(un, 1), c2(un, 1), Xc(un, 3, x.data(), 0);
  for (std::uint32_t i = 0; i < un; ++i) ones.data[i] = 1.0;
  matrix<int> nt(um, 1), nc(um, 1), bs(um, un), bz(um, un), be(um, un);
  int mt = 0;
  ASSERT_EQ(velkor::cox::cReorganizeDataCox(&T, prep.n, 3, &S, &c2, &ones, &Xc, &K, &Z,
                                            static_cast<int>(um), &nt, &nc, &bs, &bz, &be, &mt),
            0);
  double l0 = 0, l1 = 0;
  matrix<double> g0(3, 1), g1(3, 1), h0(3, 3), h1(3, 3);
  ComputeLogLikeDerivativesCox(3, &W, &X, 0, &B, &nt, &bz, &bs, static_cast<int>(um), &Z, &be, l0,
                               &g0, &h0);
  ComputeLogLikeDerivativesCox(3, &W, &X, 1, &B, &nt, &bz, &bs, static_cast<int>(um), &Z, &be, l1,
                               &g1, &h1);
  EXPECT_EQ(l0, l1);
  for (int k2 = 0; k2 < 3; ++k2) EXPECT_EQ(g0.data[k2], g1.data[k2]);
  for (int k2 = 0; k2 < 9; ++k2) EXPECT_EQ(h0.data[k2], h1.data[k2]);
  EXPECT_NEAR(l0, prep.Textbook(beta, false, true), 1e-10);
  // The true Efron value differs on these ties.
  EXPECT_GT(std::fabs(prep.Eval(beta, TieTerms::EfronWeighted).ll - l0), 1e-3);
  // A ties code that is neither 0 nor 1 computes nothing.
  double l7 = -1;
  ComputeLogLikeDerivativesCox(3, &W, &X, 7, &B, &nt, &bz, &bs, static_cast<int>(um), &Z, &be, l7,
                               &g1, &h1);
  EXPECT_EQ(l7, 0.0);
  EXPECT_EQ(g1.data[0], 0.0);
}

TEST(CoxLikelihood, UnorderedCallerTablesFallBackToDirectSums) {
  // A caller's table listing the blocks of a stratum out of order gives the direct-sum values.
  std::vector<double> x = {0.1, 0.4, -0.3, 0.9, 0.2}, w = {1, 1, 0, 1, 1};
  velkor::cox::RiskLayout lay;
  lay.n = 5;
  lay.blocks = {{3, 1, 1}, {0, 1, 1}, {1, 2, 1}, {4, 1, 1}};
  velkor::cox::StratumRange st;
  st.first = 0;
  st.rows = 5;
  st.blockBegin = 0;
  st.blockEnd = 4;
  st.ascending = false;
  lay.strata = {st};
  const double beta = 0.7;
  double a = 0, b = 0, g[1], h[1];
  velkor::cox::EvaluateRiskSets(lay, x.data(), 5, 1, w.data(), &beta, TieTerms::BreslowCount, a, g,
                                h);
  velkor::cox::EvaluateRiskSetsDirect(lay, x.data(), 5, 1, w.data(), &beta, TieTerms::BreslowCount,
                                      b, g, h);
  EXPECT_EQ(a, b);
}

TEST(CoxLikelihood, OverlappingCallerBlocksKeepTheirEfronTiedSums) {
  // Ascending blocks whose tied rows run into the next block (a caller's table, never built by
  // the preparation): the row-major evaluation must still read every tied row's exp(eta), as the
  // direct sums do.
  const std::vector<double> x = {0.1, 0.4,  -0.3, 0.9, 0.2, -0.5,  // column 1
                                 1.0, -0.2, 0.3,  0.0, 0.7, 0.4};  // column 2
  const std::vector<double> w = {1, 0.5, 2, 1, 1, 1.5};
  velkor::cox::RiskLayout lay;
  lay.n = 6;
  lay.blocks = {{0, 3, 3}, {2, 2, 2}, {4, 2, 2}};
  velkor::cox::StratumRange st;
  st.rows = 6;
  st.blockEnd = 3;
  lay.strata = {st};
  const std::vector<double> beta = {0.7, -0.4};
  const std::vector<double> rows = velkor::cox::RowMajorCopy(x.data(), 6, 6, 2);
  double a = 0, b = 0, ga[2], gb[2], ha[4], hb[4];
  velkor::cox::RiskWorkspace work;
  velkor::cox::EvaluateRiskSets(lay, x.data(), 6, 2, w.data(), beta.data(), TieTerms::EfronWeighted,
                                a, ga, ha, rows.data(), &work);
  velkor::cox::EvaluateRiskSetsDirect(lay, x.data(), 6, 2, w.data(), beta.data(),
                                      TieTerms::EfronWeighted, b, gb, hb);
  EXPECT_NEAR(a, b, 1e-14 * std::fabs(b));
  for (int k = 0; k < 2; ++k) EXPECT_NEAR(ga[k], gb[k], 1e-14);
  for (int k = 0; k < 4; ++k) EXPECT_NEAR(ha[k], hb[k], 1e-14);
}

}  // namespace
