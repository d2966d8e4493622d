// ROC contingency table and classification statistics.
//
// CreateROCContingencyTable
//   in : status (n x 1 UTF-16 labels), values (n x 1), weights (n x 1, or no elements for unit
//        weights), positive label, exact-match flag, threshold, decision rule (1 <, 2 <=, 3 >=,
//        4 >; other codes: every row test-negative)
//   out: table (2 x 2, in/out: weights are added to what is there)
//   No sort, no missing-value handling (a missing value is compared as the number it is).
//   Cost O(n). Always returns 0.
//
// GetROCStats
//   in : table (2 x 2), alpha, interval method (0..3), continuity flag (-1 on), prior prevalence
//   out: statistics (13 x 3: value, lower, upper; missing marker where undefined),
//        proportions (3 x 3: cells / N with row and column margins, cell (3,3) = 1)
//   Helpers: InvCDFNormalStd, GetInfSupWald, GetInfSupWilson, GetInfSupClopper, GetInfSupLog.
//   Cost O(1) (plus the Clopper-Pearson beta quantiles of method 3). Always returns 0.
//
// The statistics (Se sensitivity, Sp specificity, P sample prevalence, pi = prior prevalence when
// it is > 0, else P):
//    1 correct classification pa + pd          8 PPV = pi Se / ((1 - pi)(1 - Sp) + pi Se)
//    2 misclassification      pb + pc          9 NPV = (1 - pi) Sp / ((1 - Se) pi + (1 - pi) Sp)
//    3 Se = pa / (pa + pc)                    10 LR+ = Se / (1 - Sp)
//    4 Sp = pd / (pb + pd)                    11 LR- = (1 - Se) / Sp
//    5 1 - Sp    6 1 - Se                     12 relative risk (pa / (pa + pb)) / (pc / (pc + pd))
//    7 P = pa + pc                            13 odds ratio pa pd / (pb pc)
// Proportion intervals: Se and Sp by the chosen method (0 Wald, 1 adjusted Wald (Agresti-Coull
// "add two successes and two failures"), 2 Wilson score, 3 Clopper-Pearson); the other
// proportions by Wilson score for method 0 and Wald otherwise. Ratios: log-scale intervals
// exp(log r -/+ z se) with the delta-method standard errors (Simel, Samsa & Matchar 1991 for the
// likelihood ratios; Katz et al. 1978 for the relative risk; Woolf 1955 for the odds ratio, with
// Haldane's 0.5 correction for methods other than 0).
#include "roc/contingency.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>

#include "companion/basic.h"
#include "companion/distributions.h"
#include "companion/intervals.h"
#include "core/numeric.h"

namespace velkor::roc {

namespace {

// Every division of the statistics is guarded by this threshold on its (proportion) divisor: a
// zero cell leaves the statistic or its interval missing instead of dividing by zero.
constexpr double kCellGuard = 1e-12;

// Slots of the statistics table (1-based rows as documented, 0-based here).
enum Row {
  kCorrect = 0,
  kMisclassified,
  kSensitivity,
  kSpecificity,
  kFalsePositive,
  kFalseNegative,
  kPrevalence,
  kPpv,
  kNpv,
  kLrPositive,
  kLrNegative,
  kRelativeRisk,
  kOddsRatio
};

struct StatsWriter {
  double* out;
  void value(int row, double v) const { out[row] = v; }
  // The interval helpers report an undefined limit as NaN; the table holds the marker instead.
  void limits(int row, double lo, double hi) const {
    out[kStatRows + row] = std::isnan(lo) ? kMissing : lo;
    out[2 * kStatRows + row] = std::isnan(hi) ? kMissing : hi;
  }
};

}  // namespace

bool IsTestPositive(double value, double threshold, int rule, bool exactMatch) noexcept {
  if (exactMatch) return value == threshold;
  switch (rule) {
    case kRuleBelow:
      return value < threshold;
    case kRuleBelowOrEqual:
      return value <= threshold;
    case kRuleAboveOrEqual:
      return value >= threshold;
    case kRuleAbove:
      return value > threshold;
    default:
      return false;  // an unknown rule classifies every row as test-negative
  }
}

bool VariantLabel(const VARIANT* v, std::u16string& out) {
  out.clear();
  if (v == nullptr) return false;
  if (v->vt == VT_BSTR) {
    if (v->bstrVal != nullptr) out = velkor::FromBSTR(v->bstrVal);
    return true;
  }
  VARIANT text;
  VariantInit(&text);
  // The Windows declaration takes the source as non-const; it is only read.
  if (FAILED(VariantChangeType(&text, const_cast<VARIANT*>(v), 0, VT_BSTR)) ||
      text.vt != VT_BSTR) {
    VariantClear(&text);
    return false;
  }
  if (text.bstrVal != nullptr) out = velkor::FromBSTR(text.bstrVal);
  VariantClear(&text);
  return true;
}

void LabelsFromSafeArray(SAFEARRAY* psa, int n, matrix<std::u16string>& status) {
  if (psa == nullptr || n <= 0) return;
  const UINT dims = SafeArrayGetDim(psa);
  if (dims == 0) return;
  std::uint64_t total = 1;
  for (UINT d = 1; d <= dims; ++d) {
    LONG lo = 0, hi = -1;
    if (FAILED(SafeArrayGetLBound(psa, d, &lo)) || FAILED(SafeArrayGetUBound(psa, d, &hi))) return;
    total *= hi >= lo ? static_cast<std::uint64_t>(static_cast<std::int64_t>(hi) - lo + 1) : 0;
  }
  const UINT width = SafeArrayGetElemsize(psa);
  VARTYPE vt = VT_EMPTY;
  if (FAILED(SafeArrayGetVartype(psa, &vt))) {
    vt = (psa->fFeatures & FADF_BSTR)      ? VT_BSTR
         : (psa->fFeatures & FADF_VARIANT) ? VT_VARIANT
                                           : VT_EMPTY;
  }
  const bool bstrs = vt == VT_BSTR && width == sizeof(BSTR);
  const bool variants = vt == VT_VARIANT && width == sizeof(VARIANT);
  if (!bstrs && !variants) return;
  void* raw = nullptr;
  if (FAILED(SafeArrayAccessData(psa, &raw)) || raw == nullptr) return;
  const std::uint64_t rows = Min<std::uint64_t>(total, static_cast<std::uint64_t>(n));
  for (std::uint64_t i = 0; i < rows && i < status.rows; ++i) {
    std::u16string label;
    if (bstrs) {
      const BSTR b = static_cast<BSTR*>(raw)[i];
      if (b != nullptr) label = velkor::FromBSTR(b);
    } else {
      VariantLabel(&static_cast<VARIANT*>(raw)[i], label);
    }
    status.at0(i) = std::move(label);
  }
  SafeArrayUnaccessData(psa);
}

namespace {

// Adds each row's weight to its cell. `positive` null: no label matches (every row truly
// negative).
int add_rows_to_table(matrix<std::u16string>* status, int n, const std::u16string* positive,
                      matrix<double>* values, short exactMatch, double threshold, int rule,
                      matrix<double>* weights, matrix<double>* table) {
  if (table == nullptr) return 0;
  const bool unitWeights = weights == nullptr || weights->count == 0;
  for (int i = 0; i < n; ++i) {
    const bool truePositive =
        positive != nullptr && status != nullptr && status->at0(i) == *positive;
    const bool testPositive =
        IsTestPositive(values != nullptr ? values->at0(i) : 0.0, threshold, rule, exactMatch == -1);
    const double w = unitWeights ? 1.0 : weights->at0(i);
    const int r = testPositive ? 1 : 2;
    const int c = truePositive ? 1 : 2;
    table->set(r, c, (*table)(r, c) + w);
  }
  return 0;
}

}  // namespace

int CreateROCContingencyTable(matrix<std::u16string>* status, int n, const std::u16string& positive,
                              matrix<double>* values, short exactMatch, double threshold, int rule,
                              matrix<double>* weights, matrix<double>* table) {
  return add_rows_to_table(status, n, &positive, values, exactMatch, threshold, rule, weights,
                           table);
}

int CreateROCContingencyTable(matrix<std::u16string>* status, int n, const VARIANT* positive,
                              matrix<double>* values, short exactMatch, double threshold, int rule,
                              matrix<double>* weights, matrix<double>* table) {
  std::u16string label;
  const bool hasLabel = VariantLabel(positive, label);
  return add_rows_to_table(status, n, hasLabel ? &label : nullptr, values, exactMatch, threshold,
                           rule, weights, table);
}

void ClassificationStatistics(double a, double b, double c, double d, double z, double alpha,
                              int method, short continuity, double prior, double* out) {
  for (int k = 0; k < kStatCells; ++k) out[k] = kMissing;
  const double N = a + b + c + d;
  // An empty (or non-finite) table has no proportions: every cell stays missing.
  if (!(N > 0.0) || !std::isfinite(N)) return;
  const StatsWriter w{out};
  const bool withIntervals = std::isfinite(z);
  const double pa = a / N, pb = b / N, pc = c / N, pd = d / N;
  const double cc = continuity == -1 ? 0.5 : 0.0;
  double lo = kMissing, hi = kMissing;

  // Wilson for interval method 0, Wald otherwise: the rule of every proportion except Se and Sp.
  auto other_proportion = [&](int row, double p, double n) {
    w.value(row, p);
    if (!withIntervals) return;
    if (method == 0) {
      GetInfSupWilson(z, p, n, cc, lo, hi);
    } else {
      GetInfSupWald(z, p, n, lo, hi);
    }
    w.limits(row, lo, hi);
  };
  // Se and Sp: 0 Wald, 1 adjusted Wald, 2 Wilson, any other code Clopper-Pearson. Method 0 is
  // Wald here but Wilson for the other proportions: deliberate, and kept.
  auto se_sp_proportion = [&](int row, double p, double n) {
    w.value(row, p);
    if (!withIntervals) return;
    switch (method) {
      case 0:
        GetInfSupWald(z, p, n, lo, hi);
        break;
      case 1:
        GetInfSupWald(z, (n * p + 2.0) / (n + 4.0), n + 4.0, lo, hi);
        break;
      case 2:
        GetInfSupWilson(z, p, n, cc, lo, hi);
        break;
      default:
        GetInfSupClopper(n * p, n, alpha, lo, hi);
        break;
    }
    w.limits(row, lo, hi);
  };
  auto log_interval = [&](int row, double value, double se) {
    if (!withIntervals || !std::isfinite(se)) return;
    GetInfSupLog(z, value, se, lo, hi);
    w.limits(row, lo, hi);
  };

  // Rows in the order 1, 2, 3, 6, 4, 5, 7, 8, 9, 10, 11, 12, 13.
  other_proportion(kCorrect, pa + pd, N);
  other_proportion(kMisclassified, pb + pc, N);

  const bool haveSe = pa + pc > kCellGuard;
  const bool haveSp = pb + pd > kCellGuard;
  double Se = kMissing, Sp = kMissing;
  if (haveSe) {
    const double nPos = (pa + pc) * N;
    Se = pa / (pa + pc);
    se_sp_proportion(kSensitivity, Se, nPos);
    other_proportion(kFalseNegative, 1.0 - Se, nPos);
  }
  if (haveSp) {
    const double nNeg = (pb + pd) * N;
    Sp = pd / (pb + pd);
    se_sp_proportion(kSpecificity, Sp, nNeg);
    other_proportion(kFalsePositive, 1.0 - Sp, nNeg);
  }

  const double P = pa + pc;
  other_proportion(kPrevalence, P, N);
  const double pi = prior > 0.0 ? prior : P;

  // The predictive values need both Se and Sp (with a prior prevalence they are not functions of
  // the table's rows alone) and a non-zero denominator.
  double ppv = kMissing, npv = kMissing;
  if (pa + pb > kCellGuard && haveSe && haveSp) {
    const double den = (1.0 - pi) * (1.0 - Sp) + pi * Se;
    if (std::fabs(den) > kCellGuard) {
      ppv = pi * Se / den;
      other_proportion(kPpv, ppv, (pa + pb) * N);
    }
  }
  if (pc + pd > kCellGuard && haveSe && haveSp) {
    const double den = (1.0 - Se) * pi + (1.0 - pi) * Sp;
    if (std::fabs(den) > kCellGuard) {
      npv = (1.0 - pi) * Sp / den;
      other_proportion(kNpv, npv, (pc + pd) * N);
    }
  }

  if ((pa + pc) * pb * (pb + pd) > kCellGuard) {
    const double lr = (pa / (pa + pc)) / (pb / (pb + pd));
    w.value(kLrPositive, lr);
    if (pa > kCellGuard) log_interval(kLrPositive, lr, sqr(((1.0 - Se) / pa + Sp / pb) / N));
  }
  if ((pa + pc) * pd * (pb + pd) > kCellGuard) {
    const double lr = (pc / (pa + pc)) / (pd / (pb + pd));
    w.value(kLrNegative, lr);
    if (pc > kCellGuard) log_interval(kLrNegative, lr, sqr(((1.0 - Sp) / pd + Se / pc) / N));
  }
  if ((pa + pb) * pc * (pc + pd) > kCellGuard) {
    const double rr = (pa / (pa + pb)) / (pc / (pc + pd));
    w.value(kRelativeRisk, rr);
    if (pa > kCellGuard) {
      if (method == 0) {
        // Method 0 takes the predictive values stored in rows 8 and 9, so a prior prevalence
        // moves this interval (deliberate); without both values the interval stays missing.
        if (ppv != kMissing && npv != kMissing)
          log_interval(kRelativeRisk, rr, sqr(((1.0 - ppv) / pa + npv / pc) / N));
      } else {
        log_interval(kRelativeRisk, rr,
                     sqr(1.0 / (N * pc + 0.5) + 1.0 / (N * pa + 0.5) - 1.0 / (N * (pa + pb) + 0.5) -
                         1.0 / (N * (pc + pd) + 0.5)));
      }
    }
  }
  if (pb * pc > kCellGuard) {
    const double oddsRatio = pa * pd / (pb * pc);
    w.value(kOddsRatio, oddsRatio);
    if (pa * pd > kCellGuard) {
      if (method == 0) {
        log_interval(kOddsRatio, oddsRatio, sqr((1.0 / pc + 1.0 / pa + 1.0 / pb + 1.0 / pd) / N));
      } else {
        log_interval(kOddsRatio, oddsRatio,
                     sqr(1.0 / (N * pb + 0.5) + 1.0 / (N * pc + 0.5) + 1.0 / (N * pa + 0.5) +
                         1.0 / (N * pd + 0.5)));
      }
    }
  }
}

double CriticalValueTwoSided(double alpha) {
  if (!(alpha > 0.0 && alpha < 1.0)) return std::numeric_limits<double>::quiet_NaN();
  return std::fabs(InvCDFNormalStd(1.0 - alpha / 2.0));
}

int GetROCStats(matrix<double>* table, double alpha, int method, short continuity, double prior,
                matrix<double>* stats, matrix<double>* proportions) {
  double cells[kStatCells];
  const double a = (*table)(1, 1), b = (*table)(1, 2), c = (*table)(2, 1), d = (*table)(2, 2);
  ClassificationStatistics(a, b, c, d, CriticalValueTwoSided(alpha), alpha, method, continuity,
                           prior, cells);
  if (stats != nullptr) {
    for (int col = 1; col <= 3; ++col)
      for (int row = 1; row <= kStatRows; ++row)
        stats->set(row, col, cells[(col - 1) * kStatRows + (row - 1)]);
  }
  if (proportions != nullptr) {
    const double N = a + b + c + d;
    const bool ok = N > 0.0 && std::isfinite(N);
    const double cell[2][2] = {{a, b}, {c, d}};
    for (int i = 1; i <= 2; ++i)
      for (int j = 1; j <= 2; ++j) proportions->set(i, j, ok ? cell[i - 1][j - 1] / N : kMissing);
    for (int j = 1; j <= 2; ++j)
      proportions->set(3, j, ok ? cell[0][j - 1] / N + cell[1][j - 1] / N : kMissing);
    for (int i = 1; i <= 2; ++i)
      proportions->set(i, 3, ok ? cell[i - 1][0] / N + cell[i - 1][1] / N : kMissing);
    proportions->set(3, 3, ok ? 1.0 : kMissing);
  }
  return 0;
}

}  // namespace velkor::roc
