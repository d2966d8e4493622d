// Restricted mean survival time and the three quartiles of the survival time, with confidence
// limits, from one group's product-limit table.
#pragma once

#include <cstdint>
#include <vector>

#include "survival/kaplan_meier.h"
#include "velkor/containers.h"
#include "velkor/survival_objects.h"

// ComputeKaplanMeanMedian.
//   table   product-limit table (layout of survival/kaplan_meier.h): rows 0 .. nRows - 1 used,
//           origin included (nRows = T + 1 for a table of T time rows); reads columns 1 time,
//           4 events, 6 number at risk, 8 survival, 11 Greenwood sum;
//   alpha   significance level; k: the mean's limits are computed only when k - 1 >= 1 (the
//           caller passes the number of observations);
//   cap     out: the bound of the mean's area, 0 when the curve reaches 0;
//   mean    out, 4 x 1: mean, standard error, lower, upper;
//   quartiles out, 3 x 4: label (0.75, 0.5, 0.25), quartile time, lower, upper; row 1 is the time
//           at which S falls to 0.25, row 2 to 0.5, row 3 to 0.75.
// Time cap: when the last survival exceeds 2.220446049250313e-16, cap = t_j of each censored-only
// row j (j = 2 .. T) whose previous row's time exceeds the cap so far. Within a run of
// consecutive censored-only rows the cap therefore moves on every second row (deliberate).
// Mean: mu = t_1 + sum_(j = 1 .. T-1, t_(j+1) < cap or cap = 0) (t_(j+1) - t_j) S_j, the area under
// the step curve up to tau = the last t_(j+1) taken (t_1 when none).
// Standard error (Kaplan & Meier 1958; Klein & Moeschberger 2003, eq. 4.5.1, as R's survfit
// prints for rmean): Var(mu) = sum_(event rows j, t_j < tau, n_j > d_j) A_j^2 d_j / (n_j (n_j -
// d_j)), A_j = integral_(t_j)^(tau) S(u) du. Limits mu -+ z SE, z = Phi^-1(1 - alpha / 2), the
// lower one clipped at 0. Quartiles, p = 0.25, 0.5, 0.75: missing when the last S exceeds p;
// otherwise over rows j = 1 .. T (later matches overwrite): |S_j - p| < eps gives (t_j + t_(j+1)) /
// 2; S_j >= p > S_(j+1) with events at j + 1 gives t_(j+1). Limits from the squared Greenwood test
// (S_j - p)^2 <= S_j^2 c G_j, c = InvCDFChiSq(1 - alpha, 1): lower = t_j of the first row passing
// it; upper = t_(j+1) for the first row j >= 2 passing it, with t_j > 0, whose next row fails it.
// Defaults: no quartile, missing; no lower limit, 0 when t_1 > 0 (else missing); no upper limit,
// t_T when positive (else missing).
// Decision: row T + 1 does not exist. A curve that stays at exactly p after its last row T gives
// the quartile t_T, and a curve still inside the band at its last row has no upper limit from
// the scan (the default t_T applies).
// Returns 0 (nRows < 2: every output is the missing-value marker, cap 0). Cost O(T).
VELKOR_API int ComputeKaplanMeanMedian(matrix<double>* table, double alpha, int k, int nRows,
                                       double& cap, matrix<double>* mean,
                                       matrix<double>* quartiles);

// The five columns (0-based) the mean and quartiles read: time, survival, events, number at risk
// used, Greenwood sum.
inline const std::vector<std::uint32_t> kMeanMedianColumns = {
    km_col::kTime - 1, km_col::kSurv - 1, km_col::kEvents - 1, km_col::kRiskUsed - 1,
    km_col::kGreenwood - 1};

// KaplanMeanMedianColumns: ComputeKaplanMeanMedian on a copy of only the cells it reads, as the
// flat entry's private copy holds them: columns = rows 0 .. T of the table (T + 1 = nRows rows,
// clipped to the table) with the kMeanMedianColumns as its 5 columns. Same outputs. Not exported.
int KaplanMeanMedianColumns(matrix<double>* columns, double alpha, int k, double& cap,
                            matrix<double>* mean, matrix<double>* quartiles);
