#!/bin/sh
# Cox regression benchmark against R's coxph on the same data, in one run:
#   1. R writes the data sets and times coxph.fit and coxph (bench/cox_r.R);
#   2. the C++ benchmark reads the same files and prints the table
#      (task, n, our CPU seconds, iterations, per iteration, R's CPU seconds, ratio).
# Both sides report the best of their repetitions (CPU time: the machine is shared).
# Usage (from the repository root, after `cmake --preset release` and building bench_cox):
#   bench/cox_bench.sh [reps]
set -e
dir=build/release/bench-cox
reps=${1:-3}
Rscript bench/cox_r.R "$dir" "$reps"
VELKOR_COX_BENCH_DIR="$dir" build/release/bench/bench_cox --benchmark_repetitions="$reps"
