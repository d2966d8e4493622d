// A caller array with guard cells on both sides holding a sentinel, so that an export writing
// before or after the caller's cells is seen.
#pragma once

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <vector>

namespace testing_support {

struct Guarded {
  static constexpr std::size_t kPad = 8;
  static constexpr double kGuard = 12345.678;
  std::vector<double> buf;
  std::size_t n;
  double init;
  explicit Guarded(long long size, double init_value = 0.0)
      : buf(static_cast<std::size_t>(std::max(size, 0LL)) + 2 * kPad, kGuard),
        n(buf.size() - 2 * kPad),
        init(init_value) {
    std::fill(buf.begin() + kPad, buf.end() - kPad, init);
  }
  Guarded(std::initializer_list<double> v) : Guarded(std::vector<double>(v)) {}
  explicit Guarded(const std::vector<double>& v) : Guarded(static_cast<long long>(v.size())) {
    std::copy(v.begin(), v.end(), buf.begin() + kPad);
  }
  double* p() { return buf.data() + kPad; }
  double& operator[](std::size_t i) { return buf[kPad + i]; }
  double operator[](std::size_t i) const { return buf[kPad + i]; }
  std::vector<double> cells() const { return {buf.begin() + kPad, buf.end() - kPad}; }
  bool intact() const {
    return std::all_of(buf.begin(), buf.begin() + kPad, [](double x) { return x == kGuard; }) &&
           std::all_of(buf.end() - kPad, buf.end(), [](double x) { return x == kGuard; });
  }
  // Guards intact and every cell still holds its initial value.
  bool untouched() const {
    return intact() &&
           std::all_of(buf.begin() + kPad, buf.end() - kPad, [&](double x) { return x == init; });
  }
};

}  // namespace testing_support
