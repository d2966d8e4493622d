#!/bin/sh
# Parametric regression against survreg on the same data in the same run.
#   bench/parametric_compare.sh [BUILD_DIR] [SIZES]    (defaults: build/release, 10000,100000,1048576)
# Needs Rscript with survival. Prints: task, n, our wall and CPU time, survreg's, the ratios, and
# the iterations of each (ours: the final fit) and our status (-1: the fit ended at the iteration
# limit). The largest size uses fewer repetitions.
# With VELKOR_PARAM_BASELINE=/path/to/bench_parametric (an earlier build of this benchmark) the
# same data are timed with it too, and its CPU time and survreg's ratio to it are appended.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
build=${1:-$here/../build/release}
sizes=${2:-10000,100000,1048576}
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
Rscript "$here/parametric_r.R" "$dir" $(echo "$sizes" | tr ',' ' ') >/dev/null
run() {
  VELKOR_PARAM_BENCH_DIR=$dir VELKOR_PARAM_BENCH_SIZES=$sizes \
    "$1" --benchmark_filter=regression --benchmark_format=csv 2>/dev/null
}
run "$build/bench/bench_parametric" >"$dir/ours.csv"
if [ -n "${VELKOR_PARAM_BASELINE:-}" ]; then
  run "$VELKOR_PARAM_BASELINE" >"$dir/base.csv"
else
  : >"$dir/base.csv"
fi
awk -F, '
  FILENAME ~ /r_times/ { if (FNR > 1) { key = $1 "," $2; rw[key] = $3; rc[key] = $4; ri[key] = $5 } next }
  FILENAME ~ /base/ { if (/^"regression/) { gsub(/"/, "", $1); split($1, p, "/"); bc[p[2] "," p[3]] = $4 / 1000; nb++ } next }
  /^"regression/ {
    gsub(/"/, "", $1); split($1, p, "/"); key = p[2] "," p[3]
    ow = $3 / 1000; oc = $4 / 1000   # ms -> s
    line = sprintf("%-20s %8s %9.3f %9.3f %9.3f %9.3f %7.1f %7.1f %5d %5d %4d", p[2], p[3], ow, oc,
                   rw[key], rc[key], rw[key] / ow, rc[key] / oc, $(NF - 1), ri[key], $NF)
    out[++nout] = line; keys[nout] = key
  }
  BEGIN { printf "%-20s %8s %9s %9s %9s %9s %7s %7s %5s %5s %4s", "task", "n", "ours_s",
          "ours_cpu", "R_s", "R_cpu", "ratio", "ratio_c", "it", "R_it", "st" }
  END {
    if (nb) printf " %9s %7s", "base_cpu", "base_rc"
    printf "\n"
    for (i = 1; i <= nout; ++i) {
      printf "%s", out[i]
      if (nb) printf " %9.3f %7.1f", bc[keys[i]], rc[keys[i]] / bc[keys[i]]
      printf "\n"
    }
  }
' "$dir/r_times.csv" "$dir/base.csv" "$dir/ours.csv"
