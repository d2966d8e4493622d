#!/usr/bin/env bash
# Competing-risks benchmark against R's cmprsk::cuminc on the same rows, in one run:
#   bench/competing_bench.sh [build dir, default build/release] [data dir]
# Prints: task, n, our wall and CPU seconds, R's (cmprsk::cuminc) wall and CPU seconds on the same
# rows, and the ratio of CPU times R / ours (the machine may be shared: CPU time is the fair
# measure; wall times are shown for reference). Both sides report the best of their repeats: R
# the fastest of its runs, ours the fastest of 5 benchmark repetitions.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/release}
dir=${2:-/tmp/velkor_competing_bench}
Rscript bench/competing_r.R "$dir" >/dev/null
VELKOR_BENCH_DATA="$dir" "$build/bench/bench_competing" --benchmark_format=csv \
  --benchmark_min_time=0.2 --benchmark_repetitions=5 2>/dev/null >"$dir/ours.csv"
# BEFORE=path/to/other/bench_competing: also times another build (e.g. the previous library) in
# the same run; its rows are prefixed "before_".
if [ -n "${BEFORE:-}" ]; then
  VELKOR_BENCH_DATA="$dir" "$BEFORE" --benchmark_format=csv --benchmark_min_time=0.2 \
    --benchmark_filter='cuminc_flat/|cuminc_equivalent' --benchmark_repetitions=5 2>/dev/null |
    sed 's/^"BM_/"BM_before_/' | grep '^"BM_' >>"$dir/ours.csv"
fi
awk -F, '
  FNR == 1 { file++ }
  file == 1 && FNR > 1 { rw[$1] = $2; rc[$1] = $3 }
  file == 2 && $1 ~ /^"BM_/ && $1 !~ /_(mean|median|stddev|cv)"$/ {
    gsub(/"/, "", $1);
    if (!($1 in cpu) || $4 < cpu[$1]) { wall[$1] = $3; cpu[$1] = $4 }
    if (!($1 in seen)) { seen[$1] = 1; order[++count] = $1 }
  }
  END {
    printf "%-18s %8s %9s %9s %9s %9s %7s\n", "task", "n", "ours wall", "ours CPU", "R wall", "R CPU", "R/ours"
    for (k = 1; k <= count; k++) {
      name = order[k]; split(name, a, "/"); task = substr(a[1], 4); n = a[2];
      w = wall[name] / 1000.0; c = cpu[name] / 1000.0;   # milliseconds to seconds
      if (task ~ /cuminc_equivalent$/ || task ~ /cuminc_flat/)
        printf "%-18s %8d %9.4f %9.4f %9.4f %9.4f %7.1f\n", task, n, w, c, rw[n], rc[n], rc[n] / c;
      else
        printf "%-18s %8d %9.4f %9.4f %9s %9s %7s\n", task, n, w, c, "-", "-", "-";
    }
  }
' "$dir/r_times.csv" "$dir/ours.csv"
