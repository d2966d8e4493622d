// Row types of the mpmath/scipy fixture of the distribution and interval functions, and the
// fixture itself (tests/reference/companion/make_distributions.py).
#pragma once

namespace {

struct RefX {
  double x, expected;
};
struct RefXY {
  double a, b, expected;
};
struct WilsonRef {
  double z, p, n, cc, lo, hi;
};
struct ClopperRef {
  double x, n, alpha, lo, hi;
};
#include "reference/companion/distributions.inc"

}  // namespace
