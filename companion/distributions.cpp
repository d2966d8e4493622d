// Distribution functions on Boost.Math special functions, evaluated in long double.
// See distributions.h for the meaning, domain and edge values of each function.

#include "companion/distributions.h"

#include <cmath>
#include <limits>

#include <boost/math/constants/constants.hpp>
#include <boost/math/distributions/students_t.hpp>
#include "companion/boost_policy.h"
#include <boost/math/special_functions/erf.hpp>
#include <boost/math/special_functions/gamma.hpp>

namespace {

using velkor::companion::QuietPolicy;

// All arithmetic around the special functions is done in this type (see the header on why).
using Real = long double;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

const Real kInvRootTwo = boost::math::constants::one_div_root_two<Real>();
const Real kRootTwo = boost::math::constants::root_two<Real>();
const Real kInvRootTwoPi = boost::math::constants::one_div_root_two_pi<Real>();
const Real kRootTwoPi = boost::math::constants::root_two_pi<Real>();
const Real kPiSquared = boost::math::constants::pi_sqr<Real>();

// Runs a Boost evaluation; the policy above means it does not throw, but a std::bad_alloc or a
// future Boost change must still not cross a noexcept boundary, so anything thrown becomes NaN.
template <class F>
double Guarded(F&& evaluate) noexcept {
  try {
    return static_cast<double>(evaluate());
  } catch (...) {
    return kNaN;
  }
}

// A probability in [0, 1] (false for NaN).
bool IsProbability(double p) {
  return p >= 0.0 && p <= 1.0;
}

// Valid degrees of freedom: finite and positive (false for NaN).
bool IsFiniteDf(double df) {
  return df > 0.0 && df < kInf;
}

using StudentT = boost::math::students_t_distribution<Real, QuietPolicy>;

// Jacobi theta form of the Kolmogorov distribution, sqrt(2 pi)/x sum exp(-(2k-1)^2 pi^2/(8 x^2)),
// for 0 < x. Terms are positive and term k+1 is term k times exp(-k pi^2 / x^2); summation stops
// when a term no longer changes the long double sum (at most five terms for x < 1).
Real KolmogorovTheta(Real x) {
  const Real w = kPiSquared / (8 * x * x);
  Real sum = 0;
  for (int k = 1; k <= 1000; ++k) {
    const Real odd = static_cast<Real>(2 * k - 1);
    const Real term = std::exp(-odd * odd * w);
    const Real next = sum + term;
    if (next == sum) break;
    sum = next;
  }
  return kRootTwoPi / x * sum;
}

// Alternating form of the upper tail, 2 sum_{k>=1} (-1)^(k-1) exp(-2 k^2 x^2), for x >= 1, where
// the terms fall faster than geometrically (ratio <= exp(-6)) so the first term dominates.
Real KolmogorovAlternatingUpper(Real x) {
  const Real twoXSquared = 2 * x * x;
  Real sum = 0;
  for (int k = 1; k <= 1000; ++k) {
    const Real kk = static_cast<Real>(k);
    const Real term = std::exp(-kk * kk * twoXSquared);
    const Real next = (k % 2 == 1) ? sum + term : sum - term;
    if (next == sum) break;
    sum = next;
  }
  return 2 * sum;
}

// Below this x the theta form is used, at and above it the alternating form (both accurate there:
// K(1) = 0.73 and 1 - K(1) = 0.27).
constexpr double kKolmogorovSwitch = 1.0;

}  // namespace

double CDFNormalStd(double x) noexcept {
  if (std::isnan(x)) return kNaN;
  return Guarded(
      [x] { return boost::math::erfc(-static_cast<Real>(x) * kInvRootTwo, QuietPolicy()) / 2; });
}

double CDFNormalStdUpper(double x) noexcept {
  if (std::isnan(x)) return kNaN;
  return CDFNormalStd(-x);
}

double PDFNormalStd(double x) noexcept {
  if (std::isnan(x)) return kNaN;
  const Real xl = x;
  // x * x is exact enough in long double (64-bit significand) for exp(-x^2/2) to keep ~1e-17.
  return static_cast<double>(std::exp(-xl * xl / 2) * kInvRootTwoPi);
}

double InvCDFNormalStd(double p) noexcept {
  if (!IsProbability(p)) return kNaN;
  if (p == 0.0) return -kInf;
  if (p == 1.0) return kInf;
  return Guarded([p] {
    // erfc_inv of 2p for the lower half and of 2(1 - p) (1 - p exact for p >= 0.5) for the upper.
    if (p < 0.5) return -kRootTwo * boost::math::erfc_inv(2 * static_cast<Real>(p), QuietPolicy());
    return kRootTwo * boost::math::erfc_inv(2 * (1 - static_cast<Real>(p)), QuietPolicy());
  });
}

double CDFStudent(double t, double df) noexcept {
  if (std::isnan(t) || !(df > 0.0)) return kNaN;
  if (std::isinf(df)) return CDFNormalStd(t);
  if (std::isinf(t)) return t < 0 ? 0.0 : 1.0;
  return Guarded([t, df] {
    const StudentT dist(static_cast<Real>(df));
    // The lower tail is computed directly for t < 0 and as the complement of -t for t > 0, so the
    // small side of either tail never comes from 1 - F.
    if (t <= 0) return boost::math::cdf(dist, static_cast<Real>(t));
    return 1 - boost::math::cdf(dist, -static_cast<Real>(t));
  });
}

double InvCDFStudent(double p, double df) noexcept {
  if (!IsProbability(p) || !(df > 0.0)) return kNaN;
  if (std::isinf(df)) return InvCDFNormalStd(p);
  if (p == 0.0) return -kInf;
  if (p == 1.0) return kInf;
  if (p == 0.5) return 0.0;
  return Guarded([p, df] {
    const StudentT dist(static_cast<Real>(df));
    if (p < 0.5) return boost::math::quantile(dist, static_cast<Real>(p));
    // Upper half by symmetry from the lower tail 1 - p (exact in double for p >= 0.5).
    return -boost::math::quantile(dist, 1 - static_cast<Real>(p));
  });
}

double pValChiSq(double x, double df) noexcept {
  if (std::isnan(x) || !IsFiniteDf(df)) return kNaN;
  if (x <= 0.0) return 1.0;
  if (std::isinf(x)) return 0.0;
  return Guarded([x, df] {
    return boost::math::gamma_q(static_cast<Real>(df) / 2, static_cast<Real>(x) / 2, QuietPolicy());
  });
}

double CDFChiSq(double x, double df) noexcept {
  if (std::isnan(x) || !IsFiniteDf(df)) return kNaN;
  if (x <= 0.0) return 0.0;
  if (std::isinf(x)) return 1.0;
  return Guarded([x, df] {
    return boost::math::gamma_p(static_cast<Real>(df) / 2, static_cast<Real>(x) / 2, QuietPolicy());
  });
}

double InvCDFChiSq(double p, double df) noexcept {
  if (!IsProbability(p) || !IsFiniteDf(df)) return kNaN;
  if (p == 0.0) return 0.0;
  if (p == 1.0) return kInf;
  return Guarded([p, df] {
    const Real a = static_cast<Real>(df) / 2;
    if (p <= 0.5) return 2 * boost::math::gamma_p_inv(a, static_cast<Real>(p), QuietPolicy());
    return 2 * boost::math::gamma_q_inv(a, 1 - static_cast<Real>(p), QuietPolicy());
  });
}

double InvCDFChiSqUpper(double q, double df) noexcept {
  if (!IsProbability(q) || !IsFiniteDf(df)) return kNaN;
  if (q == 0.0) return kInf;
  if (q == 1.0) return 0.0;
  return Guarded([q, df] {
    const Real a = static_cast<Real>(df) / 2;
    if (q <= 0.5) return 2 * boost::math::gamma_q_inv(a, static_cast<Real>(q), QuietPolicy());
    return 2 * boost::math::gamma_p_inv(a, 1 - static_cast<Real>(q), QuietPolicy());
  });
}

double CDFKolmogorov(double x) noexcept {
  if (std::isnan(x)) return kNaN;
  if (x <= 0.0) return 0.0;
  if (std::isinf(x)) return 1.0;
  if (x < kKolmogorovSwitch) return static_cast<double>(KolmogorovTheta(x));
  return static_cast<double>(1 - KolmogorovAlternatingUpper(x));
}

double CDFKolmogorovUpper(double x) noexcept {
  if (std::isnan(x)) return kNaN;
  if (x <= 0.0) return 1.0;
  if (std::isinf(x)) return 0.0;
  if (x < kKolmogorovSwitch) return static_cast<double>(1 - KolmogorovTheta(x));
  return static_cast<double>(KolmogorovAlternatingUpper(x));
}
