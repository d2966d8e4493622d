/* Flat entry points of the method-comparison family: Bland-Altman analysis and the confidence
 * limits of its limits of agreement, repeatability, Passing-Bablok regression and Deming
 * regression (see VELKORLI1M.h for the shared conventions).
 *
 * Every array is copied in; outputs are copied back element by element after the computation
 * (scalar outputs are pointers to one double and must not be null). Missing values: an input is
 * missing when it is <= VELKOR_MISSING; these analyses also treat NaN as missing. Positive
 * statuses (1 out of memory, 2 internal error, 3 null array with a positive length) mean nothing
 * was written. n <= 0 is accepted and gives missing-value markers (or -2 where stated).
 */
#ifndef VELKOR_METHODCOMP_H
#define VELKOR_METHODCOMP_H

#include "velkor/export.h"
#include "velkor/status.h"

/* Status of the Passing-Bablok drivers when option 1 meets a negative Kendall tau. */
#define VELKOR_PAB_NEGATIVE_TAU (-10)

#ifdef __cplusplus
extern "C" {
#endif

/* Bland-Altman analysis of two methods measured on the same n subjects.
 *   x[n], y[n]   in: methods 1 and 2.
 *   n            in: number of rows.
 *   type         in: 0 difference y - x; 1 relative difference (y - x) / ((x + y)/2), a plain
 *                fraction; any other value the ratio y / x.
 *   alpha        in: significance level (0.05: 95 % bias interval, limits bias -/+ 1.959964 sd).
 *   diffs[n]     in/out: per-row difference; rows with a missing x or y keep the value passed;
 *                VELKOR_MISSING where the relative difference or ratio has a zero denominator
 *                (|denominator| <= 2.220446049250313e-16).
 *   means[n]     in/out: per-row (x + y)/2; rows with a missing value keep the value passed.
 *   bias, sd     out: mean and sample standard deviation (divisor count - 1) of the used diffs.
 *   biasLow, biasHigh  out: bias -/+ t(1 - alpha/2, m - 1) sd / sqrt(m).
 *   loaLow, loaHigh    out: limits of agreement bias -/+ z(1 - alpha/2) sd.
 * m counts every row except those with a zero denominator: a row with a missing value is left
 * out of bias and sd but still counts in m (deliberate; it sets the degrees of freedom and the
 * standard error). Scalars that cannot be computed hold VELKOR_MISSING. Returns 0. */
VELKOR_API int Cpp_BlandAltman(const double* x, const double* y, int n, int type, double alpha,
                               double* diffs, double* means, double* bias, double* sd,
                               double* biasLow, double* biasHigh, double* loaLow, double* loaHigh);

/* Confidence limits of the two Bland-Altman limits of agreement.
 *   x[n], y[n], n, type  in: as Cpp_BlandAltman; rows with a missing value or a zero
 *                denominator are left out, and m is the number of differences used.
 *   alpha        in: level of the limits of agreement, mean -/+ z(1 - alpha/2) sd.
 *   alphaCI      in: the confidence limits of each limit of agreement are at level 1 - alphaCI.
 *   method       in: 0 the approximation of Bland & Altman (1999): limit -/+ t(1 - alphaCI/2,
 *                m - 1) sd sqrt(1/m + z^2 / (2 (m - 1))); any other value the exact limits of
 *                Carkeet (2015): mean + sd t'(p; m - 1, z sqrt(m)) / sqrt(m) at p = alphaCI/2 and
 *                1 - alphaCI/2 for the upper limit (t' the non-central t quantile), mirrored for
 *                the lower limit.
 *   limits[6]    out: lower limit of agreement, its lower and upper confidence limits, upper
 *                limit of agreement, its lower and upper confidence limits. VELKOR_MISSING when
 *                fewer than two differences are used or alpha, alphaCI are outside (0, 1).
 * Returns 0. */
VELKOR_API int Cpp_BlandAltmanLoACI(const double* x, const double* y, int n, int type, double alpha,
                                    double alphaCI, int method, double* limits);

/* Within-subject standard deviation of replicated measurements of one method.
 *   x[n]         in: measurements, one per row.
 *   n            in: number of rows.
 *   subject[n]   in: subject code of each row, whole numbers 1..k (k = number of distinct codes).
 *                A row whose code is missing, not whole, or outside 1..k is left out as if its
 *                measurement were missing.
 *   alpha        in: significance level.
 *   sw           out: sqrt(SSW / (N - k)), SSW the within-subject sum of squares (total sum of
 *                squares about the grand mean minus the between-subject part).
 *   swLow, swHigh  out: chi-square limits sw / sqrt(chi2(1 - alpha/2, df)/df) and
 *                sw / sqrt(chi2(alpha/2, df)/df).
 * SSW <= 2.220446049250313e-16 or no degree of freedom: all three VELKOR_MISSING. Returns 0. */
VELKOR_API int Cpp_GetRepeatability(const double* x, int n, const double* subject, double alpha,
                                    double* sw, double* swLow, double* swHigh);

/* Passing-Bablok regression of y (method 2) on x (method 1): shifted median of the pairwise
 * slopes, rank limits, intercept medians and the cusum linearity test.
 *   x[n]         in: method 1.
 *   n            in: number of rows; rows with a missing value are left out (n in the rank
 *                limits counts the complete rows).
 *   y[n]         in: method 2.
 *   option       in: 1 a negative Kendall tau ends the call with VELKOR_PAB_NEGATIVE_TAU and
 *                nothing written; 3 a negative association is accepted: the slopes of (x, -y)
 *                are used and the slope and its limits are reported on the scale of y
 *                (negative). Any other value behaves as 1.
 *   alpha        in: significance level of the limits and of the linearity test.
 *   a, aLow, aHigh  out: intercept median(y - b x) and its limits median(y - bHigh x),
 *                median(y - bLow x).
 *   b, bLow, bHigh  out: slope and its rank limits S[max(M1 + K, 1)], S[min(M2 + K, N)] with
 *                Cw = z sqrt(n(n-1)/18) sqrt(2n+5), M1 = int((N - Cw)/2 + 1/2), M2 = N - M1 + 1.
 *                Pairs with equal x take the special values -/+1.79769313486231e+308, pairs with
 *                equal y -/+2.220446049250313e-16; a slope of exactly -1 is skipped. A lower
 *                limit equal to -1.79769313486231e+308 is reported as +1.79769313486231e+308
 *                (deliberate, for the front end); an unbounded slope limit gives an intercept
 *                limit of VELKOR_MISSING (lower) or VELKOR_UNBOUNDED (upper) before that rule.
 *   fitted[n], residuals[n], differences[n], distance[n]  out: a + b x, y - (a + b x), y - x, and
 *                the signed perpendicular distance r / sqrt(1 + b^2) (0 when |r| <= 1e-12);
 *                VELKOR_MISSING on incomplete rows.
 *   maxCusum, critical, pValue  out: largest |cusum| of the residual scores ordered along the
 *                line, h k(alpha) with h = sqrt(L + l) (k = 1.35809863932252 at alpha 0.05,
 *                1.62762361151895 at 0.01, 1.22384787020909 at 0.1, else by bisection), and
 *                1 - K(maxCusum / h) (VELKOR_MISSING when h = 0, every residual zero).
 * Fewer than two distinct points (no slope): every scalar and per-row output VELKOR_MISSING.
 * Exact for any n, also past 2,000,000 slopes (no pair is dropped): one pass over all pairs keeps
 * only a window around the needed order statistics, which are then selected exactly.
 * Returns 0 or VELKOR_PAB_NEGATIVE_TAU. */
VELKOR_API int Cpp_Passing_Bablok(const double* x, int n, const double* y, int option, double alpha,
                                  double* a, double* aLow, double* aHigh, double* b, double* bLow,
                                  double* bHigh, double* fitted, double* residuals,
                                  double* differences, double* distance, double* maxCusum,
                                  double* critical, double* pValue);

/* The same outputs by the equivariant (scale-invariant) Passing-Bablok procedure (Bablok et al.
 * 1988): the slope is the median of |S_ij| (geometric mean of the two middle values for an even
 * count, so that swapping x and y gives exactly 1/b), signed by the association; limits from the
 * same rank positions with K = 0. Arguments and statuses as Cpp_Passing_Bablok. */
VELKOR_API int Cpp_PassingBablokBIS(const double* x, int n, const double* y, int option,
                                    double alpha, double* a, double* aLow, double* aHigh, double* b,
                                    double* bLow, double* bHigh, double* fitted, double* residuals,
                                    double* differences, double* distance, double* maxCusum,
                                    double* critical, double* pValue);

/* Deming regression (closed form, unit weights) with jackknife standard errors.
 *   x[n], y[n]   in: methods 1 and 2; rows with a missing value are left out (m complete rows).
 *   n            in: number of rows.
 *   lambda       in: error-variance ratio var(e_y)/var(e_x), finite and > 0 (1: orthogonal).
 *   alpha        in: significance level of the limits.
 *   coef[8]      out: a, se(a), aLow, aHigh, b, se(b), bLow, bHigh. Estimates from the full fit;
 *                leave-one-out jackknife standard errors sqrt((m-1)/m sum (t_(i) - t_(.))^2)
 *                (Linnet 1990); limits estimate -/+ t(1 - alpha/2, m - 2) se. Standard errors and
 *                limits are VELKOR_MISSING when a leave-one-out fit is undefined.
 *   fitted[n], residuals[n]  out: a + b x and y - (a + b x); VELKOR_MISSING on incomplete rows.
 * Returns 0; -2 with fewer than 3 complete rows; -5 when the fit is undefined (lambda not finite
 * and > 0, or Sxy = 0, e.g. all x equal). Nothing is written on -2 or -5. */
VELKOR_API int VB_DemingRegression(const double* x, const double* y, int n, double lambda,
                                   double alpha, double* coef, double* fitted, double* residuals);

/* Deming regression on replicated measurements, with the error-variance ratio given or
 * estimated, optionally iteratively weighted.
 *   x[n], y[n]   in: methods 1 and 2 (rows with a missing value are left out).
 *   n            in: number of rows.
 *   subject[n]   in, may be NULL: subject code of each row (equal codes are replicates of one
 *                subject; a missing code leaves the row out). NULL: every row is a subject.
 *   weighted     in: flag. -1: iteratively weighted fit (weights 1 / (Vx b^2 + Vy) from the
 *                replicate sums of squares of each subject, Linnet's reweighting; needs subject
 *                codes); 0: closed form on the subject means.
 *   lambda       in: > 0 (or +inf, least squares): the ratio var(e_y)/var(e_x) as given; <= 0,
 *                NaN or missing: estimated as the within-subject sum of squares of y over that of
 *                x. Not used by the weighted fit (it pools the ratio from the replicates).
 *   alpha        in: significance level of the limits.
 *   maxIter, tol in: iteration cap (at least 1) and tolerance on the slope of the weighted fit.
 *   coef[8]      out: a, se(a), aLow, aHigh, b, se(b), bLow, bHigh; leave-one-subject-out
 *                jackknife standard errors; Student limits with k - 2 degrees of freedom.
 *   info[3]      out: lambda used (VELKOR_MISSING for the weighted fit), number of subjects k,
 *                iterations of the weighted fit (0 for the closed form).
 *   fitted[n], residuals[n]  out: a + b x and y - (a + b x); VELKOR_MISSING on unused rows.
 * Returns 0; -2 with fewer than 3 subjects; -5 when the fit is undefined (weighted without
 * subject codes, lambda not given and not estimable, Sxy = 0). Nothing is written on -2 or -5. */
VELKOR_API int Cpp_NewDemingRegression(const double* x, const double* y, int n,
                                       const double* subject, short weighted, double lambda,
                                       double alpha, int maxIter, double tol, double* coef,
                                       double* info, double* fitted, double* residuals);

#ifdef __cplusplus
}
#endif

#endif /* VELKOR_METHODCOMP_H */
