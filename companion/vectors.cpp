#include "companion/vectors.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "core/numeric.h"

using velkor::IsMissing;
using velkor::kMissing;

namespace {

std::size_t clip(const matrix<double>* v, int n) {
  if (v == nullptr || v->data == nullptr || n <= 0) return 0;
  return std::min<std::size_t>(static_cast<std::size_t>(n), v->count);
}

bool used(const matrix<short>* mask, std::size_t i) {
  return mask == nullptr || i >= mask->count || mask->data[i] == 0;
}

double weight(const matrix<double>* w, std::size_t i) {
  if (w == nullptr) return 1.0;
  return i < w->count ? w->data[i] : 0.0;
}

bool present(double x) {
  return !IsMissing(x) && !std::isnan(x);
}

std::vector<double> present_values(const matrix<double>* v, int n, const matrix<short>* mask) {
  std::vector<double> out;
  const std::size_t m = clip(v, n);
  out.reserve(m);
  for (std::size_t i = 0; i < m; ++i) {
    if (used(mask, i) && present(v->data[i])) out.push_back(v->data[i]);
  }
  return out;
}

double quantile_of(std::vector<double>& x, double p) {
  if (x.empty() || !(p >= 0.0 && p <= 1.0)) return kMissing;
  const double h = (static_cast<double>(x.size()) - 1.0) * p;
  const std::size_t lo = static_cast<std::size_t>(std::floor(h));
  std::nth_element(x.begin(), x.begin() + static_cast<std::ptrdiff_t>(lo), x.end());
  const double a = x[lo];
  if (lo + 1 >= x.size() || h == static_cast<double>(lo)) return a;
  const double b = *std::min_element(x.begin() + static_cast<std::ptrdiff_t>(lo) + 1, x.end());
  return a + (h - static_cast<double>(lo)) * (b - a);
}

// Number of discordant-order inversions of v by merge sort (Knight 1966), v sorted on return.
long long merge_count(std::vector<double>& v, std::vector<double>& tmp, std::size_t lo,
                      std::size_t hi) {
  if (hi - lo < 2) return 0;
  const std::size_t mid = (lo + hi) / 2;
  long long swaps = merge_count(v, tmp, lo, mid) + merge_count(v, tmp, mid, hi);
  std::size_t i = lo, j = mid, k = lo;
  while (i < mid && j < hi) {
    if (v[j] < v[i]) {
      swaps += static_cast<long long>(mid - i);
      tmp[k++] = v[j++];
    } else {
      tmp[k++] = v[i++];
    }
  }
  while (i < mid) tmp[k++] = v[i++];
  while (j < hi) tmp[k++] = v[j++];
  std::copy(tmp.begin() + static_cast<std::ptrdiff_t>(lo),
            tmp.begin() + static_cast<std::ptrdiff_t>(hi),
            v.begin() + static_cast<std::ptrdiff_t>(lo));
  return swaps;
}

// Number of pairs tied within runs of equal values of a sorted sequence.
template <class It, class Eq>
long long tied_pairs(It first, It last, Eq eq) {
  long long total = 0;
  for (It i = first; i != last;) {
    It j = i;
    while (j != last && eq(*i, *j)) ++j;
    const long long t = j - i;
    total += t * (t - 1) / 2;
    i = j;
  }
  return total;
}

}  // namespace

double V_Sum2(const matrix<double>* v, int n) {
  double s = 0.0;
  for (std::size_t i = 0, m = clip(v, n); i < m; ++i) s += v->data[i];
  return s;
}

double V_Max(const matrix<double>* v, int n, const matrix<short>* mask) {
  double best = kMissing;
  bool any = false;
  for (std::size_t i = 0, m = clip(v, n); i < m; ++i) {
    if (!used(mask, i)) continue;
    if (!any || v->data[i] > best) best = v->data[i];
    any = true;
  }
  return best;
}

double V_Max2(const matrix<double>* v, int n) {
  return V_Max(v, n, nullptr);
}

double V_Mean(const matrix<double>* v, int n, const matrix<double>* weights) {
  double sw = 0.0, s = 0.0;
  for (std::size_t i = 0, m = clip(v, n); i < m; ++i) {
    if (!present(v->data[i])) continue;
    const double w = weight(weights, i);
    sw += w;
    s += w * v->data[i];
  }
  return sw > 0.0 ? s / sw : kMissing;
}

double V_Mean2(const matrix<double>* v, int n) {
  return V_Mean(v, n, nullptr);
}

double V_Var(const matrix<double>* v, int n, const matrix<double>* weights) {
  const double mean = V_Mean(v, n, weights);
  if (IsMissing(mean)) return kMissing;
  double sw = 0.0, ss = 0.0;
  for (std::size_t i = 0, m = clip(v, n); i < m; ++i) {
    if (!present(v->data[i])) continue;
    const double w = weight(weights, i);
    const double d = v->data[i] - mean;
    sw += w;
    ss += w * d * d;
  }
  return sw > 1.0 ? ss / (sw - 1.0) : kMissing;
}

double V_Var2(const matrix<double>* v, int n, int sampleDivisor, int /*reserved*/) {
  const double mean = V_Mean2(v, n);
  if (IsMissing(mean)) return kMissing;
  double cnt = 0.0, ss = 0.0;
  for (std::size_t i = 0, m = clip(v, n); i < m; ++i) {
    if (!present(v->data[i])) continue;
    const double d = v->data[i] - mean;
    cnt += 1.0;
    ss += d * d;
  }
  const double div = sampleDivisor != 0 ? cnt - 1.0 : cnt;
  return div > 0.0 ? ss / div : kMissing;
}

void V_MeanStdev(const matrix<double>* v, int n, double& mean, double& sd,
                 const matrix<short>* mask, const matrix<double>* weights, short sampleSd,
                 short skipMissing) {
  double sw = 0.0, s = 0.0;
  const std::size_t m = clip(v, n);
  auto take = [&](std::size_t i) {
    return used(mask, i) && (skipMissing != -1 || present(v->data[i]));
  };
  for (std::size_t i = 0; i < m; ++i) {
    if (!take(i)) continue;
    const double w = weight(weights, i);
    sw += w;
    s += w * v->data[i];
  }
  if (!(sw > 0.0)) {
    mean = kMissing;
    sd = kMissing;
    return;
  }
  mean = s / sw;
  double ss = 0.0;
  for (std::size_t i = 0; i < m; ++i) {
    if (!take(i)) continue;
    const double d = v->data[i] - mean;
    ss += weight(weights, i) * d * d;
  }
  const double div = sampleSd == -1 ? sw - 1.0 : sw;
  sd = div > 0.0 ? std::sqrt(ss / div) : kMissing;
}

double V_Quantile(const matrix<double>* v, int n, double p) {
  std::vector<double> x = present_values(v, n, nullptr);
  return quantile_of(x, p);
}

double V_QuantileM(const matrix<double>* v, int n, double p, const matrix<short>* mask) {
  std::vector<double> x = present_values(v, n, mask);
  return quantile_of(x, p);
}

double V_QuantileW(const matrix<double>* v, int n, double p, const matrix<double>* weights) {
  if (!(p >= 0.0 && p <= 1.0)) return kMissing;
  std::vector<std::pair<double, double>> xw;
  for (std::size_t i = 0, m = clip(v, n); i < m; ++i) {
    const double w = weight(weights, i);
    if (present(v->data[i]) && w > 0.0) xw.emplace_back(v->data[i], w);
  }
  if (xw.empty()) return kMissing;
  std::sort(xw.begin(), xw.end());
  double total = 0.0;
  for (const auto& e : xw) total += e.second;
  const double target = p * total;
  double cum = 0.0;
  for (std::size_t i = 0; i < xw.size(); ++i) {
    cum += xw[i].second;
    if (std::fabs(cum - target) <= 1e-12 * total && i + 1 < xw.size()) {
      return 0.5 * (xw[i].first + xw[i + 1].first);
    }
    if (cum >= target) return xw[i].first;
  }
  return xw.back().first;
}

bool V_IsConstant(const matrix<double>* v, int n) {
  const std::size_t m = clip(v, n);
  for (std::size_t i = 1; i < m; ++i) {
    if (!(v->data[i] == v->data[0])) return false;
  }
  return true;
}

bool V_IsSorted(const matrix<double>* v, int n) {
  const std::size_t m = clip(v, n);
  for (std::size_t i = 1; i < m; ++i) {
    if (v->data[i] < v->data[i - 1]) return false;
  }
  return true;
}

int V_NbNonMissing(const matrix<double>* v, int n) {
  int c = 0;
  for (std::size_t i = 0, m = clip(v, n); i < m; ++i) c += present(v->data[i]) ? 1 : 0;
  return c;
}

int V_NbDistinct(const matrix<double>* v, int n) {
  std::vector<double> x = present_values(v, n, nullptr);
  std::sort(x.begin(), x.end());
  return static_cast<int>(std::unique(x.begin(), x.end()) - x.begin());
}

void V_Duplicate(const matrix<double>* src, matrix<double>* dst, int n) {
  const std::size_t m = std::min(clip(src, n), clip(dst, n));
  for (std::size_t i = 0; i < m; ++i) dst->data[i] = src->data[i];
}

int V_ReplaceVal2(matrix<double>* v, int n, double from, double to) {
  int c = 0;
  for (std::size_t i = 0, m = clip(v, n); i < m; ++i) {
    if (v->data[i] == from) {
      v->data[i] = to;
      ++c;
    }
  }
  return c;
}

void V_Set1toN(matrix<double>* v, int n) {
  for (std::size_t i = 0, m = clip(v, n); i < m; ++i) v->data[i] = static_cast<double>(i + 1);
}

void InitVectorToFalse(matrix<short>* mask, int n) {
  if (mask == nullptr || mask->data == nullptr || n <= 0) return;
  const std::size_t m = std::min<std::size_t>(static_cast<std::size_t>(n), mask->count);
  for (std::size_t i = 0; i < m; ++i) mask->data[i] = 0;
}

double V_PearsonRho(const matrix<double>* x, const matrix<double>* y, int n) {
  const std::size_t m = std::min(clip(x, n), clip(y, n));
  double sx = 0, sy = 0, c = 0;
  for (std::size_t i = 0; i < m; ++i) {
    if (present(x->data[i]) && present(y->data[i])) {
      sx += x->data[i];
      sy += y->data[i];
      c += 1;
    }
  }
  if (c < 2) return kMissing;
  const double mx = sx / c, my = sy / c;
  double sxx = 0, syy = 0, sxy = 0;
  for (std::size_t i = 0; i < m; ++i) {
    if (present(x->data[i]) && present(y->data[i])) {
      const double dx = x->data[i] - mx, dy = y->data[i] - my;
      sxx += dx * dx;
      syy += dy * dy;
      sxy += dx * dy;
    }
  }
  if (!(sxx > 0 && syy > 0)) return kMissing;
  return sxy / std::sqrt(sxx * syy);
}

double V_KendallTau(const matrix<double>* x, int n, const matrix<double>* y) {
  const std::size_t m = std::min(clip(x, n), clip(y, n));
  std::vector<std::pair<double, double>> p;
  p.reserve(m);
  for (std::size_t i = 0; i < m; ++i) {
    if (present(x->data[i]) && present(y->data[i])) p.emplace_back(x->data[i], y->data[i]);
  }
  const long long N = static_cast<long long>(p.size());
  if (N < 2) return 0.0;
  std::sort(p.begin(), p.end());
  const long long n0 = N * (N - 1) / 2;
  const long long n1 = tied_pairs(p.begin(), p.end(),
                                  [](const auto& a, const auto& b) { return a.first == b.first; });
  const long long n3 = tied_pairs(p.begin(), p.end(), [](const auto& a, const auto& b) {
    return a.first == b.first && a.second == b.second;
  });
  std::vector<double> ys(static_cast<std::size_t>(N)), tmp(static_cast<std::size_t>(N));
  for (long long i = 0; i < N; ++i)
    ys[static_cast<std::size_t>(i)] = p[static_cast<std::size_t>(i)].second;
  const long long swaps = merge_count(ys, tmp, 0, ys.size());
  const long long n2 = tied_pairs(ys.begin(), ys.end(), [](double a, double b) { return a == b; });
  const double denom =
      std::sqrt(static_cast<double>(n0 - n1)) * std::sqrt(static_cast<double>(n0 - n2));
  if (!(denom > 0.0)) return 0.0;
  const long long concordant_minus_discordant = n0 - n1 - n2 + n3 - 2 * swaps;
  return static_cast<double>(concordant_minus_discordant) / denom;
}
