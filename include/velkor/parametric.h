/* Flat entry points of the parametric survival regression family (see VELKORLI1M.h for the shared
 * conventions: column-major tables, "in" arrays never written, outputs copied back, 16-bit flags
 * -1 true / 0 false, VELKOR_MISSING in cells without a value, positive statuses = internal
 * failure with nothing written).
 *
 * Model: log T = x'beta + beta_0 + sigma e, e a standard minimum extreme value error (dist 1
 * exponential, sigma = 1; dist 2 Weibull) or a standard normal error (dist 3 log-normal).
 * Parameter vectors hold the p coefficients, then the intercept, then sigma (dist 2 and 3):
 * p + k entries with k = 1 for dist 1 and k = 2 otherwise.
 *
 * Censoring codes (compared exactly): 1 event at the time, 0 right-censored at the time,
 * 2 left-censored at the time, 3 interval-censored between the time (lower bound) and column 2 of
 * the bound matrix. Codes outside 0..3 add nothing to the log-likelihood.
 *
 * Deliberate properties of the log-likelihood (kept for the results of the front end):
 *   - exponential law: the four censoring terms are running values carried from the last
 *     observation of each code to every later observation; an event with y - eta >= 700 adds
 *     y - eta to the previous event term;
 *   - Weibull law: left- and interval-censored terms are unweighted; events carry the Jacobian -y;
 *   - log-normal law: the left-censored term is subtracted (- v log Phi(z)).
 * Gradients and Hessians are the exact derivatives of that function (carried terms included).
 *
 * Common array arguments:
 *   times   in, n:     the time of each observation (already log-transformed unless a logTime
 *                      flag says otherwise); the lower bound for code 3;
 *   codes   in, n:     censoring codes as above;
 *   bounds  in, n x 2: column 1 the lower bound (not read: the time is used), column 2 the upper
 *                      bound of code-3 observations;
 *   design  in, n x p: covariates (may be NULL when p = 0);
 *   weights in, n:     observation weights; NULL means unit weights.
 */
#ifndef VELKOR_PARAMETRIC_H
#define VELKOR_PARAMETRIC_H

#include "velkor/export.h"
#include "velkor/status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Log-likelihood, gradient and Hessian at given parameters.
 *   times, codes, bounds, design, weights: see above (n rows, p covariates);
 *   k       number of law parameters (1 for dist 1, 2 for dist 2 and 3); a k that does not match
 *           the law, or a dist outside 1..3, gives a log-likelihood and derivatives of 0;
 *   params  in, p + k;
 *   loglik  out, 1; grad out, p + k; hess out, (p + k) x (p + k) symmetric.
 * Returns 0 (or a positive internal status). One pass over the data, O(n (p + k)^2). */
VELKOR_API int Cpp_ComputeLogLikeDerivativesParam(const double* times, int n, int p, int k,
                                                  const double* codes, const double* bounds,
                                                  const double* design, const double* params,
                                                  const double* weights, int dist, double* loglik,
                                                  double* grad, double* hess);

/* Newton-Raphson maximum-likelihood fit with step halving from the starting values below, and
 * nothing else: no modified Hessian, no restart from other values.
 * Start: without covariates the intercept is the weighted mean time (+ 0.572 for the Weibull law);
 * with covariates intercept and coefficients are the weighted least-squares fit of the times on
 * the design; the scale is the weighted variance of the times (log-normal law) or, for the Weibull
 * law, 0.5 ln(4 var / 1.64) when that is positive and the variance otherwise.
 * Iteration: the Newton step theta - H^-1 g; a non-positive scale becomes 1e-12; the point is
 * accepted when the log-likelihood rises by more than 2.220446049250313e-16, else the step is
 * halved up to 10 times; after 10 failed halvings the Hessian is replaced by its diagonal, the
 * last parameter keeps its last halved value (the log-likelihood is re-evaluated there; the
 * gradient and the diagonal stay those of the point before) and the iteration goes on. The fit
 * stops at the iteration limit or when an accepted step changes the log-likelihood by less than
 * tol.
 * Fixed intercept (a choice of this library): the intercept is held at interceptValue and the
 * step is the Newton step of the free parameters, -H_ff^-1 g_f over their block of the Hessian,
 * so the fit ends at the maximum with the intercept held (moving the free parameters by their
 * entries of the full H^-1 g would stop short of it).
 * Where the log-likelihood is not concave between the start and the estimate (a start scale far
 * below the estimate, as the Weibull formula gives on small data sets such as ovarian), the path
 * can leave for a region where the 700 exponent guard makes the Weibull log-likelihood unbounded
 * and end at the iteration limit with a singular Hessian: that is reported (iterations = limit,
 * status -2 when the last step met a singular Hessian), never replaced by another algorithm.
 *   iterations  in/out, 1: in the maximum number of iterations, out the number used;
 *   tol         convergence tolerance on the absolute change of log-likelihood;
 *   fixIntercept flag; interceptValue: the intercept held fixed when the flag is set;
 *   loglik out, 1; grad out, p + k; hess out, (p + k)^2: at the estimate;
 *   params out, p + k: the estimate.
 * Returns 0, or -2 when the last Newton step met a singular Hessian. */
VELKOR_API int Cpp_OptimizeParamModel(const double* times, int n, int p, int k, const double* codes,
                                      const double* bounds, const double* design,
                                      const double* weights, int* iterations, double tol, int dist,
                                      short fixIntercept, double interceptValue, double* loglik,
                                      double* grad, double* hess, double* params);

/* Complete parametric regression: null model, full model or covariate selection, tables and
 * residuals.
 *   method      -1 no selection, 1 backward elimination (Wald p-value >= pRemove leaves),
 *               0 forward selection (Wald p-value < pEnter enters); any other value fits only
 *               the null model and reports it as the final model;
 *   iterations  in/out, 1: the iteration limit of each fit; out the iterations of the final fit;
 *   logTime     flag: times (and upper bounds of code-3 rows) are log-transformed first (the
 *               caller's arrays are not changed); non-positive times then give a non-finite
 *               log-likelihood and a failed fit (-1 or -5);
 *   alpha       significance level of the confidence limits.
 * Outputs (full layout of the p covariates: a covariate not in the final model has coefficient
 * 0, covariance entries 0 and a parameter-table row of VELKOR_MISSING):
 *   params  out, p + k;
 *   cov     out, (p + k) x (p + k): the inverse Hessian at the estimate, i.e. MINUS the asymptotic
 *           covariance (negative diagonal);
 *   crit    out, 7 x 2: columns null model, final model; rows number of observations, number of
 *           parameters (k; q + k), -2 log L, AIC = 2m - 2L, SBC = m ln(n) - 2L,
 *           AICc = AIC + 2m(m + 1)/(n - m - 1) (missing when n - m - 1 <= 0), and 1 / the
 *           iterations of the final fit; rows 3-6 missing when L <= -1e50;
 *   ptable  out, (p + k) x 6: rows intercept, covariates 1..p, sigma (k = 2); columns estimate,
 *           standard error, Wald chi-square, p-value, lower and upper limit (estimate -/+ z se);
 *           columns 2-6 missing when the variance is not estimable;
 *   tests   out, 3 x 3: rows likelihood ratio, score (at the null estimate), Wald; columns df
 *           (covariates in the final model), statistic, p-value (missing with 0 df);
 *   history out, p x 4: one row per selection step: covariate number (1-based, original order),
 *           covariates in the model after the step, Wald chi-square, p-value; rows after the last
 *           step are left as passed;
 *   resid   out, n x 4: columns standardised residual (y - eta)/sigma, Cox-Snell residual
 *           -log S(y), martingale residual delta - Cox-Snell (delta = 1 for code 1 only) and
 *           deviance residual sign(m) sqrt(-2 (m + delta log(delta - m)));
 *   kept    out, p: 1 for a covariate in the final model, 0 otherwise;
 *   nKept   out, 1: number of covariates in the final model.
 * Returns 0; -1 when the full model (method -1) used the whole iteration limit (criteria, tables
 * and residuals are then not computed; a Hessian that stays singular, as with a law code outside
 * 1..3, or a likelihood without a finite maximum, as with every observation censored, ends
 * there); -5 when the full fit returned a negative status before the limit or a fit inside a
 * selection failed (singular Hessian). */
VELKOR_API int Cpp_RunParamReg(const double* times, int n, int p, const double* codes,
                               const double* bounds, const double* design, const double* weights,
                               int dist, int method, double pEnter, double pRemove, int* iterations,
                               double tol, short fixIntercept, double interceptValue, short logTime,
                               double alpha, double* params, double* cov, double* crit,
                               double* ptable, double* tests, double* history, double* resid,
                               double* kept, int* nKept);

/* Backward elimination (Cpp_Param_BackSelection) and forward selection (Cpp_Param_ForSelection)
 * by Wald tests. Fits start from least squares as in Cpp_OptimizeParamModel.
 *   threshold   removal threshold (backward: leaves while p-value >= threshold) or entry
 *               threshold (forward: enters while p-value < threshold);
 *   iterations  in/out, 1: iteration limit of each fit; out the iterations of the last fit;
 *   loglik out, 1: log-likelihood of the final model;
 *   params  out, p + k: the final estimate in its own layout (the q kept coefficients in the
 *           order of `columns`, intercept, sigma) in the first q + k entries;
 *   hess    out, (p + k) x (p + k): the Hessian of the final model in its top-left
 *           (q + k) x (q + k) block;
 *   columns out, p: the original 1-based numbers of the q kept covariates in the first q entries
 *           (backward: in design order; forward: in order of entry);
 *   history out, p x 4: per step covariate number, covariates in the model after it, Wald
 *           chi-square, p-value; rows after the last step are left as passed;
 *   nKept out, 1 (q); nSteps out, 1.
 * A covariate whose variance is not estimable counts as Wald 0, p-value 1.
 * Returns 0, or -2 when a fit met a singular Hessian. */
VELKOR_API int Cpp_Param_BackSelection(const double* times, int n, int p, const double* codes,
                                       const double* bounds, const double* design,
                                       const double* weights, int dist, double threshold,
                                       int* iterations, double tol, short fixIntercept,
                                       double interceptValue, double* loglik, double* params,
                                       double* hess, double* columns, double* history, int* nKept,
                                       int* nSteps);
VELKOR_API int Cpp_Param_ForSelection(const double* times, int n, int p, const double* codes,
                                      const double* bounds, const double* design,
                                      const double* weights, int dist, double threshold,
                                      int* iterations, double tol, short fixIntercept,
                                      double interceptValue, double* loglik, double* params,
                                      double* hess, double* columns, double* history, int* nKept,
                                      int* nSteps);

/* Criteria, parameter and tests tables of a fitted model with p covariates, k law parameters.
 *   n observations; llNull, llModel: log-likelihoods of the null and fitted model;
 *   iterations: written in row 7 of the fitted column of the criteria;
 *   params      in, p + k: estimate (coefficients, intercept, sigma);
 *   invHess     in, (p + k)^2: inverse Hessian at the estimate (negative diagonal at a maximum);
 *   gradNull    in, p + k; invHessNull in, (p + k)^2: gradient and inverse Hessian of the fitted
 *               model's log-likelihood at the null estimate (coefficients 0), for the score test;
 *   crit out, 7 x 2; ptable out, (p + k) x 6; tests out, 3 x 3: as in Cpp_RunParamReg.
 * Returns 0. */
VELKOR_API int Cpp_ComputeCritParam(int n, int p, int k, double llNull, double llModel,
                                    int iterations, const double* params, const double* invHess,
                                    const double* gradNull, const double* invHessNull, double alpha,
                                    double* crit, double* ptable, double* tests);

/* Residuals of a fitted model (see Cpp_RunParamReg), each out, n:
 * stdRes (y - eta)/sigma, coxSnell -log S, martingale, deviance. A dist outside 1..3 gives
 * VELKOR_MISSING. params in, p + k. Returns 0. */
VELKOR_API int Cpp_ResParam(const double* times, int n, int p, const double* codes,
                            const double* design, const double* params, int dist, double* stdRes,
                            double* coxSnell, double* martingale, double* deviance);

/* Interval-censored records from a judge-by-storage-time table.
 *   judge    in, n x m: 1 positive, 0 negative judgement of subject i at storage time j
 *            (VELKOR_MISSING allowed);
 *   stimes   in, m: increasing storage times;
 *   data     in/out, n x d: per-subject columns; on return the first nKept x d elements
 *            (column-major, nKept rows) hold the kept subjects in record order;
 *   nRemoved out, 1; nKept out, 1;
 *   flags    out, n: first nRemoved entries the 1-based input rows of the removed subjects
 *            (subjects whose first judgement is 0), then zeros;
 *   bounds   out, n x 2: the first nKept x 2 elements (an nKept x 2 column-major table) hold
 *            lower and upper bounds;
 *   codes    out, n; times out, n: first nKept entries, in increasing time order: code 0
 *            right-censored at t_m, 2 left-censored, 3 interval-censored (lower bound = time);
 *   summary  out, m x 2: per storage time, sum of the judgements over rows 1..nKept of `judge`
 *            and that sum x 100 / n (n before removal, deliberately).
 * Returns 0; -2 when every subject is removed; -1 when a code outside 0..3 is read (rows beyond
 * nKept read the last code stored, that of subject n in input order: so -1 when subject n was
 * removed; the records are written all the same). */
VELKOR_API int Cpp_PrepareIntervalData(const double* judge, int n, int m, const double* stimes,
                                       double* data, int d, int* nRemoved, int* flags, int* nKept,
                                       double* bounds, double* codes, double* times,
                                       double* summary);

/* Judgement table from a list of (storage time, response) pairs.
 *   stime    in, n: storage time of each pair;
 *   orderKey in, n: values whose ascending sort gives the input order (e.g. 1..n);
 *   nCode    number of pairs (rows of judge) to code;
 *   response in, n: 1 (positive up to and including its time) or 2 (positive before its time);
 *   judge    in/out, nCode x m: row i gets 1 in columns 1..k and m (response 1) or 1..k-1
 *            (response 2), k the rank of its time among the distinct times; every other cell
 *            keeps the caller's value (pass zeros);
 *   distinct out, m: the distinct times in increasing order.
 * Returns 0. */
VELKOR_API int Cpp_TransformJudgeToInt(const double* stime, int n, int m, const double* orderKey,
                                       int nCode, const double* response, double* judge,
                                       double* distinct);

#ifdef __cplusplus
}
#endif

#endif /* VELKOR_PARAMETRIC_H */
