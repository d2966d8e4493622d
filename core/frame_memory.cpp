#include "core/frame_memory.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace velkor::frame_memory {
namespace {

constexpr std::size_t kSmallAlign = 64;

// Usable size of a fresh block for a request: large blocks in whole 2 MB units (so that huge
// pages can back them and slightly different requests share cached blocks), others in 64 KB
// units.
std::size_t capacity_for(std::size_t bytes) {
  const std::size_t unit = bytes >= kHugePageBytes ? kHugePageBytes : std::size_t{64} << 10;
  if (bytes > static_cast<std::size_t>(-1) - unit) throw std::bad_alloc();
  return (bytes + unit - 1) / unit * unit;
}

// The alignment follows from the capacity alone, so a block can be freed from its Span.
std::align_val_t alignment_for(std::size_t capacity) {
  return std::align_val_t{capacity >= kHugePageBytes ? kHugePageBytes : kSmallAlign};
}

// The cache: trivially destructible storage (it stays usable during static destruction) behind
// one mutex; `closed` is set at unload, after which blocks are freed directly.
struct Cache {
  std::mutex lock;
  Span blocks[kMaxCachedBlocks];  // oldest first
  std::size_t count = 0;
  std::size_t bytes = 0;
  bool closed = false;
};
Cache g_cache;
std::atomic<bool> g_caching{true};
std::atomic<bool> g_huge{false};
std::atomic<unsigned> g_colour{0};

// Bytes reserved in front of every cached block for its colour offset.
constexpr std::size_t kColourSpan = 4096;
// Offset of the next fresh block: 64-byte steps of 9 lines, cycling through all 64 lines of a page.
std::size_t next_colour() {
  return (static_cast<std::size_t>(g_colour.fetch_add(1, std::memory_order_relaxed)) * 576) %
         kColourSpan;
}

void free_block(Span s) noexcept {
  if (s.base != nullptr) ::operator delete(s.base, alignment_for(s.capacity));
}

// Removes entry k (keeps the order of the others). Caller holds the lock.
Span take(Cache& c, std::size_t k) {
  const Span s = c.blocks[k];
  for (std::size_t i = k + 1; i < c.count; ++i) c.blocks[i - 1] = c.blocks[i];
  --c.count;
  c.bytes -= s.capacity;
  return s;
}

// Empties the cache into `out` (at most kMaxCachedBlocks entries); returns how many.
std::size_t drain(Span* out) noexcept {
  std::lock_guard<std::mutex> hold(g_cache.lock);
  const std::size_t n = g_cache.count;
  for (std::size_t i = 0; i < n; ++i) out[i] = g_cache.blocks[i];
  g_cache.count = 0;
  g_cache.bytes = 0;
  return n;
}

void free_all() noexcept {
  Span held[kMaxCachedBlocks];
  const std::size_t n = drain(held);
  for (std::size_t i = 0; i < n; ++i) free_block(held[i]);
}

// Empties the cache when the library is unloaded (or the program ends).
struct Reaper {
  Reaper() {
    const char* env = std::getenv("VELKOR_HUGEPAGES");
    if (env != nullptr && env[0] == '1') g_huge.store(true);
  }
  ~Reaper() {
    {
      std::lock_guard<std::mutex> hold(g_cache.lock);
      g_cache.closed = true;
    }
    free_all();
  }
};
Reaper g_reaper;

}  // namespace

Span acquire(std::size_t bytes) {
  if (bytes == 0) bytes = 1;
  if (bytes < kMinCachedBytes) {
    void* p = ::operator new (bytes, std::align_val_t{kSmallAlign});
    return Span{p, 0, p};
  }
  if (g_caching.load(std::memory_order_relaxed)) {
    std::lock_guard<std::mutex> hold(g_cache.lock);
    std::size_t best = g_cache.count;
    for (std::size_t i = 0; i < g_cache.count; ++i) {
      const std::size_t cap = g_cache.blocks[i].capacity;
      if (cap >= bytes && cap / 2 <= bytes &&
          (best == g_cache.count || cap < g_cache.blocks[best].capacity))
        best = i;
    }
    if (best < g_cache.count) return take(g_cache, best);
  }
  const std::size_t cap = capacity_for(bytes);
  if (cap > static_cast<std::size_t>(-1) - kColourSpan) throw std::bad_alloc();
  void* base = ::operator new(cap + kColourSpan, alignment_for(cap));
  Span s{static_cast<unsigned char*>(base) + next_colour(), cap, base};
#if defined(__linux__) && defined(MADV_HUGEPAGE)
  // A hint only: the kernel may refuse or ignore it; the block is usable either way.
  if (cap >= kHugePageBytes && g_huge.load(std::memory_order_relaxed))
    (void)madvise(base, cap, MADV_HUGEPAGE);
#endif
  return s;
}

void release(Span s) noexcept {
  if (s.base == nullptr) return;
  if (s.capacity == 0) {  // a small block
    ::operator delete (s.base, std::align_val_t{kSmallAlign});
    return;
  }
  Span evicted[kMaxCachedBlocks + 1];
  std::size_t nEvicted = 0;
  {
    std::lock_guard<std::mutex> hold(g_cache.lock);
    if (g_cache.closed || !g_caching.load(std::memory_order_relaxed) ||
        s.capacity > kMaxCachedBytes) {
      evicted[nEvicted++] = s;
    } else {
      // Least recently released first out, until the block fits both bounds.
      while (g_cache.count > 0 &&
             (g_cache.count == kMaxCachedBlocks || g_cache.bytes + s.capacity > kMaxCachedBytes))
        evicted[nEvicted++] = take(g_cache, 0);
      g_cache.blocks[g_cache.count++] = s;
      g_cache.bytes += s.capacity;
    }
  }
  // Freed outside the lock: unmapping large blocks takes time.
  for (std::size_t i = 0; i < nEvicted; ++i) free_block(evicted[i]);
}

void set_caching(bool on) noexcept {
  g_caching.store(on);
  if (!on) free_all();
}

bool caching() noexcept {
  return g_caching.load();
}

void set_huge_pages(bool on) noexcept {
  g_huge.store(on);
}

void trim() noexcept {
  free_all();
}

std::size_t cached_blocks() noexcept {
  std::lock_guard<std::mutex> hold(g_cache.lock);
  return g_cache.count;
}

std::size_t cached_bytes() noexcept {
  std::lock_guard<std::mutex> hold(g_cache.lock);
  return g_cache.bytes;
}

}  // namespace velkor::frame_memory
