// Basic numeric helpers used across the analyses.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>

inline constexpr double Pi() noexcept {
  return 3.141592653589793238462643383279502884;
}

template <class T>
constexpr T Min(T a, T b) noexcept {
  return b < a ? b : a;
}
template <class T>
constexpr T Max(T a, T b) noexcept {
  return a < b ? b : a;
}

// Square root (the helper the survival and regression formulas call `sqr`). A negative argument
// gives NaN, as std::sqrt does.
inline double sqr(double x) noexcept {
  return std::sqrt(x);
}

// Fortran-style SIGN: |a| carrying the sign of b (b = 0 counts as positive).
inline double FSign(double a, double b) noexcept {
  return b >= 0.0 ? std::fabs(a) : -std::fabs(a);
}

// Sign of x: -1, 0 or +1 (0 for NaN).
inline double FSgn(double x) noexcept {
  return x > 0.0 ? 1.0 : (x < 0.0 ? -1.0 : 0.0);
}

inline constexpr bool IsEven(long long n) noexcept {
  return n % 2 == 0;
}

// True when x is a finite whole number representable as a 32-bit integer.
inline bool IsLong(double x) noexcept {
  return std::isfinite(x) && x == std::floor(x) && x >= -2147483648.0 && x <= 2147483647.0;
}

// x rounded to `decimals` digits after the point, as text ("3.14"); NaN and infinities give
// "NaN", "Inf", "-Inf".
std::string DecimalFormat(double x, int decimals);

// Replace every occurrence of `what` in `text` by `with`.
std::u16string cReplace(const std::u16string& text, const std::u16string& what,
                        const std::u16string& with);
