#!/usr/bin/python3
"""Writes the model data service's scenarios and their expected output under tests/data/services/.

For each scenario NAME:
    moddata_NAME.json      the parameter list passed to the service
    moddata_NAME_in.csv    the input data set (dates as YYYY-MM-DD, an empty cell is missing)
    moddata_NAME_out.csv   the model data set the service must write, in the host's CSV form

The expected rows are derived here from the definitions alone, with the calendar of
Python's datetime and pandas and the arithmetic of numpy:

- time IDs: the first day of each month (monthly) or the Sunday that starts each week
  (weekly), counted on from the interval that holds the first input date at or after
  the data start;
- actual series: ln(SALES - sum of the present PROMO values), missing when SALES is;
- regressors: sqrt(PRICE + 1);
- trend curves: t, t^2, ln t, 1/t with t = max(1, fit first index - k0 + 1) + k - k0,
  lowered by 51 for each QUAD or CUBE curve when there is no LOG, HYP, POW or ERT curve;
- interventions: RAMP the whole months from its (month-aligned) date, STEP 1 from it on,
  a point intervention 1 at its date only;
- seasonal dummies (monthly, no NOINT): dummy j (from 0) is 1 in calendar month j + 1,
  December has none;
- weekly seasons (NOINT 1, 52 seasons): weeks counted from the Sunday on or before
  4 January of the week's own year, modulo 52; when two weeks in a row get the same
  number, the first is the 53rd week, whose dummy row holds the share of its days that
  fall in the new year in dummy 0 and the rest in dummy 51.

Doubles are written with repr (shortest round trip); a missing value is an empty cell.
"""
import csv
import datetime as dt
import json
import math
import os

import numpy as np
import pandas as pd

OUT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "data", "services")
EPOCH = dt.date(1960, 1, 1)


def day(d):
    return (d - EPOCH).days


def cell(v):
    if v is None or (isinstance(v, float) and math.isnan(v)):
        return ""
    if isinstance(v, dt.date):
        return v.isoformat()
    return repr(float(v))


def write_csv(name, header, rows):
    with open(os.path.join(OUT, name), "w", newline="") as f:
        w = csv.writer(f, lineterminator="\n")
        w.writerow(header)
        for r in rows:
            w.writerow([cell(v) for v in r])


def variable(vartype, oldname=None, varname=None, **more):
    v = {"VARTYPE": vartype}
    if oldname:
        v["OLDNAME"] = oldname
    v["VARNAME"] = varname or oldname
    v.update(more)
    return v


def month_index(d):
    return 12 * (d.year - 1960) + d.month - 1


def monthly():
    dates = [d.date() for d in pd.date_range("1990-01-01", periods=32, freq="MS")]
    rng = np.random.default_rng(20261123)
    sales = np.round(rng.uniform(50, 150, len(dates)), 2)
    price = np.round(rng.uniform(1, 9, len(dates)), 3)
    promo = np.round(rng.uniform(0, 20, len(dates)), 1)
    sales[9] = np.nan
    promo[14] = np.nan
    write_csv("moddata_monthly_in.csv", ["DATE", "SALES", "PRICE", "PROMO"],
              zip(dates, sales, price, promo))

    ramp_date = dt.date(1990, 5, 20)
    point_date = dt.date(1991, 1, 15)
    seasonal = [variable("SD", varname=f"SD{j + 1}", FROM="GENERATE") for j in range(11)]
    params = {
        "INTERVALINFO": {"INTERVAL": "MONTH", "SINTERVAL": "YEAR", "NSEASONS": 12},
        "TIME_RANGES": {
            "DATA_RANGE": {"NOBS": 30, "STDATE": float(day(dt.date(1990, 3, 15)))},
            "FIT_RANGE": {"STDATE": float(day(dt.date(1990, 6, 1)))},
            "FORCAST_RANGE": {"ENDDATE": float(day(dt.date(1993, 8, 1)))},
        },
        "MODELTYPE": "ARIMA",
        "VARLIST": [
            variable("TIMEID", "DATE"),
            variable("ACTUAL", "SALES", TRNSTYPE="LOG"),
            variable("REG", "PRICE", TRNSTYPE="SQRT", TRNSPARM=1.0),
            variable("ADJ", "PROMO"),
            variable("TC", varname="TREND", FROM="GENERATE"),
            variable("TC", varname="TREND2", VARKIND="QUAD", FROM="GENERATE"),
            variable("INT", varname="RAMP", VARKIND="RAMP", VARDATE=float(day(ramp_date)), FROM="GEN"),
            variable("INT", varname="STEP", VARKIND="STEP", VARDATE=float(day(ramp_date)), FROM="GEN"),
            variable("INT", varname="POINT", VARDATE=float(day(point_date)), FROM="GEN"),
        ] + seasonal,
    }
    with open(os.path.join(OUT, "moddata_monthly.json"), "w") as f:
        json.dump(params, f, indent=1)

    # The data range starts in March 1990: January and February are skipped. The
    # forecast range ends 12 months after the data range's 30 months.
    kept = [i for i, d in enumerate(dates) if d >= dt.date(1990, 3, 1)]
    first = dates[kept[0]]
    n_out = 30 + 12
    fit_first = month_index(dt.date(1990, 6, 1)) - month_index(first)
    t = np.arange(n_out, dtype=float) + max(1, fit_first + 1) - 51.0  # one QUAD, no LOG
    ramp_index = month_index(ramp_date) - month_index(first)
    point_index = month_index(point_date) - month_index(first)
    rows = []
    for k in range(n_out):
        d = (pd.Timestamp(first) + pd.DateOffset(months=k)).date()
        if k < len(kept):
            i = kept[k]
            s, p, a = sales[i], price[i], promo[i]
        else:
            s = p = a = np.nan
        actual = np.log(s - (0.0 if np.isnan(a) else a)) if not np.isnan(s) else np.nan
        reg = np.sqrt(p + 1.0) if not np.isnan(p) else np.nan
        dummies = [1.0 if d.month == j + 1 else 0.0 for j in range(11)]
        rows.append([d, actual, reg, a, t[k], t[k] * t[k],
                     float(max(0, k - ramp_index)), 1.0 if k >= ramp_index else 0.0,
                     1.0 if k == point_index else 0.0] + dummies)
    write_csv("moddata_monthly_out.csv",
              ["DATE", "SALES", "PRICE", "PROMO", "TREND", "TREND2", "RAMP", "STEP", "POINT"]
              + [f"SD{j + 1}" for j in range(11)], rows)


def sunday_on_or_before(d):
    return d - dt.timedelta(days=(d.weekday() + 1) % 7)


def weekly():
    start = dt.date(2014, 6, 1)  # a Sunday
    n = 90
    dates = [start + dt.timedelta(weeks=k) for k in range(n)]
    rng = np.random.default_rng(53)
    sales = np.round(rng.uniform(10, 30, n), 2)
    write_csv("moddata_weekly_in.csv", ["DATE", "SALES"], zip(dates, sales))
    params = {
        "INTERVALINFO": {"INTERVAL": "WEEK", "SINTERVAL": "YEAR", "NSEASONS": 52},
        "TIME_RANGES": {"DATA_RANGE": {"NOBS": n, "STDATE": float(day(start))}},
        "NOINT": 1,
        "VARLIST": [
            variable("TIMEID", "DATE"),
            variable("ACTUAL", "SALES"),
            variable("TC", varname="LOGT", VARKIND="LOG", FROM="GENERATE"),
            variable("TC", varname="QUADT", VARKIND="QUAD", FROM="GENERATE"),
            variable("TC", varname="HYPT", VARKIND="HYP", FROM="GENERATE"),
        ] + [variable("SD", varname=f"W{j + 1}", FROM="GENERATE") for j in range(52)],
    }
    with open(os.path.join(OUT, "moddata_weekly.json"), "w") as f:
        json.dump(params, f, indent=1)

    seasons = []
    for d in dates:
        base = sunday_on_or_before(dt.date(d.year, 1, 4))
        seasons.append(((d - base).days // 7) % 52)
    week53 = [i for i in range(1, n) if seasons[i] == seasons[i - 1]]
    assert len(week53) == 1, "the span must hold exactly one 53rd week"
    seasons[week53[0] - 1] = 52
    rows = []
    for k, d in enumerate(dates):
        dummies = [0.0] * 52
        if seasons[k] == 52:
            new_year = dt.date(d.year + 1, 1, 1)
            share = (sunday_on_or_before(new_year) + dt.timedelta(weeks=1) - new_year).days / 7
            dummies[0] = share
            dummies[51] = 1 - share
        else:
            dummies[seasons[k]] = 1.0
        t = float(k + 1)  # a LOG curve keeps the trend time positive
        rows.append([d, sales[k], math.log(t), t * t, 1 / t] + dummies)
    write_csv("moddata_weekly_out.csv",
              ["DATE", "SALES", "LOGT", "QUADT", "HYPT"] + [f"W{j + 1}" for j in range(52)], rows)


def main():
    os.makedirs(OUT, exist_ok=True)
    monthly()
    weekly()


if __name__ == "__main__":
    main()
