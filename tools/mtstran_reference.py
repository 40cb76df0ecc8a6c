#!/usr/bin/python3
"""Writes the reference cases of the series transformation service under tests/data/services/.

  mtstran_in.csv        the input data set: a monthly date and a seasonal series of six
                        years with a trend (values rounded to three decimals, so that the
                        CSV text is the series exactly)
  mtstran_cases.csv     one row per case: name, season length, option list as JSON
  mtstran_expected.csv  one column per case, the treated series; missing values empty

The expected series come from numpy, scipy and statsmodels, not from the service's
own steps:
  - logarithm, Box-Cox and their differences with numpy.log, scipy.special.boxcox and
    numpy differences over shifted arrays;
  - the percent change with pandas.Series.pct_change (times 100);
  - the decomposition components with statsmodels.tsa.seasonal.seasonal_decompose
    (centred 2 x 12 moving average, seasonal means normalised to average 1 or 0); the
    seasonally adjusted series is trend times (or plus) the irregular.
"""
import csv
import datetime
import json
import os

import numpy as np
import pandas as pd
from scipy import special
from statsmodels.tsa.seasonal import seasonal_decompose

OUT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "data", "services")
S = 12
N = 72


def series():
    rng = np.random.default_rng(20261123)
    t = np.arange(N)
    x = (100 + 2 * t) * (1 + 0.2 * np.sin(2 * np.pi * t / S)) * np.exp(rng.normal(0, 0.02, N))
    return np.round(x, 3)


def lagged(y, lag):
    d = np.full(len(y), np.nan)
    d[lag:] = y[lag:] - y[:-lag]
    return d


def decomposed(x, model, part):
    r = seasonal_decompose(x, model=model, period=S)
    if part == "TC":
        return r.trend
    if part == "SC":
        return r.seasonal
    if part == "IC":
        return r.resid
    return r.trend * r.resid if model == "multiplicative" else r.trend + r.resid


def main():
    x = series()
    dates = [datetime.date(1990 + k // 12, k % 12 + 1, 1) for k in range(N)]
    with open(os.path.join(OUT, "mtstran_in.csv"), "w", newline="") as f:
        w = csv.writer(f, lineterminator="\n")
        w.writerow(["DATE", "SALES"])
        for d, v in zip(dates, x):
            w.writerow([d.isoformat(), repr(float(v))])

    cases = [
        ("log_dif_sdif", S, {"TRNSTYPE": "LOG", "DIF": 1, "SDIF": 1}, lagged(lagged(np.log(x), 1), S)),
        ("boxcox_dif", S, {"TRNSTYPE": "BOXCOX", "TRNSPARM": 0.5, "DIF": 1}, lagged(special.boxcox(x, 0.5), 1)),
        ("sqrt_inverse", 0, {"TRNSTYPE": "SQRT", "TRNSOPT": "INVERSE", "TRNSPARM": 2.5}, x * x - 2.5),
        ("pchange", 0, {"PCHANGE": 1}, pd.Series(x).pct_change().to_numpy() * 100),
        ("sdif2", S, {"SDIF": 2}, lagged(lagged(x, S), S)),
    ]
    for model, word in (("multiplicative", "MULT"), ("additive", "ADDITIVE")):
        for part in ("TC", "SC", "IC", "SA"):
            cases.append((f"{model[:4]}_{part.lower()}", S, {"CDLIST": {"CDTYPE": word, "CDCOMP": part}},
                          decomposed(x, model, part)))

    with open(os.path.join(OUT, "mtstran_cases.csv"), "w", newline="") as f:
        w = csv.writer(f, lineterminator="\n", delimiter=";", quoting=csv.QUOTE_NONE, quotechar=None)
        for name, s, options, _ in cases:
            w.writerow([name, s, json.dumps(options)])
    with open(os.path.join(OUT, "mtstran_expected.csv"), "w", newline="") as f:
        w = csv.writer(f, lineterminator="\n")
        w.writerow([c[0] for c in cases])
        for i in range(N):
            w.writerow(["" if np.isnan(c[3][i]) else repr(float(c[3][i])) for c in cases])


if __name__ == "__main__":
    main()
