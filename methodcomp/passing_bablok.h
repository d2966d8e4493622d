// Passing-Bablok regression of method 2 (y) on method 1 (x): slope estimators over all pairwise
// slopes, rank-based confidence limits, intercept medians and the cusum linearity test.
//
//   Passing H, Bablok W (1983). A new biometrical procedure for testing the equality of
//     measurements from two different analytical methods. J Clin Chem Clin Biochem 21:709-720.
//   Bablok W, Passing H, Bender R, Schneider B (1988). A general regression procedure for method
//     transformation. J Clin Chem Clin Biochem 26:783-790 (the equivariant estimator).
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "velkor/containers.h"

namespace velkor::methodcomp {

// Status of the drivers when the option refuses a negative Kendall tau.
inline constexpr int kNegativeAssociation = -10;

// Options of PassingBablok / PassingBablokBIS.
inline constexpr int kPabPositiveOnly = 1;   // tau < 0 ends the call with status -10
inline constexpr int kPabAllowNegative = 3;  // tau < 0: slopes of (x, -y), slope negated back
// Any other option value behaves as kPabPositiveOnly (the procedure as published, which assumes
// a positive association between the methods).

// The selection below is exact for any number of pairs (no cap such as 2,000,000 stored
// slopes, no pair dropped) and never holds more than a window of them. Up to this many pairs every
// slope is held and selected directly.
inline constexpr long long kDirectSelectionLimit = 65536;

// Values a pair without a finite slope takes (the four special values, in argument order of the
// slope estimators): dx = x_i - x_j and dy = y_i - y_j for i < j.
struct SpecialSlopes {
  double verticalUp;       // dy > 0, dx = 0 (counts in K)
  double verticalDown;     // dy < 0, dx = 0
  double horizontalLeft;   // dy = 0, dx < 0
  double horizontalRight;  // dy = 0, dx > 0
};
SpecialSlopes DefaultSpecialSlopes();  // -kUnbounded, +kUnbounded, -epsilon, +epsilon

// Order statistics of the pairwise slopes S_ij = dy / dx over the pairs i < j of (x, y),
// exactly as a full ascending sort of all stored slopes would give them.
//   dySign     +1, or -1 to negate every dy (negative association);
//   absolute   false: the shifted-median set (pairs with slope exactly -1 skipped, K = number
//              of slopes below -1 plus vertical-up pairs); true: |S_ij| (the equivariant set,
//              nothing skipped, K = 0).
// `ranks(N, K)` returns the 1-based positions wanted once N (stored slopes) and K are known;
// `values` receives S[r] for each; a position outside 1..N reads the slope of the last pair
// stored in pair order (the slope store's spare element), and -1 when nothing was stored.
// Cost: O(m^2) slope evaluations for m points, the same count whatever m. Up to
// kDirectSelectionLimit pairs the slopes are stored and selected with std::nth_element; above
// it (including past 2,000,000 slopes, with no pair dropped) a
// deterministic sample of about one pair in 64 places a window [lo, hi] around the wanted
// positions, and one pass over all pairs (parallel when OpenMP is on) counts N, K and the slopes
// below lo and keeps the slopes inside the window, where the positions are selected; should a
// position fall outside the window, the pass is repeated with a wider one (at worst the whole
// range). The result equals a full ascending sort of all stored slopes, bit for bit. Memory
// O(m + window), the window a few per cent of the pairs.
struct SlopeOrderStats {
  long long N = 0;
  long long K = 0;
  std::vector<double> values;
};
SlopeOrderStats PairwiseSlopes(
    const double* x, const double* y, std::size_t m, double dySign, bool absolute,
    const SpecialSlopes& sp,
    const std::function<std::vector<long long>(long long, long long)>& ranks);

// Shifted-median slope estimator (Passing & Bablok 1983).
//   x, y      n x 1, in; rows with a missing (<= kMissing) or NaN value are left out.
//   negFlag   in/out, 16-bit flag. In: -1 refuses a negative association (the estimator then
//             stores nothing, leaves b missing and returns 0: the caller reports it); 0 accepts
//             it (slopes of (x, -y), estimate negated back). Out: -1 when Kendall's tau < 0,
//             else 0.
//   geoMean   -1: for an even N the two middle slopes are combined by their geometric mean
//             sqrt(S[m] S[m+1]) (NaN when their product is negative); otherwise arithmetic.
//   verticalUp, verticalDown, horizontalLeft, horizontalRight: the special values (above).
//   b         out: the slope on the scale of y; kMissing when no slope could be stored.
//   N, K      out: number of stored slopes and of those counted below -1.
// b = S[N/2 + K] and S[N/2 + K + 1] combined when N is even, S[(N + 1)/2 + K] when odd.
int ComputeBCoeff_PAB1(matrix<double>* x, int n, matrix<double>* y, short& negFlag, short geoMean,
                       double verticalUp, double verticalDown, double horizontalLeft,
                       double horizontalRight, double& b, double& N, double& K);

// Equivariant estimator (Bablok et al. 1988): the median of |S_ij| over every pair with a
// defined or special slope, signed by the association (negative when tau < 0 is accepted).
// Unlike the shifted median it is equivariant under a change of scale of either method
// (b(x, c y) = c b(x, y), c > 0), and with geoMean = -1 swapping the methods gives exactly
// 1 / b. Same arguments as ComputeBCoeff_PAB1; the special values enter by their absolute
// values, no slope is skipped for being -1 and K is 0.
int ComputeBCoeff_PAB3(matrix<double>* x, int n, matrix<double>* y, short& negFlag, short geoMean,
                       double verticalUp, double verticalDown, double horizontalLeft,
                       double horizontalRight, double& b, double& N, double& K);

// Passing-Bablok regression driver (shifted median, arithmetic mean of the middle slopes).
//   x, y      n x 1, in (y the method regressed on x); incomplete rows are left out of every
//             statistic and get kMissing in the four per-row outputs; n below counts complete
//             rows.
//   option    kPabPositiveOnly / kPabAllowNegative (above).
//   alpha     significance level of the limits and of the linearity test.
//   a, aLow, aHigh, b, bLow, bHigh   out: intercept and slope with their limits.
//   fitted, residuals, differences, distance  n x 1, out: a + b x, y - (a + b x), y - x, and the
//             signed perpendicular distance r / sqrt(1 + b^2) (0 when |r| <= 1e-12).
//   maxCusum, critical, pValue  out: linearity test (largest |cusum|, h k(alpha), and
//             1 - K(max / h) with K the limiting Kolmogorov distribution; kMissing when h = 0).
// Returns 0, or -10 when option refuses a negative Kendall tau (nothing written then).
// Limits: Cw = z(1 - alpha/2) sqrt(n(n-1)/18) sqrt(2n + 5), M1 = int((N - Cw)/2 + 1/2),
// M2 = N - M1 + 1, bLow = S[max(M1 + K, 1)], bHigh = S[min(M2 + K, N)]; aLow = median(y - bHigh x)
// and aHigh = median(y - bLow x), unbounded slopes giving unbounded intercepts. Deliberate
// clean-up kept for the front end: a lower limit equal to -1.79769313486231e+308 is reported as
// +1.79769313486231e+308. With no stored slope (fewer than two distinct points) every scalar is
// kMissing. Alpha outside (0, 1) leaves the limits and the critical value kMissing.
// Cost O(n^2) slope evaluations with O(n + window) memory (see PairwiseSlopes), plus
// O(n log n).
int PassingBablok(matrix<double>* x, int n, matrix<double>* y, int option, double alpha, double& a,
                  double& aLow, double& aHigh, double& b, double& bLow, double& bHigh,
                  matrix<double>* fitted, matrix<double>* residuals, matrix<double>* differences,
                  matrix<double>* distance, double& maxCusum, double& critical, double& pValue);

// Second driver, same arguments and outputs: the equivariant procedure (ComputeBCoeff_PAB3 with
// the geometric mean of the middle slopes). The rank limits use the same M1, M2 on the sorted
// |S_ij| with K = 0 (negated and swapped when the association is negative); intercept, fitted
// values and the cusum test follow as in PassingBablok. Suited to methods on different scales
// (slope far from 1), where the shifted median is not scale invariant.
int PassingBablokBIS(matrix<double>* x, int n, matrix<double>* y, int option, double alpha,
                     double& a, double& aLow, double& aHigh, double& b, double& bLow, double& bHigh,
                     matrix<double>* fitted, matrix<double>* residuals, matrix<double>* differences,
                     matrix<double>* distance, double& maxCusum, double& critical, double& pValue);

// Kolmogorov critical value k(alpha): the tabulated 1.62762361151895 (0.01), 1.35809863932252
// (0.05), 1.22384787020909 (0.1); otherwise bisection on CDFKolmogorov to |K(k) - (1 - alpha)|
// < 1e-5. NaN for alpha outside (0, 1).
double KolmogorovCritical(double alpha);

}  // namespace velkor::methodcomp
