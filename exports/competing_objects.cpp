// C++ workers of the competing-risks family exported under their own names: guarded calls of the
// workers in competing/, so that no exception crosses the library boundary.
#include "competing/cumulative_incidence.h"
#include "competing/gray_test.h"
#include "core/frame.h"
#include "velkor/competing_objects.h"

VELKOR_API int ReorganizeDataCum(matrix<double>* times, int n, matrix<double>* status,
                                 matrix<double>* allCause, matrix<double>* groups,
                                 matrix<double>* groupSizes, int nGroups, double& maxTime) {
  return velkor::guarded_call([&] {
    return velkor::competing::ReorganizeDataCum(times, n, status, allCause, groups, groupSizes,
                                                nGroups, maxTime);
  });
}

VELKOR_API void CumIncCalc(int T, matrix<double>* times, matrix<double>* status, int cause,
                           double alpha, int n, int offset, matrix<double>* productLimit,
                           matrix<double>* incidence, matrix<double>* complement) {
  velkor::guarded_call([&] {
    velkor::competing::CumIncCalc(T, times, status, cause, alpha, n, offset, productLimit,
                                  incidence, complement);
    return 0;
  });
}

VELKOR_API int GrayTest(matrix<double>* times, matrix<double>* status, matrix<double>* groups,
                        matrix<double>* strata, int n, int cause, double rho, int nCauses,
                        int nGroups, matrix<double>* tests, matrix<double>* scores,
                        matrix<double>* variance) {
  return velkor::guarded_call([&] {
    return velkor::competing::GrayTest(times, status, groups, strata, n, cause, rho, nCauses,
                                       nGroups, tests, scores, variance);
  });
}
