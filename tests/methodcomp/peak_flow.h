// The 17 peak-flow subjects of the method-comparison fixtures with both readings of each meter
// stacked (every first reading, then every second one), and their subject codes 1..17, 1..17.
#pragma once

#include <vector>

#include "reference/methodcomp/methodcomp_fixtures.inc"

namespace methodcomp_ref {

inline std::vector<double> stacked(const std::vector<double>& a, const std::vector<double>& b) {
  std::vector<double> v = a;
  v.insert(v.end(), b.begin(), b.end());
  return v;
}
inline std::vector<double> codes17() {
  std::vector<double> s;
  for (int r = 0; r < 2; ++r)
    for (int i = 1; i <= 17; ++i) s.push_back(i);
  return s;
}

}  // namespace methodcomp_ref
