// Memory of the flat-entry frame's private copies: a bounded cache of large released blocks.
//
// Why: a flat call copies every caller array into a private buffer. For a large analysis these
// buffers are tens of megabytes (the 12-column product-limit tables of a million rows are about
// 100 MB). The C allocator maps every block of that size afresh and unmaps it on free, so each
// call pays the kernel for faulting and zeroing every page again (about 0.5 ms per MB), more than
// the copy itself. Keeping a few released blocks lets the next call reuse memory whose pages are
// already present.
//
// What it is and is not: allocator behaviour only. A block handed out to the frame is always
// completely overwritten (copied from the caller's array, or, for an output its worker
// overwrites completely, written by that worker before it reads any of it) before any result
// can depend on it, and a block
// behind a ScratchVector holds elements the vector initialises, so no result can depend on what
// an earlier call left in the memory, and the cache holds no analysis state. It is bounded (at most kMaxCachedBlocks blocks and kMaxCachedBytes bytes in
// all, least recently released evicted first), shared by all threads under one mutex, and emptied
// when the library is unloaded (or by `trim`).
//
// Blocks below kMinCachedBytes go straight to operator new / delete: the C allocator already
// recycles small blocks from its heap.
//
// Cache colouring: the usable part of each fresh cached block starts at a different multiple of
// 64 bytes within its first 4 KB (a rotating offset). Large allocations otherwise all start at the
// same offset within a page, and a worker streaming through several of them at the same index
// then suffers cache-set conflicts and 4 KB aliasing between loads and stores.
//
// On Linux, fresh blocks of at least kHugePageBytes are aligned to 2 MB and, when huge pages are
// enabled (`set_huge_pages`, off by default; environment variable VELKOR_HUGEPAGES=1 turns it on
// at load), advised with madvise(MADV_HUGEPAGE). That is only a hint: the kernel may ignore it, and
// a failure is ignored. Elsewhere the hint does nothing.
#pragma once

#include <cstddef>
#include <cstring>
#include <new>
#include <vector>

namespace velkor::frame_memory {

inline constexpr std::size_t kMinCachedBytes = std::size_t{256} << 10;  // 256 KB
inline constexpr std::size_t kMaxCachedBlocks = 32;
inline constexpr std::size_t kMaxCachedBytes = std::size_t{384} << 20;  // 384 MB
inline constexpr std::size_t kHugePageBytes = std::size_t{2} << 20;     // 2 MB

// A block and its usable size.
struct Span {
  void* ptr = nullptr;       // usable memory: `capacity` bytes from here
  std::size_t capacity = 0;  // 0 for a block below kMinCachedBytes (not cached)
  void* base = nullptr;      // the allocation that holds it
};

// A block of at least `bytes` bytes (its contents are unspecified): a cached one when one of
// between `bytes` and twice `bytes` is held (the smallest such), else a fresh one. Throws
// std::bad_alloc.
Span acquire(std::size_t bytes);
// Gives back a block from `acquire`; a null block is ignored.
void release(Span block) noexcept;

// Turns the cache on (the default) or off; turning it off empties it.
void set_caching(bool on) noexcept;
bool caching() noexcept;
// Turns the huge-page hint for fresh large blocks on or off (Linux only; off by default).
void set_huge_pages(bool on) noexcept;
// Frees every cached block.
void trim() noexcept;
// Blocks and bytes held by the cache now.
std::size_t cached_blocks() noexcept;
std::size_t cached_bytes() noexcept;

// Allocator for a worker's large temporaries (std::vector<T, frame_memory::Allocator<T>>): blocks
// of kMinCachedBytes and more come from the same cache, so that repeated calls stop faulting in
// fresh pages for them; smaller ones from operator new. The containers initialise their elements
// as usual, so nothing of an earlier call is ever read.
template <class T>
struct Allocator {
  using value_type = T;
  static constexpr std::size_t kHeader = 64;  // the block's Span, kept in front of the elements
  static_assert(sizeof(Span) <= kHeader);

  Allocator() noexcept = default;
  template <class U>
  Allocator(const Allocator<U>&) noexcept {}

  T* allocate(std::size_t n) {
    if (n > (static_cast<std::size_t>(-1) - kHeader) / sizeof(T)) throw std::bad_alloc();
    const std::size_t bytes = n * sizeof(T);
    if (bytes < kMinCachedBytes) return static_cast<T*>(::operator new(bytes));
    const Span s = acquire(bytes + kHeader);
    auto* front = static_cast<unsigned char*>(s.ptr);
    std::memcpy(front, &s, sizeof s);
    return reinterpret_cast<T*>(front + kHeader);
  }
  void deallocate(T* p, std::size_t n) noexcept {
    if (n * sizeof(T) < kMinCachedBytes) {
      ::operator delete(p);
      return;
    }
    Span s;
    std::memcpy(&s, reinterpret_cast<unsigned char*>(p) - kHeader, sizeof s);
    release(s);
  }
  template <class U>
  bool operator==(const Allocator<U>&) const noexcept {
    return true;
  }
};

template <class T>
using ScratchVector = std::vector<T, Allocator<T>>;

// Owner of one block for the length of a frame call.
class Block {
 public:
  explicit Block(std::size_t bytes) : span_(acquire(bytes)) {}
  Block(const Block&) = delete;
  Block& operator=(const Block&) = delete;
  ~Block() { release(span_); }
  void* get() const noexcept { return span_.ptr; }

 private:
  Span span_;
};

}  // namespace velkor::frame_memory
