// Work buffers of the Cox routines that every caller fills completely before reading.
#pragma once

#include <new>
#include <utility>
#include <vector>

#include "core/frame_memory.h"

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

}  // namespace velkor::cox
