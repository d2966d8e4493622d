// Gray's K-sample test for the equality of the cumulative incidence of one cause across groups,
// with strata and the weight exponent rho (Gray 1988, Ann. Statist. 16:1141-1154).
//
// Score of group k (within a stratum, summed over the distinct times t):
//   s_k = sum_t W(t) [ e_k(t) - e(t) R_k(t) / R(t) ],
//   R_k(t) = n_k(t) (1 - F_k(t-)) / S_k(t-),  R(t) = sum_k R_k(t),
// with n_k the number at risk, S_k the all-cause product-limit survival and F_k the cumulative
// incidence of the cause in group k (left limits), e_k(t) the failures from the cause, e(t) their
// total, and W(t) = (1 - F(t-))^rho, F being the pooled incidence estimated from the hazard
// sum e(t) / sum_k n_k(t) / S_k(t-). The scores of the first K - 1 groups have the martingale
// variance estimate of Gray's paper (with the tie corrections 1 - (e - 1)/(m - 1) of the
// binomial-type increments); both are summed over strata and the statistic s' V^-1 s is referred
// to chi-square with K - 1 degrees of freedom. The statistic and its variance are those of R's
// cmprsk::cuminc (crstm), which the tests reproduce to 1e-10.
#pragma once

#include "velkor/containers.h"

namespace velkor::competing {

// Columns of the test table (one row per cause).
namespace gray_col {
inline constexpr int kStatistic = 1, kDf = 2, kPValue = 3, kCount = 3;
}  // namespace gray_col

// GrayTest: Gray's test of each requested cause between the groups.
//   times    n x 1 in: observation times (any order);
//   status   n x 1 in: 0 censored, c a failure from cause c (as recoded by CheckStatusFormat);
//            any other value is a failure from a cause that is not tested, i.e. a competing
//            failure for every tested cause;
//   groups   n x 1 in: group labels; the K groups are the distinct labels, in ascending order
//            (the scores belong to the first K - 1 of them);
//   strata   n x 1 in, or an empty matrix / null for a single stratum: stratum labels;
//   n        number of rows; rows with a missing (<= the marker) or NaN time, status, group or
//            stratum are left out, as is any row beyond a column's length;
//   cause    c >= 1: test cause c only (row c of the outputs); <= 0: every cause 1 .. nCauses;
//   rho      weight exponent: W(t) = (1 - F(t-))^rho; 0 gives equal weights (the usual choice),
//            larger values stress late differences;
//   nCauses  rows of `tests` and columns of `scores` and `variance`;
//   nGroups  the caller's number of groups K, which sizes `scores` and `variance`;
//   tests    nCauses x 3 out: statistic, degrees of freedom K - 1, upper-tail chi-square p-value;
//            statistic and p-value hold the marker when K < 2, when K > 256 (the variance costs
//            O(K^3) per time; so many labels are not a grouping) or when the variance matrix is
//            singular (e.g. a cause without failures);
//   scores   (nGroups - 1) x nCauses out: the score vector s of each tested cause (may be null);
//   variance (nGroups - 1)^2 x nCauses out: V of each tested cause, column-major (may be null).
// When the data hold another number of groups than nGroups, the statistic uses the data's groups
// and scores / variance are written in the data's (K - 1) layout, clipped to the outputs.
// Causes beyond the rows of `tests` and the columns of `scores` / `variance` are not computed.
// Returns -2 (nothing written) when fewer than two usable rows remain, else 0.
// Helpers: SortOrder (stable radix order), M_Inverse (scaled-pivot LU; a pivot below 1e-8 relative
// counts as singular), M_ProductTrVBV, pValChiSq.
// Cost O(n + T K^3) per cause after an O(n) radix ordering, T being the number of distinct times.
int GrayTest(matrix<double>* times, matrix<double>* status, matrix<double>* groups,
             matrix<double>* strata, int n, int cause, double rho, int nCauses, int nGroups,
             matrix<double>* tests, matrix<double>* scores, matrix<double>* variance);

}  // namespace velkor::competing
