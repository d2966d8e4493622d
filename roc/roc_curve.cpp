// ROC curve, area under the curve, standard errors, interval, test of AUC = 0.5 and optimal
// thresholds.
//
// ComputeROC contract (flat layout in include/velkor/roc.h):
//   in : status, values, weights (n x 1; weights with no elements = unit weights), side code,
//        alpha, standard-error method, tail code, interval method, continuity flag, prior
//        prevalence of the per-threshold statistics, unitCosts (4 x 1: costs of a, b, c, d)
//   out: curve ((n+1) x 3), thresholdStats (n x 44), costs (n x 1), auc (9 x 1),
//        optimal (n x 4), counts (3 x 1 int). Cells past the k thresholds hold the missing marker.
//   Status: 0, or -2 when the usable rows hold no positive or no negative (nothing written).
//   Helpers: a stable radix sort (the order SortQ gives), InvCDFNormalStd,
//            CDFNormalStd, ClassificationStatistics (the table statistics at each threshold).
//
// The curve: the k distinct test values t_1 < ... < t_k are the thresholds; threshold r gives
// the point (1 - Sp_r, Se_r) of its 2 x 2 table, and an end point ((0,0) for sides 1 and 2,
// (1,1) otherwise) closes the curve. The rows are ordered by 1 - Sp (then Se), exactly as a
// stable sort by column 2 followed by a stable sort by column 1 orders them, and
//   AUC = sum_r (x_{r+1} - x_r)(y_{r+1} + y_r) / 2      (trapezoid rule).
// Standard errors: Hanley & McNeil (1982), Bamber (1975), DeLong et al. (1988), with weights.
#include "roc/roc_curve.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <numeric>

#include "companion/basic.h"
#include "companion/distributions.h"
#include "core/numeric.h"
#include "roc/contingency.h"

namespace velkor::roc {

namespace {

// Prefix sums P[0] = 0, P[i] = w_0 + ... + w_{i-1}, each accumulated with Neumaier's compensated
// summation, so that a run total P[hi] - P[lo] is within an ulp of the total weight of the run.
std::vector<double> compensated_prefix(const std::vector<double>& w) {
  std::vector<double> P(w.size() + 1);
  double sum = 0.0, comp = 0.0;
  P[0] = 0.0;
  for (std::size_t i = 0; i < w.size(); ++i) {
    const double t = sum + w[i];
    if (std::fabs(sum) >= std::fabs(w[i])) {
      comp += (sum - t) + w[i];
    } else {
      comp += (w[i] - t) + sum;
    }
    sum = t;
    P[i + 1] = sum + comp;
  }
  return P;
}

// Total of w by the same compensated summation (the last prefix sum, without storing the others).
double compensated_total(const std::vector<double>& w) {
  double sum = 0.0, comp = 0.0;
  for (double x : w) {
    const double t = sum + x;
    comp += std::fabs(sum) >= std::fabs(x) ? (sum - t) + x : (x - t) + sum;
    sum = t;
  }
  return sum + comp;
}

double psi(double x, double y) {
  const double d = x - y;
  if (d > kTieGap) return 1.0;
  if (std::fabs(d) < kTieGap) return 0.5;
  return 0.0;
}

}  // namespace

bool RowIsUsable(double status, double value, double weight) {
  return (status == 0.0 || status == 1.0) && std::isfinite(value) && !IsMissing(value) &&
         std::isfinite(weight) && weight > 0.0;
}

// ---------------------------------------------------------------------------------------------
// DeLong components
// ---------------------------------------------------------------------------------------------

double DeLongComponents(const GroupedValues& g, std::vector<double>& cpos,
                        std::vector<double>& cneg) {
  const std::size_t n1 = g.x.size(), n0 = g.y.size();
  const std::vector<double> P = compensated_prefix(g.wx);
  const std::vector<double> Q = compensated_prefix(g.wy);
  cpos.assign(n1, 0.0);
  cneg.assign(n0, 0.0);
  // Negatives: d_i = x_i - y_j is non-decreasing in i and non-increasing in j, so the first
  // indices with d > -gap (lo), d >= gap (mid) and d > gap (hi) only move right as j grows.
  // psi = 1/2 on [lo, mid), 1 on [hi, n1), 0 elsewhere (including d == gap exactly).
  std::size_t lo = 0, mid = 0, hi = 0;
  for (std::size_t j = 0; j < n0; ++j) {
    const double y = g.y[j];
    while (lo < n1 && !(g.x[lo] - y > -kTieGap)) ++lo;
    while (mid < n1 && g.x[mid] - y < kTieGap) ++mid;
    while (hi < n1 && !(g.x[hi] - y > kTieGap)) ++hi;
    if (mid < lo) mid = lo;
    const double ones = P[n1] - P[hi];
    const double halves = P[mid] - P[lo];
    cneg[j] = (ones + 0.5 * halves) / g.W1;
  }
  // Positives: e_j = x_i - y_j is non-increasing in j: psi = 1 on [0, p) (e > gap), 1/2 on
  // [q, r) (gap > e > -gap), and the three indices only move right as x_i grows.
  std::size_t p = 0, q = 0, r = 0;
  for (std::size_t i = 0; i < n1; ++i) {
    const double x = g.x[i];
    while (p < n0 && x - g.y[p] > kTieGap) ++p;
    while (q < n0 && !(x - g.y[q] < kTieGap)) ++q;
    while (r < n0 && x - g.y[r] > -kTieGap) ++r;
    if (r < q) r = q;
    const double ones = Q[p];
    const double halves = Q[r] - Q[q];
    cpos[i] = (ones + 0.5 * halves) / g.W0;
  }
  double A = 0.0;
  for (std::size_t j = 0; j < n0; ++j) A += g.wy[j] * cneg[j];
  return A / g.W0;
}

double DeLongComponentsPairwise(const GroupedValues& g, std::vector<double>& cpos,
                                std::vector<double>& cneg) {
  const std::size_t n1 = g.x.size(), n0 = g.y.size();
  cpos.assign(n1, 0.0);
  cneg.assign(n0, 0.0);
  for (std::size_t j = 0; j < n0; ++j) {
    double s = 0.0;
    for (std::size_t i = 0; i < n1; ++i) s += g.wx[i] * psi(g.x[i], g.y[j]);
    cneg[j] = s / g.W1;
  }
  for (std::size_t i = 0; i < n1; ++i) {
    double s = 0.0;
    for (std::size_t j = 0; j < n0; ++j) s += g.wy[j] * psi(g.x[i], g.y[j]);
    cpos[i] = s / g.W0;
  }
  double A = 0.0;
  for (std::size_t j = 0; j < n0; ++j) A += g.wy[j] * cneg[j];
  return A / g.W0;
}

// ---------------------------------------------------------------------------------------------
// Bamber's sum
// ---------------------------------------------------------------------------------------------

namespace {
inline double bamber_term(double a, double b) {
  return (b - 1.0) * b + (a - 1.0) * a - 2.0 * a * b;
}
}  // namespace

double BambersSum(const GroupedValues& g) {
  const std::size_t n1 = g.x.size(), n0 = g.y.size();
  const std::vector<double> P = compensated_prefix(g.wx);
  const std::vector<double> Q = compensated_prefix(g.wy);
  // T: each negative's squared weight once per positive within the tie gap (the negative's
  // weight squared, not the product of the two weights: kept as defined).
  double T = 0.0;
  std::size_t lo = 0, mid = 0;
  for (std::size_t j = 0; j < n0; ++j) {
    const double y = g.y[j];
    while (lo < n1 && !(g.x[lo] - y > -kTieGap)) ++lo;
    while (mid < n1 && g.x[mid] - y < kTieGap) ++mid;
    if (mid < lo) mid = lo;
    T += g.wy[j] * g.wy[j] * static_cast<double>(mid - lo);
  }
  double S = g.W1 * g.W0 - T;
  // Negatives: a = weight of positives strictly below y_j, b = strictly above.
  std::size_t below = 0, notAbove = 0;
  for (std::size_t j = 0; j < n0; ++j) {
    const double y = g.y[j];
    while (below < n1 && g.x[below] < y) ++below;
    while (notAbove < n1 && g.x[notAbove] <= y) ++notAbove;
    const double a = P[below];
    const double b = P[n1] - P[notAbove];
    S += g.wy[j] * bamber_term(a, b);
  }
  // Positives: a = weight of negatives strictly above x_i, b = strictly below.
  std::size_t negBelow = 0, negNotAbove = 0;
  for (std::size_t i = 0; i < n1; ++i) {
    const double x = g.x[i];
    while (negBelow < n0 && g.y[negBelow] < x) ++negBelow;
    while (negNotAbove < n0 && g.y[negNotAbove] <= x) ++negNotAbove;
    const double a = Q[n0] - Q[negNotAbove];
    const double b = Q[negBelow];
    S += g.wx[i] * bamber_term(a, b);
  }
  return S;
}

double BambersSumPairwise(const GroupedValues& g) {
  const std::size_t n1 = g.x.size(), n0 = g.y.size();
  double T = 0.0;
  for (std::size_t j = 0; j < n0; ++j)
    for (std::size_t i = 0; i < n1; ++i)
      if (std::fabs(g.y[j] - g.x[i]) < kTieGap) T += g.wy[j] * g.wy[j];
  double S = g.W1 * g.W0 - T;
  for (std::size_t j = 0; j < n0; ++j) {
    double a = 0.0, b = 0.0;
    for (std::size_t i = 0; i < n1; ++i) {
      if (g.x[i] < g.y[j]) a += g.wx[i];
      if (g.x[i] > g.y[j]) b += g.wx[i];
    }
    S += g.wy[j] * bamber_term(a, b);
  }
  for (std::size_t i = 0; i < n1; ++i) {
    double a = 0.0, b = 0.0;
    for (std::size_t j = 0; j < n0; ++j) {
      if (g.y[j] > g.x[i]) a += g.wy[j];
      if (g.y[j] < g.x[i]) b += g.wy[j];
    }
    S += g.wx[i] * bamber_term(a, b);
  }
  return S;
}

// ---------------------------------------------------------------------------------------------
// Standard errors
// ---------------------------------------------------------------------------------------------

// Hanley & McNeil (1982): Q1 = A / (2 - A), Q2 = 2 A^2 / (1 + A),
//   SE^2 = (A (1 - A) + (Q1 - A^2)(W1 - 1) + (Q2 - A^2)(W0 - 1)) / (W0 W1).
// A radicand that is not positive (possible with total weights below 1) gives 0.
double HanleyMcNeilSE(double A, double W1, double W0) {
  const double Q1 = A / (2.0 - A);
  const double Q2 = 2.0 * A * A / (1.0 + A);
  const double v =
      (A * (1.0 - A) + (Q1 - A * A) * (W1 - 1.0) + (Q2 - A * A) * (W0 - 1.0)) / W0 / W1;
  return v > 0.0 ? sqr(v) : 0.0;
}

// Bamber (1975): B = S / (W1 W0) - 4 (A - 1/2)^2 (W1 + W0 - 1),
//   SE = sqrt(B / ((W1 - 1)(W0 - 1))) / 2, and 0 when either factor is not above 1e-12.
double BamberSE(double A, double S, double W1, double W0) {
  const double B = S / W1 / W0 - 4.0 * (A - 0.5) * (A - 0.5) * (W1 + W0 - 1.0);
  const double den = (W1 - 1.0) * (W0 - 1.0);
  if (den <= 1e-12 || B <= 1e-12) return 0.0;
  return 0.5 * sqr(B / den);
}

// DeLong: SE^2 = sum_j wy_j (cneg_j - A')^2 / ((W0 - 1) W0) + sum_i wx_i (cpos_i - A')^2 /
// ((W1 - 1) W1). A group of total weight not above 1 + 1e-12 has no variance estimate: SE = 0.
double DeLongSE(const GroupedValues& g, const std::vector<double>& cpos,
                const std::vector<double>& cneg, double Aprime) {
  if (g.W0 - 1.0 <= 1e-12 || g.W1 - 1.0 <= 1e-12) return 0.0;
  double s0 = 0.0, s1 = 0.0;
  for (std::size_t j = 0; j < cneg.size(); ++j) {
    const double e = cneg[j] - Aprime;
    s0 += g.wy[j] * e * e;
  }
  for (std::size_t i = 0; i < cpos.size(); ++i) {
    const double e = cpos[i] - Aprime;
    s1 += g.wx[i] * e * e;
  }
  const double v = s0 / (g.W0 - 1.0) / g.W0 + s1 / (g.W1 - 1.0) / g.W1;
  return v > 0.0 ? sqr(v) : 0.0;
}

}  // namespace velkor::roc

// ---------------------------------------------------------------------------------------------
// ComputeROC
// ---------------------------------------------------------------------------------------------

namespace velkor::roc {

namespace {

// Suffix sums U[g] = v_g + ... + v_{k-1} (U[k] = 0), compensated as the prefix sums are.
std::vector<double> compensated_suffix(const std::vector<double>& v) {
  std::vector<double> U(v.size() + 1);
  double sum = 0.0, comp = 0.0;
  U[v.size()] = 0.0;
  for (std::size_t g = v.size(); g-- > 0;) {
    const double t = sum + v[g];
    if (std::fabs(sum) >= std::fabs(v[g])) {
      comp += (sum - t) + v[g];
    } else {
      comp += (v[g] - t) + sum;
    }
    sum = t;
    U[g] = sum + comp;
  }
  return U;
}

bool high_values_positive(int side) {
  return side != kSideBelowOrEqual && side != kSideBelow;
}

// Order-preserving map of a (non-NaN) double to an unsigned key, and back: the integer order of
// the keys is the numeric order of the doubles (negative zero is mapped as zero).
inline std::uint64_t order_key(double x) {
  const std::uint64_t b = std::bit_cast<std::uint64_t>(x == 0.0 ? 0.0 : x);
  return (b & 0x8000000000000000ULL) ? ~b : (b | 0x8000000000000000ULL);
}
inline double key_value(std::uint64_t k) {
  return std::bit_cast<double>((k & 0x8000000000000000ULL) ? (k & ~0x8000000000000000ULL) : ~k);
}

struct KeyRow {
  std::uint64_t key;
  std::uint32_t row;  // (usable-row index << 1) | positive
};

// Stable LSD radix sort on 11-bit digits (six passes cover the 64-bit key; the histograms of
// all digits are taken in one pass, and a digit that is the same for every key moves nothing and
// is skipped). Stable, so it gives the order SortQ gives; linear in n. 2048 buckets keep the
// scatter of each pass within the cache. Small inputs use a stable comparison sort.
void radix_sort(std::vector<KeyRow>& a) {
  constexpr int kBits = 11, kDigits = 6;
  constexpr std::size_t kBuckets = std::size_t{1} << kBits, kMask = kBuckets - 1;
  const std::size_t n = a.size();
  if (n < 4096) {
    std::stable_sort(a.begin(), a.end(),
                     [](const KeyRow& x, const KeyRow& y) { return x.key < y.key; });
    return;
  }
  std::vector<std::uint32_t> count(kDigits * kBuckets, 0u);
  for (const KeyRow& e : a)
    for (std::size_t d = 0; d < kDigits; ++d)
      ++count[d * kBuckets + ((e.key >> (kBits * d)) & kMask)];
  std::vector<KeyRow> b(n);
  for (std::size_t d = 0; d < kDigits; ++d) {
    std::uint32_t* c = count.data() + d * kBuckets;
    const std::size_t shift = kBits * d;
    if (c[(a[0].key >> shift) & kMask] == n) continue;
    std::uint32_t sum = 0;
    for (std::size_t v = 0; v < kBuckets; ++v) {
      const std::uint32_t t = c[v];
      c[v] = sum;
      sum += t;
    }
    for (const KeyRow& e : a) b[c[(e.key >> shift) & kMask]++] = e;
    a.swap(b);
  }
}

// The usable rows sorted once by test value, as the curve and the standard errors need them:
// the distinct values with the weights of their positives and negatives, and the two groups with
// oriented values ascending (negated and reversed for the sides where low values are positive).
struct PreparedRows {
  std::vector<double> t, posW, negW;  // distinct values ascending
  GroupedValues g;
  std::size_t nPositive = 0, nNegative = 0;
};

PreparedRows prepare_rows(matrix<double>* status, matrix<double>* values, matrix<double>* weights,
                          int n, bool highPositive) {
  PreparedRows p;
  const bool unit = weights == nullptr || weights->count == 0;
  std::vector<KeyRow> keys;
  std::vector<double> w;
  const std::size_t len = n > 0 ? static_cast<std::size_t>(n) : 0;
  keys.reserve(len);
  p.t.reserve(len);
  p.posW.reserve(len);
  p.negW.reserve(len);
  if (!unit) w.reserve(len);
  for (std::size_t i = 0; i < len; ++i) {
    const double st = status->at0(i), x = values->at0(i), wi = unit ? 1.0 : weights->at0(i);
    if (!RowIsUsable(st, x, wi)) continue;
    const auto row = static_cast<std::uint32_t>(keys.size());
    const bool positive = st == 1.0;
    keys.push_back({order_key(x), (row << 1) | (positive ? 1u : 0u)});
    if (!unit) w.push_back(wi);
    (positive ? p.nPositive : p.nNegative) += 1;
  }
  if (p.nPositive == 0 || p.nNegative == 0) return p;
  radix_sort(keys);

  GroupedValues& g = p.g;
  g.x.resize(p.nPositive);
  g.wx.resize(p.nPositive);
  g.y.resize(p.nNegative);
  g.wy.resize(p.nNegative);
  std::size_t ip = 0, in = 0;
  std::uint64_t lastKey = 0;
  for (std::size_t r = 0; r < keys.size(); ++r) {
    const KeyRow& e = keys[r];
    const double v = key_value(e.key);
    const double wi = unit ? 1.0 : w[e.row >> 1];
    if (r == 0 || e.key != lastKey) {
      p.t.push_back(v);
      p.posW.push_back(0.0);
      p.negW.push_back(0.0);
      lastKey = e.key;
    }
    if (e.row & 1u) {
      p.posW.back() += wi;
      const std::size_t k = highPositive ? ip : p.nPositive - 1 - ip;
      g.x[k] = highPositive ? v : -v;
      g.wx[k] = wi;
      ++ip;
    } else {
      p.negW.back() += wi;
      const std::size_t k = highPositive ? in : p.nNegative - 1 - in;
      g.y[k] = highPositive ? v : -v;
      g.wy[k] = wi;
      ++in;
    }
  }
  g.W1 = compensated_total(g.wx);
  g.W0 = compensated_total(g.wy);
  return p;
}

// Lexicographic (x, then y) order of the curve rows that a stable sort by y followed by a stable
// sort by x produces. The sweep already yields it in almost every case (the curve is monotone),
// which is checked in O(k); otherwise the two stable sorts are run.
std::vector<std::size_t> curve_order(const std::vector<double>& X, const std::vector<double>& Y,
                                     int side) {
  const std::size_t k = X.size() - 1;  // thresholds; row k is the end point
  std::vector<std::size_t> order;
  order.reserve(k + 1);
  switch (side) {
    case kSideAboveOrEqual:  // (0,0), then thresholds from the highest down
      order.push_back(k);
      for (std::size_t r = k; r-- > 0;) order.push_back(r);
      break;
    case kSideBelowOrEqual:  // (0,0), then thresholds from the lowest up
      order.push_back(k);
      for (std::size_t r = 0; r < k; ++r) order.push_back(r);
      break;
    case kSideBelow:  // thresholds from the lowest up, then (1,1)
      for (std::size_t r = 0; r <= k; ++r) order.push_back(r);
      break;
    default:  // kSideAbove: thresholds from the highest down, then (1,1)
      for (std::size_t r = k; r-- > 0;) order.push_back(r);
      order.push_back(k);
      break;
  }
  bool sorted = true;
  for (std::size_t t = 1; t <= k && sorted; ++t) {
    const std::size_t p = order[t - 1], q = order[t];
    sorted = X[p] < X[q] || (X[p] == X[q] && (Y[p] < Y[q] || (Y[p] == Y[q] && p < q)));
  }
  if (sorted) return order;
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::stable_sort(order.begin(), order.end(),
                   [&](std::size_t p, std::size_t q) { return Y[p] < Y[q]; });
  std::stable_sort(order.begin(), order.end(),
                   [&](std::size_t p, std::size_t q) { return X[p] < X[q]; });
  return order;
}

// Fills rows 5 to 9 of the result vector: z statistic, limits of AUC - 1/2, p-value and critical
// value, for tail code 0 (two-sided), -1 (lower-tailed) or other (upper-tailed).
void fill_test(matrix<double>* auc, double d, double se, double z, double alpha, short tail) {
  const double stat = d / se;
  const double P = CDFNormalStd(stat);
  auc->set(5, stat);
  if (tail == 0) {
    auc->set(8, 2.0 * Min(P, 1.0 - P));
    auc->set(9, z);
    auc->set(6, d - se * z);
    auc->set(7, d + se * z);
  } else if (tail == -1) {
    const double crit = InvCDFNormalStd(alpha);
    auc->set(8, P);
    auc->set(9, crit);
    auc->set(6, kMissing);
    auc->set(7, d + se * std::fabs(crit));
  } else {
    // One minus the lower quantile, not the quantile of 1 - alpha: kept as it is (callers
    // compare against this value).
    const double crit = 1.0 - InvCDFNormalStd(alpha);
    auc->set(8, 1.0 - P);
    auc->set(9, crit);
    auc->set(6, d - se * std::fabs(crit));
    auc->set(7, kUnbounded);
  }
}

bool has_cells(const matrix<double>* m) {
  return m != nullptr && m->count > 0 && m->data != nullptr;
}

}  // namespace

int ComputeROC(matrix<double>* status, matrix<double>* values, matrix<double>* weights, int n,
               int side, double alpha, int seMethod, short tail, int intervalMethod,
               short continuity, double prior, matrix<double>* unitCosts, matrix<double>* curve,
               matrix<double>* thresholdStats, matrix<double>* costs, matrix<double>* auc,
               matrix<double>* optimal, matrix<int>* counts) {
  const double z = CriticalValueTwoSided(alpha);
  if (side < kSideAboveOrEqual || side > kSideBelow) side = kSideAbove;

  const PreparedRows rows = prepare_rows(status, values, weights, n, high_values_positive(side));
  // npos x nneg = 0: no positives or no negatives among the usable rows.
  if (rows.nPositive * rows.nNegative == 0) return -2;

  const std::vector<double>&t = rows.t, &posW = rows.posW, &negW = rows.negW;
  const std::size_t k = t.size();
  const std::vector<double> Lpos = compensated_prefix(posW), Lneg = compensated_prefix(negW);
  const std::vector<double> Upos = compensated_suffix(posW), Uneg = compensated_suffix(negW);

  // Cells at threshold g: a, b test-positive; c, d test-negative.
  auto cells = [&](std::size_t g, double& a, double& b, double& c, double& d) {
    switch (side) {
      case kSideAboveOrEqual:
        a = Upos[g], b = Uneg[g], c = Lpos[g], d = Lneg[g];
        break;
      case kSideAbove:
        a = Upos[g + 1], b = Uneg[g + 1], c = Lpos[g + 1], d = Lneg[g + 1];
        break;
      case kSideBelowOrEqual:
        a = Lpos[g + 1], b = Lneg[g + 1], c = Upos[g + 1], d = Uneg[g + 1];
        break;
      default:  // kSideBelow
        a = Lpos[g], b = Lneg[g], c = Upos[g], d = Uneg[g];
        break;
    }
  };

  double unit[4] = {0.0, 0.0, 0.0, 0.0};
  if (unitCosts != nullptr && unitCosts->data != nullptr)
    for (std::uint64_t q = 0; q < 4 && q < unitCosts->count; ++q) unit[q] = unitCosts->data[q];

  // Curve points (row order before sorting: thresholds ascending, then the end point), cost and
  // Youden index.
  std::vector<double> X(k + 1), Y(k + 1), cost(k), youden(k);
  for (std::size_t g = 0; g < k; ++g) {
    double a, b, c, d;
    cells(g, a, b, c, d);
    const double N = a + b + c + d;
    const double pa = a / N, pb = b / N, pc = c / N, pd = d / N;
    const double Se = pa / (pa + pc), Sp = pd / (pb + pd);
    X[g] = 1.0 - Sp;
    Y[g] = Se;
    youden[g] = Se + Sp - 1.0;
    cost[g] = unit[0] * pa + unit[1] * pb + unit[2] * pc + unit[3] * pd;
  }
  const bool endAtOrigin = side == kSideAboveOrEqual || side == kSideBelowOrEqual;
  X[k] = Y[k] = endAtOrigin ? 0.0 : 1.0;

  const std::vector<std::size_t> order = curve_order(X, Y, side);
  double area = 0.0;
  for (std::size_t r = 0; r + 1 < order.size(); ++r) {
    const std::size_t p = order[r], q = order[r + 1];
    area += (X[q] - X[p]) * (Y[q] + Y[p]) * 0.5;
  }

  if (has_cells(curve)) {
    for (std::uint64_t r = 0; r < curve->rows; ++r) {
      const bool used = r < order.size();
      const std::size_t p = used ? order[r] : 0;
      curve->at0(r, 0) = used ? X[p] : kMissing;
      curve->at0(r, 1) = used ? Y[p] : kMissing;
      curve->at0(r, 2) = used && p < k ? t[p] : kMissing;
    }
  }
  if (has_cells(costs)) {
    for (std::uint64_t g = 0; g < costs->rows; ++g) costs->at0(g) = g < k ? cost[g] : kMissing;
  }
  if (has_cells(thresholdStats)) {
    matrix<double>* ts = thresholdStats;
    const std::int64_t rowsOut = Min<std::int64_t>(static_cast<std::int64_t>(k), ts->rows);
#if defined(_OPENMP)
#pragma omp parallel for schedule(static) if (rowsOut > 4096 && ts->cols >= kThresholdStatsCols)
#endif
    for (std::int64_t g = 0; g < rowsOut; ++g) {
      double a, b, c, d, st[kStatCells];
      const auto gu = static_cast<std::size_t>(g);
      const auto gr = static_cast<std::uint64_t>(g);
      cells(gu, a, b, c, d);
      ClassificationStatistics(a, b, c, d, z, alpha, intervalMethod, continuity, prior, st);
      ts->at0(gr, 0) = t[gu];
      ts->at0(gr, 1) = a;
      ts->at0(gr, 2) = b;
      ts->at0(gr, 3) = c;
      ts->at0(gr, 4) = d;
      for (int q = 0; q < kStatCells; ++q) ts->at0(gr, 5 + static_cast<std::uint64_t>(q)) = st[q];
    }
    for (std::uint64_t g = static_cast<std::uint64_t>(rowsOut); g < ts->rows; ++g)
      for (std::uint64_t q = 0; q < ts->cols; ++q) ts->at0(g, q) = kMissing;
  }

  // Optimal thresholds: every threshold within 1e-12 of the largest Youden index
  // J = Se + Sp - 1, and every one within 1e-12 (relative to max(1, |cost|)) of the lowest cost.
  int nYouden = 0, nCost = 0;
  {
    double best = -std::numeric_limits<double>::infinity();
    double cheapest = std::numeric_limits<double>::infinity();
    for (std::size_t g = 0; g < k; ++g) {
      if (std::isfinite(youden[g])) best = Max(best, youden[g]);
      if (std::isfinite(cost[g])) cheapest = Min(cheapest, cost[g]);
    }
    const double costTol = 1e-12 * Max(1.0, std::fabs(cheapest));
    const bool out = has_cells(optimal);
    if (out)
      for (std::uint64_t g = 0; g < optimal->count; ++g) optimal->data[g] = kMissing;
    for (std::size_t g = 0; g < k; ++g) {
      if (std::isfinite(youden[g]) && youden[g] >= best - 1e-12) {
        if (out) {
          optimal->at0(static_cast<std::uint64_t>(nYouden), 0) = t[g];
          optimal->at0(static_cast<std::uint64_t>(nYouden), 1) = youden[g];
        }
        ++nYouden;
      }
      if (std::isfinite(cost[g]) && cost[g] <= cheapest + costTol) {
        if (out) {
          optimal->at0(static_cast<std::uint64_t>(nCost), 2) = t[g];
          optimal->at0(static_cast<std::uint64_t>(nCost), 3) = cost[g];
        }
        ++nCost;
      }
    }
  }
  if (counts != nullptr) {
    counts->set(1, static_cast<int>(k));
    counts->set(2, nYouden);
    counts->set(3, nCost);
  }

  // Area, standard error, interval, test.
  const GroupedValues& grouped = rows.g;
  double se = 0.0;
  double testedArea = area;
  if (seMethod == kSeHanleyMcNeil) {
    se = HanleyMcNeilSE(area, grouped.W1, grouped.W0);
  } else if (seMethod == kSeBamber) {
    se = BamberSE(area, BambersSum(grouped), grouped.W1, grouped.W0);
  } else {
    std::vector<double> cpos, cneg;
    testedArea = DeLongComponents(grouped, cpos, cneg);  // the test uses the Mann-Whitney area
    se = DeLongSE(grouped, cpos, cneg, testedArea);
  }
  if (auc != nullptr) {
    auc->set(1, area);
    auc->set(2, se);
    auc->set(3, Max(0.0, area - z * se));
    auc->set(4, Min(1.0, area + z * se));
    if (!(se > 1e-12)) {
      for (int r = 5; r <= 9; ++r) auc->set(r, kMissing);
    } else {
      fill_test(auc, testedArea - 0.5, se, z, alpha, tail);
    }
    // alpha outside (0, 1): no critical value, so no limits either.
    if (!std::isfinite(z)) {
      for (int r : {3, 4, 6, 7, 9}) auc->set(r, kMissing);
    }
  }
  return 0;
}

}  // namespace velkor::roc
