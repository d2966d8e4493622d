#include "methodcomp/passing_bablok.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "companion/basic.h"
#include "companion/distributions.h"
#include "companion/sorting.h"
#include "companion/vectors.h"
#include "core/numeric.h"

namespace velkor::methodcomp {

namespace {

constexpr double kResidualZero = 1e-12;  // residuals within +/- 1e-12 count as on the line

bool complete(double v) {
  return !IsMissing(v) && !std::isnan(v);
}

// Slope of one pair: 0 = not stored, 1 = stored, 2 = stored and counted in K.
// Exact zero tests for the special values, as the procedure states them; a slope of exactly -1
// is skipped by the shifted median (it is its own reflection about the line y = -x).
inline int classify(double dx, double dy, bool absolute, const SpecialSlopes& sp, double& s) {
  if (std::fabs(dy) > kEpsilon && std::fabs(dx) > kEpsilon) {
    const double q = dy / dx;
    if (std::isnan(q)) return 0;  // inf / inf from differences that overflow
    if (absolute) {
      s = std::fabs(q);
      return 1;
    }
    if (q == -1.0) return 0;
    s = q;
    return q < -1.0 ? 2 : 1;
  }
  if (dx == 0.0) {
    if (dy > 0.0) {
      s = absolute ? std::fabs(sp.verticalUp) : sp.verticalUp;
      return absolute ? 1 : 2;
    }
    if (dy < 0.0) {
      s = absolute ? std::fabs(sp.verticalDown) : sp.verticalDown;
      return 1;
    }
    return 0;  // identical points
  }
  if (dy == 0.0) {
    if (dx < 0.0) {
      s = absolute ? std::fabs(sp.horizontalLeft) : sp.horizontalLeft;
      return 1;
    }
    if (dx > 0.0) {
      s = absolute ? std::fabs(sp.horizontalRight) : sp.horizontalRight;
      return 1;
    }
  }
  return 0;  // a difference below the epsilon bound but not exactly zero
}

// Slopes of the pairs (i, j), j = i+1 .. m-1, in pair order, written to out[0 .. kept-1]; adds
// the pairs counted in K to k and returns the number kept. The common case (both differences
// above the epsilon bound) runs without branches on the data; special pairs go through classify.
template <bool Absolute>
std::size_t row_slopes(const double* x, const double* y, std::size_t i, std::size_t m,
                       double dySign, const SpecialSlopes& sp, double* out, long long& k) {
  const double xi = x[i], yi = y[i];
  std::size_t w = 0;
  long long kk = 0;
  for (std::size_t j = i + 1; j < m; ++j) {
    const double dx = xi - x[j];
    const double dy = dySign * (yi - y[j]);
    double s = 0.0;
    bool keep = false, inK = false;
    if (std::fabs(dx) > kEpsilon && std::fabs(dy) > kEpsilon) [[likely]] {
      const double q = dy / dx;
      s = Absolute ? std::fabs(q) : q;
      keep = (q == q) && (Absolute || q != -1.0);  // q != q: inf / inf
      inK = !Absolute && q < -1.0;
    } else {
      const int c = classify(dx, dy, Absolute, sp, s);
      keep = c != 0;
      inK = c == 2;
    }
    out[w] = s;
    w += keep ? 1 : 0;
    kk += (keep && inK) ? 1 : 0;
  }
  k += kk;
  return w;
}

// Deterministic generator for the sample that places the selection window (SplitMix64).
struct SplitMix64 {
  std::uint64_t state;
  std::uint64_t next() {
    std::uint64_t z = (state += 0x9E3779B97F4A7C15ULL);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
  }
  std::size_t below(std::size_t m) { return static_cast<std::size_t>(next() % m); }
};

// Selects S[r] (1-based) for every wanted r in 1..stored.size() from `pool`, whose elements are
// the slopes of positions offset+1 .. offset+pool.size() of the full sorted order.
void select_ranks(std::vector<double>& pool, long long offset, const std::vector<long long>& wanted,
                  std::vector<double>& values, double spare, long long N) {
  std::vector<std::size_t> order(wanted.size());
  for (std::size_t k = 0; k < order.size(); ++k) order[k] = k;
  std::sort(order.begin(), order.end(),
            [&](std::size_t p, std::size_t q) { return wanted[p] < wanted[q]; });
  values.assign(wanted.size(), spare);
  auto first = pool.begin();
  long long done = -1;  // largest pool index already placed
  double done_value = 0.0;
  for (std::size_t k : order) {
    const long long r = wanted[k];
    if (r < 1 || r > N) continue;  // out of range: the spare element
    const long long pos = r - 1 - offset;
    if (pos == done) {
      values[k] = done_value;
      continue;
    }
    auto nth = pool.begin() + pos;
    std::nth_element(first, nth, pool.end());
    values[k] = *nth;
    done = pos;
    done_value = *nth;
    first = nth + 1;
  }
}

struct PassCounts {
  long long N = 0, K = 0, below = 0;
};

// One pass over all pairs: counts stored slopes, K and the slopes below lo, and keeps the slopes
// in [lo, hi] in `window`.
template <bool Absolute>
PassCounts windowed_pass(const double* x, const double* y, std::size_t m, double dySign,
                         const SpecialSlopes& sp, double lo, double hi,
                         std::vector<double>& window) {
  PassCounts total;
  window.clear();
#pragma omp parallel
  {
    PassCounts local;
    std::vector<double> row(m), mine;
    std::size_t used = 0;
#pragma omp for schedule(dynamic, 16) nowait
    for (long long i = 0; i < static_cast<long long>(m); ++i) {
      const std::size_t kept = row_slopes<Absolute>(x, y, static_cast<std::size_t>(i), m, dySign,
                                                    sp, row.data(), local.K);
      local.N += static_cast<long long>(kept);
      if (mine.size() < used + kept + 1) mine.resize(2 * (used + kept + 1));
      // Branch-free: the slopes of a row come in random order, so a test on them would be
      // mispredicted half of the time. Every slope is stored and the window end advances only
      // for those inside it.
      const double* r = row.data();
      long long below = 0;
      double* dst = mine.data();
      for (std::size_t t = 0; t < kept; ++t) {
        const double v = r[t];
        below += static_cast<long long>(v < lo);
        dst[used] = v;
        used += static_cast<std::size_t>(static_cast<int>(v >= lo) & static_cast<int>(v <= hi));
      }
      local.below += below;
    }
#pragma omp critical
    {
      total.N += local.N;
      total.K += local.K;
      total.below += local.below;
      window.insert(window.end(), mine.begin(), mine.begin() + static_cast<std::ptrdiff_t>(used));
    }
  }
  return total;
}

// Slope of the last pair stored in pair order, or -1 (the initial spare value) when none.
double last_stored_slope(const double* x, const double* y, std::size_t m, double dySign,
                         bool absolute, const SpecialSlopes& sp) {
  for (std::size_t i = m; i-- > 0;) {
    for (std::size_t j = m; j-- > i + 1;) {
      double s = 0.0;
      if (classify(x[i] - x[j], dySign * (y[i] - y[j]), absolute, sp, s) != 0) return s;
    }
  }
  return -1.0;
}

}  // namespace

SpecialSlopes DefaultSpecialSlopes() {
  return SpecialSlopes{-kUnbounded, kUnbounded, -kEpsilon, kEpsilon};
}

SlopeOrderStats PairwiseSlopes(
    const double* x, const double* y, std::size_t m, double dySign, bool absolute,
    const SpecialSlopes& sp,
    const std::function<std::vector<long long>(long long, long long)>& ranks) {
  SlopeOrderStats out;
  const long long pairs =
      m < 2 ? 0 : static_cast<long long>(m) * (static_cast<long long>(m) - 1) / 2;
  const double spare = last_stored_slope(x, y, m, dySign, absolute, sp);

  if (pairs <= kDirectSelectionLimit) {
    std::vector<double> all(static_cast<std::size_t>(pairs) + 1);
    std::size_t used = 0;
    for (std::size_t i = 0; i + 1 < m; ++i)
      used += absolute ? row_slopes<true>(x, y, i, m, dySign, sp, all.data() + used, out.K)
                       : row_slopes<false>(x, y, i, m, dySign, sp, all.data() + used, out.K);
    all.resize(used);
    out.N = static_cast<long long>(all.size());
    select_ranks(all, 0, ranks(out.N, out.K), out.values, spare, out.N);
    return out;
  }

  // Sample of pairs (i < j in pair orientation) to place a window around the wanted positions;
  // about one pair in 64, between 4,096 and 262,144.
  const std::size_t kSample =
      static_cast<std::size_t>(std::clamp<long long>(pairs / 64, 4096, 1LL << 18));
  SplitMix64 rng{0x5EEDC0FFEE123457ULL};
  std::vector<double> sample;
  sample.reserve(kSample);
  long long sampleK = 0;
  for (std::size_t t = 0; t < kSample; ++t) {
    std::size_t i = rng.below(m), j = rng.below(m - 1);
    if (j >= i) ++j;
    if (j < i) std::swap(i, j);
    double s = 0.0;
    const int c = classify(x[i] - x[j], dySign * (y[i] - y[j]), absolute, sp, s);
    if (c == 0) continue;
    sample.push_back(s);
    sampleK += c == 2 ? 1 : 0;
  }
  std::sort(sample.begin(), sample.end());
  const double ns = static_cast<double>(sample.size());
  const double inf = std::numeric_limits<double>::infinity();
  double lo = -inf, hi = inf;
  // Six standard errors of a sample proportion at 1/2, plus a few sample positions.
  double margin = ns > 0 ? 6.0 * 0.5 / std::sqrt(ns) + 4.0 / ns : 1.0;
  std::vector<double> window;
  for (int attempt = 0;; ++attempt) {
    if (ns > 0 && attempt < 3) {
      const double share = ns / static_cast<double>(kSample);
      const long long Nhat = std::llround(share * static_cast<double>(pairs));
      const long long Khat = std::llround(
          static_cast<double>(sampleK) / static_cast<double>(kSample) * static_cast<double>(pairs));
      double qlo = 1.0, qhi = 0.0;
      for (long long r : ranks(Nhat, Khat)) {
        if (r < 1 || r > Nhat || Nhat <= 0) continue;
        const double q = (static_cast<double>(r) - 0.5) / static_cast<double>(Nhat);
        qlo = std::min(qlo, q);
        qhi = std::max(qhi, q);
      }
      if (qlo > qhi) {
        qlo = 0.0;
        qhi = 1.0;
      }
      const double plo = (qlo - margin) * ns, phi = (qhi + margin) * ns;
      lo = plo <= 0.0 ? -inf : sample[static_cast<std::size_t>(plo)];
      hi = phi >= ns - 1.0 ? inf : sample[static_cast<std::size_t>(std::ceil(phi))];
    } else {
      lo = -inf;
      hi = inf;
    }
    const PassCounts c = absolute ? windowed_pass<true>(x, y, m, dySign, sp, lo, hi, window)
                                  : windowed_pass<false>(x, y, m, dySign, sp, lo, hi, window);
    out.N = c.N;
    out.K = c.K;
    const std::vector<long long> wanted = ranks(out.N, out.K);
    bool covered = true;
    for (long long r : wanted) {
      if (r < 1 || r > out.N) continue;
      if (r <= c.below || r > c.below + static_cast<long long>(window.size())) covered = false;
    }
    if (covered) {
      select_ranks(window, c.below, wanted, out.values, spare, out.N);
      return out;
    }
    margin *= 4.0;
  }
}

namespace {

struct CompleteRows {
  std::vector<std::size_t> index;  // row of the caller's arrays
  std::vector<double> x, y;
};

CompleteRows complete_rows(matrix<double>* x, matrix<double>* y, int n) {
  CompleteRows c;
  for (int i = 0; i < n; ++i) {
    const double xi = x->at0(i), yi = y->at0(i);
    if (!complete(xi) || !complete(yi)) continue;
    c.index.push_back(static_cast<std::size_t>(i));
    c.x.push_back(xi);
    c.y.push_back(yi);
  }
  return c;
}

double kendall_tau(CompleteRows& c) {
  const auto m = static_cast<std::uint32_t>(c.x.size());
  matrix<double> mx(m, 1, c.x.data(), 1), my(m, 1, c.y.data(), 1);
  return V_KendallTau(&mx, static_cast<int>(m), &my);
}

std::vector<long long> median_ranks(long long N, long long K) {
  if (IsEven(N)) return {N / 2 + K, N / 2 + K + 1};
  return {(N + 1) / 2 + K};
}

double median_from(const std::vector<double>& v, long long N, short geoMean) {
  if (IsEven(N)) return geoMean == -1 ? std::sqrt(v[0] * v[1]) : (v[0] + v[1]) * 0.5;
  return v[0];
}

// Shared estimator of ComputeBCoeff_PAB1/3.
int slope_estimator(bool absolute, matrix<double>* x, int n, matrix<double>* y, short& negFlag,
                    short geoMean, const SpecialSlopes& sp, double& b, double& N, double& K) {
  CompleteRows c = complete_rows(x, y, n);
  const bool refuse = negFlag == -1;
  const double tau = kendall_tau(c);
  negFlag = tau < 0.0 ? -1 : 0;
  b = kMissing;
  N = 0.0;
  K = 0.0;
  if (tau < 0.0 && refuse) return 0;  // nothing stored; the caller reports the condition
  const double sign = tau < 0.0 ? -1.0 : 1.0;
  const SlopeOrderStats st =
      PairwiseSlopes(c.x.data(), c.y.data(), c.x.size(), sign, absolute, sp, median_ranks);
  N = static_cast<double>(st.N);
  K = static_cast<double>(st.K);
  if (st.N == 0) return 0;
  b = sign * median_from(st.values, st.N, geoMean);
  return 0;
}

double finite_or_missing(double v) {
  return std::isfinite(v) ? v : kMissing;
}

// Median of y - slope x over the complete rows, by V_Quantile.
double intercept_median(const CompleteRows& c, double slope) {
  const auto m = static_cast<std::uint32_t>(c.x.size());
  matrix<double> r(m, 1);
  for (std::uint32_t i = 0; i < m; ++i) r.data[i] = c.y[i] - slope * c.x[i];
  return V_Quantile(&r, static_cast<int>(m), 0.5);
}

double constant_median(const CompleteRows& c, double value) {
  const auto m = static_cast<std::uint32_t>(c.x.size());
  matrix<double> r(m, 1);
  for (std::uint32_t i = 0; i < m; ++i) r.data[i] = value;
  return V_Quantile(&r, static_cast<int>(m), 0.5);
}

int pab_driver(bool equivariant, matrix<double>* x, int n, matrix<double>* y, int option,
               double alpha, double& a, double& aLow, double& aHigh, double& b, double& bLow,
               double& bHigh, matrix<double>* fitted, matrix<double>* residuals,
               matrix<double>* differences, matrix<double>* distance, double& maxCusum,
               double& critical, double& pValue) {
  CompleteRows c = complete_rows(x, y, n);
  const double tau = kendall_tau(c);
  if (tau < 0.0 && option != kPabAllowNegative) return kNegativeAssociation;
  const double sign = tau < 0.0 ? -1.0 : 1.0;
  const std::size_t m = c.x.size();
  const double dm = static_cast<double>(m);

  const bool alphaOk = alpha > 0.0 && alpha < 1.0;
  const double z = InvCDFNormalStd(1.0 - alpha * 0.5);
  const double cw = z * sqr(dm * (dm - 1.0) / 18.0) * sqr(2.0 * dm + 5.0);
  const bool limitsOk = alphaOk && std::isfinite(cw);
  const short geoMean = equivariant ? -1 : 0;

  auto ranks = [&](long long N, long long K) {
    std::vector<long long> r = median_ranks(N, K);
    if (limitsOk) {
      const auto M1 = static_cast<long long>((static_cast<double>(N) - cw) * 0.5 + 0.5);
      const long long M2 = N - M1 + 1;
      r.push_back(std::max(M1 + K, 1LL));
      r.push_back(std::min(M2 + K, N));
    }
    return r;
  };
  const SlopeOrderStats st =
      PairwiseSlopes(c.x.data(), c.y.data(), m, sign, equivariant, DefaultSpecialSlopes(), ranks);

  a = aLow = aHigh = b = bLow = bHigh = kMissing;
  maxCusum = critical = pValue = kMissing;
  for (int i = 0; i < n; ++i) {
    fitted->at0(i) = kMissing;
    residuals->at0(i) = kMissing;
    differences->at0(i) = kMissing;
    distance->at0(i) = kMissing;
  }
  if (st.N == 0) return 0;

  const std::size_t nMed = IsEven(st.N) ? 2 : 1;
  b = sign * median_from(st.values, st.N, geoMean);
  if (limitsOk) {
    const double sLow = st.values[nMed], sHigh = st.values[nMed + 1];
    bLow = sign > 0 ? sLow : -sHigh;
    bHigh = sign > 0 ? sHigh : -sLow;
  }

  // Intercept: median of y - b x; its limits from the opposite slope limits. An unbounded slope
  // limit makes every row unbounded (missing below, unbounded above).
  a = finite_or_missing(intercept_median(c, b));
  if (limitsOk) {
    aLow = bHigh == kUnbounded ? constant_median(c, kMissing)
                               : finite_or_missing(intercept_median(c, bHigh));
    aHigh = bLow == -kUnbounded ? constant_median(c, kUnbounded)
                                : finite_or_missing(intercept_median(c, bLow));
  }

  // Linearity: cusum of residual signs ordered by the projection on the fitted line.
  matrix<double> key(static_cast<std::uint32_t>(m), 1), score(static_cast<std::uint32_t>(m), 1);
  std::vector<double> r(m);
  long long L = 0, l = 0;
  for (std::size_t k = 0; k < m; ++k) {
    const double f = a + b * c.x[k];
    r[k] = c.y[k] - f;
    L += r[k] > kResidualZero ? 1 : 0;
    l += r[k] < -kResidualZero ? 1 : 0;
  }
  const double s = sqr(static_cast<double>(l) / static_cast<double>(L));
  const double perp = sqr(1.0 + b * b);
  const double proj = sqr(1.0 + 1.0 / (b * b));
  for (std::size_t k = 0; k < m; ++k) {
    const std::size_t row = c.index[k];
    const double f = a + b * c.x[k];
    fitted->at0(row) = finite_or_missing(f);
    residuals->at0(row) = finite_or_missing(r[k]);
    differences->at0(row) = finite_or_missing(c.y[k] - c.x[k]);
    const bool onLine = std::fabs(r[k]) <= kResidualZero;
    distance->at0(row) = onLine ? 0.0 : finite_or_missing(r[k] / perp);
    score.data[k] = r[k] > kResidualZero ? s : (r[k] < -kResidualZero ? -1.0 / s : 0.0);
    key.data[k] = (c.x[k] / b + c.y[k] - a) / proj;
  }
  SortQ(&key, 1, static_cast<int>(m), {&score});
  double run = 0.0;
  for (std::size_t k = 0; k < m; ++k) {
    run += score.data[k];
    score.data[k] = std::fabs(run);
  }
  maxCusum = m > 0 ? V_Max2(&score, static_cast<int>(m)) : 0.0;
  const double h = sqr(static_cast<double>(L + l));
  // 1 - K(maxCusum / h), taken from the upper-tail series so that small p-values keep their
  // digits instead of cancelling to 0.
  if (h > 0.0) pValue = CDFKolmogorovUpper(maxCusum / h);
  if (alphaOk) critical = finite_or_missing(h * KolmogorovCritical(alpha));
  if (std::isnan(maxCusum)) maxCusum = kMissing;

  // Output clean-up kept for the front end: a lower limit equal to -1.79769313486231e+308 is
  // reported as +1.79769313486231e+308 (upper limits at that value are written back as they are).
  if (limitsOk) {
    if (aLow == -kUnbounded) aLow = kUnbounded;
    if (bLow == -kUnbounded) bLow = kUnbounded;
  }
  return 0;
}

}  // namespace

int ComputeBCoeff_PAB1(matrix<double>* x, int n, matrix<double>* y, short& negFlag, short geoMean,
                       double verticalUp, double verticalDown, double horizontalLeft,
                       double horizontalRight, double& b, double& N, double& K) {
  return slope_estimator(false, x, n, y, negFlag, geoMean,
                         SpecialSlopes{verticalUp, verticalDown, horizontalLeft, horizontalRight},
                         b, N, K);
}

int ComputeBCoeff_PAB3(matrix<double>* x, int n, matrix<double>* y, short& negFlag, short geoMean,
                       double verticalUp, double verticalDown, double horizontalLeft,
                       double horizontalRight, double& b, double& N, double& K) {
  return slope_estimator(true, x, n, y, negFlag, geoMean,
                         SpecialSlopes{verticalUp, verticalDown, horizontalLeft, horizontalRight},
                         b, N, K);
}

int PassingBablok(matrix<double>* x, int n, matrix<double>* y, int option, double alpha, double& a,
                  double& aLow, double& aHigh, double& b, double& bLow, double& bHigh,
                  matrix<double>* fitted, matrix<double>* residuals, matrix<double>* differences,
                  matrix<double>* distance, double& maxCusum, double& critical, double& pValue) {
  return pab_driver(false, x, n, y, option, alpha, a, aLow, aHigh, b, bLow, bHigh, fitted,
                    residuals, differences, distance, maxCusum, critical, pValue);
}

int PassingBablokBIS(matrix<double>* x, int n, matrix<double>* y, int option, double alpha,
                     double& a, double& aLow, double& aHigh, double& b, double& bLow, double& bHigh,
                     matrix<double>* fitted, matrix<double>* residuals, matrix<double>* differences,
                     matrix<double>* distance, double& maxCusum, double& critical, double& pValue) {
  return pab_driver(true, x, n, y, option, alpha, a, aLow, aHigh, b, bLow, bHigh, fitted, residuals,
                    differences, distance, maxCusum, critical, pValue);
}

double KolmogorovCritical(double alpha) {
  // Tabulated values, matched exactly.
  if (alpha == 0.01) return 1.62762361151895;
  if (alpha == 0.05) return 1.35809863932252;
  if (alpha == 0.1) return 1.22384787020909;
  if (!(alpha > 0.0 && alpha < 1.0)) return std::nan("");
  const double q = 1.0 - alpha;
  double lo = 1.0, hi = 1.9;
  // Bracket, then bisect on the distribution-function value; the iteration caps only stop a
  // distribution function that returns NaN from looping forever.
  for (int i = 0; i < 64 && CDFKolmogorov(lo) >= q; ++i) lo *= 0.5;
  for (int i = 0; i < 64 && CDFKolmogorov(hi) <= q; ++i) hi *= 2.0;
  double mid = (lo + hi) * 0.5;
  for (int i = 0; i < 200; ++i) {
    mid = (lo + hi) * 0.5;
    const double cm = CDFKolmogorov(mid);
    if (std::fabs(cm - q) < 1e-5 || std::isnan(cm)) break;
    if (cm < q) {
      lo = mid;
    } else {
      hi = mid;
    }
  }
  return mid;
}

}  // namespace velkor::methodcomp
