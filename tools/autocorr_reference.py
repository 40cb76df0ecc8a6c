#!/usr/bin/python3
"""Reference values for the autocorrelation routines (tests/timeseries/autocorr_test.cpp).

    tools/autocorr_reference.py [OUTDIR]     (default tests/data/timeseries)

writes autocorr_series.csv (case, index, value; NA for a missing value) and
autocorr_reference.csv (one row per case and lag). Series without missing values take
their figures from statsmodels: acovf and acf (direct sums, biased), Bartlett standard
errors from acf's confidence intervals, PACF from levinson_durbin on the biased
autocovariances, Ljung-Box probabilities from q_stat, and inverse autocorrelations
from levinson_durbin's autoregressive coefficients. Series with missing values are
worked out pair by pair in plain Python, following the rules for gaps: the pairs with
a missing member are dropped and the divisor is n less their number; probabilities
from scipy's chi-square tail. NA marks a value the routine must leave missing (or, for
Ljung-Box, must not write) or one the case does not check.
"""
import csv
import math
import os
import sys

import numpy as np
from scipy import stats
from statsmodels.tsa.stattools import acf, acovf, levinson_durbin, q_stat

COLUMNS = ["case", "n", "maxlag", "lag", "mean", "acov", "count", "acf", "se", "pacf", "iacf", "lbprob"]


def ar(rng, n, phi, burn=200):
    e = rng.standard_normal(n + burn)
    y = np.zeros(n + burn)
    for t in range(n + burn):
        y[t] = e[t] + sum(c * y[t - 1 - j] for j, c in enumerate(phi) if t - 1 - j >= 0)
    return y[burn:]


def iacf_from(arcoefs, maxlag):
    """Inverse autocorrelations of an AR(m): the ACF of the MA(m) with those
    coefficients; lags past m are not defined."""
    c = np.r_[-1.0, arcoefs]
    m = len(arcoefs)
    d0 = float(np.dot(c, c))
    return [None] + [float(np.dot(c[: m + 1 - j], c[j:])) / d0 if j <= m else None for j in range(1, maxlag + 1)]


def clean_case(name, x, maxlag):
    """A series without missing values: statsmodels throughout."""
    n = len(x)
    cov = acovf(x, adjusted=False, demean=True, fft=False, nlag=maxlag)
    r, confint = acf(x, nlags=maxlag, fft=False, alpha=0.05)
    z = stats.norm.ppf(0.975)
    se = (confint[:, 1] - confint[:, 0]) / (2 * z)
    _, _, pacf, _, _ = levinson_durbin(cov, nlags=maxlag, isacov=True)
    m = min(maxlag, n // 2)
    iacf = iacf_from(levinson_durbin(cov[: m + 1], nlags=m, isacov=True)[1], maxlag) if m >= 2 else [None] * (maxlag + 1)
    _, p = q_stat(r[1:], n)
    rows = []
    for k in range(maxlag + 1):
        rows.append([name, n, maxlag, k, float(np.mean(x)) if k == 0 else None, cov[k], n - k, r[k], se[k],
                     pacf[k] if k > 0 else None, iacf[k], p[k - 1] if k > 0 else 0.0])
    return rows


def gappy_case(name, x, maxlag):
    """A series with missing values (None), pair by pair."""
    n = len(x)
    present = [v for v in x if v is not None]
    nobs, nmiss = len(present), n - len(present)
    mean = math.fsum(present) / nobs
    y = [None if v is None else v - mean for v in x]
    cov, count = [], []
    for k in range(maxlag + 1):
        pairs = [(y[i], y[i + k]) for i in range(max(n - k, 0))]
        used = [a * b for a, b in pairs if a is not None and b is not None]
        dropped = len(pairs) - len(used)
        cov.append(math.fsum(used) / (n - dropped) if used else None)
        count.append(n - k - dropped)
    r = [1.0] + [None if c is None else c / cov[0] for c in cov[1:]]
    se = [0.0, 1 / math.sqrt(nobs)]
    total = 1.0
    for k in range(1, maxlag):
        if r[k] is not None:
            total += 2 * r[k] ** 2
        se.append(math.sqrt(total / nobs))

    # Ljung-Box on the centred series, lags limited to one below the present count.
    sumsq = math.fsum(v * v for v in y if v is not None)
    top = min(maxlag, nobs - 1)
    prob = [0.0] + [None] * maxlag
    q = 0.0
    for k in range(1, top + 1):
        s = math.fsum(y[i] * y[i + k] for i in range(n - k) if y[i] is not None and y[i + k] is not None)
        q += (s / sumsq) ** 2 / (n - k - nmiss)
        stat = q * n * (n + 2)
        prob[k] = float(stats.chi2.sf(stat, k)) if stat <= 100 * k else 0.0
    rows = []
    for k in range(maxlag + 1):
        rows.append([name, n, maxlag, k, mean if k == 0 else None, cov[k], count[k], r[k],
                     se[k] if k < len(se) else None, None, None, prob[k]])
    return rows


def with_gaps(x, positions):
    return [None if i in positions else float(v) for i, v in enumerate(x)]


def main():
    out = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(__file__), "..", "tests", "data", "timeseries")
    rng = np.random.default_rng(20240611)
    series, rows = {}, []

    clean = {
        "ar2": (ar(rng, 500, [0.6, -0.3]), 40),
        "noise": (rng.standard_normal(257) * 3 + 10, 37),
        "walk": (np.cumsum(rng.standard_normal(300)), 25),
        "short": (rng.standard_normal(6), 5),  # the inverse ACF stops at lag n/2
        # Long enough to cross the slices the lag sums are taken in, with lag counts
        # that leave every smaller block size in use.
        "long": (ar(rng, 3000, [0.3, 0.2, -0.25]), 30),
    }
    for name, (x, maxlag) in clean.items():
        series[name] = [float(v) for v in x]
        rows += clean_case(name, x, maxlag)

    base = ar(rng, 400, [0.7])
    scattered = set(int(i) for i in rng.choice(400, size=40, replace=False)) | set(range(200, 207))
    sparse = rng.standard_normal(60)
    gappy = {
        "gaps": (with_gaps(base, scattered), 53),
        "sparse": (with_gaps(sparse, set(int(i) for i in rng.choice(60, size=20, replace=False)) | {0, 59}), 70),
        "ten": (with_gaps(rng.standard_normal(10), {4}), 3),
        "five": (with_gaps(rng.standard_normal(8), {0, 3, 6}), 10),
        "longgaps": (with_gaps(ar(rng, 3000, [-0.5]),
                               set(int(i) for i in rng.choice(3000, size=150, replace=False)) | set(range(1020, 1040))), 31),
        # More lags than share one blanked copy of the series.
        "manylags": (with_gaps(ar(rng, 1500, [0.4]), set(int(i) for i in rng.choice(1500, size=45, replace=False))), 150),
    }
    for name, (x, maxlag) in gappy.items():
        series[name] = x
        rows += gappy_case(name, x, maxlag)

    def text(v):
        return "NA" if v is None else repr(float(v)) if isinstance(v, (float, np.floating)) else str(v)

    with open(os.path.join(out, "autocorr_series.csv"), "w", newline="") as f:
        w = csv.writer(f, lineterminator="\n")
        w.writerow(["case", "index", "value"])
        for name, x in series.items():
            for i, v in enumerate(x):
                w.writerow([name, i, text(v)])
    with open(os.path.join(out, "autocorr_reference.csv"), "w", newline="") as f:
        w = csv.writer(f, lineterminator="\n")
        w.writerow(COLUMNS)
        for row in rows:
            w.writerow([text(v) for v in row])


if __name__ == "__main__":
    main()
