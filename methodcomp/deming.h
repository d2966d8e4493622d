// Deming (errors-in-variables) regression of method 2 (y) on method 1 (x): the closed-form fit
// for a given error-variance ratio, the iteratively weighted fit on replicated measurements, and
// the two drivers with jackknife standard errors.
//
//   Deming WE (1943). Statistical adjustment of data. Wiley.
//   Linnet K (1990). Estimation of the linear relationship between the measurements of two
//     methods with proportional errors. Stat Med 9:1463-1473.
//   Linnet K (1993). Evaluation of regression procedures for methods comparison studies.
//     Clin Chem 39:424-432.
#pragma once

#include "velkor/containers.h"

namespace velkor::methodcomp {

// Closed-form weighted Deming fit, lambda = var(error of y) / var(error of x):
//   mx, my weighted means; Sxx, Syy, Sxy weighted centred sums; D = Syy - lambda Sxx;
//   b = (D + sqrt(4 lambda Sxy^2 + D^2)) / (2 Sxy), a = my - b mx.
// x, y, w: n x 1, every row used as it is (no missing-value test); w null means unit weights.
// No guard protects Sxy = 0:
// callers check it (the drivers do). Returns 0. Cost O(n).
int Deming(matrix<double>* x, matrix<double>* y, matrix<double>* w, int n, double lambda, double& a,
           double& b);

// The same estimator as Deming, as the newer driver uses it:
//   - rows with a missing (<= kMissing) or NaN x, y or weight, or a weight <= 0, are left out;
//   - the root is taken in its cancellation-free form, b = 2 lambda Sxy / (R - D) when D < 0
//     (R = sqrt(D^2 + 4 lambda Sxy^2)), which keeps full precision when lambda Sxx >> Syy;
//   - lambda = +inf gives the least-squares slope Sxy / Sxx (x without error);
//   - returns -2 with fewer than 2 usable rows, -5 when the fit is undefined (lambda NaN or
//     <= 0, Sxy = 0 relative to sqrt(Sxx Syy), i.e. |Sxy| <= 2.22e-16 sqrt(Sxx Syy)); a and b are
//     then kMissing.
// w may be null (unit weights). Cost O(n).
int NewDeming(matrix<double>* x, matrix<double>* y, matrix<double>* w, int n, double lambda,
              double& a, double& b);

// Iteratively weighted Deming fit on replicated measurements.
//   groupSize  k x 1, in: number of replicate rows of each subject (subjects are consecutive
//              blocks of rows of x and y, in this order); a size <= 0 skips the subject.
//   x, y       n x 1, in: the replicates (missing values skipped inside a subject).
//   maxIter    largest number of iterations (at least one is made); tol convergence tolerance.
//   b, a       out: slope, and intercept mean_w(y) - b mean_w(x) with the final weights.
//   iterations out: iterations made.
// Per subject i: means (xm_i, ym_i) and sums of squared deviations Vx_i, Vy_i of its replicates.
// From b = 0, each iteration sets w_i = 1 / (Vx_i b^2 + Vy_i) and takes the new slope as the
// closed-form weighted Deming fit (NewDeming) of the subject means with weights w_i and the pooled
// ratio lambda = sum Vy_i / sum Vx_i (Linnet's iteratively reweighted Deming procedure, here with
// the weights of the replicate variances). When every subject has the same ratio Vy_i / Vx_i
// this is the maximum-likelihood line of the functional model. Stops when |b_new - b_old| < tol.
// A subject whose weight denominator is <= 2.22e-16 (a single replicate, identical replicates)
// gets weight 0: it carries no error information and an infinite weight would force the line
// through it. Returns 0; -2 with fewer than 2 weighted subjects; -5 when a step's fit is
// undefined (b, a kMissing). Cost O(n + iterations k).
int WeightedDeming(matrix<double>* groupSize, int k, matrix<double>* x, matrix<double>* y, int n,
                   int maxIter, double tol, double& b, double& a, int& iterations);

// Layout of the 8 x 1 coefficient table written by the drivers.
//   1 a, 2 se(a), 3 aLow, 4 aHigh, 5 b, 6 se(b), 7 bLow, 8 bHigh.
inline constexpr int kDemingCoefRows = 8;

// Deming regression driver (closed form, unit weights).
//   x, y     n x 1, in; rows with a missing or NaN value are left out.
//   lambda   error-variance ratio var(e_y) / var(e_x) (> 0; 1 = orthogonal regression).
//   alpha    significance level of the limits.
//   coef     8 x 1, out (layout above): estimates from the full fit (Deming); standard errors by
//            the leave-one-out jackknife, se = sqrt((m-1)/m sum (theta_(i) - mean theta_(.))^2)
//            (Linnet 1990); limits estimate -/+ t(1 - alpha/2, m - 2) se.
//   fitted, residuals  n x 1, out: a + b x and y - (a + b x); kMissing on incomplete rows.
// The leave-one-out sums are downdated from the full centred sums (Sxx_(i) = Sxx - m/(m-1)
// (x_i - mx)^2, and likewise), so the jackknife costs O(m), not O(m^2).
// Returns 0; -2 with fewer than 3 complete rows; -5 when the fit is undefined (lambda not > 0,
// Sxy = 0 as in NewDeming); nothing is written then. A leave-one-out fit that is undefined
// leaves the standard errors and limits kMissing (status 0).
int DemingRegression(matrix<double>* x, matrix<double>* y, int n, double lambda, double alpha,
                     matrix<double>* coef, matrix<double>* fitted, matrix<double>* residuals);

// Newer driver: replicates, estimated lambda, optional weighting.
//   x, y      n x 1, in: measurements (rows with a missing or NaN value are left out).
//   subject   n x 1, in, or null: subject code of each row (any numbers; rows with equal codes
//             are replicates of one subject; a missing code leaves the row out). Null: every row
//             is its own subject.
//   weighted  flag: -1 fits WeightedDeming on the replicates (needs subject codes), 0 the
//             closed form (NewDeming) on the subject means.
//   lambda    > 0 (or +inf): the ratio var(e_y) / var(e_x) as given; otherwise (<= 0, NaN or
//             missing) estimated from the replicates as sum of within-subject squares of y over
//             that of x (pooled variances, both with N - k degrees of freedom). Unused when
//             weighted.
//   alpha, maxIter, tol  level of the limits; iteration controls of WeightedDeming.
//   coef      8 x 1, out (layout above): full-data estimates, leave-one-subject-out jackknife
//             standard errors, Student limits with k - 2 degrees of freedom (k subjects).
//   info      3 x 1, out: lambda used (kMissing when weighted), number of subjects k, iterations
//             of the full weighted fit (0 for the closed form).
//   fitted, residuals  n x 1, out: a + b x and y - (a + b x) for each complete row.
// Returns 0; -2 with fewer than 3 subjects; -5 when the fit is undefined (no subject codes for a
// weighted fit; lambda not given and not estimable; Sxy = 0). Nothing is written on -2 or -5.
// Cost O(n log n) for the closed form; O(k^2 iterations) for the weighted jackknife.
int NewDemingRegression(matrix<double>* x, matrix<double>* y, int n, matrix<double>* subject,
                        short weighted, double lambda, double alpha, int maxIter, double tol,
                        matrix<double>* coef, matrix<double>* info, matrix<double>* fitted,
                        matrix<double>* residuals);

}  // namespace velkor::methodcomp
