// Small dense linear algebra: the shared matrix inversion, the Newton-Raphson step, weighted least
// squares and matrix reshaping routines (M_*).
#pragma once

#include <cstdint>

#include "velkor/containers.h"

// ---------------------------------------------------------------------------------------------
// Shared matrix inversion (used by the survival tests, the Cox and parametric optimisers).
//
// LU decomposition with implicit (scaled) partial pivoting (Crout; Press et al., Numerical
// Recipes, ludcmp/lubksb): each row is scaled by 1 / (largest absolute element of the row); the
// pivot of column k is the row maximising |a_ik| x scale_i.
//   - a row whose largest absolute element is exactly 0 fails at once: returns -1, flag = -1;
//   - a pivot whose absolute value is below the threshold fails: returns -2, flag = -1. The
//     threshold is 1e-8 when tol > 0 and the double epsilon 2.220446049250313e-16 when tol <= 0;
//     it is compared with the pivot of the row-scaled matrix, so it is relative to the size of
//     each row;
//   - on failure the inverse is set to all zeros (a singular matrix contributes nothing to the
//     quadratic forms built on it);
//   - on success: returns 0, flag = 0, inv = a^-1.
// `a` is not modified. `inv` must be at least n x n (n = a->rows; a must be square). A non-finite
// element makes the pivot test fail (-2). Cost O(n^3).
int M_Inverse(const matrix<double>* a, matrix<double>* inv, short& flag, double tol);

// ---------------------------------------------------------------------------------------------
// One Newton-Raphson step for maximising a log-likelihood:
//   beta_new = beta - H^-1 g   for every parameter whose fixed flag is 0.0; the others stay.
// Arguments: beta (p x 1, in/out), p, fixed flags (p x 1; null = none fixed), gradient g (p x 1),
// second-derivative matrix H (p x p), convergence tolerance, inverse (p x p, in/out), standard
// errors (p x 1, out: sqrt(|diag(H^-1)|)), invertHere, pivotTol.
//   invertHere = -1: H is inverted here (M_Inverse with pivotTol) into `inverse`;
//   invertHere = 0:  `inverse` already holds H^-1 (the caller inverted it) and is used as is.
// Returns 1 when no parameter moved by more than tol (absolute change), 0 when some did, and a
// negative value (that of M_Inverse) when the inversion failed; beta is then left unchanged.
// Cost O(p^3) with inversion, O(p^2) without.
int cNewtonRaphson(matrix<double>* beta, int p, const matrix<double>* fixed,
                   const matrix<double>* grad, const matrix<double>* hess, double tol,
                   matrix<double>* inverse, matrix<double>* stdErrs, short invertHere,
                   double pivotTol);

// ---------------------------------------------------------------------------------------------
// Weighted least squares: coef = argmin sum_i w_i (y_i - x_i' coef)^2 over the first n rows of
// X (n x p; include a column of ones for an intercept) and y, weights w (null = 1; rows with
// w <= 0 are left out). Solved by Householder QR of sqrt(w) X (Golub & Van Loan, alg. 5.2.1),
// which avoids squaring the condition number as the normal equations would.
// A column whose remaining norm after orthogonalisation is at most tolRank x (its original norm)
// is aliased: its coefficient is 0 and it is left out (tolSing <= 0 uses 1e-7 for both).
// Returns the rank (>= 0), or -1 when n < 1 or p < 1.
int OLSBasic(const matrix<double>* X, const matrix<double>* y, const matrix<double>* w, int n,
             int p, matrix<double>* coef, double tolSing, double tolRank);

// v' B v over the leading p x p block of B and the first p entries of v.
double M_ProductTrVBV(const matrix<double>* v, const matrix<double>* B, int p);

// Remove column `col` (1-based) in place: later columns shift left, cols decreases by 1 (the
// buffer is kept; count is updated). An out-of-range column changes nothing.
void M_RemoveCol(matrix<double>* m, int col);
// Remove the columns whose 1-based numbers are listed in the first `k` entries of `list`.
void M_RemoveColsInList(matrix<double>* m, const matrix<double>* list, int k);
// Remove, in place, every row r (1-based) whose flag `flags[r-1]` is non-zero; rows keep their
// order, rows decreases. Returns the number of rows removed.
int M_RemoveRowsInList(matrix<double>* m, const matrix<double>* flags);
// Group the rows of m (n x >= 2) by the integer code in column keyCol (1-based) and write the
// mean of column valCol of each group into means[code - 1] (codes 1..means->count); values that
// are missing are skipped; a group without values gets kMissing; rows with a code outside
// 1..means->count are ignored. Returns the number of codes seen.
int M_GroupBy(const matrix<double>* m, int keyCol, int valCol, matrix<double>* means);
// Copy column srcCol of src into column dstCol of dst (min of the two row counts).
void M_ExtractMatToMatByColDbl(const matrix<double>* src, int srcCol, matrix<double>* dst,
                               int dstCol);
// Construct a Givens plane rotation (BLAS drotg): given a, b returns c, s and r, z such that
// [c s; -s c] [a; b] = [r; 0]. a and b are overwritten by r and z as in the reference BLAS.
void drotg(double& a, double& b, double& c, double& s);
