// The full descriptive survival analysis through the flat entry points, at the sizes of a small,
// a large and the largest spreadsheet (10,000, 100,000 and 1,048,576 rows): preparation
// (ReorganizeData), product-limit tables of 3 groups (RunLife), Nelson-Aalen, mean and quartiles
// of each group, the merged risk sets and the three tests with pairwise comparisons. A plain
// std::sort of the (time, status) pairs runs beside it as the yardstick.
//
// The caller's ranges are allocated once outside the timed loop (a spreadsheet holds them);
// BM_FullAnalysis is the steady state of repeated calls, BM_FullAnalysisFirstCall the first call
// after loading (the frame's block cache emptied before each run), BM_FullAnalysisNoCache the
// frame with its block cache switched off.
//
// Data: three groups of equal size, exponential survival times with means 300, 400 and 500 days
// and uniform censoring on (0, 1500), times rounded to 0.01 day (so nearly all distinct: the
// largest tables), drawn with a fixed seed.
//   bench_survival --write-csv DIR   writes DIR/surv_<n>.csv (time,status,group) for the R timing
//                                    (bench/survival_r.R) and exits.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "core/frame_memory.h"
#include "velkor/VELKORLI1M.h"
#include "survival/life_tests.h"
#include "velkor/survival_objects.h"

namespace {

struct Data {
  std::vector<double> time, status, group;
};

Data Make(int n) {
  Data d;
  std::mt19937_64 rng(20240611u + static_cast<unsigned>(n));
  std::uniform_real_distribution<double> unif(0.0, 1.0);
  for (int i = 0; i < n; ++i) {
    const int g = i % 3;
    const double mean = 300.0 + 100.0 * g;
    const double t = -mean * std::log(1.0 - unif(rng));
    const double c = 1500.0 * unif(rng);
    const double obs = std::round(std::min(t, c) * 100.0) / 100.0;
    d.time.push_back(obs);
    d.status.push_back(t <= c ? 1.0 : 0.0);
    d.group.push_back(static_cast<double>(g + 1));
  }
  return d;
}

// The caller's side of a spreadsheet: every range the analysis reads or fills is allocated (and
// its pages touched) once, outside the timed loop, as a sheet holds its ranges. Outputs are sized
// for the largest result the data can give.
struct Sheet {
  static constexpr int G = 3;
  const Data* base;
  int n, R, capT;
  std::vector<double> t, s, g, w, tables, last, tot, na, combined;
  explicit Sheet(const Data& d)
      : base(&d),
        n(static_cast<int>(d.time.size())),
        t(d.time),
        s(d.status),
        g(d.group),
        w(d.time.size(), 1.0) {
    double sizes[G] = {0, 0, 0};
    for (double x : d.group) sizes[static_cast<int>(x) - 1] += 1;
    R = static_cast<int>(*std::max_element(sizes, sizes + G)) + 1;
    capT = n;  // the merged table has at most one column per observation
    tables.assign(static_cast<std::size_t>(G) * R * 12, 0.0);
    last.assign(G, 0.0);
    tot.assign(G, 0.0);
    na.assign(static_cast<std::size_t>(G) * R * 9, 0.0);
    combined.assign(static_cast<std::size_t>(3 * G + 1) * static_cast<std::size_t>(capT), 0.0);
  }
};

// One complete analysis through the flat entry points on the sheet's ranges; returns the
// log-rank statistic and a few results so the work cannot be dropped. The input columns are
// re-entered first (ReorganizeData sorts them in place): four copies of n values, timed too.
double FullAnalysis(Sheet& sh) {
  const int n = sh.n, G = Sheet::G, R = sh.R;
  std::memcpy(sh.t.data(), sh.base->time.data(), sizeof(double) * n);
  std::memcpy(sh.s.data(), sh.base->status.data(), sizeof(double) * n);
  std::memcpy(sh.g.data(), sh.base->group.data(), sizeof(double) * n);
  std::fill(sh.w.begin(), sh.w.end(), 1.0);
  double sizes[3] = {0, 0, 0};
  for (double x : sh.g) sizes[static_cast<int>(x) - 1] += 1;
  double maxTime = 0;
  ReorganizeData(sh.t.data(), n, sh.s.data(), sh.w.data(), sh.g.data(), sizes, G, 0, &maxTime);
  RunLife(sh.t.data(), sh.s.data(), sh.w.data(), n, sizes, G, 0, 1, 0, 0.0, R, sh.tables.data(),
          sh.last.data(), sh.tot.data());
  double sink = 0;
  for (int k = 0; k < G; ++k) {
    const double* tab = sh.tables.data() + static_cast<std::size_t>(k) * R * 12;
    double* na = sh.na.data() + static_cast<std::size_t>(k) * R * 9;
    const int T = static_cast<int>(sh.last[static_cast<std::size_t>(k)]);
    Cpp_TransNelsonAalen(tab, R, T, 0.05, 1, na);
    double cap, mean[4], q[12];
    Cpp_ComputeKaplanMeanMedian(tab, R, T + 1, 0.05, static_cast<int>(sizes[k]), &cap, mean, q);
    sink += mean[0] + q[4] + na[static_cast<std::size_t>(T) * 5 - 1];
  }
  int T = static_cast<int>(sh.last[0] + sh.last[1] + sh.last[2]);
  LoadKaplanTest(&T, sh.tables.data(), G, R, sh.last.data(), sh.combined.data());
  double res[12], pairs[9 * 7];
  ComputeLifeTests(sh.combined.data(), T, G, 0.05, res);
  Cpp_ComputeMultComp(sh.combined.data(), T, G, 0.05, pairs);
  return res[0] + pairs[3] + sink;
}

// The same analysis through the C++ workers on containers that adopt the caller's buffers (the
// path of the object interface and of other families): no copy-in / copy-out of the frame.
double WorkerAnalysis(const Data& in) {
  const int n = static_cast<int>(in.time.size());
  const auto un = static_cast<std::uint32_t>(n);
  std::vector<double> tv(in.time), sv(in.status), gv(in.group), wv(in.time.size(), 1.0);
  matrix<double> t(un, 1, tv.data(), 1), s(un, 1, sv.data(), 1), g(un, 1, gv.data(), 1),
      w(un, 1, wv.data(), 1);
  const int G = 3;
  double sizeCells[3] = {0, 0, 0};
  for (double x : gv) sizeCells[static_cast<int>(x) - 1] += 1;
  matrix<double> sizes(1, 3, sizeCells, 1);
  int count = n;
  cReorganizeResult result;
  cReorganizeData(&t, count, &s, &w, &g, &sizes, G, 0, result);
  const int R = static_cast<int>(*std::max_element(sizeCells, sizeCells + 3)) + 1;
  std::vector<double> tablesV(static_cast<std::size_t>(G) * R * 12), lastV(G), totV(G);
  matrix<double> tables(static_cast<std::uint32_t>(tablesV.size()), 1, tablesV.data(), 1),
      last(3, 1, lastV.data(), 1), tot(3, 1, totV.data(), 1);
  cRunLife(&t, &s, &w, n, &sizes, G, 0, 1, 0, 0.0, R, &tables, &last, &tot);
  double sink = 0;
  for (int k = 0; k < G; ++k) {
    matrix<double> tab(static_cast<std::uint32_t>(R), 12,
                       tablesV.data() + static_cast<std::size_t>(k) * R * 12, 1);
    const int T = static_cast<int>(lastV[static_cast<std::size_t>(k)]);
    matrix<double> na(static_cast<std::uint32_t>(T), 9);
    TransNelsonAalen(&tab, T, 0.05, 1, &na);
    double cap;
    matrix<double> mean(4, 1), q(3, 4);
    ComputeKaplanMeanMedian(&tab, 0.05, static_cast<int>(sizeCells[k]), T + 1, cap, &mean, &q);
    sink += mean(1) + q(2, 2);
  }
  int T = static_cast<int>(lastV[0] + lastV[1] + lastV[2]);
  matrix<double> combined(static_cast<std::uint32_t>(3 * G + 1), static_cast<std::uint32_t>(T));
  cLoadKaplanTest(T, &tables, G, R, &last, &combined);
  matrix<double> res(3, 4), pairs(9, 7);
  cComputeLifeTests(&combined, T, G, 0.05, &res);
  cComputeMultComp(&combined, T, G, 0.05, &pairs);
  return res(1, 1) + pairs(1, 4) + sink;
}

void BM_WorkerAnalysis(benchmark::State& state) {
  const Data d = Make(static_cast<int>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(WorkerAnalysis(d));
  state.SetLabel("the same through the C++ workers, no frame copies");
}

// Steady state: repeated calls (the frame reuses its cached blocks).
void BM_FullAnalysis(benchmark::State& state) {
  const Data d = Make(static_cast<int>(state.range(0)));
  Sheet sh(d);
  for (auto _ : state) benchmark::DoNotOptimize(FullAnalysis(sh));
  state.SetLabel("prep + 3 KM tables + NA + mean/quartiles + 3 tests + pairs");
}

// First call: the frame's block cache is emptied (untimed) before every analysis, so every
// private copy goes into fresh memory, as in the first call after loading the library.
void BM_FullAnalysisFirstCall(benchmark::State& state) {
  const Data d = Make(static_cast<int>(state.range(0)));
  Sheet sh(d);
  for (auto _ : state) {
    state.PauseTiming();
    velkor::frame_memory::trim();
    state.ResumeTiming();
    benchmark::DoNotOptimize(FullAnalysis(sh));
  }
  state.SetLabel("the same, first call (no cached frame blocks)");
}

// The frame without its block cache (every block fresh), for comparison.
void BM_FullAnalysisNoCache(benchmark::State& state) {
  const Data d = Make(static_cast<int>(state.range(0)));
  Sheet sh(d);
  velkor::frame_memory::set_caching(false);
  for (auto _ : state) benchmark::DoNotOptimize(FullAnalysis(sh));
  velkor::frame_memory::set_caching(true);
  state.SetLabel("the same, block cache off");
}

void BM_SortPairs(benchmark::State& state) {
  const Data d = Make(static_cast<int>(state.range(0)));
  std::vector<std::pair<double, double>> base;
  for (std::size_t i = 0; i < d.time.size(); ++i) base.emplace_back(d.time[i], d.status[i]);
  for (auto _ : state) {
    auto v = base;
    std::sort(v.begin(), v.end());
    benchmark::DoNotOptimize(v.data());
  }
  state.SetLabel("std::sort of (time, status) pairs");
}

BENCHMARK(BM_FullAnalysis)->Arg(10000)->Arg(100000)->Arg(1048576)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FullAnalysisFirstCall)
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(1048576)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FullAnalysisNoCache)
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(1048576)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WorkerAnalysis)->Arg(10000)->Arg(100000)->Arg(1048576)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SortPairs)->Arg(10000)->Arg(100000)->Arg(1048576)->Unit(benchmark::kMillisecond);

int WriteCsv(const char* dir) {
  for (int n : {10000, 100000, 1048576}) {
    const Data d = Make(n);
    const std::string path = std::string(dir) + "/surv_" + std::to_string(n) + ".csv";
    std::FILE* f = std::fopen(path.c_str(), "w");
    if (!f) return 1;
    std::fputs("time,status,group\n", f);
    for (int i = 0; i < n; ++i)
      std::fprintf(f, "%.2f,%d,%d\n", d.time[static_cast<std::size_t>(i)],
                   static_cast<int>(d.status[static_cast<std::size_t>(i)]),
                   static_cast<int>(d.group[static_cast<std::size_t>(i)]));
    std::fclose(f);
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "--write-csv") == 0) return WriteCsv(argv[2]);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
