// ROC workers exported under their own names (C++ containers in, status out).
#include "velkor/roc_objects.h"

#include "core/frame.h"
#include "roc/contingency.h"
#include "roc/roc_curve.h"

VELKOR_API int CreateROCContingencyTable(matrix<std::u16string>* status, int n,
                                         const VARIANT* positiveLabel, matrix<double>* values,
                                         short exactMatch, double threshold, int rule,
                                         matrix<double>* weights, matrix<double>* table) {
  return velkor::guarded_call([&] {
    return velkor::roc::CreateROCContingencyTable(status, n, positiveLabel, values, exactMatch,
                                                  threshold, rule, weights, table);
  });
}

VELKOR_API int GetROCStats(matrix<double>* table, double alpha, int method, short continuity,
                           double prior, matrix<double>* stats, matrix<double>* proportions) {
  return velkor::guarded_call([&] {
    if (table == nullptr) throw velkor::NullCallerArray{};
    return velkor::roc::GetROCStats(table, alpha, method, continuity, prior, stats, proportions);
  });
}

VELKOR_API int ComputeROC(matrix<double>* status, matrix<double>* values, matrix<double>* weights,
                          int n, int side, double alpha, int seMethod, short tail,
                          int intervalMethod, short continuity, double prior,
                          matrix<double>* unitCosts, matrix<double>* curve,
                          matrix<double>* thresholdStats, matrix<double>* costs,
                          matrix<double>* auc, matrix<double>* optimal, matrix<int>* counts) {
  return velkor::guarded_call([&] {
    if (n > 0 && (status == nullptr || values == nullptr)) throw velkor::NullCallerArray{};
    return velkor::roc::ComputeROC(status, values, weights, n, side, alpha, seMethod, tail,
                                   intervalMethod, continuity, prior, unitCosts, curve,
                                   thresholdStats, costs, auc, optimal, counts);
  });
}

VELKOR_API int ComputeROCComparisonsDep(matrix<double>* status, matrix<double>* values,
                                        matrix<double>* weights, int n, int m, int side,
                                        double alpha, matrix<double>* aucs,
                                        matrix<double>* covariance, matrix<double>* global,
                                        matrix<double>* pairs) {
  return velkor::guarded_call([&] {
    if (n > 0 && (status == nullptr || values == nullptr)) throw velkor::NullCallerArray{};
    return velkor::roc::ComputeROCComparisonsDep(status, values, weights, n, m, side, alpha, aucs,
                                                 covariance, global, pairs);
  });
}
