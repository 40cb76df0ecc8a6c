#!/usr/bin/python3
"""The data and the statsmodels side of bench/compare_by.sh.

  by_peer.py generate SEED COUNT FILE
      writes COUNT monthly series of 144 values (January 2000 on) as one CSV file
      with the columns ID, date, x, sorted by ID: a random walk plus a seasonal
      cycle, drawn from SEED
  by_peer.py run FILE SAMPLE
      reads the first SAMPLE series of FILE and times, series by series, what
      fmsd diagnose computes with --nlags 24 and the unit-root tests at MAXAR 2
      and DLAG 12; prints one JSON line with the versions and the processor
      seconds per series

Per series: acf(nlags=24, fft=False) with Bartlett bands, pacf(nlags=24,
method='ldbiased'), acorr_ljungbox(lags=24), adfuller(maxlag=p, regression='c',
autolag=None) for p = 0, 1, 2, and the seasonal Dickey-Fuller regression at lag 12
fitted with OLS (statsmodels has no seasonal unit-root test: the regression of
y[t] - y[t-12] on a constant and y[t-12] is what the test statistic comes from; its
probability needs fmsd's own distribution and is not computed). statsmodels has
no inverse autocorrelations either; the peer is spared them.
"""
import json
import sys
import time

import numpy as np
import pandas as pd
import statsmodels
import statsmodels.api as sm
from statsmodels.stats.diagnostic import acorr_ljungbox
from statsmodels.tsa.stattools import acf, adfuller, pacf

LENGTH = 144
LAGS = 24
MAXAR = 2
SEASON = 12


def generate(seed, count, path):
    rng = np.random.default_rng(seed)
    dates = [f"{2000 + m // 12}-{m % 12 + 1:02d}-01" for m in range(LENGTH)]
    season = 5 * np.sin(2 * np.pi * np.arange(LENGTH) / SEASON)
    with open(path, "w") as out:
        out.write("ID,date,x\n")
        for first in range(0, count, 1000):
            block = min(1000, count - first)
            x = 100 + np.cumsum(rng.standard_normal((block, LENGTH)), axis=1) + season
            lines = []
            for k in range(block):
                ident = first + k + 1
                lines.extend(f"{ident},{d},{v:.6f}" for d, v in zip(dates, x[k]))
            out.write("\n".join(lines) + "\n")


def diagnose(x):
    acf(x, nlags=LAGS, fft=False, alpha=0.05)
    pacf(x, nlags=LAGS, method="ldbiased")
    acorr_ljungbox(x, lags=LAGS)
    for p in range(MAXAR + 1):
        adfuller(x, maxlag=p, regression="c", autolag=None)
    y, lagged = x[SEASON:] - x[:-SEASON], x[:-SEASON]
    sm.OLS(y, sm.add_constant(lagged)).fit()


def run(path, sample):
    data = pd.read_csv(path, nrows=sample * LENGTH)
    series = [g["x"].to_numpy() for _, g in data.groupby("ID", sort=False)]
    start = time.process_time()
    for x in series:
        diagnose(x)
    seconds = time.process_time() - start
    print(json.dumps({"statsmodels": statsmodels.__version__, "numpy": np.__version__, "series": len(series),
                      "cpu_seconds_per_series": seconds / len(series)}))


if __name__ == "__main__":
    if sys.argv[1] == "generate":
        generate(int(sys.argv[2]), int(sys.argv[3]), sys.argv[4])
    elif sys.argv[1] == "run":
        run(sys.argv[2], int(sys.argv[3]))
    else:
        sys.exit(__doc__)
