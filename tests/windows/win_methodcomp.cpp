// Method comparison through VELKORLI1M.dll against R (the fixture of the Linux tests): Bland-Altman
// with the limits of agreement and their confidence limits, repeatability, Passing-Bablok (both
// procedures), Deming (closed form and replicated), the C++ workers found by their demangled
// names on matrix<double> containers of this program, and bad input.
#include <cmath>
#include <vector>

#include "reference/methodcomp/methodcomp_fixtures.inc"
#include "velkor/VELKORLI1M.h"
#include "velkor/methodcomp_objects.h"
#include "windows/harness.h"

namespace {

using Vec = std::vector<double>;

Vec stacked(const Vec& a, const Vec& b) {
  Vec v = a;
  v.insert(v.end(), b.begin(), b.end());
  return v;
}

}  // namespace

VELKOR_WIN_FAMILY(methodcomp) {
  using namespace methodcomp_ref;
  auto bland_altman = VELKOR_PROC(lib, Cpp_BlandAltman);
  auto loa_ci = VELKOR_PROC(lib, Cpp_BlandAltmanLoACI);
  auto repeatability = VELKOR_PROC(lib, Cpp_GetRepeatability);
  auto passing_bablok = VELKOR_PROC(lib, Cpp_Passing_Bablok);
  auto passing_bablok_bis = VELKOR_PROC(lib, Cpp_PassingBablokBIS);
  auto deming = VELKOR_PROC(lib, VB_DemingRegression);
  auto new_deming = VELKOR_PROC(lib, Cpp_NewDemingRegression);
  auto worker = VELKOR_CPP_PROC(lib, BlandAltman);
  if (!bland_altman || !loa_ci || !repeatability || !passing_bablok || !passing_bablok_bis ||
      !deming || !new_deming || !worker)
    return;
  // Wright and mini meter, two readings of 17 subjects: readings stacked, subject numbers.
  const Vec x = stacked(pefr_w1, pefr_w2), y = stacked(pefr_m1, pefr_m2);
  Vec subject;
  for (int r = 0; r < 2; ++r)
    for (int i = 1; i <= 17; ++i) subject.push_back(i);

  // Bland-Altman on the peak expiratory flow data (Wright vs mini meter, first readings).
  {
    Vec diffs(17), means(17), s(6);
    WCHECK_EQ(bland_altman(pefr_w1.data(), pefr_m1.data(), 17, 0, 0.05, diffs.data(), means.data(),
                           &s[0], &s[1], &s[2], &s[3], &s[4], &s[5]),
              0);
    WCHECK_VEC(s, ba_type0, 1e-12);
    WCHECK_EQ(diffs[0], 18.0);
    WCHECK_EQ(means[0], 503.0);
    Vec limits(6);
    WCHECK_EQ(loa_ci(pefr_w1.data(), pefr_m1.data(), 17, 0, 0.05, 0.05, 1, limits.data()), 0);
    WCHECK_VEC(limits, loa_exact, 1e-9);
    WCHECK_EQ(loa_ci(pefr_w1.data(), pefr_m1.data(), 17, 0, 0.05, 0.05, 0, limits.data()), 0);
    WCHECK_VEC(limits, loa_approx, 1e-12);
    // The exported C++ worker on matrix<double> containers built by this program.
    matrix<double> x(17, 1, const_cast<double*>(pefr_w1.data()), 0);
    matrix<double> y(17, 1, const_cast<double*>(pefr_m1.data()), 0);
    matrix<double> d(17, 1), m(17, 1);
    Vec t(6);
    WCHECK_EQ(worker(&x, &y, 17, 0, 0.05, &d, &m, t[0], t[1], t[2], t[3], t[4], t[5]), 0);
    WCHECK_VEC(t, ba_type0, 1e-12);
    WCHECK_EQ(d.data[0], 18.0);
  }

  // Repeatability of the Wright meter (two readings of 17 subjects).
  {
    Vec r(3);
    WCHECK_EQ(repeatability(x.data(), 34, subject.data(), 0.05, &r[0], &r[1], &r[2]), 0);
    WCHECK_VEC(r, rep_wright, 1e-11);

    // Deming regression: closed form, and on the replicated readings with lambda estimated.
    Vec coef(8), fitted(17), resid(17);
    WCHECK_EQ(deming(pefr_w1.data(), pefr_m1.data(), 17, 1.0, 0.05, coef.data(), fitted.data(),
                     resid.data()),
              0);
    WCHECK_VEC(coef, dem_pefr_l1, 1e-10);
    Vec info(3), f34(34), r34(34);
    WCHECK_EQ(new_deming(x.data(), y.data(), 34, subject.data(), 0, 0.0, 0.05, 100, 1e-12,
                         coef.data(), info.data(), f34.data(), r34.data()),
              0);
    WCHECK_VEC(coef, dem_rep, 1e-10);
    WCHECK_NEAR(info[0], dem_rep_lambda[0], 1e-13);
    Vec before = coef;
    WCHECK_EQ(deming(pefr_w1.data(), pefr_m1.data(), 2, 1.0, 0.05, coef.data(), fitted.data(),
                     resid.data()),
              VELKOR_E_TOO_FEW);
    WCHECK(coef == before);  // nothing written
  }

  // Passing-Bablok, both procedures; a negative association refused by option 1.
  {
    using Entry = decltype(passing_bablok);
    const std::pair<Entry, const Vec*> cases[] = {{passing_bablok, &pb_pefr_scalars},
                                                  {passing_bablok_bis, &pbe_pefr_scalars}};
    for (const auto& [entry, ref] : cases) {
      Vec s(9), f(17), r(17), d(17), dist(17);
      WCHECK_EQ(entry(pefr_w1.data(), 17, pefr_m1.data(), 1, 0.05, &s[0], &s[1], &s[2], &s[3],
                      &s[4], &s[5], f.data(), r.data(), d.data(), dist.data(), &s[6], &s[7], &s[8]),
                0);
      WCHECK_VEC(s, Vec(ref->begin(), ref->begin() + 9), 1e-12);
    }
    Vec ny(17), s(9, 5.0), f(17), r(17), d(17), dist(17);
    for (int i = 0; i < 17; ++i) ny[i] = 1000 - pefr_m1[i];
    WCHECK_EQ(
        passing_bablok(pefr_w1.data(), 17, ny.data(), 1, 0.05, &s[0], &s[1], &s[2], &s[3], &s[4],
                       &s[5], f.data(), r.data(), d.data(), dist.data(), &s[6], &s[7], &s[8]),
        VELKOR_PAB_NEGATIVE_TAU);
    WCHECK_EQ(s[3], 5.0);
    WCHECK_EQ(passing_bablok(nullptr, 17, ny.data(), 1, 0.05, &s[0], &s[1], &s[2], &s[3], &s[4],
                             &s[5], f.data(), r.data(), d.data(), dist.data(), &s[6], &s[7], &s[8]),
              VELKOR_E_NULL_ARRAY);
  }

  // The replicated Deming fit and Passing-Bablok through the C++ workers.
  auto new_deming_w = VELKOR_CPP_PROC(lib, NewDemingRegression);
  auto passing_bablok_w = VELKOR_CPP_PROC(lib, PassingBablok);
  if (new_deming_w && passing_bablok_w) {
    matrix<double> mx(34, 1, const_cast<double*>(x.data()), 0),
        my(34, 1, const_cast<double*>(y.data()), 0), ms(34, 1, subject.data(), 0), coef(8, 1),
        info(3, 1), fitted(34, 1), resid(34, 1);
    WCHECK_EQ(
        new_deming_w(&mx, &my, 34, &ms, 0, 0.0, 0.05, 100, 1e-12, &coef, &info, &fitted, &resid),
        0);
    WCHECK_VEC(Vec(coef.data, coef.data + 8), dem_rep, 1e-10);
    WCHECK_NEAR(info.data[0], dem_rep_lambda[0], 1e-13);

    matrix<double> px(17, 1, const_cast<double*>(pefr_w1.data()), 0),
        py(17, 1, const_cast<double*>(pefr_m1.data()), 0), f(17, 1), r(17, 1), d(17, 1),
        dist(17, 1);
    Vec sc(9);
    WCHECK_EQ(passing_bablok_w(&px, 17, &py, 1, 0.05, sc[0], sc[1], sc[2], sc[3], sc[4], sc[5], &f,
                               &r, &d, &dist, sc[6], sc[7], sc[8]),
              0);
    WCHECK_VEC(sc, Vec(pb_pefr_scalars.begin(), pb_pefr_scalars.begin() + 9), 1e-12);
  }

  // A null array with a positive length: status 3, no output written.
  wintest::GuardedD diffs(17, 2.75), means(17, 2.75), s(6, 2.75);
  WCHECK_REFUSED(bland_altman(pefr_w1.data(), nullptr, 17, 0, 0.05, diffs.data(), means.data(),
                              &s[0], &s[1], &s[2], &s[3], &s[4], &s[5]),
                 diffs, means, s);
}
