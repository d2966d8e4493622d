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
// log-likelihood that is reported.
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

  // Switches of the post-fit routines (-1 true, 0 false). The survival function, residuals and
  // proportionality test are computed by later routines of the family (see cCOX_Results).
  std::int16_t proportionalityTest = 0;

  // Validation settings (cross-validation, bootstrap), used by the validation routines.
  int cvFolds = 0;
  int bootstrapSamples = 0;
  std::uint32_t seed = 0;
};

// ---------------------------------------------------------------------------------------------
// Results of the object form. The caller sets the two request flags; everything else is written
// by the run. Vectors are column-major tables as described at the top of this header.
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
  VectD means;                  // p: column means subtracted by the fit
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

  // Room for the post-fit and validation routines of the family (filled by them; left empty by
  // the routines of this header): baseline survival, survival per row and at the mean
  // covariates, residual table, concordance index, quality-index table, bootstrap summary and
  // proportional-hazards test.
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
