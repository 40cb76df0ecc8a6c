#!/usr/bin/python3
"""Checks dfsim's statistics against ordinary least squares fitted by statsmodels.

For a few replications of each cell, dfsim prints the simulated series (its first d
values are the zero start) and its statistics. Here the test regression is rebuilt row by
row from the series as the unit-root test builds it: y_t on [1], [t], y_{t-d} for every t
with y_{t-d} present, so n = len(series) - d rows; rho = n (rho^ - 1) and
tau = (rho^ - 1) / se. Run from the repository root after building dfsim:

    /usr/bin/python3 tools/dfsim/verify.py /tmp/dfsim
"""
import subprocess
import sys

import numpy as np
import statsmodels.api as sm

DFSIM = sys.argv[1] if len(sys.argv) > 1 else "/tmp/dfsim"
CELLS = [(1, 5), (1, 37), (1, 2000), (2, 5), (2, 60), (4, 9), (6, 31), (12, 24), (12, 300)]


def statistics(y, d):
    y = np.asarray(y)
    lag, dep = y[:-d], y[d:]
    n = len(dep)
    t = np.arange(1, n + 1, dtype=float)
    out = []
    for regs in ([], [np.ones(n)], [np.ones(n), t]):
        if d > 1 and len(regs) == 2:
            break
        x = np.column_stack(regs + [lag])
        fit = sm.OLS(dep, x).fit()
        b = fit.params[-1] - 1.0
        out += [n * b, b / fit.bse[-1]]
    return out


worst = 0.0
for d, n in CELLS:
    text = subprocess.run([DFSIM, "--trace", str(d), str(n), "5"], check=True,
                          capture_output=True, text=True).stdout.split("\n")
    for series, stats in zip(text[0::2], text[1::2]):
        y = [float(v) for v in series.split()[1:]]
        got = [float(v) for v in stats.split()[1:]]
        assert len(y) == n + d
        want = statistics(y, d)
        for g, w in zip(got, want):
            worst = max(worst, abs(g - w) / max(1.0, abs(w)))
print(f"largest relative difference over {len(CELLS)} cells: {worst:.3g}")
sys.exit(0 if worst < 1e-9 else 1)
