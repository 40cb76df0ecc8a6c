#!/usr/bin/python3
"""Writes the reference values of the series transformations under tests/data/timeseries/.

transform_values.csv   family,direction,theta,input,expected
    Forward and inverse transformations from scipy and numpy: LOG ln(x + theta) and
    exp(y) - theta, SQRT sqrt(x + theta) and y^2 - theta, LOGIT
    scipy.special.logit(theta * x) and expit(y) / theta, BOXCOX scipy.special.boxcox
    and inv_boxcox. A missing theta (".") takes the family's default (0 for LOG and
    SQRT, 1 for LOGIT).

transform_moments.csv  family,theta,y,s,median,mean,se,rmse,mc_mean,mc_mean_se,mc_sd
    Moments of g(Y), Y ~ N(y, s^2), g the inverse transformation: median = g(y),
    mean = E g(Y), se = sd g(Y), rmse = sqrt(E (g(Y) - g(y))^2). LOG and SQRT use the
    closed forms (exp(y + s^2/2) - theta, y^2 + s^2 - theta, ...); LOGIT and BOXCOX
    integrate with mpmath at 30 digits over y - 12 s to y + 12 s (the normal mass
    outside is below 1e-32). mc_* are a Monte Carlo check from 2 million draws with
    numpy: the sample mean of g(Y), its standard error and the sample sd of g(Y).

transform_power.csv    x,y,expected,rtol
    x^y from mpmath at 40 digits, rounded to double. rtol is the accuracy asked of
    it: a few units in the last place, and for integral exponents, which are raised by
    repeated squaring, |y| * 2^-51 more: each squaring doubles the relative error
    carried so far, so the error can grow in proportion to the exponent.

Doubles are written with repr (shortest round trip).
"""
import csv
import math
import os

import mpmath
import numpy as np
from scipy import special

OUT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "data", "timeseries")
MISSING = "."
mpmath.mp.dps = 30


def fmt(v):
    return MISSING if v is None else repr(float(v))


def forward(family, theta, x):
    if family == "LOG":
        return np.log(x + (0.0 if theta is None else theta))
    if family == "SQRT":
        return np.sqrt(x + (0.0 if theta is None else theta))
    if family == "LOGIT":
        return special.logit((1.0 if theta is None else theta) * x)
    return special.boxcox(x, theta)


def inverse(family, theta, y):
    if family == "LOG":
        return np.exp(y) - (0.0 if theta is None else theta)
    if family == "SQRT":
        return y * y - (0.0 if theta is None else theta)
    if family == "LOGIT":
        return special.expit(y) / (1.0 if theta is None else theta)
    return special.inv_boxcox(y, theta)


def values(rng):
    rows = []
    wide = np.concatenate([10.0 ** rng.uniform(-300, 300, 12), rng.uniform(0.01, 50, 12)])
    for theta in (None, 0.0, 2.5, 1e10):
        for x in wide:
            rows.append(("LOG", "forward", theta, x, forward("LOG", theta, x)))
            rows.append(("SQRT", "forward", theta, x, forward("SQRT", theta, x)))
    for theta in (None, 0.0, 3.0, -1e5):
        for y in np.concatenate([rng.uniform(-700, 709.7, 12), rng.uniform(-5, 5, 8)]):
            rows.append(("LOG", "inverse", theta, y, inverse("LOG", theta, y)))
        for y in np.concatenate([10.0 ** rng.uniform(-150, 150, 12), -rng.uniform(0, 1e3, 6)]):
            rows.append(("SQRT", "inverse", theta, y, inverse("SQRT", theta, y)))
    for theta in (None, 1.0, 0.000999999, 0.0099):
        top = 1.0 / (1.0 if theta is None else theta)
        for x in np.concatenate([rng.uniform(0.001, 0.999, 14) * top, [top * 1e-6, top * 0.999999]]):
            rows.append(("LOGIT", "forward", theta, x, forward("LOGIT", theta, x)))
        for y in np.concatenate([rng.uniform(-40, 40, 12), [-700.0, 36.5, 500.0]]):
            rows.append(("LOGIT", "inverse", theta, y, inverse("LOGIT", theta, y)))
    for lam in (1.0, 0.5, 2.0, -1.0, -0.5, 0.25, 0.001, 3.0):
        for x in np.concatenate([10.0 ** rng.uniform(-3, 3, 10), [1.5, 1e4]]):
            y = forward("BOXCOX", lam, x)
            if np.isfinite(y) and abs(y) > 1e-3:
                rows.append(("BOXCOX", "forward", lam, x, y))
            x_back = inverse("BOXCOX", lam, y)
            if np.isfinite(x_back):
                rows.append(("BOXCOX", "inverse", lam, y, x_back))
    return [(f, d, fmt(t), fmt(a), fmt(e)) for f, d, t, a, e in rows]


def g_mp(family, theta, y):
    y = mpmath.mpf(y)
    if family == "LOGIT":
        return 1 / (1 + mpmath.exp(-y)) / (1 if theta is None else theta)
    base = theta * y + 1
    k = 1 / theta
    if k == round(k):
        return base ** int(round(k))
    return base ** mpmath.mpf(k) if base > 0 else mpmath.mpf(0)


def g_np(family, theta, y):
    if family == "LOG":
        return np.exp(y) - (0.0 if theta is None else theta)
    if family == "SQRT":
        return y * y - (0.0 if theta is None else theta)
    if family == "LOGIT":
        return special.expit(y) / (1.0 if theta is None else theta)
    base = theta * y + 1
    k = 1 / theta
    if k == round(k):
        return base ** int(round(k))
    return np.where(base > 0, np.abs(base) ** k, 0.0)


def exact_moments(family, theta, y, s):
    t = 0.0 if theta is None else theta
    if family == "LOG":
        median = math.exp(y) - t
        mean = math.exp(y + s * s / 2) - t
        se = math.sqrt(math.expm1(s * s) * math.exp(2 * y + s * s))
    elif family == "SQRT":
        median = y * y - t
        mean = y * y + s * s - t
        se = math.sqrt(4 * y * y * s * s + 2 * s ** 4)
    else:
        phi = lambda z: mpmath.npdf(z)
        g = lambda z: g_mp(family, theta, y + s * z)
        m1 = mpmath.quad(lambda z: g(z) * phi(z), [-12, -4, 0, 4, 12])
        m2 = mpmath.quad(lambda z: g(z) ** 2 * phi(z), [-12, -4, 0, 4, 12])
        median = g_mp(family, theta, y)
        mean = m1
        se = mpmath.sqrt(m2 - m1 * m1)
    rmse = math.sqrt(float(se) ** 2 + (float(mean) - float(median)) ** 2)
    return float(median), float(mean), float(se), rmse


def moments(rng):
    cases = [
        ("LOG", None, 1.0, 0.5), ("LOG", 10.0, 3.0, 1.2), ("LOG", 0.0, 0.0, 0.01), ("LOG", -2.0, 5.0, 0.3),
        ("SQRT", None, 3.0, 0.5), ("SQRT", 1.5, 10.0, 2.0), ("SQRT", 0.0, -1.0, 0.3),
        ("LOGIT", None, 0.0, 1.0), ("LOGIT", 1.0, 2.0, 0.5), ("LOGIT", 1.0, -3.0, 2.0),
        ("LOGIT", 0.000999999, 1.0, 0.8), ("LOGIT", 0.01, 4.0, 0.3),
        ("BOXCOX", 0.5, 5.0, 0.3), ("BOXCOX", 0.25, 3.0, 0.2), ("BOXCOX", -0.5, 0.8, 0.05),
        ("BOXCOX", 2.0, 4.0, 0.3), ("BOXCOX", 0.3, 6.0, 0.5),
    ]
    rows = []
    draws = 2_000_000
    for family, theta, y, s in cases:
        median, mean, se, rmse = exact_moments(family, theta, y, s)
        sample = g_np(family, theta, y + s * rng.standard_normal(draws))
        mc_sd = float(np.std(sample, ddof=1))
        rows.append((family, fmt(theta), fmt(y), fmt(s), fmt(median), fmt(mean), fmt(se), fmt(rmse),
                     fmt(np.mean(sample)), fmt(mc_sd / math.sqrt(draws)), fmt(mc_sd)))
    return rows


def power_rows(rng):
    mpmath.mp.dps = 40
    pairs = [(2.0, 10.0), (-2.0, 3.0), (-2.0, 4.0), (10.0, -3.0), (10.0, 22.0), (10.0, 40.0), (10.0, -40.0),
             (0.5, 100.0), (1.5, -7.0), (-1.1, 201.0), (7.0, 0.5), (2.0, 1023.5), (3.7, -2.25), (0.9, 6000.0),
             (1.0000001, 3e9), (1.0000001, -3e9), (1e-5, 61.0), (1e300, 1.02), (123.456, 146.0)]
    pairs += [(float(x), float(y)) for x, y in zip(10.0 ** rng.uniform(-5, 5, 30), rng.uniform(-40, 40, 30))]
    pairs += [(float(x), float(k)) for x, k in zip(rng.uniform(-20, 20, 20), rng.integers(-60, 60, 20))]
    rows = []
    for x, y in pairs:
        exact = mpmath.power(mpmath.mpf(x), mpmath.mpf(y))
        expected = float(exact)
        rtol = 4 * 2.0 ** -52 + (abs(y) * 2.0 ** -51 if y == int(y) else 0)
        rows.append((fmt(x), fmt(y), fmt(expected), fmt(rtol)))
    mpmath.mp.dps = 30
    return rows


def write(name, header, rows):
    with open(os.path.join(OUT, name), "w", newline="") as f:
        w = csv.writer(f, lineterminator="\n")
        w.writerow(header)
        w.writerows(rows)


def main():
    rng = np.random.default_rng(20240611)
    os.makedirs(OUT, exist_ok=True)
    write("transform_values.csv", ["family", "direction", "theta", "input", "expected"], values(rng))
    write("transform_moments.csv",
          ["family", "theta", "y", "s", "median", "mean", "se", "rmse", "mc_mean", "mc_mean_se", "mc_sd"],
          moments(rng))
    write("transform_power.csv", ["x", "y", "expected", "rtol"], power_rows(rng))


if __name__ == "__main__":
    main()
