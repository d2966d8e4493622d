// Vector routines (V_*) on the first n elements of n x 1 matrices.
//
// Conventions shared by every routine:
//   - n is clipped to the container's count; n <= 0 means an empty vector;
//   - a value <= the missing-value marker is missing; routines whose description says
//     "non-missing" skip such values, the others take values as they are;
//   - a mask is a 16-bit flag per row: 0 = row used, any other value (the front end's -1) = row
//     excluded; a null mask uses every row; a null weight vector means unit weights;
//   - a result that has no value (empty input, zero total weight) is the missing-value marker,
//     except counts (0) and sums (0).
// All routines are O(n) unless stated otherwise.
#pragma once

#include <cstdint>

#include "velkor/containers.h"

// Sum of the first n values.
double V_Sum2(const matrix<double>* v, int n);
// Largest of the first n values among rows not excluded by the mask; kMissing when none.
double V_Max(const matrix<double>* v, int n, const matrix<short>* mask);
// Largest of the first n values.
double V_Max2(const matrix<double>* v, int n);
// Weighted mean sum(w v) / sum(w) of the non-missing values (w = 1 when weights is null).
double V_Mean(const matrix<double>* v, int n, const matrix<double>* weights);
// Mean of the non-missing values.
double V_Mean2(const matrix<double>* v, int n);
// Weighted variance of the non-missing values with divisor sum(w) - 1 (the unbiased variance for
// frequency weights; the sample variance for unit weights); kMissing when sum(w) <= 1.
double V_Var(const matrix<double>* v, int n, const matrix<double>* weights);
// Variance of the non-missing values. sampleDivisor = 0: divisor N (the population form, so
// that V_Var2 x N is the total sum of squares about the mean); non-zero: divisor N - 1.
// The second flag is reserved (pass 0).
double V_Var2(const matrix<double>* v, int n, int sampleDivisor, int reserved);
// Weighted mean and standard deviation of the non-missing values of the rows used by the mask.
// sampleSd = -1 (true): divisor sum(w) - 1; otherwise divisor sum(w). skipMissing = -1 (true):
// missing values are skipped; otherwise they are taken as they are. sd is kMissing when the
// divisor is not positive; both are kMissing with no row used.
void V_MeanStdev(const matrix<double>* v, int n, double& mean, double& sd,
                 const matrix<short>* mask, const matrix<double>* weights, short sampleSd,
                 short skipMissing);
// Quantile of order p in [0, 1] of the non-missing values, linear interpolation between order
// statistics (x[(N-1)p] interpolated, R's type 7): p = 0.5 is the usual median (mean of the two
// middle values for even N). kMissing for no value. O(N) expected (selection).
double V_Quantile(const matrix<double>* v, int n, double p);
// Median (p = 0.5) of the non-missing values of the rows used by the mask.
double V_QuantileM(const matrix<double>* v, int n, double p, const matrix<short>* mask);
// Weighted quantile: the smallest value whose cumulative weight share reaches p (inverse of the
// weighted empirical distribution function; at an exact tie p, the mean of the two values).
double V_QuantileW(const matrix<double>* v, int n, double p, const matrix<double>* weights);
// True when the first n values are all equal (n <= 1 counts as constant).
bool V_IsConstant(const matrix<double>* v, int n);
// True when the first n values are non-decreasing.
bool V_IsSorted(const matrix<double>* v, int n);
// Number of non-missing values (NaN counts as missing here too).
int V_NbNonMissing(const matrix<double>* v, int n);
// Number of distinct non-missing values. O(N log N).
int V_NbDistinct(const matrix<double>* v, int n);
// Copy the first n values of src into dst (clipped to both counts).
void V_Duplicate(const matrix<double>* src, matrix<double>* dst, int n);
// Replace every value exactly equal to `from` by `to`; returns the number replaced.
int V_ReplaceVal2(matrix<double>* v, int n, double from, double to);
// Fill with 1, 2, ..., n.
void V_Set1toN(matrix<double>* v, int n);
// Set the first n flags to 0 (false: row used).
void InitVectorToFalse(matrix<short>* mask, int n);
// Pearson correlation of the non-missing pairs; kMissing when undefined.
double V_PearsonRho(const matrix<double>* x, const matrix<double>* y, int n);
// Kendall's tau-b of the pairs (x_i, y_i), i < n, by Knight's O(n log n) algorithm; 0 when
// either variable is constant; pairs with a missing value are skipped.
double V_KendallTau(const matrix<double>* x, int n, const matrix<double>* y);
