// Summary lines of a descriptive survival analysis: per group counts from the product-limit
// tables, and weighted counts from the ordered data.
#pragma once

#include "velkor/containers.h"

// BuildSummary: tables G x (R x 12) stacked (cRunLife layout), lastRows and totals G values.
// summary G x 6: initial number at risk, events, censored, percent censored 100 c / (d + c)
// (missing when d + c = 0), first time, last time (missing for an empty group). Returns 0. O(n).
int BuildSummary(matrix<double>* tables, int R, int G, matrix<double>* lastRows,
                 matrix<double>* totals, matrix<double>* summary);

// BuildWeightedSummary: ordered times/status/weights (n), group sizes (1 x nGroups; <= 0 groups:
// one block of n rows), event code. summary max(nGroups,1) x 5: rows, sum of weights, weighted
// events, weighted censored, weighted percent censored (missing when the weights sum to 0).
// Returns 0. O(n).
int BuildWeightedSummary(matrix<double>* times, matrix<double>* status, matrix<double>* weights,
                         int n, matrix<double>* groupSizes, int nGroups, int eventCode,
                         matrix<double>* summary);
