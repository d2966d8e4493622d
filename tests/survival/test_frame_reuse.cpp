// The descriptive analysis through the flat entry points gives bit-identical results whatever
// the frame's block cache holds: switched off, cold, warm after another data set's call (blocks
// full of other values, which also shows any output cell a worker leaves unwritten), and with
// the huge-page hint. 60,000 rows: every column copy goes through the cache.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>

#include "core/frame_memory.h"
#include "flat_chain.h"

namespace fm = velkor::frame_memory;

namespace {

FlatChain Analyse(int n, unsigned seed) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> u(0.0, 1.0);
  std::vector<double> t, s, g;
  for (int i = 0; i < n; ++i) {
    const int k = i % 3;
    const double e = -(200.0 + 100.0 * k) * std::log(1.0 - u(rng)), c = 1200.0 * u(rng);
    t.push_back(std::round(std::min(e, c) * 10.0) / 10.0);  // ties included
    s.push_back(e <= c ? 1.0 : 0.0);
    g.push_back(k + 1.0);
  }
  return FlatChain(t, s, g);
}

void ExpectSame(const FlatChain& a, const FlatChain& b) {
  EXPECT_EQ(a.status, b.status);
  EXPECT_EQ(a.T, b.T);
  using V = std::vector<double> FlatChain::*;
  for (V m : {&FlatChain::t, &FlatChain::s, &FlatChain::tables, &FlatChain::lastRows,
              &FlatChain::totals, &FlatChain::na, &FlatChain::means, &FlatChain::combined,
              &FlatChain::tests, &FlatChain::pairs}) {
    ASSERT_EQ((a.*m).size(), (b.*m).size());
    EXPECT_EQ(std::memcmp((a.*m).data(), (b.*m).data(), (a.*m).size() * sizeof(double)), 0);
  }
}

}  // namespace

TEST(FrameReuse, DescriptiveAnalysisIsIdenticalWithAndWithoutTheBlockCache) {
  const int n = 60000;
  fm::set_caching(false);
  const FlatChain reference = Analyse(n, 11);
  fm::set_caching(true);
  fm::trim();
  ExpectSame(reference, Analyse(n, 11));  // cold cache
  Analyse(n / 2 + 17, 12);                // blocks now hold another data set's values
  ASSERT_GT(fm::cached_blocks(), 0u);
  ExpectSame(reference, Analyse(n, 11));  // warm cache
  fm::trim();
  fm::set_huge_pages(true);
  ExpectSame(reference, Analyse(n, 11));
  fm::set_huge_pages(false);
  fm::trim();
}
