#!/usr/bin/python3
"""The pandas + statsmodels side of bench/compare_cli.sh, and its measuring tools.

  cli_peer.py generate SEED ROWS FILE
      writes a CSV of ROWS hourly observations from 2000-01-01T00:00:00: a column
      "time" (ISO-8601 datetimes) and a column "value" (4 decimals): a level that
      wanders as a random walk, a daily and a weekly cycle, and AR(1) noise
  cli_peer.py diagnose IN OUT
      what `fmsd diagnose --nlags 100` with CORRPROB and a single-mean augmented
      Dickey-Fuller test up to lag 12 writes: one row per lag 0 to 100 of the same
      24 columns, and the summary as JSON on standard output
  cli_peer.py transform IN OUT
      what `fmsd transform --season 24` with one difference and the seasonally
      adjusted series of an additive decomposition writes: time and treated value
  cli_peer.py measure OUT COMMAND...
      runs COMMAND with its standard output going to the file OUT, and prints a JSON
      line of its wall time, processor time (user and system, seconds) and peak
      resident memory (MiB), as wait4 reports them
  cli_peer.py compare FMSD PEER COLUMN...
      prints, for each named numeric column of two CSV files of the same rows, the
      largest absolute difference where both are present and the number of rows
      where only one is

Each peer command prints to standard error the processor time of its steps, so that
the interpreter's start and imports can be told from the work.
"""
import json
import os
import subprocess
import sys
import time

LAGS = 100
MAXAR = 12
SEASON = 24


def generate(seed, rows, path):
    import numpy as np
    from scipy import signal

    rng = np.random.default_rng(seed)
    h = np.arange(rows)
    level = 500 + np.cumsum(rng.normal(0, 0.05, rows))
    cycles = 20 * np.sin(2 * np.pi * h / 24) + 5 * np.cos(2 * np.pi * h / 168)
    noise = signal.lfilter([1.0], [1.0, -0.6], rng.standard_normal(rows))
    value = level + cycles + noise
    times = np.datetime_as_string(np.datetime64("2000-01-01T00:00:00") + h.astype("timedelta64[h]"), unit="s")
    with open(path, "w") as f:
        f.write("time,value\n")
        f.write("\n".join(f"{t},{v:.4f}" for t, v in zip(times, value)))
        f.write("\n")


class Steps:
    """Processor time of each step, reported on standard error."""

    def __init__(self):
        self.last = time.process_time()
        self.spent = {}

    def __call__(self, name):
        now = time.process_time()
        self.spent[name] = round(now - self.last, 4)
        self.last = now

    def report(self):
        print(json.dumps({"steps_cpu_s": self.spent}), file=sys.stderr)


def diagnose(source, target):
    steps = Steps()
    import numpy as np
    import pandas as pd
    from scipy import stats
    from statsmodels.tsa.stattools import acovf, adfuller, levinson_durbin, q_stat
    steps("imports")

    x = pd.read_csv(source, usecols=["value"])["value"].to_numpy()
    steps("read_csv")
    n = len(x)
    lag = np.arange(LAGS + 1)

    # Biased autocovariances about the mean, one dot product a lag.
    acov = acovf(x, adjusted=False, demean=True, fft=False, nlag=LAGS)
    acf = acov / acov[0]
    acf_se = np.sqrt(np.r_[0.0, 1.0, 1.0 + 2.0 * np.cumsum(acf[1:-1] ** 2)] / n)
    _, arcoefs, pacf, _, _ = levinson_durbin(acov, nlags=LAGS, isacov=True)
    pacf[0] = 1.0
    c = np.r_[-1.0, arcoefs]
    iacf = np.r_[1.0, [np.dot(c[: LAGS + 1 - j], c[j:]) for j in range(1, LAGS + 1)] / np.dot(c, c)]
    _, lb = q_stat(acf[1:], n)
    # Lag 0 carries a white-noise probability of 0, as fmsd writes it.
    wnoise = np.r_[0.0, lb]
    steps("correlations")

    # One augmented Dickey-Fuller regression with a constant per lag 0..12, MacKinnon's p-value.
    unitroot = np.full(LAGS + 1, np.nan)
    for p in range(MAXAR + 1):
        unitroot[p] = adfuller(x, maxlag=p, regression="c", autolag=None)[1]
    steps("adfuller")

    s = 1 / np.sqrt(n)
    missing = np.full(LAGS + 1, np.nan)
    band = np.r_[np.nan, np.full(LAGS, 2 * s)]
    acf_band = np.where(acf_se > 0.5, 1.0, 2 * acf_se)

    def log_probability(p):
        with np.errstate(divide="ignore", invalid="ignore"):
            return np.where(np.isnan(p), np.nan, np.where(p > 1e-4, -np.log10(p), 4.0))

    def significance(r, se):
        return np.r_[0.0, np.clip(2 * stats.norm.sf(np.abs(r[1:] / se[1:])), 1e-4, 0.9999)]

    acf_prb = significance(acf, acf_se)
    pacf_prb = significance(pacf, np.full(LAGS + 1, s))
    iacf_prb = significance(iacf, np.full(LAGS + 1, s))
    out = pd.DataFrame({
        "LAG": lag, "N": n - lag, "ACOV": acov,
        "LACF": -acf_band, "ACF": acf, "UACF": acf_band,
        "LPACF": -band, "PACF": pacf, "UPACF": band,
        "LIACF": -band, "IACF": iacf, "UIACF": band,
        "WNOISE": wnoise, "UNITROOT": unitroot, "SEASONUR": missing,
        "WN_LP": log_probability(wnoise), "UR_LP": log_probability(unitroot), "SUR_LP": missing,
        "ACF_PRB": acf_prb, "PACF_PRB": pacf_prb, "IACF_PRB": iacf_prb,
        "ACF_LP": log_probability(acf_prb), "PACF_LP": log_probability(pacf_prb),
        "IACF_LP": log_probability(iacf_prb),
    })
    out.to_csv(target, index=False)
    steps("to_csv")
    print(json.dumps({"NLAGS": LAGS, "MEAN": float(x.mean()), "NNMSS": n, "PACF_STD": s, "IACF_STD": s, "N": n,
                      "URPVAL": float(unitroot[MAXAR])}, indent=2))
    steps.report()


def transform(source, target):
    steps = Steps()
    import numpy as np
    import pandas as pd
    from statsmodels.tsa.seasonal import seasonal_decompose
    steps("imports")

    frame = pd.read_csv(source, parse_dates=["time"])
    steps("read_csv")
    d = frame["value"].diff()
    # seasonal_decompose refuses missing values: the first difference is left out.
    parts = seasonal_decompose(d.iloc[1:].to_numpy(), model="additive", period=SEASON)
    # Written where the trend-cycle is, as fmsd writes the adjusted series.
    adjusted = d.copy()
    adjusted.iloc[1:] = np.where(np.isnan(parts.trend), np.nan, d.iloc[1:].to_numpy() - parts.seasonal)
    steps("diff+seasonal_decompose")
    pd.DataFrame({"time": frame["time"], "value": adjusted}).to_csv(
        target, index=False, date_format="%Y-%m-%dT%H:%M:%S")
    steps("to_csv")
    steps.report()


def measure(out, command):
    start = time.perf_counter()
    with open(out, "w") as sink:
        child = subprocess.Popen(command, stdout=sink)
    _, status, usage = os.wait4(child.pid, 0)
    wall = time.perf_counter() - start
    code = os.waitstatus_to_exitcode(status)
    if code != 0:
        sys.exit(f"cli_peer measure: {command[0]} exited with {code}")
    print(json.dumps({"wall_s": wall, "cpu_s": usage.ru_utime + usage.ru_stime, "rss_mib": usage.ru_maxrss / 1024}))


def compare(ours, theirs, columns):
    import numpy as np
    import pandas as pd

    a, b = pd.read_csv(ours), pd.read_csv(theirs)
    if len(a) != len(b):
        sys.exit(f"cli_peer compare: {ours} has {len(a)} rows, {theirs} {len(b)}")
    found = {}
    for name in columns:
        x, y = a[name].to_numpy(float), b[name].to_numpy(float)
        both = ~np.isnan(x) & ~np.isnan(y)
        found[name] = [float(np.max(np.abs(x[both] - y[both]), initial=0.0)), int((np.isnan(x) != np.isnan(y)).sum())]
    print(json.dumps(found))


def main(argv):
    if len(argv) == 5 and argv[1] == "generate":
        generate(int(argv[2]), int(argv[3]), argv[4])
    elif len(argv) == 4 and argv[1] == "diagnose":
        diagnose(argv[2], argv[3])
    elif len(argv) == 4 and argv[1] == "transform":
        transform(argv[2], argv[3])
    elif len(argv) > 3 and argv[1] == "measure":
        measure(argv[2], argv[3:])
    elif len(argv) > 4 and argv[1] == "compare":
        compare(argv[2], argv[3], argv[4:])
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main(sys.argv)
