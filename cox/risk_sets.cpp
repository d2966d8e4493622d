#include "cox/risk_sets.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

#include "core/numeric.h"

namespace velkor::cox {
namespace {

// The sum of the logarithms of positive normal finite numbers with one call of log: each factor
// is split into its mantissa m in [1, 2) and binary exponent e (exact, from the bits), the
// mantissas are multiplied and the exponents added, so sum log(v) = log(prod m) + (sum e) log 2.
// The product is brought back to [1, 2) every 512 factors (below 2^512), so it never overflows
// or underflows. log 2 is split as in fdlibm (a high part with 32 significant bits and the rest):
// (sum e) times the high part is exact for |sum e| < 2^21.
class LogProduct {
 public:
  void Add(double v) {
    const auto bits = std::bit_cast<std::uint64_t>(v);
    exponent_ += static_cast<std::int64_t>(bits >> 52) - 1023;
    product_ *= std::bit_cast<double>((bits & kMantissaBits) | kExponentOfOne);
    if (++pending_ == 512) Normalise();
  }
  double Log() const {
    const auto e = static_cast<double>(exponent_);
    return std::log(product_) + (e * kLn2Hi + e * kLn2Lo);
  }

 private:
  static constexpr std::uint64_t kMantissaBits = (std::uint64_t{1} << 52) - 1;
  static constexpr std::uint64_t kExponentOfOne = std::uint64_t{1023} << 52;
  static constexpr double kLn2Hi = 6.93147180369123816490e-01;
  static constexpr double kLn2Lo = 1.90821492927058770002e-10;
  void Normalise() {
    const auto bits = std::bit_cast<std::uint64_t>(product_);
    exponent_ += static_cast<std::int64_t>(bits >> 52) - 1023;
    product_ = std::bit_cast<double>((bits & kMantissaBits) | kExponentOfOne);
    pending_ = 0;
  }
  double product_ = 1.0;
  std::int64_t exponent_ = 0;
  int pending_ = 0;
};

// Running sums of one risk set (S, A, packed upper triangle of C) or of one tied block (T, B, E).
struct Moments {
  double s = 0.0;
  std::vector<double> a, c;
  explicit Moments(int p) : a(static_cast<std::size_t>(p), 0.0), c(Packed(p), 0.0) {}
  static std::size_t Packed(int p) { return static_cast<std::size_t>(p) * (p + 1) / 2; }
  void Clear() {
    s = 0.0;
    for (double& v : a) v = 0.0;
    for (double& v : c) v = 0.0;
  }
  // Adds the row x (p values) with factor e. Small p (the usual case) runs through loops whose
  // bounds are compile-time constants, which the compiler unrolls.
  void Add(const double* x, double e) {
    s += e;
    switch (a.size()) {
      case 1:
        return AddFixed<1>(x, e);
      case 2:
        return AddFixed<2>(x, e);
      case 3:
        return AddFixed<3>(x, e);
      case 4:
        return AddFixed<4>(x, e);
      case 5:
        return AddFixed<5>(x, e);
      case 6:
        return AddFixed<6>(x, e);
      case 7:
        return AddFixed<7>(x, e);
      case 8:
        return AddFixed<8>(x, e);
      default:
        break;
    }
    const std::size_t p = a.size();
    std::size_t idx = 0;
    for (std::size_t col = 0; col < p; ++col) {
      const double ex = e * x[col];
      a[col] += ex;
      for (std::size_t r = 0; r <= col; ++r) c[idx++] += ex * x[r];
    }
  }
  template <int P>
  void AddFixed(const double* x, double e) {
    double* pa = a.data();
    double* pc = c.data();
    int idx = 0;
    for (int col = 0; col < P; ++col) {
      const double ex = e * x[col];
      pa[col] += ex;
      for (int r = 0; r <= col; ++r) pc[idx++] += ex * x[r];
    }
  }
};

// The evaluation state: eta of every row, the row being read, and the accumulated outputs.
struct Evaluation {
  const RiskLayout& lay;
  const double* X;
  std::size_t ldx;
  int p;
  const double* w;
  const double* rm;  // row-major design, or null
  TieTerms terms;
  RiskWorkspace own;
  std::vector<double>& eta;              // x_i' beta
  std::vector<double>& ex;               // exp(eta_i) once row i is added to the risk sums
  std::vector<double>& rangeEx;          // fused Efron pass: exp(eta) of the rows just added
  std::vector<double> xrow, grad, hess;  // hess: packed upper triangle
  double loglik = 0.0;
  Moments risk, tied;
  std::vector<double> mean;  // (A - f B) / (S - f T) of the current term

  // With fused = true the linear predictors are not computed here: the fused cumulative pass
  // (FusedStratum) forms them row by row as it adds the rows to the risk sums.
  Evaluation(const RiskLayout& l, const double* x, std::size_t ld, int np, const double* wt,
             const double* beta, TieTerms t, const double* rowMajor = nullptr,
             RiskWorkspace* work = nullptr, bool fused = false)
      : lay(l),
        X(x),
        ldx(ld),
        p(np),
        w(wt),
        rm(rowMajor),
        terms(t),
        eta(work ? work->eta : own.eta),
        ex(work ? work->ex : own.ex),
        rangeEx(work ? work->rangeEx : own.rangeEx),
        xrow(static_cast<std::size_t>(np), 0.0),
        grad(static_cast<std::size_t>(np), 0.0),
        hess(Moments::Packed(np), 0.0),
        risk(np),
        tied(np),
        mean(static_cast<std::size_t>(np), 0.0) {
    if (fused) return;  // no per-row vector: the fused pass forms eta and exp(eta) per row
    eta.resize(lay.n);
    ex.resize(lay.n);
    if (rm) {
      const auto up = static_cast<std::size_t>(p);
      for (std::size_t i = 0; i < lay.n; ++i) {
        const double* r = rm + i * up;
        double s = 0.0;
        for (std::size_t j = 0; j < up; ++j) s += r[j] * beta[j];
        eta[i] = s;
      }
      return;
    }
    std::fill(eta.begin(), eta.end(), 0.0);
    for (int j = 0; j < p; ++j) {
      const double b = beta[j];
      const double* col = X + static_cast<std::size_t>(j) * ldx;
      for (std::size_t i = 0; i < lay.n; ++i) eta[i] += col[i] * b;
    }
  }

  const double* Row(std::size_t i) {
    if (rm) return rm + i * static_cast<std::size_t>(p);
    for (int j = 0; j < p; ++j)
      xrow[static_cast<std::size_t>(j)] = X[static_cast<std::size_t>(j) * ldx + i];
    return xrow.data();
  }

  // Adds row i to the risk-set sums unless its linear predictor reaches the exponent guard
  // (skipped, not clamped: exp(700) is the last value an accumulation over many rows can hold).
  void AddToRisk(std::size_t i) {
    if (!(eta[i] < kExpGuard)) {
      ex[i] = -1.0;  // marks the row as left out (exp is never negative)
      return;
    }
    ex[i] = eta[i] == 0.0 ? 1.0 : std::exp(eta[i]);  // beta = 0, the first evaluation of a fit
    risk.Add(Row(i), ex[i]);
  }

  // Adds rows [from, to) to the risk-set sums, the same rows AddToRisk would add one by one.
  // The run is summed into local accumulators first (kept in registers for small p), then added
  // to the running sums.
  void AddRange(std::size_t from, std::size_t to) {
    for (std::size_t i = from; i < to; ++i)
      ex[i] = !(eta[i] < kExpGuard) ? -1.0 : (eta[i] == 0.0 ? 1.0 : std::exp(eta[i]));
    if (rm) {
      switch (p) {
        case 1:
          return RangeFixed<1>(from, to);
        case 2:
          return RangeFixed<2>(from, to);
        case 3:
          return RangeFixed<3>(from, to);
        case 4:
          return RangeFixed<4>(from, to);
        case 5:
          return RangeFixed<5>(from, to);
        case 6:
          return RangeFixed<6>(from, to);
        default:
          break;
      }
    }
    for (std::size_t i = to; i-- > from;)
      if (eta[i] < kExpGuard) risk.Add(Row(i), ex[i]);
  }
  template <int P>
  void RangeFixed(std::size_t from, std::size_t to) {
    constexpr int kC = P * (P + 1) / 2;
    double s = 0.0, a[P] = {}, c[kC] = {};
    for (std::size_t i = to; i-- > from;) {
      if (!(eta[i] < kExpGuard)) continue;  // the exponent guard: left out, not clamped
      const double e = ex[i];
      const double* x = rm + i * P;
      s += e;
      int idx = 0;
      for (int col = 0; col < P; ++col) {
        const double exc = e * x[col];
        a[col] += exc;
        for (int r = 0; r <= col; ++r) c[idx++] += exc * x[r];
      }
    }
    risk.s += s;
    for (int k = 0; k < P; ++k) risk.a[static_cast<std::size_t>(k)] += a[k];
    for (int k = 0; k < kC; ++k) risk.c[static_cast<std::size_t>(k)] += c[k];
  }

  // Tied-block sums T, B, E over the event rows of [from, to), as tied.Add row by row. e0[i -
  // from] is exp(eta_i) of row i, negative for a row the exponent guard left out.
  // A row that does not enter (censored: event weight 0, or left out by the guard) is added with
  // the factor 0, which changes no sum (the object form's covariates are finite), instead of
  // being skipped: censored rows come in random order within a block, and a branch on them was
  // mispredicted about as often as it was taken.
  template <int P>
  void TiedFixed(std::size_t from, std::size_t to, const double* e0) {
    constexpr int kC = P * (P + 1) / 2;
    double s = 0.0, a[P] = {}, c[kC] = {};
    for (std::size_t i = from; i < to; ++i) {
      const double f = e0[i - from];
      // wf where the row enters, +0 otherwise, by a bit mask (a conditional expression here is
      // compiled into the very branch this avoids).
      const std::uint64_t keep =
          std::uint64_t{0} - static_cast<std::uint64_t>((w[i] != 0.0) & (f >= 0.0));
      const double e = std::bit_cast<double>(std::bit_cast<std::uint64_t>(w[i] * f) & keep);
      const double* x = rm + i * P;
      s += e;
      int idx = 0;
      for (int col = 0; col < P; ++col) {
        const double exc = e * x[col];
        a[col] += exc;
        for (int r = 0; r <= col; ++r) c[idx++] += exc * x[r];
      }
    }
    tied.s = s;
    for (int k = 0; k < P; ++k) tied.a[static_cast<std::size_t>(k)] = a[k];
    for (int k = 0; k < kC; ++k) tied.c[static_cast<std::size_t>(k)] = c[k];
  }

  // The event term of one distinct time: weighted block sum of x (and of eta for the
  // log-likelihood), then the ties terms from the risk-set and tied-block sums.
  // The beta-free event terms: W_k of each block and the sum of w_i x_i over the event rows of
  // the blocks with events (censored rows carry event weight 0 and never enter).
  void EventTerms(RiskWorkspace& ws) {
    const auto up = static_cast<std::size_t>(p);
    ws.blockWeight.assign(lay.blocks.size(), 0.0);
    ws.eventSum.assign(up, 0.0);
    for (std::size_t k = 0; k < lay.blocks.size(); ++k) {
      const TiedBlock& b = lay.blocks[k];
      if (b.events <= 0) continue;
      for (std::size_t i = b.start; i < static_cast<std::size_t>(b.start) + b.size; ++i) {
        const double wi = w[i];
        if (wi == 0.0) continue;
        ws.blockWeight[k] += wi;
        const double* x = Row(i);
        for (std::size_t j = 0; j < up; ++j) ws.eventSum[j] += wi * x[j];
      }
    }
    ws.eventTermsReady = true;
  }

  // Adds sum_events w_i x_i' beta to the log-likelihood and sum_events w_i x_i to the gradient.
  void LinearTerms(const RiskWorkspace& ws, const double* beta) {
    for (std::size_t j = 0; j < static_cast<std::size_t>(p); ++j) {
      loglik += ws.eventSum[j] * beta[j];
      grad[j] += ws.eventSum[j];
    }
  }

  // The ties terms of block k (wsum = W_k) from the risk-set sums and, for Efron, the tied sums.
  // e0: exp(eta) of the block's rows from its first (negative when left out by the guard); null
  // reads them from ex.
  void TimeTerms(const TiedBlock& b, double wsum, const double* e0 = nullptr) {
    const int d = b.events;
    if (d <= 0) return;  // a time with only censored rows contributes nothing
    if (terms == TieTerms::EfronWeighted && d > 1) {  // f_1 = 0: a single event needs no T_k
      tied.Clear();
      const std::size_t from = b.start, to = from + b.size;
      if (e0 == nullptr) e0 = ex.data() + from;
      switch (rm ? p : 0) {  // ex is current: the block's rows are in R_k
        case 1:
          TiedFixed<1>(from, to, e0);
          break;
        case 2:
          TiedFixed<2>(from, to, e0);
          break;
        case 3:
          TiedFixed<3>(from, to, e0);
          break;
        case 4:
          TiedFixed<4>(from, to, e0);
          break;
        case 5:
          TiedFixed<5>(from, to, e0);
          break;
        case 6:
          TiedFixed<6>(from, to, e0);
          break;
        default:
          for (std::size_t i = from; i < to; ++i)
            if (w[i] != 0.0 && !(e0[i - from] < 0.0)) tied.Add(Row(i), w[i] * e0[i - from]);
      }
    }
    const double S = risk.s;
    if (!(S > kEpsilon)) return;  // vanishing risk set: the time contributes nothing more
    if (terms == TieTerms::EfronWeighted) {
      EfronTerms(wsum / d, d, S);
    } else {
      const double factor = terms == TieTerms::BreslowCount ? static_cast<double>(d) : wsum;
      loglik -= factor * std::log(S);
      AddMoments(factor, S, 0.0);
    }
  }

  // Efron terms of a time with d events, each weighted by the mean event weight wbar:
  //   sum_j log(D_j),  D_j = S - f_j T,  f_j = (j - 1) / d  (j = 1..d, terms with D_j <= eps left
  //   out), gradient sum_j m_j with m_j = (A - f_j B) / D_j, matrix sum_j (C - f_j E) / D_j - m_j
  //   m_j'.
  // The sums over j are taken on scalars first:
  //   sum_j m_j = A s0 - B s1,  sum_j (C - f_j E) / D_j = C s0 - E s1,
  //   sum_j m_j m_j' = A A' q0 - (A B' + B A') q1 + B B' q2,
  // with s0 = sum 1/D_j, s1 = sum f_j/D_j, q0 = sum 1/D_j^2, q1 = sum f_j/D_j^2, q2 = sum
  // f_j^2/D_j^2, so a time costs O(d + p^2) instead of O(d p^2).
  // The d logarithms are taken as one: sum_j log(D_j) = log(prod_j D_j) through LogProduct, which
  // keeps the product as mantissa and binary exponent so that it never overflows or underflows.
  // The value agrees with the sum of the d logarithms to rounding (a few units in the last place
  // of the time's term); a single event, or a term that is not finite, takes its logarithm alone.
  void EfronTerms(double wbar, int d, double S) {
    double logs = 0, s0 = 0, s1 = 0, q0 = 0, q1 = 0, q2 = 0;
    const double T = d > 1 ? tied.s : 0.0;  // with one event f_1 = 0: the tied sums are not used
    constexpr double kInf = std::numeric_limits<double>::infinity();
    LogProduct product;
    for (int j = 0; j < d; ++j) {
      const double f = static_cast<double>(j) / d;
      const double den = S - f * T;
      if (!(den > kEpsilon)) continue;
      const double inv = 1.0 / den;
      if (d > 1 && den < kInf) {
        product.Add(den);
      } else {
        logs += std::log(den);
      }
      s0 += inv;
      s1 += f * inv;
      q0 += inv * inv;
      q1 += f * inv * inv;
      q2 += f * f * inv * inv;
    }
    if (d > 1) logs += product.Log();
    loglik -= wbar * logs;
    const auto up = static_cast<std::size_t>(p);
    const double* A = risk.a.data();
    const double* B = tied.a.data();
    std::size_t idx = 0;
    for (std::size_t col = 0; col < up; ++col) {
      grad[col] -= wbar * (d > 1 ? A[col] * s0 - B[col] * s1 : A[col] * s0);
      for (std::size_t r = 0; r <= col; ++r, ++idx) {
        double second = risk.c[idx] * s0 - A[r] * A[col] * q0;
        if (d > 1)
          second += -tied.c[idx] * s1 + (A[r] * B[col] + B[r] * A[col]) * q1 - B[r] * B[col] * q2;
        hess[idx] -= wbar * second;
      }
    }
  }
  void AddMoments(double c, double den, double f) {
    const auto up = static_cast<std::size_t>(p);
    const double inv = 1.0 / den;
    for (std::size_t r = 0; r < up; ++r) {
      mean[r] = (risk.a[r] - f * tied.a[r]) * inv;
      grad[r] -= c * mean[r];
    }
    std::size_t idx = 0;
    for (std::size_t col = 0; col < up; ++col)
      for (std::size_t r = 0; r <= col; ++r, ++idx)
        hess[idx] -= c * ((risk.c[idx] - f * tied.c[idx]) * inv - mean[r] * mean[col]);
  }

  void Write(double& ll, double* g, double* h) const {
    ll = loglik;
    std::size_t idx = 0;
    const auto np = static_cast<std::size_t>(p);
    for (std::size_t col = 0; col < np; ++col) {
      g[col] = grad[col];
      for (std::size_t r = 0; r <= col; ++r, ++idx) {
        h[col * np + r] = hess[idx];
        h[r * np + col] = hess[idx];
      }
    }
  }
};

// The cumulative pass of one stratum with eta_i = x_i' beta and exp(eta_i) formed as each row
// is added, for a row-major design with P columns: one sweep over the design per evaluation
// instead of three (linear predictors, exponentials, sums). The sums are taken in exactly the
// order of the unfused pass (rows from the last to the first, each run of new rows into local
// accumulators that are then added to the running sums), so the values are the same bit for bit.
// The exponentials of a run are formed in short chunks before the run's rows are accumulated, so
// that the accumulators stay in registers across the calls to exp. With kKeep (Efron) the
// exponentials of the whole run are kept (the run starts with the block's own rows) for the
// tied-block sums of TimeTerms, which then need no per-row vector of the data set's length.
template <int P, bool kKeep>
void FusedStratum(Evaluation& ev, const RiskWorkspace& ws, const StratumRange& st,
                  const double* beta) {
  constexpr int kC = P * (P + 1) / 2;
  constexpr std::size_t kChunk = 64;
  const double* rm = ev.rm;
  double b[P];
  for (int j = 0; j < P; ++j) b[j] = beta[j];
  Moments& risk = ev.risk;
  risk.Clear();
  double chunk[kChunk];
  std::size_t lo = static_cast<std::size_t>(st.first) + st.rows;
  for (std::uint32_t k = st.blockEnd; k-- > st.blockBegin;) {
    const TiedBlock& blk = ev.lay.blocks[k];
    if (lo > blk.start) {
      const std::size_t from = blk.start;
      // Efron keeps the factors of the whole run [from, lo), which begins with the block's own
      // rows; Breslow needs only those of the current chunk.
      double* keep = nullptr;
      if constexpr (kKeep) {
        if (ev.rangeEx.size() < lo - from) ev.rangeEx.resize(lo - from);
        keep = ev.rangeEx.data();
      }
      double s = 0.0, a[P] = {}, c[kC] = {};
      for (std::size_t hi = lo; hi > from;) {
        const std::size_t clo = hi - from > kChunk ? hi - kChunk : from;
        double* e = kKeep ? keep + (clo - from) : chunk;
        for (std::size_t i = hi; i-- > clo;) {  // descending: one backward stream
          const double* x = rm + i * P;
          double v = 0.0;
          for (int j = 0; j < P; ++j) v += x[j] * b[j];
          // The exponent guard: a row with eta >= 700 (or NaN) is left out, not clamped; its
          // factor is marked negative, which exp never is.
          e[i - clo] = !(v < kExpGuard) ? -1.0 : (v == 0.0 ? 1.0 : std::exp(v));
        }
        for (std::size_t i = hi; i-- > clo;) {
          const double f = e[i - clo];
          if (f < 0.0) continue;
          const double* x = rm + i * P;
          s += f;
          int idx = 0;
          for (int col = 0; col < P; ++col) {
            const double fx = f * x[col];
            a[col] += fx;
            for (int r = 0; r <= col; ++r) c[idx++] += fx * x[r];
          }
        }
        hi = clo;
      }
      risk.s += s;
      for (int j = 0; j < P; ++j) risk.a[static_cast<std::size_t>(j)] += a[j];
      for (int j = 0; j < kC; ++j) risk.c[static_cast<std::size_t>(j)] += c[j];
      lo = blk.start;
      ev.TimeTerms(blk, ws.blockWeight[k], keep);
      continue;
    }
    // No new row (an empty block): for Efron its tied rows are none, the factors are unused.
    ev.TimeTerms(blk, ws.blockWeight[k], kKeep ? ev.rangeEx.data() : nullptr);
  }
}

// The fused pass for the stratum's column count, when it has a fixed-size kernel.
template <bool kKeep>
bool FusedStratumFor(Evaluation& ev, const RiskWorkspace& ws, const StratumRange& st,
                     const double* beta) {
  switch (ev.p) {
    case 1:
      FusedStratum<1, kKeep>(ev, ws, st, beta);
      return true;
    case 2:
      FusedStratum<2, kKeep>(ev, ws, st, beta);
      return true;
    case 3:
      FusedStratum<3, kKeep>(ev, ws, st, beta);
      return true;
    case 4:
      FusedStratum<4, kKeep>(ev, ws, st, beta);
      return true;
    case 5:
      FusedStratum<5, kKeep>(ev, ws, st, beta);
      return true;
    case 6:
      FusedStratum<6, kKeep>(ev, ws, st, beta);
      return true;
    default:
      return false;
  }
}

void Zero(int p, double& loglik, double* grad, double* hess) {
  loglik = 0.0;
  for (int j = 0; j < p; ++j) grad[j] = 0.0;
  for (long long k = 0; k < static_cast<long long>(p) * p; ++k) hess[k] = 0.0;
}

void DirectStratum(Evaluation& ev, const RiskWorkspace& ws, const StratumRange& st) {
  const std::size_t end = static_cast<std::size_t>(st.first) + st.rows;
  for (std::uint32_t k = st.blockBegin; k < st.blockEnd; ++k) {
    const TiedBlock& b = ev.lay.blocks[k];
    if (b.events <= 0) continue;
    ev.risk.Clear();
    for (std::size_t i = b.start; i < end; ++i) ev.AddToRisk(i);
    ev.TimeTerms(b, ws.blockWeight[k]);
  }
}

// The workspace holding the beta-free event terms: the caller's (computed once) or the
// evaluation's own.
RiskWorkspace& EventWorkspace(Evaluation& ev, RiskWorkspace* work) {
  RiskWorkspace& ws = work ? *work : ev.own;
  if (!ws.eventTermsReady || ws.blockWeight.size() != ev.lay.blocks.size()) ev.EventTerms(ws);
  return ws;
}

}  // namespace

std::vector<double> RowMajorCopy(const double* X, std::size_t ldx, std::size_t n, int p) {
  const auto up = static_cast<std::size_t>(p < 0 ? 0 : p);
  std::vector<double> r(n * up);
  for (std::size_t j = 0; j < up; ++j) {
    const double* col = X + j * ldx;
    for (std::size_t i = 0; i < n; ++i) r[i * up + j] = col[i];
  }
  return r;
}

void EvaluateRiskSets(const RiskLayout& layout, const double* X, std::size_t ldx, int p,
                      const double* w, const double* beta, TieTerms terms, double& loglik,
                      double* grad, double* hess, const double* rowMajor, RiskWorkspace* work) {
  if (p < 1) {
    loglik = 0.0;
    return;
  }
  Zero(p, loglik, grad, hess);
  if (terms == TieTerms::Nothing) return;
  // The fused pass applies to a row-major design of up to 6 columns whose strata all have
  // ascending block starts.
  // Efron's tied-block sums read the factors of the rows the pass has just added, so its blocks
  // must not overlap (true of every table cReorganizeDataCox builds).
  bool fused = rowMajor != nullptr && p <= 6;
  for (const StratumRange& st : layout.strata) {
    fused = fused && st.ascending;
    for (std::uint32_t k = st.blockBegin;
         fused && terms == TieTerms::EfronWeighted && k + 1 < st.blockEnd; ++k)
      fused = static_cast<std::size_t>(layout.blocks[k].start) + layout.blocks[k].size <=
              layout.blocks[k + 1].start;
  }
  Evaluation ev(layout, X, ldx, p, w, beta, terms, rowMajor, work, fused);
  const RiskWorkspace& ws = EventWorkspace(ev, work);
  ev.LinearTerms(ws, beta);
  if (fused) {
    const bool keep = terms == TieTerms::EfronWeighted;
    for (const StratumRange& st : layout.strata)
      keep ? FusedStratumFor<true>(ev, ws, st, beta) : FusedStratumFor<false>(ev, ws, st, beta);
    ev.Write(loglik, grad, hess);
    return;
  }
  for (const StratumRange& st : layout.strata) {
    if (!st.ascending) {
      DirectStratum(ev, ws, st);
      continue;
    }
    // Backward cumulative sums: walking the blocks from the last time to the first, the rows
    // from each block's start up to the rows already added complete the risk set R_k.
    ev.risk.Clear();
    std::size_t lo = static_cast<std::size_t>(st.first) + st.rows;
    for (std::uint32_t k = st.blockEnd; k-- > st.blockBegin;) {
      const TiedBlock& b = layout.blocks[k];
      if (lo > b.start) {
        ev.AddRange(b.start, lo);
        lo = b.start;
      }
      ev.TimeTerms(b, ws.blockWeight[k]);
    }
  }
  ev.Write(loglik, grad, hess);
}

void EvaluateRiskSetsDirect(const RiskLayout& layout, const double* X, std::size_t ldx, int p,
                            const double* w, const double* beta, TieTerms terms, double& loglik,
                            double* grad, double* hess) {
  if (p < 1) {
    loglik = 0.0;
    return;
  }
  Zero(p, loglik, grad, hess);
  if (terms == TieTerms::Nothing) return;
  Evaluation ev(layout, X, ldx, p, w, beta, terms);
  const RiskWorkspace& ws = EventWorkspace(ev, nullptr);
  ev.LinearTerms(ws, beta);
  for (const StratumRange& st : layout.strata) DirectStratum(ev, ws, st);
  ev.Write(loglik, grad, hess);
}

}  // namespace velkor::cox
