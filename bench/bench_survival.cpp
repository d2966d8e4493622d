// The full descriptive survival analysis through the flat entry points, at the sizes of a small,
// a large and the largest spreadsheet (10,000, 100,000 and 1,048,576 rows): preparation
// (ReorganizeData), product-limit tables of 3 groups (RunLife), Nelson-Aalen, mean and quartiles
// of each group, the merged risk sets and the three tests with pairwise comparisons. A plain
// std::sort of the (time, status) pairs runs beside it as the yardstick.
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

// One complete analysis; returns the log-rank statistic so the work cannot be dropped.
double FullAnalysis(const Data& in) {
  const int n = static_cast<int>(in.time.size());
  std::vector<double> t(in.time), s(in.status), g(in.group), w(in.time.size(), 1.0);
  const int G = 3;
  double sizes[3] = {0, 0, 0};
  for (double x : g) sizes[static_cast<int>(x) - 1] += 1;
  double maxTime = 0;
  ReorganizeData(t.data(), n, s.data(), w.data(), g.data(), sizes, G, 0, &maxTime);
  const int R = static_cast<int>(*std::max_element(sizes, sizes + 3)) + 1;
  std::vector<double> tables(static_cast<std::size_t>(G) * R * 12), last(G), tot(G);
  RunLife(t.data(), s.data(), w.data(), n, sizes, G, 0, 1, 0, 0.0, R, tables.data(), last.data(),
          tot.data());
  double sink = 0;
  for (int k = 0; k < G; ++k) {
    const double* tab = tables.data() + static_cast<std::size_t>(k) * R * 12;
    const int T = static_cast<int>(last[static_cast<std::size_t>(k)]);
    std::vector<double> na(static_cast<std::size_t>(T) * 9);
    Cpp_TransNelsonAalen(tab, R, T, 0.05, 1, na.data());
    double cap, mean[4], q[12];
    Cpp_ComputeKaplanMeanMedian(tab, R, T + 1, 0.05, static_cast<int>(sizes[k]), &cap, mean, q);
    sink += mean[0] + q[4];
  }
  // The merged table has at most as many columns as the groups have rows together.
  int T = static_cast<int>(last[0] + last[1] + last[2]);
  std::vector<double> combined(static_cast<std::size_t>(3 * G + 1) * static_cast<std::size_t>(T));
  LoadKaplanTest(&T, tables.data(), G, R, last.data(), combined.data());
  double res[12], pairs[9 * 7];
  ComputeLifeTests(combined.data(), T, G, 0.05, res);
  Cpp_ComputeMultComp(combined.data(), T, G, 0.05, pairs);
  return res[0] + sink;
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

void BM_FullAnalysis(benchmark::State& state) {
  const Data d = Make(static_cast<int>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(FullAnalysis(d));
  state.SetLabel("prep + 3 KM tables + NA + mean/quartiles + 3 tests + pairs");
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
