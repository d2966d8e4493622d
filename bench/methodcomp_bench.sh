#!/usr/bin/env bash
# Times the method-comparison family against NumPy (Passing-Bablok) and R (Bland-Altman,
# Deming) on the same data, in the same run, and prints the table: task, n, ours, theirs, ratio,
# as wall-clock and CPU seconds. Everything runs on one thread (OMP_NUM_THREADS=1; NumPy and R
# are single-threaded here), so the CPU columns stay comparable on a shared, loaded machine.
#
# Usage: bench/methodcomp_bench.sh [build dir]   (default build/release; needs the
# bench_methodcomp target, Debian's /usr/bin/python3 with numpy and scipy, and Rscript)
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
build="${1:-$here/../build/release}"
data="$(mktemp -d)"
trap 'rm -rf "$data"' EXIT
/usr/bin/python3 "$here/methodcomp_data.py" "$data"

OMP_NUM_THREADS=1 VELKOR_BENCH_DATA="$data" "$build/bench/bench_methodcomp" --benchmark_format=json \
  --benchmark_out="$data/ours.json" --benchmark_out_format=json >/dev/null
{
  for n in 500 2000; do /usr/bin/python3 "$here/methodcomp_numpy.py" "$data" "$n" 3; done
  /usr/bin/python3 "$here/methodcomp_numpy.py" "$data" 20000 1
} >"$data/numpy.txt"
Rscript "$here/methodcomp_r.R" "$data" >"$data/r.txt"

/usr/bin/python3 - "$data" <<'PY'
import json, sys
d = sys.argv[1]
ours = {b["name"].split("/iterations")[0]: b for b in json.load(open(f"{d}/ours.json"))["benchmarks"]}
def sec(b, key):
    return b[key] * {"ms": 1e-3, "us": 1e-6, "ns": 1e-9, "s": 1.0}[b["time_unit"]]
rows = []
for line in open(f"{d}/numpy.txt"):
    n, t, c, b, a = line.split()
    o = ours[f"BM_PassingBablok/{n}"]
    assert abs(o["b"] - float(b)) < 1e-12 * abs(float(b)), "slopes differ"
    rows.append(("Passing-Bablok (NumPy)", int(n), sec(o, "real_time"), float(t), sec(o, "cpu_time"), float(c)))
for line in open(f"{d}/r.txt"):
    task, t, c, v = line.split()
    o = ours[{"bland_altman": "BM_BlandAltman/1048576", "deming": "BM_DemingRegression/1048576"}[task]]
    rows.append((task.replace("_", "-").title() + " (R)", 1048576, sec(o, "real_time"), float(t), sec(o, "cpu_time"), float(c)))
print(f"{'task':24} {'n':>8} {'ours wall':>10} {'theirs':>9} {'ratio':>6} {'ours cpu':>9} {'theirs':>9} {'ratio':>6}")
for task, n, ow, tw, oc, tc in rows:
    print(f"{task:24} {n:>8} {ow:>10.4f} {tw:>9.4f} {tw / ow:>6.1f} {oc:>9.4f} {tc:>9.4f} {tc / oc:>6.1f}")
PY
