// ROC contingency table at one threshold and the thirteen classification statistics derived from
// it, each with its confidence interval.
//
// Contingency table (2 x 2, weighted counts, column-major a, c, b, d):
//                     truly positive   truly negative
//   test-positive           a                b
//   test-negative           c                d
// N = a + b + c + d; pa = a / N, pb = b / N, pc = c / N, pd = d / N.
#pragma once

#include <string>

#include "velkor/containers.h"

namespace velkor::roc {

// Number of statistics rows and the width of the statistics table (value, lower, upper).
inline constexpr int kStatRows = 13;
inline constexpr int kStatCells = 3 * kStatRows;

// Which side of the threshold is test-positive (decision rule codes of the table builder).
inline constexpr int kRuleBelow = 1;         // value <  threshold
inline constexpr int kRuleBelowOrEqual = 2;  // value <= threshold
inline constexpr int kRuleAboveOrEqual = 3;  // value >= threshold
inline constexpr int kRuleAbove = 4;         // value >  threshold

// True when `value` is test-positive under `rule` (any other rule code: never). With exactMatch
// the row is positive exactly when value == threshold and the rule is ignored.
bool IsTestPositive(double value, double threshold, int rule, bool exactMatch) noexcept;

// Adds the weight of every row 0..n-1 to its cell of `table` (2 x 2; never cleared first, so
// repeated calls accumulate). A row is truly positive when its label equals `positive` as a
// whole UTF-16 string (case and spaces matter). `weights` with no elements means unit weights.
// Out-of-range rows read the containers' spare elements. Cost O(n). Returns 0.
int CreateROCContingencyTable(matrix<std::u16string>* status, int n, const std::u16string& positive,
                              matrix<double>* values, short exactMatch, double threshold, int rule,
                              matrix<double>* weights, matrix<double>* table);

// The same with the positive label as an OLE VARIANT: a VT_BSTR is used as it stands, any other
// type is converted to its text form with VariantChangeType. A null VARIANT or one that cannot
// be converted (arrays, objects, VT_NULL, errors) matches no label: every row counts as truly
// negative.
int CreateROCContingencyTable(matrix<std::u16string>* status, int n, const VARIANT* positive,
                              matrix<double>* values, short exactMatch, double threshold, int rule,
                              matrix<double>* weights, matrix<double>* table);

// Reads the first n labels of a SAFEARRAY of strings into status (n x 1): VT_BSTR elements
// (cbElements = 8) or VT_VARIANT elements (cbElements = 24, each converted as VariantLabel
// does), any number of dimensions, read in storage order (first index fastest). Rows beyond the
// array's elements, and VARIANT elements with no text form, get the empty label. A null array or
// one of another element type leaves every label empty.
void LabelsFromSafeArray(SAFEARRAY* psa, int n, matrix<std::u16string>& status);

// Text form of a VARIANT label (see above); false when it has none.
bool VariantLabel(const VARIANT* v, std::u16string& out);

// The thirteen statistics of a 2 x 2 table with their intervals into stats (13 x 3, column-major:
// values, then lower limits, then upper limits), and the 3 x 3 proportions table. Returns 0.
int GetROCStats(matrix<double>* table, double alpha, int method, short continuity, double prior,
                matrix<double>* stats, matrix<double>* proportions);

// Core of GetROCStats on plain numbers: z = |InvCDFNormalStd(1 - alpha/2)| computed by the
// caller (NaN or infinite z: values only, every interval missing). `out` receives 39 cells in
// the layout of the statistics table. Used per threshold by the ROC curve.
void ClassificationStatistics(double a, double b, double c, double d, double z, double alpha,
                              int method, short continuity, double prior, double* out);

// z = |InvCDFNormalStd(1 - alpha/2)|, the two-sided normal critical value (NaN for a bad alpha).
double CriticalValueTwoSided(double alpha);

}  // namespace velkor::roc
