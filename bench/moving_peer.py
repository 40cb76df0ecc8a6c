#!/usr/bin/python3
"""The peers' side of bench/compare_moving.sh.

  moving_peer.py generate SEED COUNT FILE
      writes COUNT values of a monthly-looking series well above 0 (a level of
      1000, a slight trend, a seasonal swing of 20 and noise of 5) as
      little-endian doubles
  moving_peer.py run FILE REPETITIONS [RESULTS]
      times every peer way of each case on that series and prints a JSON line of
      versions, then one a way; with RESULTS (what moving_bench --results wrote) it
      first checks that every way gives fmsd's results

The cases are moving_bench's: trailing windows of k values ending at t, fewer at
the start (pandas' min_periods=1, bottleneck's min_count=1), and the classical
decomposition with period 12 (seasonal_decompose's two-sided moving average).
Each figure is the median over the repetitions of one call on the whole series, in
milliseconds of the process's CPU time (as moving_bench's cpu_time: other work on a
shared machine counts against neither side); the Series and arrays are built
beforehand.
"""
import json
import statistics
import sys
import time

import bottleneck as bn
import numpy as np
import pandas as pd
import statsmodels
from statsmodels.tsa.seasonal import seasonal_decompose


def generate(seed, count, path):
    rng = np.random.default_rng(seed)
    t = np.arange(count)
    x = 1000 + 0.001 * t + 20 * np.sin(t * np.pi / 6) + rng.normal(0, 5, count)
    x.astype("<f8").tofile(path)


def peers(x):
    """Each case (as moving_bench names it) with the ways a Python user would
    compute it, fastest first where there are several; a way gives the arrays that
    fmsd's results are checked against."""
    s = pd.Series(x)

    def decomposition(model):
        r = seasonal_decompose(x, model=model, period=12, two_sided=True)
        return [r.trend, r.seasonal, r.resid]

    return {
        "BM_Mean": [("pandas rolling(101, min_periods=1).mean()", lambda: [s.rolling(101, min_periods=1).mean()]),
                    ("bottleneck move_mean(101, min_count=1)", lambda: [bn.move_mean(x, 101, min_count=1)])],
        "BM_Variance": [("pandas rolling(101, min_periods=1).var()", lambda: [s.rolling(101, min_periods=1).var()]),
                        ("bottleneck move_var(101, min_count=1, ddof=1)",
                         lambda: [bn.move_var(x, 101, min_count=1, ddof=1)])],
        "BM_Median/101": [("bottleneck move_median(101, min_count=1)", lambda: [bn.move_median(x, 101, min_count=1)]),
                          ("pandas rolling(101, min_periods=1).median()",
                           lambda: [s.rolling(101, min_periods=1).median()])],
        "BM_Median/10001": [("bottleneck move_median(10001, min_count=1)",
                             lambda: [bn.move_median(x, 10001, min_count=1)])],
        "BM_Maximum": [("pandas rolling(101, min_periods=1).max()", lambda: [s.rolling(101, min_periods=1).max()]),
                       ("bottleneck move_max(101, min_count=1)", lambda: [bn.move_max(x, 101, min_count=1)])],
        "BM_Decompose/multiplicative:0": [("statsmodels seasonal_decompose(period=12)",
                                           lambda: decomposition("additive"))],
        "BM_Decompose/multiplicative:1": [("statsmodels seasonal_decompose(period=12, model='multiplicative')",
                                           lambda: decomposition("multiplicative"))],
    }


# moving_bench --results writes these arrays in this order.
LAYOUT = [("BM_Mean", 1), ("BM_Variance", 1), ("BM_Median/101", 1), ("BM_Median/10001", 1), ("BM_Maximum", 1),
          ("BM_Decompose/multiplicative:0", 3), ("BM_Decompose/multiplicative:1", 3)]


def ours(path, n):
    flat = np.fromfile(path, dtype="<f8")
    if flat.size != n * sum(count for _, count in LAYOUT):
        sys.exit("moving_peer: the results file does not hold every case's output")
    out, at = {}, 0
    for case, count in LAYOUT:
        out[case] = [flat[(at + i) * n : (at + i + 1) * n] for i in range(count)]
        at += count
    return out


# Where a window holds one value, fmsd's sample variance is 0.0, the peers' NaN.
FROM = {"BM_Variance": 1}


def check(case, how, theirs, mine):
    for a, b in zip(theirs, mine):
        a = np.asarray(a, dtype=float)[FROM.get(case, 0) :]
        b = b[FROM.get(case, 0) :]
        if not np.array_equal(np.isnan(a), np.isnan(b)) or not np.allclose(a, b, rtol=1e-9, atol=1e-9, equal_nan=True):
            bad = int(np.flatnonzero(~np.isclose(a, b, rtol=1e-9, atol=1e-9, equal_nan=True))[0])
            sys.exit(f"moving_peer: {how} differs from fmsd's {case} at {bad}: {a[bad]} against {b[bad]}")


def timed(repetitions, work):
    samples = []
    for _ in range(repetitions):
        start = time.process_time()
        work()
        samples.append(time.process_time() - start)
    return statistics.median(samples) * 1e3


def run(path, repetitions, results=None):
    x = np.fromfile(path, dtype="<f8")
    mine = ours(results, x.size) if results else None
    print(json.dumps({"pandas": pd.__version__, "numpy": np.__version__, "bottleneck": bn.__version__,
                      "statsmodels": statsmodels.__version__, "n": int(x.size)}))
    for case, ways in peers(x).items():
        for how, work in ways:
            result = work()  # also the warm-up
            if mine is not None:
                check(case, how, result, mine[case])
            print(json.dumps({"case": case, "how": how, "ms": timed(repetitions, work)}))


def main(argv):
    if len(argv) == 5 and argv[1] == "generate":
        generate(int(argv[2]), int(argv[3]), argv[4])
    elif len(argv) in (4, 5) and argv[1] == "run":
        run(argv[2], int(argv[3]), argv[4] if len(argv) == 5 else None)
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main(sys.argv)
