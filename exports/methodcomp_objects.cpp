// Method-comparison workers exported under their own names: guarded calls into the workers.
#include "velkor/methodcomp_objects.h"

#include "core/frame.h"
#include "methodcomp/bland_altman.h"
#include "methodcomp/deming.h"
#include "methodcomp/passing_bablok.h"

namespace mc = velkor::methodcomp;

int BlandAltman(matrix<double>* x, matrix<double>* y, int n, int type, double alpha,
                matrix<double>* diffs, matrix<double>* means, double& bias, double& sd,
                double& biasLow, double& biasHigh, double& loaLow, double& loaHigh) {
  return velkor::guarded_call([&] {
    return mc::BlandAltman(x, y, n, type, alpha, diffs, means, bias, sd, biasLow, biasHigh, loaLow,
                           loaHigh);
  });
}

int BlandAltmanLoACI(matrix<double>* x, matrix<double>* y, int n, int type, double alpha,
                     double alphaCI, int method, matrix<double>* out) {
  return velkor::guarded_call(
      [&] { return mc::BlandAltmanLoACI(x, y, n, type, alpha, alphaCI, method, out); });
}

int GetRepeatability(matrix<double>* x, int n, matrix<double>* subject, double alpha, double& sw,
                     double& swLow, double& swHigh) {
  return velkor::guarded_call(
      [&] { return mc::GetRepeatability(x, n, subject, alpha, sw, swLow, swHigh); });
}

int PassingBablok(matrix<double>* x, int n, matrix<double>* y, int option, double alpha, double& a,
                  double& aLow, double& aHigh, double& b, double& bLow, double& bHigh,
                  matrix<double>* fitted, matrix<double>* residuals, matrix<double>* differences,
                  matrix<double>* distance, double& maxCusum, double& critical, double& pValue) {
  return velkor::guarded_call([&] {
    return mc::PassingBablok(x, n, y, option, alpha, a, aLow, aHigh, b, bLow, bHigh, fitted,
                             residuals, differences, distance, maxCusum, critical, pValue);
  });
}

int PassingBablokBIS(matrix<double>* x, int n, matrix<double>* y, int option, double alpha,
                     double& a, double& aLow, double& aHigh, double& b, double& bLow, double& bHigh,
                     matrix<double>* fitted, matrix<double>* residuals, matrix<double>* differences,
                     matrix<double>* distance, double& maxCusum, double& critical, double& pValue) {
  return velkor::guarded_call([&] {
    return mc::PassingBablokBIS(x, n, y, option, alpha, a, aLow, aHigh, b, bLow, bHigh, fitted,
                                residuals, differences, distance, maxCusum, critical, pValue);
  });
}

int ComputeBCoeff_PAB1(matrix<double>* x, int n, matrix<double>* y, short& negFlag, short geoMean,
                       double verticalUp, double verticalDown, double horizontalLeft,
                       double horizontalRight, double& b, double& N, double& K) {
  return velkor::guarded_call([&] {
    return mc::ComputeBCoeff_PAB1(x, n, y, negFlag, geoMean, verticalUp, verticalDown,
                                  horizontalLeft, horizontalRight, b, N, K);
  });
}

int ComputeBCoeff_PAB3(matrix<double>* x, int n, matrix<double>* y, short& negFlag, short geoMean,
                       double verticalUp, double verticalDown, double horizontalLeft,
                       double horizontalRight, double& b, double& N, double& K) {
  return velkor::guarded_call([&] {
    return mc::ComputeBCoeff_PAB3(x, n, y, negFlag, geoMean, verticalUp, verticalDown,
                                  horizontalLeft, horizontalRight, b, N, K);
  });
}

int Deming(matrix<double>* x, matrix<double>* y, matrix<double>* w, int n, double lambda, double& a,
           double& b) {
  return velkor::guarded_call([&] { return mc::Deming(x, y, w, n, lambda, a, b); });
}

int NewDeming(matrix<double>* x, matrix<double>* y, matrix<double>* w, int n, double lambda,
              double& a, double& b) {
  return velkor::guarded_call([&] { return mc::NewDeming(x, y, w, n, lambda, a, b); });
}

int WeightedDeming(matrix<double>* groupSize, int k, matrix<double>* x, matrix<double>* y, int n,
                   int maxIter, double tol, double& b, double& a, int& iterations) {
  return velkor::guarded_call(
      [&] { return mc::WeightedDeming(groupSize, k, x, y, n, maxIter, tol, b, a, iterations); });
}

int DemingRegression(matrix<double>* x, matrix<double>* y, int n, double lambda, double alpha,
                     matrix<double>* coef, matrix<double>* fitted, matrix<double>* residuals) {
  return velkor::guarded_call(
      [&] { return mc::DemingRegression(x, y, n, lambda, alpha, coef, fitted, residuals); });
}

int NewDemingRegression(matrix<double>* x, matrix<double>* y, int n, matrix<double>* subject,
                        short weighted, double lambda, double alpha, int maxIter, double tol,
                        matrix<double>* coef, matrix<double>* info, matrix<double>* fitted,
                        matrix<double>* residuals) {
  return velkor::guarded_call([&] {
    return mc::NewDemingRegression(x, y, n, subject, weighted, lambda, alpha, maxIter, tol, coef,
                                   info, fitted, residuals);
  });
}
