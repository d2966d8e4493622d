// The frame's block cache: reuse of released large blocks, its bounds, switching it off, and
// that a reused block never lets an earlier call's contents reach a worker.
#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <vector>

#include "core/frame.h"
#include "core/frame_memory.h"

namespace fm = velkor::frame_memory;

namespace {

// Every test starts and ends with an empty cache that is switched on.
class FrameMemory : public ::testing::Test {
 protected:
  void SetUp() override {
    fm::set_caching(true);
    fm::trim();
  }
  void TearDown() override {
    fm::set_caching(true);
    fm::set_huge_pages(false);
    fm::trim();
  }
};

constexpr std::size_t kMB = std::size_t{1} << 20;

}  // namespace

TEST_F(FrameMemory, LargeBlocksAreReusedSmallOnesAreNot) {
  fm::Span a = fm::acquire(10 * kMB);
  ASSERT_NE(a.ptr, nullptr);
  EXPECT_GE(a.capacity, 10 * kMB);
  fm::release(a);
  EXPECT_EQ(fm::cached_blocks(), 1u);
  EXPECT_EQ(fm::cached_bytes(), a.capacity);
  // A slightly smaller request takes the same block; one under half its size does not.
  fm::Span small = fm::acquire(4 * kMB);
  EXPECT_NE(small.ptr, a.ptr);
  fm::Span b = fm::acquire(9 * kMB);
  EXPECT_EQ(b.ptr, a.ptr);
  EXPECT_EQ(fm::cached_blocks(), 0u);
  fm::release(b);
  fm::release(small);
  // Blocks under the threshold bypass the cache.
  fm::release(fm::acquire(fm::kMinCachedBytes - 1));
  EXPECT_EQ(fm::cached_blocks(), 2u);
  fm::trim();
  EXPECT_EQ(fm::cached_blocks(), 0u);
  EXPECT_EQ(fm::cached_bytes(), 0u);
}

TEST_F(FrameMemory, TheCacheStaysWithinItsBounds) {
  // More blocks than it may hold, then blocks whose sizes together pass the byte bound.
  std::vector<fm::Span> held;
  for (std::size_t i = 0; i < fm::kMaxCachedBlocks + 5; ++i) held.push_back(fm::acquire(kMB));
  for (auto& s : held) fm::release(s);
  EXPECT_EQ(fm::cached_blocks(), fm::kMaxCachedBlocks);
  held.clear();
  const std::size_t big = fm::kMaxCachedBytes / 3;
  for (int i = 0; i < 4; ++i) held.push_back(fm::acquire(big));
  for (auto& s : held) fm::release(s);
  EXPECT_LE(fm::cached_bytes(), fm::kMaxCachedBytes);
  EXPECT_LE(fm::cached_blocks(), fm::kMaxCachedBlocks);
  // A block larger than the whole bound is freed, not kept.
  fm::trim();
  fm::release(fm::acquire(fm::kMaxCachedBytes + kMB));
  EXPECT_EQ(fm::cached_blocks(), 0u);
}

TEST_F(FrameMemory, SwitchedOffItHoldsNothing) {
  fm::release(fm::acquire(2 * kMB));
  EXPECT_EQ(fm::cached_blocks(), 1u);
  fm::set_caching(false);
  EXPECT_EQ(fm::cached_blocks(), 0u);
  fm::release(fm::acquire(2 * kMB));
  EXPECT_EQ(fm::cached_blocks(), 0u);
  EXPECT_FALSE(fm::caching());
}

TEST_F(FrameMemory, HugePageHintLeavesBlocksUsable) {
  fm::set_huge_pages(true);
  fm::Span s = fm::acquire(5 * kMB);
  std::memset(s.ptr, 0x5a, 5 * kMB);
  EXPECT_EQ(static_cast<unsigned char*>(s.ptr)[5 * kMB - 1], 0x5a);
  fm::release(s);
}

TEST_F(FrameMemory, ConcurrentCallersShareTheCacheSafely) {
  auto work = [] {
    for (int i = 0; i < 200; ++i) {
      fm::Span s = fm::acquire((1 + i % 3) * kMB);
      static_cast<char*>(s.ptr)[0] = 1;
      fm::release(s);
    }
  };
  std::thread t1(work), t2(work);
  t1.join();
  t2.join();
  EXPECT_LE(fm::cached_blocks(), fm::kMaxCachedBlocks);
}

// A frame copy in a reused block holds the new caller's values in every cell, including the
// cells a worker only reads: nothing of the previous call shows through.
TEST_F(FrameMemory, ReusedFrameBlocksHoldOnlyTheNewCallersValues) {
  const long long n = 400000;  // 3.2 MB: cached
  std::vector<double> first(static_cast<std::size_t>(n), 7.0), out(static_cast<std::size_t>(n));
  velkor::flat_call([&](velkor::FlatFrame& f) {
    auto& m = f.out(first.data(), n);
    for (std::uint64_t i = 0; i < m.count; ++i) m.data[i] = -1.0;  // scribble over the block
    return 0;
  });
  ASSERT_GE(fm::cached_blocks(), 1u);
  std::vector<double> second(static_cast<std::size_t>(n));
  for (std::size_t i = 0; i < second.size(); ++i) second[i] = static_cast<double>(i);
  double sum = 0;
  velkor::flat_call([&](velkor::FlatFrame& f) {
    auto& in = f.in(second.data(), n);
    auto& o = f.out(out.data(), n);
    for (std::uint64_t i = 0; i < in.count; ++i) sum += in.data[i] - o.data[i];
    return 0;
  });
  EXPECT_EQ(sum, static_cast<double>(n) * (n - 1) / 2);  // out came in as zeros
}

// Worker temporaries through the allocator: a large vector reuses a released block, and its
// elements start value-initialised whatever the block held before.
TEST_F(FrameMemory, ScratchVectorsReuseBlocksAndStartClean) {
  const std::size_t n = 500000;  // 4 MB of doubles
  const double* first = nullptr;
  {
    fm::ScratchVector<double> v(n, 3.5);
    first = v.data();
  }
  EXPECT_EQ(fm::cached_blocks(), 1u);
  fm::ScratchVector<double> w(n);
  EXPECT_EQ(w.data(), first);
  EXPECT_EQ(fm::cached_blocks(), 0u);
  double sum = 0;
  for (double x : w) sum += x;
  EXPECT_EQ(sum, 0.0);
  // Small vectors do not touch the cache.
  fm::ScratchVector<int> small(100, 1);
  EXPECT_EQ(fm::cached_blocks(), 0u);
}
