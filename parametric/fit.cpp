// Fitting driver of the parametric survival model: Newton-Raphson with step halving, Wald-test
// covariate selection, criteria and tables, residuals. See fit.h for the contracts.
#include "parametric/fit.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "companion/distributions.h"
#include "companion/linalg.h"
#include "companion/vectors.h"
#include "core/frame_memory.h"
#include "core/numeric.h"
#include "parametric/likelihood.h"

namespace {

using velkor::kEpsilon;
using velkor::kMissing;

constexpr double kEulerApprox = 0.572;      // start of the Weibull intercept above the mean (as is)
constexpr double kEvVarianceApprox = 1.64;  // pi^2 / 6, variance of the standard extreme value law
constexpr double kScaleFloor = 1e-12;       // a Newton step may not leave the scale non-positive
constexpr int kMaxHalvings = 10;

// The observation columns shared by every fit of one analysis (raw views, n rows).
struct Sample {
  const double* y = nullptr;
  const double* cens = nullptr;
  const double* upper = nullptr;
  const double* w = nullptr;
  std::size_t n = 0;
  std::vector<double> upperCopy;  // when the bound matrix has no second column
};

Sample MakeSample(matrix<double>* time, int n, matrix<double>* cens, matrix<double>* bounds,
                  matrix<double>* weights, matrix<double>* design, int p) {
  Sample s;
  std::size_t nn = n > 0 ? static_cast<std::size_t>(n) : 0;
  if (!time || !cens) nn = 0;
  if (time) nn = std::min<std::size_t>(nn, time->rows);
  if (cens) nn = std::min<std::size_t>(nn, cens->rows);
  if (weights) nn = std::min<std::size_t>(nn, weights->rows);
  if (p > 0)
    nn = design && design->cols >= static_cast<std::uint32_t>(p)
             ? std::min<std::size_t>(nn, design->rows)
             : 0;
  s.n = nn;
  s.y = time ? time->data : nullptr;
  s.cens = cens ? cens->data : nullptr;
  s.w = weights ? weights->data : nullptr;
  if (bounds && bounds->cols >= 2 && bounds->rows >= nn) {
    s.upper = bounds->data + bounds->rows;
  } else {
    s.upperCopy.assign(nn, bounds ? bounds->spare : -1.0);
    s.upper = s.upperCopy.data();
  }
  return s;
}

// A model fit: estimate, log-likelihood, gradient and Hessian at it.
struct FitResult {
  std::vector<double> theta, grad, hess;
  double loglik = 0.0;
  int iterations = 0;
  int status = 0;
  bool converged = false;  // stopped by the tolerance test before the iteration limit
};

void Evaluate(const Sample& s, const double* X, std::size_t ldx, int q, int k, int dist,
              const std::vector<double>& theta, double& ll, double* g, double* h) {
  velkor::param::EvalParam(s.y, s.cens, s.upper, X, s.w, s.n, ldx, q, k, theta.data(), dist, ll, g,
                           h);
}

// Starting values (see fit.h).
void InitialValues(const Sample& s, const double* X, std::size_t ldx, int q, int k, int dist,
                   std::vector<double>& theta) {
  const int n = static_cast<int>(s.n);
  matrix<double> yv(static_cast<std::uint32_t>(s.n), 1, const_cast<double*>(s.y), 1);
  matrix<double> wv(static_cast<std::uint32_t>(s.n), 1, const_cast<double*>(s.w), 1);
  matrix<double>* wp = s.w ? &wv : nullptr;
  if (q == 0) {
    double mean = V_Mean(&yv, n, wp);
    if (dist == 2) mean += kEulerApprox;
    theta[0] = mean;
  } else {
    // the design with a column of ones, in a block of the frame's cache (no fresh pages to fault
    // in on every fit of a large sample)
    velkor::frame_memory::ScratchVector<double> xbuf(s.n * static_cast<std::size_t>(q + 1));
    matrix<double> xa(static_cast<std::uint32_t>(s.n), static_cast<std::uint32_t>(q + 1),
                      xbuf.data(), 1);
    for (int j = 0; j < q; ++j)
      std::copy(X + static_cast<std::size_t>(j) * ldx, X + static_cast<std::size_t>(j) * ldx + s.n,
                xa.data + static_cast<std::size_t>(j) * s.n);
    std::fill(xa.data + static_cast<std::size_t>(q) * s.n,
              xa.data + static_cast<std::size_t>(q + 1) * s.n, 1.0);
    matrix<double> coef(static_cast<std::uint32_t>(q + 1), 1);
    OLSBasic(&xa, &yv, wp, n, q + 1, &coef, 1e-4, 1e-4);
    for (int j = 0; j <= q; ++j) theta[static_cast<std::size_t>(j)] = coef.data[j];
  }
  if (k == 2) {
    // the exponential law (and code 4, treated alike) has no scale
    double var = V_Var(&yv, n, wp);
    if (velkor::IsMissing(var)) var = 0.0;
    double scale = var;
    if (dist == 2) {
      const double alt = 0.5 * std::log(4.0 * var / kEvVarianceApprox);  // deliberate, as is
      if (alt > 0.0) scale = alt;
    }
    theta[static_cast<std::size_t>(q + 1)] = scale;
  }
}

// Newton-Raphson with step halving and the diagonal fallback, from the start values of
// InitialValues (see OptimizeParamModel in fit.h). One iteration:
//   1. the Newton step of cNewtonRaphson, theta1 = theta - H^-1 g, with the Hessian H and the
//      gradient g held for the current point theta (a fixed intercept is flagged and does not
//      move; the others take the Newton step of the free parameters, see below);
//   2. a non-positive scale of theta1 becomes 1e-12;
//   3. theta1 is accepted when L(theta1) - L(theta) > 2.220446049250313e-16, else the step is
//      halved, theta - 2^-m (theta - theta1) for m = 1 .. 10, until a point is accepted;
//   4. accepted: the point becomes current, g and H are recomputed there, and the fit stops when
//      |L(new) - L(old)| < tol; ten failed halvings: H keeps only its diagonal (g stays that of
//      the current point), the last parameter takes its last halved value, the log-likelihood is
//      re-evaluated there, and the next iteration steps with that diagonal matrix. Without the
//      diagonal fallback a point where H is not negative definite would repeat the same failing
//      step until the limit.
// The status is that of the last cNewtonRaphson call: -2 when it could not invert H, else 0.
FitResult Fit(const Sample& s, const double* X, std::size_t ldx, int q, int k, int dist,
              int maxIter, double tol, bool fixIntercept, double interceptValue) {
  const int np = q + k;
  const std::size_t N = static_cast<std::size_t>(np);
  FitResult r;
  r.theta.assign(N, 0.0);
  InitialValues(s, X, ldx, q, k, dist, r.theta);
  r.grad.assign(N, 0.0);
  r.hess.assign(N * N, 0.0);
  matrix<double> fixed(static_cast<std::uint32_t>(np), 1);
  if (fixIntercept) {
    r.theta[static_cast<std::size_t>(q)] = interceptValue;
    fixed.data[q] = 1.0;
  }
  std::vector<double>& cur = r.theta;
  double llCur = 0.0;
  Evaluate(s, X, ldx, q, k, dist, cur, llCur, r.grad.data(), r.hess.data());
  bool derivsAtCur = true;

  matrix<double> beta(static_cast<std::uint32_t>(np), 1), g(static_cast<std::uint32_t>(np), 1);
  matrix<double> h(static_cast<std::uint32_t>(np), static_cast<std::uint32_t>(np));
  matrix<double> inv(static_cast<std::uint32_t>(np), static_cast<std::uint32_t>(np));
  matrix<double> se(static_cast<std::uint32_t>(np), 1);
  std::vector<double> first(N), trial(N), gTrial(N), hTrial(N * N);
  int solverStatus = 0;
  int iter = 0;
  while (iter < maxIter) {
    ++iter;
    std::copy(cur.begin(), cur.end(), beta.data);
    std::copy(r.grad.begin(), r.grad.end(), g.data);
    std::copy(r.hess.begin(), r.hess.end(), h.data);
    if (fixIntercept) {
      // The Newton step of the free parameters: the held intercept's row and column are taken
      // out of the system (its gradient entry 0, its diagonal -1), so the step solves
      // H_ff d = g_f and the fit reaches the maximum with the intercept held. Stepping the free
      // parameters by their entries of the full H^-1 g would stop short of it, since at that
      // maximum the intercept's own gradient entry is not 0.
      const std::size_t f = static_cast<std::size_t>(q);
      g.data[f] = 0.0;
      for (std::size_t j = 0; j < N; ++j) {
        h.data[f * N + j] = 0.0;
        h.data[j * N + f] = 0.0;
      }
      h.data[f * N + f] = -1.0;
    }
    solverStatus = cNewtonRaphson(&beta, np, &fixed, &g, &h, tol, &inv, &se, -1, 1.0);
    std::copy(beta.data, beta.data + np, first.begin());
    if (k == 2 && !(first[N - 1] > 0.0)) first[N - 1] = kScaleFloor;

    // the derivatives come with the first trial point: it is accepted on most iterations
    double llNew = 0.0;
    Evaluate(s, X, ldx, q, k, dist, first, llNew, gTrial.data(), hTrial.data());
    bool accepted = llNew - llCur > kEpsilon;
    if (accepted) {
      trial = first;
    } else {
      for (int m = 1; m <= kMaxHalvings && !accepted; ++m) {
        const double f = std::ldexp(1.0, -m);
        for (std::size_t j = 0; j < N; ++j) trial[j] = cur[j] - f * (cur[j] - first[j]);
        Evaluate(s, X, ldx, q, k, dist, trial, llNew, nullptr, nullptr);
        accepted = llNew - llCur > kEpsilon;
      }
      if (accepted) Evaluate(s, X, ldx, q, k, dist, trial, llNew, gTrial.data(), hTrial.data());
    }
    if (accepted) {
      const double change = std::fabs(llNew - llCur);
      cur = trial;
      llCur = llNew;
      r.grad = gTrial;
      r.hess = hTrial;
      derivsAtCur = true;
      if (change < tol) {
        r.converged = true;
        break;
      }
    } else {
      for (std::size_t c = 0; c < N; ++c)
        for (std::size_t j = 0; j < N; ++j)
          if (j != c) r.hess[c * N + j] = 0.0;
      if (cur[N - 1] != trial[N - 1]) {
        cur[N - 1] = trial[N - 1];
        Evaluate(s, X, ldx, q, k, dist, cur, llCur, nullptr, nullptr);
        derivsAtCur = false;
      }
    }
  }
  // the returned gradient and Hessian are those of the returned point
  if (!derivsAtCur) Evaluate(s, X, ldx, q, k, dist, cur, llCur, r.grad.data(), r.hess.data());
  r.loglik = llCur;
  r.iterations = iter;
  r.status = solverStatus < 0 ? -2 : 0;
  return r;
}

// Inverse of a Hessian (M_Inverse, relative pivot threshold 1e-8); zeros when singular.
std::vector<double> InverseOf(const std::vector<double>& h, int np) {
  matrix<double> a(static_cast<std::uint32_t>(np), static_cast<std::uint32_t>(np));
  matrix<double> inv(static_cast<std::uint32_t>(np), static_cast<std::uint32_t>(np));
  std::copy(h.begin(), h.end(), a.data);
  short flag = 0;
  M_Inverse(&a, &inv, flag, 1.0);
  return std::vector<double>(inv.data, inv.data + a.count);
}

// Wald chi-square and p-value of coefficient j from the inverse Hessian; a coefficient whose
// variance is not estimable gets (0, 1): no evidence, first to leave, never enters.
void WaldOf(const FitResult& f, int j, int np, double& stat, double& pval) {
  const std::vector<double> inv = InverseOf(f.hess, np);
  const double d = inv[static_cast<std::size_t>(j) * np + static_cast<std::size_t>(j)];
  if (!(d < 0.0)) {
    stat = 0.0;
    pval = 1.0;
    return;
  }
  const double b = f.theta[static_cast<std::size_t>(j)];
  stat = std::fabs(b * b / -d);
  pval = pValChiSq(stat, 1.0);
  if (std::isnan(pval)) pval = 1.0;
}

void CopyOut(const FitResult& f, double& loglik, matrix<double>* grad, matrix<double>* hess,
             matrix<double>* params) {
  loglik = f.loglik;
  const int np = static_cast<int>(f.theta.size());
  for (int j = 0; j < np; ++j) {
    if (params) params->set(j + 1, f.theta[static_cast<std::size_t>(j)]);
    if (grad) grad->set(j + 1, f.grad[static_cast<std::size_t>(j)]);
  }
  if (hess) {
    for (int c = 0; c < np; ++c)
      for (int r = 0; r < np; ++r)
        hess->set(r + 1, c + 1,
                  f.hess[static_cast<std::size_t>(c) * np + static_cast<std::size_t>(r)]);
  }
}

void RecordStep(matrix<double>* history, int step, double covariate, int left, double stat,
                double pval) {
  if (!history) return;
  history->set(step, 1, covariate);
  history->set(step, 2, static_cast<double>(left));
  history->set(step, 3, stat);
  history->set(step, 4, pval);
}

// Backward elimination on a working n x p design (column-major, ld = n); cols[] the original
// numbers. Returns the final fit through `out`.
int BackwardCore(const Sample& s, std::vector<double>& X, std::vector<int>& cols, int k, int dist,
                 double pRemove, int maxIter, double tol, bool fixInt, double fixVal,
                 matrix<double>* history, FitResult& out, int& steps) {
  const std::size_t n = s.n;
  int q = static_cast<int>(cols.size());
  out = Fit(s, X.data(), n, q, k, dist, maxIter, tol, fixInt, fixVal);
  if (out.status < 0) return out.status;
  steps = 0;
  while (q > 0) {
    int worst = -1;
    double worstP = -1.0, worstStat = 0.0;
    for (int j = 0; j < q; ++j) {
      double st = 0, pv = 0;
      WaldOf(out, j, q + k, st, pv);
      if (pv > worstP) {
        worstP = pv;
        worstStat = st;
        worst = j;
      }
    }
    if (!(worstP >= pRemove)) break;
    matrix<double> xm(static_cast<std::uint32_t>(n), static_cast<std::uint32_t>(q), X.data(), 1);
    M_RemoveCol(&xm, worst + 1);
    const int removed = cols[static_cast<std::size_t>(worst)];
    cols.erase(cols.begin() + worst);
    --q;
    ++steps;
    RecordStep(history, steps, removed, q, worstStat, worstP);
    out = Fit(s, X.data(), n, q, k, dist, maxIter, tol, fixInt, fixVal);
    if (out.status < 0) return out.status;
  }
  return 0;
}

int ForwardCore(const Sample& s, const double* Xall, std::size_t ldx, int p, std::vector<int>& cols,
                int k, int dist, double pEnter, int maxIter, double tol, bool fixInt, double fixVal,
                matrix<double>* history, FitResult& out, std::vector<double>& Xsel, int& steps) {
  const std::size_t n = s.n;
  cols.clear();
  Xsel.clear();
  out = Fit(s, nullptr, n, 0, k, dist, maxIter, tol, fixInt, fixVal);
  if (out.status < 0) return out.status;
  steps = 0;
  std::vector<double> trialX;
  while (static_cast<int>(cols.size()) < p) {
    const int q = static_cast<int>(cols.size());
    int best = -1;
    double bestP = 2.0, bestStat = 0.0;
    FitResult bestFit;
    for (int c = 1; c <= p; ++c) {
      if (std::find(cols.begin(), cols.end(), c) != cols.end()) continue;
      trialX = Xsel;
      trialX.insert(trialX.end(), Xall + static_cast<std::size_t>(c - 1) * ldx,
                    Xall + static_cast<std::size_t>(c - 1) * ldx + n);
      FitResult f = Fit(s, trialX.data(), n, q + 1, k, dist, maxIter, tol, fixInt, fixVal);
      if (f.status < 0) return f.status;
      double st = 0, pv = 1;
      WaldOf(f, q, q + 1 + k, st, pv);
      if (pv < bestP) {
        bestP = pv;
        bestStat = st;
        best = c;
        bestFit = std::move(f);
      }
    }
    if (best < 0 || !(bestP < pEnter)) break;
    cols.push_back(best);
    Xsel.insert(Xsel.end(), Xall + static_cast<std::size_t>(best - 1) * ldx,
                Xall + static_cast<std::size_t>(best - 1) * ldx + n);
    ++steps;
    RecordStep(history, steps, best, q + 1, bestStat, bestP);
    out = std::move(bestFit);
  }
  return 0;
}

std::vector<double> DesignCopy(matrix<double>* design, std::size_t n, int p) {
  std::vector<double> X(n * static_cast<std::size_t>(std::max(p, 0)), 0.0);
  if (!design || design->cols < static_cast<std::uint32_t>(std::max(p, 0)) || design->rows < n)
    return X;
  for (int j = 0; j < p; ++j)
    for (std::size_t i = 0; i < n; ++i)
      X[static_cast<std::size_t>(j) * n + i] =
          design->data[static_cast<std::size_t>(j) * design->rows + i];
  return X;
}

}  // namespace

int OptimizeParamModel(matrix<double>* time, int n, int p, int k, matrix<double>* cens,
                       matrix<double>* bounds, matrix<double>* design, matrix<double>* weights,
                       int& iterations, double tol, int dist, short fixIntercept,
                       double interceptValue, double& loglik, matrix<double>* grad,
                       matrix<double>* hess, matrix<double>* params) {
  if (p < 0 || k < 1 || k > 2) return -2;
  const Sample s = MakeSample(time, n, cens, bounds, weights, design, p);
  const FitResult f = Fit(s, p > 0 ? design->data : nullptr, p > 0 ? design->rows : s.n, p, k, dist,
                          iterations, tol, fixIntercept != 0, interceptValue);
  iterations = f.iterations;
  CopyOut(f, loglik, grad, hess, params);
  return f.status;
}

int Param_BackSelection(matrix<double>* time, int n, int p, int k, matrix<double>* cens,
                        matrix<double>* bounds, matrix<double>* design, matrix<double>* weights,
                        int dist, double pRemove, int& iterations, double tol, short fixIntercept,
                        double interceptValue, double& loglik, matrix<double>* grad,
                        matrix<double>* hess, matrix<double>* params, matrix<double>* columns,
                        matrix<double>* history, int& pKept, int& steps) {
  steps = 0;
  pKept = 0;
  if (p < 0 || k < 1 || k > 2) return -2;
  const Sample s = MakeSample(time, n, cens, bounds, weights, design, p);
  std::vector<double> X = DesignCopy(design, s.n, p);
  std::vector<int> cols(static_cast<std::size_t>(p));
  for (int j = 0; j < p; ++j) cols[static_cast<std::size_t>(j)] = j + 1;
  FitResult f;
  const int st = BackwardCore(s, X, cols, k, dist, pRemove, iterations, tol, fixIntercept != 0,
                              interceptValue, history, f, steps);
  pKept = static_cast<int>(cols.size());
  iterations = f.iterations;
  CopyOut(f, loglik, grad, hess, params);
  if (design) {
    // the design keeps the selected columns, in their order
    for (int j = p; j > 0; --j)
      if (std::find(cols.begin(), cols.end(), j) == cols.end()) M_RemoveCol(design, j);
  }
  if (columns) {
    for (int j = 0; j < pKept; ++j) columns->set(j + 1, cols[static_cast<std::size_t>(j)]);
  }
  return st;
}

int Param_ForSelection(matrix<double>* time, int n, int p, int k, matrix<double>* cens,
                       matrix<double>* bounds, matrix<double>* design, matrix<double>* weights,
                       int dist, double pEnter, int& iterations, double tol, short fixIntercept,
                       double interceptValue, double& loglik, matrix<double>* grad,
                       matrix<double>* hess, matrix<double>* params, matrix<double>* columns,
                       matrix<double>* history, int& pKept, int& steps) {
  steps = 0;
  pKept = 0;
  if (p < 0 || k < 1 || k > 2) return -2;
  const Sample s = MakeSample(time, n, cens, bounds, weights, design, p);
  std::vector<int> cols;
  std::vector<double> Xsel;
  FitResult f;
  const int st = ForwardCore(
      s, p > 0 && design ? design->data : nullptr, p > 0 && design ? design->rows : s.n, p, cols, k,
      dist, pEnter, iterations, tol, fixIntercept != 0, interceptValue, history, f, Xsel, steps);
  pKept = static_cast<int>(cols.size());
  iterations = f.iterations;
  CopyOut(f, loglik, grad, hess, params);
  if (design && st == 0) {
    for (int j = 0; j < pKept; ++j)
      for (std::size_t i = 0; i < s.n; ++i)
        design->set(static_cast<int>(i) + 1, j + 1, Xsel[static_cast<std::size_t>(j) * s.n + i]);
    for (int j = p; j > pKept; --j) M_RemoveCol(design, j);
  }
  if (columns) {
    for (int j = 0; j < pKept; ++j) columns->set(j + 1, cols[static_cast<std::size_t>(j)]);
  }
  return st;
}

void ComputeCritParam(int n, int p, int k, double llNull, double llModel, int iterations,
                      matrix<double>* params, matrix<double>* invHess, matrix<double>* gradNull,
                      matrix<double>* invHessNull, double alpha, matrix<double>* crit,
                      matrix<double>* ptable, matrix<double>* tests) {
  if (p < 0 || k < 1) return;
  const int np = p + k;
  const double dn = static_cast<double>(n);
  if (crit) {
    for (int c = 1; c <= 2; ++c) {
      const double L = c == 1 ? llNull : llModel;
      const double m = c == 1 ? k : np;
      crit->set(1, c, dn);
      crit->set(2, c, m);
      if (L <= -1e50 || std::isnan(L)) {
        for (int r = 3; r <= 6; ++r) crit->set(r, c, kMissing);
      } else {
        const double aic = 2.0 * m - 2.0 * L;
        crit->set(3, c, -2.0 * L);
        crit->set(4, c, aic);
        crit->set(5, c, m * std::log(dn) - 2.0 * L);
        const double den = dn - m - 1.0;
        crit->set(6, c, den > 0.0 ? aic + 2.0 * m * (m + 1.0) / den : kMissing);
      }
      crit->set(7, c, c == 1 ? 1.0 : static_cast<double>(iterations));
    }
  }
  if (ptable && params && invHess) {
    const double z = InvCDFNormalStd(1.0 - alpha / 2.0);
    for (int r = 1; r <= np; ++r) {
      // rows: intercept, covariates, scale
      const int j = r == 1 ? p : (r <= p + 1 ? r - 2 : p + 1);
      const double est = params->at0(static_cast<std::uint64_t>(j));
      const double d = invHess->at0(static_cast<std::uint64_t>(j), static_cast<std::uint64_t>(j));
      ptable->set(r, 1, est);
      if (d < 0.0) {
        const double se = std::sqrt(-d);
        const double chi = std::fabs((est / se) * (est / se));
        ptable->set(r, 2, se);
        ptable->set(r, 3, chi);
        ptable->set(r, 4, pValChiSq(chi, 1.0));
        ptable->set(r, 5, est - z * se);
        ptable->set(r, 6, est + z * se);
      } else {
        for (int c = 2; c <= 6; ++c) ptable->set(r, c, kMissing);
      }
    }
  }
  if (tests) {
    const double df = static_cast<double>(p);
    auto pv = [&](double x) { return p > 0 && !std::isnan(x) ? pValChiSq(x, df) : kMissing; };
    for (int r = 1; r <= 3; ++r) tests->set(r, 1, df);
    const double lr = -2.0 * (llNull - llModel);
    tests->set(1, 2, lr);
    tests->set(1, 3, llNull - llModel <= 0.0 ? pv(lr) : kMissing);
    double score = kMissing;
    if (gradNull && invHessNull) score = -M_ProductTrVBV(gradNull, invHessNull, np);
    tests->set(2, 2, score);
    tests->set(2, 3, velkor::IsMissing(score) ? kMissing : pv(score));
    double wald = 0.0;
    if (p > 0 && params && invHess) {
      matrix<double> cbb(static_cast<std::uint32_t>(p), static_cast<std::uint32_t>(p));
      matrix<double> inv(static_cast<std::uint32_t>(p), static_cast<std::uint32_t>(p));
      matrix<double> b(static_cast<std::uint32_t>(p), 1);
      for (int c = 0; c < p; ++c) {
        b.data[c] = params->at0(static_cast<std::uint64_t>(c));
        for (int r = 0; r < p; ++r)
          cbb.data[static_cast<std::size_t>(c) * p + static_cast<std::size_t>(r)] =
              invHess->at0(static_cast<std::uint64_t>(r), static_cast<std::uint64_t>(c));
      }
      short flag = 0;
      M_Inverse(&cbb, &inv, flag, 1.0);
      wald = M_ProductTrVBV(&b, &inv, p);
    }
    if (wald <= -1e100 || std::isnan(wald)) {
      tests->set(3, 2, kMissing);
      tests->set(3, 3, kMissing);
    } else {
      tests->set(3, 2, -wald);
      tests->set(3, 3, pv(-wald));
    }
  }
}

void ResParam(matrix<double>* time, int n, int p, matrix<double>* cens, matrix<double>* design,
              matrix<double>* params, int dist, matrix<double>* stdRes, matrix<double>* coxSnell,
              matrix<double>* martingale, matrix<double>* deviance) {
  if (!time || !cens || p < 0 || n <= 0) return;
  const bool law = dist >= 1 && dist <= 3;
  const double b0 = params ? params->at0(static_cast<std::uint64_t>(p)) : 0.0;
  const double s =
      dist == 1 ? 1.0 : (params ? params->at0(static_cast<std::uint64_t>(p + 1)) : 1.0);
  for (int i = 0; i < n; ++i) {
    const std::uint64_t ui = static_cast<std::uint64_t>(i);
    double eta = b0;
    for (int j = 0; j < p; ++j)
      eta += (design ? design->at0(ui, static_cast<std::uint64_t>(j)) : 0.0) *
             params->at0(static_cast<std::uint64_t>(j));
    double z = kMissing, r = kMissing, m = kMissing, dv = kMissing;
    if (law) {
      z = (time->at0(ui) - eta) / s;
      r = dist == 3 ? -std::log(0.5 * std::erfc(z * 0.70710678118654752440)) : std::exp(z);
      const double delta = cens->at0(ui) == 1.0 ? 1.0 : 0.0;
      m = delta - r;
      const double inner = delta > 0.0 ? m + std::log(delta - m) : m;
      dv = (m < 0.0 ? -1.0 : 1.0) * std::sqrt(std::max(0.0, -2.0 * inner));
    }
    if (stdRes) stdRes->set(i + 1, z);
    if (coxSnell) coxSnell->set(i + 1, r);
    if (martingale) martingale->set(i + 1, m);
    if (deviance) deviance->set(i + 1, dv);
  }
}

int RunParamReg(matrix<double>* time, int n, int p, matrix<double>* cens, matrix<double>* bounds,
                matrix<double>* design, matrix<double>* weights, int dist, int method,
                double pEnter, double pRemove, int& iterations, double tol, short fixIntercept,
                double interceptValue, short logTime, double alpha, matrix<double>* params,
                matrix<double>* cov, matrix<double>* crit, matrix<double>* ptable,
                matrix<double>* tests, matrix<double>* history, matrix<double>* resid,
                matrix<double>* kept, int& pFinal) {
  if (p < 0) p = 0;
  const int k = velkor::param::LawParams(dist);
  const int limit = iterations;
  const bool fixInt = fixIntercept != 0;
  // 1. time logarithm, in place (the upper bound too for interval-censored rows)
  if (logTime != 0 && n >= 1 && time) {
    for (int i = 0; i < n; ++i) {
      const std::uint64_t ui = static_cast<std::uint64_t>(i);
      time->set(i + 1, std::log(time->at0(ui)));
      if (cens && bounds && cens->at0(ui) == 3.0)
        bounds->set(i + 1, 2, std::log(bounds->at0(ui, 1)));
    }
  }
  const Sample s = MakeSample(time, n, cens, bounds, weights, design, p);
  // 3. null model
  const FitResult nullFit = Fit(s, nullptr, s.n, 0, k, dist, limit, tol, fixInt, interceptValue);
  // 4. the model of the chosen method
  FitResult fit;
  std::vector<int> cols;
  std::vector<double> Xfinal;
  // the final model's design: the caller's own columns for the full model (MakeSample has
  // clipped n to its rows), the selection's working copy otherwise
  const double* Xf = nullptr;
  std::size_t ldf = s.n;
  int steps = 0;
  if (method == -1) {
    if (p > 0 && s.n > 0) {
      Xf = design->data;
      ldf = design->rows;
    }
    for (int j = 1; j <= p; ++j) cols.push_back(j);
    fit = Fit(s, Xf, ldf, p, k, dist, limit, tol, fixInt, interceptValue);
    iterations = fit.iterations;
    // in this order: a fit that never converges (a singular Hessian included) ends at the limit
    if (fit.iterations == limit) return -1;
    if (fit.status < 0) return -5;
  } else if (method == 1) {
    Xfinal = DesignCopy(design, s.n, p);
    for (int j = 1; j <= p; ++j) cols.push_back(j);
    if (BackwardCore(s, Xfinal, cols, k, dist, pRemove, limit, tol, fixInt, interceptValue, history,
                     fit, steps) < 0) {
      iterations = fit.iterations;
      return -5;
    }
    Xfinal.resize(s.n * cols.size());
    Xf = Xfinal.data();
  } else if (method == 0) {
    if (ForwardCore(s, p > 0 && design ? design->data : nullptr,
                    p > 0 && design ? design->rows : s.n, p, cols, k, dist, pEnter, limit, tol,
                    fixInt, interceptValue, history, fit, Xfinal, steps) < 0) {
      iterations = fit.iterations;
      return -5;
    }
    Xf = Xfinal.data();
  } else {
    fit = nullFit;  // no covariate model: the null model is reported as the final one
  }
  iterations = fit.iterations;
  const int q = static_cast<int>(cols.size());
  const int np = q + k;
  const std::size_t N = static_cast<std::size_t>(np);
  // 5. criteria, tables and residuals on the final model
  const std::vector<double> invH = InverseOf(fit.hess, np);
  std::vector<double> thetaNull(N, 0.0), gNull(N), hNull(N * N);
  thetaNull[static_cast<std::size_t>(q)] = nullFit.theta[0];
  if (k == 2) thetaNull[N - 1] = nullFit.theta[1];
  double llTmp = 0.0;
  Evaluate(s, Xf, ldf, q, k, dist, thetaNull, llTmp, gNull.data(), hNull.data());
  const std::vector<double> invHNull = InverseOf(hNull, np);

  matrix<double> mTheta(static_cast<std::uint32_t>(np), 1, const_cast<double*>(fit.theta.data()),
                        0);
  matrix<double> mInv(static_cast<std::uint32_t>(np), static_cast<std::uint32_t>(np),
                      const_cast<double*>(invH.data()), 0);
  matrix<double> mG0(static_cast<std::uint32_t>(np), 1, gNull.data(), 0);
  matrix<double> mInv0(static_cast<std::uint32_t>(np), static_cast<std::uint32_t>(np),
                       const_cast<double*>(invHNull.data()), 0);
  matrix<double> crit2(7, 2), table(static_cast<std::uint32_t>(np), 6);
  ComputeCritParam(static_cast<int>(s.n), q, k, nullFit.loglik, fit.loglik, fit.iterations, &mTheta,
                   &mInv, &mG0, &mInv0, alpha, &crit2, &table, tests);
  if (crit)
    for (int j = 0; j < 14; ++j) crit->set(j + 1, crit2.data[j]);

  // full layout: position of each reduced parameter among the p + k
  const int full = p + k;
  std::vector<int> pos(N);
  for (int j = 0; j < q; ++j)
    pos[static_cast<std::size_t>(j)] = cols[static_cast<std::size_t>(j)] - 1;
  pos[static_cast<std::size_t>(q)] = p;
  if (k == 2) pos[N - 1] = p + 1;
  for (int j = 0; j < full; ++j) {
    if (params) params->set(j + 1, 0.0);
    if (cov)
      for (int i = 0; i < full; ++i) cov->set(i + 1, j + 1, 0.0);
  }
  for (std::size_t j = 0; j < N; ++j) {
    if (params) params->set(pos[j] + 1, fit.theta[j]);
    if (cov)
      for (std::size_t i = 0; i < N; ++i) cov->set(pos[i] + 1, pos[j] + 1, invH[j * N + i]);
  }
  if (ptable) {
    // table rows: intercept, covariates 1..p, scale
    for (int r = 1; r <= full; ++r)
      for (int c = 1; c <= 6; ++c) ptable->set(r, c, kMissing);
    for (int r = 1; r <= np; ++r) {
      const int fr = r == 1 ? 1 : (r <= q + 1 ? cols[static_cast<std::size_t>(r - 2)] + 1 : p + 2);
      for (int c = 1; c <= 6; ++c) ptable->set(fr, c, table(r, c));
    }
  }
  if (kept) {
    for (int j = 1; j <= p; ++j) kept->set(j, 0.0);
    for (int c : cols) kept->set(c, 1.0);
  }
  pFinal = q;
  if (resid) {
    matrix<double> xm(static_cast<std::uint32_t>(ldf), static_cast<std::uint32_t>(q),
                      const_cast<double*>(Xf), 1);
    const std::uint32_t rn = static_cast<std::uint32_t>(s.n);
    if (resid->rows >= s.n && resid->cols >= 4) {
      // straight into the caller's four columns
      const std::size_t ld = resid->rows;
      matrix<double> r1(rn, 1, resid->data, 1), r2(rn, 1, resid->data + ld, 1);
      matrix<double> r3(rn, 1, resid->data + 2 * ld, 1), r4(rn, 1, resid->data + 3 * ld, 1);
      ResParam(time, static_cast<int>(s.n), q, cens, &xm, &mTheta, dist, &r1, &r2, &r3, &r4);
    } else {
      matrix<double> r1(rn, 1), r2(rn, 1), r3(rn, 1), r4(rn, 1);
      ResParam(time, static_cast<int>(s.n), q, cens, &xm, &mTheta, dist, &r1, &r2, &r3, &r4);
      matrix<double>* rs[4] = {&r1, &r2, &r3, &r4};
      for (int c = 0; c < 4; ++c)
        for (std::size_t i = 0; i < s.n; ++i)
          resid->set(static_cast<int>(i) + 1, c + 1, rs[c]->data[i]);
    }
  }
  return 0;
}
