// Flat entry points of the descriptive survival family: thin wrappers over the workers in
// survival/. Every caller array goes through the frame (private copies, copy-back on return).
#include <cstdint>
#include <cstring>

#include "core/frame.h"
#include "survival/charts.h"
#include "survival/kaplan_meier.h"
#include "survival/life_tests.h"
#include "survival/mean_median.h"
#include "survival/preparation.h"
#include "survival/summary.h"
#include "velkor/survival.h"

namespace {
constexpr long long kTableCols = 12;
long long nonneg(long long v) {
  return v > 0 ? v : 0;
}
long long groups_or_one(int nGroups) {
  return nGroups > 0 ? nGroups : 1;
}
}  // namespace

VELKOR_EXTERN_C VELKOR_API int ReorganizeData(double* times, int n, double* status, double* weights,
                                              double* groups, const double* groupSizes, int nGroups,
                                              short grouped, double* maxTime) {
  return velkor::flat_call([&](velkor::FlatFrame& f) {
    auto& t = f.out(times, n);
    auto& s = f.out(status, n);
    auto& w = f.out(weights, n);
    auto& g = f.out(groups, n);
    auto& sizes = f.in(groupSizes, 1, nGroups);
    double& mx = f.scalar(maxTime);
    cReorganizeResult result{mx};
    int count = n;
    const int code = cReorganizeData(&t, count, &s, &w, &g, &sizes, nGroups, grouped, result);
    mx = result.maxTime;
    return code;
  });
}

VELKOR_EXTERN_C VELKOR_API int Cpp_CheckStatusFormat(const double* status, int n, double* codes,
                                                     unsigned int* nCodes, int censorCode,
                                                     double* recoded) {
  return velkor::flat_call([&](velkor::FlatFrame& f) {
    auto& s = f.in(status, n);
    auto& c = f.out(codes, n);
    auto& r = f.out(recoded, n);
    unsigned int& k = f.scalar(nCodes);
    std::uint32_t count = k;
    const int code = CheckStatusFormat(&s, n, &c, count, censorCode, &r);
    k = count;
    return code;
  });
}

VELKOR_EXTERN_C VELKOR_API int RunLife(const double* times, const double* status,
                                       const double* weights, int n, const double* groupSizes,
                                       int nGroups, short grouped, int eventCode, short lifeTable,
                                       double width, int blockRows, double* tables,
                                       double* lastRows, double* totals) {
  return velkor::flat_call([&](velkor::FlatFrame& f) {
    const long long G = groups_or_one(nGroups);
    auto& t = f.in(times, n);
    auto& s = f.in(status, n);
    auto& w = f.in(weights, n);
    auto& sizes = f.in(groupSizes, 1, nGroups);
    // cRunLife writes every cell of every table (the marker first): no fill from the caller.
    auto& tab = f.out_overwritten(tables, G * nonneg(blockRows) * kTableCols);
    auto& last = f.out(lastRows, G);
    auto& tot = f.out(totals, G);
    return cRunLife(&t, &s, &w, n, &sizes, nGroups, grouped, eventCode, lifeTable, width, blockRows,
                    &tab, &last, &tot);
  });
}

VELKOR_EXTERN_C VELKOR_API int Cpp_TransNelsonAalen(const double* table, int tableRows, int T,
                                                    double alpha, int method, double* na) {
  return velkor::flat_call([&](velkor::FlatFrame& f) {
    // Only columns 1 to 6 are read (time, counts, number at risk): the private copy stops there.
    auto& km = f.in(table, tableRows, 6);
    // Every cell of the T x 9 result is written: no fill from the caller.
    auto& out = f.out_overwritten(na, T, 9);
    return TransNelsonAalen(&km, T, alpha, method, &out);
  });
}

VELKOR_EXTERN_C VELKOR_API int Cpp_PrepareKaplanCharts(const double* table, int tableRows, int rows,
                                                       short hazardOpt, short logLogOpt,
                                                       short failureOpt, double startX,
                                                       double alpha, int markerMode, double* main,
                                                       int mainPoints, double* hazard,
                                                       double* logLog, int curvePoints) {
  return velkor::flat_call([&](velkor::FlatFrame& f) {
    // Columns 1 to 11 are read (column 12 never): the private copy stops there.
    auto& km = f.in(table, tableRows, 11);
    auto& m = f.out(main, mainPoints, 7);
    auto& h = f.out(hazard, curvePoints, 3);
    auto& l = f.out(logLog, curvePoints, 3);
    return KaplanChartSeries(rows, hazardOpt, logLogOpt, failureOpt, startX, &km, alpha, &m, &h, &l,
                             markerMode);
  });
}

VELKOR_EXTERN_C VELKOR_API int Cpp_Build_Summary(const double* tables, int blockRows, int nGroups,
                                                 const double* lastRows, const double* totals,
                                                 double* summary) {
  return velkor::flat_call([&](velkor::FlatFrame& f) {
    const long long G = nonneg(nGroups), R = nonneg(blockRows);
    auto& tab = f.in(tables, G * R * kTableCols);
    auto& last = f.in(lastRows, G);
    auto& tot = f.in(totals, G);
    auto& out = f.out(summary, G, 6);
    return BuildSummary(&tab, static_cast<int>(R), static_cast<int>(G), &last, &tot, &out);
  });
}

VELKOR_EXTERN_C VELKOR_API int Cpp_Build_WeightedSummary(const double* times, const double* status,
                                                         const double* weights, int n,
                                                         const double* groupSizes, int nGroups,
                                                         int eventCode, double* summary) {
  return velkor::flat_call([&](velkor::FlatFrame& f) {
    auto& t = f.in(times, n);
    auto& s = f.in(status, n);
    auto& w = f.in(weights, n);
    auto& sizes = f.in(groupSizes, 1, nGroups);
    auto& out = f.out(summary, groups_or_one(nGroups), 5);
    return BuildWeightedSummary(&t, &s, &w, n, &sizes, nGroups, eventCode, &out);
  });
}

VELKOR_EXTERN_C VELKOR_API int LoadKaplanTest(int* count, const double* tables, int G,
                                              int blockRows, const double* lastRows,
                                              double* combined) {
  return velkor::flat_call([&](velkor::FlatFrame& f) {
    int& cnt = f.scalar(count);
    const long long groups = nonneg(G);
    // Columns 1 to 6 of each table are read (time, counts, number at risk; 7 to 12 never): the
    // private copy keeps those columns of every group's table.
    constexpr long long kReadCols = 6;
    const long long R = nonneg(blockRows);
    auto& tab = f.in_block_prefixes(tables, groups, R * kTableCols, R * kReadCols);
    auto& last = f.in(lastRows, groups);
    // The merge writes every row of its first T columns and nothing after them: those columns
    // are not filled from the caller; the rest of the private copy gets the caller's values after
    // the merge, so that they go back unchanged.
    const long long rows = 3 * groups + 1, capacity = nonneg(cnt);
    auto& out = f.out_overwritten(combined, rows, capacity);
    const int status =
        LoadKaplanTestColumns(cnt, &tab, G, blockRows, static_cast<int>(kReadCols), &last, &out);
    const long long written = cnt < 0 ? 0 : cnt > capacity ? capacity : cnt;
    if (capacity > written)
      std::memcpy(out.data + written * rows, combined + written * rows,
                  static_cast<std::size_t>((capacity - written) * rows) * sizeof(double));
    return status;
  });
}

VELKOR_EXTERN_C VELKOR_API int ComputeLifeTests(const double* combined, int T, int G, double alpha,
                                                double* results) {
  return velkor::flat_call([&](velkor::FlatFrame& f) {
    auto& res = f.out(results, 3, 4);
    if (G >= 2 && G <= 6) {
      // Only rows 3k - 1 and 3k of each group are read: the private copy holds those rows.
      auto& rows = f.in_rows(combined, 3 * nonneg(G) + 1, T, LifeTestRiskRows(G));
      return ComputeLifeTestsRiskRows(&rows, T, G, alpha, &res);
    }
    auto& tab = f.in(combined, 3 * nonneg(G) + 1, T);
    return cComputeLifeTests(&tab, T, G, alpha, &res);
  });
}

VELKOR_EXTERN_C VELKOR_API int Cpp_ComputeMultComp(const double* combined, int T, int G,
                                                   double alpha, double* results) {
  return velkor::flat_call([&](velkor::FlatFrame& f) {
    const long long groups = G > 20000 ? 0 : nonneg(G);
    auto& res = f.out(results, 3 * (groups * (groups - 1) / 2), 7);
    // Only rows 3k - 1 and 3k of each group are read: the private copy holds those rows.
    auto& rows = f.in_rows(combined, 3 * groups + 1, T, LifeTestRiskRows(static_cast<int>(groups)));
    return ComputeMultCompRiskRows(&rows, T, G, alpha, &res);
  });
}

VELKOR_EXTERN_C VELKOR_API int Cpp_ComputeKaplanMeanMedian(const double* table, int tableRows,
                                                           int nRows, double alpha, int k,
                                                           double* cap, double* mean,
                                                           double* quartiles) {
  return velkor::flat_call([&](velkor::FlatFrame& f) {
    // Five columns (time, events, number at risk used, survival, Greenwood sum) of rows 0 ..
    // nRows - 1 are read: the private copy holds those cells.
    auto& cols = f.in_columns(table, tableRows, 11, kMeanMedianColumns, nRows);
    double& c = f.scalar(cap);
    auto& m = f.out(mean, 4);
    auto& q = f.out(quartiles, 3, 4);
    return KaplanMeanMedianColumns(&cols, alpha, k, c, &m, &q);
  });
}
