#!/usr/bin/env bash
# Times the full Kaplan-Meier analysis (bench/bench_survival.cpp) and R's survfit + survdiff on the
# same data in the same run, and prints the table: task, n, ours, R, ratio R / ours. The std::sort
# of the (time, status) pairs is printed beside it as the yardstick of the performance target.
# All times are CPU times (the machine may be shared with other jobs, which distorts wall times),
# best of 5 repetitions on our side as on R's (bench/survival_r.R).
#   bench/survival_compare.sh            (after cmake --build --preset release --target bench_survival)
#   BEFORE=path/to/other/bench_survival bench/survival_compare.sh
#                                        also times another build of the same benchmark in the same
#                                        run (rows prefixed "before:"), e.g. the previous library
set -euo pipefail
cd "$(dirname "$0")/.."
bin=build/release/bench/bench_survival
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
"$bin" --write-csv "$dir"
Rscript bench/survival_r.R "$dir" > "$dir/r.txt"
reps="--benchmark_repetitions=5 --benchmark_report_aggregates_only=false"
"$bin" --benchmark_min_time=0.3 $reps --benchmark_format=csv 2>/dev/null > "$dir/ours.csv"
if [ -n "${BEFORE:-}" ]; then
  "$BEFORE" --benchmark_min_time=0.3 $reps --benchmark_format=csv --benchmark_filter='BM_FullAnalysis/|BM_SortPairs' 2>/dev/null |
    sed 's/^"BM_FullAnalysis/"BM_before:FullAnalysis/; /^"BM_SortPairs/d' >> "$dir/ours.csv"
fi
awk -F, -v rfile="$dir/r.txt" '
  BEGIN { while ((getline line < rfile) > 0) { split(line, a, " "); r[a[1]] = (a[2] + a[3]) * 1000 } }
  /^"BM_/ {
    gsub(/"/, "", $1); split($1, p, "/"); task = p[1]; n = p[2];
    if (n ~ /_/) next  # aggregate rows (mean, median, ...): the best repetition is kept instead
    # cpu_time is column 4 (milliseconds, as the benchmarks set their unit)
    if (!((task, n) in ms) || $4 < ms[task, n]) ms[task, n] = $4
    ns[n] = 1
  }
  END {
    printf "%-28s %9s %14s %12s %10s %12s\n", "task", "n", "ours (ms CPU)", "R (ms CPU)", "R / ours", "ours / sort"
    split("BM_FullAnalysis BM_FullAnalysisFirstCall BM_FullAnalysisNoCache BM_WorkerAnalysis BM_before:FullAnalysis", tasks, " ")
    for (k = 1; k <= 5; ++k) for (n in ns) {
      t = tasks[k]
      if (!((t, n) in ms)) continue
      printf "%-28s %9d %14.1f %12.1f %10.1f %12.2f\n", t, n, ms[t, n], r[n], r[n] / ms[t, n], ms[t, n] / ms["BM_SortPairs", n]
    }
    for (n in ns) printf "%-28s %9d %12.1f\n", "BM_SortPairs (yardstick)", n, ms["BM_SortPairs", n]
  }' "$dir/ours.csv" | (read -r header; echo "$header"; sort -k1,1 -k2,2n)
