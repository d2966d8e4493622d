// Newton-Raphson maximisation of the Cox log partial likelihood with step halving.
//
// Both forms start at beta = 0 and iterate
//   beta_new = beta - H^-1 g        (g gradient, H second-derivative matrix, negative definite)
// then halve the step back towards the previous beta (beta_prev - step / 2, - step / 4, ...) up
// to ten times until the log-likelihood gains more than the double epsilon. The log-likelihood,
// gradient and inverse at the first iteration (beta = 0) are kept for the score test.
//
// Cost per iteration: one evaluation O(n q^2) (risk_sets.h) plus one per halving, and an O(q^3)
// inversion.
#include <cmath>

#include "companion/linalg.h"
#include "core/numeric.h"
#include "cox/cox.h"

namespace velkor::cox {
namespace {

using U32 = std::uint32_t;

// Column vector / square matrix views over a FitResult's std::vectors as matrix<double>
// (adopted buffers, so the companion routines write straight into them).
matrix<double> View(std::vector<double>& v, int rows, int cols) {
  return matrix<double>(static_cast<U32>(rows), static_cast<U32>(cols), v.data(), 1);
}

struct Fitter {
  const CoxProblem& prob;
  const double* X;
  std::size_t ldx;
  int q;
  FitResult r;
  std::vector<double> prev, step, aliased;

  const double* rows;  // the design row by row (n x q), the caller's, read only
  RiskWorkspace work;

  Fitter(const CoxProblem& pr, const double* rowMajor, int nq)
      : prob(pr), X(rowMajor), ldx(pr.layout->n), q(nq), rows(rowMajor) {
    const auto uq = static_cast<std::size_t>(q < 0 ? 0 : q);
    r.beta.assign(uq, 0.0);
    r.se.assign(uq, 0.0);
    r.grad.assign(uq, 0.0);
    r.grad0.assign(uq, 0.0);
    r.hess.assign(uq * uq, 0.0);
    r.inv.assign(uq * uq, 0.0);
    r.inv0.assign(uq * uq, 0.0);
    prev.assign(uq, 0.0);
    step.assign(uq, 0.0);
    aliased.assign(uq, 0.0);  // every coefficient takes part in the step
  }

  void Evaluate() {
    EvaluateRiskSets(*prob.layout, X, ldx, q, prob.w, r.beta.data(), prob.terms, r.loglik,
                     r.grad.data(), r.hess.data(), rows, &work);
  }

  // Step halving (k = -1 .. -10): returns true when a point gaining more than epsilon over
  // `base` was found; otherwise beta is left 2^-10 of the step from the previous beta, never
  // evaluated (the eleventh proposal).
  bool Halve(double base) {
    for (int k = 1; k <= 10; ++k) {
      Evaluate();
      if (r.loglik - base > kEpsilon) return true;
      const double f = std::ldexp(1.0, -k);
      for (std::size_t j = 0; j < r.beta.size(); ++j) r.beta[j] += f * step[j];
    }
    return false;
  }

  void KeepInitial() {
    r.loglik0 = r.loglik;
    r.grad0 = r.grad;
    r.inv0 = r.inv;
  }
};

}  // namespace

FitResult FitFlat(const CoxProblem& prob, const std::vector<double>& rowMajor, int q, int maxIter,
                  double tol) {
  return FitFlat(prob, rowMajor.data(), q, maxIter, tol);
}

FitResult FitFlat(const CoxProblem& prob, const double* rowMajor, int q, int maxIter, double tol) {
  Fitter f(prob, rowMajor, q);
  if (maxIter < 1) maxIter = 1;
  const int nq = q < 0 ? 0 : q;
  matrix<double> beta = View(f.r.beta, nq, 1), grad = View(f.r.grad, nq, 1);
  matrix<double> hess = View(f.r.hess, nq, nq), inv = View(f.r.inv, nq, nq);
  matrix<double> se = View(f.r.se, nq, 1), aliased = View(f.aliased, nq, 1);
  bool accepted = false;
  for (int i = 1;; ++i) {
    if (i == 1 || !accepted) f.Evaluate();
    f.prev = f.r.beta;
    // LU inverse with scaled pivoting (pivot floor epsilon); a singular matrix leaves a zero
    // inverse, so the step below proposes no change and the fit goes on.
    short flag = 0;
    M_Inverse(&hess, &inv, flag, 0.0);
    const int rc = cNewtonRaphson(&beta, nq, &aliased, &grad, &hess, tol, &inv, &se, 0, 0.5);
    if (i == 1) f.KeepInitial();
    for (std::size_t j = 0; j < f.step.size(); ++j) f.step[j] = f.prev[j] - f.r.beta[j];
    const double base = f.r.loglik;
    accepted = f.Halve(base);
    f.r.iterations = i;
    if (i >= maxIter || (rc == 1 && i > 10) || std::fabs(f.r.loglik - base) < tol) break;
  }
  return f.r;
}

namespace {

// The object form's Newton step: invert H (LU, scaled pivoting, pivot floor epsilon), then
// beta -= H^-1 g for every coefficient whose aliased flag is 0.0, standard errors
// sqrt(|diag H^-1|). Returns 1 when no coefficient moved by more than tol, 0 when some did, a
// negative value when the inversion failed.
int CoxNewtonStep(std::vector<double>& beta, int q, const std::vector<double>& aliased,
                  const std::vector<double>& grad, std::vector<double>& hess, double tol,
                  std::vector<double>& inv, std::vector<double>& se) {
  matrix<double> h = View(hess, q, q), hi = View(inv, q, q);
  short flag = 0;
  const int st = M_Inverse(&h, &hi, flag, 0.0);
  if (st < 0) return st;
  const auto uq = static_cast<std::size_t>(q);
  int converged = 1;
  std::vector<double> delta(uq, 0.0);
  for (std::size_t i = 0; i < uq; ++i) {
    se[i] = std::sqrt(std::fabs(inv[i * uq + i]));
    double s = 0.0;
    for (std::size_t j = 0; j < uq; ++j) s += inv[j * uq + i] * grad[j];
    delta[i] = s;
  }
  for (std::size_t i = 0; i < uq; ++i) {
    if (aliased[i] != 0.0) continue;
    const double old = beta[i];
    beta[i] = old - delta[i];
    if (!(std::fabs(beta[i] - old) <= tol)) converged = 0;
  }
  return converged;
}

}  // namespace

FitResult FitObject(const CoxProblem& prob, const std::vector<double>& rowMajor, int q, int maxIter,
                    double tol) {
  return FitObject(prob, rowMajor.data(), q, maxIter, tol);
}

FitResult FitObject(const CoxProblem& prob, const double* rowMajor, int q, int maxIter,
                    double tol) {
  Fitter f(prob, rowMajor, q);
  if (maxIter < 1) maxIter = 1;
  bool accepted = false;
  for (int i = 1;; ++i) {
    if (i == 1 || !accepted) f.Evaluate();
    f.prev = f.r.beta;
    if (q > 0) {
      const int rc =
          CoxNewtonStep(f.r.beta, q, f.aliased, f.r.grad, f.r.hess, tol, f.r.inv, f.r.se);
      if (rc < 0) {
        f.r.status = -1;
        f.r.iterations = i;
        return f.r;
      }
    }
    if (i == 1) f.KeepInitial();
    for (std::size_t j = 0; j < f.step.size(); ++j) f.step[j] = f.prev[j] - f.r.beta[j];
    const double base = f.r.loglik;
    accepted = f.Halve(base);
    f.r.iterations = i;
    if (!accepted) {  // ten halvings without a gain
      f.r.status = -1;
      return f.r;
    }
    // Relative convergence of the log-likelihood.
    if (std::fabs(1.0 - f.r.loglik / base) <= tol) break;
    if (i >= maxIter) {
      f.r.notConverged = true;
      break;
    }
  }
  // The last accepted evaluation is at the final beta: its matrix gives the covariance reported
  // with the estimates (the step's inverse belongs to the previous beta, one step behind).
  if (q > 0) {
    matrix<double> h = View(f.r.hess, q, q), hi = View(f.r.inv, q, q);
    std::vector<double> keep = f.r.inv;
    short flag = 0;
    if (M_Inverse(&h, &hi, flag, 0.0) < 0) {
      f.r.inv = keep;
    } else {
      const auto uq = static_cast<std::size_t>(q);
      for (std::size_t j = 0; j < uq; ++j) f.r.se[j] = std::sqrt(std::fabs(f.r.inv[j * uq + j]));
    }
  }
  return f.r;
}

}  // namespace velkor::cox

namespace velkor::cox {

std::vector<double> RowMajorColumns(const double* rows, int p, std::size_t n,
                                    const std::vector<int>& cols) {
  const auto up = static_cast<std::size_t>(p), q = cols.size();
  std::vector<double> sub(n * q);
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = 0; j < q; ++j)
      sub[i * q + j] = rows[i * up + static_cast<std::size_t>(cols[j])];
  return sub;
}

}  // namespace velkor::cox
