// ROC benchmark: Cpp_ComputeROC (curve, area, DeLong / Bamber / Hanley-McNeil SE and test) on the
// data sets bench/roc_r.R writes, so that bench/roc_compare.sh can set our times beside pROC's on
// the same data. Without VELKOR_ROC_DATA the same kind of data is generated here.
//   ROC/core/<n>            curve + AUC + DeLong SE + test (optional outputs other than the
//                           curve skipped) - the work pROC's roc + auc + ci.auc(delong) does
//   ROC/bamber/<n>          the same with Bamber's SE
// Output tables are sized to the k thresholds (known from a first call), as a caller would.
//   ROC/*_continuous/<n>    the same on continuous values (k = n thresholds)
//   ROC/threshold_table/<n> core plus the per-threshold statistics table (13 statistics with
//                           intervals at every threshold), costs and optimal thresholds
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "velkor/roc.h"

namespace {

struct Data {
  std::vector<double> status, values;
};

Data load(int n, bool continuous = false) {
  Data d;
  if (const char* dir = std::getenv("VELKOR_ROC_DATA")) {
    const std::string path =
        std::string(dir) + (continuous ? "/roc_c" : "/roc_n") + std::to_string(n) + ".bin";
    if (FILE* f = std::fopen(path.c_str(), "rb")) {
      d.status.resize(static_cast<std::size_t>(n));
      d.values.resize(static_cast<std::size_t>(n));
      const bool ok =
          std::fread(d.status.data(), sizeof(double), d.status.size(), f) == d.status.size() &&
          std::fread(d.values.data(), sizeof(double), d.values.size(), f) == d.values.size();
      std::fclose(f);
      if (ok) return d;
    }
  }
  std::mt19937_64 rng(static_cast<std::uint64_t>(n));
  std::uniform_real_distribution<double> u(0, 1);
  std::normal_distribution<double> z(0, 1);
  d.status.resize(static_cast<std::size_t>(n));
  d.values.resize(static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i) {
    d.status[i] = u(rng) < 0.3 ? 1.0 : 0.0;
    d.values[i] = z(rng) + d.status[i];
    if (!continuous) d.values[i] = std::round(d.values[i] * 1000) / 1000;
  }
  return d;
}

void run(benchmark::State& state, int seMethod, bool table, bool continuous = false) {
  const int n = static_cast<int>(state.range(0));
  const Data d = load(n, continuous);
  const double unitCosts[4] = {0, 1, 1, 0};
  int counts[3];
  // Output tables sized to the k thresholds, as a caller does after a first call for k.
  std::vector<double> auc(9);
  Cpp_ComputeROC(d.status.data(), d.values.data(), nullptr, n, 1, 0.05, seMethod, 0, 0, 0, 0.0,
                 unitCosts, 0, nullptr, nullptr, nullptr, auc.data(), nullptr, counts);
  const int k = counts[0];
  const std::size_t uk = static_cast<std::size_t>(k);
  std::vector<double> curve(3 * (uk + 1));
  std::vector<double> stats(table ? 44 * uk : 0), costs(table ? uk : 0);
  std::vector<double> optimal(table ? 4 * uk : 0);
  for (auto _ : state) {
    const int st = Cpp_ComputeROC(d.status.data(), d.values.data(), nullptr, n, 1, 0.05, seMethod,
                                  0, 0, 0, 0.0, unitCosts, k, curve.data(),
                                  table ? stats.data() : nullptr, table ? costs.data() : nullptr,
                                  auc.data(), table ? optimal.data() : nullptr, counts);
    if (st != 0) state.SkipWithError("ComputeROC failed");
    benchmark::DoNotOptimize(auc.data());
  }
  state.counters["auc"] = auc[0];
  state.counters["thresholds"] = counts[0];
}

void Core(benchmark::State& s) {
  run(s, 2, false);
}
void Bamber(benchmark::State& s) {
  run(s, 1, false);
}
void ThresholdTable(benchmark::State& s) {
  run(s, 2, true);
}
void CoreContinuous(benchmark::State& s) {
  run(s, 2, false, true);
}
void ThresholdTableContinuous(benchmark::State& s) {
  run(s, 2, true, true);
}

}  // namespace

BENCHMARK(Core)
    ->Name("ROC/core")
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(1048576)
    ->Unit(benchmark::kMillisecond)
    ->MinTime(0.3);
BENCHMARK(Bamber)
    ->Name("ROC/bamber")
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(1048576)
    ->Unit(benchmark::kMillisecond)
    ->MinTime(0.3);
BENCHMARK(ThresholdTable)
    ->Name("ROC/threshold_table")
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(1048576)
    ->Unit(benchmark::kMillisecond)
    ->MinTime(0.3);

// Continuous values (every value distinct, k = n).
BENCHMARK(CoreContinuous)
    ->Name("ROC/core_continuous")
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(1048576)
    ->Unit(benchmark::kMillisecond)
    ->MinTime(0.3);
BENCHMARK(ThresholdTableContinuous)
    ->Name("ROC/threshold_table_continuous")
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(1048576)
    ->Unit(benchmark::kMillisecond)
    ->MinTime(0.3);

BENCHMARK_MAIN();
