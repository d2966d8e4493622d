// Exponentials of several doubles at a time for the likelihood passes, in GCC/Clang vector
// extensions: the same operations on every lane, so that a kernel on four lanes compiled for AVX2
// and the same kernel on two SSE2 lanes for the x86-64 baseline give identical bits.
//
// exp(x) = 2^n exp(r), n = round(x / ln 2), r = x - n ln 2 (Cody-Waite, ln 2 in two parts, |r| <=
// 0.347), exp(r) - 1 = r + r^2 P(r) with P the Taylor polynomial to degree 13 (truncation below
// 5e-18). Accuracy against a long-double reference over [-745, 709]: within 1 ulp (the C
// library's exp is within 0.52 ulp); exp(x) is 0 below -746 and +inf above 709.8; NaN gives NaN.
// expm1(x) is r + r^2 P(r) where n = 0 (|x| < 0.347, within 1 ulp) and exp(x) - 1 elsewhere
// (within 4 ulp: beyond |x| = 0.347, 1 - e^x and e^x - 1 exceed 0.29).
#pragma once

#include <cstddef>
#include <cstring>

#if defined(__GNUC__) || defined(__clang__)
#define VELKOR_ALWAYS_INLINE inline __attribute__((always_inline))
#else
#define VELKOR_ALWAYS_INLINE inline
#endif

namespace velkor::param::vec {

// Four lanes (one AVX2 register) and two lanes (one SSE2 register).
typedef double V4 __attribute__((vector_size(32)));
typedef long long I4 __attribute__((vector_size(32)));
typedef double V2 __attribute__((vector_size(16)));
typedef long long I2 __attribute__((vector_size(16)));

template <class V>
VELKOR_ALWAYS_INLINE void Load(V& v, const double* p) {
  std::memcpy(&v, p, sizeof(V));
}
template <class V>
VELKOR_ALWAYS_INLINE void Store(double* p, const V& v) {
  std::memcpy(p, &v, sizeof(V));
}

// e = exp(x) and m = expm1(x), lane by lane (V a vector of doubles, I the integers of its size).
template <class V, class I>
VELKOR_ALWAYS_INLINE void ExpExpm1(const V& xin, V& e, V& m) {
  constexpr double kLog2e = 1.4426950408889634074;
  constexpr double kShift = 0x1.8p52;  // adding and subtracting it rounds to an integer
  constexpr double kLn2Hi = 0x1.62e42fee00000p-1, kLn2Lo = 0x1.a39ef35793c76p-33;
  constexpr double kBias = 1023.0 + 0x1p52;  // 2^k from the low bits of k + kBias
  const V zero = {};
  const V lo = zero - 746.0, hi = zero + 709.8;
  V x = xin < lo ? lo : xin;
  x = x > hi ? hi : x;
  const V n = (x * kLog2e + kShift) - kShift;
  const V r = (x - n * kLn2Hi) - n * kLn2Lo;
  // P(r) = sum of r^k / (k + 2)! for k = 0..11, by Estrin's scheme (a quarter of the dependent
  // steps of Horner's rule)
  const V r2 = r * r, r4 = r2 * r2, r8 = r4 * r4;
  const V b0 = r * (1.0 / 6.0) + 0.5, b1 = r * (1.0 / 120.0) + 1.0 / 24.0;
  const V b2 = r * (1.0 / 5040.0) + 1.0 / 720.0, b3 = r * (1.0 / 362880.0) + 1.0 / 40320.0;
  const V b4 = r * (1.0 / 39916800.0) + 1.0 / 3628800.0;
  const V b5 = r * (1.0 / 6227020800.0) + 1.0 / 479001600.0;
  const V c0 = b1 * r2 + b0, c1 = b3 * r2 + b2, c2 = b5 * r2 + b4;
  const V p = (c1 * r4 + c0) + c2 * r8;
  const V q = r + r2 * p;  // exp(r) - 1
  // 2^n as two factors, each a normal number for n in [-1076, 1024]
  const V n1 = (n * 0.5 + kShift) - kShift, n2 = n - n1;
  const V s1 = (V)((I)(n1 + kBias) << 52), s2 = (V)((I)(n2 + kBias) << 52);
  e = ((1.0 + q) * s1) * s2;
  m = n == zero ? q : e - 1.0;
  // NaN: the comparisons above are false, so x stays NaN and so do e and m
}

}  // namespace velkor::param::vec
