#!/usr/bin/env bash
# The command line end to end beside pandas + statsmodels, in one run: builds fmsd,
# writes a CSV of ROWS hourly observations once from a seed, and times two jobs on
# it, each as a whole process from start to exit, the output file written:
#
#   diagnose   fmsd diagnose --nlags 100 with the correlation probabilities and a
#              single-mean augmented Dickey-Fuller test at lags 0 to 12, beside
#              read_csv, acovf, levinson_durbin, q_stat, adfuller and to_csv
#   transform  fmsd transform --season 24 with one difference and the seasonally
#              adjusted series of an additive decomposition, beside read_csv,
#              diff, seasonal_decompose and to_csv
#
#   bench/compare_cli.sh [BUILD_DIR]     (default: build)
#
# The first round compares the outputs column by column. The sides take turns
# ROUNDS times (default 3); each figure is the median over the rounds of the wall
# time, the processor time (user + system) and the peak resident memory of the
# process. Compare processor times on a machine that other work keeps busy. SEED
# (default 20240620) and ROWS (default 1000000) change the data.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build}
seed=${SEED:-20240620}
rows=${ROWS:-1000000}
rounds=${ROUNDS:-3}
source "$root/bench/common.sh"
peer=$root/bench/cli_peer.py

need_python "pandas, numpy, scipy, statsmodels" python3-pandas python3-scipy python3-statsmodels

build_targets "$build" fmsd fmsd_cli
fmsd=$build/bin/fmsd

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$python" "$peer" generate "$seed" "$rows" "$work/big.csv"

diagnose=(diagnose --in "$work/big.csv" --var value --nlags 100 --out "$work/fmsd_diag.csv"
  --options '{"UNITROOT": {"TYPE": "SINGLEMEAN", "STATTYPE": "STUDENTIZED", "MAXAR": 12}, "CORRPROB": 1}')
transform=(transform --in "$work/big.csv" --var value --carry time --season 24 --out "$work/fmsd_tran.csv"
  --options '{"DIF": 1, "CDLIST": {"CDTYPE": "ADDITIVE", "CDCOMP": "SA"}}')

for round in $(seq "$rounds"); do
  "$python" "$peer" measure "$work/fmsd_diag.json" "$fmsd" "${diagnose[@]}" >"$work/fmsd.diagnose.$round"
  "$python" "$peer" measure "$work/peer_diag.json" "$python" "$peer" diagnose "$work/big.csv" "$work/peer_diag.csv" \
    >"$work/peer.diagnose.$round" 2>"$work/steps.diagnose.$round"
  "$python" "$peer" measure /dev/null "$fmsd" "${transform[@]}" >"$work/fmsd.transform.$round"
  "$python" "$peer" measure /dev/null "$python" "$peer" transform "$work/big.csv" "$work/peer_tran.csv" \
    >"$work/peer.transform.$round" 2>"$work/steps.transform.$round"
  if [ "$round" -eq 1 ]; then
    "$python" "$peer" compare "$work/fmsd_diag.csv" "$work/peer_diag.csv" ACOV ACF LACF UACF PACF IACF WNOISE \
      UNITROOT ACF_PRB PACF_PRB IACF_PRB WN_LP UR_LP ACF_LP PACF_LP IACF_LP >"$work/same.diagnose"
    "$python" "$peer" compare "$work/fmsd_tran.csv" "$work/peer_tran.csv" value >"$work/same.transform"
  fi
done

"$python" - "$work" "$rounds" "$seed" "$rows" <<'PY'
import json, statistics, sys
import numpy, pandas, scipy, statsmodels

work, rounds, seed, rows = sys.argv[1], int(sys.argv[2]), sys.argv[3], int(sys.argv[4])


def figures(name):
    samples = [json.loads(open(f"{work}/{name}.{r}").read()) for r in range(1, rounds + 1)]
    return {k: statistics.median(s[k] for s in samples) for k in samples[0]}


def steps(job):
    samples = [json.loads(open(f"{work}/steps.{job}.{r}").read().splitlines()[-1])["steps_cpu_s"]
               for r in range(1, rounds + 1)]
    return ", ".join(f"{k} {statistics.median(s[k] for s in samples):.2f}" for k in samples[0])


print(f"{rows} hourly rows, seed {seed}; pandas {pandas.__version__}, statsmodels {statsmodels.__version__}, "
      f"numpy {numpy.__version__}, scipy {scipy.__version__}")
print(f"medians over {rounds} rounds; time in seconds, peak resident memory in MiB; ratio = peer / fmsd")
print(f"{'job':<10}{'side':<6}{'wall':>8}{'cpu':>8}{'rss':>8}{'wall x':>9}{'cpu x':>8}")
for job in ("diagnose", "transform"):
    ours, theirs = figures(f"fmsd.{job}"), figures(f"peer.{job}")
    print(f"{job:<10}{'fmsd':<6}{ours['wall_s']:>8.2f}{ours['cpu_s']:>8.2f}{ours['rss_mib']:>8.1f}")
    print(f"{'':<10}{'peer':<6}{theirs['wall_s']:>8.2f}{theirs['cpu_s']:>8.2f}{theirs['rss_mib']:>8.1f}"
          f"{theirs['wall_s'] / ours['wall_s']:>8.1f}x{theirs['cpu_s'] / ours['cpu_s']:>7.1f}x")
for job in ("diagnose", "transform"):
    print(f"peer {job}, processor seconds by step: {steps(job)}")
    same = json.loads(open(f"{work}/same.{job}").read())
    print(f"{job} outputs, largest |fmsd - peer| [rows missing on one side only]: " +
          ", ".join(f"{k} {d:.1e} [{m}]" for k, (d, m) in same.items()))
PY
