// Flat entry points of the competing-risks family: caller arrays through the entry frame, the
// workers of competing/ on the frame's containers. No statistics here.
#include <algorithm>

#include "competing/cumulative_incidence.h"
#include "competing/gray_test.h"
#include "core/frame.h"
#include "velkor/competing.h"

namespace {

long long nonneg(long long v) {
  return std::max(v, 0LL);
}

}  // namespace

VELKOR_EXTERN_C VELKOR_API int Cpp_ReorganizeDataCum(double* times, int n, double* status,
                                                     double* allCause, double* groups,
                                                     const double* groupSizes, int nGroups,
                                                     double* maxTime) {
  return velkor::flat_call([&](velkor::FlatFrame& f) {
    auto& t = f.out(times, n);
    auto& s = f.out(status, n);
    auto& a = f.out(allCause, n);
    auto& g = f.out(groups, n);
    auto& sizes = f.in(groupSizes, 1, nGroups);
    double& mx = f.scalar(maxTime);
    return velkor::competing::ReorganizeDataCum(&t, n, &s, &a, &g, &sizes, nGroups, mx);
  });
}

VELKOR_EXTERN_C VELKOR_API int Cpp_CumIncCalc(int T, int nAll, const double* times,
                                              const double* status, int cause, double alpha, int n,
                                              int offset, const double* productLimit,
                                              double* incidence, double* complement) {
  return velkor::flat_call([&](velkor::FlatFrame& f) {
    // The worker reads only the group's rows offset .. offset + n - 1 of times and status (fewer
    // where the columns end first): when that block lies inside the columns, the private copies
    // hold just those rows and the worker sees the block at offset 0, which addresses the same
    // cells. Any other offset takes the columns whole.
    const bool block =
        times != nullptr && status != nullptr && offset >= 0 && n >= 0 && offset <= nAll;
    const long long first = block ? offset : 0;
    const long long rows =
        block ? std::min<long long>(n, static_cast<long long>(nAll) - offset) : nAll;
    auto& t = f.in(times + first, rows);
    auto& s = f.in(status + first, rows);
    // Columns 1 to 8 of the product-limit table are read (9 to 12 never): the copy stops there.
    auto& pl = f.in(productLimit, nonneg(n) + 2, 8);
    auto& inc = f.out(incidence, T, 10);
    auto& comp = f.out(complement, T, 10);
    velkor::competing::CumIncCalc(T, &t, &s, cause, alpha, n, block ? 0 : offset, &pl, &inc, &comp);
    return 0;
  });
}

VELKOR_EXTERN_C VELKOR_API int Cpp_GrayTest(const double* times, const double* status,
                                            const double* groups, const double* strata, int n,
                                            int cause, double rho, int nCauses, int nGroups,
                                            double* tests, double* scores, double* variance) {
  return velkor::flat_call([&](velkor::FlatFrame& f) {
    const long long k1 = nonneg(static_cast<long long>(nGroups) - 1);
    auto& t = f.in(times, n);
    auto& s = f.in(status, n);
    auto& g = f.in(groups, n);
    auto& st = f.in(strata, strata != nullptr ? n : 0);
    auto& out = f.out(tests, nCauses, 3);
    auto& sc = f.out(scores, scores != nullptr ? k1 : 0, nCauses);
    auto& v = f.out(variance, variance != nullptr ? k1 * k1 : 0, nCauses);
    return velkor::competing::GrayTest(&t, &s, &g, &st, n, cause, rho, nCauses, nGroups, &out, &sc,
                                       &v);
  });
}
