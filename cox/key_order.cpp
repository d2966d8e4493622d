#include "cox/key_order.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numeric>

#include "companion/sorting.h"
#include "core/frame_memory.h"

namespace velkor::cox {
namespace {

// The order-preserving integer image of a double: integer order is numeric order, every NaN
// above +inf, -0 and 0 equal (the companion sort's key).
std::uint64_t OrderKey(double x) noexcept {
  if (std::isnan(x)) return ~std::uint64_t{0};
  if (x == 0.0) x = 0.0;
  const auto b = std::bit_cast<std::uint64_t>(x);
  return (b & 0x8000000000000000ULL) ? ~b : (b | 0x8000000000000000ULL);
}

}  // namespace

std::vector<std::uint32_t> KeyOrder(const double* key, std::size_t n) {
  std::size_t sorted = 1;
  while (sorted < n && OrderKey(key[sorted - 1]) <= OrderKey(key[sorted])) ++sorted;
  if (n == 0 || sorted == n) {
    std::vector<std::uint32_t> identity(n);
    std::iota(identity.begin(), identity.end(), std::uint32_t{0});
    return identity;
  }
  if (n < 4096) return SortOrder(key, n);
  // Words: top half of the key image above the row index. Both arrays from the frame's block
  // cache; every word is written before it is read.
  frame_memory::Block blockA(n * sizeof(std::uint64_t)), blockB(n * sizeof(std::uint64_t));
  auto* a = static_cast<std::uint64_t*>(blockA.get());
  auto* b = static_cast<std::uint64_t*>(blockB.get());
  for (std::size_t i = 0; i < n; ++i)
    a[i] = (OrderKey(key[i]) & 0xFFFFFFFF00000000ULL) | static_cast<std::uint64_t>(i);
  // LSD radix on bits 32..63 in digits of 11, 11 and 10 bits; a digit that is the same for every
  // word moves nothing.
  constexpr int kShift[3] = {32, 43, 54};
  constexpr std::size_t kBuckets = std::size_t{1} << 11;
  std::vector<std::uint32_t> count(3 * kBuckets, 0u);
  for (std::size_t i = 0; i < n; ++i)
    for (int d = 0; d < 3; ++d) ++count[d * kBuckets + ((a[i] >> kShift[d]) & (kBuckets - 1))];
  for (int d = 0; d < 3; ++d) {
    std::uint32_t* c = count.data() + d * kBuckets;
    if (c[(a[0] >> kShift[d]) & (kBuckets - 1)] == n) continue;
    std::uint32_t sum = 0;
    for (std::size_t k = 0; k < kBuckets; ++k) {
      const std::uint32_t t = c[k];
      c[k] = sum;
      sum += t;
    }
    for (std::size_t i = 0; i < n; ++i) b[c[(a[i] >> kShift[d]) & (kBuckets - 1)]++] = a[i];
    std::swap(a, b);
  }
  std::vector<std::uint32_t> order(n);
  for (std::size_t i = 0; i < n; ++i) order[i] = static_cast<std::uint32_t>(a[i]);
  // Runs of equal top halves: in index order now; ordered by the full keys, stably.
  for (std::size_t g = 0; g < n;) {
    const std::uint64_t top = a[g] >> 32;
    std::size_t e = g + 1;
    bool inOrder = true;
    while (e < n && (a[e] >> 32) == top) {
      inOrder = inOrder && OrderKey(key[order[e - 1]]) <= OrderKey(key[order[e]]);
      ++e;
    }
    if (!inOrder)
      std::stable_sort(
          order.begin() + static_cast<std::ptrdiff_t>(g),
          order.begin() + static_cast<std::ptrdiff_t>(e),
          [&](std::uint32_t x, std::uint32_t y) { return OrderKey(key[x]) < OrderKey(key[y]); });
    g = e;
  }
  return order;
}

}  // namespace velkor::cox
