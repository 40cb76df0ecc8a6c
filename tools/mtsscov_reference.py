#!/usr/bin/python3
"""Reference values for the series diagnostics service (tests/services/mtsscov_test.cpp).

    tools/mtsscov_reference.py [OUTDIR]     (default tests/data/services)

writes
  mtsscov_input.csv     T, Y: an AR(1) series of 120 values around 50, with two missing
                        values before it and one after it (the service trims them)
  mtsscov_expected.csv  one row per lag 0..12 of the trimmed series: statsmodels' acovf
                        and acf (biased, direct sums), Bartlett bands from acf's
                        confidence intervals, PACF from levinson_durbin, inverse
                        autocorrelations from the AR(12) that levinson_durbin fits, Ljung-Box
                        probabilities from acorr_ljungbox, their -log10, and two-sided
                        normal significance probabilities from scipy
  mtsscov_summary.csv   name, value: the mean, the counts and 1/sqrt(n)
  mtsscov_adf.csv       lag, pvalue: statsmodels' adfuller (constant, fixed lag) tau
                        probabilities from MacKinnon's surfaces, a loose check of the
                        Dickey-Fuller table probabilities

Values are printed with repr; an empty cell is a value that must be missing.
"""
import csv
import math
import os
import sys

import numpy as np
from scipy import stats
from statsmodels.stats.diagnostic import acorr_ljungbox
from statsmodels.tsa.stattools import acf, acovf, adfuller, levinson_durbin

NLAGS = 12


def ar1(rng, n, phi, burn=200):
    e = rng.standard_normal(n + burn)
    y = np.zeros(n + burn)
    for t in range(1, n + burn):
        y[t] = phi * y[t - 1] + e[t]
    return y[burn:]


def iacf_from(arcoefs, maxlag):
    """Inverse autocorrelations of an AR(m): the ACF of the MA(m) with its coefficients."""
    c = np.r_[-1.0, arcoefs]
    m = len(arcoefs)
    d0 = float(np.dot(c, c))
    return [1.0] + [float(np.dot(c[: m + 1 - j], c[j:])) / d0 if j <= m else None for j in range(1, maxlag + 1)]


def band(value, sign):
    return sign * (1.0 if value > 0.5 else 2 * value)


def logp(p):
    return 4.0 if p <= 1e-4 else -math.log10(p)


def significance(r, se):
    return min(max(2 * stats.norm.sf(abs(r / se)), 1e-4), 0.9999)


def cell(v):
    return "" if v is None else repr(float(v))


def main():
    out = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(__file__), "..", "tests", "data", "services")
    rng = np.random.default_rng(20261123)
    x = 50 + ar1(rng, 120, 0.5)
    n = len(x)

    with open(os.path.join(out, "mtsscov_input.csv"), "w", newline="") as f:
        w = csv.writer(f, lineterminator="\n")
        w.writerow(["T", "Y"])
        values = [None, None] + list(x) + [None]
        for t, v in enumerate(values, 1):
            w.writerow([t, cell(v)])

    cov = acovf(x, adjusted=False, demean=True, fft=False, nlag=NLAGS)
    r, confint = acf(x, nlags=NLAGS, fft=False, alpha=0.05)
    se = (confint[:, 1] - confint[:, 0]) / (2 * stats.norm.ppf(0.975))
    _, _, pacf, _, _ = levinson_durbin(cov, nlags=NLAGS, isacov=True)
    iacf = iacf_from(levinson_durbin(cov, nlags=NLAGS, isacov=True)[1], NLAGS)
    lb = acorr_ljungbox(x, lags=NLAGS, return_df=True)["lb_pvalue"].to_numpy()
    wn = [0.0] + list(lb)
    s = 1 / math.sqrt(n)

    header = ["LAG", "N", "ACOV", "LACF", "ACF", "UACF", "LPACF", "PACF", "UPACF", "LIACF", "IACF", "UIACF",
              "WNOISE", "WN_LP", "ACF_PRB", "PACF_PRB", "IACF_PRB", "ACF_LP", "PACF_LP", "IACF_LP"]
    with open(os.path.join(out, "mtsscov_expected.csv"), "w", newline="") as f:
        w = csv.writer(f, lineterminator="\n")
        w.writerow(header)
        for k in range(NLAGS + 1):
            lag0 = k == 0
            prb = [0.0, 0.0, 0.0] if lag0 else [significance(r[k], se[k]), significance(pacf[k], s),
                                                 significance(iacf[k], s)]
            row = [k, n - k, cov[k], band(se[k], -1), r[k], band(se[k], 1),
                   None if lag0 else -2 * s, 1.0 if lag0 else pacf[k], None if lag0 else 2 * s,
                   None if lag0 else -2 * s, iacf[k], None if lag0 else 2 * s,
                   wn[k], logp(wn[k])] + prb + [logp(p) for p in prb]
            w.writerow([cell(v) for v in row])

    with open(os.path.join(out, "mtsscov_summary.csv"), "w", newline="") as f:
        w = csv.writer(f, lineterminator="\n")
        w.writerow(["name", "value"])
        for name, v in [("NLAGS", NLAGS), ("MEAN", float(np.mean(x))), ("NNMSS", n), ("PACF_STD", s),
                        ("IACF_STD", s), ("N", n)]:
            w.writerow([name, cell(v)])

    with open(os.path.join(out, "mtsscov_adf.csv"), "w", newline="") as f:
        w = csv.writer(f, lineterminator="\n")
        w.writerow(["lag", "pvalue"])
        for p in range(3):
            w.writerow([p, cell(adfuller(x, maxlag=p, regression="c", autolag=None)[1])])


if __name__ == "__main__":
    main()
