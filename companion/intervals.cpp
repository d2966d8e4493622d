// Confidence-interval helpers. See intervals.h for the formulas, their sources and edge rules.

#include "companion/intervals.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "companion/boost_policy.h"
#include <boost/math/special_functions/beta.hpp>

namespace {

using velkor::companion::QuietPolicy;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

void SetNaN(double& lo, double& hi) {
  lo = kNaN;
  hi = kNaN;
}

double Clip01(double v) {
  return std::clamp(v, 0.0, 1.0);
}

// A proportion in [0, 1] (false for NaN).
bool IsProportion(double p) {
  return p >= 0.0 && p <= 1.0;
}

bool IsSampleSize(double n) {
  return n > 0.0 && std::isfinite(n);
}

// Largest total the Clopper-Pearson inversion accepts. Up to here Boost's inverse incomplete beta
// in long double gives the limits to about 1e-13 relative within a fraction of a second; for x and
// n - x both near 1e17 it returns limits in the wrong order, and near 1e300 it does not return at
// all.
constexpr double kMaxClopperTotal = 1e15;

// Both Wilson limits are written as sums and quotients of positive terms, so each keeps its
// relative accuracy however small it is (1 - lower limit of the failures would lose it for a small
// upper limit, and Newcombe's lower formula loses it for a small lower limit).

// Lower limit for the corrected success count xl = x - cc out of n, rationalised:
// 2 xl^2 / n / (2 xl + z^2 + z sqrt(z^2 + 4 xl (n - xl) / n)). xl <= 0 means the corrected score
// equation holds down to pi = 0.
double WilsonLower(double z, double xl, double n) {
  if (xl <= 0.0) return 0.0;
  const double z2 = z * z;
  const double root = std::sqrt(z2 + 4.0 * xl * (n - xl) / n);
  return 2.0 * xl * xl / n / (2.0 * xl + z2 + z * root);
}

// Upper limit for the corrected success count xu = x + cc out of n, Newcombe's form:
// (2 xu + z^2 + z sqrt(z^2 + 4 xu (n - xu) / n)) / (2 (n + z^2)). xu >= n means the corrected
// score equation holds up to pi = 1.
double WilsonUpper(double z, double xu, double n) {
  if (xu >= n) return 1.0;
  const double z2 = z * z;
  const double root = std::sqrt(z2 + 4.0 * xu * (n - xu) / n);
  return (2.0 * xu + z2 + z * root) / (2.0 * (n + z2));
}

}  // namespace

void GetInfSupWald(double z, double p, double n, double& lo, double& hi) noexcept {
  if (std::isnan(z) || !IsProportion(p) || !IsSampleSize(n)) return SetNaN(lo, hi);
  if (std::isinf(z)) {  // an infinitely wide interval, also at p = 0 or 1
    lo = 0.0;
    hi = 1.0;
    return;
  }
  const double half = std::fabs(z) * std::sqrt(p * (1.0 - p) / n);
  lo = Clip01(p - half);
  hi = Clip01(p + half);
}

void GetInfSupWilson(double z, double p, double n, double cc, double& lo, double& hi) noexcept {
  if (std::isnan(z) || !IsProportion(p) || !IsSampleSize(n) || !(cc >= 0.0) || !std::isfinite(cc))
    return SetNaN(lo, hi);
  const double za = std::fabs(z);
  if (std::isinf(za)) {  // an infinitely wide interval
    lo = 0.0;
    hi = 1.0;
    return;
  }
  const double successes = n * p;
  lo = Clip01(WilsonLower(za, successes - cc, n));
  hi = Clip01(WilsonUpper(za, successes + cc, n));
}

void GetInfSupClopper(double x, double n, double alpha, double& lo, double& hi) noexcept {
  if (std::isnan(x) || !IsSampleSize(n) || n > kMaxClopperTotal || !(alpha > 0.0 && alpha < 1.0))
    return SetNaN(lo, hi);
  const long double xc = std::clamp(x, 0.0, n);
  const long double nl = n;
  const long double half = static_cast<long double>(alpha) / 2;
  try {
    // Lower limit: the alpha/2 quantile of Beta(x, n - x + 1).
    lo = xc <= 0
             ? 0.0
             : static_cast<double>(boost::math::ibeta_inv(xc, nl - xc + 1, half, QuietPolicy()));
    // Upper limit: the Beta(x + 1, n - x) quantile whose upper tail is alpha/2.
    hi = xc >= nl
             ? 1.0
             : static_cast<double>(boost::math::ibetac_inv(xc + 1, nl - xc, half, QuietPolicy()));
  } catch (...) {
    return SetNaN(lo, hi);
  }
  lo = Clip01(lo);
  hi = Clip01(hi);
}

void GetInfSupLog(double z, double value, double se, double& lo, double& hi) noexcept {
  if (std::isnan(z) || !(value > 0.0) || !(se >= 0.0)) return SetNaN(lo, hi);
  const double logValue = std::log(value);
  const double half = std::fabs(z) * se;
  if (std::isnan(half)) return SetNaN(lo, hi);  // inf * 0
  lo = std::exp(logValue - half);
  hi = std::exp(logValue + half);
}

void GetConfEllipse(double cx, double cy, double vxx, double vxy, double vyy, double alpha,
                    int nPoints, double* xs, double* ys) noexcept {
  if (nPoints <= 0 || xs == nullptr || ys == nullptr) return;
  const double det = vxx * vyy - vxy * vxy;
  const bool valid = std::isfinite(cx) && std::isfinite(cy) && std::isfinite(vxx) &&
                     std::isfinite(vxy) && std::isfinite(vyy) && std::isfinite(det) && vxx > 0.0 &&
                     det > 0.0 && alpha > 0.0 && alpha < 1.0;
  if (!valid) {
    std::fill(xs, xs + nPoints, kNaN);
    std::fill(ys, ys + nPoints, kNaN);
    return;
  }
  // chi-square with 2 degrees of freedom has P(X >= x) = exp(-x/2), so its upper alpha quantile
  // is -2 ln(alpha) exactly.
  const double r = std::sqrt(-2.0 * std::log(alpha));
  // Cholesky factor of the covariance.
  const double a = std::sqrt(vxx);
  const double b = vxy / a;
  const double d = std::sqrt(det / vxx);
  const double step = 2.0 * std::numbers::pi / nPoints;
  for (int k = 0; k < nPoints; ++k) {
    const double t = step * k;
    const double c = std::cos(t);
    const double s = std::sin(t);
    xs[k] = cx + r * a * c;
    ys[k] = cy + r * (b * c + d * s);
  }
}
