#!/usr/bin/python3
"""Writes the reference values of the command-line checks on samples/ into tests/data/app/.

  diag_<series>.csv     per lag: ACF (statsmodels acf, biased, direct sums), PACF
                        (statsmodels pacf, Levinson-Durbin on the biased autocovariances),
                        WNOISE (acorr_ljungbox p-values; 0 at lag 0) and ADF, the p-value
                        of statsmodels' adfuller with that many augmenting lags
  transform_air.csv     treated AirPassengers series: numpy logarithms and differences,
                        pandas pct_change, statsmodels seasonal_decompose
  moddata_air.csv       the model data of AirPassengers: log of the series, trend curves,
                        interventions and month dummies, from Python's datetime and numpy
  moddata_weekly.csv    the 52 week dummies of samples/weekly.csv, the 53rd week shared
                        between the first and the last dummy
  airforecast.csv       forecasts of a seasonal naive model of log AirPassengers (the
                        forecast data set given to modout)
  modout_air.csv        what modout writes for that model with mean back-transformation
  modout_fit.csv        its statistics of fit over 1949 to 1960, computed directly
Run: /usr/bin/python3 tools/samples_reference.py
"""
import csv
import datetime
import math
import os

import numpy as np
import pandas as pd
from statsmodels.stats.diagnostic import acorr_ljungbox
from statsmodels.tsa.seasonal import seasonal_decompose
from statsmodels.tsa.stattools import acf, adfuller, pacf

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
SAMPLES = os.path.join(ROOT, "samples")
OUT = os.path.join(ROOT, "tests", "data", "app")
EPOCH = datetime.date(1960, 1, 1)


def cell(v):
    if v is None:
        return ""
    if isinstance(v, (int, np.integer)):
        return str(int(v))
    if isinstance(v, str):
        return v
    return "" if np.isnan(v) else "%.17g" % v


def write(name, header, rows):
    with open(os.path.join(OUT, name), "w", newline="") as f:
        w = csv.writer(f, lineterminator="\n")
        w.writerow(header)
        for row in rows:
            w.writerow([cell(v) for v in row])


def sample(name):
    d = pd.read_csv(os.path.join(SAMPLES, name + ".csv"), parse_dates=["date"])
    return [t.date() for t in d["date"]], d.iloc[:, 1].to_numpy(dtype=float)


def day(d):
    return (d - EPOCH).days


def diagnostics(name, nlags, regression, maxar):
    _, x = sample(name)
    r = acf(x, nlags=nlags, adjusted=False, fft=False)
    p = pacf(x, nlags=nlags, method="ldb")
    wn = [0.0] + list(acorr_ljungbox(x, lags=nlags, return_df=True)["lb_pvalue"])
    adf = [adfuller(x, maxlag=k, regression=regression, autolag=None)[1] if k <= maxar else None
           for k in range(nlags + 1)]
    write("diag_%s.csv" % name, ["LAG", "ACF", "PACF", "WNOISE", "ADF"],
          [(k, r[k], p[k], wn[k], adf[k]) for k in range(nlags + 1)])


def lagged(y, lag):
    d = np.full(len(y), np.nan)
    d[lag:] = y[lag:] - y[:-lag]
    return d


def transforms():
    dates, x = sample("airpassengers")
    logdif = lagged(lagged(np.log(x), 1), 12)
    pchange = pd.Series(x).pct_change().to_numpy() * 100
    mult = seasonal_decompose(x, model="multiplicative", period=12)
    dif = lagged(x, 1)
    # The differenced series holds a 0 (August 1949), where a multiplicative model
    # cannot go: its trend-cycle is that of the additive model, a 12-month mean of
    # the values present followed by a 2-term mean, so that the window over the
    # missing first difference still has a value; statsmodels agrees elsewhere.
    n = len(x)
    ma12 = pd.Series(dif).rolling(12, min_periods=1).mean().to_numpy()
    fallback = np.full(n, np.nan)
    fallback[6:n - 6] = (ma12[11:n - 1] + ma12[12:n]) / 2
    plain = seasonal_decompose(dif[1:], model="additive", period=12).trend
    assert np.allclose(fallback[7:], plain[6:], rtol=1e-13, atol=1e-13, equal_nan=True)
    columns = {"logdif": logdif, "pchange": pchange, "mult_tc": mult.trend, "mult_sc": mult.seasonal,
               "mult_ic": mult.resid, "mult_sa": mult.trend * mult.resid, "fallback_tc": fallback}
    write("transform_air.csv", ["date"] + list(columns),
          [[dates[i].isoformat()] + [c[i] for c in columns.values()] for i in range(len(x))])


def months_between(a, b):
    return (b.year - a.year) * 12 + b.month - a.month


def moddata_air():
    dates, x = sample("airpassengers")
    start = dates[0]
    event = datetime.date(1955, 1, 1)
    rows = []
    for i in range(156):  # 144 months of data and 12 of forecast horizon
        d = datetime.date(1949 + i // 12, i % 12 + 1, 1)
        t = i + 1 - 51  # the trend time starts 51 lower when a quadratic curve is asked for
        k = months_between(event, d)
        dummies = [1 if d.month == m else 0 for m in range(1, 12)]
        rows.append([d.isoformat(), math.log(x[i]) if i < len(x) else None, t, t * t,
                     1 if k >= 0 else 0, max(k, 0), 1 if k == 0 else 0] + dummies)
    assert dates[0] == start
    write("moddata_air.csv", ["date", "air", "trend", "quad", "step", "ramp", "point"] +
          ["s%d" % m for m in range(1, 12)], rows)


def week_start(d):
    return d - datetime.timedelta(days=(d.weekday() + 1) % 7)  # weeks begin on Sunday


def moddata_weekly():
    dates, _ = sample("weekly")
    # Weeks count from the week that holds 4 January; a year with 53 such weeks gives
    # its last week a share of the first season (the part of that week in the new
    # year) and the rest to the last season.
    seasons = []
    for d in dates:
        first = week_start(datetime.date(d.year, 1, 4))
        seasons.append(((d - first).days // 7) % 52)
    rows = []
    for i, d in enumerate(dates):
        row = [0.0] * 52
        if i + 1 < len(dates) and seasons[i + 1] == seasons[i]:
            new_year = datetime.date(d.year + 1, 1, 1)
            share = (week_start(new_year) + datetime.timedelta(days=7) - new_year).days / 7
            row[0], row[51] = share, 1 - share
        else:
            row[seasons[i]] = 1.0
        rows.append([d.isoformat()] + row)
    write("moddata_weekly.csv", ["date"] + ["w%d" % j for j in range(1, 53)], rows)


def modout_air():
    dates, x = sample("airpassengers")
    y = np.log(x)
    resid = y[12:] - y[:-12]
    sigma = float(np.std(resid, ddof=1))
    # Forecasts from 1950 to 1961: last year's value of the same month.
    fc = []
    for i in range(12, 156):
        d = datetime.date(1949 + i // 12, i % 12 + 1, 1)
        p = y[i - 12]
        r = y[i] - p if i < len(y) else None
        fc.append([d.isoformat(), p, p + 1.96 * sigma, p - 1.96 * sigma, r, sigma])
    write("airforecast.csv", ["date", "forecast", "u95", "l95", "residual", "resstd"], fc)

    rows, actual, predicted = [], [], []
    for i in range(156):
        d = datetime.date(1949 + i // 12, i % 12 + 1, 1)
        a = x[i] if i < len(x) else None
        if i < 12:
            rows.append([d.isoformat(), a] + [None] * 9)
            actual.append(a)
            predicted.append(None)
            continue
        p = y[i - 12]
        mean = math.exp(p + sigma ** 2 / 2)
        std = math.sqrt(math.expm1(sigma ** 2)) * mean
        e = a - mean if a is not None else None
        # Residuals belong to the fit range, which ends with the data.
        r = fc[i - 12][4]
        rows.append([d.isoformat(), a, mean, math.exp(p + 1.96 * sigma), math.exp(p - 1.96 * sigma), e, std,
                     e / std if e is not None else None, r, sigma if r is not None else None,
                     r / sigma if r is not None else None])
        if i < len(x):
            actual.append(a)
            predicted.append(mean)
    write("modout_air.csv", ["date", "actual", "predict", "upper", "lower", "error", "std", "nerror", "residual",
                             "resstd", "nresid"], rows)

    # Statistics of fit over the 144 months; the first year has no prediction and
    # is left out, as it leads the series.
    k = 1
    a = np.array(actual[12:])
    e = a - np.array(predicted[12:])
    u = len(e)
    sse = float(np.sum(e ** 2))
    sst = float(np.sum(a ** 2) - np.sum(a) ** 2 / u)
    pe = e / a
    # The random-walk R-square differences the first year's last month too: the
    # first position kept is differenced with the one before it.
    d = np.diff(np.array(actual[11:]))
    r = len(d)
    stats = {
        "N": u, "NOBS": 144, "NMISSA": 0, "NMISSP": 12, "NPARMS": k,
        "TSS": float(np.sum(a ** 2)), "SST": sst, "SSE": sse, "MSE": sse / u, "RMSE": math.sqrt(sse / u),
        "MAPE": 100 * float(np.mean(np.abs(pe))), "MAE": float(np.mean(np.abs(e))), "RSQUARE": 1 - sse / sst,
        "ADJ_RSQ": 1 - (u - 1) * (sse / sst) / (u - k), "A_ADJ_RSQ": 1 - (u + k) * (sse / sst) / (u - k),
        "RW_RSQ": 1 - (sse / u) / ((np.sum(d ** 2) - np.sum(d) ** 2 / r) / r),
        "AIC": u * math.log(sse / u) + 2 * k, "SBC": u * math.log(sse / u) + k * math.log(u),
        "APC": (u + k) * sse / (u - k) / u, "MAXERR": float(e.max()), "MINERR": float(e.min()),
        "MAXPE": 100 * float(pe.max()), "MINPE": 100 * float(pe.min()), "ME": float(e.mean()),
        "MPE": 100 * float(pe.mean()),
    }
    write("modout_fit.csv", ["name", "value"], [(n, float(v)) for n, v in stats.items()] + [("DFE", float(u - k))])


def main():
    os.makedirs(OUT, exist_ok=True)
    diagnostics("airpassengers", 24, "c", 6)
    diagnostics("co2", 24, "ct", 6)
    diagnostics("ukgas", 12, "n", 4)
    transforms()
    moddata_air()
    moddata_weekly()
    modout_air()


if __name__ == "__main__":
    main()
