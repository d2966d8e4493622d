// Descriptive survival through VELKORLI1M.dll: the README's macro example, lung by sex against R's
// survival package (the fixture of the Linux tests), and bad input.
#include <algorithm>
#include <cmath>
#include <vector>

#include "velkor/VELKORLI1M.h"
#include "windows/harness.h"
#include "windows/survival_groups.h"

VELKOR_WIN_FAMILY(survival) {
  using namespace win_survival;
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
    const Group groups[2] = {GROUP(lung_g1), GROUP(lung_g2)};
    for (int k = 0; k < 2; ++k) {
      const Group& ref = groups[k];
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
