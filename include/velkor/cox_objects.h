// Cox proportional hazards regression: the object (_ST) interface and the C++ workers exported
// under their own names.
//
// Two forms of the same regression differ on purpose:
//   - the flat form (RunCoxReg and the matrix<T> workers below) fits the raw covariates, always
//     computes the Breslow likelihood (its Efron code truncates the fraction (j - 1) / d to 0 in
//     integer arithmetic), continues after exhausted step halving or a singular matrix, and stops
//     on an absolute log-likelihood change;
//   - the object form (COX_Compute_ST and the *_ST workers) centres the covariates, applies the
//     true Efron correction, weights the event terms by the case weights, stops on a relative
//     change |1 - L / L0| <= tolerance and fails (-5 from the run) when the Newton step fails or
//     ten step halvings find no gain.
// In both forms the risk-set sums S_k = sum exp(eta_i) are unweighted while the event terms are
// weighted: with unit weights this is the usual partial likelihood. In the object form the d
// Efron terms of a time with d tied events all carry the mean event weight W_k / d (W_k the sum
// of the case weights of those events), so that sum_j equals sum_i w_i log S_k for Breslow ties;
// the gradient and matrix are weighted the same way, so they are the derivatives of the
// log-likelihood that is reported. The d logarithms of a tied time are taken as one logarithm of
// their product (kept as mantissa and binary exponent, so it never overflows): the value agrees
// with the sum of the d logarithms to rounding, not bit for bit.
//
// Decisions of this library where the usual descriptions leave a choice:
//   - qualitative variables: treatment coding, first level the reference (as R's default
//     contrasts); see ReorganizeDataCox_ST;
//   - a status that is NaN is outside [0, 1] (-1) in the flat form; in the object form a missing
//     status, like any missing value, leaves its row out;
//   - the object form reports the covariance matrix (inverse, standard errors) of the final beta,
//     from its last accepted evaluation, as R's coxph does; the flat form reports the inverse of
//     the last Newton step (one step behind, identical at convergence);
//   - backward elimination with a statistic switch other than 0 uses the likelihood-ratio
//     statistic of the model without the variable; the Wald form of a qualitative variable is the
//     joint b' V^-1 b over its columns; a statistic that cannot be computed counts as p-value 1;
//   - block tables built by a caller with block starts out of order are evaluated with direct
//     risk-set sums (same values as the cumulative pass).
//
// Layout of the tables (all column-major; p = number of coefficients of the design):
//   model statistics 6 x 2   rows: events used (n - censored count of the FIRST stratum),
//                            degrees of freedom, -2 log L, AIC, Schwarz criterion, iterations;
//                            column 1 the null model, column 2 the fitted model;
//   global tests 3 x 3       rows: likelihood ratio, score, Wald; columns: df, statistic, p-value;
//   coefficient table p x 9  beta, standard error, Wald chi-square, p-value, hazard ratio, lower
//                            and upper limits; column 8: 1 when the coefficient is in the final
//                            model, 0 when selection left it out; column 9: the selection step
//                            at which its variable entered (forward) or left (backward), 0
//                            otherwise. Rows of coefficients left out of the final model hold 0 in
//                            column 1 and the missing value in columns 2 to 7.
//   step table (variables) x 4  one row per selection step: number of variables in the model
//                            after the step, the statistic of the variable entered (likelihood
//                            ratio) or removed (Wald or likelihood-ratio chi-square), its p-value,
//                            and its variable number (1-based). Rows after the last step are left
//                            as they were.
// Missing cells hold -1.79769313486231e+308 (bits FFEFFFFFFFFFFFE2) exactly; an unbounded upper
// limit +1.79769313486231e+308 (7FEFFFFFFFFFFFE2). A statistic that is not a finite number (NaN
// covariates, a p-value with 0 degrees of freedom) is written as the missing value.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "velkor/containers.h"
#include "velkor/export.h"
#include "velkor/objects.h"
#include "velkor/oleauto.h"

// ---------------------------------------------------------------------------------------------
// Run parameters of the object form.
// ---------------------------------------------------------------------------------------------
struct COX_Param {
  // Roles of the data set's columns (0-based indices into cST_DataSet::columns; -1 = none).
  int timeColumn = 0;     // observation time
  int statusColumn = 1;   // 1 event, 0 censored (values in [0, 1]; another value gives -1)
  int weightColumn = -1;  // case weights (none: 1 for every row)
  int strataColumn = -1;  // numeric stratum key (none: one stratum); strata in ascending key order
  // Covariates are those of the cST_FactorsInfo passed with the call.

  int ties = 1;                    // 0 Breslow, 1 Efron
  double maxIterations = 100;      // in: iteration limit; out: iterations done by the last fit
  double tolerance = 1e-9;         // relative log-likelihood change |1 - L / L0| that ends the fit
  int selection = -1;              // -1 none, 0 forward, 1 backward; any other value: no fit
  double entryThreshold = 0.05;    // forward: a variable enters when its p-value is <= this
  double removalThreshold = 0.10;  // backward: the least significant variable leaves unless its
                                   // p-value is < this
  int backwardStatistic = 0;       // backward: 0 Wald p-value, any other value likelihood ratio
  double alpha = 0.05;             // significance level of the hazard-ratio limits

  // Proportional-hazards test after the residuals (-1 true, 0 false) and its time transform g(t):
  // 0 identity, 1 log, 2 rank (average ranks of all rows' times), 3 (or any other value)
  // 1 - Kaplan-Meier of all rows pooled, left-continuous (R's cox.zph default "km").
  std::int16_t proportionalityTest = 0;
  int phTransform = 3;

  // Validation: k-fold cross-validation when cvFolds >= 2 (k = min(cvFolds, n)), bootstrap of
  // bootstrapSamples resamples when >= 1, both drawn from `seed`. Each of their fits starts at
  // beta = 0 with the iteration limit validationIterations (maxIterations is overwritten by the
  // main fit) and the same tolerance and ties as the main fit.
  int cvFolds = 0;
  int bootstrapSamples = 0;
  std::uint32_t seed = 0;
  int validationIterations = 100;
};

// ---------------------------------------------------------------------------------------------
// Results of the object form. The caller sets the two request flags; everything else is written
// by the run. Vectors are column-major tables as described at the top of this header.
//
// Memory: every vector of the results owns its buffer, allocated with new[] by the library, and
// the vector's own destructor frees it with delete[] (the inline cST_MVect destructor, compiled
// into the caller): layout and ownership are those of cST_MVect, on both sides of the library
// boundary. The run replaces a vector's buffer in place, once per output, and leaves the large
// per-row outputs (time, status, weights, row numbers, design) unfilled until it writes them;
// it never hands out memory of its internal block cache, which a caller could not free.
// ---------------------------------------------------------------------------------------------
struct cCOX_Results {
  // Requests of the caller.
  std::int16_t suppressSurvival = 0;    // -1: skip survival function, residuals and PH test
  std::int16_t reportConvergence = -1;  // -1: set notConverged when the iteration limit is hit

  // Prepared data (ReorganizeDataCox_ST): the complete rows, sorted by stratum then time.
  int n = 0;                    // rows used (rows with a missing value are left out)
  int p = 0;                    // columns of the design matrix
  int nStrata = 0;              // number of strata
  VectI rowIndex;               // n: 0-based data-set row of each sorted row
  VectD time, status, weights;  // n each, sorted
  VectD eventWeights;           // n: weight x status, the weights of the event terms
  VectD strataKey;              // n: stratum key of each sorted row
  VectD strataSizes;            // nStrata: rows per stratum
  VectD design;                 // n x p design matrix (centred by the fit), column-major
  VectD means;                  // p: column means over the n rows (preparation); the fit
                                //    subtracts them
  VectS designNames;            // p: "age", "celltype=large", ...
  VectI designVariable;         // p: variable number (0-based; quantitative first)
  VectI variableCoefs;          // variables: number of design columns of each variable
  int maxTimes = 0;             // largest number of distinct times of a stratum
  VectI nTimes, nCensored;      // nStrata each
  VectI blockStart, blockSize, blockEvents;  // nStrata x maxTimes, column-major

  // The fit (OptimizeCoxModel_ST) of the final model; vectors sized p of the final model.
  VectD beta, se;                    // coefficients and standard errors of the final model
  VectD gradient, hessian, inverse;  // at the final beta (p, p x p, p x p)
  VectD initGradient, initInverse;   // at beta = 0 (score test)
  VectI inModel;                     // p (full design): 1 when the column is in the final model
  double logLik = 0, logLik0 = 0;
  double iterations = 0;
  double notConverged = 0;     // 1.0 when the iteration limit ended the fit
  double zeroCoefficient = 0;  // 1.0 when a final coefficient is exactly 0.0

  // Criteria (ComputeCritCox_ST) and selection.
  double z = 0;        // standard normal quantile at 1 - alpha / 2
  VectD modelStats;    // 6 x 2
  VectD globalTests;   // 3 x 3
  VectD coefTable;     // p (full design) x 9
  VectD stepTable;     // variables x 4
  VectI variableStep;  // variables: step of entry (forward) or removal (backward)
  int steps = 0;       // number of selection steps recorded

  // After the fit (see "After the fit" below). Layouts, column-major, K = maxTimes,
  // q = coefficients of the final model (covariates centred on their means over the n rows):
  //   baseSurvival  nStrata x K  S0(t_k) at the centred covariates (R's survfit at the means,
  //                              basehaz(centered = TRUE)); missing past a stratum's last time
  //   rowSurvival   n            S0(t_i)^exp(eta_i), each row at its own time, rows in sorted
  //                              order (rowIndex); the whole curve of row i is
  //                              baseSurvival^exp(eta_i), eta_i = centred x_i' beta (an n x K
  //                              table would not fit in memory for large data sets)
  //   meanSurvival  nStrata x K  survival at the mean covariates (equal to baseSurvival here)
  //   residuals     n x (4 + 2q) time, status, martingale, deviance, q Schoenfeld, q score
  //   concordance                concordance index of the final model on the n rows
  //   cvTable       (1 or k + 2) x 5  quality indices: row 1 the model on all rows, rows 2 ..
  //                              k + 1 the folds, row k + 2 the mean of the folds' values
  //   bootTable     (q + 1) x 6  rows: q coefficients, concordance index; columns: estimate on
  //                              all rows, bootstrap mean, standard error, percentile limits at
  //                              alpha / 2 and 1 - alpha / 2, replicates used
  //   phTest        (q + 1) x 3  rows: q covariates, global; columns chi-square, df, p-value
  VectD baseSurvival, rowSurvival, meanSurvival, residuals;
  double concordance = 0;
  VectD cvTable, bootTable, phTest;
};

// ---------------------------------------------------------------------------------------------
// Exported C++ workers of the flat form (matrix<T> containers as the flat entry points build
// them; every container's spare element absorbs out-of-range access). Block tables are m x K
// matrix<int> (stratum by distinct time, K >= the largest number of distinct times), block starts
// 1-based global row numbers. Each returns its status; none throws.
// ---------------------------------------------------------------------------------------------

// Log partial likelihood (loglik), gradient (p x 1) and second-derivative matrix (p x p) at beta.
// w: event weights (n x 1): the case weight of an event row, 0 for a censored row (RunCoxReg
// passes weight x status). ties: 0 Breslow, 1 Efron with the fraction truncated to 0, i.e. the
// Breslow values exactly; another code computes nothing (outputs 0). strataSizes: m rows counts.
VELKOR_API void ComputeLogLikeDerivativesCox(int p, matrix<double>* w, matrix<double>* X, int ties,
                                             matrix<double>* beta, matrix<int>* nTimes,
                                             matrix<int>* blockSize, matrix<int>* blockStart,
                                             int nStrata, matrix<double>* strataSizes,
                                             matrix<int>* blockEvents, double& loglik,
                                             matrix<double>* grad, matrix<double>* hess);

// Newton-Raphson fit from beta = 0 with ten step halvings. maxIter: in the limit, out the
// iterations done. Outputs at the final beta: loglik, grad (p), hess (p x p), inv (p x p, the
// inverse of hess, i.e. minus the covariance matrix); at iteration 1 (beta = 0): loglik0, grad0,
// inv0. Returns 0.
VELKOR_API int OptimizeCoxModel(int p, matrix<double>* w, matrix<double>* X, int ties,
                                matrix<double>* beta, matrix<int>* nTimes, matrix<int>* blockSize,
                                matrix<int>* blockStart, int nStrata, matrix<double>* strataSizes,
                                matrix<int>* blockEvents, int* maxIter, double tol, double& loglik,
                                double& loglik0, matrix<double>* grad, matrix<double>* hess,
                                matrix<double>* inv, matrix<double>* grad0, matrix<double>* inv0);

// Model statistics (6 x 2), global tests (3 x 3) and coefficient table columns 1 to 7 (p x 9;
// columns 8 and 9 untouched) of a fit; z receives the normal quantile at 1 - alpha / 2.
// nCensored: per-stratum censored counts (only the first is used). Returns 0.
VELKOR_API int ComputeCritCox(int n, int p, matrix<int>* nCensored, double loglik, double loglik0,
                              int iterations, double alpha, matrix<double>* beta,
                              matrix<double>* hess, matrix<double>* inv, double& z,
                              matrix<double>* modelStats, matrix<double>* grad0,
                              matrix<double>* inv0, matrix<double>* coefTable,
                              matrix<double>* globalTests);

// Forward selection (likelihood-ratio p-values) and backward elimination (Wald p-values when
// statistic == 0, likelihood-ratio p-values otherwise) over nVars variables; variable v covers
// varCoefs[v] consecutive design columns (a qualitative variable enters and leaves as a whole).
// The first arguments are those of OptimizeCoxModel. Outputs: pFinal (in: p; out: coefficients
// of the final model), inModel (p x 1: 1 for the columns of the final model), variableStep
// (nVars x 1), stepTable (nVars x 4), steps (number of rows written), and the final fit, compact:
// beta, grad, grad0 first pFinal entries; hess, inv, inv0 pFinal x pFinal column-major in their
// first pFinal^2 entries. Return the number of steps (>= 0), or -1 when varCoefs does not
// partition the p columns.
VELKOR_API int Cox_ForSelection(int p, matrix<double>* w, matrix<double>* X, int ties,
                                matrix<int>* nTimes, matrix<int>* blockSize,
                                matrix<int>* blockStart, int nStrata, matrix<double>* strataSizes,
                                matrix<int>* blockEvents, int* maxIter, double tol,
                                double threshold, int nVars, matrix<int>* varCoefs, int* pFinal,
                                matrix<int>* inModel, matrix<int>* variableStep,
                                matrix<double>* stepTable, matrix<double>* beta, double& loglik,
                                double& loglik0, matrix<double>* grad, matrix<double>* hess,
                                matrix<double>* inv, matrix<double>* grad0, matrix<double>* inv0);
VELKOR_API int Cox_BackSelection(int p, matrix<double>* w, matrix<double>* X, int ties,
                                 matrix<int>* nTimes, matrix<int>* blockSize,
                                 matrix<int>* blockStart, int nStrata, matrix<double>* strataSizes,
                                 matrix<int>* blockEvents, int* maxIter, double tol,
                                 double threshold, int statistic, int nVars, matrix<int>* varCoefs,
                                 int* pFinal, matrix<int>* inModel, matrix<int>* variableStep,
                                 matrix<double>* stepTable, matrix<double>* beta, double& loglik,
                                 double& loglik0, matrix<double>* grad, matrix<double>* hess,
                                 matrix<double>* inv, matrix<double>* grad0, matrix<double>* inv0);

// After the fit (flat containers). Data sorted and described by cReorganizeDataCox; X n x p raw
// covariates; beta p x 1. Breslow estimator whatever the ties code of the fit:
//   H0(t_k) = sum_{l <= k} d_l / S_l, S_l = sum of exp(x_i' beta) over the risk set (rows with
//   x_i' beta >= 700 left out; a time whose |S_l| <= 2.2e-16 adds nothing), S0 = exp(-H0).
// Cost O(n p) after the sort (plus the n x K survival-per-row output).

// baseSurv (nStrata x K), rowSurv (n x K), meanSurv (nStrata x K; covariates at their means over
// the n rows), K = baseSurv's number of columns; column k is the k-th distinct time of the
// stratum, cells past its last time hold the missing value. Any output may be empty. Returns 0.
VELKOR_API int SurvFoncCox(int n, int p, matrix<int>* nTimes, matrix<int>* blockStart,
                           matrix<int>* blockSize, matrix<int>* blockEvents, matrix<double>* X,
                           matrix<double>* beta, int nStrata, matrix<double>* strataSizes,
                           matrix<double>* baseSurv, matrix<double>* rowSurv,
                           matrix<double>* meanSurv);

// Residual table n x (4 + 2p): time, status, martingale, deviance (missing when the row's
// fitted cumulative hazard is 0), p Schoenfeld (0 for censored rows), p score residuals (R's
// residuals(type = "score") for Breslow ties); see RunCoxReg in velkor/cox.h. cumHaz
// (nStrata x K, H0 per stratum and distinct time), when not empty, is the cumulative hazard of
// the martingale and deviance residuals; otherwise H0 is computed from beta. Returns 0.
VELKOR_API int ResCox(matrix<double>* time, int n, int p, matrix<double>* status, matrix<double>* X,
                      matrix<double>* beta, matrix<int>* nTimes, matrix<int>* blockStart,
                      matrix<int>* blockSize, matrix<int>* blockEvents, int nStrata,
                      matrix<double>* strataSizes, matrix<double>* cumHaz,
                      matrix<double>* residuals);

// Concordance index of eta = X beta (rows in any order): a direction (i, j) is comparable when
// time_j > time_i strictly and status_i is exactly 1, concordant when eta_i > eta_j strictly
// (ties of eta count 0, not 1/2; equal times are never compared). Numerator / denominator over
// all directions; the missing value when nothing is comparable (or on failure). NaN times are
// never compared; a NaN eta is never concordant. This differs from R's concordance(), which
// counts tied predictors as 1/2 and compares an event with a censored row at the same time.
// O(n log n) time and O(n) memory (sort by time, Fenwick tree over the ranks of eta); equal to
// the pairwise count.
VELKOR_API double ConcordIndex(int n, int p, matrix<double>* time, matrix<double>* status,
                               matrix<double>* X, matrix<double>* beta);

// Fills row `row` (1-based) of a quality-index table (rows x 5): with D0, D the -2 log L of the
// null and fitted models (modelStats 6 x 2, row 3) and s = n - p - 1:
//   1  R-square 1 - exp(-(D0 - D) 2 / s); 1 when (D0 - D) 2 / s < -700
//   2  column 1 / (1 - exp(-2 D0) / s) (the division binds to the exponential alone and the
//      exponent is -2 D0 itself: kept as the index is defined); column 1 when 2 D0 / s < -700
//   3  (b - a) / b, 0 when not positive or when b <= 0 (the library passes a = D, b = D0:
//      the relative reduction of -2 log L)
//   4  ConcordIndex, 5 Somers' D = 2 (column 4 - 0.5) (missing when column 4 is).
// A value that is not finite (s = 0 with D0 = D, for instance) is written as the missing value.
// Returns 0; a row out of range writes nothing.
VELKOR_API int ComputeCVTable(int n, int p, matrix<double>* time, matrix<double>* status,
                              matrix<double>* X, matrix<double>* beta, double a, double b,
                              matrix<double>* modelStats, int row, matrix<double>* table);

// Bootstrap summary: reps B x cols (column-major: replicate b of statistic j at j B + b; missing
// or non-finite values are replicates that failed and are skipped), estimate cols x 1 (may be
// empty: missing). out cols x 6: estimate, mean, standard error (divisor m - 1, m replicates
// used; missing when m < 2), percentile limits at alpha / 2 and 1 - alpha / 2 (R's quantile
// type 7; alpha outside (0, 1) counts as 0.05), m. B = 0 gives m = 0 and missing values.
// Returns 0.
VELKOR_API int ComputeBootOut(int B, int cols, matrix<double>* reps, matrix<double>* estimate,
                              double alpha, matrix<double>* out);

// ---------------------------------------------------------------------------------------------
// Object form. Every function returns a status and never throws.
// ---------------------------------------------------------------------------------------------

// Prepares the data: the rows whose time, status, weight, stratum key and covariates are all
// present (not NaN, not <= the missing-value marker; a qualitative label among the variable's
// levels) are kept, sorted by stratum key then time (stable), and the design matrix is built:
// quantitative covariates first (in the order of factors.quantitative), then for each qualitative
// variable one indicator column per level except the first, in level order. The first level is
// the reference (R's treatment coding). Levels are cST_QualiInfo::levels when given, otherwise
// the distinct labels in ascending code-unit order. Column names: the column name, and
// "variable=level" for indicators; they are also written to factors.designNames and
// factors.designVariable. Returns 0, -1 (a status outside [0, 1] or NaN), -2 (fewer than two
// rows used) or -3 (no event); a column index out of range counts as no usable row (-2).
VELKOR_API int ReorganizeDataCox_ST(cST_DataSet& data, COX_Param& param, cCOX_Results& res,
                                    cST_FactorsInfo& factors);

// Log-likelihood, gradient (p) and second-derivative matrix (p x p) at beta over the prepared
// data of res (design columns listed in `columns`, all when empty), with the true Efron fraction
// (ties 1) or Breslow (0) and the event terms weighted. `quali` is accepted for symmetry with
// the flat form and may be null. Returns 0, or -1 when res holds no prepared data.
VELKOR_API int ComputeLogLikeDerivativesCox_ST(const VectD& beta, const std::vector<int>& columns,
                                               const cST_QualiInfo* quali, COX_Param& param,
                                               cCOX_Results& res, double& loglik, VectD& grad,
                                               VectD& hess);

// Fits the model on the design columns listed (all when empty): covariates centred, Newton steps
// with ten halvings, relative convergence. Fills beta, se, gradient, hessian, inverse,
// initGradient, initInverse, logLik, logLik0, iterations, notConverged, zeroCoefficient of res
// (vectors sized by the columns used) and param.maxIterations (iterations done). Returns 0, or -1
// when the inversion fails or the halvings are exhausted. The halving rule asks every iteration
// for a gain above 2.2e-16: data whose maximum is at beta = 0 exactly, or a tolerance finer than
// the log-likelihood can resolve (about 1e-13 relative), end the fit with -1. Cost per
// iteration O(n q^2 + q^3), n rows and q columns.
VELKOR_API int OptimizeCoxModel_ST(COX_Param& param, cCOX_Results& res,
                                   const std::vector<int>& columns);

// Criteria tables of res (modelStats, globalTests, coefTable, z) from its fit, placed by
// res.inModel into the full-design coefficient table. Returns 0.
VELKOR_API int ComputeCritCox_ST(COX_Param& param, cCOX_Results& res);

// Selections of the object form, with the same rules as the flat ones; they leave the final model
// fitted in res and fill inModel, variableStep, stepTable and steps. Return the number of steps or
// -1 when a fit fails.
VELKOR_API int Cox_ForSelection_ST(COX_Param& param, cCOX_Results& res);
VELKOR_API int Cox_BackSelection_ST(COX_Param& param, cCOX_Results& res);

// The whole run: preparation, fit or selection, criteria. Returns 0, -1, -2, -3 (preparation) or
// -5 (the fit or the selection failed; the tables of res are then left empty).
VELKOR_API int COX_RunCoxReg_ST(cST_DataSet& data, COX_Param& param, cCOX_Results& res,
                                cST_FactorsInfo& factors, VELKORInfo& info);

// ---- After the fit (object form) ----------------------------------------------------------------
// On the prepared data and the final model of res (centred covariates; layouts in cCOX_Results).
// Each returns 0, or -1 when res holds no prepared data. COX_RunCoxReg_ST calls, after the
// criteria: ComputeCVTable_ST; unless res.suppressSurvival is -1, SurvFoncCox_ST, ResCox_ST and,
// when param.proportionalityTest is -1, Cox_ProportionalityTest_ST; CoxCV_ST when
// param.cvFolds >= 2; ComputeBootOut_ST when param.bootstrapSamples >= 1.
VELKOR_API int SurvFoncCox_ST(COX_Param& param, cCOX_Results& res);
VELKOR_API int ResCox_ST(COX_Param& param, cCOX_Results& res);
// res.concordance (missing value when nothing is comparable).
VELKOR_API int ConcordIndex_ST(cCOX_Results& res);
// res.cvTable = the quality-index row (1 x 5) of the final model, pair (a, b) = (D, D0).
VELKOR_API int ComputeCVTable_ST(COX_Param& param, cCOX_Results& res);
// Grambsch-Therneau test (score test of beta_j(t) = beta_j + theta_j (g(t) - mean of g over the
// events), g from param.phTransform), Breslow risk-set moments, as R's cox.zph(terms = FALSE)
// for a Breslow fit: per covariate the test uses the beta block and theta_j; the global test all
// of theta. res.phTest (q + 1) x 3; a singular information gives missing values. O(n q^2 + q^3).
VELKOR_API int Cox_ProportionalityTest_ST(COX_Param& param, cCOX_Results& res);
// k-fold cross-validation, k = min(param.cvFolds, n) (nothing when k < 2): a random permutation
// of the rows (Fisher-Yates from GetSeed(param.seed)) puts the row at position t in fold t mod k.
// Each fold is evaluated with the model fitted on the other rows: D0, D = -2 log L of the fold at
// beta = 0 and at the training beta, n = the fold's rows, concordance on the fold. A fold whose
// training fit fails (no event, singular matrix) keeps a missing row; a fold with no event has
// D0 = D = 0 and a missing concordance. res.cvTable becomes (k + 2) x 5 (see cCOX_Results);
// the last row is the mean of the folds' non-missing values. Folds run in parallel (OpenMP);
// results do not depend on the number of threads. info.progress is called between chunks of
// folds from the calling thread; false stops (the remaining rows stay missing).
VELKOR_API int CoxCV_ST(COX_Param& param, cCOX_Results& res, VELKORInfo& info);
// Bootstrap: B = param.bootstrapSamples resamples of n rows with replacement, resample b drawn
// from GetSeedUpdate(param.seed, b); each refitted from beta = 0; statistics: the q coefficients
// and the concordance index on the resample. res.bootTable (q + 1) x 6 as ComputeBootOut, with
// the estimates of the model on all rows; failed fits are left out (column 6 counts the rest).
// Parallel (OpenMP), identical for any thread count; progress as CoxCV_ST.
VELKOR_API int ComputeBootOut_ST(COX_Param& param, cCOX_Results& res, VELKORInfo& info);

// Object entry point: COX_RunCoxReg_ST with the error record of info filled on a non-zero status
// (keys "StatusRange", "TooFewRows", "NoEvent", "FitFailed", "Internal").
VELKOR_API int COX_Compute_ST(cST_DataSet& data, COX_Param& param, cCOX_Results& res,
                              cST_FactorsInfo& factors, VELKORInfo& info);

// Entry point of the spreadsheet front end: the data set arrives as OLE Automation record arrays
// (cST_ColumnRecord, see containers.h): `numeric` holds the numeric columns (their record names
// become the column names), `text` the qualitative columns (one cST_QualiInfo each, levels
// sorted). Either may be null. Then as COX_Compute_ST.
VELKOR_API int Cpp_COX_Compute_ST(SAFEARRAY* numeric, SAFEARRAY* text, COX_Param& param,
                                  cCOX_Results& res, cST_FactorsInfo& factors, VELKORInfo& info);
