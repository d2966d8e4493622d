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
using namespace mctest;
using namespace methodcomp_ref;
using velkor::kEpsilon;
using velkor::kMissing;
using velkor::kUnbounded;

namespace {

struct PbResult {
  int status;
  Vec scalars;  // a, aLow, aHigh, b, bLow, bHigh, maxCusum, critical, pValue
  Vec fitted, resid, diff, dist;
};

PbResult run_pb(const Vec& x, const Vec& y, int option, double alpha, bool equivariant = false) {
  const std::size_t n = x.size();
  auto mx = col(x), my = col(y), f = out(n), r = out(n), d = out(n), s = out(n);
  PbResult o{0, Vec(9, 7.0), {}, {}, {}, {}};
  double* v = o.scalars.data();
  o.status = (equivariant ? mc::PassingBablokBIS : mc::PassingBablok)(
      &mx, static_cast<int>(n), &my, option, alpha, v[0], v[1], v[2], v[3], v[4], v[5], &f, &r, &d,
      &s, v[6], v[7], v[8]);
  o.fitted = values(f);
  o.resid = values(r);
  o.diff = values(d);
  o.dist = values(s);
  return o;
}

struct Slope {
  double b, N, K;
  short flag;
};

// ComputeBCoeff_PAB1 (or _PAB3) with the default special slopes.
Slope slope(const Vec& x, const Vec& y, short flag = -1, short geo = 0, bool pab3 = false) {
  auto mx = col(x), my = col(y);
  Slope s{0, 0, 0, flag};
  const mc::SpecialSlopes sp = mc::DefaultSpecialSlopes();
  EXPECT_EQ((pab3 ? mc::ComputeBCoeff_PAB3 : mc::ComputeBCoeff_PAB1)(
                &mx, static_cast<int>(x.size()), &my, s.flag, geo, sp.verticalUp, sp.verticalDown,
                sp.horizontalLeft, sp.horizontalRight, s.b, s.N, s.K),
            0);
  return s;
}

// Compare a driver run with a fixture: 9 scalars (the fixture also carries N and K).
void expect_matches(const PbResult& got, const Vec& ref, double tol) {
  ASSERT_EQ(got.status, 0);
  expect_all_close(got.scalars, Vec(ref.begin(), ref.begin() + 9), tol, "scalars");
}

Vec scaled(const Vec& v, double factor, double shift = 0.0) {
  Vec r(v);
  for (double& e : r) e = shift + factor * e;
  return r;
}

}  // namespace

TEST(PassingBablokSlope, SpecialValuesSkippedSlopesAndK) {
  // Pairs of (0,0), (1,1), (2,0): slope 1; dy = 0 with dx = -2 stores -epsilon; slope -1 skipped.
  Slope s = slope({0, 1, 2}, {0, 1, 0});
  EXPECT_EQ(s.N, 2.0);
  EXPECT_EQ(s.K, 0.0);
  EXPECT_EQ(s.b, (-kEpsilon + 1.0) / 2.0);
  // Equal x with dy < 0 stores +1.79769313486231e+308.
  s = slope({1, 1, 2}, {1, 3, 2});
  EXPECT_EQ(s.N, 2.0);
  EXPECT_EQ(s.b, (1.0 + kUnbounded) / 2.0);
  // Equal x with dy > 0 stores -1.79769313486231e+308 and counts in K: N = 1, K = 1, and the
  // median position (N + 1)/2 + K = 2 lies past the store: it reads the spare element, the
  // slope of the last stored pair.
  s = slope({1, 1}, {3, 1});
  EXPECT_EQ(s.N, 1.0);
  EXPECT_EQ(s.K, 1.0);
  EXPECT_EQ(s.b, -kUnbounded);
  // Identical points store nothing: no slope.
  s = slope({2, 2, 2}, {5, 5, 5});
  EXPECT_EQ(s.N, 0.0);
  EXPECT_EQ(s.b, kMissing);
}

TEST(PassingBablokSlope, NegativeAssociationFlag) {
  const Vec x = {1, 2, 3, 4, 5}, y = {10, 8, 7, 3, 1};
  const Slope refused = slope(x, y, -1);
  EXPECT_EQ(refused.flag, -1);
  EXPECT_EQ(refused.b, kMissing);
  EXPECT_EQ(refused.N, 0.0);
  const Slope accepted = slope(x, y, 0);
  EXPECT_EQ(accepted.flag, -1);
  EXPECT_LT(accepted.b, 0.0);
  EXPECT_EQ(accepted.b, -slope(x, scaled(y, -1)).b);  // slopes of (x, -y), negated back
}

TEST(PassingBablokSlope, GeometricMeanAndEquivariance) {
  const Vec &x = pefr_w1, &y = pefr_m1;
  const Slope s = slope(x, y, -1, -1, true);
  EXPECT_EQ(s.K, 0.0);
  const double b = s.b;
  EXPECT_NEAR(slope(x, scaled(y, 1000), -1, -1, true).b, 1000 * b, 1e-12 * 1000 * b);
  EXPECT_NEAR(slope(y, x, -1, -1, true).b, 1 / b, 1e-15);  // swap gives the reciprocal
  // With an even N the flag combines the middle slopes geometrically: slopes 0.5, 1, 1.2, 4/3,
  // 5/3, 2 give (1.2 + 4/3)/2 or sqrt(1.2 * 4/3).
  EXPECT_DOUBLE_EQ(slope({1, 2, 4, 7}, {1, 3, 4, 9}, -1, 0).b, (1.2 + 4.0 / 3.0) / 2);
  EXPECT_DOUBLE_EQ(slope({1, 2, 4, 7}, {1, 3, 4, 9}, -1, -1).b, std::sqrt(1.2 * 4.0 / 3.0));
}

TEST(PassingBablok, ExactLineHasNoResiduals) {
  const PbResult r = run_pb({1, 2, 3, 5, 8}, {2, 4, 6, 10, 16}, 1, 0.05);
  ASSERT_EQ(r.status, 0);
  EXPECT_EQ(r.scalars[3], 2.0);
  EXPECT_EQ(r.scalars[0], 0.0);
  EXPECT_EQ(r.resid, Vec(5, 0.0));
  EXPECT_EQ(r.dist, Vec(5, 0.0));
  EXPECT_EQ(r.diff, (Vec{1, 2, 3, 5, 8}));
  EXPECT_EQ(r.scalars[6], 0.0);       // max cusum
  EXPECT_EQ(r.scalars[7], 0.0);       // h = 0
  EXPECT_EQ(r.scalars[8], kMissing);  // no residual off the line: no test
}

TEST(PassingBablok, MatchesIndependentImplementation) {
  PbResult r = run_pb(pefr_w1, pefr_m1, 1, 0.05);
  expect_matches(r, pb_pefr_scalars, 1e-12);
  expect_all_close(r.fitted, pb_pefr_fitted, 1e-12, "fitted");
  expect_all_close(r.resid, pb_pefr_resid, 1e-11, "residuals");
  expect_all_close(r.dist, pb_pefr_dist, 1e-11, "distance");
  // alpha = 0.05: critical value 1.35809863932252 sqrt(L + l), no search.
  const double h = std::sqrt(static_cast<double>(std::count_if(
      r.resid.begin(), r.resid.end(), [](double v) { return std::fabs(v) > 1e-12; })));
  EXPECT_DOUBLE_EQ(r.scalars[7], 1.35809863932252 * h);
  // Subject means at alpha 0.10; the sleep data at alpha 0.01.
  Vec xm(17), ym(17);
  for (int i = 0; i < 17; ++i) {
    xm[i] = (pefr_w1[i] + pefr_w2[i]) / 2;
    ym[i] = (pefr_m1[i] + pefr_m2[i]) / 2;
  }
  expect_matches(run_pb(xm, ym, 1, 0.10), pb_pefr_a10_scalars, 1e-12);
  r = run_pb(sleep_g1, sleep_g2, 1, 0.01);
  expect_matches(r, pb_sleep_scalars, 1e-12);
  expect_all_close(r.resid, pb_sleep_resid, 1e-11, "sleep residuals");
}

TEST(PassingBablok, NegativeAssociationAndEquivariantDriver) {
  const Vec ny = scaled(pefr_m1, -1, 1000);
  const PbResult refused = run_pb(pefr_w1, ny, 1, 0.05);
  EXPECT_EQ(refused.status, mc::kNegativeAssociation);
  EXPECT_EQ(refused.scalars[3], 7.0);  // nothing written
  EXPECT_EQ(refused.fitted[0], 7.0);
  EXPECT_EQ(run_pb(pefr_w1, ny, 2, 0.05).status, mc::kNegativeAssociation);  // other options: as 1
  expect_matches(run_pb(pefr_w1, ny, 3, 0.05), pb_neg_scalars, 1e-12);
  expect_matches(run_pb(pefr_w1, ny, 3, 0.05, true), pbe_neg_scalars, 1e-12);

  const PbResult r = run_pb(pefr_w1, pefr_m1, 1, 0.05, true);
  expect_matches(r, pbe_pefr_scalars, 1e-12);
  expect_all_close(r.resid, pbe_pefr_resid, 1e-11, "residuals");
  expect_matches(run_pb(pefr_w1, scaled(pefr_m1, 1000), 1, 0.05, true), pbe_pefr_scaled_scalars,
                 1e-12);
}

TEST(PassingBablok, ExactBeyondTheSlopeStore) {
  // 2100 points: 2,203,950 pairs, past 2,000,000 slopes: the window selection must give the
  // same order statistics as the full sort of the reference, end to end and at many ranks.
  Vec x, y;
  grid(2100, x, y);
  expect_matches(run_pb(x, y, 1, 0.05), pb_grid_scalars, 1e-12);
  expect_matches(run_pb(x, y, 1, 0.05, true), pbe_grid_scalars, 1e-12);

  const mc::SpecialSlopes sp = mc::DefaultSpecialSlopes();
  std::vector<long long> wanted = {0,       1,       2,       1000,    500000,
                                   1101975, 1101976, 2203949, 2203950, 2203951};
  const mc::SlopeOrderStats got = mc::PairwiseSlopes(x.data(), y.data(), x.size(), 1.0, false, sp,
                                                     [&](long long, long long) { return wanted; });
  Vec all;
  double last = 0;
  for (std::size_t i = 0; i < x.size(); ++i)
    for (std::size_t j = i + 1; j < x.size(); ++j) {
      const double dx = x[i] - x[j], dy = y[i] - y[j];
      double s;
      if (std::fabs(dx) > kEpsilon && std::fabs(dy) > kEpsilon) {
        s = dy / dx;
        if (s == -1.0) continue;
      } else if (dx == 0 && dy != 0) {
        s = dy > 0 ? -kUnbounded : kUnbounded;
      } else if (dy == 0 && dx != 0) {
        s = dx < 0 ? -kEpsilon : kEpsilon;
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
  for (double a : {0.02, 0.2, 0.5, 1e-6})
    EXPECT_LT(std::fabs(CDFKolmogorov(mc::KolmogorovCritical(a)) - (1 - a)), 1e-5) << a;
  EXPECT_TRUE(std::isnan(mc::KolmogorovCritical(0.0)));
  EXPECT_TRUE(std::isnan(mc::KolmogorovCritical(1.0)));
}

TEST(PassingBablok, DegenerateInput) {
  // Incomplete rows are left out; their per-row outputs hold the marker.
  Vec x = pefr_w1, y = pefr_m1;
  x.insert(x.end(), {kMissing, 250});
  y.insert(y.end(), {300, std::nan("")});
  PbResult r = run_pb(x, y, 1, 0.05);
  expect_matches(r, pb_pefr_scalars, 1e-12);
  EXPECT_EQ(r.fitted[17], kMissing);
  EXPECT_EQ(r.dist[18], kMissing);
  // All points identical, a single point, no points: no slope, every output the marker.
  for (const auto& v : {Vec{4, 4, 4}, Vec{4}, Vec{}}) {
    r = run_pb(v, v, 1, 0.05);
    EXPECT_EQ(r.status, 0);
    for (double s : r.scalars) EXPECT_EQ(s, kMissing);
    for (double s : r.fitted) EXPECT_EQ(s, kMissing);
  }
  // Alpha outside (0, 1): estimates, no limits.
  r = run_pb(pefr_w1, pefr_m1, 1, 2.0);
  EXPECT_NEAR(r.scalars[3], pb_pefr_scalars[3], 1e-15);
  for (int k : {2, 4, 7}) EXPECT_EQ(r.scalars[k], kMissing) << k;
}

TEST(PassingBablok, UnboundedSlopeLimitsAndTheirCleanUp) {
  // Three points on x = 1 with y falling (pairs store -1.79769313486231e+308, K = 3) and one at
  // x = 2: slopes 1, 2, 3. N = 6, M1 = 0: the lower slope limit is S[3] = -1.79769313486231e+308,
  // so the upper intercept limit is unbounded and the lower slope limit is reported as
  // +1.79769313486231e+308 (deliberate clean-up). The median positions 6 and 7 pass the store:
  // position 7 reads the spare element, the slope 3 of the last pair.
  PbResult r = run_pb({1, 1, 1, 2}, {3, 2, 1, 4}, 1, 0.05);
  ASSERT_EQ(r.status, 0);
  EXPECT_EQ(Vec(r.scalars.begin(), r.scalars.begin() + 6),
            (Vec{-1.5, -1.5, kUnbounded, 3.0, kUnbounded, 3.0}));
  // Mirror case: y rising on x = 1 stores +1.79769313486231e+308, the upper slope limit; the
  // lower intercept limit is then the marker, reported as +1.79769313486231e+308.
  r = run_pb({1, 1, 1, 2}, {1, 2, 3, 5}, 1, 0.05);
  ASSERT_EQ(r.status, 0);
  EXPECT_EQ(r.scalars[5], kUnbounded);
  EXPECT_EQ(r.scalars[4], 2.0);
  EXPECT_EQ(r.scalars[1], kUnbounded);
}
