// ROC workers exported under their own names, for C++ callers that hold the library's containers.
// Each takes matrix<T> containers in the order of its flat entry point (velkor/roc.h, where every
// argument is documented) and returns the same status. An optional output may be null or have no
// elements; `weights` with no elements means unit weights. No exception leaves these functions:
// an internal failure returns a positive status (velkor/status.h).
#pragma once

#include <string>

#include "velkor/containers.h"
#include "velkor/export.h"
#include "velkor/oleauto.h"

// status: n x 1 labels; table: 2 x 2 (in/out, accumulated).
VELKOR_API int CreateROCContingencyTable(matrix<std::u16string>* status, int n,
                                         const VARIANT* positiveLabel, matrix<double>* values,
                                         short exactMatch, double threshold, int rule,
                                         matrix<double>* weights, matrix<double>* table);

// table: 2 x 2; stats: 13 x 3; proportions: 3 x 3.
VELKOR_API int GetROCStats(matrix<double>* table, double alpha, int method, short continuity,
                           double prior, matrix<double>* stats, matrix<double>* proportions);

// status, values, weights: n x 1; unitCosts: 4 x 1; curve: (n+1) x 3; thresholdStats: n x 44;
// costs: n x 1; auc: 9 x 1; optimal: n x 4; counts: 3 x 1.
VELKOR_API int ComputeROC(matrix<double>* status, matrix<double>* values, matrix<double>* weights,
                          int n, int side, double alpha, int seMethod, short tail,
                          int intervalMethod, short continuity, double prior,
                          matrix<double>* unitCosts, matrix<double>* curve,
                          matrix<double>* thresholdStats, matrix<double>* costs,
                          matrix<double>* auc, matrix<double>* optimal, matrix<int>* counts);

// status, weights: n x 1; values: n x m; aucs: m x 4; covariance: m x m; global: 3 x 1;
// pairs: m(m-1)/2 x 8.
VELKOR_API int ComputeROCComparisonsDep(matrix<double>* status, matrix<double>* values,
                                        matrix<double>* weights, int n, int m, int side,
                                        double alpha, matrix<double>* aucs,
                                        matrix<double>* covariance, matrix<double>* global,
                                        matrix<double>* pairs);
