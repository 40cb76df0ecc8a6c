#!/usr/bin/python3
"""The statsmodels side of bench/compare_acf.sh.

  acf_peer.py generate SEED COUNT FILE
      writes COUNT values of an AR(1) with coefficient 0.5 and standard normal
      innovations (float64, little-endian)
  acf_peer.py run FILE SMALL REPETITIONS [RESULTS]
      times each way of computing the autocovariances, the ACF with Bartlett standard
      errors, the PACF, the IACF and the Ljung-Box probabilities for lags 1 to 100, on
      the whole series and on its first SMALL values, and prints a JSON line of
      versions, then one a way and size; with RESULTS (what acf_bench --results wrote)
      it first checks that each composition gives fmsd's figures

The compositions compute exactly fmsd's quantities: biased autocovariances about the
mean, Levinson-Durbin on them for the PACF and for the AR(100) whose inverse ACF is
taken, Ljung-Box by q_stat with scipy's chi-square tail. The default calls (acf, pacf,
acorr_ljungbox) are what a statsmodels user writes first: pacf's default is Yule-Walker
on adjusted autocovariances, not the same PACF, and there is no IACF. acorr_ljungbox
correlates the whole series with itself (quadratic in n), so the default calls are
timed on the small series only. Each repetition's time is printed, in ms.
"""
import json
import sys
import time

import numpy as np
import scipy
import statsmodels
from scipy import signal
from statsmodels.stats.diagnostic import acorr_ljungbox
from statsmodels.tsa.stattools import acf, acovf, levinson_durbin, pacf, q_stat

LAGS = 100


def generate(seed, count, path):
    e = np.random.default_rng(seed).standard_normal(count)
    signal.lfilter([1.0], [1.0, -0.5], e).astype("<f8").tofile(path)


def from_acov(cov, n):
    """Everything else from the autocovariances of lags 0 to 100."""
    r = cov / cov[0]
    se = np.sqrt(np.r_[0.0, 1.0, 1.0 + 2.0 * np.cumsum(r[1:-1] ** 2)] / n)
    _, arcoefs, p, _, _ = levinson_durbin(cov, nlags=LAGS, isacov=True)
    c = np.r_[-1.0, arcoefs]
    iacf = np.array([np.dot(c[: LAGS + 1 - j], c[j:]) for j in range(1, LAGS + 1)]) / np.dot(c, c)
    _, prob = q_stat(r[1:], n)
    return r, se, p[1:], iacf, np.r_[0.0, prob]


def direct(x):
    return from_acov(acovf(x, adjusted=False, demean=True, fft=False, nlag=LAGS), len(x))


def by_fft(x):
    return from_acov(acovf(x, adjusted=False, demean=True, fft=True)[: LAGS + 1], len(x))


def defaults(x):
    return (acf(x, nlags=LAGS, alpha=0.05), pacf(x, nlags=LAGS), acorr_ljungbox(x, lags=LAGS))


WAYS = [
    ("acovf(nlag=100, direct sums) + levinson_durbin + q_stat", direct, True),
    ("acovf(fft=True) + levinson_durbin + q_stat", by_fft, True),
    ("default calls: acf(alpha=0.05) + pacf + acorr_ljungbox", defaults, False),
]


def ours(path, sizes):
    """acf_bench --results: per size ACF, SE, PACF, IACF (both from lag 0, lag 0
    a placeholder) and probabilities, lags 0 to 100 each."""
    values = np.fromfile(path, dtype="<f8").reshape(len(sizes), 5, LAGS + 1)
    return {n: (v[0], v[1], v[2][1:], v[3][1:], v[4]) for n, v in zip(sizes, values)}


def worst(a, b):
    return max(float(np.max(np.abs(np.asarray(x) - np.asarray(y)))) for x, y in zip(a, b))


def timed(repetitions, work):
    samples = []
    for _ in range(repetitions):
        start = time.perf_counter()
        work()
        samples.append((time.perf_counter() - start) * 1e3)
    return samples


def run(path, small, repetitions, results=None):
    full = np.fromfile(path, dtype="<f8")
    sizes = [len(full), small]
    mine = ours(results, sizes) if results else None
    print(json.dumps({"statsmodels": statsmodels.__version__, "scipy": scipy.__version__, "numpy": np.__version__}))
    for n in sizes:
        x = full[:n]
        for how, work, same in WAYS:
            if not same and n != small:
                continue
            result = work(x)  # also the warm-up
            line = {"n": n, "how": how, "samples_ms": timed(repetitions, lambda: work(x))}
            if same and mine is not None:
                line["max_abs_diff"] = worst(result, mine[n])
                if line["max_abs_diff"] > 1e-9:
                    sys.exit(f"acf_peer: {how} differs from fmsd's figures by {line['max_abs_diff']} at n = {n}")
            print(json.dumps(line))


def main(argv):
    if len(argv) == 5 and argv[1] == "generate":
        generate(int(argv[2]), int(argv[3]), argv[4])
    elif len(argv) in (5, 6) and argv[1] == "run":
        run(argv[2], int(argv[3]), int(argv[4]), argv[5] if len(argv) == 6 else None)
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main(sys.argv)
