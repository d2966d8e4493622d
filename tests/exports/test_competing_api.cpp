// The competing-risks entry points through the shared library's exported symbols only.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "reference/competing/mgus2_competing.inc"
#include "velkor/VELKORLI1M.h"
#include "velkor/competing_objects.h"

namespace {

constexpr double kGuard = 12345.0;

// A caller array with guard cells after its `len` elements: nothing may be written there.
struct Buffer {
  std::vector<double> v;
  std::size_t len;
  explicit Buffer(std::size_t n, double fill = 0.0) : v(n + 4, kGuard), len(n) {
    std::fill(v.begin(), v.begin() + static_cast<long>(n), fill);
  }
  Buffer(std::initializer_list<double> x) : v(x), len(x.size()) { v.insert(v.end(), 4, kGuard); }
  double* p() { return v.data(); }
  double& operator[](std::size_t i) { return v[i]; }
  bool guards_intact() const {
    return std::all_of(v.begin() + static_cast<long>(len), v.end(),
                       [](double x) { return x == kGuard; });
  }
};

// Product-limit table of times 1, 2, 3, all events (RunLife layout, 5 x 12).
Buffer hand_table() {
  Buffer pl(5 * 12);
  auto cell = [&](int row, int col) -> double& { return pl[(col - 1) * 5 + row]; };
  const double S[] = {1, 2.0 / 3, 1.0 / 3, 0};
  for (int j = 0; j <= 3; ++j) {
    cell(j, 1) = j;
    cell(j, 3) = cell(j, 6) = j == 0 ? 0 : 4 - j;
    cell(j, 4) = j == 0 ? 0 : 1;
    cell(j, 8) = S[j];
  }
  return pl;
}

}  // namespace

// The C++ workers exported under their own names, on the library's containers.
TEST(CompetingApi, CppWorkersExportedByName) {
  std::vector<double> tv{3, 1, 2}, sv{1, 1, 2}, gv{1, 1, 1}, one{3};
  matrix<double> t(3, 1, tv.data(), 0), s(3, 1, sv.data(), 0), all(3, 1), g(3, 1, gv.data(), 0),
      sizes(1, 1, one.data(), 0);
  double mx = 0;
  EXPECT_EQ(ReorganizeDataCum(&t, 3, &s, &all, &g, &sizes, 1, mx), 0);
  EXPECT_EQ(t(1, 1), 1.0);
  EXPECT_EQ(s(3, 1), 1.0);
  EXPECT_EQ(mx, 3.0);
  Buffer plb = hand_table();
  matrix<double> pl(5, 12, plb.p(), 0), inc(3, 10), comp(3, 10);
  CumIncCalc(3, &t, &s, 1, 0.05, 3, 0, &pl, &inc, &comp);
  EXPECT_NEAR(inc(3, 6), 2.0 / 3, 1e-15);
  EXPECT_NEAR(comp(1, 6), 2.0 / 3, 1e-15);
  CumIncCalc(3, nullptr, &s, 1, 0.05, 3, 0, &pl, &inc, &comp);  // null input: nothing happens
  EXPECT_NEAR(inc(3, 6), 2.0 / 3, 1e-15);
  std::vector<double> g2{1, 2, 2};
  matrix<double> grp(3, 1, g2.data(), 0), tests(1, 3);
  EXPECT_EQ(GrayTest(&t, &s, &grp, nullptr, 3, 1, 0.0, 1, 2, &tests, nullptr, nullptr), 0);
  EXPECT_EQ(tests(1, 2), 1.0);
  EXPECT_EQ(GrayTest(nullptr, &s, &grp, nullptr, 3, 1, 0.0, 1, 2, &tests, nullptr, nullptr), -2);
}

// Bad input through every export: sizes 0, 1, negative; null arrays with a positive length;
// NaN, infinities and markers. Statuses as documented, no write outside the arrays.
TEST(CompetingApi, BadInputHarness) {
  for (int n : {-5, 0, 1}) {
    Buffer t(2, 3.0), s(2, 1.0), a(2, 9.0), g(2, 1.0), sizes(1, 2.0), tests(3, 4.0);
    double mx = -1;
    EXPECT_EQ(Cpp_ReorganizeDataCum(t.p(), n, s.p(), a.p(), g.p(), sizes.p(), 1, &mx), -2);
    EXPECT_EQ(mx, -1);
    EXPECT_EQ(a[0] + a[1], 18.0);
    EXPECT_EQ(
        Cpp_GrayTest(t.p(), s.p(), g.p(), nullptr, n, 0, 0.0, 1, 2, tests.p(), nullptr, nullptr),
        -2);
    EXPECT_EQ(tests[0], 4.0);
    EXPECT_TRUE(tests.guards_intact());
  }
  // Null arrays with a positive length: status 3, nothing written.
  Buffer t{1, 2}, s{1, 0}, a(2, 9.0), g{1, 1}, sizes{2}, inc(20), comp(20), tests(3);
  double mx = -1;
  EXPECT_EQ(Cpp_ReorganizeDataCum(nullptr, 2, s.p(), a.p(), g.p(), sizes.p(), 1, &mx),
            VELKOR_E_NULL_ARRAY);
  EXPECT_EQ(Cpp_ReorganizeDataCum(t.p(), 2, s.p(), a.p(), g.p(), sizes.p(), 1, nullptr),
            VELKOR_E_NULL_ARRAY);
  EXPECT_EQ(a[0], 9.0);
  EXPECT_EQ(Cpp_CumIncCalc(2, 2, t.p(), s.p(), 1, 0.05, 2, 0, nullptr, inc.p(), comp.p()),
            VELKOR_E_NULL_ARRAY);
  EXPECT_EQ(Cpp_CumIncCalc(2, 2, t.p(), s.p(), 1, 0.05, 2, 0, hand_table().p(), inc.p(), nullptr),
            VELKOR_E_NULL_ARRAY);
  EXPECT_EQ(
      Cpp_GrayTest(t.p(), nullptr, g.p(), nullptr, 2, 0, 0.0, 1, 2, tests.p(), nullptr, nullptr),
      VELKOR_E_NULL_ARRAY);

  // Odd sizes and offsets for CumIncCalc: T <= 0, a negative or too large offset, T beyond the
  // table, n larger than the data. Nothing crashes and nothing is written past T x 10.
  Buffer pl = hand_table(), t3{1, 2, 3}, s3{1, 2, 1};
  for (int T : {-1, 0, 1, 3, 9}) {
    for (int offset : {-3, 0, 2, 50}) {
      for (int n : {-1, 0, 3, 1000}) {
        const std::size_t cells = static_cast<std::size_t>(std::max(T, 0)) * 10;
        Buffer i2(cells), c2(cells);
        const int nTable = std::min(n, 3);  // the table passed holds (3 + 2) rows
        EXPECT_EQ(
            Cpp_CumIncCalc(T, 3, t3.p(), s3.p(), 1, 0.05, nTable, offset, pl.p(), i2.p(), c2.p()),
            0);
        EXPECT_TRUE(i2.guards_intact() && c2.guards_intact());
      }
    }
  }

  // NaN, infinite and missing times and causes: the preparation orders them (NaN last), the
  // incidence and the test run without a fault.
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  Buffer tn{nan, 3, -inf, VELKOR_MISSING, inf, 2}, sn{1, nan, 2, 1, 1, 0}, an(6),
      gn{1, 1, 1, 1, 1, 1}, sz{6}, tests2(6);
  EXPECT_EQ(Cpp_ReorganizeDataCum(tn.p(), 6, sn.p(), an.p(), gn.p(), sz.p(), 1, &mx), 0);
  EXPECT_TRUE(std::isnan(tn[5]));
  EXPECT_EQ(
      Cpp_GrayTest(tn.p(), sn.p(), gn.p(), nullptr, 6, 0, 0.0, 2, 2, tests2.p(), nullptr, nullptr),
      0);
  EXPECT_EQ(tests2[0], VELKOR_MISSING);  // one group only
  EXPECT_TRUE(tests2.guards_intact());
}

// The whole path a user follows, on mgus2 with raw cause codes 7 (progression) and 3 (death):
// recoding (Cpp_CheckStatusFormat), ordering (Cpp_ReorganizeDataCum), the all-cause product-limit
// table of each sex (RunLife), the incidence of each cause in each group (Cpp_CumIncCalc, one
// group's block at its offset) and Gray's test between the sexes (Cpp_GrayTest), against
// cmprsk::cuminc.
TEST(CompetingApi, EndToEndFromRawCodesToGrayTest) {
  const int n = kMgusN;
  std::vector<double> times(kMgusTime, kMgusTime + n), raw(n), groups(kMgusSex, kMgusSex + n);
  for (int i = 0; i < n; ++i) raw[i] = kMgusCause[i] == 1 ? 7.0 : kMgusCause[i] == 2 ? 3.0 : 0.0;

  std::vector<double> codes(n), recoded(n), rawRecoded(n);
  unsigned int nCodes = 0;
  ASSERT_EQ(Cpp_CheckStatusFormat(raw.data(), n, codes.data(), &nCodes, 0, recoded.data()), 0);
  ASSERT_EQ(nCodes, 2u);
  rawRecoded = recoded;  // in the original row order, for Gray's test
  // Library cause m is the fixture's cause 1 when its raw code is 7.
  auto fixture_cause = [&](int m) { return codes[m - 1] == 7.0 ? 1 : 2; };

  double sizes[2] = {0, 0};
  for (double g : groups) sizes[static_cast<int>(g) - 1] += 1.0;
  std::vector<double> allCause(n);
  double maxTime = 0;
  ASSERT_EQ(Cpp_ReorganizeDataCum(times.data(), n, recoded.data(), allCause.data(), groups.data(),
                                  sizes, 2, &maxTime),
            0);

  const std::vector<double> ones(n, 1.0);
  int offset = 0, checked = 0;
  for (int g = 1; g <= 2; ++g) {
    const int size = static_cast<int>(sizes[g - 1]), rows = size + 2;
    std::vector<double> table(static_cast<std::size_t>(rows) * 12);
    double last = 0, total = 0;
    ASSERT_EQ(RunLife(times.data() + offset, allCause.data() + offset, ones.data(), size, nullptr,
                      0, 0, 1, 0, 0.0, rows, table.data(), &last, &total),
              0);
    const int T = static_cast<int>(last);
    for (int m = 1; m <= static_cast<int>(nCodes); ++m) {
      std::vector<double> inc(static_cast<std::size_t>(T) * 10), comp(inc.size());
      ASSERT_EQ(Cpp_CumIncCalc(T, n, times.data(), recoded.data(), m, 0.05, size, offset,
                               table.data(), inc.data(), comp.data()),
                0);
      for (const MgusIncidence& ref : kMgusIncidence) {
        if (ref.group != g || ref.cause != fixture_cause(m)) continue;
        int i = 0;
        while (i < T && inc[i] != ref.time) ++i;  // column 1
        ASSERT_LT(i, T);
        EXPECT_NEAR(inc[5 * T + i], ref.est, 1e-12 * ref.est);
        EXPECT_NEAR(inc[6 * T + i], ref.se, 1e-10 * ref.se);
        EXPECT_NEAR(comp[5 * T + i], 1.0 - ref.est, 1e-12);
        ++checked;
      }
    }
    offset += size;
  }
  EXPECT_EQ(checked, static_cast<int>(sizeof kMgusIncidence / sizeof kMgusIncidence[0]));

  // Gray's test between the sexes, stratified by hemoglobin, rho = 0.5; with two groups the
  // statistic is u^2 / V of the single score.
  std::vector<double> strata(kMgusStratum, kMgusStratum + n), tests(2 * 3), u(2), V(2);
  std::vector<double> rawGroups(kMgusSex, kMgusSex + n), rawTimes(kMgusTime, kMgusTime + n);
  ASSERT_EQ(Cpp_GrayTest(rawTimes.data(), rawRecoded.data(), rawGroups.data(), strata.data(), n, 0,
                         0.5, 2, 2, tests.data(), u.data(), V.data()),
            0);
  for (const MgusGray& ref : kMgusGray) {
    if (ref.groups != 1 || !ref.stratified || ref.rho != 0.5) continue;
    const int m = fixture_cause(1) == ref.cause ? 1 : 2;
    EXPECT_NEAR(tests[m - 1], ref.stat, 1e-10 * ref.stat);
    EXPECT_EQ(tests[2 + m - 1], 1.0);
    EXPECT_NEAR(tests[4 + m - 1], ref.p, 1e-12);
    EXPECT_NEAR(u[m - 1] * u[m - 1] / V[m - 1], ref.stat, 1e-10 * ref.stat);
  }
}
