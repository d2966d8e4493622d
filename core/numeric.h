// Shared numeric guards and special values, named once for every worker.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>

namespace velkor {

// Missing-value marker: the double just above the most negative finite double
// (-1.79769313486231e+308, bits FFEFFFFFFFFFFFE2). Output cells without a value hold it
// exactly; an input is missing when it is <= the marker (so -DBL_MAX and -inf count too).
inline constexpr double kMissing = std::bit_cast<double>(std::uint64_t{0xFFEFFFFFFFFFFFE2ULL});

// Unbounded upper limit (+1.79769313486231e+308, bits 7FEFFFFFFFFFFFE2).
inline constexpr double kUnbounded = std::bit_cast<double>(std::uint64_t{0x7FEFFFFFFFFFFFE2ULL});

// Zero rule: a quantity whose absolute value is not above the double machine epsilon counts
// as zero. Without it, divisions by sums that cancel to rounding noise blow up.
inline constexpr double kEpsilon = 2.220446049250313e-16;

// Exponent guard: terms exp(x) with x >= 700 are kept out of exponential sums
// (exp(700) ~ 1.0e304 is the last value an accumulation can hold without overflow).
inline constexpr double kExpGuard = 700.0;

// Overflow guard: exp(x) with x > 709 overflows a double; such limits become kUnbounded.
inline constexpr double kExpOverflow = 709.0;

inline constexpr bool IsMissing(double x) noexcept {
  return x <= kMissing;
}

}  // namespace velkor
