#!/usr/bin/python3
"""Reference values for the unit-root tests (tests/unitroot/*_test.cpp).

    tools/unitroot_reference.py [OUTDIR]     (default tests/data/unitroot)

Needs Debian's python3-statsmodels, python3-scipy and R with r-cran-urca and
r-cran-tseries (tools/unitroot_reference.R). Writes, with NA for a missing value or a
figure the case does not check:

series.csv    case, index, value: Nile, lynx, log(AirPassengers) and co2 exported from
              R's datasets package, and simulated series drawn here from fixed seeds.
adf.csv       the (augmented) Dickey-Fuller regression of every case for variants 0, 1, 2
              (zero mean, single mean, trend) and lags 0 to 12: tau_sm from statsmodels'
              adfuller (autolag=None, maxlag=p; series without gaps), and from a numpy
              least-squares fit (QR) of the same rows: the estimates e0.. in the order
              [1] [t] y[t-1] dy[t-1] .. dy[t-p], their standard errors s0.., rho =
              nobs b / (1 - sum of lag coefficients), tau, its two-sided t probability
              with nobs degrees of freedom (scipy), SSE / nobs, and for variants 1 and 2
              the joint F of the last deterministic term and the level (statsmodels'
              f_test) with scipy's F tail. A regressor that is a linear combination of those before
              it (rank test on the rows) is left out of the fit: estimate 0, se NA.
seasonal.csv  the seasonal Dickey-Hasza-Fuller regression for d = 3, 4, 12, variants 0
              and 1, lags 0 to 3, from numpy: p = 0 regresses y[t] on [1] and y[t-d];
              p > 0 fits the autoregression of the seasonal differences, filters the
              levels and the differences with it, and regresses the filtered difference
              on [1], the filtered level at t - d and the unfiltered lagged differences.
pp.csv        Phillips-Perron Z(rho) and Z(tau) for variants 0, 1, 2 and truncation lags 0
              to 8, by Hamilton's (1994) formulas 17.6.8 and 17.6.12 on a numpy fit, with
              Bartlett weights and autocovariances summed over pairs of present residuals
              and divided by the number of regression rows.
pp_r.csv      urca's ur.pp and tseries' pp.test on the clean series with the figures that
              convert them (see tools/unitroot_reference.R).
"""
import csv
import math
import os
import subprocess
import sys
import tempfile

import numpy as np
from scipy import stats
from statsmodels.regression.linear_model import OLS
from statsmodels.tsa.stattools import adfuller

HERE = os.path.dirname(os.path.abspath(__file__))
MAXLAG = 12
KMAX = 3 + MAXLAG


def fmt(v):
    if v is None or (isinstance(v, float) and math.isnan(v)):
        return "NA"
    return repr(float(v))


def simulated():
    rng = np.random.default_rng(20240617)
    out = {}
    out["rw200"] = 10 + np.cumsum(rng.standard_normal(200))
    e = rng.standard_normal(400)
    ar = np.zeros(400)
    for t in range(1, 400):
        ar[t] = 0.5 * ar[t - 1] + e[t]
    out["ar300"] = 5 + ar[100:]
    t = np.arange(250)
    out["drift250"] = 3 + 0.05 * t + np.cumsum(0.8 * rng.standard_normal(250))
    e = rng.standard_normal(320)
    ar2 = np.zeros(320)
    for i in range(2, 320):
        ar2[i] = 1.2 * ar2[i - 1] - 0.4 * ar2[i - 2] + e[i]
    out["ar2_150"] = 50 + ar2[170:]
    gaps = 100 + np.cumsum(rng.standard_normal(220))
    gaps[[5, 40, 41, 90, 130, 131, 132, 170, 205]] = np.nan
    out["gaps"] = gaps
    # A seasonal random walk of period 4 with a little noise on top.
    q = np.zeros(160)
    eq = rng.standard_normal(160)
    for i in range(160):
        q[i] = (q[i - 4] if i >= 4 else 2.0 * (i % 4)) + eq[i]
    out["quarterly"] = q + 0.3 * rng.standard_normal(160)
    # Runs of four present values, each rising by exactly 1 before a random step, then
    # a gap: on every usable row dy[t-1] = 1, collinear with the intercept.
    blocks = []
    for _ in range(30):
        u = rng.normal(10, 3)
        blocks += [u, u + 1, u + 2, u + 2 + rng.normal(0, 2), np.nan]
    out["blocks"] = np.array(blocks)
    return out


def real_series(workdir):
    path = os.path.join(workdir, "datasets.csv")
    subprocess.run(["Rscript", os.path.join(HERE, "unitroot_reference.R"), "datasets", path], check=True)
    cases = {}
    with open(path) as f:
        for row in csv.DictReader(f):
            cases.setdefault(row["case"], []).append(float(row["value"]))
    return {k: np.array(v) for k, v in cases.items()}


def fit(X, y):
    """Least squares by QR, leaving out each column that adds no rank to those before
    it. Returns estimates and standard errors over all columns (0 and NaN for a dropped
    one), the SSE, the kept columns and the fit."""
    keep = []
    for j in range(X.shape[1]):
        if np.linalg.matrix_rank(X[:, keep + [j]], tol=1e-9 * max(1.0, np.abs(X[:, keep + [j]]).max())) == len(keep) + 1:
            keep.append(j)
    Xk = X[:, keep]
    q, r = np.linalg.qr(Xk)
    bk = np.linalg.solve(r, q.T @ y)
    resid = y - Xk @ bk
    sse = float(resid @ resid)
    nobs = len(y)
    s2 = sse / (nobs - len(keep))
    rinv = np.linalg.inv(r)
    cov = s2 * (rinv @ rinv.T)
    b = np.zeros(X.shape[1])
    se = np.full(X.shape[1], np.nan)
    b[keep] = bk
    se[keep] = np.sqrt(np.diag(cov))
    return b, se, sse, keep, s2


def rows_of(columns, first, n):
    """The regression rows t = first .. n-1 whose members are all present."""
    X, y = [], []
    for t in range(first, n):
        row = [c(t) for c in columns]
        if all(not math.isnan(v) for v in row):
            X.append(row[:-1])
            y.append(row[-1])
    return np.array(X, dtype=float), np.array(y, dtype=float)


def deterministic(variant):
    return ([lambda t: 1.0] if variant >= 1 else []) + ([lambda t: float(t)] if variant == 2 else [])


def differences(y, d):
    dy = np.full(len(y), np.nan)
    dy[d:] = y[d:] - y[:-d]
    return dy


def adf_case(name, y, variant, p, clean):
    n = len(y)
    dy = differences(y, 1)
    cols = deterministic(variant) + [lambda t: y[t - 1]]
    cols += [(lambda j: (lambda t: dy[t - j]))(j) for j in range(1, p + 1)] + [lambda t: dy[t]]
    X, z = rows_of(cols, max(1, p), n)
    nobs, k = X.shape
    b, se, sse, keep, _ = fit(X, z)
    lvl = variant
    rho = nobs * b[lvl] / (1 - sum(b[lvl + 1:lvl + 1 + p])) if lvl in keep else np.nan
    tau = b[lvl] / se[lvl] if lvl in keep else np.nan
    tprob = 2 * stats.t.sf(abs(tau), nobs) if lvl in keep else np.nan
    f = fprob = np.nan
    if variant >= 1 and lvl in keep and variant - 1 in keep:
        R = np.zeros((2, len(keep)))
        R[0, keep.index(variant - 1)] = 1
        R[1, keep.index(lvl)] = 1
        f = float(np.squeeze(OLS(z, X[:, keep]).fit().f_test(R).fvalue))
        fprob = stats.f.sf(f, 2, nobs - len(keep))
    tau_sm = np.nan
    if clean:
        tau_sm = adfuller(y, maxlag=p, regression=["n", "c", "ct"][variant], autolag=None)[0]
    est = list(b) + [np.nan] * (KMAX - k)
    ses = list(se) + [np.nan] * (KMAX - k)
    return [name, variant, p, nobs, tau_sm, rho, tau, tprob, f, fprob, sse / nobs] + est + ses


def seasonal_case(name, y, d, variant, p):
    n = len(y)
    dd = differences(y, d)
    if p == 0:
        cols = deterministic(variant) + [lambda t: y[t - d], lambda t: y[t]]
        X, z = rows_of(cols, d, n)
        b, se, sse, _, _ = fit(X, z)
        nobs = len(z)
        rho = nobs * (b[variant] - 1)
        tau = (b[variant] - 1) / se[variant]
    else:
        lags = [(lambda j: (lambda t: dd[t - j]))(j) for j in range(1, p + 1)]
        Xa, za = rows_of(lags + [lambda t: dd[t]], p, n)
        phi, _, _, _, _ = fit(Xa, za)

        def filtered(x):
            out = np.full(n, np.nan)
            for t in range(p, n):
                out[t] = x[t] - sum(phi[j - 1] * x[t - j] for j in range(1, p + 1))
            return out

        zl, zd = filtered(y), filtered(dd)
        cols = deterministic(variant) + [lambda t: zl[t - d]] + lags + [lambda t: zd[t]]
        X, z = rows_of(cols, max(d, p), n)
        b, se, sse, _, _ = fit(X, z)
        nobs = len(z)
        rho = nobs * b[variant]
        tau = b[variant] / se[variant]
    return [name, d, variant, p, nobs, rho, tau, sse / nobs]


def pp_case(name, y, variant, lags):
    n = len(y)
    cols = deterministic(variant) + [lambda t: y[t - 1], lambda t: y[t]]
    X, z = rows_of(cols, 1, n)
    T = X.shape[0]
    b, se, sse, _, s2 = fit(X, z)
    s = math.sqrt(s2)
    sigma2 = sse / T
    # Residuals in series positions, so that lags pair values one step apart in time.
    e = np.full(n, np.nan)
    for t in range(1, n):
        row = [c(t) for c in cols]
        if not any(math.isnan(v) for v in row):
            e[t] = row[-1] - float(np.dot(b, row[:-1]))
    gamma = []
    for j in range(0, max(lags) + 1):
        prods = [e[i] * e[i - j] for i in range(j, n) if not math.isnan(e[i]) and not math.isnan(e[i - j])]
        gamma.append(math.fsum(prods) / T if prods else np.nan)
    out = []
    brho = b[variant] - 1
    t = brho / se[variant]
    for l in lags:
        lam = 2 * sum((1 - j / (l + 1)) * gamma[j] for j in range(1, l + 1))
        omega2 = sigma2 + lam
        zrho = T * brho - 0.5 * (T ** 2 * se[variant] ** 2 / s2) * lam
        ztau = math.sqrt(sigma2 / omega2) * t - 0.5 * lam / math.sqrt(omega2) * (T * se[variant] / s)
        out.append([name, variant, l, T, math.sqrt(omega2), zrho, ztau] + list(b))
    return out


def write(path, header, rows):
    with open(path, "w", newline="") as f:
        w = csv.writer(f, lineterminator="\n")
        w.writerow(header)
        for r in rows:
            w.writerow([fmt(v) if isinstance(v, (float, np.floating)) else v for v in r])


def main():
    outdir = sys.argv[1] if len(sys.argv) > 1 else os.path.join(HERE, "..", "tests", "data", "unitroot")
    os.makedirs(outdir, exist_ok=True)
    with tempfile.TemporaryDirectory() as work:
        series = real_series(work)
        series.update(simulated())
        rows = [[name, i, v] for name, y in series.items() for i, v in enumerate(y)]
        write(os.path.join(outdir, "series.csv"), ["case", "index", "value"], rows)

        clean = [c for c in series if c not in ("gaps", "blocks")]
        adf = []
        for name, y in series.items():
            for variant in range(3):
                for p in range(0, (2 if name == "blocks" else MAXLAG) + 1):
                    adf.append(adf_case(name, y, variant, p, name in clean))
        header = ["case", "variant", "p", "nobs", "tau_sm", "rho", "tau", "tprob", "f", "fprob", "sigma2"]
        header += [f"e{i}" for i in range(KMAX)] + [f"s{i}" for i in range(KMAX)]
        write(os.path.join(outdir, "adf.csv"), header, adf)

        seas = []
        for name, d in (("logair", 12), ("co2", 12), ("quarterly", 4), ("quarterly", 3), ("gaps", 4)):
            for variant in (0, 1):
                for p in range(4):
                    seas.append(seasonal_case(name, series[name], d, variant, p))
        write(os.path.join(outdir, "seasonal.csv"), ["case", "d", "variant", "p", "nobs", "rho", "tau", "sigma2"], seas)

        pp = []
        for name in ("nile", "lynx", "co2", "rw200", "ar300", "gaps"):
            for variant in range(3):
                pp += pp_case(name, series[name], variant, list(range(9)))
        write(os.path.join(outdir, "pp.csv"), ["case", "variant", "lag", "nobs", "omega", "zrho", "ztau", "e0", "e1", "e2"],
              [r + [np.nan] * (10 - len(r)) for r in pp])

        subprocess.run(["Rscript", os.path.join(HERE, "unitroot_reference.R"), "pp", os.path.join(outdir, "series.csv"),
                        os.path.join(outdir, "pp_r.csv"), "nile", "lynx", "co2", "rw200", "ar300"], check=True)


if __name__ == "__main__":
    main()
