#!/usr/bin/env bash
# Times the velkor tool on a 1,048,576-row CSV (five columns, three groups): CSV parsing rate, the
# `km` run end to end against the library calls alone (--timing), and R's read.csv + survfit +
# survdiff on the same file in the same run. Usage: bench/frontdoors_cli.sh [rows] (after a release
# build of the velkor target). Keep it short on a shared machine: three runs each.
set -euo pipefail
cd "$(dirname "$0")/.."
rows=${1:-1048576}
csv=$(mktemp --suffix=.csv)
trap 'rm -f "$csv"' EXIT
/usr/bin/python3 - "$rows" "$csv" <<'PY'
import sys
import numpy as np
n, path = int(sys.argv[1]), sys.argv[2]
rng = np.random.default_rng(1)
g = rng.integers(1, 4, n)
t = np.round(rng.exponential(300 / g), 1) + 0.1
s = rng.integers(1, 3, n)
age = rng.integers(30, 90, n)
w = np.round(rng.normal(70, 10, n), 2)
with open(path, "w") as f:
    f.write("time,status,group,age,weight\n")
    f.write("\n".join(f"{a},{b},{c},{d},{e}" for a, b, c, d, e in zip(t, s, g, age, w)))
    f.write("\n")
PY
bytes=$(stat -c %s "$csv")
echo "rows: $rows, file: $((bytes / 1000000)) MB"
for i in 1 2 3; do
  start=$(date +%s.%N)
  ./build/release/tools/velkor km "$csv" --time time --status status --event-code 2 --group group \
    --no-tables --timing 2>"$csv.t" >/dev/null
  end=$(date +%s.%N)
  parse=$(awk '/read and parse/ {print $(NF-1)}' "$csv.t")
  lib=$(awk '/of which library/ {print $(NF-1)}' "$csv.t")
  awk -v p="$parse" -v l="$lib" -v b="$bytes" -v s="$start" -v e="$end" 'BEGIN {
    printf "velkor: parse %.3f s (%.0f MB/s), library calls %.3f s, end to end %.3f s (%.2fx the analysis)\n",
      p, b / p / 1e6, l, e - s, (e - s) / l }'
done
rm -f "$csv.t"
Rscript -e "suppressMessages(library(survival)); f <- commandArgs(TRUE)[1];
for (i in 1:3) { t0 <- proc.time()[['elapsed']]; d <- read.csv(f); t1 <- proc.time()[['elapsed']];
  s <- survfit(Surv(time, status == 2) ~ group, data = d); x <- survdiff(Surv(time, status == 2) ~ group, data = d);
  t2 <- proc.time()[['elapsed']]; cat(sprintf('R: read.csv %.3f s, survfit + survdiff %.3f s, total %.3f s\n', t1 - t0, t2 - t1, t2 - t0)) }" "$csv"
