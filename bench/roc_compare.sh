#!/bin/sh
# ROC benchmark against pROC on the same data in the same run:
#   bench/roc_compare.sh [BUILD_DIR]     (default build/release; needs Rscript with pROC)
# Prints: task, n, ours (s), R (s), ratio R / ours.
set -eu
build=${1:-build/release}
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
Rscript "$(dirname "$0")/roc_r.R" "$dir" 3 > "$dir/r.csv"
VELKOR_ROC_DATA="$dir" "$build/bench/bench_roc" --benchmark_format=csv 2>/dev/null > "$dir/ours.csv"
awk -F, '
  FNR == NR { r[$1] = $2; next }
  /^"ROC\// {
    split($1, p, "/"); task = p[2]; n = p[3]; gsub(/"/, "", n)
    t = $4 / 1000.0   # real_time in milliseconds
    printf "%-16s %8d  ours %9.4f s  R %9.4f s  ratio %6.1f\n", task, n, t, r[n], r[n] / t
  }' "$dir/r.csv" "$dir/ours.csv"
