// The descriptive analysis through the flat entry points gives bit-identical results whatever
// the frame's block cache holds: switched off, cold, warm after another data set's call, and with
// the huge-page hint. The data are large enough (60,000 rows) for every column copy to go
// through the cache.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "core/frame_memory.h"
#include "velkor/VELKORLI1M.h"

namespace fm = velkor::frame_memory;

namespace {

struct Outputs {
  std::vector<double> t, s, w, g, tables, last, tot, na, combined, tests, pairs, means;
  std::vector<int> status;
};

// Ordering, product-limit tables of 3 groups, Nelson-Aalen and mean/quartiles of each group, the
// merged risk sets and the three tests with pairwise comparisons, every output kept.
Outputs Analyse(int n, unsigned seed) {
  Outputs o;
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> u(0.0, 1.0);
  for (int i = 0; i < n; ++i) {
    const int g = i % 3;
    const double t = -(200.0 + 100.0 * g) * std::log(1.0 - u(rng)), c = 1200.0 * u(rng);
    o.t.push_back(std::round(std::min(t, c) * 10.0) / 10.0);  // ties included
    o.s.push_back(t <= c ? 1.0 : 0.0);
    o.g.push_back(g + 1.0);
  }
  o.w.assign(static_cast<std::size_t>(n), 1.0);
  const int G = 3;
  double sizes[3] = {0, 0, 0};
  for (double x : o.g) sizes[static_cast<int>(x) - 1] += 1;
  const int R = static_cast<int>(std::max({sizes[0], sizes[1], sizes[2]})) + 1;
  double maxTime = 0;
  o.status.push_back(
      ReorganizeData(o.t.data(), n, o.s.data(), o.w.data(), o.g.data(), sizes, G, 0, &maxTime));
  o.tables.assign(static_cast<std::size_t>(G) * R * 12, 0.0);
  o.last.assign(G, 0.0);
  o.tot.assign(G, 0.0);
  o.status.push_back(RunLife(o.t.data(), o.s.data(), o.w.data(), n, sizes, G, 0, 1, 0, 0.0, R,
                             o.tables.data(), o.last.data(), o.tot.data()));
  o.na.assign(static_cast<std::size_t>(G) * R * 9, 0.0);
  for (int k = 0; k < G; ++k) {
    const double* tab = o.tables.data() + static_cast<std::size_t>(k) * R * 12;
    const int T = static_cast<int>(o.last[static_cast<std::size_t>(k)]);
    o.status.push_back(Cpp_TransNelsonAalen(tab, R, T, 0.05, 1,
                                            o.na.data() + static_cast<std::size_t>(k) * R * 9));
    double cap = 0, mean[4] = {}, q[12] = {};
    o.status.push_back(Cpp_ComputeKaplanMeanMedian(tab, R, T + 1, 0.05, static_cast<int>(sizes[k]),
                                                   &cap, mean, q));
    o.means.push_back(cap);
    o.means.insert(o.means.end(), mean, mean + 4);
    o.means.insert(o.means.end(), q, q + 12);
  }
  int T = static_cast<int>(o.last[0] + o.last[1] + o.last[2]);
  o.combined.assign(static_cast<std::size_t>(3 * G + 1) * static_cast<std::size_t>(T), 0.0);
  o.status.push_back(LoadKaplanTest(&T, o.tables.data(), G, R, o.last.data(), o.combined.data()));
  o.tests.assign(12, 0.0);
  o.pairs.assign(9 * 7, 0.0);
  o.status.push_back(ComputeLifeTests(o.combined.data(), T, G, 0.05, o.tests.data()));
  o.status.push_back(Cpp_ComputeMultComp(o.combined.data(), T, G, 0.05, o.pairs.data()));
  return o;
}

// Bit-for-bit equality (NaN and marker cells included).
void ExpectSameBits(const std::vector<double>& a, const std::vector<double>& b, const char* what) {
  ASSERT_EQ(a.size(), b.size()) << what;
  EXPECT_EQ(std::memcmp(a.data(), b.data(), a.size() * sizeof(double)), 0) << what;
}

void ExpectSame(const Outputs& a, const Outputs& b) {
  EXPECT_EQ(a.status, b.status);
  ExpectSameBits(a.t, b.t, "ordered times");
  ExpectSameBits(a.s, b.s, "ordered status");
  ExpectSameBits(a.tables, b.tables, "product-limit tables");
  ExpectSameBits(a.last, b.last, "last rows");
  ExpectSameBits(a.tot, b.tot, "totals");
  ExpectSameBits(a.na, b.na, "Nelson-Aalen");
  ExpectSameBits(a.means, b.means, "means and quartiles");
  ExpectSameBits(a.combined, b.combined, "merged risk sets");
  ExpectSameBits(a.tests, b.tests, "tests");
  ExpectSameBits(a.pairs, b.pairs, "pairwise tests");
}

}  // namespace

TEST(FrameReuse, DescriptiveAnalysisIsIdenticalWithAndWithoutTheBlockCache) {
  const int n = 60000;
  fm::set_caching(false);
  const Outputs reference = Analyse(n, 11);
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
