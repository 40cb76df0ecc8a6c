#!/usr/bin/python3
"""The pandas side of bench/compare_pandas.sh.

  pandas_peer.py generate SEED COUNT FILE
      writes COUNT start days, then COUNT end days (int32, little-endian, day 0 =
      1 January 1960), uniform over 1 January 1678 to 31 December 2261: the range
      pandas holds in nanoseconds, with room for the steps below
  pandas_peer.py run FILE REPETITIONS [RESULTS]
      times every way of computing each case on those dates and prints a JSON
      line of versions, then one a way; with RESULTS (what intervals_bench
      --results wrote) it first checks that every way gives fmsd's results

A way is timed on its vectorised operation only: the DatetimeIndex is built from
the day numbers beforehand, while a numpy way's casts from it count.  Figures
are medians over the repetitions in nanoseconds per date (per pair for counts).
"""
import datetime
import json
import statistics
import sys
import time

import numpy as np
import pandas as pd

EPOCH = np.datetime64("1960-01-01", "D")
FIRST = (datetime.date(1678, 1, 1) - datetime.date(1960, 1, 1)).days
LAST = (datetime.date(2261, 12, 31) - datetime.date(1960, 1, 1)).days
MISSING = np.iinfo(np.int32).min


def generate(seed, count, path):
    rng = np.random.default_rng(seed)
    rng.integers(FIRST, LAST, size=2 * count, endpoint=True, dtype=np.int32).astype("<i4").tofile(path)


def load(path):
    days = np.fromfile(path, dtype="<i4")
    half = days.size // 2
    return days[:half], days[half:]


def index(days):
    return pd.DatetimeIndex((EPOCH + days.astype("timedelta64[D]")).astype("datetime64[ns]"))


def day_numbers(values):
    return (np.asarray(values).astype("datetime64[D]") - EPOCH).astype(np.int64)


def peers(a, b, w):
    """Each case (as intervals_bench names it) with the ways a pandas user would
    compute it, fastest pandas way first: (description, dates, work, day numbers
    or counts of the result).  The numpy ways work on the index's datetime64
    array; they are listed to show where pandas' own overhead lies."""
    as_days = day_numbers
    as_counts = np.asarray
    return {
        "BM_MonthAdvance": [
            ("DatetimeIndex + pd.offsets.MonthBegin(1)", len(a), lambda: a + pd.offsets.MonthBegin(1), as_days),
            ("numpy: datetime64[M] cast + 1, back to datetime64[ns]", len(a),
             lambda: (a.values.astype("datetime64[M]") + 1).astype("datetime64[ns]"), as_days),
        ],
        "BM_MonthCount": [
            ("b.to_period('M').asi8 - a.to_period('M').asi8", len(a),
             lambda: b.to_period("M").asi8 - a.to_period("M").asi8, as_counts),
            ("(b.year - a.year) * 12 + (b.month - a.month)", len(a),
             lambda: (b.year - a.year) * 12 + (b.month - a.month), as_counts),
            ("numpy: difference of datetime64[M] casts", len(a),
             lambda: b.values.astype("datetime64[M]").astype(np.int64) - a.values.astype("datetime64[M]").astype(np.int64),
             as_counts),
        ],
        "BM_WeekdayAdvance": [
            ("DatetimeIndex + pd.offsets.BDay(3)", len(w), lambda: w + pd.offsets.BDay(3), as_days),
            ("numpy: busday_offset(datetime64[D], 3, roll='backward')", len(w),
             lambda: np.busday_offset(w.values.astype("datetime64[D]"), 3, roll="backward"), as_days),
        ],
    }


def ours(path, n, k):
    results = np.fromfile(path, dtype="<i4").astype(np.int64)
    if results.size != 2 * n + k or (results == MISSING).any():
        sys.exit("pandas_peer: the results file does not hold one valid result a case and date")
    return {"BM_MonthAdvance": results[:n], "BM_MonthCount": results[n : 2 * n], "BM_WeekdayAdvance": results[2 * n :]}


def timed(repetitions, count, work):
    samples = []
    for _ in range(repetitions):
        start = time.perf_counter()
        work()
        samples.append(time.perf_counter() - start)
    return statistics.median(samples) * 1e9 / count


def run(path, repetitions, results=None):
    days_a, days_b = load(path)
    a, b = index(days_a), index(days_b)
    w = a[: len(a) // 10]
    cases = peers(a, b, w)
    mine = ours(results, len(a), len(w)) if results else None
    print(json.dumps({"pandas": pd.__version__, "numpy": np.__version__}))
    for case, ways in cases.items():
        for how, count, work, convert in ways:
            result = work()  # also the warm-up
            if mine is not None:
                bad = np.flatnonzero(convert(result) != mine[case])
                if bad.size:
                    i = bad[0]
                    sys.exit(f"pandas_peer: {how} differs from fmsd's {case} at date {i}: "
                             f"{convert(result)[i]} against {mine[case][i]}")
            print(json.dumps({"case": case, "how": how, "dates": count, "ns": timed(repetitions, count, work)}))


def main(argv):
    if len(argv) == 5 and argv[1] == "generate":
        generate(int(argv[2]), int(argv[3]), argv[4])
    elif len(argv) in (4, 5) and argv[1] == "run":
        run(argv[2], int(argv[3]), argv[4] if len(argv) == 5 else None)
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main(sys.argv)
