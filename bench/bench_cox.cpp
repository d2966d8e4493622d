// Cox regression run times against R's coxph on the same data.
//
//   Rscript bench/cox_r.R build/release/bench-cox 3      (data sets and R's times)
//   VELKOR_COX_BENCH_DIR=build/release/bench-cox build/release/bench/bench_cox
//   (or bench/cox_bench.sh, which runs both)
//
// Tasks, at n = 10,000, 100,000 and 1,048,576 rows x 5 covariates:
//   RunCoxReg/breslow      the flat run: preparation (sort, tables), Newton-Raphson fit,
//                          criteria and tables; compared with coxph.fit(method = "breslow")
//   COX_Compute_ST/efron   the object run (complete-row filter, design, centring, true Efron,
//                          criteria, tables and the quality row with its concordance index);
//                          compared with coxph.fit(method = "efron", resid = FALSE), so the
//                          results object asks for no survival function and residuals
//                          (suppressSurvival = -1), which coxph.fit does not compute either
//   ST steps, no quality   the object run's preparation, fit and criteria through the exported
//                          workers, without the quality row (its concordance index): what the
//                          quality row costs
//   evaluation/breslow|efron  one log-likelihood + gradient + matrix evaluation (the cost of an
//                          iteration without its inversion)
// The flat run's tolerance is absolute: 1e-9 x n matches coxph's relative 1e-9 on a
// log-likelihood of order n. Without the R files the data are generated here (same design,
// another generator) and the R columns are empty.
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

#include "cox/cox.h"
#include "cox/run.h"
#include "velkor/VELKORLI1M.h"
#include "velkor/cox_objects.h"

namespace {

constexpr int kP = 5;
const long long kSizes[3] = {10000, 100000, 1048576};

std::string DataDir() {
  const char* d = std::getenv("VELKOR_COX_BENCH_DIR");
  return d ? d : "build/release/bench-cox";
}

struct Data {
  long long n = 0;
  std::vector<double> time, status, x;
};

const Data& Load(long long n) {
  static std::map<long long, Data> cache;
  auto it = cache.find(n);
  if (it != cache.end()) return it->second;
  Data d;
  d.n = n;
  const auto un = static_cast<std::size_t>(n);
  std::ifstream in(DataDir() + "/cox_" + std::to_string(n) + ".bin", std::ios::binary);
  std::vector<double> all(un * (2 + kP));
  if (in &&
      in.read(reinterpret_cast<char*>(all.data()), static_cast<std::streamsize>(all.size() * 8))) {
    d.time.assign(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(un));
    d.status.assign(all.begin() + static_cast<std::ptrdiff_t>(un),
                    all.begin() + static_cast<std::ptrdiff_t>(2 * un));
    d.x.assign(all.begin() + static_cast<std::ptrdiff_t>(2 * un), all.end());
  } else {
    std::mt19937_64 gen(42);
    std::normal_distribution<double> z;
    std::exponential_distribution<double> e(1.0);
    const double b[kP] = {0.5, -0.3, 0.2, 0, 0.1};
    d.x.resize(un * kP);
    for (auto& v : d.x) v = z(gen);
    for (std::size_t i = 0; i < un; ++i) {
      double eta = 0;
      for (int j = 0; j < kP; ++j) eta += b[j] * d.x[j * un + i];
      const double ev = e(gen) / std::exp(eta), ce = e(gen) / 0.4;
      d.time.push_back(std::round(std::min(ev, ce) * 1000) / 1000 + 0.001);
      d.status.push_back(ev <= ce ? 1.0 : 0.0);
    }
  }
  return cache.emplace(n, std::move(d)).first->second;
}

std::map<std::string, double> g_iterations;  // task/n -> iterations of our fit

std::string Key(const std::string& task, long long n) {
  return task + "/" + std::to_string(n);
}

void BM_RunCoxReg(benchmark::State& st) {
  const Data& d = Load(st.range(0));
  const int n = static_cast<int>(d.n);
  std::vector<double> beta(kP), ms(12), gt(9), ct(kP * 9), steps(kP * 4);
  std::vector<int> vs(kP);
  int iters = 0, nf = 0;
  double z = 0;
  for (auto _ : st) {
    iters = 100;
    const int rc = RunCoxReg(d.time.data(), d.status.data(), nullptr, d.x.data(), nullptr, nullptr,
                             n, kP, 1, 0, &iters, 1e-9 * n, -1, 0.05, 0, 0, nullptr, 0.05, 0, 0,
                             beta.data(), ms.data(), gt.data(), ct.data(), &z, steps.data(),
                             vs.data(), &nf, nullptr, nullptr, nullptr, nullptr);
    if (rc != 0) st.SkipWithError("RunCoxReg failed");
    benchmark::DoNotOptimize(beta.data());
  }
  g_iterations[Key("RunCoxReg/breslow", d.n)] = iters;
}

void BM_COX_Compute_ST(benchmark::State& st) {
  const Data& d = Load(st.range(0));
  const auto un = static_cast<std::uint32_t>(d.n);
  cST_DataSet ds;
  ds.add(u"time", d.time.data(), un);
  ds.add(u"status", d.status.data(), un);
  cST_FactorsInfo fi;
  for (int j = 0; j < kP; ++j) {
    ds.add(u"x" + std::u16string(1, static_cast<char16_t>(u'1' + j)),
           d.x.data() + static_cast<std::size_t>(j) * un, un);
    fi.quantitative.push_back(2 + j);
  }
  double iters = 0;
  for (auto _ : st) {
    COX_Param par;
    par.ties = 1;
    cCOX_Results res;
    res.suppressSurvival = -1;
    VELKORInfo info;
    if (COX_Compute_ST(ds, par, res, fi, info) != 0) st.SkipWithError("COX_Compute_ST failed");
    iters = res.iterations;
    benchmark::DoNotOptimize(res.beta.data);
  }
  g_iterations[Key("COX_Compute_ST/efron", d.n)] = iters;
}

// The object run's steps without the quality row (preparation, fit, criteria through the
// exported workers): the part of COX_Compute_ST that coxph.fit also does, measured to show what
// the concordance index of the quality row costs.
void BM_ObjectSteps(benchmark::State& st) {
  const Data& d = Load(st.range(0));
  const auto un = static_cast<std::uint32_t>(d.n);
  cST_DataSet ds;
  ds.add(u"time", d.time.data(), un);
  ds.add(u"status", d.status.data(), un);
  cST_FactorsInfo fi;
  for (int j = 0; j < kP; ++j) {
    ds.add(u"x" + std::u16string(1, static_cast<char16_t>(u'1' + j)),
           d.x.data() + static_cast<std::size_t>(j) * un, un);
    fi.quantitative.push_back(2 + j);
  }
  double iters = 0;
  for (auto _ : st) {
    COX_Param par;
    par.ties = 1;
    cCOX_Results res;
    if (ReorganizeDataCox_ST(ds, par, res, fi) != 0 || OptimizeCoxModel_ST(par, res, {}) != 0 ||
        ComputeCritCox_ST(par, res) != 0)
      st.SkipWithError("object steps failed");
    iters = res.iterations;
    benchmark::DoNotOptimize(res.beta.data);
  }
  g_iterations[Key("ST steps, no quality", d.n)] = iters;
}

template <velkor::cox::TieTerms Terms>
void BM_Evaluation(benchmark::State& st) {
  const Data& d = Load(st.range(0));
  const auto un = static_cast<std::uint32_t>(d.n);
  std::vector<double> t = d.time, s = d.status, x = d.x;
  matrix<double> T(un, 1, t.data(), 1), S(un, 1, s.data(), 1), X(un, kP, x.data(), 1);
  matrix<double> C2(un, 1), C3(un, 1), K(un, 1), Z(1, 1);
  for (std::uint32_t i = 0; i < un; ++i) C3.data[i] = 1.0;
  Z.data[0] = static_cast<double>(un);
  matrix<int> nt(1, 1), nc(1, 1), bs(1, un), bz(1, un), be(1, un);
  int mt = 0;
  velkor::cox::cReorganizeDataCox(&T, static_cast<int>(un), kP, &S, &C2, &C3, &X, &K, &Z, 1, &nt,
                                  &nc, &bs, &bz, &be, &mt);
  const velkor::cox::RiskLayout lay = velkor::cox::LayoutFromTables(un, 1, &Z, &nt, &bs, &bz, &be);
  const std::vector<double> beta = {0.5, -0.3, 0.2, 0, 0.1};
  const std::vector<double> rows = velkor::cox::RowMajorCopy(x.data(), un, un, kP);
  double ll = 0;
  std::vector<double> g(kP), h(kP * kP);
  for (auto _ : st) {
    velkor::cox::EvaluateRiskSets(lay, x.data(), un, kP, s.data(), beta.data(), Terms, ll, g.data(),
                                  h.data(), rows.data());
    benchmark::DoNotOptimize(ll);
  }
}

// Records the CPU time (seconds) of every run for the summary table: the best over the
// repetitions (--benchmark_repetitions), as R's side takes the best of its repetitions. On a
// shared machine the best run is the one least disturbed by other work.
class Recorder : public benchmark::ConsoleReporter {
 public:
  std::map<std::string, double> seconds;
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) {
      if (r.run_type != Run::RT_Iteration) continue;
      std::string name = r.benchmark_name();
      const auto cut = name.find("/min_time");
      if (cut != std::string::npos) name.resize(cut);
      const double t = r.GetAdjustedCPUTime() / 1e3;  // reported in ms
      const auto it = seconds.find(name);
      if (it == seconds.end() || t < it->second) seconds[name] = t;
    }
    ConsoleReporter::ReportRuns(runs);
  }
};

struct RTime {
  double fit = NAN, full = NAN, iterations = NAN;
};

std::map<std::string, RTime> ReadR() {
  std::map<std::string, RTime> r;
  std::ifstream in(DataDir() + "/r_times.csv");
  std::string line;
  std::getline(in, line);
  while (std::getline(in, line)) {
    std::stringstream ss(line);
    std::string n, ties, fit, full, it;
    std::getline(ss, n, ',');
    std::getline(ss, ties, ',');
    std::getline(ss, fit, ',');
    std::getline(ss, full, ',');
    std::getline(ss, it, ',');
    auto unq = [](std::string s) {
      return s.size() > 1 && s[0] == '"' ? s.substr(1, s.size() - 2) : s;
    };
    r[unq(ties) + "/" + std::to_string(static_cast<long long>(std::stod(n)))] = {
        std::stod(fit), std::stod(full), std::stod(it)};
  }
  return r;
}

}  // namespace

BENCHMARK(BM_RunCoxReg)
    ->Arg(kSizes[0])
    ->Arg(kSizes[1])
    ->Arg(kSizes[2])
    ->Unit(benchmark::kMillisecond)
    ->MinTime(0.2);
BENCHMARK(BM_COX_Compute_ST)
    ->Arg(kSizes[0])
    ->Arg(kSizes[1])
    ->Arg(kSizes[2])
    ->Unit(benchmark::kMillisecond)
    ->MinTime(0.2);
BENCHMARK(BM_ObjectSteps)
    ->Arg(kSizes[0])
    ->Arg(kSizes[1])
    ->Arg(kSizes[2])
    ->Unit(benchmark::kMillisecond)
    ->MinTime(0.2);
BENCHMARK(BM_Evaluation<velkor::cox::TieTerms::BreslowCount>)
    ->Name("BM_Evaluation/breslow")
    ->Arg(kSizes[0])
    ->Arg(kSizes[1])
    ->Arg(kSizes[2])
    ->Unit(benchmark::kMillisecond)
    ->MinTime(0.2);
BENCHMARK(BM_Evaluation<velkor::cox::TieTerms::EfronWeighted>)
    ->Name("BM_Evaluation/efron")
    ->Arg(kSizes[0])
    ->Arg(kSizes[1])
    ->Arg(kSizes[2])
    ->Unit(benchmark::kMillisecond)
    ->MinTime(0.2);

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  Recorder rec;
  benchmark::RunSpecifiedBenchmarks(&rec);
  const auto r = ReadR();
  std::printf("\n%-22s %9s %10s %6s %10s %12s %12s %6s %8s\n", "task", "n", "ours (s)", "iter",
              "per iter", "R fit (s)", "R coxph (s)", "R it", "R fit/us");
  struct Row {
    const char* task;
    const char* bench;
    const char* ties;
  };
  for (const Row& row : {Row{"RunCoxReg/breslow", "BM_RunCoxReg", "breslow"},
                         Row{"COX_Compute_ST/efron", "BM_COX_Compute_ST", "efron"},
                         Row{"ST steps, no quality", "BM_ObjectSteps", "efron"}}) {
    for (long long n : kSizes) {
      const std::string b = std::string(row.bench) + "/" + std::to_string(n);
      if (!rec.seconds.count(b)) continue;
      const double ours = rec.seconds.at(b);
      const double it = g_iterations[Key(row.task, n)];
      const auto rt = r.count(std::string(row.ties) + "/" + std::to_string(n))
                          ? r.at(std::string(row.ties) + "/" + std::to_string(n))
                          : RTime{};
      std::printf("%-22s %9lld %10.4f %6.0f %10.5f %12.4f %12.4f %6.0f %8.1f\n", row.task, n, ours,
                  it, it > 0 ? ours / it : NAN, rt.fit, rt.full, rt.iterations, rt.fit / ours);
    }
  }
  benchmark::Shutdown();
  return 0;
}
