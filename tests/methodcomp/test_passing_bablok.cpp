// Passing-Bablok regression: slope estimators with their special values, the drivers against an
// independent implementation (full sort of all slopes), the exact selection beyond the slope
// store, and the cusum linearity test.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "companion/distributions.h"
#include "methodcomp/passing_bablok.h"
#include "reference/methodcomp/methodcomp_fixtures.inc"
#include "test_helpers.h"

namespace mc = velkor::methodcomp;
using mctest::col;
using mctest::expect_all_close;
using velkor::kEpsilon;
using velkor::kMissing;
using velkor::kUnbounded;

namespace {

struct PbResult {
  int status;
  std::vector<double> scalars;  // a, aLow, aHigh, b, bLow, bHigh, maxCusum, critical, pValue
  std::vector<double> fitted, resid, diff, dist;
};

PbResult run_pb(const std::vector<double>& x, const std::vector<double>& y, int option,
                double alpha, bool equivariant = false) {
  const int n = static_cast<int>(x.size());
  auto mx = col(x), my = col(y);
  auto f = col(std::vector<double>(x.size(), 7.0)), r = col(std::vector<double>(x.size(), 7.0));
  auto d = col(std::vector<double>(x.size(), 7.0)), s = col(std::vector<double>(x.size(), 7.0));
  PbResult o;
  o.scalars.assign(9, 7.0);
  double* v = o.scalars.data();
  o.status = (equivariant ? mc::PassingBablokBIS : mc::PassingBablok)(
      &mx, n, &my, option, alpha, v[0], v[1], v[2], v[3], v[4], v[5], &f, &r, &d, &s, v[6], v[7],
      v[8]);
  o.fitted = mctest::values(f);
  o.resid = mctest::values(r);
  o.diff = mctest::values(d);
  o.dist = mctest::values(s);
  return o;
}

struct Slope {
  double b, N, K;
  short flag;
};

Slope pab1(const std::vector<double>& x, const std::vector<double>& y, short flag = -1,
           short geo = 0) {
  auto mx = col(x), my = col(y);
  Slope s{0, 0, 0, flag};
  const mc::SpecialSlopes sp = mc::DefaultSpecialSlopes();
  EXPECT_EQ(
      mc::ComputeBCoeff_PAB1(&mx, static_cast<int>(x.size()), &my, s.flag, geo, sp.verticalUp,
                             sp.verticalDown, sp.horizontalLeft, sp.horizontalRight, s.b, s.N, s.K),
      0);
  return s;
}

// Compare a driver run with a fixture: 9 scalars (the fixture also carries N and K).
void expect_matches(const PbResult& got, const std::vector<double>& ref, double tol) {
  ASSERT_EQ(got.status, 0);
  expect_all_close(got.scalars, std::vector<double>(ref.begin(), ref.begin() + 9), tol, "scalars");
}

}  // namespace

TEST(PassingBablokSlope, SpecialValuesSkippedSlopesAndK) {
  // Pairs of (0,0), (1,1), (2,0): slope 1; dy = 0 with dx = -2 stores -epsilon; slope -1 skipped.
  Slope s = pab1({0, 1, 2}, {0, 1, 0});
  EXPECT_EQ(s.N, 2.0);
  EXPECT_EQ(s.K, 0.0);
  EXPECT_EQ(s.b, (-kEpsilon + 1.0) / 2.0);
  // Equal x with dy < 0 stores +1.79769313486231e+308.
  s = pab1({1, 1, 2}, {1, 3, 2});
  EXPECT_EQ(s.N, 2.0);
  EXPECT_EQ(s.b, (1.0 + kUnbounded) / 2.0);
  // Equal x with dy > 0 stores -1.79769313486231e+308 and counts in K: N = 1, K = 1, and the
  // median position (N + 1)/2 + K = 2 lies past the store: it reads the spare element, the
  // slope of the last stored pair.
  s = pab1({1, 1}, {3, 1});
  EXPECT_EQ(s.N, 1.0);
  EXPECT_EQ(s.K, 1.0);
  EXPECT_EQ(s.b, -kUnbounded);
  // Identical points store nothing: no slope.
  s = pab1({2, 2, 2}, {5, 5, 5});
  EXPECT_EQ(s.N, 0.0);
  EXPECT_EQ(s.b, kMissing);
}

TEST(PassingBablokSlope, NegativeAssociationFlag) {
  const std::vector<double> x = {1, 2, 3, 4, 5}, y = {10, 8, 7, 3, 1};
  Slope refused = pab1(x, y, -1);
  EXPECT_EQ(refused.flag, -1);
  EXPECT_EQ(refused.b, kMissing);
  EXPECT_EQ(refused.N, 0.0);
  Slope accepted = pab1(x, y, 0);
  EXPECT_EQ(accepted.flag, -1);
  EXPECT_LT(accepted.b, 0.0);
  std::vector<double> ny(y.size());
  std::transform(y.begin(), y.end(), ny.begin(), [](double v) { return -v; });
  EXPECT_EQ(accepted.b, -pab1(x, ny).b);  // slopes of (x, -y), negated back
}

TEST(PassingBablokSlope, GeometricMeanAndEquivariance) {
  const auto& x = methodcomp_ref::pefr_w1;
  const auto& y = methodcomp_ref::pefr_m1;
  const mc::SpecialSlopes sp = mc::DefaultSpecialSlopes();
  auto pab3 = [&](const std::vector<double>& u, const std::vector<double>& v) {
    auto mu = col(u), mv = col(v);
    short flag = -1;
    double b = 0, N = 0, K = 0;
    EXPECT_EQ(mc::ComputeBCoeff_PAB3(&mu, 17, &mv, flag, -1, sp.verticalUp, sp.verticalDown,
                                     sp.horizontalLeft, sp.horizontalRight, b, N, K),
              0);
    EXPECT_EQ(K, 0.0);
    return b;
  };
  const double b = pab3(x, y);
  std::vector<double> y1000(y.size());
  std::transform(y.begin(), y.end(), y1000.begin(), [](double v) { return 1000 * v; });
  EXPECT_NEAR(pab3(x, y1000), 1000 * b, 1e-12 * 1000 * b);  // scale equivariant
  EXPECT_NEAR(pab3(y, x), 1 / b, 1e-15);                    // swap gives the reciprocal
  // With an even N the flag combines the middle slopes geometrically: slopes 0.5, 1, 1.2, 4/3,
  // 5/3, 2 give (1.2 + 4/3)/2 or sqrt(1.2 * 4/3).
  EXPECT_DOUBLE_EQ(pab1({1, 2, 4, 7}, {1, 3, 4, 9}, -1, 0).b, (1.2 + 4.0 / 3.0) / 2);
  EXPECT_DOUBLE_EQ(pab1({1, 2, 4, 7}, {1, 3, 4, 9}, -1, -1).b, std::sqrt(1.2 * 4.0 / 3.0));
}

TEST(PassingBablok, ExactLineHasNoResiduals) {
  const PbResult r = run_pb({1, 2, 3, 5, 8}, {2, 4, 6, 10, 16}, 1, 0.05);
  ASSERT_EQ(r.status, 0);
  EXPECT_EQ(r.scalars[3], 2.0);
  EXPECT_EQ(r.scalars[0], 0.0);
  for (double v : r.resid) EXPECT_EQ(v, 0.0);
  for (double v : r.dist) EXPECT_EQ(v, 0.0);
  EXPECT_EQ(r.diff, (std::vector<double>{1, 2, 3, 5, 8}));
  EXPECT_EQ(r.scalars[6], 0.0);       // max cusum
  EXPECT_EQ(r.scalars[7], 0.0);       // h = 0
  EXPECT_EQ(r.scalars[8], kMissing);  // no residual off the line: no test
}

TEST(PassingBablok, MatchesIndependentImplementation) {
  using namespace methodcomp_ref;
  PbResult r = run_pb(pefr_w1, pefr_m1, 1, 0.05);
  expect_matches(r, pb_pefr_scalars, 1e-12);
  expect_all_close(r.fitted, pb_pefr_fitted, 1e-12, "fitted");
  expect_all_close(r.resid, pb_pefr_resid, 1e-11, "residuals");
  expect_all_close(r.dist, pb_pefr_dist, 1e-11, "distance");
  // alpha = 0.05: critical value 1.35809863932252 sqrt(L + l), no search.
  const double h = std::sqrt(static_cast<double>(std::count_if(
      r.resid.begin(), r.resid.end(), [](double v) { return std::fabs(v) > 1e-12; })));
  EXPECT_DOUBLE_EQ(r.scalars[7], 1.35809863932252 * h);

  std::vector<double> xm(17), ym(17);
  for (int i = 0; i < 17; ++i) {
    xm[i] = (pefr_w1[i] + pefr_w2[i]) / 2;
    ym[i] = (pefr_m1[i] + pefr_m2[i]) / 2;
  }
  expect_matches(run_pb(xm, ym, 1, 0.10), pb_pefr_a10_scalars, 1e-12);
  r = run_pb(sleep_g1, sleep_g2, 1, 0.01);
  expect_matches(r, pb_sleep_scalars, 1e-12);
  expect_all_close(r.resid, pb_sleep_resid, 1e-11, "sleep residuals");
}

TEST(PassingBablok, NegativeAssociation) {
  using namespace methodcomp_ref;
  std::vector<double> ny(17);
  for (int i = 0; i < 17; ++i) ny[i] = 1000 - pefr_m1[i];
  PbResult refused = run_pb(pefr_w1, ny, 1, 0.05);
  EXPECT_EQ(refused.status, mc::kNegativeAssociation);
  EXPECT_EQ(refused.scalars[3], 7.0);  // nothing written
  EXPECT_EQ(refused.fitted[0], 7.0);
  EXPECT_EQ(run_pb(pefr_w1, ny, 2, 0.05).status, mc::kNegativeAssociation);  // other options: as 1
  expect_matches(run_pb(pefr_w1, ny, 3, 0.05), pb_neg_scalars, 1e-12);
  expect_matches(run_pb(pefr_w1, ny, 3, 0.05, true), pbe_neg_scalars, 1e-12);
}

TEST(PassingBablok, EquivariantDriver) {
  using namespace methodcomp_ref;
  PbResult r = run_pb(pefr_w1, pefr_m1, 1, 0.05, true);
  expect_matches(r, pbe_pefr_scalars, 1e-12);
  expect_all_close(r.resid, pbe_pefr_resid, 1e-11, "residuals");
  std::vector<double> y1000(17);
  for (int i = 0; i < 17; ++i) y1000[i] = 1000 * pefr_m1[i];
  expect_matches(run_pb(pefr_w1, y1000, 1, 0.05, true), pbe_pefr_scaled_scalars, 1e-12);
}

TEST(PassingBablok, ExactBeyondTheSlopeStore) {
  // 2100 points: 2,203,950 pairs, past 2,000,000 slopes: the window selection must give the
  // same order statistics as the full sort of the reference.
  std::vector<double> x, y;
  mctest::grid(2100, x, y);
  expect_matches(run_pb(x, y, 1, 0.05), methodcomp_ref::pb_grid_scalars, 1e-12);
  expect_matches(run_pb(x, y, 1, 0.05, true), methodcomp_ref::pbe_grid_scalars, 1e-12);
}

TEST(PassingBablok, WindowedSelectionEqualsFullSort) {
  // Direct check of the selection engine at many ranks, against std::sort of all slopes.
  std::vector<double> x, y;
  mctest::grid(2100, x, y);
  const mc::SpecialSlopes sp = mc::DefaultSpecialSlopes();
  std::vector<long long> wanted = {0,       1,       2,       1000,    500000,
                                   1101975, 1101976, 2203949, 2203950, 2203951};
  const mc::SlopeOrderStats got = mc::PairwiseSlopes(x.data(), y.data(), x.size(), 1.0, false, sp,
                                                     [&](long long, long long) { return wanted; });
  std::vector<double> all;
  double last = 0;
  for (std::size_t i = 0; i < x.size(); ++i)
    for (std::size_t j = i + 1; j < x.size(); ++j) {
      const double dx = x[i] - x[j], dy = y[i] - y[j];
      double s;
      if (std::fabs(dx) > kEpsilon && std::fabs(dy) > kEpsilon) {
        s = dy / dx;
        if (s == -1.0) continue;
      } else if (dx == 0 && dy > 0) {
        s = -kUnbounded;
      } else if (dx == 0 && dy < 0) {
        s = kUnbounded;
      } else if (dy == 0 && dx < 0) {
        s = -kEpsilon;
      } else if (dy == 0 && dx > 0) {
        s = kEpsilon;
      } else {
        continue;
      }
      all.push_back(s);
      last = s;
    }
  std::sort(all.begin(), all.end());
  ASSERT_EQ(got.N, static_cast<long long>(all.size()));
  for (std::size_t k = 0; k < wanted.size(); ++k) {
    const long long r = wanted[k];
    const double want = (r >= 1 && r <= got.N) ? all[static_cast<std::size_t>(r - 1)] : last;
    EXPECT_EQ(got.values[k], want) << "rank " << r;
  }
  // A first window placed around the median misses the position finally wanted (the smallest
  // slope): the pass is repeated with a new window.
  int calls = 0;
  const mc::SlopeOrderStats widened =
      mc::PairwiseSlopes(x.data(), y.data(), x.size(), 1.0, false, sp, [&](long long N, long long) {
        return ++calls == 1 ? std::vector<long long>{N / 2} : std::vector<long long>{1};
      });
  EXPECT_GT(calls, 2);
  EXPECT_EQ(widened.values[0], all[0]);
}

TEST(PassingBablok, KolmogorovCriticalValues) {
  EXPECT_EQ(mc::KolmogorovCritical(0.05), 1.35809863932252);
  EXPECT_EQ(mc::KolmogorovCritical(0.01), 1.62762361151895);
  EXPECT_EQ(mc::KolmogorovCritical(0.1), 1.22384787020909);
  for (double a : {0.02, 0.2, 0.5, 1e-6}) {
    const double k = mc::KolmogorovCritical(a);
    EXPECT_LT(std::fabs(CDFKolmogorov(k) - (1 - a)), 1e-5) << a;
  }
  EXPECT_TRUE(std::isnan(mc::KolmogorovCritical(0.0)));
  EXPECT_TRUE(std::isnan(mc::KolmogorovCritical(1.0)));
}

TEST(PassingBablok, DegenerateInput) {
  using namespace methodcomp_ref;
  // Incomplete rows are left out; their per-row outputs hold the marker.
  std::vector<double> x = pefr_w1, y = pefr_m1;
  x.push_back(kMissing);
  y.push_back(300);
  x.push_back(250);
  y.push_back(std::nan(""));
  PbResult r = run_pb(x, y, 1, 0.05);
  expect_matches(r, pb_pefr_scalars, 1e-12);
  EXPECT_EQ(r.fitted[17], kMissing);
  EXPECT_EQ(r.dist[18], kMissing);
  // All points identical, a single point, no points: no slope, every output the marker.
  for (const auto& v :
       {std::vector<double>{4, 4, 4}, std::vector<double>{4}, std::vector<double>{}}) {
    r = run_pb(v, v, 1, 0.05);
    EXPECT_EQ(r.status, 0);
    for (double s : r.scalars) EXPECT_EQ(s, kMissing);
    for (double s : r.fitted) EXPECT_EQ(s, kMissing);
  }
  // Alpha outside (0, 1): estimates, no limits.
  r = run_pb(pefr_w1, pefr_m1, 1, 2.0);
  EXPECT_NEAR(r.scalars[3], pb_pefr_scalars[3], 1e-15);
  EXPECT_EQ(r.scalars[4], kMissing);
  EXPECT_EQ(r.scalars[2], kMissing);
  EXPECT_EQ(r.scalars[7], kMissing);
}

TEST(PassingBablok, UnboundedSlopeLimitsAndTheirCleanUp) {
  // Three points on x = 1 with y falling (pairs store -1.79769313486231e+308, K = 3) and one at
  // x = 2: slopes 1, 2, 3. N = 6, M1 = 0: the lower slope limit is S[3] = -1.79769313486231e+308,
  // so the upper intercept limit is unbounded and the lower slope limit is reported as
  // +1.79769313486231e+308 (deliberate clean-up). The median positions 6 and 7 pass the store:
  // position 7 reads the spare element, the slope 3 of the last pair.
  PbResult r = run_pb({1, 1, 1, 2}, {3, 2, 1, 4}, 1, 0.05);
  ASSERT_EQ(r.status, 0);
  EXPECT_EQ(r.scalars[3], 3.0);
  EXPECT_EQ(r.scalars[4], kUnbounded);
  EXPECT_EQ(r.scalars[5], 3.0);
  EXPECT_EQ(r.scalars[0], -1.5);
  EXPECT_EQ(r.scalars[1], -1.5);
  EXPECT_EQ(r.scalars[2], kUnbounded);
  // Mirror case: y rising on x = 1 stores +1.79769313486231e+308, the upper slope limit; the
  // lower intercept limit is then the marker, reported as +1.79769313486231e+308.
  r = run_pb({1, 1, 1, 2}, {1, 2, 3, 5}, 1, 0.05);
  ASSERT_EQ(r.status, 0);
  EXPECT_EQ(r.scalars[5], kUnbounded);
  EXPECT_EQ(r.scalars[4], 2.0);
  EXPECT_EQ(r.scalars[1], kUnbounded);
}
