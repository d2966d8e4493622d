#include "companion/sorting.h"

#include "core/frame_memory.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numeric>
#include <string>

namespace {

// Maps a double to an unsigned key whose integer order is the numeric order of the doubles,
// with every NaN mapped above +inf. Negative zero and zero get the same key.
inline std::uint64_t order_key(double x) noexcept {
  if (std::isnan(x)) return ~std::uint64_t{0};
  if (x == 0.0) x = 0.0;
  const std::uint64_t b = std::bit_cast<std::uint64_t>(x);
  return (b & 0x8000000000000000ULL) ? ~b : (b | 0x8000000000000000ULL);
}

struct KeyIndex {
  std::uint64_t key;
  std::uint32_t index;
};

// Stable order of keys that take at most kFewKeys distinct values (group labels, for instance):
// a counting sort over the distinct values, one pass to number each key's value and one to
// place the rows, in place of the radix sort's six digit histograms and moving passes. Returns
// false (order untouched) as soon as a further distinct value appears.
constexpr int kFewKeys = 16;
bool few_distinct_order(const double* key, std::size_t n, std::vector<std::uint32_t>& order) {
  std::uint64_t values[kFewKeys];
  std::uint32_t count[kFewKeys] = {};
  int distinct = 0, last = 0;
  // The number of the value of key k among values[0 .. distinct) (the last one found is tried
  // first); distinct when it is new.
  const auto lookup = [&](std::uint64_t k) {
    if (distinct > 0 && values[last] == k) return last;
    int v = 0;
    while (v < distinct && values[v] != k) ++v;
    return v;
  };
  for (std::size_t i = 0; i < n; ++i) {
    const std::uint64_t k = order_key(key[i]);
    last = lookup(k);
    if (last == distinct) {
      if (distinct == kFewKeys) return false;
      values[distinct++] = k;
    }
    ++count[last];
  }
  // Start of each distinct value's rows: the counts of the smaller values before it.
  std::uint32_t start[kFewKeys];
  for (int v = 0; v < distinct; ++v) {
    std::uint32_t before = 0;
    for (int u = 0; u < distinct; ++u)
      if (values[u] < values[v]) before += count[u];
    start[v] = before;
  }
  order.resize(n);
  for (std::size_t i = 0; i < n; ++i) {
    last = lookup(order_key(key[i]));
    order[start[last]++] = static_cast<std::uint32_t>(i);
  }
  return true;
}

// Stable order of n keys by LSD radix sort on 11-bit digits (6 passes cover the 64-bit key).
// All six digit histograms are counted in one pass over the data, and a pass whose digit is the
// same for every key is skipped (the high digits of times on one scale usually are), so a sort
// costs about 2 + 2 x (passes that move) sweeps of the data: linear in n and stable by
// construction. Short inputs use std::stable_sort, which is cheaper there.
// The two key arrays (16 bytes a row) come from the frame's block cache: repeated sorts of large
// inputs reuse memory already faulted in. Every element is written before it is read (the keys
// here, each pass's scatter fills all n), so nothing of an earlier call is ever seen.
std::vector<std::uint32_t> radix_order(const double* key, std::size_t n) {
  // Keys already in order (a block sorted by an earlier step, as each group's times are after
  // the data preparation) keep their order: a stable sort of them is the identity, found in one
  // pass that stops at the first descent.
  std::size_t sorted = 1;
  while (sorted < n && order_key(key[sorted - 1]) <= order_key(key[sorted])) ++sorted;
  if (n == 0 || sorted == n) {
    std::vector<std::uint32_t> identity(n);
    std::iota(identity.begin(), identity.end(), std::uint32_t{0});
    return identity;
  }
  std::vector<std::uint32_t> order;
  if (few_distinct_order(key, n, order)) return order;
  velkor::frame_memory::Block blockA(n * sizeof(KeyIndex));
  auto* a = static_cast<KeyIndex*>(blockA.get());
  // The second array of the radix passes; it lives as long as the first, since the sorted keys
  // may end in either.
  velkor::frame_memory::Block blockB(n < 512 ? 0 : n * sizeof(KeyIndex));
  for (std::size_t i = 0; i < n; ++i) a[i] = {order_key(key[i]), static_cast<std::uint32_t>(i)};
  if (n < 512) {
    std::stable_sort(a, a + n, [](const KeyIndex& x, const KeyIndex& y) { return x.key < y.key; });
  } else {
    constexpr int kBits = 11;
    constexpr int kPasses = 6;
    constexpr std::size_t kBuckets = std::size_t{1} << kBits;
    std::vector<std::uint32_t> count(kPasses * kBuckets, 0u);
    for (std::size_t i = 0; i < n; ++i) {
      const KeyIndex& e = a[i];
      for (int pass = 0; pass < kPasses; ++pass) {
        ++count[pass * kBuckets + ((e.key >> (kBits * pass)) & (kBuckets - 1))];
      }
    }
    auto* b = static_cast<KeyIndex*>(blockB.get());
    for (int pass = 0; pass < kPasses; ++pass) {
      const int shift = kBits * pass;
      std::uint32_t* c = count.data() + pass * kBuckets;
      if (c[(a[0].key >> shift) & (kBuckets - 1)] == n) continue;  // digit constant: no move
      std::uint32_t sum = 0;
      for (std::size_t d = 0; d < kBuckets; ++d) {
        const std::uint32_t t = c[d];
        c[d] = sum;
        sum += t;
      }
      for (std::size_t i = 0; i < n; ++i) {
        const KeyIndex& e = a[i];
        b[c[(e.key >> shift) & (kBuckets - 1)]++] = e;
      }
      std::swap(a, b);
    }
  }
  order.resize(n);
  for (std::size_t i = 0; i < n; ++i) order[i] = a[i].index;
  return order;
}

template <class T>
void permute_rows(matrix<T>* m, std::size_t offset, const std::vector<std::uint32_t>& order,
                  std::vector<T>& scratch) {
  if (m == nullptr || m->data == nullptr) return;
  const std::size_t len = order.size();
  if (offset + len > m->rows) return;
  scratch.resize(len);
  for (std::uint32_t c = 0; c < m->cols; ++c) {
    T* col = m->data + static_cast<std::size_t>(c) * m->rows + offset;
    for (std::size_t r = 0; r < len; ++r) scratch[r] = std::move(col[order[r]]);
    for (std::size_t r = 0; r < len; ++r) col[r] = std::move(scratch[r]);
  }
}

// Rows first..last (1-based) clipped to [1, rows]: returns false when nothing is left.
bool clip_block(const matrix<double>* key, int first, int last, std::size_t& offset,
                std::size_t& len) {
  if (key == nullptr || key->data == nullptr || key->cols < 1) return false;
  const long long lo = std::max<long long>(first, 1);
  const long long hi = std::min<long long>(last, static_cast<long long>(key->rows));
  if (hi < lo) return false;
  offset = static_cast<std::size_t>(lo - 1);
  len = static_cast<std::size_t>(hi - lo + 1);
  return true;
}

}  // namespace

std::vector<std::uint32_t> SortOrder(const double* key, std::size_t n) {
  return radix_order(key, n);
}

template <class T>
void ApplyRowPermutation(matrix<T>* m, std::size_t offset,
                         const std::vector<std::uint32_t>& order) {
  std::vector<T> scratch;
  permute_rows(m, offset, order, scratch);
}

void ApplyRowPermutation(std::initializer_list<matrix<double>*> columns, std::size_t offset,
                         const std::vector<std::uint32_t>& order) {
  std::vector<double> scratch;
  for (matrix<double>* m : columns) permute_rows(m, offset, order, scratch);
}

template void ApplyRowPermutation<double>(matrix<double>*, std::size_t,
                                          const std::vector<std::uint32_t>&);
template void ApplyRowPermutation<int>(matrix<int>*, std::size_t,
                                       const std::vector<std::uint32_t>&);
template void ApplyRowPermutation<short>(matrix<short>*, std::size_t,
                                         const std::vector<std::uint32_t>&);
template void ApplyRowPermutation<std::u16string>(matrix<std::u16string>*, std::size_t,
                                                  const std::vector<std::uint32_t>&);

void SortQ(matrix<double>* key, int first, int last, std::initializer_list<matrix<double>*> carried,
           std::initializer_list<matrix<int>*> carriedInt, bool moveKey) {
  std::size_t offset = 0, len = 0;
  if (!clip_block(key, first, last, offset, len)) return;
  const std::vector<std::uint32_t> order = SortOrder(key->data + offset, len);
  bool identity = true;
  for (std::size_t r = 0; r < len && identity; ++r) identity = order[r] == r;
  if (identity) return;  // already in order: nothing moves
  std::vector<double> scratch;
  for (matrix<double>* m : carried) {
    if (m != key) permute_rows(m, offset, order, scratch);
  }
  std::vector<int> iscratch;
  for (matrix<int>* m : carriedInt) permute_rows(m, offset, order, iscratch);
  if (moveKey) {
    // Only the key column moves, even when the key matrix has further columns.
    scratch.resize(len);
    double* col = key->data + offset;
    for (std::size_t r = 0; r < len; ++r) scratch[r] = col[order[r]];
    std::copy(scratch.begin(), scratch.end(), col);
  }
}

void SortQ(matrix<double>* key, int first, int last, std::initializer_list<matrix<double>*> carried,
           bool moveKey) {
  SortQ(key, first, last, carried, {}, moveKey);
}

void SortQVector(double* v, std::size_t n) {
  if (v == nullptr || n == 0) return;
  std::sort(v, v + n, [](double a, double b) { return order_key(a) < order_key(b); });
}

void SortQVector(matrix<double>* v, int n) {
  if (v == nullptr || n <= 0) return;
  const std::size_t m = std::min<std::size_t>(static_cast<std::size_t>(n), v->count);
  SortQVector(v->data, m);
}
