// Drivers of the Cox regression: the flat run (cRunCoxReg) and the object-form workers.
#pragma once

#include <vector>

#include "cox/cox.h"
#include "velkor/cox_objects.h"

namespace velkor::cox {

// Likelihood terms of the flat form for a ties code: 0 and 1 give the Breslow terms (the flat
// Efron fraction truncates to 0); another code computes nothing.
TieTerms FlatTerms(int ties);

// Fits of column subsets of the row-major design `rows` (n x p) with the flat Newton-Raphson
// scheme; `rows` must outlive the returned function.
ColumnFit FlatColumnFit(const CoxProblem& prob, const double* rows, std::size_t n, int p,
                        int maxIter, double tol);

// Log-likelihood at beta = 0 of a row-major design (0 when p < 1: nothing is accumulated).
double NullLogLik(const CoxProblem& prob, const double* rowMajor, std::size_t n, int p);

// The flat run behind RunCoxReg (arguments as documented there, as containers). Returns 0, the
// preparation's -1, -2, -3, or -5 when the selection fails.
int cRunCoxReg(matrix<double>* time, matrix<double>* status, matrix<double>* weights,
               matrix<double>* X, matrix<double>* strata, matrix<double>* strataSizes, int n, int p,
               int m, int ties, int* maxIter, double tol, int selection, double threshold,
               int backStatistic, int nVars, matrix<int>* varCoefs, double alpha, short survRes,
               int survCols, matrix<double>* beta, matrix<double>* modelStats,
               matrix<double>* globalTests, matrix<double>* coefTable, double& z,
               matrix<double>* stepTable, matrix<int>* variableStep, int* nFinal,
               matrix<double>* baseSurvival, matrix<double>* rowSurvival,
               matrix<double>* meanSurvival, matrix<double>* residuals);

// The validated layout of the prepared data of an object-form run.
RiskLayout ObjectLayout(cCOX_Results& res);
// Tie terms of the object form: 1 Efron, 0 Breslow (event terms weighted), others nothing.
TieTerms ObjectTerms(int ties);
// Mean of design column j over the n prepared rows: res.means (the preparation computes them, in
// the same order of summation as a pass over the column) when it holds p values, otherwise a pass
// over the column.
double ColumnMean(const cCOX_Results& res, int j);

// Object form (contracts in velkor/cox_objects.h, under the same names without the namespace).
int ReorganizeDataCox_ST(cST_DataSet& data, COX_Param& param, cCOX_Results& res,
                         cST_FactorsInfo& factors);
int ComputeLogLikeDerivativesCox_ST(const VectD& beta, const std::vector<int>& columns,
                                    COX_Param& param, cCOX_Results& res, double& loglik,
                                    VectD& grad, VectD& hess);
int OptimizeCoxModel_ST(COX_Param& param, cCOX_Results& res, const std::vector<int>& columns);
int ComputeCritCox_ST(COX_Param& param, cCOX_Results& res);
int Cox_ForSelection_ST(COX_Param& param, cCOX_Results& res);
int Cox_BackSelection_ST(COX_Param& param, cCOX_Results& res);
int COX_RunCoxReg_ST(cST_DataSet& data, COX_Param& param, cCOX_Results& res,
                     cST_FactorsInfo& factors, VELKORInfo& info);

// After the fit (object form; contracts in velkor/cox_objects.h).
int SurvFoncCox_ST(COX_Param& param, cCOX_Results& res);
int ResCox_ST(COX_Param& param, cCOX_Results& res);
int ConcordIndex_ST(cCOX_Results& res);
int ComputeCVTable_ST(COX_Param& param, cCOX_Results& res);
int Cox_ProportionalityTest_ST(COX_Param& param, cCOX_Results& res);
int CoxCV_ST(COX_Param& param, cCOX_Results& res, VELKORInfo& info);
int ComputeBootOut_ST(COX_Param& param, cCOX_Results& res, VELKORInfo& info);
// Bootstrap summary of B replicates of `cols` statistics (reps B x cols column-major, missing
// values skipped): out cols x 6 = estimate, mean, standard error, percentile limits at alpha / 2
// and 1 - alpha / 2, number of replicates used.
void BootSummary(int B, int cols, const double* reps, const double* estimate, double alpha,
                 double* out);

}  // namespace velkor::cox
