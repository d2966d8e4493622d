// Post-fit quantities of the Cox model (contracts in cox/post_fit.h).
#include "cox/post_fit.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <numeric>

#include "companion/distributions.h"
#include "companion/sorting.h"
#include "core/frame_memory.h"
#include "core/numeric.h"
#include "cox/key_order.h"
#include "cox/scratch.h"

namespace velkor::cox {

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

double Finite(double v) {
  return std::isfinite(v) ? v : kMissing;
}

// Blocks of stratum s ordered by their first row (the layout order for tables built by
// cReorganizeDataCox; a caller's table may list them otherwise).
std::vector<std::uint32_t> BlocksByStart(const RiskLayout& lay, const StratumRange& st) {
  std::vector<std::uint32_t> idx(st.blockEnd - st.blockBegin);
  std::iota(idx.begin(), idx.end(), st.blockBegin);
  if (!st.ascending)
    std::stable_sort(idx.begin(), idx.end(), [&](std::uint32_t a, std::uint32_t b) {
      return lay.blocks[a].start < lay.blocks[b].start;
    });
  return idx;
}

// Solves A z = b (q x q column-major, copied) by Gaussian elimination with partial pivoting;
// false when a pivot vanishes.
bool Solve(std::vector<double> a, std::vector<double>& b, std::size_t q) {
  for (std::size_t c = 0; c < q; ++c) {
    std::size_t piv = c;
    for (std::size_t r = c + 1; r < q; ++r)
      if (std::fabs(a[c * q + r]) > std::fabs(a[c * q + piv])) piv = r;
    if (!(std::fabs(a[c * q + piv]) > 0.0)) return false;
    if (piv != c) {
      for (std::size_t k = 0; k < q; ++k) std::swap(a[k * q + c], a[k * q + piv]);
      std::swap(b[c], b[piv]);
    }
    for (std::size_t r = c + 1; r < q; ++r) {
      const double f = a[c * q + r] / a[c * q + c];
      if (f == 0.0) continue;
      for (std::size_t k = c; k < q; ++k) a[k * q + r] -= f * a[k * q + c];
      b[r] -= f * b[c];
    }
  }
  for (std::size_t c = q; c-- > 0;) {
    double s = b[c];
    for (std::size_t k = c + 1; k < q; ++k) s -= a[k * q + c] * b[k];
    b[c] = s / a[c * q + c];
  }
  return true;
}

}  // namespace

BreslowBaseline ComputeBreslowBaseline(const RiskLayout& lay, const double* x, int p,
                                       const double* beta) {
  const std::size_t n = lay.n;
  const auto up = static_cast<std::size_t>(p < 0 ? 0 : p);
  const std::size_t nb = lay.blocks.size();
  BreslowBaseline bl;
  bl.eta.assign(n, 0.0);
  for (std::size_t i = 0; i < n; ++i) {
    double e = 0.0;
    for (std::size_t j = 0; j < up; ++j) e += x[i * up + j] * beta[j];
    bl.eta[i] = e;
  }
  bl.riskSum.assign(nb, 0.0);
  bl.cumHaz.assign(nb, 0.0);
  bl.meanX.assign(nb * up, kNaN);
  bl.cumMeanHaz.assign(nb * up, 0.0);
  bl.blockOf.assign(n, BreslowBaseline::kNoBlock);

  // Suffix sums over the rows of each stratum: S and A of the risk set that starts at a row.
  std::vector<double> sufS(n, 0.0), sufA(n * up, 0.0), acc(up);
  for (const StratumRange& st : lay.strata) {
    double s = 0.0;
    std::fill(acc.begin(), acc.end(), 0.0);
    for (std::size_t r = st.first + st.rows; r-- > st.first;) {
      if (bl.eta[r] < kExpGuard) {  // eta >= 700: left out, not clamped
        const double e = std::exp(bl.eta[r]);
        s += e;
        for (std::size_t j = 0; j < up; ++j) acc[j] += e * x[r * up + j];
      }
      sufS[r] = s;
      for (std::size_t j = 0; j < up; ++j) sufA[r * up + j] = acc[j];
    }
    // Cumulative hazard and G in time order, H0 constant over times without events.
    double H = 0.0;
    std::vector<double> G(up, 0.0);
    for (std::uint32_t b = st.blockBegin; b < st.blockEnd; ++b) {
      const TiedBlock& blk = lay.blocks[b];
      const double S = sufS[blk.start];
      bl.riskSum[b] = S;
      if (std::fabs(S) > kEpsilon) {
        const double dH = static_cast<double>(blk.events) / S;
        H += dH;
        for (std::size_t j = 0; j < up; ++j) {
          const double xb = sufA[blk.start * up + j] / S;
          bl.meanX[b * up + j] = xb;
          G[j] += dH * xb;
        }
      }
      bl.cumHaz[b] = H;
      for (std::size_t j = 0; j < up; ++j) bl.cumMeanHaz[b * up + j] = G[j];
    }
    // Each row belongs to the block of the last start at or before it.
    const std::vector<std::uint32_t> order = BlocksByStart(lay, st);
    std::size_t k = 0;
    for (std::size_t r = st.first; r < st.first + st.rows; ++r) {
      while (k + 1 < order.size() && lay.blocks[order[k + 1]].start <= r) ++k;
      if (!order.empty() && lay.blocks[order[k]].start <= r) bl.blockOf[r] = order[k];
    }
  }
  return bl;
}

void FillSurvival(const RiskLayout& lay, const BreslowBaseline& bl, int p, const double* beta,
                  const double* xMean, int cols, double* base, double* rows, double* mean) {
  const std::size_t n = lay.n, m = lay.strata.size();
  const auto up = static_cast<std::size_t>(p < 0 ? 0 : p);
  const auto uc = static_cast<std::size_t>(cols < 0 ? 0 : cols);
  double etaMean = 0.0;
  for (std::size_t j = 0; j < up; ++j) etaMean += xMean[j] * beta[j];
  const double rMean = std::exp(etaMean);
  for (std::size_t s = 0; s < m; ++s) {
    const StratumRange& st = lay.strata[s];
    const std::size_t K = st.blockEnd - st.blockBegin;
    for (std::size_t k = 0; k < uc; ++k) {
      const bool has = k < K;
      const double S0 = has ? std::exp(-bl.cumHaz[st.blockBegin + k]) : kMissing;
      if (base) base[k * m + s] = S0;
      if (mean) mean[k * m + s] = has ? Finite(std::pow(S0, rMean)) : kMissing;
      if (rows)
        for (std::size_t r = st.first; r < st.first + st.rows; ++r)
          rows[k * n + r] = has ? Finite(std::pow(S0, std::exp(bl.eta[r]))) : kMissing;
    }
  }
}

void FillResiduals(const RiskLayout& lay, const BreslowBaseline& bl, const double* time,
                   const double* status, const double* x, int p, const double* cumHazRow,
                   double* table, std::size_t ld) {
  const std::size_t n = lay.n;
  const auto up = static_cast<std::size_t>(p < 0 ? 0 : p);
  for (std::size_t r = 0; r < n; ++r) {
    const std::uint32_t b = bl.blockOf[r];
    const bool inBlock = b != BreslowBaseline::kNoBlock;
    const double delta = status[r];
    const double risk = std::exp(bl.eta[r]);
    const double H = cumHazRow ? cumHazRow[r] : (inBlock ? bl.cumHaz[b] : 0.0);
    const double mart = delta - risk * H;
    // Deviance residual; a row whose fitted cumulative hazard is 0 (delta - martingale == 0)
    // has none.
    const double q = delta - mart;
    double dev = kMissing;
    if (q != 0.0) {
      const double sgn = mart > 0.0 ? 1.0 : (mart < 0.0 ? -1.0 : 0.0);
      dev = sgn * std::sqrt(2.0 * (-mart - delta * std::log(q)));
    }
    table[r] = time[r];
    table[ld + r] = delta;
    table[2 * ld + r] = Finite(mart);
    table[3 * ld + r] = Finite(dev);
    for (std::size_t j = 0; j < up; ++j) {
      const double xij = x[r * up + j];
      const double xb = inBlock ? bl.meanX[b * up + j] : kNaN;
      // Schoenfeld: delta (x - xbar(t_i)); zero for censored rows whatever xbar.
      const double sch = delta == 0.0 ? 0.0 : delta * (xij - xb);
      // Score (Breslow): delta (x - xbar(t_i)) - exp(eta) sum_{t_k <= t_i} (x - xbar_k) dH0_k.
      const double Hb = inBlock ? bl.cumHaz[b] : 0.0;
      const double G = inBlock ? bl.cumMeanHaz[b * up + j] : 0.0;
      const double score = sch - risk * (xij * Hb - G);
      table[(4 + j) * ld + r] = Finite(sch);
      table[(4 + up + j) * ld + r] = Finite(score);
    }
  }
}

double ConcordanceFenwick(std::size_t n, const double* time, const double* status,
                          const double* eta, double* num, double* den) {
  // Every row's position in the stable ascending order of eta (NaN last, above every number) and
  // the first position of its group of equal eta (a NaN is equal to nothing): the rows with eta
  // below row i's are exactly those placed before i's group. Positions are unique, so the rows
  // already counted form a set of positions held as a bitset.
  const std::vector<std::uint32_t> byEta = KeyOrder(eta, n);
  struct Place {
    std::uint32_t pos, low;
  };
  FilledLaterVector<Place> place(n);  // every row gets its place below
  for (std::size_t k = 0; k < n; ++k) {
    const std::uint32_t i = byEta[k];
    const auto pk = static_cast<std::uint32_t>(k);
    const bool newGroup = k == 0 || std::isnan(eta[i]) || eta[i] != eta[byEta[k - 1]];
    place[i] = {pk, newGroup ? pk : place[byEta[k - 1]].low};
  }
  // Rows by time, descending (the ascending order read backwards); a NaN time is never
  // comparable.
  // Times already in ascending order (the prepared rows of one stratum): the stable order is the
  // identity, no sort needed.
  bool ascending = true;
  for (std::size_t k = 0; k < n && ascending; ++k)
    ascending = !std::isnan(time[k]) && (k == 0 || !(time[k] < time[k - 1]));
  std::vector<std::uint32_t> sorted;
  if (!ascending) sorted = SortOrder(time, n);
  // Rows with a time (NaN last in the ascending order), visited from the last: row(k) is the
  // k-th row in descending time.
  std::size_t timed = ascending ? n : sorted.size();
  while (!ascending && timed > 0 && std::isnan(time[sorted[timed - 1]])) --timed;
  const std::uint32_t* asc = ascending ? nullptr : sorted.data();
  auto row = [&](std::size_t k) -> std::uint32_t {
    const std::size_t at = timed - 1 - k;
    return asc ? asc[at] : static_cast<std::uint32_t>(at);
  };
  // The positions of the rows with a strictly greater time: one bit per position in words of
  // 64, and a Fenwick tree of the number of bits set in each word. The number of counted rows
  // placed before position q is the tree's prefix over the words below q's plus the bits of q's
  // word below q. The bitset (n / 8 bytes) and the tree (n / 16 bytes) stay in cache where one
  // count per row would not. Exact integer counts, so the result does not depend on how they
  // are kept. Counts fit in 32 bits (n < 2^32 rows).
  std::vector<std::uint64_t> bits((n >> 6) + 1, 0);
  std::vector<std::uint32_t> tree(bits.size() + 1, 0);
  std::uint64_t inserted = 0, concordant = 0, comparable = 0;
  for (std::size_t g = 0; g < timed;) {
    std::size_t e = g;
    const double tg = time[row(g)];
    while (e < timed && time[row(e)] == tg) ++e;
    for (std::size_t k = g; k < e; ++k) {
      const std::uint32_t i = row(k);
      if (status[i] != 1.0) continue;
      comparable += inserted;
      if (std::isnan(eta[i])) continue;
      const std::size_t low = place[i].low, word = low >> 6;
      std::uint64_t below = 0;  // rows of greater time with eta_j < eta_i
      for (std::size_t q = word; q > 0; q -= q & (~q + 1)) below += tree[q];
      const std::uint64_t under = (std::uint64_t{1} << (low & 63)) - 1;
      below += static_cast<std::uint64_t>(std::popcount(bits[word] & under));
      concordant += below;
    }
    for (std::size_t k = g; k < e; ++k) {
      const std::size_t pos = place[row(k)].pos;
      bits[pos >> 6] |= std::uint64_t{1} << (pos & 63);
      for (std::size_t q = (pos >> 6) + 1; q < tree.size(); q += q & (~q + 1)) ++tree[q];
      ++inserted;
    }
    g = e;
  }
  if (num) *num = static_cast<double>(concordant);
  if (den) *den = static_cast<double>(comparable);
  return comparable == 0 ? kMissing
                         : static_cast<double>(concordant) / static_cast<double>(comparable);
}

double ConcordancePairs(std::size_t n, const double* time, const double* status,
                        const double* eta) {
  double num = 0.0, den = 0.0;
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = 0; j < n; ++j)
      if (time[j] > time[i] && status[i] == 1.0) {
        den += 1.0;
        if (eta[i] > eta[j]) num += 1.0;
      }
  return den == 0.0 ? kMissing : num / den;
}

void QualityRow(double D0, double D, int n, int p, double a, double b, double concordance,
                double* row5) {
  const double scale = static_cast<double>(n) - static_cast<double>(p) - 1.0;
  const double arg = (D0 - D) * 2.0 / scale;
  const double r2 = arg < -kExpGuard ? 1.0 : 1.0 - std::exp(-arg);
  // Rescaled R-square: the exponential alone is divided by n - p - 1 and its argument is
  // -2 D0 itself; both are deliberate and the column's published values depend on them.
  const double r2max =
      2.0 * D0 / scale < -kExpGuard ? r2 : r2 / (1.0 - std::exp(-2.0 * D0) / scale);
  double reduction = 0.0;
  if (b > 0.0) {
    reduction = (b - a) / b;
    if (!(reduction > 0.0)) reduction = 0.0;
  }
  row5[0] = Finite(r2);
  row5[1] = Finite(r2max);
  row5[2] = Finite(reduction);
  row5[3] = concordance;
  row5[4] = IsMissing(concordance) ? kMissing : 2.0 * (concordance - 0.5);
}

void ProportionalityTest(const RiskLayout& lay, const double* time, const double* status,
                         const double* ew, const double* x, int p, const double* beta,
                         PHTransform transform, double* table) {
  const std::size_t n = lay.n;
  const auto up = static_cast<std::size_t>(p < 0 ? 0 : p);
  const std::size_t q2 = 2 * up;
  // Transformed times g(t) of every row, centred on their mean over the event rows.
  std::vector<double> g(n);
  if (transform == PHTransform::Rank || transform == PHTransform::KaplanMeier) {
    std::vector<std::uint32_t> ord(n);
    std::iota(ord.begin(), ord.end(), 0u);
    std::stable_sort(ord.begin(), ord.end(),
                     [&](std::uint32_t a, std::uint32_t b) { return time[a] < time[b]; });
    double surv = 1.0;  // Kaplan-Meier of all rows pooled, left-continuous at each time
    for (std::size_t k = 0; k < n;) {
      std::size_t e = k;
      double d = 0.0;
      while (e < n && time[ord[e]] == time[ord[k]]) d += status[ord[e++]] == 1.0 ? 1.0 : 0.0;
      const double atRisk = static_cast<double>(n - k);
      // Average rank of the tied group (ranks k + 1 .. e).
      const double avgRank = 0.5 * static_cast<double>(k + 1 + e);
      for (std::size_t t = k; t < e; ++t)
        g[ord[t]] = transform == PHTransform::Rank ? avgRank : 1.0 - surv;
      surv *= 1.0 - d / atRisk;
      k = e;
    }
  } else {
    for (std::size_t i = 0; i < n; ++i)
      g[i] = transform == PHTransform::Log ? std::log(time[i]) : time[i];
  }
  double gsum = 0.0, gcount = 0.0;
  for (std::size_t i = 0; i < n; ++i)
    if (status[i] == 1.0) {
      gsum += g[i];
      gcount += 1.0;
    }
  const double gmean = gcount > 0.0 ? gsum / gcount : 0.0;

  std::vector<double> eta(n, 0.0);
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = 0; j < up; ++j) eta[i] += x[i * up + j] * beta[j];

  // Score u of theta and information of (beta, theta), accumulated over event times with the
  // Breslow moments V_k = C_k / S_k - xbar_k xbar_k' (Grambsch & Therneau 1994).
  std::vector<double> u(up, 0.0), imat(q2 * q2, 0.0), A(up), C(up * up), xb(up);
  for (const StratumRange& st : lay.strata) {
    double S = 0.0;
    std::fill(A.begin(), A.end(), 0.0);
    std::fill(C.begin(), C.end(), 0.0);
    std::size_t next = st.first + st.rows;
    for (std::uint32_t b = st.blockEnd; b-- > st.blockBegin;) {
      const TiedBlock& blk = lay.blocks[b];
      for (std::size_t r = blk.start; r < next; ++r) {
        if (!(eta[r] < kExpGuard)) continue;
        const double e = std::exp(eta[r]);
        S += e;
        for (std::size_t j = 0; j < up; ++j) {
          const double ex = e * x[r * up + j];
          A[j] += ex;
          for (std::size_t l = 0; l <= j; ++l) C[l * up + j] += ex * x[r * up + l];
        }
      }
      next = std::min<std::size_t>(next, blk.start);
      if (blk.events <= 0 || !(S > kEpsilon)) continue;
      double W = 0.0, gk = 0.0;
      for (std::size_t j = 0; j < up; ++j) xb[j] = A[j] / S;
      for (std::size_t r = blk.start; r < blk.start + blk.size; ++r) {
        if (status[r] != 1.0) continue;
        const double w = ew ? ew[r] : 1.0;
        W += w;
        gk = g[r] - gmean;
        for (std::size_t j = 0; j < up; ++j) u[j] += w * gk * (x[r * up + j] - xb[j]);
      }
      for (std::size_t j = 0; j < up; ++j)
        for (std::size_t l = 0; l < up; ++l) {
          const double c = j >= l ? C[l * up + j] : C[j * up + l];
          const double v = W * (c / S - xb[j] * xb[l]);
          // Blocks (beta, beta), (beta, theta), (theta, beta), (theta, theta).
          imat[l * q2 + j] += v;
          imat[(up + l) * q2 + j] += gk * v;
          imat[l * q2 + up + j] += gk * v;
          imat[(up + l) * q2 + up + j] += gk * gk * v;
        }
    }
  }
  // Per covariate: the beta block and the theta_j row and column; global: the whole matrix.
  auto test = [&](const std::vector<std::size_t>& idx, const std::vector<double>& score) {
    const std::size_t q = idx.size();
    std::vector<double> a(q * q), z(score);
    for (std::size_t c = 0; c < q; ++c)
      for (std::size_t r = 0; r < q; ++r) a[c * q + r] = imat[idx[c] * q2 + idx[r]];
    if (!Solve(a, z, q)) return kMissing;
    double t = 0.0;
    for (std::size_t k = 0; k < q; ++k) t += z[k] * score[k];
    return t;
  };
  const std::size_t rowsOut = up + 1;
  for (std::size_t j = 0; j <= up; ++j) {
    std::vector<std::size_t> idx;
    std::vector<double> score(up, 0.0);
    for (std::size_t k = 0; k < up; ++k) idx.push_back(k);
    if (j < up) {
      idx.push_back(up + j);
      score.push_back(u[j]);
    } else {
      for (std::size_t k = 0; k < up; ++k) {
        idx.push_back(up + k);
        score.push_back(u[k]);
      }
    }
    const double chi = Finite(test(idx, score));
    const double df = j < up ? 1.0 : static_cast<double>(up);
    table[j] = chi;
    table[rowsOut + j] = df;
    table[2 * rowsOut + j] = IsMissing(chi) ? kMissing : Finite(pValChiSq(chi, df));
  }
}

namespace {

// Copies an r x c column-major block into a container (bounds-checked).
void PutTable(matrix<double>* m, const std::vector<double>& v, std::size_t r, std::size_t c) {
  if (!m || m->count == 0) return;
  if (m->rows == r && m->cols >= c && m->data) {
    std::copy(v.begin(), v.begin() + static_cast<std::ptrdiff_t>(r * c), m->data);
    return;
  }
  for (std::size_t j = 0; j < c; ++j)
    for (std::size_t i = 0; i < r; ++i) m->at0(i, j) = v[j * r + i];
}

}  // namespace

void PostFitOutputs(const RiskLayout& layout, const double* x, int p, const double* beta,
                    const double* xMean, const double* time, const double* status, int cols,
                    matrix<double>* base, matrix<double>* rows, matrix<double>* mean,
                    matrix<double>* residuals) {
  const std::size_t n = layout.n, m = layout.strata.size();
  const auto up = static_cast<std::size_t>(p < 0 ? 0 : p);
  const auto uc = static_cast<std::size_t>(cols < 0 ? 0 : cols);
  const BreslowBaseline bl = ComputeBreslowBaseline(layout, x, p, beta);
  const bool wantRows = rows && rows->count > 0;
  std::vector<double> b(m * uc), mn(m * uc), rs(wantRows ? n * uc : 0);
  FillSurvival(layout, bl, p, beta, xMean, cols, b.data(), wantRows ? rs.data() : nullptr,
               mn.data());
  PutTable(base, b, m, uc);
  PutTable(mean, mn, m, uc);
  if (wantRows) PutTable(rows, rs, n, uc);
  if (residuals && residuals->count > 0) {
    std::vector<double> t(n * (4 + 2 * up));
    FillResiduals(layout, bl, time, status, x, p, nullptr, t.data(), n);
    PutTable(residuals, t, n, 4 + 2 * up);
  }
}

}  // namespace velkor::cox
