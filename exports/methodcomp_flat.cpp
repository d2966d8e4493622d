// Flat entry points of the method-comparison family: each copies the caller's arrays into
// n x 1 containers through the frame, calls the worker and returns its status.
#include "core/frame.h"
#include "methodcomp/bland_altman.h"
#include "methodcomp/deming.h"
#include "methodcomp/passing_bablok.h"
#include "velkor/methodcomp.h"

namespace mc = velkor::methodcomp;
using velkor::FlatFrame;

VELKOR_EXTERN_C VELKOR_API int Cpp_BlandAltman(const double* x, const double* y, int n, int type,
                                               double alpha, double* diffs, double* means,
                                               double* bias, double* sd, double* biasLow,
                                               double* biasHigh, double* loaLow, double* loaHigh) {
  return velkor::flat_call([&](FlatFrame& f) {
    return mc::BlandAltman(&f.in(x, n), &f.in(y, n), n, type, alpha, &f.out(diffs, n),
                           &f.out(means, n), f.scalar(bias), f.scalar(sd), f.scalar(biasLow),
                           f.scalar(biasHigh), f.scalar(loaLow), f.scalar(loaHigh));
  });
}

VELKOR_EXTERN_C VELKOR_API int Cpp_BlandAltmanLoACI(const double* x, const double* y, int n,
                                                    int type, double alpha, double alphaCI,
                                                    int method, double* limits) {
  return velkor::flat_call([&](FlatFrame& f) {
    return mc::BlandAltmanLoACI(&f.in(x, n), &f.in(y, n), n, type, alpha, alphaCI, method,
                                &f.out(limits, 6));
  });
}

VELKOR_EXTERN_C VELKOR_API int Cpp_GetRepeatability(const double* x, int n, const double* subject,
                                                    double alpha, double* sw, double* swLow,
                                                    double* swHigh) {
  return velkor::flat_call([&](FlatFrame& f) {
    return mc::GetRepeatability(&f.in(x, n), n, &f.in(subject, n), alpha, f.scalar(sw),
                                f.scalar(swLow), f.scalar(swHigh));
  });
}

VELKOR_EXTERN_C VELKOR_API int Cpp_Passing_Bablok(
    const double* x, int n, const double* y, int option, double alpha, double* a, double* aLow,
    double* aHigh, double* b, double* bLow, double* bHigh, double* fitted, double* residuals,
    double* differences, double* distance, double* maxCusum, double* critical, double* pValue) {
  return velkor::flat_call([&](FlatFrame& f) {
    return mc::PassingBablok(&f.in(x, n), n, &f.in(y, n), option, alpha, f.scalar(a),
                             f.scalar(aLow), f.scalar(aHigh), f.scalar(b), f.scalar(bLow),
                             f.scalar(bHigh), &f.out(fitted, n), &f.out(residuals, n),
                             &f.out(differences, n), &f.out(distance, n), f.scalar(maxCusum),
                             f.scalar(critical), f.scalar(pValue));
  });
}

VELKOR_EXTERN_C VELKOR_API int Cpp_PassingBablokBIS(
    const double* x, int n, const double* y, int option, double alpha, double* a, double* aLow,
    double* aHigh, double* b, double* bLow, double* bHigh, double* fitted, double* residuals,
    double* differences, double* distance, double* maxCusum, double* critical, double* pValue) {
  return velkor::flat_call([&](FlatFrame& f) {
    return mc::PassingBablokBIS(&f.in(x, n), n, &f.in(y, n), option, alpha, f.scalar(a),
                                f.scalar(aLow), f.scalar(aHigh), f.scalar(b), f.scalar(bLow),
                                f.scalar(bHigh), &f.out(fitted, n), &f.out(residuals, n),
                                &f.out(differences, n), &f.out(distance, n), f.scalar(maxCusum),
                                f.scalar(critical), f.scalar(pValue));
  });
}

VELKOR_EXTERN_C VELKOR_API int VB_DemingRegression(const double* x, const double* y, int n,
                                                   double lambda, double alpha, double* coef,
                                                   double* fitted, double* residuals) {
  return velkor::flat_call([&](FlatFrame& f) {
    return mc::DemingRegression(&f.in(x, n), &f.in(y, n), n, lambda, alpha,
                                &f.out(coef, mc::kDemingCoefRows), &f.out(fitted, n),
                                &f.out(residuals, n));
  });
}

VELKOR_EXTERN_C VELKOR_API int Cpp_NewDemingRegression(const double* x, const double* y, int n,
                                                       const double* subject, short weighted,
                                                       double lambda, double alpha, int maxIter,
                                                       double tol, double* coef, double* info,
                                                       double* fitted, double* residuals) {
  return velkor::flat_call([&](FlatFrame& f) {
    matrix<double>* codes = subject ? &f.in(subject, n) : nullptr;
    return mc::NewDemingRegression(&f.in(x, n), &f.in(y, n), n, codes, weighted, lambda, alpha,
                                   maxIter, tol, &f.out(coef, mc::kDemingCoefRows), &f.out(info, 3),
                                   &f.out(fitted, n), &f.out(residuals, n));
  });
}
