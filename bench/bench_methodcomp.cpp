// Method comparison: Passing-Bablok at n = 500, 2,000 and 20,000 (n(n-1)/2 slopes; the largest
// is past the 2,000,000-slope store and uses the exact windowed selection), Bland-Altman and
// Deming regression with its jackknife at 1,048,576 pairs, each through its flat entry point
// (frame copies included).
//
// Data: the files written by bench/methodcomp_data.py in $VELKOR_BENCH_DATA (the same files R
// and NumPy time in bench/methodcomp_bench.sh); without it, data of the same kind generated here.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "velkor/methodcomp.h"

namespace {

struct Pair {
  std::vector<double> x, y;
};

Pair load(const std::string& stem, long long n) {
  Pair p;
  p.x.resize(static_cast<std::size_t>(n));
  p.y.resize(static_cast<std::size_t>(n));
  const char* dir = std::getenv("VELKOR_BENCH_DATA");
  if (dir) {
    char sx[4096], sy[4096];
    if (stem == "lin_") {
      std::snprintf(sx, sizeof sx, "%s/lin_x.f64", dir);
      std::snprintf(sy, sizeof sy, "%s/lin_y.f64", dir);
    } else {
      std::snprintf(sx, sizeof sx, "%s/%sx_%lld.f64", dir, stem.c_str(), n);
      std::snprintf(sy, sizeof sy, "%s/%sy_%lld.f64", dir, stem.c_str(), n);
    }
    FILE* fx = std::fopen(sx, "rb");
    FILE* fy = std::fopen(sy, "rb");
    bool ok = fx && fy && std::fread(p.x.data(), 8, p.x.size(), fx) == p.x.size() &&
              std::fread(p.y.data(), 8, p.y.size(), fy) == p.y.size();
    if (fx) std::fclose(fx);
    if (fy) std::fclose(fy);
    if (ok) return p;
  }
  std::mt19937_64 rng(static_cast<unsigned long long>(n));
  std::uniform_real_distribution<double> u(20.0, 400.0);
  std::normal_distribution<double> e(0.0, 6.0);
  for (long long i = 0; i < n; ++i) {
    const double t = u(rng);
    p.x[static_cast<std::size_t>(i)] = std::round((t + e(rng)) * 10) / 10;
    p.y[static_cast<std::size_t>(i)] = std::round((3 + 1.04 * t + e(rng)) * 10) / 10;
  }
  return p;
}

const Pair& data(const std::string& stem, long long n) {
  static std::map<std::pair<std::string, long long>, Pair> cache;
  auto key = std::make_pair(stem, n);
  auto it = cache.find(key);
  if (it == cache.end()) it = cache.emplace(key, load(stem, n)).first;
  return it->second;
}

void BM_PassingBablok(benchmark::State& st) {
  const long long n = st.range(0);
  const Pair& p = data("pb_", n);
  std::vector<double> f(p.x.size()), r(p.x.size()), d(p.x.size()), s(p.x.size()), o(9);
  for (auto _ : st) {
    const int status = Cpp_Passing_Bablok(p.x.data(), static_cast<int>(n), p.y.data(), 1, 0.05,
                                          &o[0], &o[1], &o[2], &o[3], &o[4], &o[5], f.data(),
                                          r.data(), d.data(), s.data(), &o[6], &o[7], &o[8]);
    benchmark::DoNotOptimize(status);
  }
  st.counters["b"] = o[3];
  st.counters["a"] = o[0];
}

void BM_BlandAltman(benchmark::State& st) {
  const long long n = st.range(0);
  const Pair& p = data("lin_", n);
  std::vector<double> diffs(p.x.size()), means(p.x.size()), o(6);
  for (auto _ : st) {
    const int status =
        Cpp_BlandAltman(p.x.data(), p.y.data(), static_cast<int>(n), 0, 0.05, diffs.data(),
                        means.data(), &o[0], &o[1], &o[2], &o[3], &o[4], &o[5]);
    benchmark::DoNotOptimize(status);
  }
  st.counters["bias"] = o[0];
}

void BM_DemingRegression(benchmark::State& st) {
  const long long n = st.range(0);
  const Pair& p = data("lin_", n);
  std::vector<double> coef(8), f(p.x.size()), r(p.x.size());
  for (auto _ : st) {
    const int status = VB_DemingRegression(p.x.data(), p.y.data(), static_cast<int>(n), 1.0, 0.05,
                                           coef.data(), f.data(), r.data());
    benchmark::DoNotOptimize(status);
  }
  st.counters["b"] = coef[4];
}

}  // namespace

BENCHMARK(BM_PassingBablok)->Arg(500)->Arg(2000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PassingBablok)->Arg(20000)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(BM_BlandAltman)->Arg(1048576)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DemingRegression)->Arg(1048576)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
