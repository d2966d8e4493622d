// The stable sort under every survival preparation: radix SortOrder against std::stable_sort of
// (key, index) pairs, on times with ties as survival data have them.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <vector>

#include "companion/sorting.h"

namespace {

std::vector<double> survival_times(std::size_t n) {
  std::mt19937_64 rng(42);
  std::exponential_distribution<double> e(1.0 / 365.0);
  std::vector<double> t(n);
  for (auto& x : t) x = std::round(e(rng));  // whole days: many ties
  return t;
}

void BM_SortOrder(benchmark::State& st) {
  const auto t = survival_times(static_cast<std::size_t>(st.range(0)));
  for (auto _ : st) benchmark::DoNotOptimize(SortOrder(t.data(), t.size()));
}

void BM_StableSortPairs(benchmark::State& st) {
  const auto t = survival_times(static_cast<std::size_t>(st.range(0)));
  for (auto _ : st) {
    std::vector<std::pair<double, std::uint32_t>> p(t.size());
    for (std::uint32_t i = 0; i < t.size(); ++i) p[i] = {t[i], i};
    std::stable_sort(p.begin(), p.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    benchmark::DoNotOptimize(p.data());
  }
}

}  // namespace

BENCHMARK(BM_SortOrder)->Arg(10000)->Arg(100000)->Arg(1048576)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StableSortPairs)->Arg(10000)->Arg(100000)->Arg(1048576)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
