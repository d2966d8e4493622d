/* Flat entry points of the descriptive survival family (see VELKORLI1M.h for the shared
 * conventions): data preparation, product-limit / life-table / Nelson-Aalen estimators, chart
 * series, comparison tests, mean and quartiles.
 *
 * A typical analysis: ReorganizeData (groups in ascending label blocks, each ascending in time)
 * -> RunLife (one product-limit table per group) -> Cpp_TransNelsonAalen, Cpp_PrepareKaplanCharts,
 * Cpp_ComputeKaplanMeanMedian per group -> LoadKaplanTest + ComputeLifeTests (+
 * Cpp_ComputeMultComp) when there are two groups or more.
 *
 * Product-limit table ("PL table"): R rows x 12 columns, column-major, table row j (0 = origin)
 * in row j + 1. Columns: 1 time t_j (life table: interval start), 2 life table: interval end,
 * 3 number at risk n_j, 4 events d_j, 5 censored c_j, 6 number at risk used n'_j (life table:
 * n_j - c_j / 2), 7 conditional survival p_j, 8 survival S_j, 9 density, 10 life table: hazard,
 * 11 Greenwood sum G_j (Var S_j = S_j^2 G_j), 12 life table: standard error of the hazard.
 * Stacked tables: G tables of R x 12, table g (0-based) at elements [g*R*12, (g+1)*R*12).
 *
 * Data conditions common to the family (velkor/status.h): -1 a status outside [0, 1], -2 fewer
 * than two observations, -3 no event (warning), -5 every observation an event (warning).
 * Positive codes: internal failure, nothing written. Functions that document no negative code
 * return 0 for any data; sizes that do not fit the arrays are clipped, and cells that cannot be
 * placed are dropped (never written outside the caller's arrays).
 *
 * Bad input, what each case gives (no other negative code is ever returned):
 *   n = 0 or 1          ReorganizeData -2 (-1 first when a status is out of range);
 *                       Cpp_CheckStatusFormat -1 for n = 0; RunLife: tables with the origin row
 *                       only (n = 0) or one row (n = 1), status 0.
 *   NaN time            sorted last in its block; the product-limit estimator joins it to the run
 *                       before it (ties end at the first strictly greater time) and the life table
 *                       leaves it out.
 *   +-infinite time     an ordinary value in the ordering; densities next to it are 0 or NaN.
 *   missing-value marker in a time: an ordinary (very small) value, sorted first; callers drop such
 *                       rows before the analysis (the velkor tool does).
 *   missing-value marker in a status: ReorganizeData -1 (it is below 0); a NaN status passes the
 *                       range test and counts as censored.
 *   negative weights    taken as given (counts and the estimate follow the formulas; no status).
 *   group sizes that do not add up to n: blocks are clipped at n, later groups get 0 rows; rows
 *                       after the last block are not ordered by time and belong to no group.
 *   a group offset beyond n: an empty group (lastRows 0, only the origin row).
 *   null array with a positive length: VELKOR_E_NULL_ARRAY (3), nothing written.
 */
#ifndef VELKOR_SURVIVAL_H
#define VELKOR_SURVIVAL_H

#include "velkor/export.h"
#include "velkor/status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ReorganizeData: checks the status column and orders the rows into contiguous group blocks
 * (ascending label) each ascending in time (stable: ties keep their input order; NaN times last
 * in their block).
 *   times      in/out, n: observation times;
 *   n          number of rows;
 *   status     in/out, n: 1 event / 0 censored (grouped = -1: number of events of the row);
 *   weights    in/out, n: case weights (grouped = -1: number censored of the row);
 *   groups     in/out, n: group label of each row;
 *   groupSizes in, nGroups: size of each block in ascending label order (non-finite or negative
 *              sizes count 0; blocks are clipped to n);
 *   nGroups    number of groups; <= 0 skips the ordering;
 *   grouped    -1: counts mode, no status range check;
 *   maxTime    out, 1: largest time (written when the ordering ran, i.e. status 0, -3 or -5).
 * Returns -1 (some status < 0 or > 1, missing-value markers included; checked first), -2
 * (n < 2), else -3 / -5 / 0 with the arrays reordered. Nothing is written with -1 or -2. */
VELKOR_API int ReorganizeData(double* times, int n, double* status, double* weights, double* groups,
                              const double* groupSizes, int nGroups, short grouped,
                              double* maxTime);

/* Cpp_CheckStatusFormat: recodes a multi-cause status column for the competing-risks analyses.
 *   status in, n; codes out, n: distinct non-censoring codes in order of first appearance
 *   (first *nCodes cells written); nCodes out; censorCode: value of a censored row;
 *   recoded out, n: 0 censored, m = position of the row's code in `codes`. The first row keeps
 *   its value when it is censored (it is not revisited; deliberate).
 * Returns -1 when every value equals the censoring code (or n < 1; outputs untouched), else 0. */
VELKOR_API int Cpp_CheckStatusFormat(const double* status, int n, double* codes,
                                     unsigned int* nCodes, int censorCode, double* recoded);

/* RunLife: the estimator of every group block of data arranged by ReorganizeData.
 *   times, status, weights in, n; groupSizes in, nGroups (nGroups <= 0: one block of n rows);
 *   grouped -1: counts mode; eventCode: status value of an event (individual mode);
 *   lifeTable -1: actuarial life table with intervals of width `width` from 0 (width <= 0: the
 *   block's largest time / 10), else Kaplan-Meier; blockRows R: rows per group table (Kaplan-
 *   Meier needs the group size + 1; a life table the number of intervals + 1, fewer rows merge
 *   the later times into the last interval);
 *   tables out, max(nGroups,1) * R * 12: stacked PL tables, pre-filled with VELKOR_MISSING;
 *   lastRows out, max(nGroups,1): last table row of each group (0 for an empty group);
 *   totals out, max(nGroups,1): initial number at risk (Kaplan-Meier individual mode: the number
 *   of rows, whatever the weights: deliberate; life table and counts mode: the sum of weights or
 *   counts).
 * Returns 0. */
VELKOR_API int RunLife(const double* times, const double* status, const double* weights, int n,
                       const double* groupSizes, int nGroups, short grouped, int eventCode,
                       short lifeTable, double width, int blockRows, double* tables,
                       double* lastRows, double* totals);

/* Cpp_TransNelsonAalen: Nelson-Aalen cumulative hazard from one PL table.
 *   table in, tableRows x 12 (one PL table); T: its last row (rows 1..T are used);
 *   alpha: significance level; method: variance 1 Aalen d/n^2, 2 (n-d)d/n^3, other
 *   (n-d)d/(n^2(n-1)) (a row with n = 1 always uses d/n^2);
 *   na out, T x 9: time, n', d, c, H, Var(H), SE(H), lower, upper of the log-transformed interval
 *   H exp(-+ z SE/H). Rows before the first event: columns 5-9 VELKOR_MISSING; later rows without
 *   events carry the previous values. Returns 0. */
VELKOR_API int Cpp_TransNelsonAalen(const double* table, int tableRows, int T, double alpha,
                                    int method, double* na);

/* Cpp_PrepareKaplanCharts: chart series of one PL table (T = rows).
 *   table in, tableRows x 12; rows: last PL row T; hazardOpt, logLogOpt, failureOpt: -1 on;
 *   startX: x of the second origin point; alpha; markerMode: 1 censored markers on every
 *   censored row of the hazard and log-log series, other: only rows with events too;
 *   main out, mainPoints x 7 (2T + 1 needed): x, lower, upper, S, 1 - S, censored marker on S,
 *   censored marker on 1 - S; band S -+ z S sqrt(G) clipped to [0, 1];
 *   hazard, logLog out, curvePoints x 3 each (2T - 1 needed): x, -ln S, marker / ln x,
 *   ln(-ln S), marker. Every cell without a value is VELKOR_MISSING. Returns 0. */
VELKOR_API int Cpp_PrepareKaplanCharts(const double* table, int tableRows, int rows,
                                       short hazardOpt, short logLogOpt, short failureOpt,
                                       double startX, double alpha, int markerMode, double* main,
                                       int mainPoints, double* hazard, double* logLog,
                                       int curvePoints);

/* Cpp_Build_Summary: one line per group from stacked PL tables.
 *   tables in, nGroups * blockRows * 12; lastRows in, nGroups; totals in, nGroups;
 *   summary out, nGroups x 6: initial number at risk, events, censored, percent censored
 *   (100 c / (d + c); VELKOR_MISSING when d + c = 0), first time, last time (VELKOR_MISSING for
 *   an empty group). Returns 0. */
VELKOR_API int Cpp_Build_Summary(const double* tables, int blockRows, int nGroups,
                                 const double* lastRows, const double* totals, double* summary);

/* Cpp_Build_WeightedSummary: weighted counts per group from the ordered data.
 *   times, status, weights in, n; groupSizes in, nGroups (<= 0: one group); eventCode;
 *   summary out, max(nGroups,1) x 5: rows, sum of weights, weighted events, weighted censored,
 *   weighted percent censored (VELKOR_MISSING when the sum of weights is 0). Returns 0. */
VELKOR_API int Cpp_Build_WeightedSummary(const double* times, const double* status,
                                         const double* weights, int n, const double* groupSizes,
                                         int nGroups, int eventCode, double* summary);

/* LoadKaplanTest: merges the groups' PL tables into the combined table of the tests.
 *   count in/out: in, the columns of `combined`; out, the number of distinct times T;
 *   tables in, G * blockRows * 12 (stacked PL tables); lastRows in, G;
 *   combined out, (3G + 1) x count: row 1 the distinct times ascending; for group k (1-based)
 *   rows 3k-1 number at risk, 3k events, 3k+1 censored at each time (a group without an
 *   observation at a time: 0 events, 0 censored, the number still at risk).
 * Returns 0. */
VELKOR_API int LoadKaplanTest(int* count, const double* tables, int G, int blockRows,
                              const double* lastRows, double* combined);

/* ComputeLifeTests: log-rank, Gehan-Wilcoxon and Tarone-Ware tests of equal survival of G groups.
 *   combined in, (3G + 1) x T (LoadKaplanTest); alpha: significance level;
 *   results out, 3 x 4: rows log-rank, Gehan, Tarone-Ware; columns X^2 (G - 1 df), critical
 *   value, p-value, alpha. G < 2: columns 1-3 VELKOR_MISSING. Returns 0. */
VELKOR_API int ComputeLifeTests(const double* combined, int T, int G, double alpha,
                                double* results);

/* Cpp_ComputeMultComp: pairwise comparisons of G groups with the three tests.
 *   combined in, (3G + 1) x T; alpha;
 *   results out, 3P x 7, P = G(G-1)/2 pairs (1,2), (1,3), ..., (G-1,G); row 3(p-1) + k for pair p
 *   and test k (1 log-rank, 2 Gehan, 3 Tarone-Ware): group a, group b, k, X^2 (1 df), p-value,
 *   Bonferroni p, Holm p (within each test). G < 2: nothing written. Returns 0. */
VELKOR_API int Cpp_ComputeMultComp(const double* combined, int T, int G, double alpha,
                                   double* results);

/* Cpp_ComputeKaplanMeanMedian: restricted mean and quartiles of one PL table.
 *   table in, tableRows x 12; nRows: rows used including the origin (T + 1); alpha;
 *   k: the mean's limits are computed when k >= 2 (pass the number of observations);
 *   cap out, 1: bound of the mean's area (0 when the curve reaches 0);
 *   mean out, 4: mean, SE, lower, upper;
 *   quartiles out, 3 x 4: label (0.75, 0.5, 0.25), time where S falls to 0.25 / 0.5 / 0.75,
 *   lower, upper. Unreached values VELKOR_MISSING. Returns 0. */
VELKOR_API int Cpp_ComputeKaplanMeanMedian(const double* table, int tableRows, int nRows,
                                           double alpha, int k, double* cap, double* mean,
                                           double* quartiles);

#ifdef __cplusplus
}
#endif

#endif /* VELKOR_SURVIVAL_H */
