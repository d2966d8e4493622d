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
//   gray_test          Gray's test of both causes alone, from the unordered rows;
//   cuminc_flat        the cuminc-equivalent work through the flat entry points, step by step as
//                      velkor/competing.h lays it out (Cpp_ReorganizeDataCum, RunLife of each
//                      group, Cpp_CumIncCalc of each cause and group, Cpp_GrayTest of both
//                      causes), on caller arrays allocated once outside the timed loop as a
//                      spreadsheet holds its ranges (steady state of repeated calls);
//   cuminc_flat_first  the same, each run after emptying the frame's block cache (untimed), as
//                      the first call after loading the library.
// Without VELKOR_BENCH_DATA the rows are generated here (same design, another random stream).
#include <benchmark/benchmark.h>

#include <algorithm>
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
#include "core/frame_memory.h"
#include "velkor/VELKORLI1M.h"
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

// The caller's ranges of the flat path, allocated once. Inputs are re-entered (copied from the
// rows) at the start of every run, because Cpp_ReorganizeDataCum orders them in place; that copy
// is timed too.
struct Sheet {
  const Rows* rows;
  int n;
  double sizes[3] = {0, 0, 0};
  std::vector<double> t, s, all, g, w, tables, last, tot, inc, comp, tests;
  explicit Sheet(const Rows& r)
      : rows(&r),
        n(static_cast<int>(r.time.size())),
        t(r.time),
        s(r.cause),
        all(r.time.size()),
        g(r.group),
        w(r.time.size(), 1.0) {
    for (double x : r.group) sizes[static_cast<int>(x) - 1] += 1.0;
    const std::size_t R = static_cast<std::size_t>(*std::max_element(sizes, sizes + 3)) + 2;
    tables.assign(3 * R * 12, 0.0);  // one product-limit table per group, (n_g + 2) x 12 each
    last.assign(3, 0.0);
    tot.assign(3, 0.0);
    inc.assign(6 * R * 10, 0.0);  // incidence and complement of each cause and group
    comp.assign(6 * R * 10, 0.0);
    tests.assign(2 * 3, 0.0);
  }
};

double flat_pipeline(Sheet& sh) {
  const int n = sh.n;
  std::copy(sh.rows->time.begin(), sh.rows->time.end(), sh.t.begin());
  std::copy(sh.rows->cause.begin(), sh.rows->cause.end(), sh.s.begin());
  std::copy(sh.rows->group.begin(), sh.rows->group.end(), sh.g.begin());
  double maxTime = 0, check = 0;
  Cpp_ReorganizeDataCum(sh.t.data(), n, sh.s.data(), sh.all.data(), sh.g.data(), sh.sizes, 3,
                        &maxTime);
  int offset = 0;
  std::size_t tab = 0, out = 0;
  for (int k = 0; k < 3; ++k) {
    const int m = static_cast<int>(sh.sizes[k]);
    double* table = sh.tables.data() + tab;
    RunLife(sh.t.data() + offset, sh.all.data() + offset, sh.w.data() + offset, m, nullptr, 0, 0, 1,
            0, 0.0, m + 2, table, &sh.last[static_cast<std::size_t>(k)],
            &sh.tot[static_cast<std::size_t>(k)]);
    const int T = static_cast<int>(sh.last[static_cast<std::size_t>(k)]);
    for (int cause = 1; cause <= 2; ++cause) {
      double* inc = sh.inc.data() + out;
      std::fill(inc + 2 * static_cast<std::size_t>(T), inc + 3 * static_cast<std::size_t>(T), 0.0);
      Cpp_CumIncCalc(T, n, sh.t.data(), sh.s.data(), cause, 0.05, m, offset, table, inc,
                     sh.comp.data() + out);
      check += inc[6 * static_cast<std::size_t>(T) - 1];
      out += static_cast<std::size_t>(T) * 10;
    }
    tab += static_cast<std::size_t>(m + 2) * 12;
    offset += m;
  }
  Cpp_GrayTest(sh.t.data(), sh.s.data(), sh.g.data(), nullptr, n, 0, 0.0, 2, 3, sh.tests.data(),
               nullptr, nullptr);
  return check + sh.tests[0] + sh.tests[1];
}

void BM_cuminc_flat(benchmark::State& state) {
  Sheet sh(data(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(flat_pipeline(sh));
}
void BM_cuminc_flat_first(benchmark::State& state) {
  Sheet sh(data(state.range(0)));
  for (auto _ : state) {
    state.PauseTiming();
    velkor::frame_memory::trim();
    state.ResumeTiming();
    benchmark::DoNotOptimize(flat_pipeline(sh));
  }
}

}  // namespace

BENCHMARK(BM_cuminc_flat)->Arg(10000)->Arg(100000)->Arg(1048576)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_cuminc_flat_first)
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(1048576)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_cuminc_equivalent)
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(1048576)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_incidence)->Arg(10000)->Arg(100000)->Arg(1048576)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_gray_test)->Arg(10000)->Arg(100000)->Arg(1048576)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
