// Descriptive survival through VELKORLI1M.dll against R's survfit / survdiff on lung by sex (the
// fixture of the Linux tests): the README's macro example and the flat entries; the object (_ST)
// interface as a C++ caller of the DLL calls it (the data set's columns read from an oleaut32
// record array by the DLL's matrix3D constructor, entries found by their demangled names), in
// one call and step by step; bad input.
#include <algorithm>
#include <cmath>
#include <new>
#include <vector>

#include "velkor/VELKORLI1M.h"
#include "velkor/survival_objects.h"
#include "velkor/containers.h"
#include "windows/harness.h"
#include "windows/ole.h"

namespace {
#include "reference/survival/survival_fixtures.inc"

#define LEN(a) static_cast<int>(sizeof(a) / sizeof(a[0]))

struct Group {
  const double *t, *nrisk, *nevent, *surv, *greenwood, *cumhaz, *quartiles, *mean;
  int size;
};
#define GROUP(p)                                                                                \
  {                                                                                             \
    p##_t, p##_nrisk, p##_nevent, p##_surv, p##_greenwood, p##_cumhaz, p##_quartiles, p##_mean, \
        LEN(p##_t)                                                                              \
  }
const Group kLung[2] = {GROUP(lung_g1), GROUP(lung_g2)};

// Product-limit table against survfit: cell(row, column), rows 1..size, columns 1..12.
template <class Cell>
void check_table(const Group& ref, Cell cell) {
  for (int j = 1; j <= ref.size; ++j) {
    WCHECK_EQ(cell(j, 1), ref.t[j - 1]);
    WCHECK_EQ(cell(j, 3), ref.nrisk[j - 1]);
    WCHECK_EQ(cell(j, 4), ref.nevent[j - 1]);
    WCHECK_NEAR(cell(j, 8), ref.surv[j - 1], 1e-13);
    if (std::isfinite(ref.greenwood[j - 1])) WCHECK_NEAR(cell(j, 11), ref.greenwood[j - 1], 1e-12);
  }
}

// Restricted mean (its time cap, value and standard error) and quartiles against survfit's print.
void check_mean_quartiles(const Group& ref, double cap, double mean, double se, const double* q) {
  WCHECK_EQ(cap, ref.mean[0]);
  WCHECK_NEAR(mean, ref.mean[2], 1e-12);
  WCHECK_NEAR(se, ref.mean[3], 1e-10);
  for (int r = 0; r < 3; ++r) WCHECK_EQ(q[r], ref.quartiles[r]);
}

// A data set as a C++ caller builds one: Double columns of an oleaut32 record array read by the
// DLL's exported matrix3D<cST_MVect<double>> constructor, the column vectors it made shared into
// a cST_DataSet, the matrix3D destroyed by the exported destructor. Empty, and a failed check,
// when the column count read back differs.
cST_DataSet dataset_from_records(
    wintest::Library& lib,
    const std::vector<std::pair<std::u16string, std::vector<double>>>& cols) {
  using M3D = matrix3D<cST_MVect<double>>;
  auto ctor =
      lib.fn<void (*)(void*, SAFEARRAY*, int)>("_ZN8matrix3DI9cST_MVectIdEEC1EP12tagSAFEARRAYi");
  auto dtor = lib.fn<void (*)(void*)>("_ZN8matrix3DI9cST_MVectIdEED1Ev");
  cST_DataSet data;
  if (!ctor || !dtor) return data;
  wintest::ole::RecordArray array(wintest::ole::real_columns(cols));
  alignas(M3D) unsigned char storage[sizeof(M3D)];
  ctor(storage, array.psa, 0);
  const M3D* m = std::launder(reinterpret_cast<M3D*>(storage));
  if (WCHECK_EQ(m->nSlices, static_cast<int>(cols.size())))
    for (cST_Column<double>* slice : m->slices) {
      if (!slice || slice->entries.empty()) continue;
      data.columns.push_back(slice->entries[0]);
      data.names.push_back(slice->name);
    }
  dtor(storage);
  return data;
}

double cell(const std::vector<VectDPtr>& set, std::uint32_t col, std::uint32_t row) {
  return col < set.size() && set[col] ? (*set[col])[row] : std::nan("");
}

void check_group(const cSURV_Group& g, const Group& ref) {
  if (WCHECK_EQ(g.rows, static_cast<std::uint32_t>(ref.size)) && WCHECK_EQ(g.table.size(), 12u))
    check_table(ref, [&](int row, int col) {
      return cell(g.table, static_cast<std::uint32_t>(col - 1), static_cast<std::uint32_t>(row));
    });
}

void check_mean(const std::vector<VectDPtr>& mean, const std::vector<VectDPtr>& q, double cap,
                const Group& ref) {
  const double quartiles[3] = {cell(q, 1, 0), cell(q, 1, 1), cell(q, 1, 2)};
  check_mean_quartiles(ref, cap, cell(mean, 0, 0), cell(mean, 1, 0), quartiles);
}

}  // namespace

VELKOR_WIN_FAMILY(survival) {
  auto reorganize = VELKOR_PROC(lib, ReorganizeData);
  auto run_life = VELKOR_PROC(lib, RunLife);
  auto load_test = VELKOR_PROC(lib, LoadKaplanTest);
  auto life_tests = VELKOR_PROC(lib, ComputeLifeTests);
  auto mult_comp = VELKOR_PROC(lib, Cpp_ComputeMultComp);
  auto nelson_aalen = VELKOR_PROC(lib, Cpp_TransNelsonAalen);
  auto mean_median = VELKOR_PROC(lib, Cpp_ComputeKaplanMeanMedian);
  auto charts = VELKOR_PROC(lib, Cpp_PrepareKaplanCharts);
  auto summary = VELKOR_PROC(lib, Cpp_Build_Summary);
  auto weighted = VELKOR_PROC(lib, Cpp_Build_WeightedSummary);
  auto check_status = VELKOR_PROC(lib, Cpp_CheckStatusFormat);
  if (!reorganize || !run_life || !load_test || !life_tests || !mult_comp || !nelson_aalen ||
      !mean_median || !charts || !summary || !weighted || !check_status)
    return;

  // The README's worked example, call for call: one group of six, 16-bit flags false.
  {
    const int n = 6, R = n + 1;
    double t[] = {6, 7, 10, 15, 19, 25}, s[] = {1, 0, 1, 1, 0, 1}, w[] = {1, 1, 1, 1, 1, 1};
    double sizes[] = {6}, last = 0, total = 0;
    std::vector<double> tbl(R * 12, 0.0);
    WCHECK_EQ(run_life(t, s, w, n, sizes, 1, 0, 1, 0, 0.0, R, tbl.data(), &last, &total), 0);
    WCHECK_EQ(last, 6.0);
    const double times[] = {0, 6, 7, 10, 15, 19, 25};
    const double surv[] = {1, 5.0 / 6, 5.0 / 6, 0.625, 5.0 / 12, 5.0 / 12, 0};
    for (int i = 0; i < R; ++i) {
      WCHECK_EQ(tbl[i], times[i]);
      WCHECK_NEAR(tbl[7 * R + i], surv[i], 1e-15);
    }
    WCHECK_EQ(tbl[2 * R + 3], 4.0);  // at risk at t = 10
  }

  // lung by sex against survfit / survdiff (the tolerances of the Linux tests).
  {
    const int n = LEN(lung_time);
    std::vector<double> t(lung_time, lung_time + n), s(lung_status, lung_status + n),
        g(lung_group, lung_group + n), w(n, 1.0);
    double sizes[2] = {static_cast<double>(std::count(g.begin(), g.end(), 1.0)),
                       static_cast<double>(std::count(g.begin(), g.end(), 2.0))};
    double maxTime = 0;
    WCHECK_EQ(reorganize(t.data(), n, s.data(), w.data(), g.data(), sizes, 2, 0, &maxTime), 0);
    WCHECK_EQ(maxTime, 1022.0);
    const int R = static_cast<int>(std::max(sizes[0], sizes[1])) + 1;
    std::vector<double> tables(2 * R * 12), last(2), totals(2);
    WCHECK_EQ(run_life(t.data(), s.data(), w.data(), n, sizes, 2, 0, 1, 0, 0.0, R, tables.data(),
                       last.data(), totals.data()),
              0);
    for (int k = 0; k < 2; ++k) {
      const Group& ref = kLung[k];
      const double* tab = tables.data() + k * R * 12;
      if (!WCHECK_EQ(last[k], static_cast<double>(ref.size))) continue;
      check_table(ref, [&](int row, int col) { return tab[(col - 1) * R + row]; });
      std::vector<double> na(ref.size * 9);
      WCHECK_EQ(nelson_aalen(tab, R, ref.size, 0.05, 1, na.data()), 0);
      for (int j = 0; j < ref.size; ++j)  // no hazard before the first event: the missing marker
        WCHECK_NEAR(na[4 * ref.size + j], ref.cumhaz[j] == 0.0 ? VELKOR_MISSING : ref.cumhaz[j],
                    1e-13);
      double cap = -1, mean[4], q[12];
      WCHECK_EQ(mean_median(tab, R, ref.size + 1, 0.05, ref.size, &cap, mean, q), 0);
      check_mean_quartiles(ref, cap, mean[0], mean[1], q + 3);
      std::vector<double> main((2 * ref.size + 1) * 7), hz((2 * ref.size - 1) * 3), ll(hz.size());
      WCHECK_EQ(charts(tab, R, ref.size, -1, -1, -1, 0.0, 0.05, 1, main.data(), 2 * ref.size + 1,
                       hz.data(), ll.data(), 2 * ref.size - 1),
                0);
      WCHECK_EQ(main[3 * (2 * ref.size + 1)], 1.0);  // S at the origin
    }
    int T = n;
    std::vector<double> combined(7 * T);
    WCHECK_EQ(load_test(&T, tables.data(), 2, R, last.data(), combined.data()), 0);
    combined.resize(7 * T);
    std::vector<double> tests(12), pairs(3 * 7);
    WCHECK_EQ(life_tests(combined.data(), T, 2, 0.05, tests.data()), 0);
    for (int r = 0; r < 3; ++r) {
      WCHECK_NEAR(tests[r], lung_tests[r], 1e-10);
      WCHECK_NEAR(tests[6 + r], std::erfc(std::sqrt(lung_tests[r] / 2)), 1e-10);
    }
    WCHECK_EQ(mult_comp(combined.data(), T, 2, 0.05, pairs.data()), 0);
    WCHECK_NEAR(pairs[3 * 3], lung_tests[0], 1e-9);
    std::vector<double> sum(2 * 6), wsum(2 * 5);
    WCHECK_EQ(summary(tables.data(), R, 2, last.data(), totals.data(), sum.data()), 0);
    WCHECK_EQ(sum[0] + sum[1], static_cast<double>(n));
    WCHECK_EQ(weighted(t.data(), s.data(), w.data(), n, sizes, 2, 1, wsum.data()), 0);
    WCHECK_EQ(wsum[4] + wsum[5], 165.0);  // weighted events of both groups (lung: 165 deaths)
  }

  // Status codes of the data and of the call.
  {
    double t[] = {1, 2, 3}, s[] = {1, 2, 0}, w[] = {1, 1, 1}, g[] = {1, 1, 1}, sizes[] = {3};
    double maxTime = -7;
    WCHECK_EQ(reorganize(t, 3, s, w, g, sizes, 1, 0, &maxTime), VELKOR_E_STATUS_RANGE);
    s[1] = 1;
    WCHECK_EQ(reorganize(t, 1, s, w, g, sizes, 1, 0, &maxTime), VELKOR_E_TOO_FEW);
    WCHECK_EQ(maxTime, -7.0);  // nothing written
    double none[] = {0, 0, 0};
    WCHECK_EQ(reorganize(t, 3, none, w, g, sizes, 1, 0, &maxTime), VELKOR_W_NO_EVENT);
    WCHECK_EQ(maxTime, 3.0);
    WCHECK_EQ(reorganize(nullptr, 3, s, w, g, sizes, 1, 0, &maxTime), VELKOR_E_NULL_ARRAY);
    wintest::GuardedD table(4 * 12, 0.5), lastRow(1, 0.5), total(1, 0.5);
    WCHECK_EQ(run_life(t, nullptr, w, 3, sizes, 1, 0, 1, 0, 0.0, 4, table.data(), lastRow.data(),
                       total.data()),
              VELKOR_E_NULL_ARRAY);
    WCHECK(wintest::untouched(table, lastRow, total));
    double codes[3] = {0}, recoded[3] = {0}, multi[] = {2, 0, 1}, censored[] = {0, 0, 0};
    unsigned nCodes = 0;
    WCHECK_EQ(check_status(multi, 3, codes, &nCodes, 0, recoded), 0);
    WCHECK_EQ(nCodes, 2u);
    WCHECK_EQ(recoded[0], 1.0);
    WCHECK_EQ(recoded[2], 2.0);
    WCHECK_EQ(check_status(censored, 3, codes, &nCodes, 0, recoded), -1);
  }
}

VELKOR_WIN_FAMILY(survival_objects) {
  auto run_all = VELKOR_CPP_PROC(lib, Cpp_RunLife_ST);
  auto prepare = VELKOR_CPP_PROC(lib, Cpp_ReorganizeData_ST);
  auto run_life = VELKOR_CPP_PROC(lib, cRunLife_ST);
  auto mean_median = VELKOR_CPP_PROC(lib, ComputeKaplanMeanMedian_ST);
  auto life_tests = VELKOR_CPP_PROC(lib, Cpp_ComputeLifeTest_ST);
  if (!run_all || !prepare || !run_life || !mean_median || !life_tests) return;

  const int n = LEN(lung_time);
  cST_DataSet data = dataset_from_records(lib, {{u"time", {lung_time, lung_time + n}},
                                                {u"status", {lung_status, lung_status + n}},
                                                {u"sex", {lung_group, lung_group + n}}});
  if (!WCHECK_EQ(data.rows(), static_cast<std::uint32_t>(n))) return;
  SURV_Param param;
  param.groupColumn = 2;

  // The whole analysis in one call.
  {
    cSURV_Results res;
    cST_FactorsInfo factors;
    VELKORInfo info;
    WCHECK_EQ(run_all(data, param, res, factors, info), 0);
    if (!WCHECK_EQ(res.groups.size(), 2u)) return;
    for (int k = 0; k < 2; ++k) {
      const cSURV_Group& g = res.groups[k];
      WCHECK_EQ(g.label, k + 1.0);
      check_group(g, kLung[k]);
      check_mean(g.mean, g.quartiles, g.timeCap, kLung[k]);
      if (WCHECK_EQ(g.nelsonAalen.size(), 9u))
        for (int j = 0; j < kLung[k].size; ++j)
          if (kLung[k].cumhaz[j] != 0.0)
            WCHECK_NEAR(cell(g.nelsonAalen, 4, static_cast<std::uint32_t>(j)), kLung[k].cumhaz[j],
                        1e-13);
      WCHECK_EQ(g.mainSeries.size(), 7u);
    }
    for (std::uint32_t r = 0; r < 3; ++r) {
      WCHECK_NEAR(cell(res.tests, 0, r), lung_tests[r], 1e-10);
      WCHECK_NEAR(cell(res.tests, 2, r), std::erfc(std::sqrt(lung_tests[r] / 2)), 1e-10);
    }
    WCHECK_NEAR(cell(res.pairwise, 3, 0), lung_pairwise_logrank[0], 1e-9);
  }

  // Step by step: preparation, tables, mean and quartiles of each table, tests.
  {
    cSURV_Data prepared;
    cST_FactorsInfo factors;
    VELKORInfo info;
    WCHECK_EQ(prepare(data, param, prepared, factors, info), 0);
    WCHECK_EQ(prepared.maxTime, 1022.0);
    WCHECK(prepared.sizes ==
           std::vector<std::uint32_t>(
               {static_cast<std::uint32_t>(std::count(lung_group, lung_group + n, 1.0)),
                static_cast<std::uint32_t>(std::count(lung_group, lung_group + n, 2.0))}));
    cSURV_Results res;
    WCHECK_EQ(run_life(prepared, param, res), 0);
    if (!WCHECK_EQ(res.groups.size(), 2u)) return;
    for (int k = 0; k < 2; ++k) {
      cSURV_Group& g = res.groups[k];
      check_group(g, kLung[k]);
      double cap = -1;
      std::vector<VectDPtr> mean, quartiles;
      WCHECK_EQ(mean_median(g.table, static_cast<int>(g.rows + 1), 0.05, static_cast<int>(g.size),
                            cap, mean, quartiles),
                0);
      check_mean(mean, quartiles, cap, kLung[k]);
    }
    WCHECK_EQ(life_tests(res, 0.05), 0);
    for (std::uint32_t r = 0; r < 3; ++r) WCHECK_NEAR(cell(res.tests, 0, r), lung_tests[r], 1e-10);

    // A status column missing from the prepared data: the null-array status, no table.
    cSURV_Data broken = prepared;
    broken.status.reset();
    cSURV_Results none;
    WCHECK_EQ(run_life(broken, param, none), VELKOR_E_NULL_ARRAY);
    WCHECK(none.groups.empty());
  }

  // Data conditions through the one-call entry: the error record names the condition.
  {
    SURV_Param bad = param;
    bad.statusColumn = 7;  // no such column
    cSURV_Results res;
    cST_FactorsInfo factors;
    VELKORInfo info;
    WCHECK_EQ(run_all(data, bad, res, factors, info), VELKOR_E_NULL_ARRAY);
    WCHECK(res.groups.empty());
    cST_DataSet one = dataset_from_records(lib, {{u"time", {5.0}}, {u"status", {1.0}}});
    SURV_Param plain;
    WCHECK_EQ(run_all(one, plain, res, factors, info), VELKOR_E_TOO_FEW);
    WCHECK_EQ(info.error.status, VELKOR_E_TOO_FEW);
    WCHECK(info.error.key == u"TooFewObs");
  }
}
