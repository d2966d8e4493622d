// Small helpers shared by the method-comparison unit tests.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "core/numeric.h"
#include "velkor/containers.h"

namespace mctest {

using Vec = std::vector<double>;

// n x 1 private copy of v.
inline matrix<double> col(const Vec& v) {
  return matrix<double>(static_cast<std::uint32_t>(v.size()), 1, const_cast<double*>(v.data()), 0);
}
// n x 1 output prefilled with 7, so that untouched cells show.
inline matrix<double> out(std::size_t n) {
  return col(Vec(n, 7.0));
}
inline Vec values(const matrix<double>& m) {
  return Vec(m.data, m.data + m.count);
}

// |got - want| <= tol * max(1, |want|); markers and unbounded values must match exactly.
inline void expect_close(double got, double want, double tol, const char* what) {
  if (want == velkor::kMissing || want == velkor::kUnbounded || want == -velkor::kUnbounded) {
    EXPECT_EQ(got, want) << what;
    return;
  }
  EXPECT_NEAR(got, want, tol * std::max(1.0, std::fabs(want))) << what;
}

inline void expect_all_close(const Vec& got, const Vec& want, double tol, const char* what) {
  ASSERT_EQ(got.size(), want.size()) << what;
  for (std::size_t i = 0; i < got.size(); ++i) {
    SCOPED_TRACE(i);
    expect_close(got[i], want[i], tol, what);
  }
}

// Two readings per subject stacked (every first reading, then every second one), and the
// subject codes 1..17, 1..17 of the 17 peak-flow subjects in that layout.
inline Vec stacked(const Vec& a, const Vec& b) {
  Vec v = a;
  v.insert(v.end(), b.begin(), b.end());
  return v;
}
inline Vec codes17() {
  Vec s;
  for (int r = 0; r < 2; ++r)
    for (int i = 1; i <= 17; ++i) s.push_back(i);
  return s;
}

// The deterministic 2100-point set of the fixtures (make_fixtures.R, grid_x / grid_y).
inline void grid(int n, Vec& x, Vec& y) {
  x.resize(static_cast<std::size_t>(n));
  y.resize(static_cast<std::size_t>(n));
  for (int i = 1; i <= n; ++i) {
    const double xi = static_cast<double>((static_cast<long long>(i) * 7919) % 1000) / 10.0;
    x[static_cast<std::size_t>(i - 1)] = xi;
    y[static_cast<std::size_t>(i - 1)] =
        xi * 1.5 + static_cast<double>((static_cast<long long>(i) * 104729) % 211 - 105) / 10.0;
  }
}

}  // namespace mctest
