#!/usr/bin/python3
"""Reference values of the log-scale gamma and beta family, computed with mpmath.

Writes tests/data/probability/logscale_gamma.csv (region,x,a,lnp,lnq,lnd) and
logscale_beta.csv (region,x,a,b,lnp,lnq,lnd): the logarithms of the lower and upper
tails and of the density, rounded to the nearest double. The points run from tiny to
huge parameters and from the deep lower tail to the deep upper tail, far beyond 1e-300000.

Methods.  The density is its closed form at 40 digits plus the decimal exponent of the
largest parameter, so that the huge terms of its logarithm cancel exactly.  A tail is
found on the side where it is the smaller one:
  - by tanh-sinh quadrature (mp.quad) of the density over [x, end], scaled by the
    density at x, with break points at geometric multiples of the natural step
    1 / max(|h'(x)|, sqrt(-h''(x))) of the log density h; or
  - where that side reaches a singular end of the density (lower tail with a < 1,
    upper beta tail with b < 1), by mpmath's hypergeometric gammainc and betainc.
gammainc and betainc run at extra digits: with a tiny shape they lose about as many
digits as the shape has leading zeros.  The larger tail is ln(1 - smaller).  Every
point is computed a second time, by the hypergeometric form where the first was a
quadrature and the shapes are at most 1000, otherwise by the same method at 20 more
digits; the script stops when the two disagree beyond 1e-25 relative.  Finished
points are cached in OUT/.logscale_cache, removed at the end, so that an interrupted
run resumes where it stopped (a full run takes about half an hour).  Run from the
repository root:

    /usr/bin/python3 tools/logscale_reference.py [outdir]
"""
import json
import math
import os
import random
import sys

import mpmath as mp

OUT = sys.argv[1] if len(sys.argv) > 1 else "tests/data/probability"
CACHE = os.path.join(OUT, ".logscale_cache")
DIGITS = 40
rng = random.Random(20261124)


def digits_for(*params):
    return DIGITS + max(0, int(math.log10(max(params + (1.0,)))))


# ---- quadrature of one tail -----------------------------------------------------
def log_integral(g, slope, curvature, umax):
    """ln of the integral of exp(g(u)) over [0, umax] (umax None: infinity), g(0) = 0.
    The variable is measured in natural steps (mp.quad loses accuracy on intervals far
    from unit length), with break points at 1/4, 1/2, 1, 2, ... steps up to where the
    integrand times the distance is negligible."""
    step = 1 / max(abs(slope), mp.sqrt(-curvature) if curvature < 0 else 0, mp.mpf(10) ** -30)
    if umax is not None:
        step = min(step, umax)
    wmax = None if umax is None else umax / step
    pts = [mp.mpf(0)]
    k = mp.mpf(1) / 4
    while True:
        if wmax is not None and k >= wmax:
            pts.append(wmax)
            break
        pts.append(k)
        if g(k * step) + mp.log(k) < -200:
            pts.append(mp.inf if wmax is None else wmax)
            break
        k *= 2
    def f(w):
        u = w * step
        return 0 if umax is not None and u >= umax else mp.exp(g(u))

    v, err = mp.quad(f, pts, error=True)
    if not err < v * mp.mpf(10) ** -32:
        raise RuntimeError("quadrature error estimate %s of %s" % (err, v))
    return mp.log(v * step)


def gamma_lnd(a, x):
    return (a - 1) * mp.log(x) - x - mp.loggamma(a)


def gamma_tail_quad(a, x, upper):
    lnd = gamma_lnd(a, x)
    c = (a - 1) / x
    if upper:
        return lnd + log_integral(lambda u: (a - 1) * mp.log1p(u / x) - u, c - 1, -c / x, None)
    return lnd + log_integral(lambda u: (a - 1) * mp.log1p(-u / x) + u, 1 - c, -c / x, x)


def hyp_digits(*shapes):
    """Extra digits for gammainc and betainc: with a tiny shape they lose about as many
    digits as the shape has leading zeros."""
    return 10 + max(0, int(-math.log10(float(min(shapes)))))


def gamma_tail_hyp(a, x, upper):
    with mp.workdps(mp.mp.dps + hyp_digits(a)):
        if upper:
            return +mp.log(mp.gammainc(a, x, mp.inf, regularized=True))
        return +mp.log(mp.gammainc(a, 0, x, regularized=True))


def beta_lnd(a, b, x):
    lnbeta = mp.loggamma(a) + mp.loggamma(b) - mp.loggamma(a + b)
    return (a - 1) * mp.log(x) + (b - 1) * mp.log1p(-x) - lnbeta


def beta_tail_quad(a, b, x, upper):
    y = 1 - x
    lnd = beta_lnd(a, b, x)
    hp = (a - 1) / x - (b - 1) / y
    hpp = -(a - 1) / x ** 2 - (b - 1) / y ** 2
    sign = 1 if upper else -1
    g = lambda u: (a - 1) * mp.log1p(sign * u / x) + (b - 1) * mp.log1p(-sign * u / y)
    return lnd + log_integral(g, sign * hp, hpp, y if upper else x)


def beta_tail_hyp(a, b, x, upper):
    with mp.workdps(mp.mp.dps + hyp_digits(a, b)):
        if upper:
            return +mp.log(mp.betainc(b, a, 0, 1 - x, regularized=True))
        return +mp.log(mp.betainc(a, b, 0, x, regularized=True))


def log1mexp(t):
    return mp.log(-mp.expm1(t)) if t > -mp.log(2) else mp.log1p(-mp.exp(t))


def tails(methods, singular, feasible, upper_first, args, alternate):
    """(ln lower, ln upper) from the smaller tail, by quadrature unless its side
    reaches a singular end.  With alternate, a quadrature is replaced by the
    hypergeometric form where that is feasible, anything else repeated at 20 more
    digits."""
    quad, hyp = methods

    def side(upper):
        first = hyp if singular(upper) else quad
        if not alternate:
            return first(*args, upper)
        if first is quad and feasible:
            return hyp(*args, upper)
        with mp.workdps(mp.mp.dps + 20):
            return first(*args, upper)

    t = side(upper_first)
    if t > -mp.log(2):
        o = side(not upper_first)
        if o < t:
            t = log1mexp(o)
    other = log1mexp(t)
    return (other, t) if upper_first else (t, other)


def check(first, second, what):
    for f, s in zip(first, second):
        if abs(f - s) > mp.mpf(10) ** -25 * abs(f) and abs(f) > mp.mpf(10) ** -300:
            raise RuntimeError("%s: %s against %s" % (what, mp.nstr(f, 30), mp.nstr(s, 30)))


def gamma_point(a, x):
    mp.mp.dps = digits_for(a)
    A, X = mp.mpf(a), mp.mpf(x)
    singular = lambda up: not up and a < 1
    args = ((gamma_tail_quad, gamma_tail_hyp), singular, a <= 1e3, x > a - 1.0 / 3, (A, X))
    first = tails(*args, False)
    check(first, tails(*args, True), "gamma a=%r x=%r" % (a, x))
    return [float(first[0]), float(first[1]), float(gamma_lnd(A, X))]


def beta_point(a, b, x):
    mp.mp.dps = digits_for(a, b)
    A, B, X = mp.mpf(a), mp.mpf(b), mp.mpf(x)
    upper = x > (a - 1.0 / 3) / (a + b - 2.0 / 3) if min(a, b) >= 1 else x > a / (a + b)
    singular = lambda up: (b < 1) if up else (a < 1)
    args = ((beta_tail_quad, beta_tail_hyp), singular, max(a, b) <= 1e3, upper, (A, B, X))
    first = tails(*args, False)
    check(first, tails(*args, True), "beta a=%r b=%r x=%r" % (a, b, x))
    return [float(first[0]), float(first[1]), float(beta_lnd(A, B, X))]


# ---- the points -----------------------------------------------------------------
Z = [0, 0.01, 0.3, 1, 2, 3, 5, 10, 30, 100, 1e3, 1e4, 1e5]
LAMBDA = [1e-300, 1e-100, 1e-20, 1e-5, 0.1, 0.5, 0.9, 1.1, 2, 10, 1e3, 1e10, 1e100]


def logu(lo, hi):
    return math.exp(rng.uniform(math.log(lo), math.log(hi)))


def gamma_class(a):
    for bound, name in ((1, "a<1"), (15, "a<15"), (1e3, "a<1e3"), (1e8, "a<1e8")):
        if a < bound:
            return name
    return "a>=1e8"


def gamma_points():
    shapes = [1e-9, 1e-6, 1e-3, 0.1, 0.5, 0.99, 1, 1.01, 2, 3.7, 10, 14.99, 15, 20, 99.5,
              999, 1000, 1e4, 1e5, 1e6, 1e8, 1e10, 1e12, 1e15, 1e18]
    shapes += [logu(1e-9, 1e18) for _ in range(25)]
    pts = []
    for a in shapes:
        xs = set()
        s = math.sqrt(a)
        for z in Z:
            for sign in (-1, 1):
                x = a + sign * z * s
                if x > 0 and (z < 30 or rng.random() < 0.6):
                    xs.add(x)
        for lam in LAMBDA:
            x = a * lam
            if 5e-324 < x < 1e308:
                xs.add(x)
        for x in (1e-300, 1e-10, 0.1, 1, 1.4999, 1.5, 3, 30, 1e3, 1e6, 1e8):
            if rng.random() < 0.4:
                xs.add(x)
        pts += [(a, x) for x in sorted(xs)]
    return pts


def beta_class(a, b):
    lo, hi = min(a, b), max(a, b)
    c = "min<1" if lo < 1 else "min<15" if lo < 15 else "min<1e3" if lo < 1e3 else "min>=1e3"
    return c + (" lopsided" if hi >= 1e6 * lo else "")


def beta_points():
    vals = [1e-9, 1e-3, 0.1, 0.5, 1, 2, 7.5, 15, 50, 999, 1000, 1e4, 1e6, 1e9, 1e12, 1e15]
    pairs = set()
    for a in vals:
        for b in vals:
            if rng.random() < 0.3 or a == b:
                pairs.add((a, b))
    pairs |= {(logu(1e-9, 1e15), logu(1e-9, 1e15)) for _ in range(20)}
    pts = []
    for a, b in sorted(pairs):
        m = a / (a + b)
        s = math.sqrt(a * b / ((a + b) ** 2 * (a + b + 1)))
        xs = set()
        for z in Z:
            for sign in (-1, 1):
                x = m + sign * z * s
                if 0 < x < 1 and rng.random() < 0.7:
                    xs.add(x)
        for x in (1e-300, 1e-30, 1e-5, 0.01, 0.3, 0.5, 0.7, 0.99, 1 - 1e-5, 1 - 2.0 ** -52):
            if rng.random() < 0.5:
                xs.add(x)
        for lam in (1e-100, 1e-3, 0.5, 0.99, 1.01):
            x = m * lam
            if 0 < x < 1:
                xs.add(x)
        pts += [(a, b, x) for x in sorted(xs)]
    return pts


def tail_class(lnp, lnq):
    t = min(lnp, lnq)
    return "center" if t > -10 else "tail" if t > -745 else \
        "deep" if t > -690776 else "beyond 1e-300000"


def fmt(v):
    return "0" if v == 0 else repr(v)


def main():
    cache = {}
    if os.path.exists(CACHE):
        with open(CACHE) as f:
            for line in f:
                k, v = json.loads(line)
                cache[k] = v
    log = open(CACHE, "a")

    def compute(key, fn, *args):
        if key not in cache:
            cache[key] = fn(*args)
            log.write(json.dumps([key, cache[key]]) + "\n")
            log.flush()
        return cache[key]

    rows = []
    for a, x in gamma_points():
        v = compute("g %r %r" % (a, x), gamma_point, a, x)
        rows.append([gamma_class(a) + "/" + tail_class(v[0], v[1]), x, a] + v)
    write("logscale_gamma", ["region", "x", "a", "lnp", "lnq", "lnd"], rows)
    rows = []
    for a, b, x in beta_points():
        v = compute("b %r %r %r" % (a, b, x), beta_point, a, b, x)
        rows.append([beta_class(a, b) + "/" + tail_class(v[0], v[1]), x, a, b] + v)
    write("logscale_beta", ["region", "x", "a", "b", "lnp", "lnq", "lnd"], rows)
    log.close()
    os.remove(CACHE)


def write(name, header, rows):
    path = os.path.join(OUT, name + ".csv")
    with open(path + ".tmp", "w") as f:
        f.write(",".join(header) + "\n")
        for r in rows:
            f.write(",".join([r[0]] + [fmt(v) for v in r[1:]]) + "\n")
    os.replace(path + ".tmp", path)
    print("%s: %d rows" % (path, len(rows)))


if __name__ == "__main__":
    main()
