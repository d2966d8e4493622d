// Parametric survival regression: time of a complete regression through Cpp_RunParamReg (null and
// full model, tables, residuals: what survreg also does) and of one log-likelihood-with-derivatives
// pass, on the data written by bench/parametric_r.R (set VELKOR_PARAM_BENCH_DIR;
// bench/parametric_compare.sh runs both and prints the comparison). Without that directory it
// generates comparable data. Counters: iterations of the final fit. CPU time is that of the whole
// process (all OpenMP threads), comparable with the CPU time R reports.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "parametric/fit.h"
#include "parametric/likelihood.h"
#include "velkor/parametric.h"

namespace {

constexpr int kP = 5;

struct Data {
  int n = 0;
  std::vector<double> time, code, bounds, x;  // bounds n x 2
};

Data Load(const std::string& scen, int n) {
  Data d;
  d.n = n;
  const char* dir = std::getenv("VELKOR_PARAM_BENCH_DIR");
  std::vector<double> all(static_cast<std::size_t>(n) * (3 + kP));
  bool ok = false;
  if (dir) {
    std::ifstream in(std::string(dir) + "/" + scen + "_" + std::to_string(n) + ".bin",
                     std::ios::binary);
    ok = static_cast<bool>(in.read(reinterpret_cast<char*>(all.data()),
                                   static_cast<std::streamsize>(all.size() * sizeof(double))));
  }
  if (!ok) {  // synthetic stand-in: Weibull or log-normal times, right-censored
    std::mt19937_64 rng(42 + n);
    std::normal_distribution<double> z;
    std::exponential_distribution<double> ex(1.0), cx(1.0 / 8);
    const bool weibull = scen.rfind("weibull", 0) == 0;
    for (int i = 0; i < n; ++i) {
      double eta = 1.0;
      const double b[kP] = {0.3, -0.2, 0.1, 0.5, 0};
      for (int j = 0; j < kP; ++j) {
        const double v = j == 4 ? (z(rng) > 0.25 ? 1.0 : 0.0) : z(rng);
        all[static_cast<std::size_t>(3 + j) * n + i] = v;
        eta += b[j] * v;
      }
      const double t = std::exp(eta + 0.7 * (weibull ? std::log(ex(rng)) : z(rng))), c = cx(rng);
      all[i] = std::min(t, c);
      all[static_cast<std::size_t>(n) + i] = t <= c ? 1.0 : 0.0;
      all[2 * static_cast<std::size_t>(n) + i] = all[i];
    }
  }
  const std::size_t N = static_cast<std::size_t>(n);
  d.time.assign(all.begin(), all.begin() + static_cast<long>(N));
  d.code.assign(all.begin() + static_cast<long>(N), all.begin() + static_cast<long>(2 * N));
  d.bounds.assign(all.begin(), all.begin() + static_cast<long>(N));  // lower = time
  d.bounds.insert(d.bounds.end(), all.begin() + static_cast<long>(2 * N),
                  all.begin() + static_cast<long>(3 * N));
  d.x.assign(all.begin() + static_cast<long>(3 * N), all.end());
  return d;
}

void Regression(benchmark::State& state, std::string scen, int dist) {
  const int n = static_cast<int>(state.range(0));
  const Data d = Load(scen, n);
  const int k = 2, np = kP + k;
  int iterations = 0, status = 0;
  std::vector<double> th(np), cov(np * np), crit(14), pt(np * 6), tests(9), hist(kP * 4),
      res(static_cast<std::size_t>(n) * 4), kept(kP);
  for (auto _ : state) {
    // through the flat entry point, as the front end calls it: the frame copies the inputs (the
    // driver log-transforms its private copy of the times in place)
    int it = 100, q = 0;
    // absolute tolerance 1e-9 x n: survreg's default relative change 1e-9 of a log-likelihood
    // that is of the order of n
    status = Cpp_RunParamReg(d.time.data(), n, kP, d.code.data(), d.bounds.data(), d.x.data(),
                             nullptr, dist, -1, 0.05, 0.1, &it, 1e-9 * n, 0, 0.0, -1, 0.05,
                             th.data(), cov.data(), crit.data(), pt.data(), tests.data(),
                             hist.data(), res.data(), kept.data(), &q);
    iterations = it;
    benchmark::DoNotOptimize(th[0]);
  }
  state.counters["iterations"] = iterations;
  state.counters["status"] = status;
}

void OnePass(benchmark::State& state, std::string scen, int dist) {
  const int n = static_cast<int>(state.range(0));
  Data d = Load(scen, n);
  for (auto& v : d.time) v = std::log(v);
  for (int i = 0; i < n; ++i)
    d.bounds[static_cast<std::size_t>(n + i)] = std::log(d.bounds[static_cast<std::size_t>(n + i)]);
  std::vector<double> theta = {0.3, -0.2, 0.1, 0.5, 0.0, 1.0, 0.7}, g(7), h(49);
  double ll = 0;
  for (auto _ : state) {
    velkor::param::EvalParam(d.time.data(), d.code.data(), d.bounds.data() + n, d.x.data(), nullptr,
                             static_cast<std::size_t>(n), static_cast<std::size_t>(n), kP, 2,
                             theta.data(), dist, ll, g.data(), h.data());
    benchmark::DoNotOptimize(ll);
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<int> sizes = {10000, 100000, 1048576};
  if (const char* s = std::getenv("VELKOR_PARAM_BENCH_SIZES")) {
    sizes.clear();
    for (const char* p = s; *p;) {
      sizes.push_back(std::atoi(p));
      while (*p && *p != ',') ++p;
      if (*p == ',') ++p;
    }
  }
  for (const char* law : {"weibull", "lognormal"}) {
    for (const char* cens : {"right", "interval"}) {
      const std::string scen = std::string(law) + "_" + cens;
      const int dist = std::string(law) == "weibull" ? 2 : 3;
      for (int n : sizes) {
        const int reps = n >= 1000000 ? 2 : (n >= 100000 ? 3 : 10);
        benchmark::RegisterBenchmark(("regression/" + scen).c_str(), Regression, scen, dist)
            ->Arg(n)
            ->Iterations(reps)
            ->MeasureProcessCPUTime()
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("onepass/" + scen).c_str(), OnePass, scen, dist)
            ->Arg(n)
            ->Iterations(reps)
            ->MeasureProcessCPUTime()
            ->Unit(benchmark::kMillisecond);
      }
    }
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
