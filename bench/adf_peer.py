#!/usr/bin/python3
"""The statsmodels side of bench/compare_adf.sh.

  adf_peer.py generate SEED COUNT FILE
      writes a Gaussian random walk of COUNT values (float64, little-endian)
  adf_peer.py run FILE REPETITIONS [RESULTS]
      times the augmented Dickey-Fuller test of the series with a constant over lags
      0 to 12 and prints a JSON line of versions, then one a way; with RESULTS (what
      unitroot_bench --results wrote) it first checks that adfuller gives fmsd's tau
      and row count at every lag

The ways: adfuller(maxlag=12, regression='c', autolag='AIC'), which fits lags 0 to 12
on their common rows and refits the chosen one, the call a user writes to test with a
lag search; and thirteen calls adfuller(maxlag=p, autolag=None), one for each lag on
its own rows, the work fmsd does. Figures are medians over the repetitions, in
milliseconds of the process's CPU time.
"""
import json
import statistics
import sys
import time

import numpy as np
import statsmodels
from statsmodels.tsa.stattools import adfuller

LAGS = 12


def generate(seed, count, path):
    np.cumsum(np.random.default_rng(seed).standard_normal(count)).astype("<f8").tofile(path)


def each_lag(x):
    return [adfuller(x, maxlag=p, regression="c", autolag=None) for p in range(LAGS + 1)]


WAYS = [
    ("adfuller(maxlag=12, regression='c', autolag='AIC')",
     lambda x: adfuller(x, maxlag=LAGS, regression="c", autolag="AIC")),
    ("adfuller(maxlag=p, regression='c', autolag=None) for p = 0..12", each_lag),
]


def timed(repetitions, work):
    samples = []
    for _ in range(repetitions):
        start = time.process_time()
        work()
        samples.append(time.process_time() - start)
    return statistics.median(samples) * 1e3


def check(x, path):
    """unitroot_bench --results: nobs, rho and tau for each lag."""
    ours = np.fromfile(path, dtype="<f8").reshape(LAGS + 1, 3)
    worst = 0.0
    for p, r in enumerate(each_lag(x)):
        if int(ours[p, 0]) != r[3]:
            sys.exit(f"adf_peer: lag {p} uses {r[3]} rows, fmsd {int(ours[p, 0])}")
        worst = max(worst, abs(r[0] - ours[p, 2]) / max(1.0, abs(r[0])))
    if worst > 1e-9:
        sys.exit(f"adf_peer: tau differs from fmsd's by {worst} (relative)")
    return worst


def run(path, repetitions, results=None):
    x = np.fromfile(path, dtype="<f8")
    line = {"statsmodels": statsmodels.__version__, "numpy": np.__version__, "n": len(x)}
    if results:
        line["max_tau_diff"] = check(x, results)
    print(json.dumps(line))
    for how, work in WAYS:
        work(x)  # warm-up
        print(json.dumps({"how": how, "ms": timed(repetitions, lambda: work(x))}))


def main(argv):
    if len(argv) == 5 and argv[1] == "generate":
        generate(int(argv[2]), int(argv[3]), argv[4])
    elif len(argv) in (4, 5) and argv[1] == "run":
        run(argv[2], int(argv[3]), argv[4] if len(argv) == 5 else None)
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main(sys.argv)
