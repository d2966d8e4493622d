/* Flat entry points of the competing-risks family (see VELKORLI1M.h for the shared conventions):
 * data preparation with an all-cause status, cumulative incidence of one cause with its standard
 * error, log-transformed interval and complement table, and Gray's K-sample test.
 *
 * A competing-risks analysis, step by step:
 *   1. Cpp_CheckStatusFormat (velkor/survival.h) recodes the status column: causes 1, 2, ... in
 *      order of first appearance, 0 censored.
 *   2. Cpp_ReorganizeDataCum orders the rows into ascending group-label blocks, each ascending in
 *      time, and derives the all-cause status (1 any cause, 0 censored).
 *   3. For each group block (0-based offset, size n_g), the all-cause product-limit table from
 *      RunLife (velkor/survival.h) on the block's times and all-cause statuses, event code 1, unit
 *      weights, with blockRows = n_g + 2; its last row is the number T of distinct times.
 *   4. Cpp_CumIncCalc for each cause and group: incidence and complement tables of T rows.
 *   5. Cpp_GrayTest between the groups, for every cause at once.
 *
 * Status codes: Cpp_ReorganizeDataCum returns -2 (fewer than two rows; nothing written), -3 (no
 * event: the status column sums to 0; warning, outputs complete), -5 (every row is cause 1;
 * warning), else 0. Cpp_CumIncCalc returns 0 for any data. Cpp_GrayTest returns -2 (fewer than two
 * usable rows; nothing written), else 0. Positive codes: internal failure, nothing written.
 */
#ifndef VELKOR_COMPETING_H
#define VELKOR_COMPETING_H

#include "velkor/export.h"
#include "velkor/status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Cpp_ReorganizeDataCum: orders competing-risks data and derives the all-cause status.
 *   times      in/out, n: observation times; reordered;
 *   n          number of rows;
 *   status     in/out, n: cause numbers (0 censored); reordered with the times; no range check;
 *   allCause   out, n: 0 where the reordered status is 0, else 1 (the status from which the
 *              all-cause product-limit table is built);
 *   groups     in/out, n: group label of each row; reordered into ascending label blocks;
 *   groupSizes in, nGroups: size of each block in ascending label order (not finite or negative:
 *              0; blocks are clipped to n);
 *   nGroups    number of groups: with more than one the rows are grouped by label first; each of
 *              the nGroups blocks is then sorted by time (nGroups <= 0: no ordering at all);
 *   maxTime    out, 1: the largest time.
 * Sorting is stable: equal labels, and equal times within a block, keep their input order; NaN
 * times go last in their block.
 * Returns -2 (n < 2; nothing written), or after the ordering -3 (status sums to 0), -5 (status
 * sums to n and is constant), else 0. */
VELKOR_API int Cpp_ReorganizeDataCum(double* times, int n, double* status, double* allCause,
                                     double* groups, const double* groupSizes, int nGroups,
                                     double* maxTime);

/* Cpp_CumIncCalc: cumulative incidence of one cause in one group block.
 *   T            number of distinct times of the group (the last row of its product-limit table);
 *   nAll         rows of times and status (all groups);
 *   times        in, nAll: times ordered by Cpp_ReorganizeDataCum;
 *   status       in, nAll: cause numbers ordered likewise;
 *   cause        the cause; compared with status as a double, by exact equality;
 *   alpha        significance level of the interval (0.05: 95 %);
 *   n            size of the group block; offset: its 0-based first row;
 *   productLimit in, (n + 2) x 12: the group's all-cause product-limit table (RunLife layout:
 *                table row j, 0 = origin, in row j + 1; column 1 time, 4 events, 5 censored,
 *                6 number at risk, 8 survival);
 *   incidence    in/out, T x 10: column 3 is added to (pass zeros); columns: 1 time t_i, 2 number
 *                at risk n_i, 3 failures from the cause e_i (unweighted count), 4 events of all
 *                causes d_i, 5 censored c_i, 6 cumulative incidence F_i, 7 standard error,
 *                8 lower and 9 upper limit of the log-transformed interval F exp(-+ z SE / F)
 *                (not clipped to [0, 1]), 10 overall failure probability 1 - S_i;
 *   complement   out, T x 10: the incidence table in which, from the first row with e_i > 0,
 *                column 6 is 1 - F_i, 8 is 1 - upper, 9 is 1 - lower, 10 is S_i (column 8 of
 *                product-limit row i); marker cells stay the marker.
 * Estimator: F_i = F_(i-1) + e_i S_(i-1) / n_i (Aalen-Johansen). Standard error: delta method,
 *   Var_i = sum_{j <= i, n_j > d_j} [ d_j (F_i - F_j)^2 / (n_j (n_j - d_j))
 *           + S_(j-1)^2 e_j (n_j - e_j) / n_j^3 - 2 (F_i - F_j) S_(j-1) e_j / n_j^2 ],
 *   except on the first row with e > 0, whose variance is (n - e) e / n^3 without the S^2 factor
 *   (deliberate). This is not the variance of R's cmprsk::cuminc (Gray's estimator, with a tie
 *   correction); the estimates F_i are the same.
 * Rows before the first e_i > 0 hold VELKOR_MISSING in columns 6 to 10; later rows with e_i = 0
 * repeat columns 6 to 10 of the row before (column 10 too: it keeps 1 - S of the last row with a
 * failure from the cause, while the complement's column 10 reads S_i of its own row). A cause that
 * never occurs leaves rows 1 .. T-1 blank and row T with VELKOR_MISSING in columns 6, 8, 9, 10
 * and 0 in column 7 (when column 7 was passed as 0). Rows beyond the product-limit table (T > n+1)
 * get VELKOR_MISSING in columns 1, 2, 4, 5 and repeat the estimate; alpha outside (0, 1) gives
 * VELKOR_MISSING limits. Cost O(nAll + T).
 * Returns 0 (positive on internal failure). */
VELKOR_API int Cpp_CumIncCalc(int T, int nAll, const double* times, const double* status, int cause,
                              double alpha, int n, int offset, const double* productLimit,
                              double* incidence, double* complement);

/* Cpp_GrayTest: Gray's (1988) K-sample test of equal cumulative incidence of a cause across
 * groups, stratified, with weight (1 - F(t-))^rho; the statistic of R's cmprsk::cuminc "Tests".
 *   times    in, n: observation times (any order);
 *   status   in, n: 0 censored, c >= 1 failure from cause c; any other value is a failure from an
 *            untested cause (a competing failure for every tested cause);
 *   groups   in, n: group labels; the K groups are the distinct labels in ascending order;
 *   strata   in, n, or NULL for one stratum: stratum labels; scores and variances are summed
 *            over strata;
 *   n        number of rows; a row with a missing (<= VELKOR_MISSING) or NaN time, status, group
 *            or stratum is left out;
 *   cause    >= 1: test this cause only (row `cause` of the outputs, which must be <= nCauses);
 *            <= 0: test every cause 1 .. nCauses;
 *   rho      weight exponent (0: the usual unweighted test; > 0 stresses later differences);
 *   nCauses  number of causes: rows of `tests`, columns of `scores` and `variance`;
 *   nGroups  number of groups K expected in the data; sizes `scores` and `variance`;
 *   tests    out, nCauses x 3: statistic s' V^-1 s, degrees of freedom K - 1, p-value (upper tail
 *            of chi-square with K - 1 df); statistic and p-value are VELKOR_MISSING when K < 2,
 *            when K > 256 (the variance costs O(K^3) per distinct time; so many labels are not a
 *            grouping; scores and variance are then not written) or when V is singular (for
 *            instance a cause without any failure);
 *   scores   out, (nGroups - 1) x nCauses, or NULL: score of each of the first K - 1 groups
 *            (observed minus expected weighted failures from the cause);
 *   variance out, (nGroups - 1)^2 x nCauses, or NULL: column c holds the (K-1) x (K-1)
 *            covariance matrix V of cause c's scores, column-major.
 * If the data hold another number of groups than nGroups, the test uses the data's groups and
 * the scores and variances are written in the data's (K - 1) layout, clipped to the arrays.
 * Returns -2 (fewer than two usable rows; nothing written), else 0.
 * Cost O(n + T K^3) per cause after an O(n) ordering (T distinct times). */
VELKOR_API int Cpp_GrayTest(const double* times, const double* status, const double* groups,
                            const double* strata, int n, int cause, double rho, int nCauses,
                            int nGroups, double* tests, double* scores, double* variance);

#ifdef __cplusplus
}
#endif

#endif /* VELKOR_COMPETING_H */
