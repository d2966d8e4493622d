// Distribution functions used by the analyses: standard normal, Student's t, chi-square and the
// limiting Kolmogorov distribution.
//
// No function throws, and none has undefined behaviour for any double argument. A NaN argument
// gives NaN; an argument outside the function's domain gives NaN as stated per function. A
// quantile at p = 0 or p = 1 is the end of the support (+-inf or 0), never a finite stand-in.
//
// Values come from Boost.Math special functions evaluated in long double (80-bit on x86 with GCC,
// Clang and MinGW; where long double is 64-bit, as under MSVC, the far tails lose a few digits).
// The argument transforms that feed them (x / sqrt(2), x^2 / 2, t^2 / (df + t^2), ...) are done in
// long double too: in a far tail a rounding of the argument is amplified by the squared argument,
// and 1 ulp on x / sqrt(2) at x = -37 would cost 1e-13 of relative accuracy in Phi(x).
//
// Accuracy, measured against 50-digit mpmath values (tests/reference/companion/make_distributions.py) over
// far tails down to 1e-300, degrees of freedom 1 to 10,000 (integer and not) and quantile levels
// from 1e-300 to 1 - 2^-53: within one rounding (2.2e-16 relative) of the exact value for every
// function; the tests hold each function to a stated bound of a few ulps.
//
// Where 1 - F(x) would lose a small tail to cancellation, a complement function (...Upper)
// computes that tail directly; p-values should come from it.
//
// Cost: O(1) for the normal functions; the Student, chi-square and quantile functions iterate
// inside Boost (series, continued fractions, Halley steps) with bounded work; the Kolmogorov series
// stops after at most a handful of terms.

#pragma once

// ---------------------------------------------------------------------------------------------
// Standard normal Z ~ N(0, 1)
// ---------------------------------------------------------------------------------------------

// Phi(x) = P(Z <= x) = erfc(-x / sqrt(2)) / 2. Relative accuracy is kept in the lower tail down to
// the smallest normal double (x ~ -37.5); below that the value is subnormal and then 0.
// Phi(-inf) = 0, Phi(+inf) = 1.
double CDFNormalStd(double x) noexcept;

// 1 - Phi(x) = P(Z > x) = Phi(-x), accurate in the upper tail (for x > 0 where 1 - Phi(x) would
// cancel).
double CDFNormalStdUpper(double x) noexcept;

// phi(x) = exp(-x^2 / 2) / sqrt(2 pi); 0 at +-inf.
double PDFNormalStd(double x) noexcept;

// Quantile Phi^{-1}(p): the x with Phi(x) = p. p = 0 gives -inf, p = 1 gives +inf; p outside [0, 1]
// or NaN gives NaN. Accurate relative to x for p from the smallest positive double to 1 - 2^-53;
// Phi^{-1}(0.5) = 0 exactly. The upper tail is taken from 1 - p, which is exact for p >= 0.5, so
// the quantile of an upper-tail level q is best written -InvCDFNormalStd(q).
double InvCDFNormalStd(double p) noexcept;

// ---------------------------------------------------------------------------------------------
// Student's t with df degrees of freedom (df real, > 0)
// ---------------------------------------------------------------------------------------------

// Lower tail P(T <= t). df <= 0 or NaN gives NaN; df = +inf gives Phi(t). t = -inf gives 0 and
// t = +inf gives 1. Both tails are accurate: P(T > t) is CDFStudent(-t, df) exactly (symmetry).
double CDFStudent(double t, double df) noexcept;

// Quantile: the t with P(T <= t) = p. p = 0 gives -inf, p = 1 gives +inf, p = 0.5 gives 0;
// p outside [0, 1], df <= 0 or a NaN argument gives NaN; df = +inf gives Phi^{-1}(p).
double InvCDFStudent(double p, double df) noexcept;

// ---------------------------------------------------------------------------------------------
// Chi-square with df degrees of freedom (df real, 0 < df < inf)
// ---------------------------------------------------------------------------------------------

// Upper tail p-value P(X >= x) = Q(df / 2, x / 2), the regularised upper incomplete gamma function
// evaluated directly (never as 1 - P), so that p-values keep full relative accuracy down to 1e-300
// and below. x <= 0 gives 1 (also x = -inf); x = +inf gives 0. df <= 0, df = +inf or a NaN argument
// gives NaN.
double pValChiSq(double x, double df) noexcept;

// Lower tail P(X <= x) = P(df / 2, x / 2); x <= 0 gives 0, x = +inf gives 1; same df rules as
// pValChiSq. Accurate for small x where 1 - pValChiSq would cancel.
double CDFChiSq(double x, double df) noexcept;

// Lower-tail quantile: the x with P(X <= x) = p. p = 0 gives 0, p = 1 gives +inf; p outside
// [0, 1], df outside (0, inf) or NaN gives NaN. For p > 0.5 the quantile is solved on the upper
// tail 1 - p (exact in double), so InvCDFChiSq(1 - alpha, df) is accurate as long as 1 - alpha is
// representable; for a tiny upper level use InvCDFChiSqUpper.
double InvCDFChiSq(double p, double df) noexcept;

// Upper-tail quantile: the x with P(X >= x) = q, i.e. the inverse of pValChiSq. q = 0 gives +inf,
// q = 1 gives 0; same domain rules as InvCDFChiSq.
double InvCDFChiSqUpper(double q, double df) noexcept;

// ---------------------------------------------------------------------------------------------
// Limiting Kolmogorov distribution (of sqrt(n) times the Kolmogorov-Smirnov distance)
// ---------------------------------------------------------------------------------------------

// K(x) = P(K <= x) = 1 - 2 sum_{k>=1} (-1)^(k-1) exp(-2 k^2 x^2)
//      = sqrt(2 pi) / x sum_{k>=1} exp(-(2k-1)^2 pi^2 / (8 x^2))        (Jacobi theta identity).
// The second (theta) form, a sum of positive terms, is used for x < 1, where the alternating form
// would cancel (K(0.5) = 0.036 is 1 minus 0.964); the alternating form is used for x >= 1, where
// its terms fall at least as fast as exp(-2 k^2) and 1 - K <= 0.27, so 1 - (1 - K) loses nothing.
// Both are summed in long double until the next term no longer changes the sum. x <= 0 gives 0,
// x = +inf gives 1, NaN gives NaN.
// Relative accuracy holds down to K(0.05) ~ 1e-212.
double CDFKolmogorov(double x) noexcept;

// Upper tail 1 - K(x) = 2 sum_{k>=1} (-1)^(k-1) exp(-2 k^2 x^2), accurate for large x (the
// Kolmogorov p-value). x <= 0 gives 1, x = +inf gives 0, NaN gives NaN.
double CDFKolmogorovUpper(double x) noexcept;
