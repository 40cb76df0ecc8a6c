#!/usr/bin/python3
"""Writes the reference values of the statistics of fit and of the series summary
under tests/data/timeseries/.

fitstats_series.csv    case,i,actual,predicted           the inputs, one row a position
fitstats_expected.csv  case,before,nparms,<fields>       one row a case

The statistics are computed here from their definitions with numpy masks and exact
rational sums (fractions.Fraction), rounded to double only at the end:
  - positions whose prediction is missing are trimmed from both ends; n is what is left;
  - u counts the kept positions where actual and prediction are both present,
    e = actual - prediction there; k = nparms, dfe = u - k;
  - pe = e / actual, usable when the actual value is not 0 (or e is 0, pe = 0 then);
    v counts the usable pe;
  - d = actual minus the actual value at the position before it (before for the
    first given position), over kept positions where both are present; r counts them;
  - tss = sum a^2 and sst = sum a^2 - (sum a)^2 / u over the present actual values of
    the kept positions;
  - SSE, MSE, RMSE, SSE/dfe, sqrt(SSE/dfe), MAPE, MAE, RSQUARE = 1 - SSE/SST,
    ADJ_RSQ = 1 - (u-1)(SSE/SST)/dfe, A_ADJ_RSQ = 1 - (u+k)(SSE/SST)/dfe,
    RW_RSQ = 1 - divide(SSE/u, (sum d^2 - (sum d)^2/r) / r) with the module's safe
    division (so differences without spread give 1 - 1.3407807929943e154), AIC = u ln(SSE/u) + 2k,
    SBC = u ln(SSE/u) + k ln u, APC = (u+k) SSE / (u-k) / u, MAXERR, MINERR,
    MAXPE = 100 max pe, MINPE, ME = sum e / u, MPE = 100 sum pe / v;
    each missing where its denominator (or logarithm's argument) is not positive,
    and R-squares missing when SST <= 1.491668147e-154.
The summary of the actual series: counts, the shortest and longest runs of missing
values, the smallest and largest value, the mean and the sample standard deviation.
Missing values are written as ".".
"""
import csv
import itertools
import math
import os
from fractions import Fraction

import numpy as np

OUT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "data", "timeseries")
FIELDS = ["dfe", "n", "nobs", "nmissa", "nmissp", "nparms", "tss", "sst"] + [f"stat{i}" for i in range(1, 21)]
BOUND = Fraction(1.3407807929943e154)
SUMMARY = ["count", "nvalid", "nmiss", "minrun", "maxrun", "min", "max", "mean", "std"]


def fmt(v):
    if v is None or (isinstance(v, float) and math.isnan(v)):
        return "."
    return str(v) if isinstance(v, int) else repr(float(v))


def divide(a, b):
    """The module's safe division: a quotient too large to represent, or a non-zero
    number over 0, becomes +/-BOUND with the sign of the quotient; 0 / 0 is 0."""
    if abs(b) >= 1 or abs(a) < abs(b) * BOUND:
        return a / b
    if a == 0:
        return Fraction(0)
    return BOUND if (a > 0 if b == 0 else a * b > 0) else -BOUND


def fit(before, a, p, k):
    a = np.asarray(a, float)
    p = np.asarray(p, float)
    count = len(a)
    kept = np.flatnonzero(~np.isnan(p))
    lo, hi = (kept[0], kept[-1] + 1) if len(kept) else (0, 0)
    n = int(hi - lo)
    prev = np.concatenate([[before], a[:-1]])[lo:hi]
    aw, pw = a[lo:hi], p[lo:hi]

    used = ~np.isnan(aw) & ~np.isnan(pw)
    u = int(used.sum())
    e = [Fraction(x) - Fraction(y) for x, y in zip(aw[used], pw[used])]
    act = [Fraction(x) for x in aw[~np.isnan(aw)]]
    pe = [ei / Fraction(x) if x != 0 else Fraction(0) for ei, x in zip(e, aw[used]) if x != 0 or ei == 0]
    v = len(pe)
    both = ~np.isnan(aw) & ~np.isnan(prev)
    d = [Fraction(x) - Fraction(y) for x, y in zip(aw[both], prev[both])]
    r = len(d)

    stat = [None] * 21
    tss = sst = None
    if u > 0:
        sse = sum(x * x for x in e)
        dfe = u - k
        stat[1], stat[2] = sse, sse / u
        stat[3] = math.sqrt(sse / u)
        if dfe > 0:
            stat[4], stat[5] = sse / dfe, math.sqrt(sse / dfe)
        stat[7] = sum(abs(x) for x in e) / u
        tss = sum(x * x for x in act)
        sst = tss - sum(act) ** 2 / u
        if sst > 1.491668147e-154:
            stat[8] = 1 - sse / sst
            if dfe > 0:
                stat[9] = 1 - (u - 1) * (sse / sst) / dfe
                stat[10] = 1 - (u + k) * (sse / sst) / dfe
        if r > 0:
            rw = (sum(x * x for x in d) - sum(d) ** 2 / r) / r
            stat[11] = 1 - divide(sse / u, rw)
        if sse > 0:
            stat[12] = u * math.log(sse / u) + 2 * k
            stat[13] = u * math.log(sse / u) + k * math.log(u)
        if u - k > 0:
            stat[14] = Fraction(u + k) * sse / (u - k) / u
        stat[15], stat[16] = max(e), min(e)
        stat[19] = sum(e) / u
    if v > 0:
        stat[6] = 100 * sum(abs(x) for x in pe) / v
        stat[17], stat[18] = 100 * max(pe), 100 * min(pe)
        stat[20] = 100 * sum(pe) / v
    record = [u - k, n, count, int(np.isnan(a).sum()), int(np.isnan(p).sum()), k, tss, sst] + stat[1:]
    return [None if x is None else x if isinstance(x, int) else float(x) for x in record]


def summary(x):
    x = np.asarray(x, float)
    present = [Fraction(v) for v in x[~np.isnan(x)]]
    runs = [len(list(g)) for miss, g in itertools.groupby(np.isnan(x)) if miss]
    m = len(present)
    mean = sum(present) / m if m else None
    std = math.sqrt(sum((v - mean) ** 2 for v in present) / (m - 1)) if m > 1 else None
    return [len(x), m, len(x) - m, min(runs, default=0), max(runs, default=0),
            min(present) if m else None, max(present) if m else None, mean, std]


def cases(rng):
    nan = float("nan")
    walk = 100 + np.cumsum(rng.normal(0, 1, 60))
    out = [("clean", 99.5, walk, walk + rng.normal(0, 0.8, 60), 2)]

    a = 50 + rng.normal(0, 5, 40)
    p = a + rng.normal(0, 2, 40)
    p[:3] = nan
    p[-2:] = nan
    a[[1, 10, 11, 25, 39]] = nan
    out.append(("trimmed", nan, a, p, 3))

    a = rng.normal(0, 3, 30)
    p = a + rng.normal(0, 1, 30)
    a[[4, 9]] = 0.0
    p[9] = 0.0
    out.append(("zeros", 1.0, a, p, 1))

    a = 1e6 + rng.normal(0, 1, 50)
    out.append(("level", 1e6, a, a + rng.normal(0, 0.5, 50), 4))

    a = 20 + rng.normal(0, 2, 30)
    p = a + rng.normal(0, 1, 30)
    p[[7, 8, 20]] = nan
    out.append(("gaps", nan, a, p, 2))

    a = np.array([3.0, 5.0, 4.0, 6.0])
    out.append(("short", nan, a, a + 0.5, 5))
    out.append(("perfect", 1.0, walk[:20], walk[:20].copy(), 1))
    out.append(("constant", 7.0, np.full(12, 7.0), 7 + rng.normal(0, 1, 12), 0))
    out.append(("nopredictions", nan, walk[:8], np.full(8, nan), 2))
    out.append(("empty", nan, np.array([]), np.array([]), 0))

    for j in range(20):
        m = int(rng.integers(1, 80))
        a = rng.normal(rng.uniform(-100, 100), rng.uniform(0.1, 20), m)
        p = a + rng.normal(0, rng.uniform(0.01, 5), m)
        a[rng.random(m) < 0.15] = nan
        p[rng.random(m) < 0.15] = nan
        before = nan if j % 3 == 0 else float(rng.normal(0, 50))
        out.append((f"random{j}", before, a, p, int(rng.integers(0, 6))))
    return out


def main():
    rng = np.random.default_rng(7)
    os.makedirs(OUT, exist_ok=True)
    with open(os.path.join(OUT, "fitstats_series.csv"), "w", newline="") as fs, \
         open(os.path.join(OUT, "fitstats_expected.csv"), "w", newline="") as fe:
        ws = csv.writer(fs, lineterminator="\n")
        we = csv.writer(fe, lineterminator="\n")
        ws.writerow(["case", "i", "actual", "predicted"])
        we.writerow(["case", "before", "nparms"] + FIELDS + SUMMARY)
        for name, before, a, p, k in cases(rng):
            for i, (x, y) in enumerate(zip(a, p)):
                ws.writerow([name, i, fmt(float(x)), fmt(float(y))])
            row = fit(before, a, p, k) + summary(a)
            we.writerow([name, fmt(before), k] + [fmt(x) for x in row])


if __name__ == "__main__":
    main()
