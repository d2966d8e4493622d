// The competing-risks entry points through the shared library's exported symbols only.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "support/guarded.h"
#include "velkor/VELKORLI1M.h"
#include "velkor/competing_objects.h"

namespace {

using testing_support::Guarded;

// Product-limit table of times 1, 2, 3, all events (RunLife layout, 5 x 12).
Guarded hand_table() {
  Guarded pl(5 * 12);
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
  Guarded plb = hand_table();
  matrix<double> pl(5, 12, plb.p(), 0), inc(3, 10), comp(3, 10);
  CumIncCalc(3, &t, &s, 1, 0.05, 3, 0, &pl, &inc, &comp);
  EXPECT_NEAR(inc(3, 6), 2.0 / 3, 1e-15);
  EXPECT_NEAR(comp(1, 6), 2.0 / 3, 1e-15);
  Guarded flatInc(30), flatComp(30);
  ASSERT_EQ(Cpp_CumIncCalc(3, 3, t.data, s.data, 1, 0.05, 3, 0, plb.p(), flatInc.p(), flatComp.p()),
            0);
  EXPECT_EQ(flatInc.cells(), std::vector<double>(inc.data, inc.data + 30));
  EXPECT_EQ(flatComp.cells(), std::vector<double>(comp.data, comp.data + 30));
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
    Guarded t(2, 3.0), s(2, 1.0), a(2, 9.0), g(2, 1.0), sizes(1, 2.0), tests(3, 4.0);
    double mx = -1;
    EXPECT_EQ(Cpp_ReorganizeDataCum(t.p(), n, s.p(), a.p(), g.p(), sizes.p(), 1, &mx), -2);
    EXPECT_EQ(mx, -1);
    EXPECT_EQ(a[0] + a[1], 18.0);
    EXPECT_EQ(
        Cpp_GrayTest(t.p(), s.p(), g.p(), nullptr, n, 0, 0.0, 1, 2, tests.p(), nullptr, nullptr),
        -2);
    EXPECT_EQ(tests[0], 4.0);
    EXPECT_TRUE(tests.intact());
  }
  // Null arrays with a positive length: status 3, nothing written.
  Guarded t{1, 2}, s{1, 0}, a(2, 9.0), g{1, 1}, sizes{2}, inc(20), comp(20), tests(3);
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
  Guarded pl = hand_table(), t3{1, 2, 3}, s3{1, 2, 1};
  for (int T : {-1, 0, 1, 3, 9}) {
    for (int offset : {-3, 0, 2, 50}) {
      for (int n : {-1, 0, 3, 1000}) {
        const std::size_t cells = static_cast<std::size_t>(std::max(T, 0)) * 10;
        Guarded i2(cells), c2(cells);
        const int nTable = std::min(n, 3);  // the table passed holds (3 + 2) rows
        EXPECT_EQ(
            Cpp_CumIncCalc(T, 3, t3.p(), s3.p(), 1, 0.05, nTable, offset, pl.p(), i2.p(), c2.p()),
            0);
        EXPECT_TRUE(i2.intact() && c2.intact());
      }
    }
  }

  // NaN, infinite and missing times and causes: the preparation orders them (NaN last), the
  // incidence and the test run without a fault.
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  Guarded tn{nan, 3, -inf, VELKOR_MISSING, inf, 2}, sn{1, nan, 2, 1, 1, 0}, an(6),
      gn{1, 1, 1, 1, 1, 1}, sz{6}, tests2(6);
  EXPECT_EQ(Cpp_ReorganizeDataCum(tn.p(), 6, sn.p(), an.p(), gn.p(), sz.p(), 1, &mx), 0);
  EXPECT_TRUE(std::isnan(tn[5]));
  EXPECT_EQ(
      Cpp_GrayTest(tn.p(), sn.p(), gn.p(), nullptr, 6, 0, 0.0, 2, 2, tests2.p(), nullptr, nullptr),
      0);
  EXPECT_EQ(tests2[0], VELKOR_MISSING);  // one group only
  EXPECT_TRUE(tests2.intact());
}
