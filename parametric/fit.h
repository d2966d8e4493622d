// Maximum-likelihood fitting of the parametric survival model (likelihood.h): the Newton-Raphson
// optimiser, the driver with covariate selection, the criteria / parameter / tests tables and the
// residuals.
//
// Parameter layout everywhere: the p covariate coefficients, the intercept, then (Weibull and
// log-normal, k = 2) the scale sigma. Tables are column-major matrix<double>.
#pragma once

#include "velkor/containers.h"

// Newton-Raphson maximisation of the log-likelihood.
//   time, cens, bounds, design, weights: as in likelihood.h (n rows, p covariates, k law params);
//   iterations (in/out): on entry the maximum number of iterations, on return the number used;
//   tol: convergence tolerance, an absolute change of log-likelihood between accepted points;
//   fixIntercept (-1 true) with interceptValue: the intercept is held at that value;
//   loglik (out), grad (out, p + k), hess (out, (p + k)^2): at the returned parameters;
//   params (out, p + k): the estimate.
// Start: intercept = weighted mean of the times (+0.572 for the Weibull law) without covariates,
// else weighted least squares (OLSBasic, tolerances 1e-4) of the times on the design and a
// constant; scale = weighted variance of the times, for the Weibull law replaced by
// 0.5 ln(4 var / 1.64) when that is positive. Each iteration takes the Newton step
// (cNewtonRaphson), clamps a non-positive scale to 1e-12, and accepts the point when the
// log-likelihood rises by more than the machine epsilon, else halves the step up to 10 times;
// after 10 failed halvings the Hessian is replaced by its diagonal, the current point is kept
// except for the last parameter, which keeps its last halved value, and iteration goes on.
// With a fixed intercept its flag is 1.0 and the step is the Newton step of the free parameters
// (the intercept's row and column are decoupled from H before cNewtonRaphson), so the maximum
// with the intercept held is reached; the intercept never moves.
// Nothing else is added (no modified Hessian, no restart): a path that cannot reach a maximum
// ends at the iteration limit with the status of its last Newton step.
// Returns 0 when the last Newton step could invert the Hessian, -2 otherwise.
// Cost per iteration: one pass with derivatives (likelihood.h) plus one log-likelihood pass per
// halving, and O((p + k)^3) for the step.
int OptimizeParamModel(matrix<double>* time, int n, int p, int k, matrix<double>* cens,
                       matrix<double>* bounds, matrix<double>* design, matrix<double>* weights,
                       int& iterations, double tol, int dist, short fixIntercept,
                       double interceptValue, double& loglik, matrix<double>* grad,
                       matrix<double>* hess, matrix<double>* params);

// Backward elimination by Wald tests. Fits the model with the p columns of `design`, then, while
// the covariate with the largest Wald p-value (chi-square, 1 df; first on ties) has p-value >=
// pRemove, removes its column (M_RemoveCol, in place: `design` shrinks), records the step and
// refits. `columns` (in/out, p entries): on entry the original 1-based number of each column (or
// anything: it is then filled with 1..p), on return the numbers of the columns kept, in order,
// in its first pKept entries. history (p x 4, out; rows of steps in order, others untouched):
// column 1 the original number of the covariate removed, column 2 the number of covariates left,
// column 3 its Wald chi-square, column 4 its p-value. The fit of the final model is returned in
// loglik, grad, hess, params (pKept + k entries) and iterations (in: limit; out: used by the
// last fit). Returns 0, or the negative status of a fit (-2).
int Param_BackSelection(matrix<double>* time, int n, int p, int k, matrix<double>* cens,
                        matrix<double>* bounds, matrix<double>* design, matrix<double>* weights,
                        int dist, double pRemove, int& iterations, double tol, short fixIntercept,
                        double interceptValue, double& loglik, matrix<double>* grad,
                        matrix<double>* hess, matrix<double>* params, matrix<double>* columns,
                        matrix<double>* history, int& pKept, int& steps);

// Forward selection by Wald tests, the mirror of the backward one: starting from no covariate,
// each step fits the current model plus each candidate in turn and adds the candidate with the
// smallest Wald p-value (first on ties) while that p-value is below pEnter. The chosen columns
// replace the content of `design` (in place, in the order they entered); `columns` (out) holds
// their original 1-based numbers. history as for the backward selection, column 1 the covariate
// added and column 2 the number of covariates in the model after the step. Returns 0, or the
// negative status of a fit.
int Param_ForSelection(matrix<double>* time, int n, int p, int k, matrix<double>* cens,
                       matrix<double>* bounds, matrix<double>* design, matrix<double>* weights,
                       int dist, double pEnter, int& iterations, double tol, short fixIntercept,
                       double interceptValue, double& loglik, matrix<double>* grad,
                       matrix<double>* hess, matrix<double>* params, matrix<double>* columns,
                       matrix<double>* history, int& pKept, int& steps);

// Criteria, parameter and tests tables of a fitted model with p covariates and k law parameters.
//   params (p + k), invHess ((p + k)^2): the estimate and the inverse of the Hessian at it (the
//   Part's "covariance": minus the asymptotic covariance, negative diagonal at a maximum);
//   gradNull (p + k), invHessNull ((p + k)^2): gradient and inverse Hessian of the p-covariate
//   model at the null-model estimate (coefficients 0), for the score test;
//   crit (7 x 2, out): rows n, parameters (k | p + k), -2L, AIC, SBC, AICc, (1 | iterations);
//     rows 3..6 (1-based) are missing when L <= -1e50; AICc is missing when n - m - 1 <= 0;
//   ptable ((p + k) x 6, out): rows intercept, covariates 1..p, scale; columns estimate, standard
//     error sqrt(-invHess_jj), Wald chi-square, p-value, lower and upper bound est -/+ z se with
//     z = InvCDFNormalStd(1 - alpha/2); columns 2..6 missing when invHess_jj is not negative;
//   tests (3 x 3, out): rows likelihood ratio, score, Wald; columns df = p, statistic, p-value.
//     LR = -2 (L0 - L), p-value only when L0 - L <= 0; score = -gradNull' invHessNull gradNull;
//     Wald = -b' [invHess_bb]^-1 b over the coefficients, missing when that form is <= -1e100.
void ComputeCritParam(int n, int p, int k, double llNull, double llModel, int iterations,
                      matrix<double>* params, matrix<double>* invHess, matrix<double>* gradNull,
                      matrix<double>* invHessNull, double alpha, matrix<double>* crit,
                      matrix<double>* ptable, matrix<double>* tests);

// Residuals of a fitted model, one value per observation in each of four vectors (n x 1):
//   stdRes    standardised residual z = (y - eta) / sigma (sigma = 1 for the exponential law),
//             y the (log) time of the time vector (the lower bound of an interval);
//   coxSnell  estimated cumulative hazard at y, r = -log S(z): e^z (exponential, Weibull),
//             -log(1 - Phi(z)) (log-normal);
//   martingale delta - r, delta = 1 for an event (code 1) and 0 for every other code;
//   deviance  sign(m) sqrt(-2 (m + delta log(delta - m))), m the martingale residual.
// Cells that cannot be computed (a law code outside 1..3) hold the missing-value marker.
void ResParam(matrix<double>* time, int n, int p, matrix<double>* cens, matrix<double>* design,
              matrix<double>* params, int dist, matrix<double>* stdRes, matrix<double>* coxSnell,
              matrix<double>* martingale, matrix<double>* deviance);

// Driver. Inputs as above plus: selection method (-1 none, 1 backward, 0 forward; any other
// value fits no covariate model and reports the null model as the final one), pEnter and pRemove,
// iterations (in: limit; out: used by the final fit), logTime (-1: times, and the upper bounds of
// code-3 rows, are replaced in place by their natural logarithms), alpha.
// Outputs (all in the full layout of the p covariates; a covariate left out by the selection has
// coefficient 0, zero covariance entries and a parameter-table row of missing values):
//   params (p + k), cov ((p + k)^2: the inverse Hessian, see ComputeCritParam), crit (7 x 2),
//   ptable ((p + k) x 6), tests (3 x 3), history (p x 4, see the selections; untouched rows keep
//   their content), resid (n x 4: the four residual vectors of ResParam as columns),
//   kept (p: 1 for a covariate in the final model, 0 otherwise), pFinal (covariates kept).
// Returns 0; -1 when the full model (method -1) used the whole iteration limit (no criteria or
// residuals then; checked first, so a Hessian that stays singular ends here); -5 when the full
// fit or a selection returned a negative status.
int RunParamReg(matrix<double>* time, int n, int p, matrix<double>* cens, matrix<double>* bounds,
                matrix<double>* design, matrix<double>* weights, int dist, int method,
                double pEnter, double pRemove, int& iterations, double tol, short fixIntercept,
                double interceptValue, short logTime, double alpha, matrix<double>* params,
                matrix<double>* cov, matrix<double>* crit, matrix<double>* ptable,
                matrix<double>* tests, matrix<double>* history, matrix<double>* resid,
                matrix<double>* kept, int& pFinal);
