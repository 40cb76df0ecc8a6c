#!/usr/bin/python3
"""Writes the reference data of the moving summaries and the classical decomposition
under tests/data/timeseries/:

  moving_series.csv      series,t,x          the input series ('.' = missing)
  moving_reference.csv   routine,series,k,lead,strict,d,code,weights,source,expected
                         one case a row; weights and expected are space-separated
                         lists ('.' = missing, 'nan', 'inf', '-inf'); source is
                         "exact" for rational arithmetic, else the peer
  decompose_reference.csv model,period,t,x,trend,seasonal,resid

Where the numbers come from:
  - pandas' rolling windows for the unweighted sums, means, variances, minimum,
    maximum and median, and its weighted windows (win_type) for weighted means.
    A window of k positions with `lead` of them after t is pandas' trailing window
    of k ending at t + lead, on the series padded with `lead` NaNs at its end;
    min_periods=1 gives the non-strict rule, and the strict rule keeps a value only
    where the window's count of values equals its count of in-series positions.
  - statsmodels' DescrStatsW for the weighted (population) variance.
  - pandas' ewm(adjust=False, ignore_na=True) for the exponentially weighted mean.
  - Python's exact rational arithmetic (fractions) and sorting for the series that
    test the numerical limits: a level of 1e9 with small noise and jumps, and a
    series with infinities, NaNs and the largest doubles; IEEE rules decide windows
    holding an infinity or a NaN (pandas would take both for missing values).
  - statsmodels' seasonal_decompose (two-sided moving average) for the
    decomposition, additive and multiplicative, odd and even periods.

Our divisor rules are applied to the peers' figures here: d < 0 is
the sum (or the corrected sum of squares, pandas' population variance times the
count, 0 for fewer than two values); d >= 0 divides by count - d, 0.0 when the
count is d or less.
"""
import csv
import math
import os
import sys
from fractions import Fraction

import numpy as np
import pandas as pd
import scipy.signal
from statsmodels.stats.weightstats import DescrStatsW
from statsmodels.tsa.seasonal import seasonal_decompose

OUT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "data", "timeseries")


def text(v):
    if v is None:
        return "."
    v = float(v)
    if math.isnan(v):
        return "nan"
    if math.isinf(v):
        return "inf" if v > 0 else "-inf"
    return repr(v)


def series():
    rng = np.random.default_rng(20240611)
    n = 48
    walk = np.round(np.cumsum(rng.normal(0, 1, n)) * 8) / 8 + 10
    # Ties matter to the order statistics: the walk is rounded to eighths.
    gappy = walk.copy()
    for i in [0, 3, 4, 11, 20, 21, 22, 23, 24, 25, 26, 40, 47]:
        gappy[i] = np.nan
    level = 1e9 + rng.normal(0, 1e-3, 200)
    level[80:120] += 1e6  # a jump the shift must follow
    level[150:] = 1e12 + rng.normal(0, 1e-2, 50)
    big = np.finfo(float).max
    wild = np.array([1.0, 2.0, big, big, 3.0, 4.0, 1e300, -1e300, 5.0, np.inf, 6.0, 7.0, 8.0, -np.inf,
                     np.inf, 9.0, 10.0, np.nan, 11.0, 12.0, -big, 13.0, 1e-300, 14.0, 15.0, 16.0])
    # A NaN that is not the missing value is a value; the missing ones are the gaps.
    wild_missing = np.zeros(wild.size, bool)
    gappy_missing = np.isnan(gappy)
    return {
        "walk": (walk, np.zeros(n, bool)),
        "gappy": (gappy, gappy_missing),
        "level": (level, np.zeros(level.size, bool)),
        "wild": (wild, wild_missing),
    }


def padded(x, lead):
    return pd.Series(np.concatenate([x, np.full(lead, np.nan)]))


def counts(x, k, lead):
    """Values present and in-series positions of each window."""
    n = x.size
    present = padded(x, lead).rolling(k, min_periods=1).count().to_numpy()[lead:]
    inseries = padded(np.ones(n), lead).rolling(k, min_periods=1).count().to_numpy()[lead:]
    return present, inseries


def apply_strict(values, x, k, lead, strict):
    present, inseries = counts(x, k, lead)
    keep = present >= 1 if strict == 0 else present == inseries
    return [v if ok else None for v, ok in zip(values, keep)], present


def rolling(x, k, lead):
    return padded(x, lead).rolling(k, min_periods=1)


def divisor_rule(q, m, d):
    if d < 0:
        return q
    return q / (m - d) if m > d else 0.0


def unweighted(routine, x, k, lead, strict, d, code):
    present, _ = counts(x, k, lead)
    if routine == "ztsmsum":
        y = x if code == 0 else x * x if code == 1 else np.abs(x)
        sums = rolling(y, k, lead).sum().to_numpy()[lead:]
        values = [divisor_rule(s, m, d) for s, m in zip(sums, present)]
    elif routine == "ztsmcsm":
        values = []
        r = rolling(x, k, lead)
        pop = r.var(ddof=0).to_numpy()[lead:]
        bydiv = r.var(ddof=max(d, 0)).to_numpy()[lead:]
        for m, p, v in zip(present, pop, bydiv):
            if d < 0:
                values.append(p * m if m >= 2 else 0.0)
            else:
                values.append(v if m > d else 0.0)
    else:
        r = rolling(x, k, lead)
        stat = {0: r.min, 1: r.max, 2: r.median}
        if code == 3:
            values = r.max().to_numpy()[lead:] - r.min().to_numpy()[lead:]
        else:
            values = stat[code]().to_numpy()[lead:]
    return apply_strict(list(values), x, k, lead, strict)[0]


def weighted_mean(x, window, k, lead, strict, d):
    present, _ = counts(x, k, lead)
    means = padded(x, lead).rolling(k, min_periods=1, win_type=window).mean().to_numpy()[lead:]
    values = [divisor_rule(v, m, d) for v, m in zip(means, present)]
    return apply_strict(values, x, k, lead, strict)[0]


def weighted_variance(x, w, k, lead, strict, d):
    n = x.size
    lag = k - lead - 1
    values = []
    for t in range(n):
        lo, hi = max(0, t - lag), min(n - 1, t + lead)
        vals = x[lo : hi + 1]
        wts = w[lo - (t - lag) : hi - (t - lag) + 1]
        ok = ~np.isnan(vals)
        m = int(ok.sum())
        if m == 0:
            values.append(None)
            continue
        c = DescrStatsW(vals[ok], weights=wts[ok], ddof=0).var
        values.append((c if m >= 2 else 0.0) if d < 0 else divisor_rule(c, m, d))
    return apply_strict(values, x, k, lead, strict)[0]


def exact(routine, x, k, lead, strict, d):
    """Sums, means and corrected sums of squares in rational arithmetic."""
    n = x.size
    lag = k - lead - 1
    values = []
    for t in range(n):
        lo, hi = max(0, t - lag), min(n - 1, t + lead)
        vals = [v for v in x[lo : hi + 1]]
        m = len(vals)
        finite = [Fraction(v) for v in vals if math.isfinite(v)]
        special = [v for v in vals if not math.isfinite(v)]
        if routine == "ztsmsum":
            if special:
                signs = {math.copysign(1, v) for v in special if not math.isnan(v)}
                nan = len(signs) > 1 or any(math.isnan(v) for v in special)
                q = math.nan if nan else signs.pop() * math.inf
                values.append(divisor_rule(q, m, d))
                continue
            values.append(tofloat(divisor_rule(sum(finite), m, d)))
        else:
            if (m < 2) if d < 0 else (m <= d):
                values.append(0.0)
                continue
            if special:
                values.append(math.nan)
                continue
            mean = sum(finite) / m
            c = sum((v - mean) ** 2 for v in finite)
            values.append(tofloat(c if d < 0 else c / (m - d)))
    return values


def tofloat(q):
    try:
        return float(q)
    except OverflowError:
        return math.inf if q > 0 else -math.inf


def ewa(x, w, strict):
    s = pd.Series(x).ewm(alpha=w, adjust=False, ignore_na=True).mean().to_numpy()
    values = [None if math.isnan(v) else v for v in s]
    first = int(np.flatnonzero(~np.isnan(x))[0])
    if strict == 1:
        values[first] = None
        later = np.flatnonzero(np.isnan(x[first:]))
        if later.size:
            for i in range(first + later[0], x.size):
                values[i] = None
    return values


def moving_cases(data):
    cases = []
    windows = [(3, 1), (4, 0), (4, 3), (5, 2), (7, 6), (12, 5), (48, 10), (60, 30)]
    for name in ("walk", "gappy"):
        x = data[name][0]
        for k, lead in windows:
            for strict in (0, 1):
                for d in (-1, 0, 2):
                    cases.append(("ztsmsum", name, k, lead, strict, d, 0, None, unweighted("ztsmsum", x, k, lead, strict, d, 0)))
                for d in (-1, 0, 1):
                    cases.append(("ztsmcsm", name, k, lead, strict, d, 0, None, unweighted("ztsmcsm", x, k, lead, strict, d, 0)))
                for code in (0, 1, 2, 3):
                    cases.append(("ztsmord", name, k, lead, strict, 0, code, None, unweighted("ztsmord", x, k, lead, strict, 0, code)))
        for code in (1, 2):
            cases.append(("ztsmsum", name, 5, 2, 0, 0, code, None, unweighted("ztsmsum", x, 5, 2, 0, 0, code)))
        # Weights: pandas' triangular and Hamming windows, which it aligns as the
        # routines do (weight i for position t - lag + i, clipped at both ends).
        for window, k, lead in (("triang", 5, 2), ("hamming", 7, 0), ("triang", 4, 1)):
            w = scipy.signal.get_window(window, k, fftbins=False)
            for strict in (0, 1):
                for d in (-1, 0):
                    cases.append(("ztsmsum", name, k, lead, strict, d, 0, w, weighted_mean(x, window, k, lead, strict, d)))
                for d in (-1, 1):
                    cases.append(("ztsmcsm", name, k, lead, strict, d, 0, w, weighted_variance(x, w, k, lead, strict, d)))
        for w, strict in ((0.3, 0), (0.3, 1), (0.85, 0)):
            cases.append(("ztsmewa", name, 0, 0, strict, 0, 0, [w], ewa(x, w, strict)))
    for name, windows in (("level", [(10, 0), (31, 15)]), ("wild", [(3, 1), (4, 0), (6, 2)])):
        x = data[name][0]
        for k, lead in windows:
            for d in (-1, 0, 1):
                cases.append(("ztsmsum", name, k, lead, 0, d, 0, None, exact("ztsmsum", x, k, lead, 0, d)))
                cases.append(("ztsmcsm", name, k, lead, 0, d, 0, None, exact("ztsmcsm", x, k, lead, 0, d)))
            if name == "wild":
                for code in (0, 1, 2, 3):
                    cases.append(("ztsmord", name, k, lead, 0, 0, code, None, exact_order(x, k, lead, code)))
    return cases


def exact_order(x, k, lead, code):
    """pandas' rolling windows take infinities for missing values; these are values
    here, and a NaN that is a value makes the statistic NaN."""
    n = x.size
    lag = k - lead - 1
    values = []
    for t in range(n):
        w = sorted(float(v) for v in x[max(0, t - lag) : min(n - 1, t + lead) + 1])
        if any(math.isnan(v) for v in w):
            values.append(math.nan)
        elif code == 0:
            values.append(w[0])
        elif code == 1:
            values.append(w[-1])
        elif code == 3:
            values.append(w[-1] - w[0])
        else:
            a, b = w[(len(w) - 1) // 2], w[len(w) // 2]
            values.append(float((Fraction(a) + Fraction(b)) / 2) if math.isfinite(a) and math.isfinite(b) else (a + b) / 2)
    return values


def decompose_cases():
    rng = np.random.default_rng(20240612)
    rows = []
    for period, n in ((4, 30), (12, 61), (7, 45), (3, 20), (12, 36)):
        t = np.arange(n)
        season = np.sin(2 * np.pi * t / period) * 3 + (t % period == 1) * 2
        x = 50 + 0.4 * t + season + rng.normal(0, 0.7, n)
        for model in ("additive", "multiplicative"):
            r = seasonal_decompose(x, model=model, period=period, two_sided=True)
            for i in range(n):
                rows.append([model, period, i, text(x[i]), text(None if np.isnan(r.trend[i]) else r.trend[i]),
                             text(r.seasonal[i]), text(None if np.isnan(r.resid[i]) else r.resid[i])])
    return rows


def main():
    # Infinities and the largest doubles overflow on purpose in the peers' arithmetic.
    np.seterr(all="ignore")
    data = series()
    with open(os.path.join(OUT, "moving_series.csv"), "w", newline="") as f:
        out = csv.writer(f, lineterminator="\n")
        out.writerow(["series", "t", "x"])
        for name, (x, missing) in data.items():
            for i, v in enumerate(x):
                out.writerow([name, i, "." if missing[i] else text(v)])
    with open(os.path.join(OUT, "moving_reference.csv"), "w", newline="") as f:
        out = csv.writer(f, lineterminator="\n")
        out.writerow(["routine", "series", "k", "lead", "strict", "d", "code", "weights", "source", "expected"])
        for routine, name, k, lead, strict, d, code, w, expected in moving_cases(data):
            weights = "" if w is None else " ".join(text(v) for v in w)
            source = "exact" if name in ("level", "wild") else "statsmodels" if routine == "ztsmcsm" and w is not None else "pandas"
            out.writerow([routine, name, k, lead, strict, d, code, weights, source, " ".join(text(v) for v in expected)])
    with open(os.path.join(OUT, "decompose_reference.csv"), "w", newline="") as f:
        out = csv.writer(f, lineterminator="\n")
        out.writerow(["model", "period", "t", "x", "trend", "seasonal", "resid"])
        out.writerows(decompose_cases())


if __name__ == "__main__":
    sys.exit(main())
