// The flat-entry frame: the one mechanism every flat entry point uses.
//
//   1. each caller array, input or output, becomes a private matrix<T> copy of the stated shape
//      (outputs too, so a worker may read what the caller put there);
//   2. the worker runs on the containers and its status is kept;
//   3. each output container's `count` elements are copied back, in order, into the caller's
//      array; inputs are never written;
//   4. every container is freed; the worker's status is returned unchanged.
//
// Nothing escapes as an exception: an allocation failure returns VELKOR_E_OUT_OF_MEMORY, a null
// caller array with a positive length VELKOR_E_NULL_ARRAY, any other exception
// VELKOR_E_INTERNAL, and in each of these cases nothing is written back. A length of zero or
// less gives an empty container (its spare element absorbs any access) and the worker decides
// what the data condition is (for instance -2 for fewer than two observations); a null array
// with such a length is accepted.
//
// Memory: the private copy of an arithmetic array lives in a block from core/frame_memory.h,
// which keeps a bounded number of large released blocks for the next call (their pages are then
// already mapped). Each block is filled completely from the caller's array before the worker
// runs (an empty array gets one element the worker may only reach through the spare-element
// rules), so results never depend on earlier calls. Copies in and out are plain memcpy.
//
// Copying less where the worker provably sees the same cells: an input may be copied only in
// the parts its worker reads (in_block_prefixes, in_rows, in_columns: column or row subsets,
// possibly rearranged into the layout the worker takes), and an output whose worker writes
// every element before reading any (out_overwritten) is not first filled from the caller, a fill
// nothing could observe. The worker still runs on private memory only, and only a successful
// call writes back, every output element in order.
//
// Usage in an entry point:
//   return velkor::flat_call([&](velkor::FlatFrame& f) {
//     auto& t = f.in(times, n);            // n x 1 copy of a const double*
//     auto& tab = f.out(table, rows, 12);  // rows x 12, copied back on success
//     double& bias = f.scalar(biasOut);    // written back on success
//     return Worker(&t, n, &tab, bias);
//   });
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <type_traits>
#include <vector>

#include "core/frame_memory.h"
#include "velkor/containers.h"
#include "velkor/status.h"

namespace velkor {

// Thrown inside a frame when a caller array is null although its length is positive.
struct NullCallerArray {};

class FlatFrame {
 public:
  FlatFrame() = default;
  FlatFrame(const FlatFrame&) = delete;
  FlatFrame& operator=(const FlatFrame&) = delete;

  // Input array: private rows x cols copy; never written back.
  template <class T>
  matrix<T>& in(const T* caller, long long rows, long long cols = 1) {
    return bind(const_cast<T*>(caller), rows, cols, false);
  }
  // Output (or in/out) array: private copy of the caller's values, copied back on success.
  template <class T>
  matrix<T>& out(T* caller, long long rows, long long cols = 1) {
    return bind(caller, rows, cols, true);
  }
  // Output array that the worker overwrites completely, reading none of its cells before writing
  // them: the private copy is not first filled from the caller's array, a fill no worker could
  // see. Copied back on success as out() is. Only for workers whose every path writes every
  // element (the frame-reuse test runs the descriptive chain on blocks left dirty by another data
  // set and compares every output bit for bit).
  template <class T>
  matrix<T>& out_overwritten(T* caller, long long rows, long long cols = 1) {
    static_assert(std::is_arithmetic_v<T>);
    const std::uint32_t r = clamp_dim(rows), c = clamp_dim(cols);
    if (caller == nullptr && static_cast<std::uint64_t>(r) * c > 0) throw NullCallerArray{};
    auto binding = std::make_unique<BlockBinding<T>>(
        caller, r, c, [](T*) {}, true);
    matrix<T>& ref = binding->m;
    bindings_.push_back(std::move(binding));
    return ref;
  }
  // Input array of `blocks` consecutive blocks of `blockLen` elements each (for instance stacked
  // tables), of which the worker reads only the first `keep` elements of every block: private
  // copy of those parts, (blocks * keep) x 1, block b's part from element b * keep. Length checks
  // and the null-array rule apply to the caller's whole array, as for in().
  template <class T>
  matrix<T>& in_block_prefixes(const T* caller, long long blocks, long long blockLen,
                               long long keep) {
    static_assert(std::is_arithmetic_v<T>);
    const long long nb = blocks > 0 ? blocks : 0, len = blockLen > 0 ? blockLen : 0;
    // The whole array as in(caller, blocks * blockLen): too long for a container is out of memory.
    if (nb > 0 && len > 0xFFFFFFFFLL / nb) throw std::bad_alloc();
    if (caller == nullptr && nb * len > 0) throw NullCallerArray{};
    const std::uint32_t b = nb * len > 0 ? static_cast<std::uint32_t>(nb) : 0;
    const std::uint32_t k = b > 0 ? clamp_dim(keep < len ? keep : len) : 0;
    auto binding = std::make_unique<BlockBinding<T>>(const_cast<T*>(caller), b,
                                                     static_cast<std::uint32_t>(len), k);
    matrix<T>& ref = binding->m;
    bindings_.push_back(std::move(binding));
    return ref;
  }
  // Input table (rows x cols, column-major) of which the worker reads only the listed rows
  // (0-based, each below rows): private copy of those rows, listed row k stored contiguously as
  // column k of a cols x pick.size() matrix (a transposed gather). Length checks and the
  // null-array rule apply to the caller's whole array, as for in().
  template <class T>
  matrix<T>& in_rows(const T* caller, long long rows, long long cols,
                     const std::vector<std::uint32_t>& pick) {
    static_assert(std::is_arithmetic_v<T>);
    const std::uint32_t r = clamp_dim(rows), c = clamp_dim(cols);
    if (caller == nullptr && static_cast<std::uint64_t>(r) * c > 0) throw NullCallerArray{};
    for (std::uint32_t row : pick)
      if (row >= r && c > 0) throw std::out_of_range("in_rows: row outside the table");
    const std::uint32_t k = c > 0 ? clamp_dim(static_cast<long long>(pick.size())) : 0;
    auto binding = std::make_unique<BlockBinding<T>>(const_cast<T*>(caller), r, c, pick, k);
    matrix<T>& ref = binding->m;
    bindings_.push_back(std::move(binding));
    return ref;
  }
  // Input table (rows x cols, column-major) of which the worker reads only the listed columns
  // (0-based, each below cols) and of those only the first keepRows rows: private copy of those
  // parts, keepRows x pick.size(), listed column k as column k. Length checks and the null-array
  // rule apply to the caller's whole array, as for in().
  template <class T>
  matrix<T>& in_columns(const T* caller, long long rows, long long cols,
                        const std::vector<std::uint32_t>& pick, long long keepRows) {
    static_assert(std::is_arithmetic_v<T>);
    const std::uint32_t r = clamp_dim(rows), c = clamp_dim(cols);
    if (caller == nullptr && static_cast<std::uint64_t>(r) * c > 0) throw NullCallerArray{};
    for (std::uint32_t col : pick)
      if (col >= c && r > 0) throw std::out_of_range("in_columns: column outside the table");
    const std::uint32_t keep =
        static_cast<std::uint64_t>(r) * c > 0 ? clamp_dim(keepRows < r ? keepRows : r) : 0;
    const auto k = static_cast<std::uint32_t>(pick.size());
    const T* src = caller;
    auto binding = std::make_unique<BlockBinding<T>>(const_cast<T*>(caller), keep, k, [&](T* dst) {
      for (std::uint32_t j = 0; j < (keep > 0 ? k : 0); ++j)
        std::memcpy(dst + static_cast<std::uint64_t>(j) * keep,
                    src + static_cast<std::uint64_t>(pick[j]) * r,
                    static_cast<std::size_t>(keep) * sizeof(T));
    });
    matrix<T>& ref = binding->m;
    bindings_.push_back(std::move(binding));
    return ref;
  }
  // Scalar output through a pointer: a local value initialised from *caller, written back on
  // success. A null pointer ends the call with VELKOR_E_NULL_ARRAY.
  template <class T>
  T& scalar(T* caller) {
    if (caller == nullptr) throw NullCallerArray{};
    auto b = std::make_unique<ScalarBinding<T>>(caller);
    T& ref = b->value;
    bindings_.push_back(std::move(b));
    return ref;
  }

  // Copy every output back into the caller's arrays (called once, after the worker).
  void commit() noexcept {
    for (auto& b : bindings_) b->copy_back();
  }

 private:
  struct Binding {
    virtual ~Binding() = default;
    virtual void copy_back() noexcept = 0;
  };
  // Non-arithmetic element types (strings): the matrix owns an element-by-element copy.
  template <class T>
  struct ArrayBinding final : Binding {
    matrix<T> m;
    T* caller;
    bool output;
    ArrayBinding(T* p, std::uint32_t r, std::uint32_t c, bool o)
        : m(r, c, p, 0), caller(p), output(o) {}
    void copy_back() noexcept override {
      if (!output || caller == nullptr) return;
      for (std::uint64_t k = 0; k < m.count; ++k) caller[k] = m.data[k];
    }
  };
  // Arithmetic element types: the matrix adopts a frame block holding a memcpy of the caller's
  // array (at least one element, so the buffer is never null, as with an owning matrix).
  template <class T>
  struct BlockBinding final : Binding {
    frame_memory::Block block;  // declared first: outlives the matrix that adopts it
    matrix<T> m;
    T* caller;
    bool output;
    static std::size_t bytes_for(std::uint32_t r, std::uint32_t c) {
      const std::uint64_t n = static_cast<std::uint64_t>(r) * c;
      return static_cast<std::size_t>(n == 0 ? 1 : n) * sizeof(T);
    }
    BlockBinding(T* p, std::uint32_t r, std::uint32_t c, bool o)
        : block(bytes_for(r, c)), m(r, c, fill(block.get(), p, r, c), 1), caller(p), output(o) {}
    static T* fill(void* buffer, const T* src, std::uint32_t r, std::uint32_t c) {
      T* dst = static_cast<T*>(buffer);
      const std::uint64_t n = static_cast<std::uint64_t>(r) * c;
      if (n > 0) {
        std::memcpy(dst, src, static_cast<std::size_t>(n) * sizeof(T));
      } else {
        dst[0] = T{};  // the one element of an empty array: defined, never the caller's
      }
      return dst;
    }
    // Input of the first `keep` elements of each of `blocks` blocks of `len` elements.
    BlockBinding(T* p, std::uint32_t blocks, std::uint32_t len, std::uint32_t keep)
        : block(bytes_for(blocks, keep)),
          m(blocks * keep, 1, gather(block.get(), p, blocks, len, keep), 1),
          caller(p),
          output(false) {}
    static T* gather(void* buffer, const T* src, std::uint32_t blocks, std::uint32_t len,
                     std::uint32_t keep) {
      T* dst = static_cast<T*>(buffer);
      if (static_cast<std::uint64_t>(blocks) * keep == 0) {
        dst[0] = T{};
        return dst;
      }
      for (std::uint64_t b = 0; b < blocks; ++b)
        std::memcpy(dst + b * keep, src + b * len, static_cast<std::size_t>(keep) * sizeof(T));
      return dst;
    }
    // Private copy filled by `fill` (which writes all r x c elements when there are any).
    template <class Fill>
    BlockBinding(T* p, std::uint32_t r, std::uint32_t c, Fill&& fill, bool o = false)
        : block(bytes_for(r, c)),
          m(r, c, filled(block.get(), r, c, fill), 1),
          caller(p),
          output(o) {}
    template <class Fill>
    static T* filled(void* buffer, std::uint32_t r, std::uint32_t c, Fill& fill) {
      T* dst = static_cast<T*>(buffer);
      if (static_cast<std::uint64_t>(r) * c == 0) {
        dst[0] = T{};
      } else {
        fill(dst);
      }
      return dst;
    }
    // Input of the listed rows of a rows x cols table, transposed (see in_rows).
    BlockBinding(T* p, std::uint32_t rows, std::uint32_t cols,
                 const std::vector<std::uint32_t>& pick, std::uint32_t k)
        : block(bytes_for(cols, k)),
          m(cols, k, pick_rows(block.get(), p, rows, cols, pick, k), 1),
          caller(p),
          output(false) {}
    static T* pick_rows(void* buffer, const T* src, std::uint32_t rows, std::uint32_t cols,
                        const std::vector<std::uint32_t>& pick, std::uint32_t k) {
      T* dst = static_cast<T*>(buffer);
      if (static_cast<std::uint64_t>(cols) * k == 0) {
        dst[0] = T{};
        return dst;
      }
      for (std::uint64_t j = 0; j < cols; ++j) {
        const T* column = src + j * rows;
        for (std::uint32_t i = 0; i < k; ++i)
          dst[i * static_cast<std::uint64_t>(cols) + j] = column[pick[i]];
      }
      return dst;
    }
    void copy_back() noexcept override {
      if (!output || caller == nullptr || m.count == 0) return;
      std::memcpy(caller, m.data, static_cast<std::size_t>(m.count) * sizeof(T));
    }
  };
  template <class T>
  struct ScalarBinding final : Binding {
    T value;
    T* caller;
    explicit ScalarBinding(T* p) : value(*p), caller(p) {}
    void copy_back() noexcept override { *caller = value; }
  };

  static std::uint32_t clamp_dim(long long d) {
    if (d <= 0) return 0;
    if (d > 0xFFFFFFFFLL) throw std::bad_alloc();
    return static_cast<std::uint32_t>(d);
  }

  template <class T>
  matrix<T>& bind(T* caller, long long rows, long long cols, bool output) {
    const std::uint32_t r = clamp_dim(rows);
    const std::uint32_t c = clamp_dim(cols);
    if (caller == nullptr && static_cast<std::uint64_t>(r) * c > 0) throw NullCallerArray{};
    matrix<T>* ref;
    if constexpr (std::is_arithmetic_v<T>) {
      auto b = std::make_unique<BlockBinding<T>>(caller, r, c, output);
      ref = &b->m;
      bindings_.push_back(std::move(b));
    } else {
      auto b = std::make_unique<ArrayBinding<T>>(caller, r, c, output);
      ref = &b->m;
      bindings_.push_back(std::move(b));
    }
    return *ref;
  }

  std::vector<std::unique_ptr<Binding>> bindings_;
};

// Runs one flat call: builds the frame, runs `body(frame)` (which calls the worker and returns
// its status), copies outputs back and returns the status. Exceptions become positive codes and
// leave the caller's arrays untouched.
template <class Body>
int flat_call(Body&& body) noexcept {
  try {
    FlatFrame frame;
    const int status = body(frame);
    frame.commit();
    return status;
  } catch (const std::bad_alloc&) {
    return VELKOR_E_OUT_OF_MEMORY;
  } catch (const NullCallerArray&) {
    return VELKOR_E_NULL_ARRAY;
  } catch (...) {
    return VELKOR_E_INTERNAL;
  }
}

// The same guard for object (_ST) entry points and for workers exported under their own names:
// no exception crosses the library boundary.
template <class Body>
int guarded_call(Body&& body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return VELKOR_E_OUT_OF_MEMORY;
  } catch (const NullCallerArray&) {
    return VELKOR_E_NULL_ARRAY;
  } catch (...) {
    return VELKOR_E_INTERNAL;
  }
}

}  // namespace velkor
