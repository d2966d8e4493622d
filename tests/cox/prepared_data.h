// Small Cox data sets for the unit tests: sorted and described by cReorganizeDataCox, with
// their layout, evaluations of the likelihood by each path, the textbook log-likelihood and fits
// of both forms.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "cox/cox.h"
#include "cox/run.h"

namespace velkor::cox::testing {

using velkor::cox::TieTerms;

// A small data set, prepared by cReorganizeDataCox, with its layout and event weights.
struct Prepared {
  int n, p, m;
  std::vector<double> t, d, w, x, key, sizes;  // sorted; w = case weight x status
  velkor::cox::RiskLayout layout;

  Prepared(std::vector<double> time, std::vector<double> status, std::vector<double> xcols, int np,
           std::vector<double> strata = {}, std::vector<double> weights = {})
      : n(static_cast<int>(time.size())), p(np) {
    const auto un = static_cast<std::uint32_t>(n);
    if (strata.empty()) strata.assign(time.size(), 1.0);
    if (weights.empty()) weights.assign(time.size(), 1.0);
    std::vector<double> k = strata;
    std::sort(k.begin(), k.end());
    for (std::size_t i = 0; i < k.size(); ++i) {
      if (i == 0 || k[i] != k[i - 1]) sizes.push_back(0);
      sizes.back() += 1;
    }
    m = static_cast<int>(sizes.size());
    const auto um = static_cast<std::uint32_t>(m);
    std::vector<double> ones(time.size(), 1.0);
    matrix<double> T(un, 1, time.data(), 1), S(un, 1, status.data(), 1),
        W(un, 1, weights.data(), 1), C3(un, 1, ones.data(), 1),
        X(un, static_cast<std::uint32_t>(p), xcols.data(), 1), K(un, 1, strata.data(), 1),
        Z(um, 1, sizes.data(), 1);
    matrix<int> NT(um, 1), NC(um, 1), BS(um, un), BZ(um, un), BE(um, un);
    int mt = 0;
    EXPECT_EQ(velkor::cox::cReorganizeDataCox(&T, n, p, &S, &W, &C3, &X, &K, &Z, m, &NT, &NC, &BS,
                                              &BZ, &BE, &mt),
              0);
    t = time;
    d = status;
    x = xcols;
    key = strata;
    for (std::uint32_t i = 0; i < un; ++i) w.push_back(weights[i] * status[i]);
    layout = velkor::cox::LayoutFromTables(time.size(), m, &Z, &NT, &BS, &BZ, &BE);
  }

  // Newton-Raphson fits of both forms from beta = 0.
  velkor::cox::FitResult Flat(int maxIter, double tol = 1e-9,
                              TieTerms terms = TieTerms::BreslowCount) const {
    const velkor::cox::CoxProblem prob{&layout, w.data(), terms};
    return velkor::cox::FitFlat(prob, velkor::cox::RowMajorCopy(x.data(), t.size(), t.size(), p), p,
                                maxIter, tol);
  }
  velkor::cox::FitResult Object(int maxIter, double tol = 1e-9,
                                TieTerms terms = TieTerms::EfronWeighted) const {
    const velkor::cox::CoxProblem prob{&layout, w.data(), terms};
    return velkor::cox::FitObject(prob, velkor::cox::RowMajorCopy(x.data(), t.size(), t.size(), p),
                                  p, maxIter, tol);
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

}  // namespace velkor::cox::testing
