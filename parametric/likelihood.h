// Log-likelihood of the parametric (accelerated failure time) survival model and its exact first
// and second derivatives, for exact, right-, left- and interval-censored observations.
//
// Model: log T = eta + sigma * e, eta = x'beta + beta_0, with e a standard minimum extreme value
// (exponential: sigma = 1; Weibull) or standard normal (log-normal) error.
//
// Shared arguments (all matrix<double>, n x 1 unless stated; rows beyond a container's length are
// not read: n is clipped to the shortest of time, codes, weights, design and bounds):
//   time    the (log) time of each observation: exact time, censoring time or lower bound;
//   n, p    observations and covariates (p may be 0);
//   k       number of law parameters: 1 for the exponential law, 2 for Weibull and log-normal.
//           A k that does not match the law makes the whole evaluation add nothing (log-
//           likelihood, gradient and Hessian 0), like a law code outside 1..3;
//   cens    censoring code per observation, compared exactly with 1 (event), 0 (right-censored),
//           2 (left-censored), 3 (interval-censored between time and bounds(., 2)); other values
//           add nothing;
//   bounds  n x 2; column 2 is the upper bound of code-3 observations (column 1 mirrors time and
//           is not read: the lower bound is the time, which the driver may have log-transformed);
//   design  n x p covariates, column-major;
//   params  p + k values: coefficients 0..p-1, intercept p, scale sigma p+1 (k = 2);
//   weights observation weights (null = 1);
//   dist    1 exponential, 2 Weibull, 3 log-normal; any other code adds nothing.
//
// Contributions (z = (y - eta)/sigma, w = y - eta, v the weight, F/S the error CDF/survival):
//   Weibull    event v(-log sigma + z - y) - v e^z [e^z only when z < 700]; right -v e^z [z < 700];
//              left log(1 - exp(-e^z)) and interval log(exp(-e^zl) - exp(-e^zu)) UNWEIGHTED
//              (deliberate: the fitted models of the front end depend on it);
//   log-normal event v log(phi(z)/sigma); right v log(1 - Phi(z)); left MINUS v log Phi(z)
//              (deliberate sign); interval v log(Phi(zu) - Phi(zl));
//   exponential four running terms (event w - e^w, right -e^w, left log(1 - exp(-e^w)), interval
//              log(exp(-e^(l-eta)) - exp(-e^(u-eta)))), all 0 before the first observation; an
//              observation recomputes only the term of its own code (subject to the 700 guards)
//              and contributes v times the sum of all four, so terms are carried over to later
//              observations on purpose. An event with w >= 700 sets the event term to the
//              previous event term plus w.
// The gradient and Hessian are the exact analytic derivatives of that function, carried terms
// included (a carried term depends on the parameters through the row that computed it).
// Tail probabilities are computed in their stable forms (1 - exp(-e^z) by expm1, log phi
// analytically; the normal tails through the scaled tail R(z) = (1 - Phi(z)) exp(z^2/2) of
// companion/normal_tail.h, so that log(1 - Phi(z)) = -z^2/2 + log R(z) and the Mills ratio
// 1/(sqrt(2 pi) R(z)) need neither exp nor erfc); mathematically they are the formulas above.
// Where 1 - Phi(z) or Phi(z) underflows (|z| > 38.5) the log-normal right and left terms and
// their derivatives stay finite and exact instead of becoming log 0.
//
// Cost: one pass over the data, O(n (p + k)^2) with derivatives, O(n p) without; no allocation
// proportional to n. Weibull and log-normal passes are cut into fixed chunks of 4096 rows whose
// sums are added in chunk order, in parallel (OpenMP) from n = 131072 on: identical results for
// any number of threads. Within a chunk the logarithms of unit-weight tail terms are summed as
// one exponent count and one product of mantissas (one log per chunk; the same sum to about
// 1e-13 absolute per 512 rows, the rounding of adding the logarithms one by one).
// The Weibull law's exponentials (e^z, e^zu, and the exp or expm1 of e^zl - e^zu or -e^z) are
// computed four rows at a time (parametric/vector_math.h, within 1 ulp of the C library's exp,
// expm1 within 4 ulp) before the rows are assembled; the Weibull and log-normal passes are built
// for AVX2 and for the x86-64 baseline with the same operations on every lane, and both builds
// give the same bits (the AVX2 one runs where the processor has it, outside Windows).
// The exponential law's carried terms make its pass sequential.
#pragma once

#include "velkor/containers.h"

void ComputeLogLikeParam(matrix<double>* time, int n, int p, int k, matrix<double>* cens,
                         matrix<double>* bounds, matrix<double>* design, matrix<double>* params,
                         matrix<double>* weights, int dist, double& loglik);

// Gradient (p + k entries) and Hessian ((p + k) x (p + k), column-major, symmetric) of the same
// log-likelihood at the same parameters.
void ComputeDerivativesParam(matrix<double>* time, int n, int p, int k, matrix<double>* cens,
                             matrix<double>* bounds, matrix<double>* design, matrix<double>* params,
                             matrix<double>* weights, int dist, matrix<double>* grad,
                             matrix<double>* hess);

// Both in one pass.
void ComputeLogLikeDerivativesParam(matrix<double>* time, int n, int p, int k, matrix<double>* cens,
                                    matrix<double>* bounds, matrix<double>* design,
                                    matrix<double>* params, matrix<double>* weights, int dist,
                                    double& loglik, matrix<double>* grad, matrix<double>* hess);

namespace velkor::param {

// Number of law parameters of a distribution code: 1 for the exponential law, 2 otherwise.
inline int LawParams(int dist) {
  return dist == 1 ? 1 : 2;
}

// Raw-pointer form used by the fitting driver (no containers). grad/hess may be null for the
// log-likelihood alone; otherwise grad has p + k entries and hess (p + k)^2.
void EvalParam(const double* y, const double* cens, const double* upper, const double* x,
               const double* w, std::size_t n, std::size_t ldx, int p, int k, const double* theta,
               int dist, double& loglik, double* grad, double* hess);

// Whether the Weibull and log-normal passes run their AVX2 build (set at load where the processor
// has AVX2, on x86-64 outside Windows). Both builds give the same bits; tests switch it to check.
bool& UseAvx2Pass();

}  // namespace velkor::param
