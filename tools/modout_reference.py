#!/usr/bin/python3
"""Writes the reference cases of the model output service under tests/data/services/.

Each case FAMILY_OPTION has:
  FAMILY_OPTION_params.json    the parameter list the service receives
  FAMILY_OPTION_expected.csv   the output data set, one row an output time point; dates
                               as day numbers from 1 January 1960, missing values empty
  FAMILY_OPTION_fitstats.csv   name,value for "DFE" and the 25 items of "VALUES"
and reads the data sets FAMILY_input.csv (the model's input data, on the model's
scale) and FAMILY_forecast.csv (its forecasts), dates as ISO text.

The expected values are computed here from the model's original-scale series with
numpy and scipy, not by retracing the service:
  - LOG models: the back-transformed mean exp(y + s^2/2) - theta and its standard
    error exp(y + s^2/2) sqrt(expm1(s^2)) in closed form; limits and actual values
    by the plain inverse exp(y) - theta;
  - LOGIT models: the mean and variance of g(Y) = logistic(Y) / theta for
    Y ~ N(y, s^2) by adaptive quadrature (scipy.integrate.quad) over the normal
    density; the median is g(y) and its root mean squared error
    sqrt(var + (mean - median)^2);
  - errors e = actual - prediction, normalised by the back-transformed standard
    error; normalised residuals r / s inside the fit range;
  - the statistics of fit over the evaluation range with fitstats_reference.fit
    (exact rational sums from the definitions).
"""
import csv
import datetime
import json
import math
import os
import sys

import numpy as np
from scipy import integrate, special, stats

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from fitstats_reference import fit  # noqa: E402

OUT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "data", "services")
NAN = float("nan")
EPOCH = datetime.date(1960, 1, 1)
STAT_NAMES = ["N", "NOBS", "NMISSA", "NMISSP", "NPARMS", "TSS", "SST", "SSE", "MSE", "RMSE", "MAPE", "MAE",
              "RSQUARE", "ADJ_RSQ", "A_ADJ_RSQ", "RW_RSQ", "AIC", "SBC", "APC", "MAXERR", "MINERR", "MAXPE",
              "MINPE", "ME", "MPE"]
# Positions in fitstats_reference.fit's record: dfe, n, nobs, nmissa, nmissp, nparms, tss, sst, stat1..20.
STAT_FIELDS = [1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27]


def month(year, mon, k):
    m = mon - 1 + k
    return datetime.date(year + m // 12, m % 12 + 1, 1)


def day(d):
    return (d - EPOCH).days


def fmt(v):
    if v is None or (isinstance(v, float) and math.isnan(v)):
        return ""
    return str(v) if isinstance(v, int) else repr(float(v))


def write_csv(name, header, rows):
    with open(os.path.join(OUT, name), "w", newline="") as f:
        w = csv.writer(f, lineterminator="\n")
        w.writerow(header)
        w.writerows(rows)


def variables(trns, theta, option, extra):
    v = [{"VARNAME": "DATE", "OLDNAME": "DATE", "VARTYPE": "TIMEID", "FROM": "INPUT"},
         {"VARNAME": "ACTUAL", "OLDNAME": "Y", "VARTYPE": "ACTUAL", "FROM": "INPUT"},
         {"VARNAME": "PREDICT", "OLDNAME": "FORECAST", "VARTYPE": "PREDICT", "FROM": "FORECAST",
          "TRNSTYPE": trns, "TRNSPARM": theta, "TRNSOPT": option},
         {"VARNAME": "UPPER", "OLDNAME": "U95", "VARTYPE": "UPPER", "FROM": "FORECAST"},
         {"VARNAME": "LOWER", "OLDNAME": "L95", "VARTYPE": "LOWER", "FROM": "FORECAST"},
         {"VARNAME": "ERROR", "VARTYPE": "ERROR", "FROM": "GENERATE"},
         {"VARNAME": "STD", "VARTYPE": "STD", "FROM": "GENERATE"},
         {"VARNAME": "NERROR", "VARTYPE": "NERROR"},
         {"VARNAME": "RESIDUAL", "OLDNAME": "RESIDUAL", "VARTYPE": "RESIDUAL"},
         {"VARNAME": "RESSTD", "OLDNAME": "RESSTD", "VARTYPE": "RESSTD", "FROM": "FORECAST"},
         {"VARNAME": "NRESID", "VARTYPE": "NRESID"},
         {"VARNAME": "ADJ1", "OLDNAME": "ADJ1", "VARTYPE": "ADJ"}]
    return v + extra


# ---- the two families --------------------------------------------------------------

def log_moments(y, s, theta):
    """Mean and standard error of exp(Y) - theta, Y ~ N(y, s^2)."""
    m = math.exp(y + s * s / 2)
    return m - theta, m * math.sqrt(math.expm1(s * s))


def logistic_over(theta):
    return lambda y: float(special.expit(y)) / theta


def normal_moments(g, y, s):
    """Mean and variance of g(Y), Y ~ N(y, s^2), by adaptive quadrature."""
    pdf = stats.norm.pdf
    m1 = integrate.quad(lambda z: g(y + s * z) * pdf(z), -np.inf, np.inf, epsabs=0, epsrel=1e-13, limit=200)[0]
    m2 = integrate.quad(lambda z: (g(y + s * z) - m1) ** 2 * pdf(z), -np.inf, np.inf, epsabs=0, epsrel=1e-13,
                        limit=200)[0]
    return m1, m2


# ---- the cases ---------------------------------------------------------------------

def log_case(rng):
    """A LOG model with an additive constant, back-transformed to its mean: input rows
    before the data range, a data range shorter than the input, fit and evaluation
    ranges inside it, start-up predictions blanked, an adjustment added back, a
    log-transformed regressor and a twelve-month horizon."""
    theta = 10.0
    n_in, skip, horizon = 40, 4, 12
    dates = [month(2014, 9, k) for k in range(n_in + horizon)]
    k = np.arange(n_in + horizon)
    level = 100 + 10 * np.sin(k / 3) + 0.5 * k
    x = level + rng.normal(0, 2, len(k))
    adj = 2 * np.cos(k)
    adj[[15, 30]] = NAN
    y = np.log(x - np.nan_to_num(adj) + theta)
    y[[skip + 2, skip + 12]] = NAN
    x1 = np.log(5 + rng.uniform(0, 3, len(k)))
    x1[skip + 9] = NAN
    extra = rng.normal(0, 1, len(k))
    write_csv("log_input.csv", ["DATE", "Y", "ADJ1", "X1", "EXTRA"],
              [[dates[i].isoformat(), fmt(y[i]), fmt(adj[i]), fmt(x1[i]), fmt(extra[i])] for i in range(n_in)])

    # Forecasts from the data range's third month (index 2) to the end of the horizon.
    first, last = 2, n_in - skip - 1 + horizon
    t = np.arange(first, last + 1)
    yhat = np.log(level[t + skip] - np.nan_to_num(adj[t + skip]) + theta) + rng.normal(0, 0.01, len(t))
    s = np.where(t <= 35, 0.05, 0.05 * np.sqrt(np.maximum(t - 34, 1)))
    resid = y[t + skip] - yhat
    resid[t > 35] = NAN
    lo, hi = yhat - 1.96 * s, yhat + 1.96 * s
    s[t == 20] = NAN
    write_csv("log_forecast.csv", ["DATE", "FORECAST", "L95", "U95", "RESIDUAL", "RESSTD"],
              [[dates[i + skip].isoformat(), fmt(yhat[j]), fmt(lo[j]), fmt(hi[j]), fmt(resid[j]), fmt(s[j])]
               for j, i in enumerate(t)])

    params = {
        "INTERVALINFO": {"INTERVAL": "MONTH"},
        "TIME_RANGES": {
            "DATA_RANGE": {"STDATE": day(datetime.date(2015, 1, 1)), "NOBS": n_in - skip},
            "FIT_RANGE": {"STDATE": day(datetime.date(2015, 3, 15)), "ENDDATE": day(datetime.date(2017, 6, 1))},
            "EVALUATE_RANGE": {"STDATE": day(datetime.date(2015, 7, 1)), "ENDDATE": day(datetime.date(2017, 12, 1))},
            "FORCAST_RANGE": {"ENDDATE": day(datetime.date(2018, 12, 1))},
        },
        "VARLIST": variables("LOG", theta, "MEAN",
                             [{"VARNAME": "X1", "OLDNAME": "X1", "VARTYPE": "REG", "TRNSTYPE": "LOG"},
                              {"VARNAME": "EXTRA", "OLDNAME": "EXTRA"}]),
        "NPARMS": 3, "PUREARMA": 2, "ALIGN": "BEGINNING", "MODELTYPE": "ARIMA",
    }
    fit_range, eval_range, purearma = (2, 29), (6, 35), 2

    rows, ea, ep = [], [], []
    blank_from = None
    for j, i in enumerate(t):
        src = i + skip
        have = i <= n_in - skip - 1
        a_t = y[src] if have else NAN
        ad = adj[src] if have else NAN
        p_t, u_t, l_t, r_t, q_t = yhat[j], hi[j], lo[j], resid[j], s[j]
        if blank_from is None and not math.isnan(a_t):
            blank_from = i
        if blank_from is not None and i < blank_from + purearma:
            p_t = u_t = l_t = NAN
        in_fit = fit_range[0] <= i <= fit_range[1]
        nr = r_t / q_t if in_fit else NAN
        if not in_fit:
            r_t = q_t = NAN
        sigma = s[j]
        if math.isnan(sigma):
            p = math.exp(p_t) - theta if not math.isnan(p_t) else NAN
        elif math.isnan(p_t):
            p, sigma = NAN, NAN
        else:
            p, sigma = log_moments(p_t, sigma, theta)
        u = math.exp(u_t) - theta
        lw = math.exp(l_t) - theta
        a = math.exp(a_t) - theta
        shift = 0.0 if math.isnan(ad) else ad
        a, p, u, lw = a + shift, p + shift, u + shift, lw + shift
        e = a - p
        ne = e / sigma
        if eval_range[0] <= i <= eval_range[1]:
            ea.append(a)
            ep.append(p)
        xr = math.exp(x1[src]) if have else NAN
        rows.append([day(dates[src]), a, p, u, lw, e, sigma, ne, r_t, q_t, nr, ad, xr,
                     extra[src] if have else NAN])
    header = ["DATE", "ACTUAL", "PREDICT", "UPPER", "LOWER", "ERROR", "STD", "NERROR", "RESIDUAL", "RESSTD",
              "NRESID", "ADJ1", "X1", "EXTRA"]
    return [("log_mean", params, header, rows, fit(NAN, ea, ep, 3))]


def logit_cases(rng):
    """A LOGIT model turned back to its mean and to its median by normal quadrature;
    an adjustment-only model ("ADJ"), so the adjustment is not added back."""
    theta = 0.001
    n, horizon = 24, 6
    dates = [month(2016, 1, k) for k in range(n + horizon)]
    k = np.arange(n + horizon)
    level = 300 + 60 * np.sin(k / 2)
    x = level + rng.normal(0, 15, len(k))
    logit = lambda v: np.log(theta * v / (1 - theta * v))  # noqa: E731
    y = logit(x)
    adj = rng.normal(0, 3, len(k))
    write_csv("logit_input.csv", ["DATE", "Y", "ADJ1"],
              [[dates[i].isoformat(), fmt(y[i]), fmt(adj[i])] for i in range(n)])
    yhat = logit(level)
    s = np.where(k < n, 0.1, 0.1 + 0.1 * (k - n + 1))
    resid = np.where(k < n, y - yhat, NAN)
    lo, hi = yhat - 1.96 * s, yhat + 1.96 * s
    write_csv("logit_forecast.csv", ["DATE", "FORECAST", "L95", "U95", "RESIDUAL", "RESSTD"],
              [[dates[i].isoformat(), fmt(yhat[i]), fmt(lo[i]), fmt(hi[i]), fmt(resid[i]), fmt(s[i])]
               for i in range(n + horizon)])

    g = logistic_over(theta)
    out = []
    for option in ("MEAN", "MEDIAN"):
        params = {
            "INTERVALINFO": {"INTERVAL": "MONTH"},
            "TIME_RANGES": {"DATA_RANGE": {"STDATE": day(dates[0]), "NOBS": n},
                            "FORCAST_RANGE": {"ENDDATE": day(dates[-1])}},
            "VARLIST": variables("LOGIT", theta, option, []),
            "MODELTYPE": "ADJ",
        }
        rows, ea, ep = [], [], []
        for i in range(n + horizon):
            mean, var = normal_moments(g, yhat[i], s[i])
            if option == "MEAN":
                p, sigma = mean, math.sqrt(var)
            else:
                p = g(yhat[i])
                sigma = math.sqrt(var + (mean - p) ** 2)
            a = g(y[i]) if i < n else NAN
            e = a - p
            in_fit = i < n
            r_t = resid[i] if in_fit else NAN
            q_t = s[i] if in_fit else NAN
            if i < n:
                ea.append(a)
                ep.append(p)
            rows.append([day(dates[i]), a, p, g(hi[i]), g(lo[i]), e, sigma, e / sigma, r_t, q_t,
                         r_t / q_t if in_fit else NAN, adj[i] if i < n else NAN])
        header = ["DATE", "ACTUAL", "PREDICT", "UPPER", "LOWER", "ERROR", "STD", "NERROR", "RESIDUAL", "RESSTD",
                  "NRESID", "ADJ1"]
        out.append((f"logit_{option.lower()}", params, header, rows, fit(NAN, ea, ep, 0)))
    return out


def main():
    rng = np.random.default_rng(20251123)
    os.makedirs(OUT, exist_ok=True)
    for name, params, header, rows, record in log_case(rng) + logit_cases(rng):
        with open(os.path.join(OUT, f"{name}_params.json"), "w") as f:
            json.dump(params, f, indent=1)
            f.write("\n")
        write_csv(f"{name}_expected.csv", header, [[fmt(v) for v in r] for r in rows])
        write_csv(f"{name}_fitstats.csv", ["name", "value"],
                  [["DFE", fmt(record[0])]] + [[nm, fmt(record[f])] for nm, f in zip(STAT_NAMES, STAT_FIELDS)])


if __name__ == "__main__":
    main()
