// Flat entry points of the roc family: caller arrays into containers, the worker, results back.
#include <string>

#include "core/frame.h"
#include "roc/contingency.h"
#include "roc/roc_curve.h"
#include "velkor/roc.h"

namespace {

// An optional output: a null pointer becomes an empty container (the worker skips it).
template <class T>
matrix<T>& optional_out(velkor::FlatFrame& f, T* p, long long rows, long long cols = 1) {
  return f.out(p, p != nullptr ? rows : 0, cols);
}
template <class T>
matrix<T>& optional_in(velkor::FlatFrame& f, const T* p, long long rows) {
  return f.in(p, p != nullptr ? rows : 0);
}

}  // namespace

VELKOR_EXTERN_C VELKOR_API int Cpp_CreateROCContingencyTable(SAFEARRAY* status, int n,
                                                             const VARIANT* positiveLabel,
                                                             const double* values, short exactMatch,
                                                             double threshold, int rule,
                                                             const double* weights, double* table) {
  return velkor::flat_call([&](velkor::FlatFrame& f) {
    matrix<std::u16string> labels(n > 0 ? static_cast<std::uint32_t>(n) : 0u, 1u);
    velkor::roc::LabelsFromSafeArray(status, n, labels);
    return velkor::roc::CreateROCContingencyTable(&labels, n, positiveLabel, &f.in(values, n),
                                                  exactMatch, threshold, rule,
                                                  &optional_in(f, weights, n), &f.out(table, 2, 2));
  });
}

VELKOR_EXTERN_C VELKOR_API int Cpp_GetROCStats(const double* table, double alpha, int method,
                                               short continuity, double prior, double* stats,
                                               double* proportions) {
  return velkor::flat_call([&](velkor::FlatFrame& f) {
    return velkor::roc::GetROCStats(&f.in(table, 2, 2), alpha, method, continuity, prior,
                                    &f.out(stats, 13, 3), &f.out(proportions, 3, 3));
  });
}

VELKOR_EXTERN_C VELKOR_API int Cpp_ComputeROC(const double* status, const double* values,
                                              const double* weights, int n, int side, double alpha,
                                              int seMethod, short tail, int intervalMethod,
                                              short continuity, double prior,
                                              const double* unitCosts, int tableRows, double* curve,
                                              double* thresholdStats, double* costs, double* auc,
                                              double* optimal, int* counts) {
  return velkor::flat_call([&](velkor::FlatFrame& f) {
    const long long rows = n, tab = tableRows > 0 ? tableRows : rows;
    return velkor::roc::ComputeROC(
        &f.in(status, rows), &f.in(values, rows), &optional_in(f, weights, rows), n, side, alpha,
        seMethod, tail, intervalMethod, continuity, prior, &optional_in(f, unitCosts, 4),
        &optional_out(f, curve, tab + 1, 3),
        &optional_out(f, thresholdStats, tab, velkor::roc::kThresholdStatsCols),
        &optional_out(f, costs, tab), &f.out(auc, 9), &optional_out(f, optimal, tab, 4),
        &optional_out(f, counts, 3));
  });
}

VELKOR_EXTERN_C VELKOR_API int Cpp_ComputeROCComparisonsDep2(
    const double* status, const double* values, const double* weights, int n, int m, int side,
    double alpha, double* aucs, double* covariance, double* global, double* pairs) {
  return velkor::flat_call([&](velkor::FlatFrame& f) {
    const long long rows = n, cols = m > 0 ? m : 0;
    return velkor::roc::ComputeROCComparisonsDep(
        &f.in(status, rows), &f.in(values, rows, cols), &optional_in(f, weights, rows), n, m, side,
        alpha, &optional_out(f, aucs, cols, 4), &optional_out(f, covariance, cols, cols),
        &optional_out(f, global, 3), &optional_out(f, pairs, cols * (cols - 1) / 2, 8));
  });
}
