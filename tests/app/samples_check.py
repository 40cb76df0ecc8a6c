#!/usr/bin/python3
"""Compares what fmsd wrote with reference values; exits 1 and says where they differ.

  samples_check.py columns OUT REF TOL OUTCOL=REFCOL...
      the named columns agree row by row within TOL (relative to the reference's
      magnitude when it is above 1), and are missing in the same rows
  samples_check.py fit RESULT.json REF TOL
      every statistic of fit in the result list agrees with the reference
"""
import json
import sys

import numpy as np
import pandas as pd


def agree(what, got, want, tol):
    got = np.asarray(got, dtype=float)
    want = np.asarray(want, dtype=float)
    if got.shape != want.shape:
        return ["%s: %d values, expected %d" % (what, got.size, want.size)]
    errors = []
    for i, (g, w) in enumerate(zip(got, want)):
        if np.isnan(w) != np.isnan(g):
            errors.append("%s row %d: %r, expected %r" % (what, i + 1, g, w))
        elif not np.isnan(w) and abs(g - w) > tol * max(1.0, abs(w)):
            errors.append("%s row %d: %.17g, expected %.17g (difference %.3g)" % (what, i + 1, g, w, g - w))
    return errors


def columns(out, ref, tol, pairs):
    got = pd.read_csv(out)
    want = pd.read_csv(ref)
    errors = []
    for pair in pairs:
        o, r = pair.split("=")
        if o not in got:
            errors.append("%s has no column %s" % (out, o))
            continue
        errors += agree(o, got[o], want[r], tol)
    return errors


def fit(result, ref, tol):
    with open(result) as f:
        values = json.load(f)
    want = pd.read_csv(ref)
    got = dict(values["VALUES"])
    got["DFE"] = values["DFE"]
    errors = []
    for name, w in zip(want["name"], want["value"]):
        g = got.get(name)
        errors += agree(name, [np.nan if g is None else g], [w], tol)
    return errors


def main():
    kind, args = sys.argv[1], sys.argv[2:]
    errors = columns(args[0], args[1], float(args[2]), args[3:]) if kind == "columns" else \
        fit(args[0], args[1], float(args[2]))
    for e in errors[:10]:
        print(e)
    sys.exit(1 if errors else 0)


if __name__ == "__main__":
    main()
