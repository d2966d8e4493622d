// The object (_ST) interface of descriptive survival through VELKORLI1M.dll, called as a C++
// caller of the DLL calls it: the data set's columns read from an oleaut32 record array by the
// DLL's matrix3D constructor, entry points found by their demangled names. Lung by sex against
// R's survfit / survdiff (the fixture of the Linux tests): the whole analysis in one call, then
// step by step.
#include <algorithm>
#include <cmath>
#include <vector>

#include "velkor/VELKORLI1M.h"
#include "velkor/survival_objects.h"
#include "windows/dataset.h"
#include "windows/harness.h"
#include "windows/survival_groups.h"

namespace {
using namespace win_survival;

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

VELKOR_WIN_FAMILY(survival_objects) {
  auto run_all = VELKOR_CPP_PROC(lib, Cpp_RunLife_ST);
  auto prepare = VELKOR_CPP_PROC(lib, Cpp_ReorganizeData_ST);
  auto run_life = VELKOR_CPP_PROC(lib, cRunLife_ST);
  auto mean_median = VELKOR_CPP_PROC(lib, ComputeKaplanMeanMedian_ST);
  auto life_tests = VELKOR_CPP_PROC(lib, Cpp_ComputeLifeTest_ST);
  if (!run_all || !prepare || !run_life || !mean_median || !life_tests) return;

  const int n = LEN(lung_time);
  cST_DataSet data =
      wintest::dataset_from_records(lib, {{u"time", {lung_time, lung_time + n}},
                                          {u"status", {lung_status, lung_status + n}},
                                          {u"sex", {lung_group, lung_group + n}}});
  if (!WCHECK_EQ(data.rows(), static_cast<std::uint32_t>(n))) return;
  const Group refs[2] = {GROUP(lung_g1), GROUP(lung_g2)};
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
      check_group(g, refs[k]);
      check_mean(g.mean, g.quartiles, g.timeCap, refs[k]);
      if (WCHECK_EQ(g.nelsonAalen.size(), 9u))
        for (int j = 0; j < refs[k].size; ++j)
          if (refs[k].cumhaz[j] != 0.0)
            WCHECK_NEAR(cell(g.nelsonAalen, 4, static_cast<std::uint32_t>(j)), refs[k].cumhaz[j],
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
      check_group(g, refs[k]);
      double cap = -1;
      std::vector<VectDPtr> mean, quartiles;
      WCHECK_EQ(mean_median(g.table, static_cast<int>(g.rows + 1), 0.05, static_cast<int>(g.size),
                            cap, mean, quartiles),
                0);
      check_mean(mean, quartiles, cap, refs[k]);
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
    cST_DataSet one = wintest::dataset_from_records(lib, {{u"time", {5.0}}, {u"status", {1.0}}});
    SURV_Param plain;
    WCHECK_EQ(run_all(one, plain, res, factors, info), VELKOR_E_TOO_FEW);
    WCHECK_EQ(info.error.status, VELKOR_E_TOO_FEW);
    WCHECK(info.error.key == u"TooFewObs");
  }
}
