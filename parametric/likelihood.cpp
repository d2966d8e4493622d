// Parametric survival log-likelihood and its exact derivatives (see likelihood.h for the model and
// the contract). Each observation's contribution is a function l(eta, sigma); its partial
// derivatives (l_e, l_s, l_ee, l_es, l_ss) are mapped to the parameters by the chain rule,
// d eta / d theta = (x_1 .. x_p, 1), so that
//   grad  += l_e xa            H_bb += l_ee xa xa'
//   grad_s += l_s              H_bs += l_es xa        H_ss += l_ss
// with xa the design row augmented by 1. For a function g(z) of z = (y - eta)/sigma:
//   l_e = -g'/s, l_s = -g' z/s, l_ee = g''/s^2, l_es = (g'' z + g')/s^2,
//   l_ss = (g'' z^2 + 2 g' z)/s^2.
// For an interval, l = log D with D = F(zu) - F(zl) and c = f(z)/D, d = f'(z)/D at each bound:
//   l_x = c_u zu_x - c_l zl_x,  l_xy = d_u zu_x zu_y + c_u zu_xy - d_l zl_x zl_y - c_l zl_xy - l_x
//   l_y.
#include "parametric/likelihood.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "companion/normal_tail.h"
#include "core/numeric.h"
#include "parametric/vector_math.h"

namespace velkor::param {
namespace {

constexpr double kLogSqrt2Pi = 0.91893853320467274178;  // log sqrt(2 pi)
constexpr double kInvSqrt2Pi = 0.39894228040143267794;  // 1 / sqrt(2 pi)

// Partial derivatives of one contribution with respect to (eta, sigma).
struct Local {
  double le = 0, ls = 0, lee = 0, les = 0, lss = 0;
};

// Chain rule for g(z), z = (y - eta)/s, with g1 = g'(z), g2 = g''(z).
inline void FromZ(double z, double is, double g1, double g2, Local& d) {
  const double is2 = is * is;
  d.le = -g1 * is;
  d.ls = -g1 * z * is;
  d.lee = g2 * is2;
  d.les = (g2 * z + g1) * is2;
  d.lss = (g2 * z * z + 2.0 * g1 * z) * is2;
}

// Chain rule for l = log(F(zu) - F(zl)); c/d = f/D and f'/D at each bound. A bound whose density
// vanishes (an infinite bound) contributes nothing; testing it avoids 0 x inf.
inline void FromInterval(double zl, double zu, double is, double cl, double dl, double cu,
                         double du, Local& d) {
  const double is2 = is * is;
  double le = 0, ls = 0, aee = 0, aes = 0, ass = 0;
  if (cu != 0.0 || du != 0.0) {
    const double ze = -is, zs = -zu * is;
    le += cu * ze;
    ls += cu * zs;
    aee += du * ze * ze;
    aes += du * ze * zs + cu * is2;
    ass += du * zs * zs + cu * 2.0 * zu * is2;
  }
  if (cl != 0.0 || dl != 0.0) {
    const double ze = -is, zs = -zl * is;
    le -= cl * ze;
    ls -= cl * zs;
    aee -= dl * ze * ze;
    aes -= dl * ze * zs + cl * is2;
    ass -= dl * zs * zs + cl * 2.0 * zl * is2;
  }
  d.le = le;
  d.ls = ls;
  d.lee = aee - le * le;
  d.les = aes - le * ls;
  d.lss = ass - ls * ls;
}

// F(z) for the minimum extreme value law, F(z) = 1 - exp(-e^z), with g' and g'' of g = log F,
// from e = e^z, surv = exp(-e) and m = expm1(-e) (read only when e <= 0.5).
template <bool D>
inline double EvCdfFrom(double e, double surv, double m, double& g1, double& g2) {
  // 1 - exp(-e) loses at most a few ulps to cancellation once exp(-e) < 0.61; expm1 is kept for
  // the small values of e where it matters
  const double cdf = e > 0.5 ? 1.0 - surv : -m;
  if constexpr (D) {
    g1 = surv == 0.0 ? 0.0 : e * surv / cdf;  // f/F; f = e^z exp(-e^z)
    g2 = g1 * (1.0 - e) - g1 * g1;            // f'/F - (f/F)^2, f' = f (1 - e^z)
  }
  return cdf;
}

template <bool D>
inline double EvLogCdf(double z, double& g1, double& g2) {
  const double e = std::exp(z);
  return std::log(EvCdfFrom<D>(e, std::exp(-e), e > 0.5 ? 0.0 : std::expm1(-e), g1, g2));
}

// log(exp(-e^zl) - exp(-e^zu)), written as -e^zl + log(1 - exp(e^zl - e^zu)) so that it keeps
// its precision when both survival values are tiny; c, d as in FromInterval.
// Returned as the pair (-e^zl, 1 - exp(e^zl - e^zu)): log D = first + log(second).
// From el = e^zl, eu = e^zu and, with t = el - eu, et = exp(t) (read when t < -0.1) and
// m = expm1(t) (read otherwise).
template <bool D>
inline double EvIntervalFrom(double el, double eu, double et, double m, double& add, double& cl,
                             double& dl, double& cu, double& du) {
  const double t = el - eu;
  // q = 1 - exp(t): from exp(t), which the derivatives use too, where the cancellation costs at
  // most about 10 ulps (t < -0.1, q > 0.095); by expm1 for narrower gaps
  const bool wide = t < -0.1;
  const double q = wide ? 1.0 - et : -m;
  if constexpr (D) {
    const double r = wide ? et : 1.0 - q;  // exp(t); 1 - q is exact enough for q <= 0.095
    const double iq = 1.0 / q;
    cl = el * iq;
    dl = cl * (1.0 - el);
    cu = r == 0.0 ? 0.0 : eu * r * iq;
    du = cu * (1.0 - eu);
  }
  add = -el;
  return q;
}

template <bool D>
inline double EvIntervalArg(double zl, double zu, double& add, double& cl, double& dl, double& cu,
                            double& du) {
  const double el = std::exp(zl), eu = std::exp(zu);
  const double t = el - eu;
  const bool wide = t < -0.1;
  return EvIntervalFrom<D>(el, eu, wide ? std::exp(t) : 0.0, wide ? 0.0 : std::expm1(t), add, cl,
                           dl, cu, du);
}

template <bool D>
inline double EvLogInterval(double zl, double zu, double& cl, double& dl, double& cu, double& du) {
  double add = 0.0;
  const double q = EvIntervalArg<D>(zl, zu, add, cl, dl, cu, du);
  return add + std::log(q);
}

// log(Phi(zu) - Phi(zl)), written as an upper-tail difference D = Q(s) - Q(t), s < t: (s, t) =
// (zl, zu) when zl > 0, else (-zu, -zl), so that the difference never cancels two values near 1.
// With the scaled tails R (companion/normal_tail.h) and s beyond 0.6629,
//   D = e_s (R(s) - g R(t)),  g = e_t / e_s = exp(-(t - s)(t + s)/2),
// so log D = -s^2/2 + log(R(s) - g R(t)), phi(s)/D = 1/(sqrt(2 pi) m) and phi(t)/D = g/(sqrt(2 pi)
// m) with m = R(s) - g R(t): one exp for the row, and finite where both tails underflow.
template <bool D>
inline double NormIntervalArg(double zl, double zu, double& add, double& cl, double& dl, double& cu,
                              double& du) {
  const bool upperForm = zl > 0.0;
  const double s = upperForm ? zl : -zu, t = upperForm ? zu : -zl;
  double arg, cs, ct;
  if (NormalScaledTailApplies(s) && NormalScaledTailApplies(t)) {
    const double g = std::exp(-0.5 * (t - s) * (t + s));
    const double m = NormalScaledTail(s) - g * NormalScaledTail(t);
    add = -0.5 * s * s;
    arg = m;
    const double im = kInvSqrt2Pi / m;
    cs = im;
    ct = g * im;
  } else {
    const NormalTailTerms ts = NormalTail<false>(s), tt = NormalTail<false>(t);
    const double diff = ts.q - tt.q;
    add = 0.0;
    arg = diff;
    const double inv = 1.0 / diff;
    cs = ts.pdf == 0.0 ? 0.0 : ts.pdf * inv;
    ct = tt.pdf == 0.0 ? 0.0 : tt.pdf * inv;
  }
  if constexpr (D) {
    cl = upperForm ? cs : ct;
    cu = upperForm ? ct : cs;
    du = cu == 0.0 ? 0.0 : -zu * cu;
    dl = cl == 0.0 ? 0.0 : -zl * cl;
  }
  return arg;
}

inline void Scale(Local& d, double v) {
  d.le *= v;
  d.ls *= v;
  d.lee *= v;
  d.les *= v;
  d.lss *= v;
}

// Sum of logarithms of positive factors, kept as an exponent count and a product of mantissas:
//   sum log x_i = E log 2 + log P,  x_i = m_i 2^(e_i), m_i in [1, 2), E = sum e_i, P = prod m_i,
// with P renormalised every 512 factors (so P < 2^512). One log per block of rows instead of one
// per row; its rounding (about 512 ulps of P, 1e-13 absolute) is that of adding 512 logarithms.
// A factor that is not a positive normal number (0, subnormal, infinite, negative, NaN) takes its
// logarithm directly, so log 0 = -inf and NaN propagate as before.
struct LogSum {
  static constexpr double kLn2Hi = 0x1.62e42fee00000p-1;  // E x kLn2Hi exact for |E| < 2^32
  static constexpr double kLn2Lo = 0x1.a39ef35793c76p-33;
  double prod = 1.0, direct = 0.0;
  std::int64_t expo = 0;
  int count = 0;
  void Add(double x) {
    if (x >= std::numeric_limits<double>::min() && x <= std::numeric_limits<double>::max()) {
      prod *= Split(x);
      if (++count == 512) {
        prod = Split(prod);
        count = 0;
      }
    } else {
      direct += std::log(x);
    }
  }
  // the mantissa of a positive normal x, its exponent added to expo
  double Split(double x) {
    const std::uint64_t b = std::bit_cast<std::uint64_t>(x);
    expo += static_cast<std::int64_t>(b >> 52) - 1023;
    return std::bit_cast<double>((b & 0x000FFFFFFFFFFFFFull) | 0x3FF0000000000000ull);
  }
  double Value() const {
    const double e = static_cast<double>(expo);
    return (e * kLn2Hi + (std::log(prod) + e * kLn2Lo)) + direct;
  }
};

// Adds v (add + log arg) to the log-likelihood: through the sum of logarithms when v = 1 (the
// unweighted case), directly otherwise.
inline void AddLog(double v, double add, double arg, double& ll, LogSum& logs) {
  if (v == 1.0) {
    ll += add;
    logs.Add(arg);
  } else {
    ll += v * (add + std::log(arg));
  }
}

// A block's standardised residuals, z = (y - eta)/sigma and zu = (u - eta)/sigma (read for
// intervals), and for the Weibull law the exponentials of its vector pass (WeibullExps): ez =
// e^z, eu = e^zu, and e3 = exp(a), m3 = expm1(a) with a = ez - eu for an interval, -ez otherwise.
struct BlockPre {
  const double *z, *zu, *ez, *eu, *e3, *m3;
};

// Contribution of one observation under the Weibull (dist 2) or log-normal (dist 3) law.
// Returns false when the code adds nothing. ll is updated in the order the terms are defined.
template <bool D>
inline bool ScaleLawTerm(int dist, double code, double y, const BlockPre& pre, std::size_t i,
                         double v, double logS, double is, double& ll, LogSum& plus, LogSum& minus,
                         Local& d) {
  const double z = pre.z[i];
  double g1 = 0, g2 = 0;
  if (dist == 2) {
    if (code == 1.0) {
      ll += v * (-logS + z - y);  // -y: Jacobian of the log transform
      g1 = v;
      if (z < kExpGuard) {
        const double ez = pre.ez[i];
        ll -= v * ez;
        g1 -= v * ez;
        g2 = -v * ez;
      }
      if constexpr (D) {
        FromZ(z, is, g1, g2, d);
        d.ls -= v * is;
        d.lss += v * is * is;
      }
      return true;
    }
    if (code == 0.0) {
      if (!(z < kExpGuard)) return false;
      const double ez = pre.ez[i];
      ll -= v * ez;
      if constexpr (D) FromZ(z, is, -v * ez, -v * ez, d);
      return true;
    }
    if (code == 2.0) {  // unweighted on purpose
      plus.Add(EvCdfFrom<D>(pre.ez[i], pre.e3[i], pre.m3[i], g1, g2));
      if constexpr (D) FromZ(z, is, g1, g2, d);
      return true;
    }
    if (code == 3.0) {  // unweighted on purpose
      const double zu = pre.zu[i];
      double cl = 0, dl = 0, cu = 0, du = 0;
      double add = 0;
      const double arg =
          EvIntervalFrom<D>(pre.ez[i], pre.eu[i], pre.e3[i], pre.m3[i], add, cl, dl, cu, du);
      ll += add;
      plus.Add(arg);
      if constexpr (D) FromInterval(z, zu, is, cl, dl, cu, du, d);
      return true;
    }
    return false;
  }
  // log-normal
  if (code == 1.0) {
    ll += v * (-0.5 * z * z - kLogSqrt2Pi - logS);  // log(phi(z) / sigma)
    if constexpr (D) {
      FromZ(z, is, -v * z, -v, d);
      d.ls -= v * is;
      d.lss += v * is * is;
    }
    return true;
  }
  if (code == 0.0) {
    double add, arg, lam;  // log(1 - Phi(z)) = add + log arg; the Mills ratio phi/(1 - Phi)
    NormalLogTailParts(z, add, arg, lam);
    AddLog(v, add, arg, ll, plus);
    if constexpr (D) FromZ(z, is, -v * lam, -v * lam * (lam - z), d);
    return true;
  }
  if (code == 2.0) {      // subtracted on purpose
    double add, arg, mu;  // log Phi(z) = log Q(-z) = add + log arg; phi(z)/Phi(z)
    NormalLogTailParts(-z, add, arg, mu);
    ll -= add * v;  // -v (add + log arg), the logarithm through the subtracted sum
    if (v == 1.0)
      minus.Add(arg);
    else
      ll -= v * std::log(arg);
    if constexpr (D) FromZ(z, is, -v * mu, v * mu * (z + mu), d);
    return true;
  }
  if (code == 3.0) {
    const double zu = pre.zu[i];
    double cl = 0, dl = 0, cu = 0, du = 0;
    double add = 0;
    const double arg = NormIntervalArg<D>(z, zu, add, cl, dl, cu, du);
    AddLog(v, add, arg, ll, plus);
    if constexpr (D) {
      FromInterval(z, zu, is, cl, dl, cu, du, d);
      Scale(d, v);
    }
    return true;
  }
  return false;
}

// Accumulators of the eta block (packed upper triangle) and the scale row.
struct Accum {
  int q = 0;                // p + 1 (coefficients and intercept)
  std::vector<double> g;    // q
  std::vector<double> hbb;  // q (q + 1) / 2, packed by columns: (j, m), j <= m
  std::vector<double> hbs;  // q
  double gs = 0, hss = 0;
  explicit Accum(int qq)
      : q(qq), g(qq, 0.0), hbb(static_cast<std::size_t>(qq) * (qq + 1) / 2, 0.0), hbs(qq, 0.0) {}
  void Add(const Accum& o) {
    for (std::size_t j = 0; j < g.size(); ++j) g[j] += o.g[j];
    for (std::size_t j = 0; j < hbb.size(); ++j) hbb[j] += o.hbb[j];
    for (std::size_t j = 0; j < hbs.size(); ++j) hbs[j] += o.hbs[j];
    gs += o.gs;
    hss += o.hss;
  }
};

// The exponential law keeps four running terms; each is the contribution of the row that last
// recomputed it, possibly extended by w for events beyond the 700 guard. Its derivatives are held
// with it (gradient and packed Hessian of the eta block) together with the weight accumulated
// since it was set, and are added to the totals, times that weight, when the term is replaced or
// at the end. The log-likelihood itself is summed literally, observation by observation.
struct RunningTerm {
  double value = 0.0;
  double weight = 0.0;
  std::vector<double> g, h;
  RunningTerm(int q) : g(q, 0.0), h(static_cast<std::size_t>(q) * (q + 1) / 2, 0.0) {}
  void Flush(Accum& acc) {
    if (weight != 0.0) {
      for (std::size_t j = 0; j < g.size(); ++j) acc.g[j] += weight * g[j];
      for (std::size_t j = 0; j < h.size(); ++j) acc.hbb[j] += weight * h[j];
    }
    weight = 0.0;
  }
  void Set(const double* xa, double le, double lee) {
    std::size_t t = 0;
    const int q = static_cast<int>(g.size());
    for (int m = 0; m < q; ++m) {
      const double a = lee * xa[m];
      g[m] = le * xa[m];
      for (int j = 0; j <= m; ++j) h[t++] = a * xa[j];
    }
  }
};

template <bool D>
void EvalExponential(const double* y, const double* cens, const double* upper, const double* x,
                     const double* w, std::size_t n, std::size_t ldx, int p, const double* theta,
                     double& ll, Accum* acc) {
  const int q = p + 1;
  std::vector<double> xa(static_cast<std::size_t>(q), 1.0);
  // running terms in the order of the codes' table: event, right, left, interval
  double t1 = 0, t0 = 0, t2 = 0, t3 = 0;
  std::vector<RunningTerm> run;
  if constexpr (D) run.assign(4, RunningTerm(q));
  for (std::size_t i = 0; i < n; ++i) {
    double eta = theta[p];
    for (int j = 0; j < p; ++j) {
      const double xij = x[static_cast<std::size_t>(j) * ldx + i];
      eta += xij * theta[j];
      if constexpr (D) xa[static_cast<std::size_t>(j)] = xij;
    }
    const double code = cens[i];
    const double wi = y[i] - eta;
    if (code == 1.0) {
      if (wi >= kExpGuard) {
        t1 = t1 + wi;
        if constexpr (D) {
          run[0].Flush(*acc);  // the previous term stays part of the new one
          for (int j = 0; j < q; ++j)
            run[0].g[static_cast<std::size_t>(j)] -= xa[static_cast<std::size_t>(j)];
        }
      } else {
        const double ew = std::exp(wi);
        t1 = wi - ew;
        if constexpr (D) {
          run[0].Flush(*acc);
          run[0].Set(xa.data(), ew - 1.0, -ew);
        }
      }
    } else if (code == 0.0) {
      if (wi < kExpGuard) {
        const double ew = std::exp(wi);
        t0 = -ew;
        if constexpr (D) {
          run[1].Flush(*acc);
          run[1].Set(xa.data(), ew, -ew);
        }
      }
    } else if (code == 2.0) {
      if (wi < kExpGuard) {
        double g1 = 0, g2 = 0;
        t2 = EvLogCdf<D>(wi, g1, g2);
        if constexpr (D) {
          run[2].Flush(*acc);
          run[2].Set(xa.data(), -g1, g2);
        }
      }
    } else if (code == 3.0) {
      if (upper[i] - eta < kExpGuard) {
        double cl = 0, dl = 0, cu = 0, du = 0;
        t3 = EvLogInterval<D>(wi, upper[i] - eta, cl, dl, cu, du);
        if constexpr (D) {
          const double le = cl - cu;
          run[3].Flush(*acc);
          run[3].Set(xa.data(), le, du - dl - le * le);
        }
      }
    }
    const double v = w ? w[i] : 1.0;
    ll += v * (t1 + t0 + t2 + t3);
    if constexpr (D) {
      for (auto& r : run) r.weight += v;
    }
  }
  if constexpr (D) {
    for (auto& r : run) r.Flush(*acc);
  }
}

// Sum of a[i] b[i] over a block, in eight interleaved partial sums added in a fixed order at the
// end: eight independent chains of additions instead of one, the same result on every run.
inline double BlockDot(const double* a, const double* b, std::size_t m) {
  double s[8] = {0, 0, 0, 0, 0, 0, 0, 0};
  std::size_t i = 0;
  for (; i + 8 <= m; i += 8)
    for (std::size_t l = 0; l < 8; ++l) s[l] += a[i + l] * b[i + l];
  for (; i < m; ++i) s[0] += a[i] * b[i];
  return ((s[0] + s[1]) + (s[2] + s[3])) + ((s[4] + s[5]) + (s[6] + s[7]));
}

inline double BlockSum(const double* a, std::size_t m) {
  double s[8] = {0, 0, 0, 0, 0, 0, 0, 0};
  std::size_t i = 0;
  for (; i + 8 <= m; i += 8)
    for (std::size_t l = 0; l < 8; ++l) s[l] += a[i + l];
  for (; i < m; ++i) s[0] += a[i];
  return ((s[0] + s[1]) + (s[2] + s[3])) + ((s[4] + s[5]) + (s[6] + s[7]));
}

// The Weibull law's exponentials for a block of rows (m a multiple of 4), a vector at a time:
// ez = e^z and, when the block has left- or interval-censored rows (`second`), eu = e^zu and the
// exp and expm1 of a third argument, ez - eu for an interval (code 3), -ez otherwise (the
// left-censored term's exp(-e^z)). The per-row pass reads what its code needs.
template <class V, class I>
VELKOR_ALWAYS_INLINE void WeibullExpsBody(const double* z, const double* zu, const double* code,
                                          std::size_t m, bool second, double* ez, double* eu,
                                          double* e3, double* m3) {
  constexpr std::size_t kLanes = sizeof(V) / sizeof(double);
  for (std::size_t i = 0; i < m; i += kLanes) {
    V a, ea, ma;
    vec::Load(a, z + i);
    vec::ExpExpm1<V, I>(a, ea, ma);
    vec::Store(ez + i, ea);
    if (!second) continue;
    V b, c, eb, mb, e, mm;
    vec::Load(b, zu + i);
    vec::Load(c, code + i);
    vec::ExpExpm1<V, I>(b, eb, mb);
    const V three = V{} + 3.0;
    const V third = c == three ? ea - eb : -ea;
    vec::ExpExpm1<V, I>(third, e, mm);
    vec::Store(eu + i, eb);
    vec::Store(e3 + i, e);
    vec::Store(m3 + i, mm);
  }
}

// Weibull and log-normal laws, in blocks of rows: the linear predictor of a block is built column
// by column (contiguous, vectorisable), then each row's contribution and its partial derivatives
// (l_e, l_ee, l_es) are computed in row order (the log-likelihood is summed row by row, its
// logarithms of tail probabilities through the chunk's LogSum, one log per chunk), and the
// block's sums over the design columns, sum l_e x_j, sum l_es x_j and sum l_ee x_j x_c (packed
// upper triangle), are dot products down contiguous columns (BlockDot).
template <bool D, class V, class I>
VELKOR_ALWAYS_INLINE void EvalScaleLawBody(const double* y, const double* cens, const double* upper,
                                           const double* x, const double* w, std::size_t n,
                                           std::size_t ldx, int p, const double* theta, int dist,
                                           double& ll, Accum* acc) {
  constexpr std::size_t kBlock = 256;
  const double s = theta[p + 1];
  const double logS = std::log(s);
  const double is = 1.0 / s;
  double eta[kBlock], le[kBlock], lee[kBlock], les[kBlock], tmp[kBlock];
  double z[kBlock], zu[kBlock], code[kBlock], ez[kBlock], eu[kBlock], e3[kBlock], m3[kBlock];
  const BlockPre pre{z, zu, ez, eu, e3, m3};
  const std::size_t P = static_cast<std::size_t>(p);
  LogSum plus, minus;  // logarithms added and (log-normal left term) subtracted
  for (std::size_t i0 = 0; i0 < n; i0 += kBlock) {
    const std::size_t m = std::min(kBlock, n - i0);
    for (std::size_t i = 0; i < m; ++i) eta[i] = theta[p];
    for (std::size_t j = 0; j < P; ++j) {
      const double* xj = x + j * ldx + i0;
      const double bj = theta[j];
      for (std::size_t i = 0; i < m; ++i) eta[i] += xj[i] * bj;
    }
    // standardised residuals (is = 1/sigma: a product instead of a division per row); the
    // block is padded to a multiple of 4 for the vector pass
    const std::size_t m4 = (m + 3) & ~std::size_t{3};
    bool second = false;  // a left- or interval-censored row in the block
    for (std::size_t i = 0; i < m; ++i) {
      z[i] = (y[i0 + i] - eta[i]) * is;
      zu[i] = (upper[i0 + i] - eta[i]) * is;
      code[i] = cens[i0 + i];
      second |= code[i] == 2.0 || code[i] == 3.0;
    }
    for (std::size_t i = m; i < m4; ++i) z[i] = zu[i] = code[i] = 0.0;
    if (dist == 2) WeibullExpsBody<V, I>(z, zu, code, m4, second, ez, eu, e3, m3);
    for (std::size_t i = 0; i < m; ++i) {
      const std::size_t r = i0 + i;
      const double v = w ? w[r] : 1.0;
      Local d;
      if (ScaleLawTerm<D>(dist, code[i], y[r], pre, i, v, logS, is, ll, plus, minus, d)) {
        if constexpr (D) {
          le[i] = d.le;
          lee[i] = d.lee;
          les[i] = d.les;
          acc->gs += d.ls;
          acc->hss += d.lss;
        }
      } else if constexpr (D) {
        le[i] = lee[i] = les[i] = 0.0;
      }
    }
    if constexpr (D) {
      // packed column-major upper triangle: (j, c) with j <= c at c (c + 1) / 2 + j
      for (std::size_t c = 0; c < P; ++c) {
        const double* xc = x + c * ldx + i0;
        for (std::size_t i = 0; i < m; ++i) tmp[i] = lee[i] * xc[i];
        acc->g[c] += BlockDot(le, xc, m);
        acc->hbs[c] += BlockDot(les, xc, m);
        const std::size_t base = c * (c + 1) / 2;
        for (std::size_t j = 0; j <= c; ++j)
          acc->hbb[base + j] += BlockDot(tmp, x + j * ldx + i0, m);
        acc->hbb[P * (P + 1) / 2 + c] += BlockSum(tmp, m);  // with the intercept column
      }
      acc->g[P] += BlockSum(le, m);
      acc->hbs[P] += BlockSum(les, m);
      acc->hbb[P * (P + 1) / 2 + P] += BlockSum(lee, m);
    }
  }
  ll += plus.Value() - minus.Value();
}

// The pass is compiled twice: for AVX2 (the vector exponentials on four lanes, the design sums on
// four-lane registers) and for the x86-64 baseline (two SSE2 lanes). Every lane performs the same
// operations in the same order and neither build contracts a multiply and an add, so both give
// the same bits; the choice is made once from the processor. Not on Windows, where GCC does not
// align the stack for spilled 32-byte vectors.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(_WIN32)
#define VELKOR_PARAM_AVX2 1
template <bool D>
__attribute__((target("avx2"), flatten)) void EvalScaleLawAvx2(
    const double* y, const double* cens, const double* upper, const double* x, const double* w,
    std::size_t n, std::size_t ldx, int p, const double* theta, int dist, double& ll, Accum* acc) {
  EvalScaleLawBody<D, vec::V4, vec::I4>(y, cens, upper, x, w, n, ldx, p, theta, dist, ll, acc);
}
#endif

template <bool D>
void EvalScaleLaw(const double* y, const double* cens, const double* upper, const double* x,
                  const double* w, std::size_t n, std::size_t ldx, int p, const double* theta,
                  int dist, double& ll, Accum* acc) {
#ifdef VELKOR_PARAM_AVX2
  if (UseAvx2Pass()) {
    EvalScaleLawAvx2<D>(y, cens, upper, x, w, n, ldx, p, theta, dist, ll, acc);
    return;
  }
#endif
  EvalScaleLawBody<D, vec::V2, vec::I2>(y, cens, upper, x, w, n, ldx, p, theta, dist, ll, acc);
}

// The rows are cut into chunks of a fixed size; each chunk is summed on its own (in parallel
// through OpenMP) and the chunk sums are added in chunk order, so the result does not depend on
// the number of threads.
// Chunks of 4096 rows (about 0.1 ms of work each), handed out dynamically so that a thread
// slowed by other work on the machine does not hold up the pass. Threads start only from 32
// chunks (n >= 131072): below that a pass lasts a few milliseconds at most, and on a loaded
// machine waking and waiting for a second thread costs more than it saves.
constexpr std::size_t kChunk = 4096;
constexpr std::size_t kMinChunksForThreads = 32;

template <bool D>
void EvalScaleLawChunked(const double* y, const double* cens, const double* upper, const double* x,
                         const double* w, std::size_t n, std::size_t ldx, int p,
                         const double* theta, int dist, double& ll, Accum* acc) {
  const std::size_t nChunks = (n + kChunk - 1) / kChunk;
  if (nChunks <= 1) {
    EvalScaleLaw<D>(y, cens, upper, x, w, n, ldx, p, theta, dist, ll, acc);
    return;
  }
  std::vector<double> lls(nChunks, 0.0);
  std::vector<Accum> parts;
  if constexpr (D) parts.assign(nChunks, Accum(p + 1));
  const long long nc = static_cast<long long>(nChunks);
#pragma omp parallel for schedule(dynamic, 1) if (nChunks >= kMinChunksForThreads)
  for (long long c = 0; c < nc; ++c) {
    const std::size_t c0 = static_cast<std::size_t>(c) * kChunk;
    const std::size_t len = std::min(kChunk, n - c0);
    double l = 0.0;
    EvalScaleLaw<D>(y + c0, cens + c0, upper + c0, x ? x + c0 : nullptr, w ? w + c0 : nullptr, len,
                    ldx, p, theta, dist, l, D ? &parts[static_cast<std::size_t>(c)] : nullptr);
    lls[static_cast<std::size_t>(c)] = l;
  }
  for (std::size_t c = 0; c < nChunks; ++c) {
    ll += lls[c];
    if constexpr (D) acc->Add(parts[c]);
  }
}

}  // namespace

bool& UseAvx2Pass() {
#if defined(__x86_64__) && defined(__GNUC__) && !defined(_WIN32)
  static bool use = __builtin_cpu_supports("avx2");
#else
  static bool use = false;
#endif
  return use;
}

void EvalParam(const double* y, const double* cens, const double* upper, const double* x,
               const double* w, std::size_t n, std::size_t ldx, int p, int k, const double* theta,
               int dist, double& loglik, double* grad, double* hess) {
  loglik = 0.0;
  const int np = p + k;
  const bool derivs = grad != nullptr && hess != nullptr;
  if (derivs) {
    std::fill(grad, grad + np, 0.0);
    std::fill(hess, hess + static_cast<std::size_t>(np) * np, 0.0);
  }
  if (dist < 1 || dist > 3 || k != LawParams(dist) || p < 0) return;
  if (!derivs) {
    if (dist == 1)
      EvalExponential<false>(y, cens, upper, x, w, n, ldx, p, theta, loglik, nullptr);
    else
      EvalScaleLawChunked<false>(y, cens, upper, x, w, n, ldx, p, theta, dist, loglik, nullptr);
    return;
  }
  Accum acc(p + 1);
  if (dist == 1)
    EvalExponential<true>(y, cens, upper, x, w, n, ldx, p, theta, loglik, &acc);
  else
    EvalScaleLawChunked<true>(y, cens, upper, x, w, n, ldx, p, theta, dist, loglik, &acc);
  const std::size_t N = static_cast<std::size_t>(np);
  std::size_t t = 0;
  for (int m = 0; m <= p; ++m) {
    grad[m] = acc.g[static_cast<std::size_t>(m)];
    for (int j = 0; j <= m; ++j) {
      const double h = acc.hbb[t++];
      hess[static_cast<std::size_t>(m) * N + static_cast<std::size_t>(j)] = h;
      hess[static_cast<std::size_t>(j) * N + static_cast<std::size_t>(m)] = h;
    }
  }
  if (k == 2) {
    const std::size_t sI = static_cast<std::size_t>(p + 1);
    grad[sI] = acc.gs;
    for (std::size_t j = 0; j < sI; ++j) {
      hess[sI * N + j] = acc.hbs[j];
      hess[j * N + sI] = acc.hbs[j];
    }
    hess[sI * N + sI] = acc.hss;
  }
}

}  // namespace velkor::param

namespace {

// Container form: clips n to the data actually present and copies the parameters (reading the
// spare element where the parameter vector is short, as every container read does).
void EvalContainers(matrix<double>* time, int n, int p, int k, matrix<double>* cens,
                    matrix<double>* bounds, matrix<double>* design, matrix<double>* params,
                    matrix<double>* weights, int dist, double& loglik, matrix<double>* grad,
                    matrix<double>* hess) {
  loglik = 0.0;
  const int np = std::max(p, 0) + std::max(k, 0);
  std::vector<double> g, h;
  const bool derivs = grad != nullptr || hess != nullptr;
  if (derivs) {
    g.assign(static_cast<std::size_t>(np), 0.0);
    h.assign(static_cast<std::size_t>(np) * np, 0.0);
  }
  std::size_t nn = n > 0 ? static_cast<std::size_t>(n) : 0;
  if (!time || !cens || p < 0 || k < 1 || k > 2) nn = 0;
  if (time) nn = std::min<std::size_t>(nn, time->rows);
  if (cens) nn = std::min<std::size_t>(nn, cens->rows);
  if (weights) nn = std::min<std::size_t>(nn, weights->rows);
  if (p > 0)
    nn = design && design->cols >= static_cast<std::uint32_t>(p)
             ? std::min<std::size_t>(nn, design->rows)
             : 0;
  // the upper bounds: column 2 of the bound matrix, when there is one
  std::vector<double> upperCopy;
  const double* upper = nullptr;
  if (bounds && bounds->cols >= 2 && bounds->rows >= nn) {
    upper = bounds->data + bounds->rows;
  } else {
    upperCopy.assign(nn, bounds ? bounds->spare : -1.0);
    upper = upperCopy.data();
  }
  std::vector<double> theta(static_cast<std::size_t>(np), 0.0);
  for (int j = 0; j < np; ++j)
    theta[static_cast<std::size_t>(j)] = params ? params->at0(static_cast<std::uint64_t>(j)) : 0.0;
  if (np > 0 && k >= 1 && k <= 2) {
    velkor::param::EvalParam(time ? time->data : nullptr, cens ? cens->data : nullptr, upper,
                             design ? design->data : nullptr, weights ? weights->data : nullptr, nn,
                             design ? design->rows : 0, std::max(p, 0), k, theta.data(), dist,
                             loglik, derivs ? g.data() : nullptr, derivs ? h.data() : nullptr);
  }
  if (grad) {
    for (int j = 0; j < np; ++j) grad->set(j + 1, g[static_cast<std::size_t>(j)]);
  }
  if (hess) {
    for (int c = 0; c < np; ++c)
      for (int r = 0; r < np; ++r)
        hess->set(r + 1, c + 1, h[static_cast<std::size_t>(c) * np + static_cast<std::size_t>(r)]);
  }
}

}  // namespace

void ComputeLogLikeParam(matrix<double>* time, int n, int p, int k, matrix<double>* cens,
                         matrix<double>* bounds, matrix<double>* design, matrix<double>* params,
                         matrix<double>* weights, int dist, double& loglik) {
  EvalContainers(time, n, p, k, cens, bounds, design, params, weights, dist, loglik, nullptr,
                 nullptr);
}

void ComputeDerivativesParam(matrix<double>* time, int n, int p, int k, matrix<double>* cens,
                             matrix<double>* bounds, matrix<double>* design, matrix<double>* params,
                             matrix<double>* weights, int dist, matrix<double>* grad,
                             matrix<double>* hess) {
  double ll = 0.0;
  EvalContainers(time, n, p, k, cens, bounds, design, params, weights, dist, ll, grad, hess);
}

void ComputeLogLikeDerivativesParam(matrix<double>* time, int n, int p, int k, matrix<double>* cens,
                                    matrix<double>* bounds, matrix<double>* design,
                                    matrix<double>* params, matrix<double>* weights, int dist,
                                    double& loglik, matrix<double>* grad, matrix<double>* hess) {
  EvalContainers(time, n, p, k, cens, bounds, design, params, weights, dist, loglik, grad, hess);
}
