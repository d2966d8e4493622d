"""Writes the benchmark data of the method-comparison family as raw little-endian float64 files.

Usage: /usr/bin/python3 methodcomp_data.py DIR
Files: pb_x_N.f64 / pb_y_N.f64 for N in 500, 2000, 20000 (measurements rounded to 0.1, so that
ties and equal-x pairs occur as in laboratory data), lin_x.f64 / lin_y.f64 (1,048,576 pairs for
Deming and Bland-Altman). Fixed seed: every run times the same data.
"""
import os
import sys

import numpy as np

out = sys.argv[1]
os.makedirs(out, exist_ok=True)
rng = np.random.default_rng(20261122)


def pair(n):
    truth = rng.uniform(20.0, 400.0, n)
    x = np.round(truth + rng.normal(0.0, 6.0, n), 1)
    y = np.round(3.0 + 1.04 * truth + rng.normal(0.0, 6.0, n), 1)
    return x.astype("<f8"), y.astype("<f8")


for n in (500, 2000, 20000):
    x, y = pair(n)
    x.tofile(os.path.join(out, f"pb_x_{n}.f64"))
    y.tofile(os.path.join(out, f"pb_y_{n}.f64"))
x, y = pair(1048576)
x.tofile(os.path.join(out, "lin_x.f64"))
y.tofile(os.path.join(out, "lin_y.f64"))
