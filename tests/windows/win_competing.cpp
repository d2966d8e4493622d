// Competing risks through VELKORLI1M.dll against R's cmprsk (the fixture of the Linux tests): the
// whole path on mgus2 with raw cause codes 7 and 3 (Cpp_CheckStatusFormat, Cpp_ReorganizeDataCum,
// RunLife per sex, Cpp_CumIncCalc per cause and sex), Gray's test, and bad input. The ordering,
// the incidence tables and Gray's test also run through the exported C++ workers on
// matrix<double> containers built by this program, cell for cell equal to the flat entries.
#include <cmath>
#include <cstdint>
#include <vector>

#include "velkor/VELKORLI1M.h"
#include "velkor/competing_objects.h"
#include "windows/harness.h"

namespace {
#include "reference/competing/mgus2_competing.inc"
}  // namespace

VELKOR_WIN_FAMILY(competing) {
  auto recode = VELKOR_PROC(lib, Cpp_CheckStatusFormat);
  auto reorganize = VELKOR_PROC(lib, Cpp_ReorganizeDataCum);
  auto run_life = VELKOR_PROC(lib, RunLife);
  auto incidence = VELKOR_PROC(lib, Cpp_CumIncCalc);
  auto gray = VELKOR_PROC(lib, Cpp_GrayTest);
  if (!recode || !reorganize || !run_life || !incidence || !gray) return;

  const int n = kMgusN;
  std::vector<double> times(kMgusTime, kMgusTime + n), raw(n), groups(kMgusSex, kMgusSex + n);
  for (int i = 0; i < n; ++i) raw[i] = kMgusCause[i] == 1 ? 7.0 : kMgusCause[i] == 2 ? 3.0 : 0.0;
  std::vector<double> codes(n), recoded(n);
  unsigned nCodes = 0;
  WCHECK_EQ(recode(raw.data(), n, codes.data(), &nCodes, 0, recoded.data()), 0);
  if (!WCHECK_EQ(nCodes, 2u)) return;
  auto fixture_cause = [&](int m) { return codes[m - 1] == 7.0 ? 1 : 2; };
  const std::vector<double> raw_recoded = recoded;

  double sizes[2] = {0, 0};
  for (double g : groups) sizes[static_cast<int>(g) - 1] += 1.0;
  auto column = [](std::vector<double>& v) {
    return matrix<double>(static_cast<std::uint32_t>(v.size()), 1, v.data(), 0);
  };
  matrix<double> w_times = column(times), w_status = column(recoded), w_groups = column(groups),
                 w_all(n, 1), w_sizes(1, 2, sizes, 0);  // block sizes: one row
  std::vector<double> all_cause(n);
  double maxTime = 0;
  WCHECK_EQ(reorganize(times.data(), n, recoded.data(), all_cause.data(), groups.data(), sizes, 2,
                       &maxTime),
            0);
  auto reorganize_w = VELKOR_CPP_PROC(lib, ReorganizeDataCum);
  auto incidence_w = VELKOR_CPP_PROC(lib, CumIncCalc);
  if (reorganize_w) {
    double w_max = 0;
    WCHECK_EQ(reorganize_w(&w_times, n, &w_status, &w_all, &w_groups, &w_sizes, 2, w_max), 0);
    WCHECK_EQ(w_max, maxTime);
    WCHECK_ALL(w_times.data, times.data(), static_cast<std::size_t>(n), 0.0);
    WCHECK_ALL(w_status.data, recoded.data(), static_cast<std::size_t>(n), 0.0);
    WCHECK_ALL(w_all.data, all_cause.data(), static_cast<std::size_t>(n), 0.0);
    WCHECK_ALL(w_groups.data, groups.data(), static_cast<std::size_t>(n), 0.0);
  }

  // Incidence of each cause in each sex: estimates and standard errors at the fixture's times.
  const std::vector<double> ones(n, 1.0);
  int offset = 0, checked = 0;
  for (int g = 1; g <= 2; ++g) {
    const int size = static_cast<int>(sizes[g - 1]), rows = size + 2;
    std::vector<double> table(rows * 12);
    double last = 0, total = 0;
    WCHECK_EQ(run_life(times.data() + offset, all_cause.data() + offset, ones.data(), size, nullptr,
                       0, 0, 1, 0, 0.0, rows, table.data(), &last, &total),
              0);
    const int T = static_cast<int>(last);
    for (int m = 1; m <= 2; ++m) {
      std::vector<double> inc(T * 10), comp(T * 10);
      WCHECK_EQ(incidence(T, n, times.data(), recoded.data(), m, 0.05, size, offset, table.data(),
                          inc.data(), comp.data()),
                0);
      if (incidence_w && reorganize_w) {
        matrix<double> w_table(rows, 12, table.data(), 0), w_inc(T, 10), w_comp(T, 10);
        incidence_w(T, &w_times, &w_status, m, 0.05, size, offset, &w_table, &w_inc, &w_comp);
        WCHECK_ALL(w_inc.data, inc.data(), inc.size(), 0.0);
        WCHECK_ALL(w_comp.data, comp.data(), comp.size(), 0.0);
      }
      for (const MgusIncidence& ref : kMgusIncidence) {
        if (ref.group != g || ref.cause != fixture_cause(m)) continue;
        int i = 0;
        while (i < T && inc[i] != ref.time) ++i;
        if (!WCHECK(i < T)) continue;
        WCHECK_NEAR(inc[5 * T + i], ref.est, 1e-12);
        WCHECK_NEAR(inc[6 * T + i], ref.se, 1e-10);
        WCHECK_NEAR(comp[5 * T + i], 1.0 - ref.est, 1e-12);
        ++checked;
      }
    }
    offset += size;
  }
  WCHECK_EQ(checked, static_cast<int>(sizeof kMgusIncidence / sizeof kMgusIncidence[0]));

  // Gray's test between the sexes, stratified, rho = 0.5.
  std::vector<double> tests(6), u(2), V(2);
  WCHECK_EQ(gray(kMgusTime, raw_recoded.data(), kMgusSex, kMgusStratum, n, 0, 0.5, 2, 2,
                 tests.data(), u.data(), V.data()),
            0);
  for (const MgusGray& ref : kMgusGray) {
    if (ref.groups != 1 || !ref.stratified || ref.rho != 0.5) continue;
    const int m = fixture_cause(1) == ref.cause ? 1 : 2;
    WCHECK_NEAR(tests[m - 1], ref.stat, 1e-10);
    WCHECK_NEAR(tests[4 + m - 1], ref.p, 1e-12);
  }
  if (auto gray_w = VELKOR_CPP_PROC(lib, GrayTest)) {
    matrix<double> mt(n, 1, const_cast<double*>(kMgusTime), 0),
        ms(n, 1, const_cast<double*>(raw_recoded.data()), 0),
        mg(n, 1, const_cast<double*>(kMgusSex), 0), mst(n, 1, const_cast<double*>(kMgusStratum), 0),
        wtests(2, 3);
    WCHECK_EQ(gray_w(&mt, &ms, &mg, &mst, n, 0, 0.5, 2, 2, &wtests, nullptr, nullptr), 0);
    WCHECK_ALL(wtests.data, tests.data(), 6, 0.0);
  }

  // Data conditions and null arrays; in/out arrays are not reordered when a call fails.
  double t[] = {1, 2}, s[] = {1, 0}, a[] = {9, 9}, gr[] = {1, 1}, sz[] = {2}, mx = -1;
  WCHECK_EQ(reorganize(t, 1, s, a, gr, sz, 1, &mx), VELKOR_E_TOO_FEW);
  WCHECK_EQ(a[0], 9.0);
  WCHECK_EQ(reorganize(nullptr, 2, s, a, gr, sz, 1, &mx), VELKOR_E_NULL_ARRAY);
  wintest::GuardedD times_io(2, 1.0), status_io(2, 0.0), causes(2, 9.0);
  times_io[0] = 2;
  status_io[0] = 1;
  WCHECK_EQ(reorganize(times_io.data(), 2, status_io.data(), causes.data(), nullptr, sz, 1, &mx),
            VELKOR_E_NULL_ARRAY);
  WCHECK(times_io[0] == 2 && times_io[1] == 1 && status_io[0] == 1 && mx == -1 &&
         wintest::intact(times_io, status_io) && causes.untouched());
  WCHECK_EQ(gray(t, s, gr, nullptr, 1, 0, 0.0, 1, 2, tests.data(), nullptr, nullptr), -2);
}
