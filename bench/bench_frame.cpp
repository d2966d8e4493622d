// Cost of the flat-entry frame: one private copy in and one copy back per array, nothing else.
// Compares a call through velkor::flat_call (steady state, the frame's block cache warm; and with
// the cache switched off) with the same work done on hand-made copies in fresh allocations.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "core/frame.h"
#include "core/frame_memory.h"

namespace {

constexpr long long kN = 1048576;

// A light worker: out = 2 * in (one pass), so the copies dominate.
int scale_worker(matrix<double>* in, matrix<double>* out) {
  const std::uint64_t n = in->count;
  for (std::uint64_t i = 0; i < n; ++i) out->data[i] = 2.0 * in->data[i];
  return 0;
}

void BM_FrameCall(benchmark::State& st) {
  std::vector<double> in(kN, 1.5), out(kN, 0.0);
  for (auto _ : st) {
    const int s = velkor::flat_call([&](velkor::FlatFrame& f) {
      return scale_worker(&f.in(in.data(), kN), &f.out(out.data(), kN));
    });
    benchmark::DoNotOptimize(s);
    benchmark::ClobberMemory();
  }
  st.SetBytesProcessed(st.iterations() * kN * 8 * 4);
}

// The same with the block cache off: every private copy goes into freshly mapped memory.
void BM_FrameCallNoCache(benchmark::State& st) {
  std::vector<double> in(kN, 1.5), out(kN, 0.0);
  velkor::frame_memory::set_caching(false);
  for (auto _ : st) {
    const int s = velkor::flat_call([&](velkor::FlatFrame& f) {
      return scale_worker(&f.in(in.data(), kN), &f.out(out.data(), kN));
    });
    benchmark::DoNotOptimize(s);
    benchmark::ClobberMemory();
  }
  velkor::frame_memory::set_caching(true);
  st.SetBytesProcessed(st.iterations() * kN * 8 * 4);
}

// Copy in, work, copy out, by hand with fresh allocations.
void BM_HandCopies(benchmark::State& st) {
  std::vector<double> in(kN, 1.5), out(kN, 0.0);
  for (auto _ : st) {
    auto* a = new double[kN];
    auto* b = new double[kN];
    std::memcpy(a, in.data(), kN * 8);
    std::memcpy(b, out.data(), kN * 8);
    matrix<double> ma(kN, 1, a, 1), mb(kN, 1, b, 1);
    benchmark::DoNotOptimize(scale_worker(&ma, &mb));
    std::memcpy(out.data(), b, kN * 8);
    delete[] a;
    delete[] b;
    benchmark::ClobberMemory();
  }
  st.SetBytesProcessed(st.iterations() * kN * 8 * 4);
}

// The worker alone on the caller's buffers (no copies at all).
void BM_WorkerOnly(benchmark::State& st) {
  std::vector<double> in(kN, 1.5), out(kN, 0.0);
  matrix<double> ma(kN, 1, in.data(), 1), mb(kN, 1, out.data(), 1);
  for (auto _ : st) {
    benchmark::DoNotOptimize(scale_worker(&ma, &mb));
    benchmark::ClobberMemory();
  }
}

}  // namespace

BENCHMARK(BM_FrameCall)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FrameCallNoCache)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_HandCopies)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_WorkerOnly)->Unit(benchmark::kMicrosecond);
BENCHMARK_MAIN();
