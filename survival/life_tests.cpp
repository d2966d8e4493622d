#include "survival/life_tests.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <vector>

#include "companion/basic.h"
#include "companion/distributions.h"
#include "companion/linalg.h"
#include "core/frame.h"
#include "core/numeric.h"
#include "survival/kaplan_meier.h"

static int cLoadKaplanTest_impl(int& count, matrix<double>* source, int G, int R, matrix<double>* lastRows,
                    matrix<double>* table) {
  const int groups = G > 0 ? G : 0;
  const std::uint64_t rowsPer = R > 0 ? static_cast<std::uint64_t>(R) : 0;
  const std::uint64_t block = rowsPer * km_col::kCount;
  auto at = [&](int g, std::uint64_t j, int c) -> double {
    return source->at0(static_cast<std::uint64_t>(g) * block +
                       static_cast<std::uint64_t>(c - 1) * rowsPer + j);
  };
  std::vector<std::uint64_t> next(groups, 1), last(groups, 0);
  std::vector<double> atRisk(groups, 0.0);
  for (int g = 0; g < groups; ++g) {
    const double lr = lastRows->at0(static_cast<std::uint64_t>(g));
    last[g] = !(lr >= 1.0) ? 0
              : lr >= static_cast<double>(rowsPer) ? (rowsPer > 0 ? rowsPer - 1 : 0)
                                                   : static_cast<std::uint64_t>(lr);
    atRisk[g] = last[g] >= 1 ? at(g, 1, km_col::kAtRisk) : 0.0;
  }
  const int capacity = count > 0 ? count : 0;
  int T = 0;
  auto same = [](double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); };
  while (T < capacity) {
    // Smallest pending time over the groups.
    bool any = false;
    double t = 0.0;
    for (int g = 0; g < groups; ++g) {
      if (next[g] > last[g]) continue;
      const double tg = at(g, next[g], km_col::kTime);
      if (!any || tg < t || std::isnan(t)) t = tg, any = true;
    }
    if (!any) break;
    const auto col = T + 1;
    table->set(1, col, t);
    for (int g = 0; g < groups; ++g) {
      const int base = 3 * (g + 1);
      double n = atRisk[g], d = 0.0, c = 0.0;
      if (next[g] <= last[g] && same(at(g, next[g], km_col::kTime), t)) {
        n = at(g, next[g], km_col::kAtRisk);
        d = at(g, next[g], km_col::kEvents);
        c = at(g, next[g], km_col::kCensored);
        atRisk[g] = n - d - c;
        ++next[g];
      }
      table->set(base - 1, col, n);
      table->set(base, col, d);
      table->set(base + 1, col, c);
    }
    ++T;
  }
  count = T;
  return 0;
}

namespace {

// One weighted log-rank statistic; `weight_of(N)` gives w_t.
template <class Weight>
double weighted_logrank(matrix<double>* table, int T, int G, Weight weight_of) {
  const int k1 = G - 1;
  std::vector<double> U(k1, 0.0), E(k1, 0.0), n(G), d(G);
  matrix<double> V(static_cast<std::uint32_t>(k1), static_cast<std::uint32_t>(k1));
  for (int t = 1; t <= T; ++t) {
    double D = 0.0, N = 0.0;
    for (int k = 0; k < G; ++k) {
      n[k] = (*table)(3 * (k + 1) - 1, t);
      d[k] = std::max(0.0, (*table)(3 * (k + 1), t));
      D += d[k];
      N += n[k];
    }
    if (!(D > 0.0)) continue;
    const double w = weight_of(N);
    for (int k = 0; k < k1; ++k) {
      if (N > 0.0) E[k] = n[k] * D / N;  // kept from the previous event time otherwise
      U[k] += w * (d[k] - E[k]);
    }
    if (N * (N - 1.0) != 0.0) {
      const double common = w * w * D * (N - D) / (N - 1.0);
      for (int k = 0; k < k1; ++k) {
        const double share = n[k] / N;
        for (int l = 0; l < k1; ++l) {
          V.at0(k, l) += common * share * ((k == l ? 1.0 : 0.0) - n[l] / N);
        }
      }
    }
  }
  matrix<double> inv(static_cast<std::uint32_t>(k1), static_cast<std::uint32_t>(k1));
  short flag = 0;
  M_Inverse(&V, &inv, flag, 1e-12);
  double x2 = 0.0;
  for (int k = 0; k < k1; ++k)
    for (int l = 0; l < k1; ++l) x2 += U[k] * inv.at0(k, l) * U[l];
  return x2;
}

}  // namespace

static int cComputeLifeTests_impl(matrix<double>* table, int T, int G, double alpha, matrix<double>* results) {
  for (int r = 1; r <= 3; ++r) {
    double x2 = velkor::kMissing, crit = velkor::kMissing, pval = velkor::kMissing;
    if (G >= 2) {
      if (r == 1) x2 = weighted_logrank(table, T, G, [](double) { return 1.0; });
      if (r == 2) x2 = weighted_logrank(table, T, G, [](double N) { return N; });
      if (r == 3) x2 = weighted_logrank(table, T, G, [](double N) { return sqr(N); });
      const double df = static_cast<double>(G - 1);
      crit = InvCDFChiSq(1.0 - alpha, df);
      pval = pValChiSq(x2, df);
    }
    results->set(r, 1, x2);
    results->set(r, 2, crit);
    results->set(r, 3, pval);
    results->set(r, 4, alpha);
  }
  return 0;
}

static int cComputeMultComp_impl(matrix<double>* table, int T, int G, double alpha, matrix<double>* results) {
  // More pairs than an int can number cannot be laid out in any caller array.
  if (G < 2 || T < 0 || G > 20000) return 0;
  const int P = G * (G - 1) / 2;
  const std::uint32_t cols = static_cast<std::uint32_t>(T);
  matrix<double> pair(7, cols);
  matrix<double> res(3, 4);
  std::vector<double> raw(static_cast<std::size_t>(3 * P), 0.0);
  int p = 0;
  for (int a = 1; a < G; ++a) {
    for (int b = a + 1; b <= G; ++b, ++p) {
      for (int t = 1; t <= T; ++t) {
        pair.set(1, t, (*table)(1, t));
        for (int r = 0; r < 3; ++r) {
          pair.set(2 + r, t, (*table)(3 * a - 1 + r, t));
          pair.set(5 + r, t, (*table)(3 * b - 1 + r, t));
        }
      }
      cComputeLifeTests(&pair, T, 2, alpha, &res);
      for (int k = 1; k <= 3; ++k) {
        const int row = 3 * p + k;
        results->set(row, 1, a);
        results->set(row, 2, b);
        results->set(row, 3, k);
        results->set(row, 4, res(k, 1));
        results->set(row, 5, res(k, 3));
        results->set(row, 6, std::min(1.0, P * res(k, 3)));
        raw[static_cast<std::size_t>(3 * p + k - 1)] = res(k, 3);
      }
    }
  }
  // Holm (1979) step-down adjustment within each test.
  for (int k = 1; k <= 3; ++k) {
    std::vector<int> order(static_cast<std::size_t>(P));
    std::iota(order.begin(), order.end(), 0);
    auto pv = [&](int q) { return raw[static_cast<std::size_t>(3 * q + k - 1)]; };
    std::stable_sort(order.begin(), order.end(), [&](int x, int y) { return pv(x) < pv(y); });
    double running = 0.0;
    for (int i = 0; i < P; ++i) {
      const int q = order[static_cast<std::size_t>(i)];
      running = std::max(running, std::min(1.0, (P - i) * pv(q)));
      results->set(3 * q + k, 7, running);
    }
  }
  return 0;
}

// Allocation failures become status codes (the worker is exported under its own name).
int cLoadKaplanTest(int& count, matrix<double>* source, int G, int R, matrix<double>* lastRows,
                    matrix<double>* table) {
  return velkor::guarded_call([&] { return cLoadKaplanTest_impl(count, source, G, R, lastRows, table); });
}

// Allocation failures become status codes (the worker is exported under its own name).
int cComputeLifeTests(matrix<double>* table, int T, int G, double alpha, matrix<double>* results) {
  return velkor::guarded_call([&] { return cComputeLifeTests_impl(table, T, G, alpha, results); });
}

// Allocation failures become status codes (the worker is exported under its own name).
int cComputeMultComp(matrix<double>* table, int T, int G, double alpha, matrix<double>* results) {
  return velkor::guarded_call([&] { return cComputeMultComp_impl(table, T, G, alpha, results); });
}
