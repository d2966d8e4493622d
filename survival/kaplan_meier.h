// Product-limit (Kaplan-Meier), actuarial life-table and Nelson-Aalen estimators of one group, and
// the driver that runs the chosen estimator over every group block.
//
// The product-limit table (also the life table's layout) has one row per distinct time plus the
// origin row 0; table row j lives in matrix row j + 1 of an R x 12 matrix<double>:
//   col 1  time t_j (life table: interval start a_j)          row 0: 0
//   col 2  - (life table: interval end b_j)                    row 0: 0
//   col 3  number at risk n_j before the row's events and censorings
//   col 4  events d_j (sum of event weights, or counts)
//   col 5  censored c_j
//   col 6  number at risk used by the estimate n'_j (= col 3; life table: n_j - c_j / 2)
//   col 7  conditional survival p_j = 1 - d_j / n'_j          row 0: 1
//   col 8  survival S_j = p_j S_(j-1)                         row 0: 1
//   col 9  density (S_(j-1) - S_j) / (t_next - t_j)
//   col 10 - (life table: hazard)                              row 0: 0
//   col 11 Greenwood sum G_j = sum_(k <= j, p_k > 0) (1 - p_k) / (p_k n'_k)   row 0: 0
//   col 12 - (life table: standard error of the hazard)        row 0: 0
// Var(S_j) = S_j^2 G_j (Greenwood 1926).
#pragma once

#include <cstdint>

#include "velkor/containers.h"
#include "velkor/survival_objects.h"

namespace km_col {
inline constexpr int kTime = 1, kEnd = 2, kAtRisk = 3, kEvents = 4, kCensored = 5, kRiskUsed = 6,
                     kCondSurv = 7, kSurv = 8, kDensity = 9, kHazard = 10, kGreenwood = 11,
                     kHazardSE = 12, kCount = 12;
}  // namespace km_col

// ComputeKaplanMeier: product-limit table of the block offset .. offset + n - 1 of the sorted
// arrays (ascending time within the block).
//   grouped   -1: status holds the number of events and weights the number censored of each
//             row; otherwise each row is one observation, an event when status == eventCode
//             (its weight goes to d_j) and censored otherwise (its weight goes to c_j);
//   total     out: initial number at risk N: grouped, sum of events + censored; individual, n
//             itself. The weights do not enter N although they enter d_j and c_j: this asymmetry
//             is deliberate and kept (with unit weights both agree);
//   table     out: R x 12 as above; cells the estimator does not write are left as they were
//             (columns 2, 10, 12 of rows >= 1; column 9 of censored-only rows); rows beyond R are
//             absorbed by the matrix's spare element;
//   rows      out: index of the last table row written (0 when n < 1);
//   workspace n x 2 out (may be null): column 1 the time of each observation, column 2 the time
//             of the next one (the last observation: its own time + 1).
// Rules: ties are runs of equal times (strictly-greater test, so a NaN time joins the run before
// it); events and censorings at one time share a row and censored rows are at risk at their own
// time; a censored-only row repeats the previous p, S and G (column 7 repeats the previous
// conditional survival, not 1); the scan stops at the first row whose n'_j is not positive,
// which keeps its counts. Returns rows. Cost O(n).
VELKOR_API int ComputeKaplanMeier(std::uint32_t offset, int n, short grouped, int eventCode,
                                  matrix<double>* times, matrix<double>* status,
                                  matrix<double>* weights, double& total, matrix<double>* table,
                                  std::uint32_t& rows, matrix<double>* workspace);

// ComputeLife: actuarial (Cutler-Ederer) life table of the same block, in the layout above.
// Intervals [a_j, b_j) of equal width w start at 0: a_j = (j - 1) w. `width` <= 0 or not finite
// chooses w = (largest finite time of the block) / 10 (1 when that time is not positive).
// There are floor(t_max / w) + 1 intervals, at most R - 1 (the table's capacity): the last
// interval then also holds every later time. Times below 0 count in the first interval, NaN
// times are left out. Per interval:
//   col 3 N_j entering (N_1 = sum of weights, or of events + censored when grouped),
//   col 4 d_j, col 5 c_j (withdrawn), col 6 effective number at risk n'_j = N_j - c_j / 2,
//   col 7 p_j = 1 - d_j / n'_j (1 when n'_j <= 0), col 8 S(b_j) = prod p (survival at the end
//   of the interval; survival at its start is the previous row's), col 9 density
//   f_j = (S(a_j) - S(b_j)) / w, col 10 hazard h_j = d_j / (w (n'_j - d_j / 2)),
//   col 11 Greenwood sum over intervals k <= j of q_k / (n'_k p_k) (p_k > 0),
//   col 12 SE(h_j) = h_j sqrt(1 - (h_j w / 2)^2) / sqrt(d_j) (0 when d_j = 0).
// The standard errors of S(b_j) = S sqrt(G_j) and of the density
// f_j sqrt(G_(j-1) + p_j / (n'_j q_j)) follow from the columns (Gehan 1969; Collett 2015 §2.1).
// Returns the number of intervals (rows). Cost O(n + rows).
VELKOR_API int ComputeLife(std::uint32_t offset, int n, short grouped, int eventCode,
                           matrix<double>* times, matrix<double>* status, matrix<double>* weights,
                           double& total, matrix<double>* table, std::uint32_t& rows, double width);

// cRunLife: the estimator of every group block.
//   times, status, weights: n x 1 in, arranged by cReorganizeData;
//   groupSizes 1 x nGroups (sizes as in cReorganizeData; nGroups <= 0: one block of n rows);
//   lifeTable -1: ComputeLife with interval width `width`; otherwise ComputeKaplanMeier;
//   blockRows R: rows of each group's table (at least the group size + 1 for Kaplan-Meier);
//   tables    out: max(nGroups, 1) tables of R x 12, table g (0-based) at linear elements
//             [g R 12, (g + 1) R 12), each column-major; pre-filled with the missing-value marker
//             so that cells no estimator writes are recognisable;
//   lastRows  out, one per group: index of the last table row; totals out: initial number at risk.
// Returns 0 (data conditions are reported by cReorganizeData). Cost O(n + groups x R).
VELKOR_API int cRunLife(matrix<double>* times, matrix<double>* status, matrix<double>* weights,
                        int n, matrix<double>* groupSizes, int nGroups, short grouped,
                        int eventCode, short lifeTable, double width, int blockRows,
                        matrix<double>* tables, matrix<double>* lastRows, matrix<double>* totals);

// TransNelsonAalen: Nelson-Aalen cumulative hazard from a finished product-limit table of T rows
// (rows 1 .. T of `km`, origin excluded). Output T x 9, row i for product-limit row i:
//   col 1 time, col 2 n'_i, col 3 d_i, col 4 c_i,
//   col 5 H_i = sum_(k <= i) d_k / n'_k,
//   col 6 Var(H_i), increments by method: 1 (or any row with n' = 1) d / n'^2 (Aalen);
//         2: (n' - d) d / n'^3 (Greenwood-type); other: (n' - d) d / (n'^2 (n' - 1)) (Klein 1991),
//   col 7 SE(H_i) = sqrt(Var),
//   col 8, 9 lower and upper limits of the log-transformed interval
//         H exp(-+ z SE / H), z = Phi^-1(1 - alpha / 2) (Klein & Moeschberger 2003, §4.2): always
//         positive, and mapped through S = exp(-H) it is the "log-log" interval of the survival
//         curve (R's survfit(conf.type = "log-log")).
// Rows before the first event row hold the missing-value marker in columns 5 to 9; a later row
// without events (or whose n' is not positive) copies columns 5 to 9 of the row before.
// Returns 0. Cost O(T).
VELKOR_API int TransNelsonAalen(matrix<double>* km, int T, double alpha, int method,
                                matrix<double>* na);
