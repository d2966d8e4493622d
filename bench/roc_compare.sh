#!/bin/sh
# ROC benchmark against pROC on the same data in the same run:
#   bench/roc_compare.sh [BUILD_DIR]     (default build/release; needs Rscript with pROC)
# Prints per task and n: our wall and CPU time, R's wall and CPU time, and the ratio R / ours of
# wall times and of CPU times (on a shared machine the CPU ratio is the steadier one; the
# per-threshold table runs an OpenMP loop whose other threads the CPU time does not count).
set -eu
build=${1:-build/release}
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
Rscript "$(dirname "$0")/roc_r.R" "$dir" 3 > "$dir/r.csv"
VELKOR_ROC_DATA="$dir" "$build/bench/bench_roc" --benchmark_format=csv 2>/dev/null > "$dir/ours.csv"
awk -F, '
  FNR == NR { rw[$1 $2] = $3; rc[$1 $2] = $4; next }
  /^"ROC\// {
    split($1, p, "/"); task = p[2]; n = p[3]; gsub(/"/, "", n)
    w = $3 / 1000.0; c = $4 / 1000.0   # real_time, cpu_time in milliseconds
    key = (task ~ /continuous/ ? "c" : "n") n
    printf "%-30s %8d  ours %8.4f s (cpu %8.4f)  R %8.4f s (cpu %8.4f)  ratio %6.1f (cpu %6.1f)\n",
      task, n, w, c, rw[key], rc[key], rw[key] / w, rc[key] / c
  }' "$dir/r.csv" "$dir/ours.csv"
