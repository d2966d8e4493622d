// Method-comparison workers exported under their own names (C++ linkage): the same computations
// as the flat entry points of velkor/methodcomp.h, on matrix<double> column vectors (n x 1) and
// references. Every function returns a status and lets no exception out (positive codes as in
// velkor/status.h). Argument meanings are those of the flat entry point named at each function.
#pragma once

#include "velkor/containers.h"
#include "velkor/export.h"

// Cpp_BlandAltman, with matrices in place of the arrays.
VELKOR_API int BlandAltman(matrix<double>* x, matrix<double>* y, int n, int type, double alpha,
                           matrix<double>* diffs, matrix<double>* means, double& bias, double& sd,
                           double& biasLow, double& biasHigh, double& loaLow, double& loaHigh);
// Cpp_BlandAltmanLoACI; out is 6 x 1.
VELKOR_API int BlandAltmanLoACI(matrix<double>* x, matrix<double>* y, int n, int type, double alpha,
                                double alphaCI, int method, matrix<double>* out);
// Cpp_GetRepeatability.
VELKOR_API int GetRepeatability(matrix<double>* x, int n, matrix<double>* subject, double alpha,
                                double& sw, double& swLow, double& swHigh);

// Cpp_Passing_Bablok.
VELKOR_API int PassingBablok(matrix<double>* x, int n, matrix<double>* y, int option, double alpha,
                             double& a, double& aLow, double& aHigh, double& b, double& bLow,
                             double& bHigh, matrix<double>* fitted, matrix<double>* residuals,
                             matrix<double>* differences, matrix<double>* distance,
                             double& maxCusum, double& critical, double& pValue);
// Cpp_PassingBablokBIS: the equivariant procedure.
VELKOR_API int PassingBablokBIS(matrix<double>* x, int n, matrix<double>* y, int option,
                                double alpha, double& a, double& aLow, double& aHigh, double& b,
                                double& bLow, double& bHigh, matrix<double>* fitted,
                                matrix<double>* residuals, matrix<double>* differences,
                                matrix<double>* distance, double& maxCusum, double& critical,
                                double& pValue);

// Shifted-median slope (Passing & Bablok 1983) over the complete rows of (x, y).
//   negFlag  in/out: in -1 refuses a negative Kendall tau (nothing is computed, b stays
//            VELKOR_MISSING, returns 0: the caller reports it), 0 accepts it (slopes of (x, -y),
//            b negated back); out -1 when tau < 0, else 0.
//   geoMean  -1: geometric mean of the two middle slopes when N is even; else arithmetic.
//   verticalUp, verticalDown, horizontalLeft, horizontalRight: the values stored for pairs with
//            dx = 0 < dy (counted in K), dx = 0 > dy, dy = 0 > dx, dy = 0 < dx (dx = x_i - x_j,
//            dy = y_i - y_j, i < j); the drivers use -1.79769313486231e+308,
//            +1.79769313486231e+308, -2.220446049250313e-16, +2.220446049250313e-16.
//   b        out: slope (VELKOR_MISSING when no slope was stored); N, K out: stored slopes and
//            those counted below -1. b = S[N/2 + K] and S[N/2 + K + 1] combined (N even) or
//            S[(N+1)/2 + K] (N odd).
VELKOR_API int ComputeBCoeff_PAB1(matrix<double>* x, int n, matrix<double>* y, short& negFlag,
                                  short geoMean, double verticalUp, double verticalDown,
                                  double horizontalLeft, double horizontalRight, double& b,
                                  double& N, double& K);
// Equivariant slope (Bablok et al. 1988): median of |S_ij|, signed by the association; special
// values enter by their absolute values, no -1 slope is skipped, K = 0. Scale equivariant:
// b(x, c y) = c b(x, y) for c > 0. Arguments as ComputeBCoeff_PAB1.
VELKOR_API int ComputeBCoeff_PAB3(matrix<double>* x, int n, matrix<double>* y, short& negFlag,
                                  short geoMean, double verticalUp, double verticalDown,
                                  double horizontalLeft, double horizontalRight, double& b,
                                  double& N, double& K);

// Closed-form weighted Deming fit: D = Syy - lambda Sxx, b = (D + (4 lambda Sxy^2 + D^2)^0.5) /
// (2 Sxy), a = my - b mx, all n rows used with weights w as given (null: unit weights). No
// guard for Sxy = 0.
VELKOR_API int Deming(matrix<double>* x, matrix<double>* y, matrix<double>* w, int n, double lambda,
                      double& a, double& b);
// The same estimator, guarded: skips missing rows and weights <= 0 (w may be null: unit
// weights), cancellation-free root, lambda = +inf gives least squares; -2 with fewer than 2
// usable rows, -5 when lambda is not > 0 or Sxy = 0 (a, b VELKOR_MISSING).
VELKOR_API int NewDeming(matrix<double>* x, matrix<double>* y, matrix<double>* w, int n,
                         double lambda, double& a, double& b);
// Iteratively weighted Deming on replicates: groupSize (k x 1) gives the number of consecutive
// rows of x and y (n x 1) of each subject. From b = 0, weights 1 / (Vx_i b^2 + Vy_i) from the
// replicate sums of squares, new slope = weighted closed-form fit of the subject means with the
// pooled ratio sum Vy / sum Vx; stops when |b_new - b_old| < tol or after maxIter iterations.
// Subjects with a zero weight denominator get weight 0. Outputs b, a (weighted means with the
// final weights) and the iterations made. Returns 0, -2 (fewer than 2 weighted subjects) or -5.
VELKOR_API int WeightedDeming(matrix<double>* groupSize, int k, matrix<double>* x,
                              matrix<double>* y, int n, int maxIter, double tol, double& b,
                              double& a, int& iterations);
// VB_DemingRegression; coef 8 x 1.
VELKOR_API int DemingRegression(matrix<double>* x, matrix<double>* y, int n, double lambda,
                                double alpha, matrix<double>* coef, matrix<double>* fitted,
                                matrix<double>* residuals);
// Cpp_NewDemingRegression; subject may be null; coef 8 x 1, info 3 x 1.
VELKOR_API int NewDemingRegression(matrix<double>* x, matrix<double>* y, int n,
                                   matrix<double>* subject, short weighted, double lambda,
                                   double alpha, int maxIter, double tol, matrix<double>* coef,
                                   matrix<double>* info, matrix<double>* fitted,
                                   matrix<double>* residuals);
