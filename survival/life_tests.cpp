#include "survival/life_tests.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <numeric>
#include <type_traits>
#include <vector>

#include "companion/basic.h"
#include "companion/distributions.h"
#include "companion/linalg.h"
#include "core/frame.h"
#include "core/frame_memory.h"
#include "core/numeric.h"
#include "survival/kaplan_meier.h"

// The merge loop of merge_risk_sets on plain column-major memory. tcol .. ccol: each group's
// time, at-risk, event and censored columns; next, atRisk: the merge state (in and out); writes
// at most `capacity` columns of `outData` (leading dimension ld) and returns their number.
// `Count` is either int or a std::integral_constant: with a count fixed at compile time the
// loops over groups unroll (see merge_fixed); the comparisons and stores are the same.
template <class Count>
inline int merge_columns(Count G, const double* const* tc, const double* const* nc,
                         const double* const* dc, const double* const* cc, std::uint64_t* next,
                         const std::uint64_t* last, double* atRisk, int capacity, double* outData,
                         std::uint64_t ld, double& lastStored) {
  const auto same = [](double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); };
  int T = 0;
  while (T < capacity) {
    bool any = false;
    double t = 0.0;
    for (int g = 0; g < G; ++g) {
      if (next[g] > last[g]) continue;
      const double tg = tc[g][next[g]];
      if (!any || tg < t || std::isnan(t)) t = tg, any = true;
    }
    if (!any) break;
    double* out = outData + static_cast<std::uint64_t>(T) * ld;
    out[0] = t;
    for (int g = 0; g < G; ++g) {
      double n = atRisk[g], d = 0.0, c = 0.0;
      if (next[g] <= last[g] && same(tc[g][next[g]], t)) {
        n = nc[g][next[g]];
        d = dc[g][next[g]];
        c = cc[g][next[g]];
        atRisk[g] = n - d - c;
        ++next[g];
      }
      out[3 * g + 1] = n;
      out[3 * g + 2] = d;
      out[3 * g + 3] = c;
      lastStored = c;
    }
    ++T;
  }
  return T;
}

// merge_columns for a number of groups fixed at compile time, its merge state in local arrays so
// that it stays in registers.
template <int G>
int merge_fixed(const double* const* tcol, const double* const* ncol, const double* const* dcol,
                const double* const* ccol, std::uint64_t* nextIO, const std::uint64_t* last,
                double* atRiskIO, int capacity, double* outData, std::uint64_t ld,
                double& lastStored) {
  std::uint64_t next[G];
  double atRisk[G];
  const double *tc[G], *nc[G], *dc[G], *cc[G];
  for (int g = 0; g < G; ++g) {
    next[g] = nextIO[g];
    atRisk[g] = atRiskIO[g];
    tc[g] = tcol[g];
    nc[g] = ncol[g];
    dc[g] = dcol[g];
    cc[g] = ccol[g];
  }
  const int T = merge_columns(std::integral_constant<int, G>{}, tc, nc, dc, cc, next, last, atRisk,
                              capacity, outData, ld, lastStored);
  for (int g = 0; g < G; ++g) {
    nextIO[g] = next[g];
    atRiskIO[g] = atRisk[g];
  }
  return T;
}

// The merge of cLoadKaplanTest on G tables of R rows and `tableCols` columns each (columns 1 to 6
// of the product-limit layout at least: 12 for cRunLife's tables, 6 for the flat entry's copy of
// the columns it reads).
static int merge_risk_sets(int& count, matrix<double>* source, int G, int R, int tableCols,
                           matrix<double>* lastRows, matrix<double>* table) {
  const int groups = G > 0 ? G : 0;
  const std::uint64_t rowsPer = R > 0 ? static_cast<std::uint64_t>(R) : 0;
  const std::uint64_t block = rowsPer * static_cast<std::uint64_t>(tableCols);
  auto at = [&](int g, std::uint64_t j, int c) -> double {
    return source->at0(static_cast<std::uint64_t>(g) * block +
                       static_cast<std::uint64_t>(c - 1) * rowsPer + j);
  };
  std::vector<std::uint64_t> next(groups, 1), last(groups, 0);
  std::vector<double> atRisk(groups, 0.0);
  for (int g = 0; g < groups; ++g) {
    const double lr = lastRows->at0(static_cast<std::uint64_t>(g));
    last[g] = !(lr >= 1.0)                         ? 0
              : lr >= static_cast<double>(rowsPer) ? (rowsPer > 0 ? rowsPer - 1 : 0)
                                                   : static_cast<std::uint64_t>(lr);
    atRisk[g] = last[g] >= 1 ? at(g, 1, km_col::kAtRisk) : 0.0;
  }
  const int capacity = count > 0 ? count : 0;
  int T = 0;
  auto same = [](double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); };
  // Every source table inside `source` and every column up to `capacity` inside `table` (the
  // flat entry's case): the same merge on plain column-major memory, the spare element of
  // `table` left as the last store through set() would leave it.
  const std::uint64_t outRows = static_cast<std::uint64_t>(3) * groups + 1;
  if (source->data != nullptr && table->data != nullptr && groups > 0 &&
      static_cast<std::uint64_t>(groups) * block <= source->count && table->rows >= outRows &&
      table->cols >= static_cast<std::uint64_t>(capacity)) {
    const double* src = source->data;
    const std::uint64_t ld = table->rows;
    const auto col_of = [&](int g, int c) {
      return src + static_cast<std::uint64_t>(g) * block +
             static_cast<std::uint64_t>(c - 1) * rowsPer;
    };
    std::vector<const double*> tcol(groups), ncol(groups), dcol(groups), ccol(groups);
    for (int g = 0; g < groups; ++g) {
      tcol[g] = col_of(g, km_col::kTime);
      ncol[g] = col_of(g, km_col::kAtRisk);
      dcol[g] = col_of(g, km_col::kEvents);
      ccol[g] = col_of(g, km_col::kCensored);
    }
    double lastStored = 0.0;
    const auto fixed = [&](auto groupCount) {
      constexpr int kG = decltype(groupCount)::value;
      T = merge_fixed<kG>(tcol.data(), ncol.data(), dcol.data(), ccol.data(), next.data(),
                          last.data(), atRisk.data(), capacity, table->data, ld, lastStored);
    };
    switch (groups) {
      case 2:
        fixed(std::integral_constant<int, 2>{});
        break;
      case 3:
        fixed(std::integral_constant<int, 3>{});
        break;
      case 4:
        fixed(std::integral_constant<int, 4>{});
        break;
      default:
        break;
    }
    if (groups < 2 || groups > 4)  // other numbers of groups
      T = merge_columns(groups, tcol.data(), ncol.data(), dcol.data(), ccol.data(), next.data(),
                        last.data(), atRisk.data(), capacity, table->data, ld, lastStored);
    if (T > 0) table->spare = lastStored;
    count = T;
    return 0;
  }
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

// The per-time rows the tests read, n_kt (row 3k - 1) and d_kt (row 3k) of every group
// k = 1 .. G, each as one contiguous array over the times, so that the passes below (the overall
// test and every pair of groups) read unit-stride memory instead of one cache line per time and
// test. Either copied out of the combined table (when all those rows lie inside it) or viewed in
// the flat entry's private copy, which holds exactly these rows in this layout.
class RiskColumns {
 public:
  RiskColumns(const matrix<double>& table, int G, std::uint64_t cols)
      : cols_(cols),
        block_(std::make_unique<velkor::frame_memory::Block>(
            2 * static_cast<std::size_t>(G) * (cols > 0 ? cols : 1) * sizeof(double))) {
    auto* out = static_cast<double*>(block_->get());
    base_ = out;
    const std::uint64_t ld = table.rows;
    for (std::uint64_t t = 0; t < cols; ++t) {
      const double* column = table.data + t * ld;
      for (int k = 0; k < G; ++k) {
        out[(2 * static_cast<std::uint64_t>(k)) * cols + t] = column[3 * k + 1];
        out[(2 * static_cast<std::uint64_t>(k) + 1) * cols + t] = column[3 * k + 2];
      }
    }
  }
  // A view of rows laid out as above: column 2k - 2 of `rows` n_k, column 2k - 1 d_k (0-based).
  RiskColumns(const double* rows, std::uint64_t ld, std::uint64_t cols)
      : cols_(cols), ld_(ld), base_(rows) {}
  // Group g (1-based): numbers at risk and events over the cols times (events not yet clipped).
  const double* at_risk(int g) const {
    return base_ + 2 * static_cast<std::uint64_t>(g - 1) * ld();
  }
  const double* events(int g) const {
    return base_ + (2 * static_cast<std::uint64_t>(g - 1) + 1) * ld();
  }
  std::uint64_t cols() const { return cols_; }

 private:
  std::uint64_t ld() const { return block_ ? cols_ : ld_; }
  std::uint64_t cols_, ld_ = 0;
  std::unique_ptr<velkor::frame_memory::Block> block_;
  const double* base_ = nullptr;
};

// max(0, d): a negative count (the missing-value marker included) and NaN count as 0. Written
// as a comparison that compilers map to a (packed) max instruction in a loop of its own.
inline double clip_events(double d) {
  return d > 0.0 ? d : 0.0;
}

// The scores U (3 x (G-1)) and covariances V (3 x (G-1)^2) of the three weighted log-rank
// statistics over the listed groups (the last is the reference), from their RiskColumns. The
// same arithmetic, term by term and in the same order, as the general pass in three_tests, with
// the group count fixed at compile time so that the loops over groups unroll; the results are
// bit-identical. Times go in chunks: first, for every time of the chunk, D_t, N_t and the
// quotients n_k D / N, n_k / N and D (N - D) / (N - 1), in loops without branches that the
// compiler turns into packed arithmetic (each quotient is correctly rounded either way); then
// the sums, in time order, over the times with D_t > 0 only.
template <int G>
void risk_set_sums(const RiskColumns& rc, const int* groups, double* U, double* V) {
  constexpr int k1 = G - 1;
  constexpr std::size_t kk = static_cast<std::size_t>(k1) * k1;
  constexpr std::size_t kChunk = 256;
  const double* n[G];
  const double* d[G];
  for (int k = 0; k < G; ++k) {
    n[k] = rc.at_risk(groups[k]);
    d[k] = rc.events(groups[k]);
  }
  double E[k1] = {}, u[3 * k1] = {}, v[3 * kk] = {};
  double dk[G][kChunk], Dc[kChunk], Nc[kChunk], expected[k1][kChunk], share[k1][kChunk],
      common[kChunk];
  std::uint32_t live[kChunk];
  const std::uint64_t cols = rc.cols();
  for (std::uint64_t t0 = 0; t0 < cols; t0 += kChunk) {
    const std::size_t m = static_cast<std::size_t>(std::min<std::uint64_t>(kChunk, cols - t0));
    for (int k = 0; k < G; ++k)
      for (std::size_t c = 0; c < m; ++c) dk[k][c] = clip_events(d[k][t0 + c]);
    for (std::size_t c = 0; c < m; ++c) {
      double D = 0.0, N = 0.0;
      for (int k = 0; k < G; ++k) {
        D += dk[k][c];
        N += n[k][t0 + c];
      }
      Dc[c] = D;
      Nc[c] = N;
    }
    for (int k = 0; k < k1; ++k)
      for (std::size_t c = 0; c < m; ++c) expected[k][c] = n[k][t0 + c] * Dc[c] / Nc[c];
    for (int k = 0; k < k1; ++k)
      for (std::size_t c = 0; c < m; ++c) share[k][c] = n[k][t0 + c] / Nc[c];
    for (std::size_t c = 0; c < m; ++c) common[c] = Dc[c] * (Nc[c] - Dc[c]) / (Nc[c] - 1.0);
    std::size_t nLive = 0;
    for (std::size_t c = 0; c < m; ++c) {
      live[nLive] = static_cast<std::uint32_t>(c);
      nLive += Dc[c] > 0.0 ? 1 : 0;
    }
    for (std::size_t i = 0; i < nLive; ++i) {
      const std::size_t c = live[i];
      const double N = Nc[c];
      const double w[3] = {1.0, N, sqr(N)};
      for (int k = 0; k < k1; ++k) {
        if (N > 0.0) E[k] = expected[k][c];  // else kept (deliberate)
        const double o = dk[k][c] - E[k];
        for (int j = 0; j < 3; ++j) u[j * k1 + k] += w[j] * o;
      }
      if (N * (N - 1.0) != 0.0) {
        for (int k = 0; k < k1; ++k) {
          const double cs = common[c] * share[k][c];
          for (int l = 0; l < k1; ++l) {
            const double x = cs * ((k == l ? 1.0 : 0.0) - share[l][c]);
            const std::size_t at = static_cast<std::size_t>(k) * k1 + static_cast<std::size_t>(l);
            for (int j = 0; j < 3; ++j) v[static_cast<std::size_t>(j) * kk + at] += w[j] * w[j] * x;
          }
        }
      }
    }
  }
  for (int e = 0; e < 3 * k1; ++e) U[e] = u[e];
  for (std::size_t e = 0; e < 3 * kk; ++e) V[e] = v[e];
}

// The three weighted log-rank statistics (weights 1, N_t, sqrt(N_t)) of the groups whose 1-based
// numbers are listed in `groups` (the last one is the reference), accumulated in one pass over
// the combined table (`rc`: its risk columns when built). Results rows 1-3: X^2, critical value,
// p-value, alpha.
void three_tests(matrix<double>* table, int T, const std::vector<int>& groups, double alpha,
                 matrix<double>* results, const RiskColumns* rc) {
  const int G = static_cast<int>(groups.size());
  double x2[3] = {velkor::kMissing, velkor::kMissing, velkor::kMissing};
  double crit = velkor::kMissing, pval[3] = {velkor::kMissing, velkor::kMissing, velkor::kMissing};
  if (G >= 2) {
    const int k1 = G - 1;
    const std::size_t kk = static_cast<std::size_t>(k1) * static_cast<std::size_t>(k1);
    std::vector<double> U(3 * static_cast<std::size_t>(k1), 0.0), V(3 * kk, 0.0);
    // The unrolled pass for the usual small numbers of groups; otherwise the general pass (which
    // reads the spare element for rows outside the table).
    switch (rc != nullptr && G <= 6 ? G : 0) {
      case 2:
        risk_set_sums<2>(*rc, groups.data(), U.data(), V.data());
        break;
      case 3:
        risk_set_sums<3>(*rc, groups.data(), U.data(), V.data());
        break;
      case 4:
        risk_set_sums<4>(*rc, groups.data(), U.data(), V.data());
        break;
      case 5:
        risk_set_sums<5>(*rc, groups.data(), U.data(), V.data());
        break;
      case 6:
        risk_set_sums<6>(*rc, groups.data(), U.data(), V.data());
        break;
      default: {
        if (table == nullptr) break;  // never: a view of the risk rows serves at most 6 groups
        const std::uint64_t ld = table->rows;
        const std::uint64_t cols =
            std::min<std::uint64_t>(T > 0 ? static_cast<std::uint64_t>(T) : 0, table->cols);
        std::vector<double> E(static_cast<std::size_t>(k1), 0.0), n(static_cast<std::size_t>(G)),
            d(static_cast<std::size_t>(G));
        for (std::uint64_t t = 0; t < cols; ++t) {
          const double* column = table->data + t * ld;
          double D = 0.0, N = 0.0;
          for (int k = 0; k < G; ++k) {
            const auto r = static_cast<std::uint64_t>(3) *
                           static_cast<std::uint64_t>(groups[static_cast<std::size_t>(k)]);
            n[static_cast<std::size_t>(k)] =
                r - 2 < ld ? column[r - 2] : table->spare;  // row 3k - 1
            d[static_cast<std::size_t>(k)] =
                std::max(0.0, r - 1 < ld ? column[r - 1] : table->spare);  // row 3k
            D += d[static_cast<std::size_t>(k)];
            N += n[static_cast<std::size_t>(k)];
          }
          if (!(D > 0.0)) continue;
          const double w[3] = {1.0, N, sqr(N)};
          for (int k = 0; k < k1; ++k) {
            if (N > 0.0)
              E[static_cast<std::size_t>(k)] =
                  n[static_cast<std::size_t>(k)] * D / N;  // else kept (deliberate)
            const double o = d[static_cast<std::size_t>(k)] - E[static_cast<std::size_t>(k)];
            for (int m = 0; m < 3; ++m) U[static_cast<std::size_t>(m * k1 + k)] += w[m] * o;
          }
          if (N * (N - 1.0) != 0.0) {
            const double common = D * (N - D) / (N - 1.0);
            for (int k = 0; k < k1; ++k) {
              const double share = n[static_cast<std::size_t>(k)] / N;
              for (int l = 0; l < k1; ++l) {
                const double v =
                    common * share * ((k == l ? 1.0 : 0.0) - n[static_cast<std::size_t>(l)] / N);
                const std::size_t at = static_cast<std::size_t>(k) * static_cast<std::size_t>(k1) +
                                       static_cast<std::size_t>(l);
                for (int m = 0; m < 3; ++m)
                  V[static_cast<std::size_t>(m) * kk + at] += w[m] * w[m] * v;
              }
            }
          }
        }
        break;
      }
    }
    const auto dim = static_cast<std::uint32_t>(k1);
    const double df = static_cast<double>(k1);
    crit = InvCDFChiSq(1.0 - alpha, df);
    for (int m = 0; m < 3; ++m) {
      matrix<double> Vm(dim, dim), inv(dim, dim);
      for (std::size_t e = 0; e < kk; ++e) Vm.data[e] = V[static_cast<std::size_t>(m) * kk + e];
      short flag = 0;
      M_Inverse(&Vm, &inv, flag, 1e-12);  // a singular V gives the zero inverse: X^2 = 0
      double q = 0.0;
      for (int k = 0; k < k1; ++k)
        for (int l = 0; l < k1; ++l)
          q += U[static_cast<std::size_t>(m * k1 + k)] *
               inv.at0(static_cast<std::uint64_t>(k), static_cast<std::uint64_t>(l)) *
               U[static_cast<std::size_t>(m * k1 + l)];
      x2[m] = q;
      pval[m] = pValChiSq(q, df);
    }
  }
  for (int r = 1; r <= 3; ++r) {
    results->set(r, 1, x2[r - 1]);
    results->set(r, 2, crit);
    results->set(r, 3, pval[r - 1]);
    results->set(r, 4, alpha);
  }
}

// The risk columns of groups 1 .. G when their rows lie inside the table (null otherwise: the
// tests then take the general pass).
std::unique_ptr<RiskColumns> risk_columns(matrix<double>* table, int T, int G) {
  if (G < 2 || G > 20000 || table->data == nullptr ||
      3 * static_cast<std::uint64_t>(G) - 1 >= table->rows)
    return nullptr;
  const std::uint64_t cols =
      std::min<std::uint64_t>(T > 0 ? static_cast<std::uint64_t>(T) : 0, table->cols);
  return std::make_unique<RiskColumns>(*table, G, cols);
}

}  // namespace

static int cComputeLifeTests_impl(matrix<double>* table, int T, int G, double alpha,
                                  matrix<double>* results) {
  std::vector<int> groups;
  for (int k = 1; k <= G && k <= 1000000; ++k) groups.push_back(k);
  const std::unique_ptr<RiskColumns> rc = G <= 6 ? risk_columns(table, T, G) : nullptr;
  three_tests(table, T, groups, alpha, results, rc.get());
  return 0;
}

// Every pair of groups on the combined table (`rc`: its risk columns when available; then
// `table` may be null).
static int mult_comp(matrix<double>* table, int T, int G, double alpha, matrix<double>* results,
                     const RiskColumns* rc) {
  // More pairs than an int can number cannot be laid out in any caller array.
  if (G < 2 || T < 0 || G > 20000) return 0;
  const int P = G * (G - 1) / 2;
  matrix<double> res(3, 4);
  std::vector<double> raw(static_cast<std::size_t>(3 * P), 0.0);
  int p = 0;
  for (int a = 1; a < G; ++a) {
    for (int b = a + 1; b <= G; ++b, ++p) {
      three_tests(table, T, {a, b}, alpha, &res, rc);
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

static int cComputeMultComp_impl(matrix<double>* table, int T, int G, double alpha,
                                 matrix<double>* results) {
  if (G < 2 || T < 0 || G > 20000) return 0;
  const std::unique_ptr<RiskColumns> rc = risk_columns(table, T, G);
  return mult_comp(table, T, G, alpha, results, rc.get());
}

std::vector<std::uint32_t> LifeTestRiskRows(int G) {
  std::vector<std::uint32_t> rows;
  for (std::uint32_t k = 0; k < static_cast<std::uint32_t>(G > 0 ? G : 0); ++k) {
    rows.push_back(3 * k + 1);
    rows.push_back(3 * k + 2);
  }
  return rows;
}

int ComputeLifeTestsRiskRows(matrix<double>* riskRows, int T, int G, double alpha,
                             matrix<double>* results) {
  return velkor::guarded_call([&] {
    std::vector<int> groups;
    for (int k = 1; k <= G && k <= 6; ++k) groups.push_back(k);
    const std::uint64_t cols =
        std::min<std::uint64_t>(T > 0 ? static_cast<std::uint64_t>(T) : 0, riskRows->rows);
    const RiskColumns rc(riskRows->data, riskRows->rows, cols);
    three_tests(nullptr, T, groups, alpha, results, &rc);
    return 0;
  });
}

int ComputeMultCompRiskRows(matrix<double>* riskRows, int T, int G, double alpha,
                            matrix<double>* results) {
  return velkor::guarded_call([&] {
    const std::uint64_t cols =
        std::min<std::uint64_t>(T > 0 ? static_cast<std::uint64_t>(T) : 0, riskRows->rows);
    const RiskColumns rc(riskRows->data, riskRows->rows, cols);
    return mult_comp(nullptr, T, G, alpha, results, &rc);
  });
}

// Allocation failures become status codes (the worker is exported under its own name).
int cLoadKaplanTest(int& count, matrix<double>* source, int G, int R, matrix<double>* lastRows,
                    matrix<double>* table) {
  return velkor::guarded_call(
      [&] { return merge_risk_sets(count, source, G, R, km_col::kCount, lastRows, table); });
}

int LoadKaplanTestColumns(int& count, matrix<double>* source, int G, int R, int tableCols,
                          matrix<double>* lastRows, matrix<double>* table) {
  return velkor::guarded_call(
      [&] { return merge_risk_sets(count, source, G, R, tableCols, lastRows, table); });
}

// Allocation failures become status codes (the worker is exported under its own name).
int cComputeLifeTests(matrix<double>* table, int T, int G, double alpha, matrix<double>* results) {
  return velkor::guarded_call([&] { return cComputeLifeTests_impl(table, T, G, alpha, results); });
}

// Allocation failures become status codes (the worker is exported under its own name).
int cComputeMultComp(matrix<double>* table, int T, int G, double alpha, matrix<double>* results) {
  return velkor::guarded_call([&] { return cComputeMultComp_impl(table, T, G, alpha, results); });
}
