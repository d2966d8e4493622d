#!/usr/bin/env bash
# Competing-risks benchmark against R's cmprsk::cuminc on the same rows, in one run:
#   bench/competing_bench.sh [build dir, default build/release] [data dir]
# Prints: task, n, ours (s), R (s), ratio R / ours.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/release}
dir=${2:-/tmp/velkor_competing_bench}
Rscript bench/competing_r.R "$dir" >/dev/null
VELKOR_BENCH_DATA="$dir" "$build/bench/bench_competing" --benchmark_format=csv \
  --benchmark_min_time=0.2 2>/dev/null >"$dir/ours.csv"
awk -F, '
  FNR == 1 { file++ }
  file == 1 && FNR > 1 { r[$1] = $2 }
  file == 2 && $1 ~ /^"BM_/ {
    gsub(/"/, "", $1); split($1, a, "/"); task = substr(a[1], 4); n = a[2];
    ours = $4 / 1000.0;   # real_time in ms
    rt = (task == "cuminc_equivalent") ? r[n] : "";
    if (rt == "") printf "%-18s %9d %10.4f %10s %8s\n", task, n, ours, "-", "-";
    else printf "%-18s %9d %10.4f %10.4f %8.1f\n", task, n, ours, rt, rt / ours;
  }
  BEGIN { printf "%-18s %9s %10s %10s %8s\n", "task", "n", "ours (s)", "R (s)", "R/ours" }
' "$dir/r_times.csv" "$dir/ours.csv"
