// ROC analysis through VELKORLI1M.dll, on aSAH against pROC and R (the fixture of the Linux tests):
// the contingency table from status labels passed as real OLE Automation arrays (BSTR and VARIANT
// elements, text and numeric positive labels), the classification statistics, the curve with its
// area and standard errors, and the paired DeLong comparison; the same analyses through the
// exported C++ workers on matrix containers (labels read back from the BSTR array with oleaut32);
// a null array given to the flat entry.
#include <cmath>
#include <string>
#include <vector>

#include "velkor/VELKORLI1M.h"
#include "velkor/roc_objects.h"
#include "windows/harness.h"
#include "windows/ole.h"

namespace {
#include "reference/roc/asah_fixture.inc"
}  // namespace

VELKOR_WIN_FAMILY(roc) {
  using namespace wintest::ole;
  auto table_of = VELKOR_PROC(lib, Cpp_CreateROCContingencyTable);
  auto stats_of = VELKOR_PROC(lib, Cpp_GetROCStats);
  auto roc = VELKOR_PROC(lib, Cpp_ComputeROC);
  auto compare = VELKOR_PROC(lib, Cpp_ComputeROCComparisonsDep2);
  if (!table_of || !stats_of || !roc || !compare) return;
  const int n = static_cast<int>(asah::status.size());

  // The 2 x 2 table at s100b >= 0.205 from the labels "Poor" / "Good", as a SAFEARRAY of BSTR and
  // as a SAFEARRAY of VARIANT; the positive label a VT_BSTR VARIANT.
  std::vector<std::u16string> text;
  std::vector<std::pair<bool, std::u16string>> as_variants;
  for (double s : asah::status) {
    text.push_back(s == 1.0 ? u"Poor" : u"Good");
    as_variants.push_back({true, text.back()});
  }
  ArrayGuard bstrs{strings(text)};
  ArrayGuard variant_labels{variants(as_variants, std::vector<double>(n, 0.0))};
  Variant poor(u"Poor");
  // table_abcd lists the cells (1,1), (1,2), (2,1), (2,2); the caller's array is column-major.
  const double expected_table[4] = {asah::table_abcd[0], asah::table_abcd[2], asah::table_abcd[1],
                                    asah::table_abcd[3]};
  for (SAFEARRAY* labels : {bstrs.psa, variant_labels.psa}) {
    double table[4] = {0, 0, 0, 0};
    WCHECK_EQ(table_of(labels, n, &poor.v, asah::s100b.data(), 0, 0.205, 3, nullptr, table), 0);
    WCHECK_ALL(table, expected_table, 4, 0.0);
  }
  // Numeric labels: the VARIANT 1 is compared as the text "1" with the labels "1" / "0".
  {
    std::vector<std::u16string> digits;
    for (double s : asah::status) digits.push_back(s == 1.0 ? u"1" : u"0");
    ArrayGuard labels{strings(digits)};
    Variant one(1.0);
    double table[4] = {0, 0, 0, 0};
    WCHECK_EQ(table_of(labels.psa, n, &one.v, asah::s100b.data(), 0, 0.205, 3, nullptr, table), 0);
    WCHECK_ALL(table, expected_table, 4, 0.0);
    WCHECK_EQ(table_of(labels.psa, n, &one.v, nullptr, 0, 0.205, 3, nullptr, table),
              VELKOR_E_NULL_ARRAY);
  }

  // The thirteen statistics and their limits (method 0 with its Wald / Wilson split, method 3).
  {
    double table[4] = {expected_table[0], expected_table[1], expected_table[2], expected_table[3]};
    double stats[39], props[9];
    WCHECK_EQ(stats_of(table, 0.05, 0, 0, 0.0, stats, props), 0);
    WCHECK_ALL(stats, asah::stats_method0.data(), 39, 1e-12);
    WCHECK_EQ(stats_of(table, 0.05, 3, 0, 0.0, stats, props), 0);
    WCHECK_ALL(stats, asah::stats_method3.data(), 39, 1e-10);
  }

  // Curve, area and the three standard errors of each marker.
  struct Marker {
    const std::vector<double>& values;
    double auc, var_delong, se_hanley, se_bamber;
    const std::vector<double>&fpr, &tpr;
  };
#define MARKER(m)                                                                           \
  Marker {                                                                                  \
    asah::m, asah::m##_auc, asah::m##_var_delong, asah::m##_se_hanley, asah::m##_se_bamber, \
        asah::m##_fpr, asah::m##_tpr                                                        \
  }
  const Marker markers[] = {MARKER(s100b), MARKER(ndka), MARKER(wfns)};
  for (const Marker& m : markers) {
    double se[3];
    for (int method = 0; method < 3; ++method) {
      std::vector<double> curve((n + 1) * 3), auc(9);
      int counts[3] = {0, 0, 0};
      WCHECK_EQ(roc(asah::status.data(), m.values.data(), nullptr, n, 1, 0.05, method, 0, 0, 0, 0.0,
                    nullptr, 0, curve.data(), nullptr, nullptr, auc.data(), nullptr, counts),
                0);
      WCHECK_NEAR(auc[0], m.auc, 1e-12);
      se[method] = auc[1];
      if (method == 2 && WCHECK_EQ(static_cast<std::size_t>(counts[0] + 1), m.fpr.size())) {
        WCHECK_ALL(curve.data(), m.fpr.data(), m.fpr.size(), 1e-14);
        WCHECK_ALL(curve.data() + n + 1, m.tpr.data(), m.tpr.size(), 1e-14);
      }
    }
    WCHECK_NEAR(se[0], m.se_hanley, 1e-12);
    WCHECK_NEAR(se[1], m.se_bamber, 1e-12);
    WCHECK_NEAR(se[2] * se[2], m.var_delong, 1e-12);
  }

  // Paired DeLong comparison of the three markers (their values one column after another).
  std::vector<double> all;
  for (const auto* v : {&asah::s100b, &asah::ndka, &asah::wfns})
    all.insert(all.end(), v->begin(), v->end());
  {
    double aucs[12], cov[9], global[3], pairs[24];
    WCHECK_EQ(
        compare(asah::status.data(), all.data(), nullptr, n, 3, 1, 0.05, aucs, cov, global, pairs),
        0);
    WCHECK_ALL(pairs + 6 * 3, asah::pair_z.data(), 3, 1e-10);
    WCHECK_ALL(pairs + 7 * 3, asah::pair_p.data(), 3, 1e-10);
    WCHECK_NEAR(global[0], asah::global_chi2, 1e-10);
    WCHECK_NEAR(global[2], asah::global_p, 1e-10);
    double only_one[] = {1, 1, 1};
    WCHECK_EQ(compare(only_one, all.data(), nullptr, 3, 3, 1, 0.05, aucs, cov, global, pairs), -2);
  }

  // Null values with a positive length: status 3, no output written.
  {
    wintest::GuardedD curve((n + 1) * 3, 0.125), auc(9, 0.125);
    wintest::GuardedI counts(3, -7);
    WCHECK_REFUSED(roc(asah::status.data(), nullptr, nullptr, n, 1, 0.05, 2, 0, 0, 0, 0.0, nullptr,
                       0, curve.data(), nullptr, nullptr, auc.data(), nullptr, counts.data()),
                   curve, auc, counts);
  }

  // The exported C++ workers on containers of this program.
  auto table_w = VELKOR_CPP_PROC(lib, CreateROCContingencyTable);
  auto stats_w = VELKOR_CPP_PROC(lib, GetROCStats);
  auto roc_w = VELKOR_CPP_PROC(lib, ComputeROC);
  auto compare_w = VELKOR_CPP_PROC(lib, ComputeROCComparisonsDep);
  if (!table_w || !stats_w || !roc_w || !compare_w) return;
  const auto un = static_cast<std::uint32_t>(n);
  {
    // Labels read back from the BSTR array, as a caller holding a worksheet range does.
    matrix<std::u16string> labels(un, 1);
    LONG lower = 0;
    SafeArrayGetLBound(bstrs.psa, 1, &lower);
    for (LONG i = 0; i < n; ++i) {
      LONG idx = lower + i;
      BSTR b = nullptr;
      if (SUCCEEDED(SafeArrayGetElement(bstrs.psa, &idx, &b)) && b) {
        labels.data[i] = std::u16string(reinterpret_cast<const char16_t*>(b), SysStringLen(b));
        SysFreeString(b);
      }
    }
    matrix<double> values(un, 1, const_cast<double*>(asah::s100b.data()), 0), none(0, 1);
    matrix<double> table(2, 2);
    WCHECK_EQ(table_w(&labels, n, &poor.v, &values, 0, 0.205, 3, &none, &table), 0);
    WCHECK_ALL(table.data, expected_table, 4, 0.0);
    matrix<double> stats(13, 3), props(3, 3);
    WCHECK_EQ(stats_w(&table, 0.05, 0, 0, 0.0, &stats, &props), 0);
    WCHECK_ALL(stats.data, asah::stats_method0.data(), 39, 1e-12);
  }
  {
    matrix<double> status(un, 1, const_cast<double*>(asah::status.data()), 0);
    matrix<double> values(un, 1, const_cast<double*>(asah::s100b.data()), 0), none(0, 1);
    matrix<double> curve(un + 1, 3), auc(9, 1);
    matrix<int> counts(3, 1);
    WCHECK_EQ(roc_w(&status, &values, &none, n, 1, 0.05, 2, 0, 0, 0, 0.0, nullptr, &curve, nullptr,
                    nullptr, &auc, nullptr, &counts),
              0);
    WCHECK_NEAR(auc.data[0], asah::s100b_auc, 1e-12);
    WCHECK_NEAR(auc.data[1] * auc.data[1], asah::s100b_var_delong, 1e-12);
    if (WCHECK_EQ(static_cast<std::size_t>(counts.data[0] + 1), asah::s100b_fpr.size())) {
      WCHECK_ALL(curve.data, asah::s100b_fpr.data(), asah::s100b_fpr.size(), 1e-14);
      WCHECK_ALL(curve.data + n + 1, asah::s100b_tpr.data(), asah::s100b_tpr.size(), 1e-14);
    }
    WCHECK_EQ(roc_w(nullptr, &values, &none, n, 1, 0.05, 2, 0, 0, 0, 0.0, nullptr, &curve, nullptr,
                    nullptr, &auc, nullptr, &counts),
              VELKOR_E_NULL_ARRAY);
    matrix<double> three(un, 3, all.data(), 0), aucs(3, 4), cov(3, 3), global(3, 1), pairs(3, 8);
    WCHECK_EQ(compare_w(&status, &three, &none, n, 3, 1, 0.05, &aucs, &cov, &global, &pairs), 0);
    WCHECK_ALL(pairs.data + 6 * 3, asah::pair_z.data(), 3, 1e-10);
    WCHECK_ALL(pairs.data + 7 * 3, asah::pair_p.data(), 3, 1e-10);
    WCHECK_NEAR(global.data[0], asah::global_chi2, 1e-10);
    WCHECK_NEAR(global.data[2], asah::global_p, 1e-10);
  }
}
