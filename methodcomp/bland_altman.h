// Bland-Altman agreement analysis, confidence limits of the limits of agreement, and the
// within-subject (repeatability) standard deviation of replicated measurements.
#pragma once

#include "velkor/containers.h"

namespace velkor::methodcomp {

// Difference types of BlandAltman.
inline constexpr int kDiffAbsolute = 0;  // y - x
inline constexpr int kDiffRelative = 1;  // (y - x) / ((x + y) / 2), a plain fraction
// any other value: ratio y / x

// Bland-Altman analysis of two methods measured on the same n subjects.
//   x, y    n x 1, in: measurements of method 1 and method 2 (missing: <= kMissing; NaN is
//           treated as missing as well).
//   type    difference type (above).
//   alpha   significance level: bias interval at 1 - alpha, limits of agreement bias -/+ z sd
//           with z the normal quantile at 1 - alpha/2 (1.959964 for alpha = 0.05).
//   diffs   n x 1, in/out: per-row difference; left as passed on rows with a missing value; the
//           missing-value marker where the denominator of a relative difference or ratio is
//           zero (|.| <= 2.220446049250313e-16).
//   means   n x 1, in/out: per-row (x + y) / 2; left as passed on rows with a missing value.
//   bias, sd         mean and sample standard deviation (divisor count - 1) of the used diffs.
//   biasLow/High     bias -/+ t(1 - alpha/2, m - 1) sd / sqrt(m).
//   loaLow/High      bias -/+ z sd.
// Counting of m (deliberate): a row with a missing x or y is left out of bias and sd but still
// counts in m, which sets the degrees of freedom and the divisor of the standard error; a row
// whose denominator is zero is not counted. Scalars that cannot be computed (no used row; a
// single one; m < 2) get the missing-value marker. Always returns 0. Cost O(n).
// Helpers: V_MeanStdev, InvCDFStudent, InvCDFNormalStd.
int BlandAltman(matrix<double>* x, matrix<double>* y, int n, int type, double alpha,
                matrix<double>* diffs, matrix<double>* means, double& bias, double& sd,
                double& biasLow, double& biasHigh, double& loaLow, double& loaHigh);

// Methods of BlandAltmanLoACI.
inline constexpr int kLoaApproximate = 0;  // Bland & Altman (1999)
inline constexpr int kLoaExact = 1;        // Carkeet (2015), non-central t

// Confidence limits of the two limits of agreement.
//   x, y, n, type   as BlandAltman; the differences are formed and excluded by the same rules,
//                   but here m is the number of differences actually used (the usual count).
//   alpha           level of the limits of agreement: mean -/+ z sd, z = z(1 - alpha/2).
//   alphaCI         level of the confidence limits of each limit of agreement (1 - alphaCI).
//   method          kLoaApproximate: LoA -/+ t(1 - alphaCI/2, m - 1) sd sqrt(1/m + z^2/(2(m-1)))
//                   (Bland & Altman 1999, section 4.2);
//                   kLoaExact: the exact limits of Carkeet (2015): for the upper limit
//                   mean + z sd, the interval mean + sd t'(p; m - 1, z sqrt(m)) / sqrt(m) at
//                   p = alphaCI/2 and 1 - alphaCI/2, t' the quantile of the non-central t with
//                   non-centrality z sqrt(m) (one-sided tolerance factors, the exact interval of a
//                   normal quantile); the lower limit by symmetry. Any other method value is
//                   treated as kLoaExact.
//   out             6 x 1, out: loaLow, its lower and upper confidence limits, loaHigh, its lower
//                   and upper confidence limits. Cells without a value (fewer than two used
//                   differences, alpha or alphaCI outside (0, 1)) hold the missing-value marker.
// Always returns 0. Cost O(n) plus one or two non-central t quantiles.
int BlandAltmanLoACI(matrix<double>* x, matrix<double>* y, int n, int type, double alpha,
                     double alphaCI, int method, matrix<double>* out);

// Within-subject standard deviation of replicated measurements of one method (one-way ANOVA).
//   x        n x 1, in: measurements (missing values skipped).
//   subject  n x 1, in: subject code of each row, whole numbers 1..k (k = number of distinct
//            codes). A row whose code is missing, not a whole number, or outside 1..k is left out
//            of every sum, as if its measurement were missing (the subject means are held by
//            code - 1, so such a code has no slot).
//   sw       sqrt(SSW / (N - k')), SSW = N v - SSB the within-subject sum of squares, v the
//            variance (divisor N) of the N used measurements, SSB = sum over used rows of
//            (grand mean - subject mean)^2, k' the subjects with a mean.
//   swLow/High   sw / sqrt(chi2(1 - alpha/2, df) / df) and sw / sqrt(chi2(alpha/2, df) / df).
// SSW <= 2.220446049250313e-16 (all replicates equal, one measurement per subject) or df <= 0
// gives the missing-value marker in all three outputs. Always returns 0. Cost O(n log n).
// Helpers: V_NbNonMissing, V_NbDistinct, V_Mean2, V_Var2, M_GroupBy, InvCDFChiSq.
int GetRepeatability(matrix<double>* x, int n, matrix<double>* subject, double alpha, double& sw,
                     double& swLow, double& swHigh);

}  // namespace velkor::methodcomp
