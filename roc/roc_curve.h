// ROC curve, area under the curve, its standard error (Hanley-McNeil, Bamber, DeLong), interval
// and test of AUC = 0.5, optimal thresholds; and the pairwise sums behind the standard errors.
#pragma once

#include <cstdint>
#include <vector>

#include "velkor/containers.h"

namespace velkor::roc {

// Side codes of ComputeROC: which side of a threshold is test-positive. The end point added to
// the curve is (0, 0) for codes 1 and 2 and (1, 1) otherwise, which is the one point the sweep
// over the distinct values does not reach. Any other code is taken as 3.
inline constexpr int kSideAboveOrEqual = 1;  // value >= threshold  (high values positive)
inline constexpr int kSideBelowOrEqual = 2;  // value <= threshold  (low values positive)
inline constexpr int kSideAbove = 3;         // value >  threshold  (high values positive)
inline constexpr int kSideBelow = 4;         // value <  threshold  (low values positive)

// Standard-error methods.
inline constexpr int kSeHanleyMcNeil = 0;
inline constexpr int kSeBamber = 1;  // any other code: DeLong

// Near-tie rule of the pairwise sums: two values closer than this count as tied.
inline constexpr double kTieGap = 1e-12;

// Width of the per-threshold statistics table: threshold, a, b, c, d, then the 13 x 3
// classification statistics (values, lower limits, upper limits).
inline constexpr int kThresholdStatsCols = 5 + 39;

// The weighted observations of one test variable split by true status, each group sorted
// ascending by the oriented value (the test value, negated for the sides where low values are
// test-positive, so that "positive above negative" always counts for the area).
struct GroupedValues {
  std::vector<double> x, wx;  // positives: oriented values ascending, weights
  std::vector<double> y, wy;  // negatives
  double W1 = 0.0, W0 = 0.0;  // total weights of positives and negatives
};

// DeLong structural components (DeLong, DeLong & Clarke-Pearson 1988) with weights:
//   psi(x, y) = 1 if x - y > 1e-12, 1/2 if |x - y| < 1e-12, else 0;
//   cpos[i] = sum_j wy_j psi(x_i, y_j) / W0,  cneg[j] = sum_i wx_i psi(x_i, y_j) / W1.
// Returns the Mann-Whitney area A' = sum_j wy_j cneg[j] / W0. O(n1 + n0) on sorted groups:
// three monotone pointers per sweep find the runs of psi = 1 and psi = 1/2 (the same floating-
// point predicates as the pairwise definition, which are monotone in a sorted argument), and
// compensated prefix sums of the weights give each run's total.
double DeLongComponents(const GroupedValues& g, std::vector<double>& cpos,
                        std::vector<double>& cneg);
// The same by the O(n1 n0) pairwise definition (reference for tests).
double DeLongComponentsPairwise(const GroupedValues& g, std::vector<double>& cpos,
                                std::vector<double>& cneg);

// Bamber's (1975) sum S of the variance of the Mann-Whitney area, with weights (u positives,
// v negatives):
//   T = sum over pairs with |y_j - x_i| < 1e-12 of v_j^2;  S = W1 W0 - T
//     + sum_j v_j ((b - 1) b + (a - 1) a - 2 a b),  a, b = weight of positives below / above y_j
//     + sum_i u_i ((b - 1) b + (a - 1) a - 2 a b),  a, b = weight of negatives above / below x_i.
// O(n1 + n0) on sorted groups with prefix sums; BambersSumPairwise is the O(n1 n0) definition.
double BambersSum(const GroupedValues& g);
double BambersSumPairwise(const GroupedValues& g);

// Standard errors of the area A. Degenerate variances give 0 (the test is then not computed).
double HanleyMcNeilSE(double A, double W1, double W0);
double BamberSE(double A, double S, double W1, double W0);
double DeLongSE(const GroupedValues& g, const std::vector<double>& cpos,
                const std::vector<double>& cneg, double Aprime);

// Rows kept by the ROC analyses: finite test value (not NaN, not infinite, not the missing
// marker), status exactly 0 or 1, weight finite and > 0 (an empty weights matrix means unit
// weights).
bool RowIsUsable(double status, double value, double weight);

// The main ROC routine; see include/velkor/roc.h (Cpp_ComputeROC) for every argument. Optional
// outputs are skipped when their matrix has no elements. Returns 0, or -2 (nothing written)
// when the usable rows hold no positive or no negative. Cost O(n log n) for the sort, O(n) for
// the curve, area and standard errors, plus O(k) calls of the classification statistics when
// their table is requested.
int ComputeROC(matrix<double>* status, matrix<double>* values, matrix<double>* weights, int n,
               int side, double alpha, int seMethod, short tail, int intervalMethod,
               short continuity, double prior, matrix<double>* unitCosts, matrix<double>* curve,
               matrix<double>* thresholdStats, matrix<double>* costs, matrix<double>* auc,
               matrix<double>* optimal, matrix<int>* counts);

// Paired comparison of m ROC areas on the same subjects (DeLong, DeLong & Clarke-Pearson 1988);
// see include/velkor/roc.h (Cpp_ComputeROCComparisonsDep2). Returns 0, or -2 (nothing written)
// when m < 2 or the complete usable rows hold no positive or no negative. Cost O(m n log n + m^2
// n).
int ComputeROCComparisonsDep(matrix<double>* status, matrix<double>* values,
                             matrix<double>* weights, int n, int m, int side, double alpha,
                             matrix<double>* aucs, matrix<double>* covariance,
                             matrix<double>* global, matrix<double>* pairs);

}  // namespace velkor::roc
