// Standard normal tail terms for likelihood passes: the upper tail Q(z) = 1 - Phi(z), its
// logarithm, the density phi(z) and the Mills ratio phi(z)/Q(z), from one shared computation.
//
// The scaled tail R(z) = Q(z) exp(z^2/2) = erfcx(z/sqrt 2)/2 comes from W. J. Cody's rational
// Chebyshev approximations of erf and erfcx ("Rational Chebyshev approximations for the error
// function", Math. Comp. 23 (1969) 631-637; the coefficients of his CALERF routine). Then
//   Q = e R with e = exp(-z^2/2),  log Q = -z^2/2 + log R,  phi/Q = 1/(sqrt(2 pi) R),
// so that, above z = 0.6629 (x = z/sqrt 2 > 0.46875), the log tail and the Mills ratio need
// neither exp nor erfc, and the tail itself one exp. Near 0 the tail is 1/2 - erf(x)/2 and below
// -0.6629 it is 1 - e R(-z); both are far from 0, where log Q and phi/Q are formed directly.
//
// Accuracy (tests/companion/test_normal_tail.cpp against 50-digit references over z in [-40, 40]):
// log Q and phi/Q within a few units in the last place (log Q finite far beyond the underflow of
// Q itself, where 1 - Phi computed by erfc gives log 0); Q and phi within about z^2/2 ulps, the
// rounding of z^2/2 passed to exp (1e-13 relative at z = 38).
//
// Everything is inline so that a likelihood pass keeps the terms in registers; a call costs one
// rational function, at most one exp and, for the log tail, one log.
#pragma once

#include <cmath>

namespace velkor {

struct NormalTailTerms {
  double q = 0;      // Q(z) = 1 - Phi(z)
  double log_q = 0;  // log Q(z)
  double pdf = 0;    // phi(z)
  double mills = 0;  // phi(z) / Q(z) (0 when Q and phi both underflow: z = +inf)
};

namespace normal_tail_detail {

constexpr double kInvSqrt2 = 0.70710678118654752440;
constexpr double kInvSqrt2Pi = 0.39894228040143267794;
constexpr double kInvSqrtPi = 0.56418958354775628695;
constexpr double kSmall = 0.46875;  // Cody's first interval, in x = z / sqrt 2

// erf(x) for |x| <= 0.46875 (Cody's first interval).
inline double ErfSmall(double x) {
  constexpr double a0 = 3.16112374387056560e00, a1 = 1.13864154151050156e02,
                   a2 = 3.77485237685302021e02, a3 = 3.20937758913846947e03,
                   a4 = 1.85777706184603153e-1;
  constexpr double b0 = 2.36012909523441209e01, b1 = 2.44024637934444173e02,
                   b2 = 1.28261652607737228e03, b3 = 2.84423683343917062e03;
  const double y = x * x;
  const double num = (((a4 * y + a0) * y + a1) * y + a2) * y + a3;
  const double den = (((y + b0) * y + b1) * y + b2) * y + b3;
  return x * num / den;
}

// erfcx(x) = exp(x^2) erfc(x) for x > 0.46875 (Cody's second and third intervals).
inline double ErfcxPositive(double x) {
  if (x <= 4.0) {
    constexpr double c0 = 5.64188496988670089e-1, c1 = 8.88314979438837594e00,
                     c2 = 6.61191906371416295e01, c3 = 2.98635138197400131e02,
                     c4 = 8.81952221241769090e02, c5 = 1.71204761263407058e03,
                     c6 = 2.05107837782607147e03, c7 = 1.23033935479799725e03,
                     c8 = 2.15311535474403846e-8;
    constexpr double d0 = 1.57449261107098347e01, d1 = 1.17693950891312499e02,
                     d2 = 5.37181101862009858e02, d3 = 1.62138957456669019e03,
                     d4 = 3.29079923573345963e03, d5 = 4.36261909014324716e03,
                     d6 = 3.43936767414372164e03, d7 = 1.23033935480374942e03;
    // Estrin's scheme: the same polynomials in about half the dependent multiply-add steps of
    // Horner's rule (the pass is bound by that latency, not by the number of operations)
    const double x2 = x * x, x4 = x2 * x2, x8 = x4 * x4;
    const double num =
        ((c7 + c6 * x) + (c5 + c4 * x) * x2) + ((c3 + c2 * x) + (c1 + c0 * x) * x2) * x4 + c8 * x8;
    const double den =
        ((d7 + d6 * x) + (d5 + d4 * x) * x2) + ((d3 + d2 * x) + (d1 + d0 * x) * x2) * x4 + x8;
    return num / den;
  }
  constexpr double p0 = 3.05326634961232344e-1, p1 = 3.60344899949804439e-1,
                   p2 = 1.25781726111229246e-1, p3 = 1.60837851487422766e-2,
                   p4 = 6.58749161529837803e-4, p5 = 1.63153871373020978e-2;
  constexpr double q0 = 2.56852019228982242e00, q1 = 1.87295284992346725e00,
                   q2 = 5.27905102951428412e-1, q3 = 6.05183413124413191e-2,
                   q4 = 2.33520497626869185e-3;
  const double y = 1.0 / (x * x);  // 0 for x = inf: erfcx -> 0 through the division by x
  const double num = ((((p5 * y + p0) * y + p1) * y + p2) * y + p3) * y + p4;
  const double den = ((((y + q0) * y + q1) * y + q2) * y + q3) * y + q4;
  return (kInvSqrtPi - y * num / den) / x;
}

}  // namespace normal_tail_detail

// Scaled upper tail R(z) = Q(z) exp(z^2/2) for z > 0.6629 (z / sqrt 2 > 0.46875).
inline double NormalScaledTail(double z) {
  return 0.5 * normal_tail_detail::ErfcxPositive(z * normal_tail_detail::kInvSqrt2);
}

// True when NormalScaledTail applies at z (false for NaN).
inline bool NormalScaledTailApplies(double z) {
  return z * normal_tail_detail::kInvSqrt2 > normal_tail_detail::kSmall;
}

// All four terms at z. With log_q = false the logarithm is skipped (log_q left 0).
template <bool kLog = true>
inline NormalTailTerms NormalTail(double z) {
  using namespace normal_tail_detail;
  NormalTailTerms t;
  const double x = z * kInvSqrt2;
  const double h = 0.5 * z * z;
  const double e = std::exp(-h);
  t.pdf = kInvSqrt2Pi * e;
  if (x > kSmall) {
    const double r = 0.5 * ErfcxPositive(x);
    t.q = e * r;
    if constexpr (kLog) t.log_q = -h + std::log(r);
    t.mills = r > 0.0 ? kInvSqrt2Pi / r : 0.0;  // r = 0 only at z = +inf
    return t;
  }
  if (x < -kSmall) {
    const double lower = e * (0.5 * ErfcxPositive(-x));  // Phi(z), below 0.26
    t.q = 1.0 - lower;
    if constexpr (kLog) t.log_q = std::log1p(-lower);  // relative accuracy as Phi(z) -> 0
  } else {
    t.q = 0.5 - 0.5 * ErfSmall(x);
    if constexpr (kLog) t.log_q = std::log(t.q);
  }
  t.mills = t.pdf / t.q;
  return t;
}

// log Q(z) and the Mills ratio phi(z)/Q(z) alone: above z = 0.6629 one rational function and one
// log, no exp.
inline void NormalLogTail(double z, double& log_q, double& mills) {
  using namespace normal_tail_detail;
  const double x = z * kInvSqrt2;
  if (x > kSmall) {
    const double r = 0.5 * ErfcxPositive(x);
    log_q = -0.5 * z * z + std::log(r);
    mills = r > 0.0 ? kInvSqrt2Pi / r : 0.0;
    return;
  }
  const NormalTailTerms t = NormalTail<true>(z);
  log_q = t.log_q;
  mills = t.mills;
}

// log Q(z) as add + log(arg), with the Mills ratio, for callers that sum many logarithms
// (arg > 0 in every case but z = +inf, arg = 0; NaN for NaN): above z = 0.6629 add = -z^2/2 and
// arg = R(z) (no exp); elsewhere add = 0 and arg = Q(z), whose logarithm is then exact to an
// absolute 1e-16 (log Q near 0 as Q -> 1 keeps only that absolute accuracy).
inline void NormalLogTailParts(double z, double& add, double& arg, double& mills) {
  using namespace normal_tail_detail;
  const double x = z * kInvSqrt2;
  if (x > kSmall) {
    const double r = 0.5 * ErfcxPositive(x);
    add = -0.5 * z * z;
    arg = r;
    mills = r > 0.0 ? kInvSqrt2Pi / r : 0.0;
    return;
  }
  const NormalTailTerms t = NormalTail<false>(z);
  add = 0.0;
  arg = t.q;
  mills = t.mills;
}

}  // namespace velkor
