/* Flat entry points of the cox family (see VELKORLI1M.h for the shared conventions).
 *
 * Cox proportional hazards regression, stratified, with Breslow ties. The flat form computes the
 * Breslow partial likelihood for both ties codes 0 and 1 (its Efron fraction (j - 1) / d is
 * truncated to 0 in integer arithmetic, on purpose); the object form (velkor/cox_objects.h)
 * applies the true Efron correction. Risk-set sums are unweighted and event terms weighted by
 * the case weights: with unit weights this is the usual partial likelihood.
 *
 * Status codes of this family:
 *    0  success;
 *   -1  a status value outside [0, 1] (NaN included); nothing reordered or written;
 *   -2  fewer than two rows; nothing written;
 *   -3  no event (the status values sum to 0); nothing written;
 *   -5  (RunCoxReg) the selection failed: the variable counts do not partition the p columns;
 *   positive: an internal failure (velkor/status.h), nothing written.
 * Degenerate data do not fail the flat run: a constant covariate (singular matrix) leaves its
 * coefficient at 0 with missing standard-error columns, perfectly separating covariates
 * (monotone likelihood) grow until the iteration limit or the tolerance stops them, NaN
 * covariates give missing statistics.
 */
#ifndef VELKOR_COX_H
#define VELKOR_COX_H

#include "velkor/export.h"
#include "velkor/status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Sorts the rows by stratum and time and describes the tied blocks.
 *   time         in/out, n: observation times; sorted in place
 *   n            number of rows
 *   p            number of covariates (columns of x)
 *   status       in/out, n: 1 event, 0 censored (values in [0, 1]); sorted with the rows
 *   col2         in/out, n, or null: a column carried with the rows (e.g. case weights)
 *   col3         in/out, n, or null (all rows join their blocks): carried with the rows; a row
 *                tied with the previous one is not counted in the block when its value is 0
 *   x            in/out, n x p: covariates, rows moved with the sort
 *   strataKey    in/out, n, or null when m <= 1: stratum of each row; strata are sorted in
 *                ascending key order (stable sort: ties keep their input order)
 *   strataSizes  in, m, or null when m <= 1 (one stratum of n rows): rows of each stratum in
 *                ascending key order
 *   m            number of strata
 *   nTimes       out, m: number of distinct times of each stratum (censoring-only times count)
 *   nCensored    out, m: rows with status exactly 0 in each stratum
 *   blockStart   out, m x n: 1-based row of the first row of each distinct time's block
 *   blockSize    out, m x n: rows counted in that block
 *   blockEvents  out, m x n: events of that block (its size minus its rows with status 0)
 *   maxTimes     out: largest number of distinct times over the strata
 * Only the first nTimes[s] entries of row s of the block tables are written. Times are compared
 * by exact equality. Returns 0, -1, -2 or -3 (checks come before any sorting). */
VELKOR_API int Cpp_ReorganizeDataCox(double* time, int n, int p, double* status, double* col2,
                                     double* col3, double* x, double* strataKey,
                                     const double* strataSizes, int m, int* nTimes, int* nCensored,
                                     int* blockStart, int* blockSize, int* blockEvents,
                                     int* maxTimes);

/* The whole Cox regression run: preparation, Newton-Raphson fit from beta = 0 (or a variable
 * selection), model criteria, global tests and coefficient table.
 *   time, status  in, n: times and status (1 event, 0 censored)
 *   weights       in, n, or null (unit weights): case weights of the event terms
 *   x             in, n x p: covariates (column-major); not centred by this form
 *   strata        in, n, or null when m <= 1: stratum keys
 *   strataSizes   in, m, or null: rows of each stratum in ascending key order (null with m > 1:
 *                 counted from the keys)
 *   n, p, m       rows, covariate columns, strata
 *   ties          0 Breslow, 1 Efron (computed as Breslow, see above); another code computes no
 *                 likelihood (all statistics from a zero likelihood)
 *   maxIter       in/out: iteration limit (values below 1 count as 1); out: iterations of the
 *                 final fit
 *   tol           the fit stops when |L - L_previous| < tol, or when no coefficient moved by more
 *                 than tol after iteration 10, or at the limit
 *   selection     -1 none (also any value other than 0 and 1), 0 forward, 1 backward
 *   threshold     forward: entry when the likelihood-ratio p-value is <= threshold; backward:
 *                 removal unless the largest p-value is < threshold
 *   backStatistic backward: 0 Wald p-values, any other value likelihood-ratio p-values
 *   nVars         number of variables; variable v covers varCoefs[v] consecutive columns of x
 *                 (a qualitative variable coded as several columns enters and leaves as a whole).
 *                 nVars <= 0: one variable per column (V = p below, varCoefs may be null)
 *   varCoefs      in, nVars
 *   alpha         significance level of the hazard-ratio limits
 *   survRes       -1: also compute the survival function and residuals into the four outputs
 *                 (Breslow estimator at the final beta, whatever the ties code); otherwise the
 *                 four outputs are not touched
 *   survCols      columns of the survival outputs: column k is the stratum's k-th distinct time
 *                 (censoring-only times included); cells past a stratum's last time hold
 *                 VELKOR_MISSING
 *   beta          out, p: final coefficients (0 for columns left out by the selection)
 *   modelStats    out, 6 x 2: rows events used (n minus the censored count of the first stratum),
 *                 degrees of freedom, -2 log L, AIC, Schwarz criterion (with that same sample
 *                 size), iterations; column 1 null model, column 2 fitted model
 *   globalTests   out, 3 x 3: rows likelihood ratio, score, Wald; columns df, statistic, p-value
 *                 (likelihood-ratio p-value missing when the fit lost likelihood)
 *   coefTable     out, p x 9: beta, standard error, Wald chi-square, p-value, hazard ratio, lower
 *                 and upper limits (VELKOR_UNBOUNDED when beta + z se > 709), in-model flag (1/0),
 *                 selection step of the column's variable (0 when none)
 *   z             out: standard normal quantile at 1 - alpha / 2
 *   stepTable     out, V x 4: one row per selection step: variables in the model, statistic
 *                 (likelihood ratio entering; Wald or likelihood ratio leaving), p-value, variable
 *                 (1-based). Forward writes one row per entry; backward one row per removal plus
 *                 a last row holding only the final number of variables. Other rows untouched.
 *   variableStep  out, V: step at which each variable entered (forward) or left (backward), 0
 *   nFinal        out: number of variables in the final model
 *   baseSurvival  out, m x survCols, or null: baseline survival S0(t_k) = exp(-H0(t_k)),
 *                 H0(t_k) = sum over times t_l <= t_k of d_l / S_l, S_l = sum of exp(x_i' beta)
 *                 over the risk set (raw, uncentred covariates: R's basehaz(centered = FALSE))
 *   rowSurvival   out, n x survCols, or null: S0(t_k)^exp(x_i' beta), rows in sorted order,
 *                 each over the times of its own stratum
 *   meanSurvival  out, m x survCols, or null: S0(t_k)^exp(xbar' beta), xbar the covariate means
 *                 over all n rows (R's survfit(fit, newdata = means))
 *   residuals     out, n x (4 + 2p), or null: rows in sorted order (stratum, then time, ties in
 *                 input order); columns time, status, martingale delta_i - exp(eta_i) H0(t_i),
 *                 deviance sign(m) sqrt(2 (-m - delta log(delta - m))) (VELKOR_MISSING when
 *                 delta - m = 0, i.e. a row with no fitted hazard), p Schoenfeld residuals
 *                 delta_i (x_i - xbar(t_i)) (0 for censored rows), p score residuals
 *                 delta_i (x_i - xbar(t_i)) - exp(eta_i) sum_{t_k <= t_i} (x_i - xbar(t_k)) dH0_k
 *                 (R's residuals(type = "score") for Breslow ties). Columns of covariates left out
 *                 by a selection use beta_j = 0.
 * Cells without a value hold VELKOR_MISSING. Returns 0, -1, -2, -3 or -5. */
VELKOR_API int RunCoxReg(const double* time, const double* status, const double* weights,
                         const double* x, const double* strata, const double* strataSizes, int n,
                         int p, int m, int ties, int* maxIter, double tol, int selection,
                         double threshold, int backStatistic, int nVars, const int* varCoefs,
                         double alpha, short survRes, int survCols, double* beta,
                         double* modelStats, double* globalTests, double* coefTable, double* z,
                         double* stepTable, int* variableStep, int* nFinal, double* baseSurvival,
                         double* rowSurvival, double* meanSurvival, double* residuals);

/* Concordance index of eta = x beta (see ConcordIndex in velkor/cox_objects.h: strict times,
 * event required, tied eta not concordant; O(n log n)).
 *   time, status  in, n        x  in, n x p (column-major)   beta  in, p
 *   c             out: the index, VELKOR_MISSING when no pair is comparable
 *   nConcordant, nComparable  out, or null: the two counts
 * Returns 0 (n < 0 counts as 0), or VELKOR_E_NULL_ARRAY when c is null or an array of positive
 * length is null. */
VELKOR_API int Cpp_ConcordIndex(const double* time, const double* status, const double* x,
                                const double* beta, int n, int p, double* c, double* nConcordant,
                                double* nComparable);

/* One row of the quality-index table (see ComputeCVTable in velkor/cox_objects.h).
 *   time, status, x, beta, n, p  as Cpp_ConcordIndex
 *   a, b          the pair of column 3 (relative reduction (b - a) / b)
 *   modelStats    in, 6 x 2 (RunCoxReg's table: row 3 holds -2 log L, null then fitted)
 *   row           1-based row to fill; tableRows rows in table
 *   table         in/out, tableRows x 5: only row `row` is written (nothing when out of range)
 * Returns 0, or VELKOR_E_NULL_ARRAY when an array of positive length (modelStats included) is
 * null. */
VELKOR_API int Cpp_ComputeCVTable(const double* time, const double* status, const double* x,
                                  const double* beta, int n, int p, double a, double b,
                                  const double* modelStats, int row, int tableRows, double* table);

/* Bootstrap summary of B replicates of `cols` statistics (see ComputeBootOut).
 *   reps      in, B x cols (column-major); missing or non-finite cells are failed replicates
 *   estimate  in, cols, or null: the estimates on all rows (column 1 of out)
 *   alpha     level of the percentile interval
 *   out       out, cols x 6: estimate, mean, standard error, lower, upper, replicates used
 * Returns 0, or VELKOR_E_NULL_ARRAY when reps (B cols > 0) or out (cols > 0) is null. */
VELKOR_API int Cpp_ComputeBootOut(const double* reps, int B, int cols, const double* estimate,
                                  double alpha, double* out);

#ifdef __cplusplus
}
#endif

#endif /* VELKOR_COX_H */
