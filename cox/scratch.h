// Work buffers of the Cox routines that every caller fills completely before reading.
#pragma once

#include <algorithm>
#include <cstdint>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

#include "core/frame_memory.h"
#include "velkor/containers.h"

namespace velkor::cox {

// The frame's cache allocator (large blocks reused across calls, already faulted in) whose
// default construction leaves the elements uninitialised: vector<T, FilledLater<T>>(n) costs no
// fill of memory that is written completely next. Only for buffers every element of which is
// written before it is read; value construction with arguments behaves as usual.
template <class T>
struct FilledLater : frame_memory::Allocator<T> {
  using value_type = T;
  template <class U>
  struct rebind {
    using other = FilledLater<U>;
  };
  FilledLater() noexcept = default;
  template <class U>
  FilledLater(const FilledLater<U>&) noexcept {}
  template <class U>
  void construct(U* p) noexcept {
    ::new (static_cast<void*>(p)) U;
  }
  template <class U, class... A>
  void construct(U* p, A&&... a) {
    ::new (static_cast<void*>(p)) U(std::forward<A>(a)...);
  }
};

template <class T>
using FilledLaterVector = std::vector<T, FilledLater<T>>;

// Result vectors of the object form written in place. `v = cST_MVect<T>(n)` would fill a
// temporary and then copy it into a second buffer (the type has a copy assignment and no move:
// its layout is part of the object interface); these replace v's buffer once. The new buffer
// comes from new[], as every cST_MVect buffer does, so the vector's own destructor frees it as
// before, on either side of the library boundary: layout and ownership are unchanged.
//
// n elements left uninitialised: only for a vector every element of which is written next.
template <class T>
void ResizeFilledLater(cST_MVect<T>& v, std::uint32_t n) {
  static_assert(std::is_arithmetic_v<T>, "only arithmetic elements may start uninitialised");
  T* fresh = new T[n == 0 ? 1 : n];
  delete[] v.data;
  v.data = fresh;
  v.count = n;
}

// v holds a copy of the n values at src.
template <class T>
void AssignValues(cST_MVect<T>& v, const T* src, std::uint32_t n) {
  if constexpr (std::is_arithmetic_v<T>) {
    ResizeFilledLater(v, n);
  } else {
    v.resize(n, T());
  }
  std::copy(src, src + n, v.data);
}
template <class T>
void AssignValues(cST_MVect<T>& v, const std::vector<T>& src) {
  AssignValues(v, src.data(), static_cast<std::uint32_t>(src.size()));
}

}  // namespace velkor::cox
