// Flat entry points of the parametric family: thin wrappers over parametric/ (see
// include/velkor/parametric.h for every argument).
#include "core/frame.h"
#include "parametric/fit.h"
#include "parametric/interval_data.h"
#include "parametric/likelihood.h"
#include "velkor/parametric.h"

namespace {
long long nonneg(long long v) {
  return v > 0 ? v : 0;
}
int law_params(int dist) {
  return velkor::param::LawParams(dist);
}
// Weights are optional: NULL means unit weights.
matrix<double>* optional_in(velkor::FlatFrame& f, const double* a, int n) {
  return a ? &f.in(a, n) : nullptr;
}
}  // namespace

VELKOR_EXTERN_C VELKOR_API int Cpp_ComputeLogLikeDerivativesParam(
    const double* times, int n, int p, int k, const double* codes, const double* bounds,
    const double* design, const double* params, const double* weights, int dist, double* loglik,
    double* grad, double* hess) {
  return velkor::flat_call([&](velkor::FlatFrame& f) {
    const long long np = nonneg(p) + nonneg(k);
    auto& t = f.in(times, n);
    auto& c = f.in(codes, n);
    auto& b = f.in(bounds, n, 2);
    auto& x = f.in(design, n, nonneg(p));
    auto& th = f.in(params, np);
    matrix<double>* w = optional_in(f, weights, n);
    double& ll = f.scalar(loglik);
    auto& g = f.out(grad, np);
    auto& h = f.out(hess, np, np);
    ComputeLogLikeDerivativesParam(&t, n, p, k, &c, &b, &x, &th, w, dist, ll, &g, &h);
    return 0;
  });
}

VELKOR_EXTERN_C VELKOR_API int Cpp_OptimizeParamModel(const double* times, int n, int p, int k,
                                                      const double* codes, const double* bounds,
                                                      const double* design, const double* weights,
                                                      int* iterations, double tol, int dist,
                                                      short fixIntercept, double interceptValue,
                                                      double* loglik, double* grad, double* hess,
                                                      double* params) {
  return velkor::flat_call([&](velkor::FlatFrame& f) {
    const long long np = nonneg(p) + nonneg(k);
    auto& t = f.in(times, n);
    auto& c = f.in(codes, n);
    auto& b = f.in(bounds, n, 2);
    auto& x = f.in(design, n, nonneg(p));
    matrix<double>* w = optional_in(f, weights, n);
    int& it = f.scalar(iterations);
    double& ll = f.scalar(loglik);
    auto& g = f.out(grad, np);
    auto& h = f.out(hess, np, np);
    auto& th = f.out(params, np);
    return OptimizeParamModel(&t, n, p, k, &c, &b, &x, w, it, tol, dist, fixIntercept,
                              interceptValue, ll, &g, &h, &th);
  });
}

VELKOR_EXTERN_C VELKOR_API int Cpp_RunParamReg(
    const double* times, int n, int p, const double* codes, const double* bounds,
    const double* design, const double* weights, int dist, int method, double pEnter,
    double pRemove, int* iterations, double tol, short fixIntercept, double interceptValue,
    short logTime, double alpha, double* params, double* cov, double* crit, double* ptable,
    double* tests, double* history, double* resid, double* kept, int* nKept) {
  return velkor::flat_call([&](velkor::FlatFrame& f) {
    const long long np = nonneg(p) + law_params(dist);
    auto& t = f.in(times, n);
    auto& c = f.in(codes, n);
    auto& b = f.in(bounds, n, 2);
    auto& x = f.in(design, n, nonneg(p));
    matrix<double>* w = optional_in(f, weights, n);
    int& it = f.scalar(iterations);
    auto& th = f.out(params, np);
    auto& cv = f.out(cov, np, np);
    auto& cr = f.out(crit, 7, 2);
    auto& pt = f.out(ptable, np, 6);
    auto& ts = f.out(tests, 3, 3);
    auto& hi = f.out(history, nonneg(p), 4);
    auto& rs = f.out(resid, n, 4);
    auto& kp = f.out(kept, nonneg(p));
    int& q = f.scalar(nKept);
    return RunParamReg(&t, n, p, &c, &b, &x, w, dist, method, pEnter, pRemove, it, tol,
                       fixIntercept, interceptValue, logTime, alpha, &th, &cv, &cr, &pt, &ts, &hi,
                       &rs, &kp, q);
  });
}

namespace {
template <class Selection>
int selection_call(Selection&& sel, const double* times, int n, int p, const double* codes,
                   const double* bounds, const double* design, const double* weights, int dist,
                   double threshold, int* iterations, double tol, short fixIntercept,
                   double interceptValue, double* loglik, double* params, double* hess,
                   double* columns, double* history, int* nKept, int* nSteps) {
  return velkor::flat_call([&](velkor::FlatFrame& f) {
    const int k = law_params(dist);
    const long long np = nonneg(p) + k;
    auto& t = f.in(times, n);
    auto& c = f.in(codes, n);
    auto& b = f.in(bounds, n, 2);
    auto& x = f.in(design, n, nonneg(p));
    matrix<double> work(x);  // the selection reduces its design in place
    matrix<double>* w = optional_in(f, weights, n);
    int& it = f.scalar(iterations);
    double& ll = f.scalar(loglik);
    auto& th = f.out(params, np);
    auto& h = f.out(hess, np, np);
    auto& cols = f.out(columns, nonneg(p));
    auto& hi = f.out(history, nonneg(p), 4);
    int& q = f.scalar(nKept);
    int& steps = f.scalar(nSteps);
    matrix<double> g(static_cast<std::uint32_t>(np), 1);
    // the final model's Hessian goes to the top-left block of the caller's table
    matrix<double> hq(static_cast<std::uint32_t>(np), static_cast<std::uint32_t>(np));
    const int status = sel(&t, n, p, k, &c, &b, &work, w, dist, threshold, it, tol, fixIntercept,
                           interceptValue, ll, &g, &hq, &th, &cols, &hi, q, steps);
    const int m = q + k;
    for (int j = 1; j <= m; ++j)
      for (int i = 1; i <= m; ++i) h.set(i, j, hq(i, j));
    return status;
  });
}
}  // namespace

VELKOR_EXTERN_C VELKOR_API int Cpp_Param_BackSelection(
    const double* times, int n, int p, const double* codes, const double* bounds,
    const double* design, const double* weights, int dist, double threshold, int* iterations,
    double tol, short fixIntercept, double interceptValue, double* loglik, double* params,
    double* hess, double* columns, double* history, int* nKept, int* nSteps) {
  return selection_call(Param_BackSelection, times, n, p, codes, bounds, design, weights, dist,
                        threshold, iterations, tol, fixIntercept, interceptValue, loglik, params,
                        hess, columns, history, nKept, nSteps);
}

VELKOR_EXTERN_C VELKOR_API int Cpp_Param_ForSelection(
    const double* times, int n, int p, const double* codes, const double* bounds,
    const double* design, const double* weights, int dist, double threshold, int* iterations,
    double tol, short fixIntercept, double interceptValue, double* loglik, double* params,
    double* hess, double* columns, double* history, int* nKept, int* nSteps) {
  return selection_call(Param_ForSelection, times, n, p, codes, bounds, design, weights, dist,
                        threshold, iterations, tol, fixIntercept, interceptValue, loglik, params,
                        hess, columns, history, nKept, nSteps);
}

VELKOR_EXTERN_C VELKOR_API int Cpp_ComputeCritParam(int n, int p, int k, double llNull,
                                                    double llModel, int iterations,
                                                    const double* params, const double* invHess,
                                                    const double* gradNull,
                                                    const double* invHessNull, double alpha,
                                                    double* crit, double* ptable, double* tests) {
  return velkor::flat_call([&](velkor::FlatFrame& f) {
    const long long np = nonneg(p) + nonneg(k);
    auto& th = f.in(params, np);
    auto& ih = f.in(invHess, np, np);
    auto& g0 = f.in(gradNull, np);
    auto& ih0 = f.in(invHessNull, np, np);
    auto& cr = f.out(crit, 7, 2);
    auto& pt = f.out(ptable, np, 6);
    auto& ts = f.out(tests, 3, 3);
    ComputeCritParam(n, p, k, llNull, llModel, iterations, &th, &ih, &g0, &ih0, alpha, &cr, &pt,
                     &ts);
    return 0;
  });
}

VELKOR_EXTERN_C VELKOR_API int Cpp_ResParam(const double* times, int n, int p, const double* codes,
                                            const double* design, const double* params, int dist,
                                            double* stdRes, double* coxSnell, double* martingale,
                                            double* deviance) {
  return velkor::flat_call([&](velkor::FlatFrame& f) {
    auto& t = f.in(times, n);
    auto& c = f.in(codes, n);
    auto& x = f.in(design, n, nonneg(p));
    auto& th = f.in(params, nonneg(p) + law_params(dist));
    auto& r1 = f.out(stdRes, n);
    auto& r2 = f.out(coxSnell, n);
    auto& r3 = f.out(martingale, n);
    auto& r4 = f.out(deviance, n);
    ResParam(&t, n, p, &c, &x, &th, dist, &r1, &r2, &r3, &r4);
    return 0;
  });
}

VELKOR_EXTERN_C VELKOR_API int Cpp_PrepareIntervalData(const double* judge, int n, int m,
                                                       const double* stimes, double* data, int d,
                                                       int* nRemoved, int* flags, int* nKept,
                                                       double* bounds, double* codes, double* times,
                                                       double* summary) {
  return velkor::flat_call([&](velkor::FlatFrame& f) {
    auto& j = f.in(judge, n, m);
    auto& st = f.in(stimes, m);
    auto& dt = f.out(data, n, nonneg(d));
    int& nr = f.scalar(nRemoved);
    auto& fl = f.out(flags, n);
    int& nk = f.scalar(nKept);
    auto& b = f.out(bounds, n, 2);
    auto& c = f.out(codes, n);
    auto& t = f.out(times, n);
    auto& s = f.out(summary, m, 2);
    return PrepareIntervalData(&j, n, m, &st, &dt, d, nr, &fl, nk, &b, &c, &t, &s);
  });
}

VELKOR_EXTERN_C VELKOR_API int Cpp_TransformJudgeToInt(const double* stime, int n, int m,
                                                       const double* orderKey, int nCode,
                                                       const double* response, double* judge,
                                                       double* distinct) {
  return velkor::flat_call([&](velkor::FlatFrame& f) {
    auto& t = f.in(stime, n);
    auto& key = f.in(orderKey, n);
    auto& r = f.in(response, n);
    auto& j = f.out(judge, nonneg(nCode), nonneg(m));
    auto& ds = f.out(distinct, m);
    return TransformJudgeToInt(&t, n, m, &key, nCode, &r, &j, &ds);
  });
}
