// Method-comparison entry points through the exported symbols of the shared library only.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <set>
#include <string>
#include <vector>

#include "methodcomp/peak_flow.h"
#include "support/columns.h"
#include "support/guarded.h"
#include "velkor/VELKORLI1M.h"
#include "velkor/methodcomp_objects.h"

using namespace testing_support;
using namespace methodcomp_ref;

TEST(MethodcompApi, BlandAltmanAndLimitsOfAgreement) {
  Vec diffs(17, 0.0), means(17, 0.0), s(6, 0.0), limits(6, 0.0);
  ASSERT_EQ(Cpp_BlandAltman(pefr_w1.data(), pefr_m1.data(), 17, 0, 0.05, diffs.data(), means.data(),
                            &s[0], &s[1], &s[2], &s[3], &s[4], &s[5]),
            0);
  expect_all_close(s, ba_type0, 1e-12);
  EXPECT_EQ(diffs[0], 18.0);
  EXPECT_EQ(means[0], 503.0);
  ASSERT_EQ(
      Cpp_BlandAltmanLoACI(pefr_w1.data(), pefr_m1.data(), 17, 0, 0.05, 0.05, 1, limits.data()), 0);
  expect_all_close(limits, loa_exact, 1e-9);
  // The C++ workers under their own names.
  auto x = column(pefr_w1), y = column(pefr_m1), d = column(Vec(17, 0.0)), m = column(Vec(17, 0.0));
  Vec t(6, 0.0);
  ASSERT_EQ(BlandAltman(&x, &y, 17, 0, 0.05, &d, &m, t[0], t[1], t[2], t[3], t[4], t[5]), 0);
  EXPECT_EQ(t, s);
  auto out = column(Vec(6, 0.0));
  ASSERT_EQ(BlandAltmanLoACI(&x, &y, 17, 0, 0.05, 0.05, 0, &out), 0);
  expect_all_close(values(out), loa_approx, 1e-12);
}

TEST(MethodcompApi, Repeatability) {
  const Vec x = stacked(pefr_w1, pefr_w2), s = codes17();
  Vec r(3, 0.0);
  ASSERT_EQ(Cpp_GetRepeatability(x.data(), 34, s.data(), 0.05, &r[0], &r[1], &r[2]), 0);
  expect_all_close(r, rep_wright, 1e-11);
  auto mx = column(x), ms = column(s);
  Vec r2(3, 0.0);
  ASSERT_EQ(GetRepeatability(&mx, 34, &ms, 0.05, r2[0], r2[1], r2[2]), 0);
  EXPECT_EQ(r2, r);
}

TEST(MethodcompApi, PassingBablokDriversAndSlopeEstimators) {
  using Entry =
      int (*)(const double*, int, const double*, int, double, double*, double*, double*, double*,
              double*, double*, double*, double*, double*, double*, double*, double*, double*);
  const Vec pb(pb_pefr_scalars.begin(), pb_pefr_scalars.begin() + 9),
      pbe(pbe_pefr_scalars.begin(), pbe_pefr_scalars.begin() + 9);
  const std::pair<Entry, const Vec*> cases[] = {{Cpp_Passing_Bablok, &pb},
                                                {Cpp_PassingBablokBIS, &pbe}};
  Vec s(9, 0.0), f(17, 0.0), r(17, 0.0), d(17, 0.0), dist(17, 0.0);
  for (const auto& [entry, ref] : cases) {
    ASSERT_EQ(entry(pefr_w1.data(), 17, pefr_m1.data(), 1, 0.05, &s[0], &s[1], &s[2], &s[3], &s[4],
                    &s[5], f.data(), r.data(), d.data(), dist.data(), &s[6], &s[7], &s[8]),
              0);
    expect_all_close(s, *ref, 1e-12);
    EXPECT_EQ(d[0], 18.0);
  }
  auto x = column(pefr_w1), y = column(pefr_m1), mf = column(f), mr = column(r), md = column(d),
       ms = column(dist);
  ASSERT_EQ(PassingBablok(&x, 17, &y, 1, 0.05, s[0], s[1], s[2], s[3], s[4], s[5], &mf, &mr, &md,
                          &ms, s[6], s[7], s[8]),
            0);
  expect_all_close(s, pb, 1e-12);
  ASSERT_EQ(PassingBablokBIS(&x, 17, &y, 1, 0.05, s[0], s[1], s[2], s[3], s[4], s[5], &mf, &mr, &md,
                             &ms, s[6], s[7], s[8]),
            0);
  expect_all_close(s, pbe, 1e-12);
  // Negative association refused by option 1: nothing written.
  Vec ny(17);
  for (int i = 0; i < 17; ++i) ny[i] = 1000 - pefr_m1[i];
  s.assign(9, 5.0);
  EXPECT_EQ(
      Cpp_Passing_Bablok(pefr_w1.data(), 17, ny.data(), 1, 0.05, &s[0], &s[1], &s[2], &s[3], &s[4],
                         &s[5], f.data(), r.data(), d.data(), dist.data(), &s[6], &s[7], &s[8]),
      VELKOR_PAB_NEGATIVE_TAU);
  EXPECT_EQ(s[3], 5.0);

  // The slope estimators with the default special slopes.
  short flag = -1;
  double b = 0, N = 0, K = 0;
  const double eps = 2.220446049250313e-16;
  ASSERT_EQ(ComputeBCoeff_PAB1(&x, 17, &y, flag, 0, -VELKOR_UNBOUNDED, VELKOR_UNBOUNDED, -eps, eps,
                               b, N, K),
            0);
  EXPECT_EQ(flag, 0);
  EXPECT_NEAR(b, pb_pefr_scalars[3], 1e-15);
  EXPECT_EQ(N, pb_pefr_scalars[9]);
  EXPECT_EQ(K, pb_pefr_scalars[10]);
  ASSERT_EQ(ComputeBCoeff_PAB3(&x, 17, &y, flag, -1, -VELKOR_UNBOUNDED, VELKOR_UNBOUNDED, -eps, eps,
                               b, N, K),
            0);
  EXPECT_NEAR(b, pbe_pefr_scalars[3], 1e-15);
  EXPECT_EQ(K, 0.0);
}

TEST(MethodcompApi, DemingEstimatorsAndDrivers) {
  Vec coef(8, 0.0), f(17, 0.0), r(17, 0.0), info(3, 0.0);
  ASSERT_EQ(VB_DemingRegression(pefr_w1.data(), pefr_m1.data(), 17, 1.0, 0.05, coef.data(),
                                f.data(), r.data()),
            0);
  expect_all_close(coef, dem_pefr_l1, 1e-10);
  const Vec x = stacked(pefr_w1, pefr_w2), y = stacked(pefr_m1, pefr_m2), s = codes17();
  Vec f34(34, 0.0), r34(34, 0.0);
  ASSERT_EQ(Cpp_NewDemingRegression(x.data(), y.data(), 34, s.data(), 0, 0.0, 0.05, 100, 1e-12,
                                    coef.data(), info.data(), f34.data(), r34.data()),
            0);
  expect_all_close(coef, dem_rep, 1e-10);
  EXPECT_NEAR(info[0], dem_rep_lambda[0], 1e-13);
  EXPECT_EQ(Cpp_NewDemingRegression(x.data(), y.data(), 34, nullptr, -1, 0.0, 0.05, 200, 1e-12,
                                    coef.data(), info.data(), f34.data(), r34.data()),
            -5);

  auto mx = column(pefr_w1), my = column(pefr_m1), mw = column(Vec(17, 1.0));
  double a = 0, b = 0;
  ASSERT_EQ(Deming(&mx, &my, &mw, 17, 1.0, a, b), 0);
  EXPECT_NEAR(b, dem_pefr_l1[4], 1e-12);
  ASSERT_EQ(NewDeming(&mx, &my, nullptr, 17, 1.0, a, b), 0);
  EXPECT_NEAR(a, dem_pefr_l1[0], 1e-10);
  auto mc = column(Vec(8, 0.0)), mf = column(f), mr = column(r);
  ASSERT_EQ(DemingRegression(&mx, &my, 17, 2.5, 0.10, &mc, &mf, &mr), 0);
  expect_all_close(values(mc), dem_pefr_l2, 1e-10);
  auto xx = column(x), yy = column(y), ss = column(s), mi = column(Vec(3, 0.0));
  auto f2 = column(Vec(34, 0.0)), r2 = column(Vec(34, 0.0));
  ASSERT_EQ(NewDemingRegression(&xx, &yy, 34, &ss, -1, 0.0, 0.05, 200, 1e-12, &mc, &mi, &f2, &r2),
            0);
  expect_all_close(values(mc), wdem_rep, 1e-9);
  // WeightedDeming on the subject blocks (subject i's two readings consecutive).
  Vec xb, yb;
  for (int i = 0; i < 17; ++i) {
    xb.insert(xb.end(), {pefr_w1[i], pefr_w2[i]});
    yb.insert(yb.end(), {pefr_m1[i], pefr_m2[i]});
  }
  auto size = column(Vec(17, 2.0)), bx = column(xb), by = column(yb);
  int it = 0;
  ASSERT_EQ(WeightedDeming(&size, 17, &bx, &by, 34, 200, 1e-12, b, a, it), 0);
  EXPECT_NEAR(b, wdem_rep[4], 1e-9);
  EXPECT_NEAR(a, wdem_rep[0], 1e-7);
}

// ---- one harness drives every flat entry through bad input ----------------------------------
// The call returns one of the statuses its header lists, leaves its inputs unchanged and writes
// nothing outside any caller array.
namespace {

using testing_support::Guarded;

struct Buffers {
  Guarded x, y, s, o1, o2, o3, o4, small, sc = Guarded(12);
  Buffers(const Vec& xv, const Vec& yv, int n, int smallRows)
      : x(n), y(n), s(n), o1(n), o2(n), o3(n), o4(n), small(smallRows) {
    for (std::size_t i = 0; i < x.n; ++i) {
      x[i] = xv[i];
      y[i] = yv[i];
      s[i] = static_cast<double>(i % 3 + 1);
    }
  }
};

struct FlatEntry {
  const char* name;
  std::set<int> statuses;
  int smallRows;  // length of the fixed-size output written into `small`
};
const FlatEntry kEntries[] = {{"Cpp_BlandAltman", {0}, 0},
                              {"Cpp_BlandAltman ratio", {0}, 0},
                              {"Cpp_BlandAltmanLoACI", {0}, 6},
                              {"Cpp_GetRepeatability", {0}, 0},
                              {"Cpp_Passing_Bablok", {0}, 0},
                              {"Cpp_PassingBablokBIS", {0, VELKOR_PAB_NEGATIVE_TAU}, 0},
                              {"VB_DemingRegression", {0, -2, -5}, 8},
                              {"Cpp_NewDemingRegression", {0, -2, -5}, 8}};

// Calls entry k of kEntries on the buffers.
int call_entry(int k, Buffers& b, int n) {
  double *s = b.sc.p(), *x = b.x.p(), *y = b.y.p();
  switch (k) {
    case 0:
    case 1:
      return Cpp_BlandAltman(x, y, n, k == 0 ? 0 : 2, 0.05, b.o1.p(), b.o2.p(), s, s + 1, s + 2,
                             s + 3, s + 4, s + 5);
    case 2:
      return Cpp_BlandAltmanLoACI(x, y, n, 0, 0.05, 0.05, 1, b.small.p());
    case 3:
      return Cpp_GetRepeatability(x, n, b.s.p(), 0.05, s, s + 1, s + 2);
    case 4:
    case 5:
      return (k == 4 ? Cpp_Passing_Bablok : Cpp_PassingBablokBIS)(
          x, n, y, k == 4 ? 3 : 1, k == 4 ? 0.05 : 0.02, s, s + 1, s + 2, s + 3, s + 4, s + 5,
          b.o1.p(), b.o2.p(), b.o3.p(), b.o4.p(), s + 6, s + 7, s + 8);
    case 6:
      return VB_DemingRegression(x, y, n, 1.0, 0.05, b.small.p(), b.o1.p(), b.o2.p());
    default:
      return Cpp_NewDemingRegression(x, y, n, b.s.p(), -1, 0.0, 0.05, 50, 1e-10, b.small.p(), s,
                                     b.o1.p(), b.o2.p());
  }
}

}  // namespace

TEST(MethodcompApi, BadInputNeverCrashesOrWritesOutside) {
  const double nan = std::nan(""), inf = std::numeric_limits<double>::infinity();
  const struct {
    const char* what;
    Vec x, y;
    int n;
  } data[] = {
      {"n = 0", {}, {}, 0},
      {"n = 1", {3}, {4}, 1},
      {"negative n", {1, 2, 3}, {1, 2, 3}, -3},
      {"n = 2", {1, 2}, {2, 3}, 2},
      {"all x equal", {2, 2, 2, 2}, {1, 2, 3, 4}, 4},
      {"identical points", {2, 2, 2, 2}, {5, 5, 5, 5}, 4},
      {"missing values", {VELKOR_MISSING, 1, 2, 3, 4}, {1, 2, VELKOR_MISSING, 3, 5}, 5},
      {"NaN", {nan, 1, 2, 3, 4}, {1, 2, nan, 3, 5}, 5},
      {"infinities", {inf, 1, 2, -inf, 4}, {1, inf, 2, 3, 5}, 5},
      {"zeros", {0, 0, 1, 2, 3}, {0, 1, 0, 2, 3}, 5},
      {"huge values", {1e308, -1e308, 1, 2, 3}, {-1e308, 1e308, 2, 1, 3}, 5},
  };
  for (int k = 0; k < 8; ++k) {
    const FlatEntry& entry = kEntries[k];
    for (const auto& d : data) {
      SCOPED_TRACE(std::string(entry.name) + ": " + d.what);
      Buffers b(d.x, d.y, d.n, entry.smallRows);
      const Buffers in = b;
      const int st = call_entry(k, b, d.n);
      EXPECT_TRUE(entry.statuses.count(st)) << "status " << st;
      for (auto m : {&Buffers::x, &Buffers::y, &Buffers::s})  // NaN-safe bitwise equality
        EXPECT_EQ(
            std::memcmp((b.*m).buf.data(), (in.*m).buf.data(), (in.*m).buf.size() * sizeof(double)),
            0);
      for (auto m :
           {&Buffers::o1, &Buffers::o2, &Buffers::o3, &Buffers::o4, &Buffers::small, &Buffers::sc})
        EXPECT_TRUE((b.*m).intact());
    }
  }
}

TEST(MethodcompApi, NullArraysAreRefused) {
  double s[9] = {0};
  Vec x = {1, 2, 3}, y = {2, 3, 5}, o(3, 0.0);
  EXPECT_EQ(
      Cpp_BlandAltman(x.data(), y.data(), 3, 0, 0.05, o.data(), o.data(), s, nullptr, s, s, s, s),
      VELKOR_E_NULL_ARRAY);
  EXPECT_EQ(Cpp_GetRepeatability(x.data(), 3, nullptr, 0.05, s, s, s), VELKOR_E_NULL_ARRAY);
  EXPECT_EQ(Cpp_Passing_Bablok(x.data(), 3, nullptr, 1, 0.05, s, s, s, s, s, s, o.data(), o.data(),
                               o.data(), o.data(), s, s, s),
            VELKOR_E_NULL_ARRAY);
  EXPECT_EQ(VB_DemingRegression(x.data(), y.data(), 3, 1.0, 0.05, nullptr, o.data(), o.data()),
            VELKOR_E_NULL_ARRAY);
  EXPECT_EQ(Cpp_BlandAltmanLoACI(x.data(), y.data(), 3, 0, 0.05, 0.05, 0, nullptr),
            VELKOR_E_NULL_ARRAY);
  // Null arrays with n = 0 are accepted.
  EXPECT_EQ(Cpp_BlandAltman(nullptr, nullptr, 0, 0, 0.05, nullptr, nullptr, s, s, s, s, s, s), 0);
}
