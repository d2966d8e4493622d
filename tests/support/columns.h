// Column vectors of the library's matrix<double> and tolerance checks shared by the unit tests and
// the API tests (public headers only).
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <vector>

#include "velkor/containers.h"
#include "velkor/status.h"

namespace testing_support {

using Vec = std::vector<double>;

// n x 1 private copy of v.
inline matrix<double> column(const Vec& v) {
  return matrix<double>(static_cast<std::uint32_t>(v.size()), 1, const_cast<double*>(v.data()), 0);
}
inline Vec values(const matrix<double>& m) {
  return Vec(m.data, m.data + m.count);
}

// |got - want| <= tol * max(1, |want|); the missing marker and the unbounded values must match
// exactly.
inline void expect_close(double got, double want, double tol, const char* what = "") {
  if (want == VELKOR_MISSING || std::fabs(want) == VELKOR_UNBOUNDED)
    EXPECT_EQ(got, want) << what;
  else
    EXPECT_NEAR(got, want, tol * std::max(1.0, std::fabs(want))) << what;
}
inline void expect_all_close(const Vec& got, const Vec& want, double tol, const char* what = "") {
  ASSERT_EQ(got.size(), want.size()) << what;
  for (std::size_t i = 0; i < got.size(); ++i) {
    SCOPED_TRACE(i);
    expect_close(got[i], want[i], tol, what);
  }
}

// One expected cell of a table read through at(row, column).
struct Cell {
  int row, col;
  double value;
};
// Each cell equal to its value: exactly, or within 4 ulps (EXPECT_DOUBLE_EQ) when `ulps` is set.
template <class At>
void expect_cells(const At& at, std::initializer_list<Cell> cells, bool ulps = false) {
  for (const Cell& c : cells) {
    if (ulps)
      EXPECT_DOUBLE_EQ(at(c.row, c.col), c.value) << "cell (" << c.row << ", " << c.col << ")";
    else
      EXPECT_EQ(at(c.row, c.col), c.value) << "cell (" << c.row << ", " << c.col << ")";
  }
}

}  // namespace testing_support
