/* Flat entry points of the roc family (see VELKORLI1M.h for the shared conventions).
 *
 * ROC analysis of a diagnostic test: the 2 x 2 table at one threshold and its classification
 * statistics, the ROC curve with its area, standard error, interval and test, optimal
 * thresholds, and the paired comparison of several tests measured on the same subjects.
 *
 * Shared notation. Contingency table (2 x 2, weighted counts, column-major: a, c, b, d):
 *                        truly positive   truly negative
 *      test-positive           a                b
 *      test-negative           c                d
 * N = a + b + c + d, pa = a / N, pb = b / N, pc = c / N, pd = d / N.
 *
 * Statistics table (13 x 3, column-major: the 13 values, then the 13 lower limits, then the 13
 * upper limits; VELKOR_MISSING where a statistic or a limit is not defined):
 *    1 correct classification pa + pd        8 positive predictive value PPV
 *    2 misclassification pb + pc             9 negative predictive value NPV
 *    3 sensitivity Se = pa / (pa + pc)      10 positive likelihood ratio Se / (1 - Sp)
 *    4 specificity Sp = pd / (pb + pd)      11 negative likelihood ratio (1 - Se) / Sp
 *    5 false positive rate 1 - Sp           12 relative risk (pa / (pa + pb)) / (pc / (pc + pd))
 *    6 false negative rate 1 - Se           13 odds ratio pa pd / (pb pc)
 *    7 prevalence P = pa + pc
 * PPV = pi Se / ((1 - pi)(1 - Sp) + pi Se), NPV = (1 - pi) Sp / ((1 - Se) pi + (1 - pi) Sp), with
 * pi the prior prevalence when it is > 0 and P otherwise. Every division is guarded: a statistic
 * whose (proportion) divisor is not above 1e-12 stays missing. PPV and NPV also need Se and Sp.
 *
 * Interval methods (int): for Se and Sp (rows 3, 4): 0 Wald, 1 adjusted Wald (Wald at
 * (n p + 2) / (n + 4) on n + 4), 2 Wilson score, any other code Clopper-Pearson; for the other
 * proportions (rows 1, 2, 5-9): method 0 Wilson score, any other code Wald. The split (0 = Wald
 * for Se and Sp, Wilson for the rest) is intended. The Wilson interval takes a continuity
 * correction of 0.5 when the continuity flag is -1. Rows 10-13: log-scale intervals
 * exp(log r -/+ z se), z = |Phi^-1(1 - alpha/2)|, computed only when the cell they divide by is
 * above 1e-12 (pa for rows 10 and 12, pc for row 11, pa pd for row 13):
 *    10: se^2 = ((1 - Se)/pa + Sp/pb) / N          11: se^2 = ((1 - Sp)/pd + Se/pc) / N
 *    12: method 0: se^2 = ((1 - PPV)/pa + NPV/pc) / N with PPV and NPV as stored in rows 8, 9
 *        (a prior prevalence therefore moves this interval; missing when row 8 or 9 is);
 *        others: se^2 = 1/(c + .5) + 1/(a + .5) - 1/(a + b + .5) - 1/(c + d + .5)
 *    13: method 0: se^2 = (1/pa + 1/pb + 1/pc + 1/pd) / N;
 *        others: se^2 = 1/(a + .5) + 1/(b + .5) + 1/(c + .5) + 1/(d + .5)
 * alpha outside (0, 1): values only, every limit missing. A table whose total N is not positive
 * leaves every statistic missing.
 */
#ifndef VELKOR_ROC_H
#define VELKOR_ROC_H

#include "velkor/export.h"
#include "velkor/oleauto.h"
#include "velkor/status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Adds the weighted rows of one threshold to a 2 x 2 contingency table.
 *   status        in   SAFEARRAY of strings: the true status label of each row. VT_BSTR or
 *                      VT_VARIANT elements (a VARIANT is converted to text), any dimensions, read
 *                      in storage order; rows past its elements (or a null array) have the empty
 *                      label.
 *   n             in   number of rows.
 *   positiveLabel in   VARIANT*: the label of the truly positive rows. A VT_BSTR is used as it
 *                      stands; numbers, dates and booleans are converted to their text form
 *                      (VariantChangeType to VT_BSTR: 1 gives "1", 2.5 gives "2.5"). A null
 *                      pointer or a type without a text form (arrays, objects, VT_NULL, errors)
 *                      matches no row: every row is then truly negative. On 64-bit Windows a
 *                      VARIANT passed by value is passed as this pointer.
 *                      Labels are compared as whole UTF-16 strings: case and spaces matter.
 *   values        in   double[n], the test variable. No special treatment of missing values or
 *                      NaN (a NaN is test-negative under every rule).
 *   exactMatch    in   flag: -1 = a row is test-positive exactly when its value equals the
 *                      threshold (category codes); the decision rule is then ignored.
 *   threshold     in   the threshold.
 *   rule          in   test-positive when value 1: < threshold, 2: <=, 3: >=, 4: >; any other
 *                      code makes every row test-negative.
 *   weights       in   double[n], frequency weights; null = every weight 1.
 *   table         in/out double[4], the table in column order a, c, b, d. The weights are ADDED
 *                      to the values passed in: pass zeros for a fresh table.
 * Returns 0 (or a positive internal-failure code: VELKOR_E_NULL_ARRAY for a null table, or a
 * null values array with n > 0; nothing is then written). */
VELKOR_API int Cpp_CreateROCContingencyTable(SAFEARRAY* status, int n, const VARIANT* positiveLabel,
                                             const double* values, short exactMatch,
                                             double threshold, int rule, const double* weights,
                                             double* table);

/* The thirteen classification statistics of a 2 x 2 table with their confidence intervals.
 *   table        in   double[4], column order a, c, b, d.
 *   alpha        in   significance level of the intervals.
 *   method       in   interval method (see the top of this header).
 *   continuity   in   flag: -1 = continuity correction 0.5 in the Wilson intervals.
 *   prior        in   prior prevalence replacing the sample prevalence in PPV and NPV when > 0.
 *   stats        out  double[39], the 13 x 3 statistics table (column-major).
 *   proportions  out  double[9], 3 x 3 column-major: cells / N, row 3 the column sums, column 3
 *                     the row sums, cell (3,3) = 1 (all missing when N is not positive).
 * Returns 0. */
VELKOR_API int Cpp_GetROCStats(const double* table, double alpha, int method, short continuity,
                               double prior, double* stats, double* proportions);

/* ROC curve, area under the curve (AUC), its standard error, interval and test of AUC = 0.5,
 * per-threshold statistics, costs and optimal thresholds.
 *
 * Rows used: status exactly 0 or 1, test value finite (not NaN, not infinite, not
 * <= VELKOR_MISSING) and weight finite and > 0; the other rows are left out of everything
 * (a zero weight contributes nothing, and leaving the row out keeps it from adding a threshold).
 * Thresholds: the k distinct test values of the rows used, ascending (k <= n).
 *
 *   status      in   double[n]: 1 truly positive, 0 truly negative.
 *   values      in   double[n]: the test variable.
 *   weights     in   double[n]: frequency weights; null = every weight 1.
 *   n           in   number of rows.
 *   side        in   which side of a threshold t is test-positive: 1 value >= t, 2 value <= t,
 *                    3 value > t, 4 value < t; any other code is taken as 3. Codes 1 and 3 take
 *                    high values as indicating the positive status, 2 and 4 low values.
 *                    The curve is closed by the one point the thresholds do not reach: (0, 0)
 *                    for codes 1 and 2, (1, 1) for 3 and 4. (These codes are not the decision
 *                    rules of Cpp_CreateROCContingencyTable: ROC code 1 = rule 3, 2 = 2, 3 = 4,
 *                    4 = 1.)
 *   alpha       in   significance level (interval of the AUC and of the per-threshold
 *                    statistics, critical values of the test).
 *   seMethod    in   standard error of the AUC: 0 Hanley-McNeil, 1 Bamber, other DeLong.
 *   tail        in   test of AUC = 0.5: 0 two-sided, -1 lower-tailed (AUC < 0.5), any other
 *                    value upper-tailed (AUC > 0.5).
 *   intervalMethod, continuity, prior
 *               in   the interval method, continuity flag and prior prevalence of the
 *                    per-threshold statistics (as Cpp_GetROCStats).
 *   unitCosts   in   double[4]: unit costs of the four cells a (true positive), b (false
 *                    positive), c (false negative), d (true negative), in that order; null =
 *                    all 0. The cost at a threshold is
 *                    unitCosts[0] pa + unitCosts[1] pb + unitCosts[2] pc + unitCosts[3] pd,
 *                    the expected cost per observation.
 *   tableRows   in   rows R of the per-threshold outputs below; 0 or less means R = n, which
 *                    always suffices (k <= n). A caller that wants smaller buffers gets k from
 *                    counts[0] of a first call with null tables. With R < k the tables hold the
 *                    first R rows only (the curve its first R + 1 points); the AUC, its SE and
 *                    the test never depend on R.
 *   curve       out  double[(R+1) * 3], an (R+1) x 3 column-major table; rows 1..k+1 hold the
 *                    curve ordered by 1 - Sp, then Se: column 1 = 1 - specificity, column 2 =
 *                    sensitivity, column 3 = the threshold of the point (VELKOR_MISSING for the
 *                    end point); rows past k+1 are VELKOR_MISSING. May be null.
 *   thresholdStats
 *               out  double[R * 44], an R x 44 column-major table, row r = the r-th threshold
 *                    ascending: column 1 threshold, columns 2-5 the cells a, b, c, d, columns
 *                    6-44 the 13 x 3 statistics table of Cpp_GetROCStats (6-18 values, 19-31
 *                    lower limits, 32-44 upper limits). Rows past k are VELKOR_MISSING. May be
 *                    null (with k large this table is the costly part: skip it when unused).
 *   costs       out  double[R]: the cost at each threshold (ascending thresholds), then
 *                    VELKOR_MISSING. May be null.
 *   auc         out  double[9]: 1 AUC (trapezoid rule over the curve); 2 standard error SE;
 *                    3 max(0, AUC - z SE); 4 min(1, AUC + z SE); 5 z = d / SE; 6, 7 limits of
 *                    d; 8 p-value; 9 critical value, where d = AUC - 0.5 (with DeLong's SE,
 *                    d = A' - 0.5, A' the Mann-Whitney area whose pairs closer than 1e-12 count
 *                    1/2, while row 1 keeps the trapezoid area). Tail 0: p = 2 min(P, 1 - P),
 *                    row 9 = z, rows 6, 7 = d -/+ z SE. Tail -1: p = P, row 9 = Phi^-1(alpha),
 *                    row 6 missing, row 7 = d + SE |row 9|. Other tails: p = 1 - P, row 9 =
 *                    1 - Phi^-1(alpha) (one minus the lower quantile, 2.644854 at alpha = .05,
 *                    by design), row 6 = d - SE |row 9|, row 7 = VELKOR_UNBOUNDED. P = Phi(row
 *                    5), z = |Phi^-1(1 - alpha/2)|. When SE <= 1e-12 rows 5-9 are missing.
 *                    A degenerate variance gives SE = 0: Hanley-McNeil with a non-positive
 *                    radicand, Bamber when (W1 - 1)(W0 - 1) <= 1e-12 or its B <= 1e-12,
 *                    DeLong when either group's total weight is not above 1 + 1e-12.
 *                    alpha outside (0, 1): rows 3, 4, 6, 7, 9 missing.
 *   optimal     out  double[R * 4], R x 4 column-major: column 1 every threshold whose Youden
 *                    index J = Se + Sp - 1 is within 1e-12 of the largest, ascending; column 2
 *                    its J; column 3 every threshold whose cost is within 1e-12 max(1, |min|)
 *                    of the lowest cost, ascending; column 4 its cost. Unused cells
 *                    VELKOR_MISSING. May be null.
 *   counts      out  int[3]: k (thresholds; the curve has k + 1 rows), the number of Youden
 *                    optima, the number of cost optima. May be null.
 * Returns 0; -2 when the rows used hold no positive or no negative (nothing is written).
 * Cost: O(n log n) (one radix sort) for the curve, AUC, standard errors and test; the
 * per-threshold statistics add k evaluations of the 13 statistics. */
VELKOR_API int Cpp_ComputeROC(const double* status, const double* values, const double* weights,
                              int n, int side, double alpha, int seMethod, short tail,
                              int intervalMethod, short continuity, double prior,
                              const double* unitCosts, int tableRows, double* curve,
                              double* thresholdStats,
                              double* costs, double* auc, double* optimal, int* counts);

/* Paired comparison of the areas under m >= 2 ROC curves of tests measured on the same subjects
 * (DeLong, DeLong & Clarke-Pearson, Biometrics 1988), with weights.
 *
 * Rows used: status 0 or 1, weight finite and > 0, and all m test values finite. Each area is
 * the Mann-Whitney area A_r (pairs closer than 1e-12 count 1/2); its structural components give
 * the covariance matrix S of the areas.
 *   status      in   double[n]: 1 positive, 0 negative.
 *   values      in   double[n * m]: n x m column-major, column r = test variable r.
 *   weights     in   double[n]: frequency weights; null = every weight 1.
 *   n, m        in   rows and test variables.
 *   side        in   as Cpp_ComputeROC: 2 and 4 take low values as positive, other codes high.
 *   alpha       in   significance level of the intervals.
 *   aucs        out  double[m * 4], m x 4: area, standard error, lower and upper limit
 *                    (A -/+ z SE clipped to [0, 1]). May be null.
 *   covariance  out  double[m * m]: the covariance matrix S. May be null.
 *   global      out  double[3]: chi-square of the hypothesis that all m areas are equal,
 *                    (L A)' (L S L')^-1 (L A) with contrasts A_1 - A_r, its degrees of freedom
 *                    m - 1 and p-value; all missing when L S L' is singular. May be null.
 *   pairs       out  double[m (m - 1) / 2 * 8], one row per pair r < s in the order (1,2),
 *                    (1,3), ..., (1,m), (2,3), ...: columns r, s, A_r - A_s, SE =
 *                    sqrt(S_rr + S_ss - 2 S_rs), lower and upper limit (difference -/+ z SE),
 *                    z = difference / SE, two-sided p-value (z and p missing when SE <= 1e-12).
 *                    May be null.
 * When either group's total weight is not above 1 + 1e-12 the variances are not defined:
 * standard errors, limits, covariances, z, p and the global test are missing.
 * Returns 0; -2 when m < 2 or the rows used hold no positive or no negative (nothing written).
 * Cost: O(m n log n + m^2 n + m^3). */
VELKOR_API int Cpp_ComputeROCComparisonsDep2(const double* status, const double* values,
                                             const double* weights, int n, int m, int side,
                                             double alpha, double* aucs, double* covariance,
                                             double* global, double* pairs);

#ifdef __cplusplus
}
#endif

#endif /* VELKOR_ROC_H */
