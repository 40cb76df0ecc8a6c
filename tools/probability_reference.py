#!/usr/bin/python3
"""Reference values of the probability routines, computed with mpmath at 40 digits.

Writes one CSV per routine into tests/data/probability/: a region label, the
arguments, then the exact values rounded to the nearest double (17 significant
digits). The points cover each routine's domain and crowd around the places where
the routines switch formulas. Run from the repository root:

    /usr/bin/python3 tools/probability_reference.py [outdir]
"""
import math
import os
import random
import sys

import mpmath as mp
from scipy import special  # starting points only

mp.mp.dps = 40
OUT = sys.argv[1] if len(sys.argv) > 1 else "tests/data/probability"
rng = random.Random(20261123)


def fmt(v):
    v = float(v)
    if v == 0:
        return "0"
    return repr(v)


def write(name, header, rows):
    path = os.path.join(OUT, name + ".csv")
    with open(path + ".tmp", "w") as f:
        f.write(",".join(header) + "\n")
        for r in rows:
            f.write(",".join([r[0]] + [fmt(v) for v in r[1:]]) + "\n")
    os.replace(path + ".tmp", path)
    print(f"{path}: {len(rows)} rows")


def logu(lo, hi):
    return math.exp(rng.uniform(math.log(lo), math.log(hi)))


def near(t, width, k):
    """k doubles within a relative width of t, on both sides, t itself included."""
    pts = [t, math.nextafter(t, 0), math.nextafter(t, math.inf)]
    pts += [t * (1 + rng.uniform(-width, width)) for _ in range(k)]
    return pts


def phi_lower(x):
    return mp.ncdf(x)


def phi_upper(x):
    return mp.ncdf(-x)


# ---- the error function ----
def erf_region(x):
    y = abs(x)
    if y <= 0.46875:
        return "small"
    if y <= 4:
        return "middle"
    if y <= 5:
        return "large"
    return "far"


def gen_erf():
    xs = [logu(1e-300, 0.46875) for _ in range(400)]
    xs += [rng.uniform(0, 5) for _ in range(1600)]
    xs += near(0.46875, 1e-3, 50) + near(4.0, 1e-3, 50)
    xs += [rng.uniform(5, 26.6) for _ in range(400)]
    rows = []
    for x in xs:
        x = x if rng.random() < 0.5 else -x
        mx = mp.mpf(x)
        rows.append((erf_region(x), x, mp.erf(mx), mp.erfc(mx)))
    write("erf", ["region", "x", "erf", "erfc"], rows)


def gen_phi():
    xs = [rng.uniform(-5, 5) for _ in range(2000)]
    xs += [rng.uniform(-37.6, -5) for _ in range(600)] + [rng.uniform(5, 8.2) for _ in range(200)]
    xs += [0.46875 * math.sqrt(2) * s for s in (1, -1)] + [4 * math.sqrt(2) * s for s in (1, -1)]
    rows = [("central" if abs(x) <= 5 else "tail", x, phi_lower(mp.mpf(x))) for x in xs]
    write("phi", ["region", "x", "phi"], rows)


def gen_probit():
    ps = [rng.uniform(0.01, 0.99) for _ in range(1200)]
    ps += [logu(1e-10, 0.01) for _ in range(800)]
    ps += [1 - logu(1e-10, 0.01) for _ in range(600)]
    ps += [logu(1e-300, 1e-16) for _ in range(400)]
    ps += near(0.01, 1e-6, 20) + near(1e-16, 1e-6, 10)
    rows = []
    for p in ps:
        q = min(p, 1 - p)
        region = "newton" if p < 1e-16 else ("central" if q > 0.01 else "tails")
        if abs(p - 0.5) < 0.1:
            region = "median 0.4<p<0.6 (absolute)"
        # Solve on the log scale of the smaller tail: 1 - p is exact in doubles for p > 1/2.
        if p <= 0.5:
            f = lambda z: mp.log(mp.ncdf(z)) - mp.log(mp.mpf(p))
        else:
            f = lambda z: mp.log(mp.ncdf(-z)) - mp.log(mp.mpf(1 - p))
        rows.append((region, p, mp.findroot(f, mp.mpf(float(special.ndtri(p))))))
    write("probit", ["region", "p", "z"], rows)


def gen_lognrm():
    xs = [rng.uniform(-5, 5) for _ in range(1200)] + [rng.uniform(-40, -5) for _ in range(500)]
    xs += [rng.uniform(5, 40) for _ in range(500)] + [logu(40, 1e6) * rng.choice((-1, 1)) for _ in range(100)]
    rows = []
    for x in xs:
        mx = mp.mpf(x)
        rows.append(("central" if abs(x) < 5 else "tail", x, mp.log1p(-phi_upper(mx)) if x > 0 else mp.log(phi_lower(mx)),
                     mp.log1p(-phi_lower(mx)) if x < 0 else mp.log(phi_upper(mx)),
                     -mx * mx / 2 - mp.log(mp.sqrt(2 * mp.pi))))
    write("lognrm", ["region", "x", "lnlower", "lnupper", "lndensity"], rows)


def gen_millsr():
    xs = [rng.uniform(-10, 5) for _ in range(1500)] + [rng.uniform(-37, -10) for _ in range(200)]
    xs += [rng.uniform(5, 50) for _ in range(500)] + [logu(50, 1e8) for _ in range(200)]
    xs += near(5.0, 1e-4, 20)
    rows = []
    for x in xs:
        mx = mp.mpf(x)
        r = phi_upper(mx) / mp.npdf(mx)
        rows.append(("continued fraction" if x >= 5 else ("direct" if x >= -10 else "x<-10"), x, r))
    write("millsr", ["region", "x", "ratio"], rows)


def gen_prbigs():
    rows = []
    while len(rows) < 2000:
        a, b = logu(1e-3, 100), logu(1e-3, 300)
        sa, sb = mp.sqrt(a), mp.sqrt(b)
        v = mp.ncdf(sb * (sa - 1 / sa)) + mp.exp(2 * mp.mpf(b)) * mp.ncdf(-sb * (sa + 1 / sa))
        z = float((sa + 1 / sa) * sb / mp.sqrt(2))
        if v < mp.mpf("1e-290"):
            continue
        rows.append(("z<=4" if z <= 4 else "z>4", a, b, v))
    write("prbigs", ["region", "a", "b", "cdf"], rows)


def gen_ln1px():
    xs = [rng.uniform(-0.03125, 0.03125) for _ in range(1000)]
    xs += [logu(1e-300, 0.03125) * rng.choice((-1, 1)) for _ in range(500)]
    xs += [rng.uniform(-0.9, -0.03125) for _ in range(250)] + [logu(0.03125, 1e6) for _ in range(250)]
    xs += near(0.03125, 1e-3, 20) + near(-0.03125, 1e-3, 20)
    rows = [("series" if abs(x) <= 0.03125 else "direct", x, mp.log1p(mp.mpf(x))) for x in xs]
    write("ln1px", ["region", "x", "ln1px"], rows)


# ---- gamma and beta ----
def gen_lgamma():
    xs = [rng.uniform(0.5, 2.5) for _ in range(800)] + [rng.uniform(2.5, 15) for _ in range(600)]
    xs += [logu(1e-300, 0.5) for _ in range(300)] + [logu(15, 1e15) for _ in range(500)]
    xs += near(1.0, 1e-3, 30) + near(2.0, 1e-3, 30) + near(15.0, 1e-3, 20)
    rows = []
    for x in xs:
        if abs(x - 1) < 0.1 or abs(x - 2) < 0.1:
            region = "near 1 and 2 (absolute)"
        elif x >= 15:
            region = "x>=15 Stirling"
        else:
            region = "x<15 rational"
        rows.append((region, x, mp.loggamma(mp.mpf(x))))
    write("lgamma", ["region", "x", "lgamma"], rows)


def gen_lbeta():
    rows = []
    for _ in range(2000):
        a, b = logu(1e-3, 1e6), logu(1e-3, 1e6)
        ma, mb = mp.mpf(a), mp.mpf(b)
        v = mp.loggamma(ma) + mp.loggamma(mb) - mp.loggamma(ma + mb)
        rows.append(("max<15" if max(a, b) < 15 else "max>=15", a, b, v))
    write("lbeta", ["region", "a", "b", "lbeta"], rows)


def ibeta_ref(x, a, b):
    x, a, b = mp.mpf(x), mp.mpf(a), mp.mpf(b)
    lower = mp.betainc(a, b, 0, x, regularized=True)
    upper = mp.betainc(a, b, x, 1, regularized=True)
    dens = mp.exp((a - 1) * mp.log(x) + (b - 1) * mp.log1p(-x) - mp.log(mp.beta(a, b)))
    return lower, upper, dens


def gen_ibeta():
    rows = []
    while len(rows) < 2500:
        a, b = logu(0.05, 2000), logu(0.05, 2000)
        mean = a / (a + b)
        sd = math.sqrt(a * b / ((a + b) ** 2 * (a + b + 1)))
        x = min(max(mean + sd * rng.uniform(-8, 8), 1e-12), 1 - 1e-9)
        if rng.random() < 0.15:
            x = rng.uniform(0, 1)
        lower, upper, dens = ibeta_ref(x, a, b)
        if lower < mp.mpf("1e-300") or upper < mp.mpf("1e-300"):
            continue
        s = a + b
        swap = s * x > a + 2 * math.sqrt(a * b / (s + 1)) or s * x + 6 * x > a + 3
        size = "a+b<=1000" if a + b <= 1000 else "a+b>1000"
        rows.append((size + (" swapped" if swap else " direct"), x, a, b, lower, dens))
    write("ibeta", ["region", "x", "a", "b", "I", "density"], rows)


def gamma_tails(a, x):
    """P(a, x) and Q(a, x). Where mpmath's own evaluation stalls (large a near x), the
    smaller tail comes from its classical expansion run to 35 digits: the power series
    of the lower tail (x < a) or Legendre's continued fraction of the upper tail."""
    try:
        return (mp.gammainc(a, 0, x, regularized=True), mp.gammainc(a, x, mp.inf, regularized=True))
    except mp.libmp.libhyper.NoConvergence:
        density = mp.exp((a - 1) * mp.log(x) - x - mp.loggamma(a))
        if x < a:
            p = density * x / a * mp.hyp1f1(1, a + 1, x, maxterms=10**7)
            return p, 1 - p
        am, A, bm, B, r, j = mp.mpf(0), mp.mpf(1), mp.mpf(1), mp.mpf(1), mp.mpf(1), mp.mpf(0)
        for n in range(200000):
            if n % 2 == 0:
                j += 1 / x
                c = j - a / x
            else:
                c = j
            am, bm, A, B = A, B, A + c * am, B + c * bm
            r, previous = A / B, r
            if abs(r - previous) < mp.mpf("1e-36") * r:
                break
        return 1 - density * r, density * r


def gen_igamma():
    rows = []
    while len(rows) < 3000:
        a = logu(0.01, 1e6)
        x = a * math.exp(rng.gauss(0, 3 / math.sqrt(max(a, 1)) + 0.1))
        if rng.random() < 0.1:
            x = logu(1e-6, 1e3) * a
        ma, mx = mp.mpf(a), mp.mpf(x)
        p, q = gamma_tails(ma, mx)
        if p < mp.mpf("1e-300") or q < mp.mpf("1e-300"):
            continue
        dens = mp.exp((ma - 1) * mp.log(mx) - mx - mp.loggamma(ma))
        if a >= 10000 and abs(x - a) <= 0.7 * math.sqrt(a) + 0.02 * a:
            region = "Wilson-Hilferty (a>=10000)"
        elif a >= 10000:
            region = "a>=10000 continued fractions"
        else:
            size = "a<=1000" if a <= 1000 else "1000<a<10000"
            region = size + (" lower series" if x <= a or x <= 1 else " upper continued fraction")
        rows.append((region, x, a, p, q, dens))
    write("igamma", ["region", "x", "a", "P", "Q", "density"], rows)


# ---- tails ----
def gen_tails():
    rows = []
    for _ in range(1000):
        df = rng.choice([1, 2, 3, 4, 5, 7, 10, 20, 50, 100, 1000, 100000])
        x = df * math.exp(rng.gauss(0, 1.0))
        a = df / 2
        wh = a >= 10000 and abs(x / 2 - a) <= 0.7 * math.sqrt(a) + 0.02 * a
        rows.append(("Wilson-Hilferty" if wh else "series and fractions", x, df, mp.gammainc(mp.mpf(df) / 2, mp.mpf(x) / 2, mp.inf, regularized=True)))
    write("chisq", ["region", "x", "df", "tail"], rows)
    rows = []
    for _ in range(1000):
        df = rng.choice([1, 2, 3, 5, 10, 30, 100, 1000, 100000])
        t = abs(rng.gauss(0, 3))
        n = mp.mpf(df)
        # Two-sided tail as the integral of the t density, independent of the beta identity.
        dens = lambda u: mp.gamma((n + 1) / 2) / (mp.sqrt(n * mp.pi) * mp.gamma(n / 2)) * (1 + u * u / n) ** (-(n + 1) / 2)
        tail = 2 * mp.quad(dens, [mp.mpf(t), mp.mpf(t) + 10, mp.inf])
        rows.append(("df<=1000" if df <= 1000 else "df>1000", t * t, df, tail))
    write("t2", ["region", "t2", "df", "tail"], rows)
    rows = []
    for _ in range(1000):
        d1, d2 = rng.choice([1, 2, 3, 5, 10, 30, 100]), rng.choice([1, 2, 4, 8, 20, 60, 200, 5000])
        f = math.exp(rng.gauss(0, 1))
        y = mp.mpf(d2) / (d1 * mp.mpf(f) + d2)
        rows.append(("all", f, d1, d2, mp.betainc(mp.mpf(d2) / 2, mp.mpf(d1) / 2, 0, y, regularized=True)))
    write("f", ["region", "f", "df1", "df2", "tail"], rows)


if __name__ == "__main__":
    os.makedirs(OUT, exist_ok=True)
    only = set(sys.argv[2:])
    for i, (name, gen) in enumerate([("erf", gen_erf), ("phi", gen_phi), ("probit", gen_probit), ("lognrm", gen_lognrm),
                      ("millsr", gen_millsr), ("prbigs", gen_prbigs), ("ln1px", gen_ln1px),
                      ("lgamma", gen_lgamma), ("lbeta", gen_lbeta), ("ibeta", gen_ibeta),
                      ("igamma", gen_igamma), ("tails", gen_tails)]):
        rng.seed(20261123 + i)  # each file reproducible on its own
        if not only or name in only:
            gen()
