"""NumPy implementation of the Passing-Bablok driver, timed on the benchmark data.

The same procedure as the library's PassingBablok (shifted median of all pairwise slopes with
the special values for equal x or equal y, slopes of exactly -1 skipped, K shift, rank limits,
intercept medians, cusum linearity test), vectorised: the slopes of each row block are formed with
array operations and the needed order statistics are taken with np.partition over all slopes.

Usage: /usr/bin/python3 methodcomp_numpy.py DIR N [repeats]   -> prints "N wall_seconds cpu_seconds b a" (best of repeats)
"""
import math
import os
import sys
import time

import numpy as np
from scipy.stats import kendalltau

BIG = 1.79769313486231e308
EPS = 2.220446049250313e-16


def kendall_sign(x, y):
    # Only the sign of tau matters for the driver with option 1.
    return kendalltau(x, y).statistic


def slopes(x, y):
    n = len(x)
    parts = []
    K = 0
    for i in range(n - 1):
        dx = x[i] - x[i + 1:]
        dy = y[i] - y[i + 1:]
        reg = (np.abs(dy) > EPS) & (np.abs(dx) > EPS)
        s = np.empty_like(dx)
        with np.errstate(divide="ignore", invalid="ignore"):
            s[reg] = dy[reg] / dx[reg]
        keep = reg & (s != -1.0)
        vu = ~reg & (dx == 0) & (dy > 0)
        vd = ~reg & (dx == 0) & (dy < 0)
        hl = ~reg & (dy == 0) & (dx < 0)
        hr = ~reg & (dy == 0) & (dx > 0)
        s[vu] = -BIG
        s[vd] = BIG
        s[hl] = -EPS
        s[hr] = EPS
        keep |= vu | vd | hl | hr
        v = s[keep]
        K += int(np.count_nonzero(v < -1.0))
        parts.append(v)
    return np.concatenate(parts), K


def passing_bablok(x, y, alpha=0.05):
    if kendall_sign(x, y) < 0:
        return None
    S, K = slopes(x, y)
    N = len(S)
    n = len(x)
    z = 1.959963984540054
    cw = z * math.sqrt(n * (n - 1) / 18.0) * math.sqrt(2 * n + 5)
    m1 = int((N - cw) * 0.5 + 0.5)
    m2 = N - m1 + 1
    if N % 2 == 0:
        med = [N // 2 + K, N // 2 + K + 1]
    else:
        med = [(N + 1) // 2 + K]
    lo_r, hi_r = max(m1 + K, 1), min(m2 + K, N)
    ranks = sorted(set(r - 1 for r in med + [lo_r, hi_r] if 1 <= r <= N))
    part = np.partition(S, ranks)
    get = {r + 1: part[r] for r in ranks}
    b = (get[med[0]] + get[med[1]]) / 2 if N % 2 == 0 else get[med[0]]
    bl, bh = get[lo_r], get[hi_r]
    a = np.median(y - b * x)
    al = np.median(y - bh * x)
    ah = np.median(y - bl * x)
    r = y - (a + b * x)
    L = np.count_nonzero(r > 1e-12)
    l = np.count_nonzero(r < -1e-12)
    s = math.sqrt(l / L)
    score = np.where(r > 1e-12, s, np.where(r < -1e-12, -1 / s, 0.0))
    D = (x / b + y - a) / math.sqrt(1 + 1 / b ** 2)
    cus = np.abs(np.cumsum(score[np.argsort(D, kind="stable")]))
    return a, al, ah, b, bl, bh, cus.max()


def main():
    d, n = sys.argv[1], int(sys.argv[2])
    reps = int(sys.argv[3]) if len(sys.argv) > 3 else 3
    x = np.fromfile(os.path.join(d, f"pb_x_{n}.f64"), dtype="<f8")
    y = np.fromfile(os.path.join(d, f"pb_y_{n}.f64"), dtype="<f8")
    best, best_cpu = float("inf"), float("inf")
    for _ in range(reps):
        t0, c0 = time.perf_counter(), time.process_time()
        res = passing_bablok(x, y)
        best = min(best, time.perf_counter() - t0)
        best_cpu = min(best_cpu, time.process_time() - c0)
    print(f"{n} {best:.6f} {best_cpu:.6f} {res[3]!r} {res[0]!r}")


main()
