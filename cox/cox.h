// Internal workers of the Cox regression (hidden; the exported names wrap them in exports/).
//
// Flow of a run: cReorganizeDataCox sorts the rows by stratum and time and describes the tied
// blocks; a RiskLayout (risk_sets.h) is built once from those tables; FitFlat / FitObject run the
// Newton-Raphson loop over EvaluateRiskSets; Forward / Backward repeat fits over candidate column
// sets; Criteria fills the three result tables.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "cox/risk_sets.h"
#include "velkor/containers.h"

namespace velkor::cox {

// ---- Data preparation --------------------------------------------------------------------------

// Sorts the rows (time, status, col2, col3 and the covariate rows of X) by stratum key and, inside
// each stratum, by time (stable sorts: rows of equal keys keep their order), and fills the block
// tables (m x K matrix<int>, K = columns of the tables): distinct times per stratum, censored rows
// per stratum, and per stratum and distinct time the 1-based first row, the block size and the
// number of events. A row tied with the previous one joins its block, which grows by one unless
// the row's col3 value is 0 (kept as the tables' contract: such a row is left out of the block's
// count). Events of a block = its size minus its rows with status exactly 0.
// Strata are consecutive runs of strataSizes[s] rows in ascending key order, clipped to n; a
// stratum left with no row has no distinct time. Status values outside [0, 1] (NaN included)
// give -1, fewer than two rows -2, no event -3, all before any reordering or table write.
// Cost O(n log n) for the sorts (radix: O(n)), O(n p) to move the rows, O(n) for the tables.
int cReorganizeDataCox(matrix<double>* time, int n, int p, matrix<double>* status,
                       matrix<double>* col2, matrix<double>* col3, matrix<double>* X,
                       matrix<double>* strataKey, matrix<double>* strataSizes, int m,
                       matrix<int>* nTimes, matrix<int>* nCensored, matrix<int>* blockStart,
                       matrix<int>* blockSize, matrix<int>* blockEvents, int* maxTimes);

// The two halves of cReorganizeDataCox. SortedRowOrder: the checks (-1, -2, -3, nothing
// written) and the stable order of the rows by stratum then time (order[r] = input row of sorted
// row r), with the first row and row count of each stratum. FillBlockTables: the tables from
// time and status already in that order.
int SortedRowOrder(matrix<double>* time, int n, matrix<double>* status, matrix<double>* strataKey,
                   matrix<double>* strataSizes, int m, std::vector<std::uint32_t>& order,
                   std::vector<std::size_t>& first, std::vector<std::size_t>& size);
void FillBlockTables(const matrix<double>* time, const matrix<double>* status,
                     const matrix<double>* col3, const std::vector<std::size_t>& first,
                     const std::vector<std::size_t>& size, matrix<int>* nTimes,
                     matrix<int>* nCensored, matrix<int>* blockStart, matrix<int>* blockSize,
                     matrix<int>* blockEvents, int* maxTimes);

// Builds the layout from matrix<int> tables as cReorganizeDataCox fills them.
RiskLayout LayoutFromTables(std::size_t n, int nStrata, matrix<double>* strataSizes,
                            matrix<int>* nTimes, matrix<int>* blockStart, matrix<int>* blockSize,
                            matrix<int>* blockEvents);

// ---- Fitting ---------------------------------------------------------------------------------

// A design restricted to some columns, with everything a fit needs.
struct CoxProblem {
  const RiskLayout* layout = nullptr;
  const double* w = nullptr;  // event weights (n)
  TieTerms terms = TieTerms::BreslowCount;
};

// One fit. Matrices are q x q column-major (q = columns of the design fitted).
struct FitResult {
  int status = 0;  // 0, or -1 (object form: inversion failed or halvings exhausted)
  int iterations = 0;
  bool notConverged = false;  // object form: the iteration limit ended the fit
  double loglik = 0.0, loglik0 = 0.0;
  std::vector<double> beta, se, grad, hess, inv, grad0, inv0;
};

// Flat form, on the raw design given row by row (n x q, row i at rowMajor[i q]):
// cNewtonRaphson step on the LU inverse, halvings that may run out, stop on the iteration limit,
// on a converged step after iteration 10, or on |L - L0| < tol. maxIter < 1 counts as 1.
// The design is read in place (never copied or written) and must hold n x q values.
FitResult FitFlat(const CoxProblem& prob, const double* rowMajor, int q, int maxIter, double tol);
FitResult FitFlat(const CoxProblem& prob, const std::vector<double>& rowMajor, int q, int maxIter,
                  double tol);

// The listed columns (0-based) of a row-major n x p design, row-major.
std::vector<double> RowMajorColumns(const double* rows, int p, std::size_t n,
                                    const std::vector<int>& cols);

// Object form, on the centred design given row by row (n x q, row i at rowMajor[i q]); the fit
// fails (-1) when the inversion fails or ten halvings find no gain; stops when
// |1 - L / L0| <= tol or at the iteration limit (notConverged).
FitResult FitObject(const CoxProblem& prob, const double* rowMajor, int q, int maxIter, double tol);
FitResult FitObject(const CoxProblem& prob, const std::vector<double>& rowMajor, int q, int maxIter,
                    double tol);

// ---- Selection -----------------------------------------------------------------------------

// Fits the model made of the listed design columns (0-based, ascending).
using ColumnFit = std::function<FitResult(const std::vector<int>& columns)>;

struct SelectionResult {
  int status = 0;  // number of steps, or -1 when a fit failed or the variables are inconsistent
  std::vector<int> columns;       // design columns of the final model
  std::vector<int> variableStep;  // per variable: step of entry / removal, 0 otherwise
  std::vector<double> stepTable;  // nVars x 4, column-major (rows beyond `steps` untouched: NaN)
  int steps = 0;
  FitResult fit;  // the final model, refitted
};

// Variables: variable v covers varCoefs[v] consecutive columns. Returns false when the counts do
// not partition p columns (a count below 1 or a sum other than p).
bool VariableColumns(const std::vector<int>& varCoefs, int p,
                     std::vector<std::vector<int>>& columns);

// Forward selection by likelihood-ratio p-values (entry when p-value <= threshold); loglikNull is
// the log-likelihood at beta = 0.
SelectionResult Forward(const ColumnFit& fit, const std::vector<int>& varCoefs, int p,
                        double threshold, double loglikNull);
// Backward elimination by Wald (statistic == 0) or likelihood-ratio p-values.
SelectionResult Backward(const ColumnFit& fit, const std::vector<int>& varCoefs, int p,
                         double threshold, int statistic);

// ---- Criteria --------------------------------------------------------------------------------

// The three tables of a fit with p coefficients. hess, inv, inv0: p x p column-major. stats 6 x 2,
// tests 3 x 3; coefficient rows j of a table with leading dimension ldCoef (columns 1 to 7).
void Criteria(int n, int p, int censoredFirst, double loglik, double loglik0, int iterations,
              double alpha, const double* beta, const double* hess, const double* inv, double& z,
              double* stats, const double* grad0, const double* inv0, double* coef,
              std::size_t ldCoef, double* tests);

// Coefficient row for a coefficient left out of the final model: 0 then missing values.
void CriteriaDroppedRow(double* coef, std::size_t ldCoef, std::size_t row);

}  // namespace velkor::cox
