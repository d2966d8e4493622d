// Comparison of the survival curves of G groups: log-rank, Gehan-Wilcoxon and Tarone-Ware tests
// on the merged risk sets of the groups' product-limit tables, and all pairwise comparisons with
// Bonferroni and Holm adjusted p-values.
#pragma once

#include <cstdint>
#include <vector>

#include "velkor/containers.h"
#include "velkor/survival_objects.h"

// cLoadKaplanTest: merges the per-group product-limit tables into the combined table.
//   count   in: columns available in `table`; out: number of distinct times T written (the
//           merge stops when the columns run out);
//   source  G product-limit tables of R x 12 stacked as cRunLife writes them (table g at linear
//           elements [g R 12, (g + 1) R 12));
//   lastRows G values: last product-limit row of each group (clipped to R - 1);
//   table   out, (3G + 1) x count: row 1 the distinct times of all groups, ascending, each once;
//           for group k rows 3k - 1 = n_kt (number at risk), 3k = d_kt (events), 3k + 1 = c_kt
//           (censored). A group without an observation at t has d = c = 0 and the number still at
//           risk after its last time before t (its initial number at risk before its first time,
//           0 after its last row).
// Equal times are matched exactly (NaN matches NaN so that the merge always advances).
// Returns 0. Cost O(T G).
VELKOR_API int cLoadKaplanTest(int& count, matrix<double>* source, int G, int R,
                               matrix<double>* lastRows, matrix<double>* table);

// LoadKaplanTestColumns: cLoadKaplanTest on tables of `tableCols` columns each (at least 6:
// columns 1, 4, 5 and 6 are the ones read), i.e. source holds G tables of R x tableCols at linear
// elements [g R tableCols, (g + 1) R tableCols). Used by the flat entry, whose private copy keeps
// columns 1 to 6 of each table. Not exported.
int LoadKaplanTestColumns(int& count, matrix<double>* source, int G, int R, int tableCols,
                          matrix<double>* lastRows, matrix<double>* table);

// cComputeLifeTests: the three weighted log-rank tests on the combined table (3G + 1) x T.
// With w_t = 1 (log-rank, Mantel 1966), N_t (Gehan 1965 / Breslow 1970 generalised Wilcoxon) or
// sqrt(N_t) (Tarone & Ware 1977), over times with D_t > 0:
//   U_k = sum w_t (d_kt - E_kt), E_kt = n_kt D_t / N_t (kept from the previous event time when
//         N_t <= 0: deliberate);
//   V_kl = sum_(N_t (N_t - 1) != 0) w_t^2 D_t (N_t - D_t) / (N_t - 1) (n_kt / N_t)
//          (delta_kl - n_lt / N_t),
//   X^2 = U' V^-1 U on G - 1 degrees of freedom (the last group is the reference), V inverted by
//   M_Inverse with tolerance 1e-12 (a singular V gives the zero inverse and X^2 = 0).
// d_kt < 0 (the missing-value marker included) counts as 0. results: 3 x 4, rows log-rank,
// Gehan, Tarone-Ware; columns X^2, critical value InvCDFChiSq(1 - alpha, G - 1), p-value
// pValChiSq(X^2, G - 1), alpha. With G < 2 there is nothing to compare: columns 1 to 3 hold the
// missing-value marker. Returns 0. Cost O(T G^2 + G^3).
VELKOR_API int cComputeLifeTests(matrix<double>* table, int T, int G, double alpha,
                                 matrix<double>* results);

// The flat entries' form of both tests: their private copy of the combined table holds only the
// rows the tests read, rows 3k - 1 (n_kt) and 3k (d_kt) of each group k = 1 .. G, listed by
// LifeTestRiskRows(G) as 0-based rows (1, 2, 4, 5, ...), each stored as one column of `riskRows`
// (T x 2G: column 2k - 1 n_k, column 2k d_k, 1-based). Same results as cComputeLifeTests (for
// G <= 6) and cComputeMultComp on the whole table. Not exported.
std::vector<std::uint32_t> LifeTestRiskRows(int G);
int ComputeLifeTestsRiskRows(matrix<double>* riskRows, int T, int G, double alpha,
                             matrix<double>* results);
int ComputeMultCompRiskRows(matrix<double>* riskRows, int T, int G, double alpha,
                            matrix<double>* results);

// cComputeMultComp: every pair (a, b), a < b, of the G groups tested with the three tests on the
// pair's rows of the combined table. P = G (G - 1) / 2 pairs in the order (1,2), (1,3), ...,
// (1,G), (2,3), ..., (G-1,G). results: 3P x 7, row 3(p - 1) + k for pair p and test k (1
// log-rank, 2 Gehan, 3 Tarone-Ware): group a, group b (1-based), test k, X^2 (1 df), p-value,
// Bonferroni p-value min(1, P p), Holm p-value (step-down over the P pairs of the same test,
// made monotone: p_(i) -> max_(j <= i) min(1, (P - j + 1) p_(j))). Returns 0. Cost O(P T).
int cComputeMultComp(matrix<double>* table, int T, int G, double alpha, matrix<double>* results);
