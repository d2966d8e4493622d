// Competing risks: data preparation with an all-cause status column (ReorganizeDataCum) and the
// cumulative incidence of one cause in one group with its standard error, log-transformed
// interval and complement table (CumIncCalc).
//
// With K competing causes of failure, the cumulative incidence of cause k is
//   F_k(t) = P(T <= t, cause = k) = sum_{t_j <= t} S(t_j-) e_j / n_j,
// S being the all-cause product-limit survival, e_j the failures from cause k at t_j and n_j the
// number at risk (Kalbfleisch & Prentice 1980; the Aalen-Johansen estimator with one
// transient state). 1 - S is not the incidence of any one cause.
#pragma once

#include "velkor/containers.h"

namespace velkor::competing {

// Columns of the incidence and complement tables (1-based).
namespace cif_col {
inline constexpr int kTime = 1, kAtRisk = 2, kCauseEvents = 3, kAllEvents = 4, kCensored = 5,
                     kIncidence = 6, kStdErr = 7, kLower = 8, kUpper = 9, kOverall = 10,
                     kCount = 10;
}  // namespace cif_col

// ReorganizeDataCum: orders competing-risks data into the survival layout and derives the all-cause
// status column.
//   times      n x 1, in/out: observation times; reordered;
//   n          number of rows (clipped to the rows of each column);
//   status     n x 1, in/out: cause numbers (0 censored, 1, 2, ... as recoded by
//              CheckStatusFormat); reordered with the times; no range check (they are codes);
//   allCause   n x 1, out: 0 where the (reordered) status is 0, else 1;
//   groups     n x 1, in/out: group label of each row; reordered into ascending label blocks;
//   groupSizes row 1, column g: size of block g in ascending label order; a size that is not
//              finite or is negative counts 0; blocks are clipped to row n;
//   nGroups    number of groups; with more than one the rows are first grouped by label; the
//              time sort runs over blocks g = 1 .. nGroups (none when nGroups <= 0);
//   maxTime    out: largest of the n times.
// Statuses: -2 when n < 2 (nothing done); otherwise, after the ordering, -3 when the status
// column sums to 0, -5 when it sums to n and is constant (every row cause 1), else 0.
// Both sorts are the stable SortQ: the label sort carries times and status, each block's time
// sort carries status and labels; ties keep their input order, NaN times go last in their block.
// Helpers: V_Sum2, V_IsConstant, SortQ, InitVectorToFalse, V_Max. Cost O(n) (radix sort).
int ReorganizeDataCum(matrix<double>* times, int n, matrix<double>* status,
                      matrix<double>* allCause, matrix<double>* groups, matrix<double>* groupSizes,
                      int nGroups, double& maxTime);

// CumIncCalc: incidence of `cause` in one group block, and its complement table.
//   T            number of distinct times of the group (rows 1 .. T of the product-limit table);
//   times,status all rows of all groups, ordered by ReorganizeDataCum (status: cause numbers);
//   cause        compared with the status values as a double, by exact equality;
//   alpha        significance level of the interval, z = Phi^-1(1 - alpha / 2);
//   n, offset    size and 0-based first row of the group block;
//   productLimit all-cause product-limit table of the group: table row j (0 = origin) in matrix
//                row j + 1; column 1 time, 4 events d_j, 5 censored c_j, 6 number at risk n_j,
//                8 survival S_j;
//   incidence    T x 10 in/out (column 3 is added to: pass zeros), complement T x 10 out.
// Incidence columns: 1 t_i, 2 n_i, 3 e_i (unweighted count of rows with status == cause),
// 4 d_i, 5 c_i, 6 F_i, 7 SE(F_i), 8 lower, 9 upper, 10 overall failure 1 - S_i.
// With f the first row with e_f > 0 (T when none):
//   rows 1 .. f-1   columns 6-10 hold the missing-value marker;
//   F_f = e_f S_(f-1) / n_f, Var_f = (n_f - e_f) e_f / n_f^3 (no S_(f-1)^2 factor: deliberate,
//                   the first row's variance is kept in this form);
//   F_i = F_(i-1) + e_i S_(i-1) / n_i, and for i > f the delta-method variance
//   Var_i = sum_{j=f..i, n_j > d_j} [ d_j (F_i - F_j)^2 / (n_j (n_j - d_j))
//                                     + S_(j-1)^2 e_j (n_j - e_j) / n_j^3
//                                     - 2 (F_i - F_j) S_(j-1) e_j / n_j^2 ]
//   (a delta-method form, cf. Marubini & Valsecchi 1995 on competing risks; rows with n_j = d_j
//   contribute nothing at all);
//   limits F exp(-+ z SE / F) (log-transformed, not clipped to [0, 1]); SE = sqrt(Var) when
//   Var > 0, else 0; a row with e_i = 0 repeats columns 6-10 of the row before it (column 10 too,
//   so it keeps 1 - S of the last row with an event of the cause).
// Complement: a copy of the incidence in which rows f .. T get 1 - F in column 6, 1 - upper in
// column 8, 1 - lower in column 9 and the all-cause survival S_i of product-limit row i in
// column 10; cells holding the marker stay the marker.
// Out-of-contract input never faults: rows of the product-limit table beyond its matrix give the
// marker in columns 1, 2, 4, 5 and are treated as rows without events; for T = 1 without an
// event of the cause row 1 takes the marker; a non-finite z gives marker limits; rows past the
// incidence matrix's own rows are not computed (they could only reach its spare element).
// Helper: InvCDFNormalStd. Cost O(n + T): the variance sum is evaluated by running sums (see the
// .cpp), not in O(T^2).
void CumIncCalc(int T, matrix<double>* times, matrix<double>* status, int cause, double alpha,
                int n, int offset, matrix<double>* productLimit, matrix<double>* incidence,
                matrix<double>* complement);

}  // namespace velkor::competing
