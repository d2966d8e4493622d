// Competing-risks benchmark on the rows that bench/competing_r.R times with cmprsk::cuminc:
// n = 10,000, 100,000 and 1,048,576 rows, 3 groups, causes 1 and 2 (0 censored).
//
//   Rscript bench/competing_r.R DIR && VELKOR_BENCH_DATA=DIR build/release/bench/bench_competing
//   (bench/competing_bench.sh runs both and prints the table with the ratios)
//
// Tasks:
//   cuminc_equivalent  what cuminc(time, cause, group) computes: ordering (ReorganizeDataCum),
//                      the all-cause product-limit table of each group, the incidence of each
//                      cause in each group (CumIncCalc) and Gray's test of each cause on the
//                      ordered rows (the path of velkor/competing.h);
//   incidence          the same without Gray's test;
//   gray_test          Gray's test of both causes alone, from the unordered rows.
// Without VELKOR_BENCH_DATA the rows are generated here (same design, another random stream).
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "competing/cumulative_incidence.h"
#include "competing/gray_test.h"
#include "survival/kaplan_meier.h"

namespace {

struct Rows {
  std::vector<double> time, cause, group;
};

Rows load(long n) {
  Rows r;
  if (const char* dir = std::getenv("VELKOR_BENCH_DATA")) {
    std::ifstream in(std::string(dir) + "/competing_" + std::to_string(n) + ".csv");
    std::string line;
    std::getline(in, line);  // header
    while (std::getline(in, line)) {
      double t = 0, c = 0, g = 0;
      if (std::sscanf(line.c_str(), "%lf,%lf,%lf", &t, &c, &g) == 3) {
        r.time.push_back(t);
        r.cause.push_back(c);
        r.group.push_back(g);
      }
    }
    if (static_cast<long>(r.time.size()) == n) return r;
    r = Rows{};
  }
  std::mt19937_64 gen(static_cast<std::uint64_t>(n));
  std::uniform_int_distribution<int> grp(1, 3);
  std::discrete_distribution<int> cause({0.3, 0.4, 0.3});
  const double rate[] = {1.0, 1.2, 0.8};
  for (long i = 0; i < n; ++i) {
    const int g = grp(gen);
    std::exponential_distribution<double> ex(rate[g - 1]);
    r.time.push_back(std::round(ex(gen) * 1000.0) / 1000.0);
    r.cause.push_back(cause(gen));
    r.group.push_back(g);
  }
  return r;
}

const Rows& data(long n) {
  static std::map<long, Rows> cache;
  auto it = cache.find(n);
  if (it == cache.end()) it = cache.emplace(n, load(n)).first;
  return it->second;
}

matrix<double> column(const std::vector<double>& v) {
  return matrix<double>(static_cast<std::uint32_t>(v.size()), 1, const_cast<double*>(v.data()), 0);
}

double gray_both(matrix<double>& t, matrix<double>& s, matrix<double>& g) {
  matrix<double> tests(2, 3);
  velkor::competing::GrayTest(&t, &s, &g, nullptr, static_cast<int>(t.rows), 0, 0.0, 2, 3, &tests,
                              nullptr, nullptr);
  return tests(1, 1) + tests(2, 1);
}

// Ordering, product-limit tables and incidences of causes 1 and 2 in every group, then (withGray)
// Gray's test on the ordered rows; returns a checksum so that nothing is optimised away.
double incidence_pipeline(const Rows& r, bool withGray) {
  const int n = static_cast<int>(r.time.size());
  matrix<double> t = column(r.time), s = column(r.cause), g = column(r.group), all(n, 1),
                 weights(n, 1);
  for (int i = 0; i < n; ++i) weights.data[i] = 1.0;
  double sizes[3] = {0, 0, 0};
  for (double x : r.group) sizes[static_cast<int>(x) - 1] += 1.0;
  matrix<double> sz(1, 3, sizes, 0);
  double maxTime = 0;
  velkor::competing::ReorganizeDataCum(&t, n, &s, &all, &g, &sz, 3, maxTime);
  double check = maxTime;
  std::uint32_t offset = 0;
  for (int k = 0; k < 3; ++k) {
    const int m = static_cast<int>(sizes[k]);
    matrix<double> table(m + 2, 12);
    std::uint32_t rows = static_cast<std::uint32_t>(m);
    double total = 0;
    ComputeKaplanMeier(offset, m, 0, 1, &t, &all, &weights, total, &table, rows, nullptr);
    const int T = static_cast<int>(rows);
    for (int cause = 1; cause <= 2; ++cause) {
      matrix<double> inc(T, 10), comp(T, 10);
      velkor::competing::CumIncCalc(T, &t, &s, cause, 0.05, m, static_cast<int>(offset), &table,
                                    &inc, &comp);
      check += inc(T, 6);
    }
    offset += static_cast<std::uint32_t>(m);
  }
  return withGray ? check + gray_both(t, s, g) : check;
}

void BM_cuminc_equivalent(benchmark::State& state) {
  const Rows& r = data(state.range(0));
  for (auto _ : state) {
    benchmark::DoNotOptimize(incidence_pipeline(r, true));
  }
}
void BM_incidence(benchmark::State& state) {
  const Rows& r = data(state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(incidence_pipeline(r, false));
}
void BM_gray_test(benchmark::State& state) {
  const Rows& r = data(state.range(0));
  for (auto _ : state) {
    matrix<double> t = column(r.time), s = column(r.cause), g = column(r.group);
    benchmark::DoNotOptimize(gray_both(t, s, g));
  }
}

}  // namespace

BENCHMARK(BM_cuminc_equivalent)
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(1048576)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_incidence)->Arg(10000)->Arg(100000)->Arg(1048576)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_gray_test)->Arg(10000)->Arg(100000)->Arg(1048576)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
