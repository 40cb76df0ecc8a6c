#!/usr/bin/env bash
# Interval arithmetic beside pandas on the same dates, in one run: builds
# intervals_bench, draws the dates once from a seed, checks that both sides give
# the same results, times both and prints nanoseconds per date and the ratio.
#
#   bench/compare_pandas.sh [BUILD_DIR]     (default: build)
#
# SEED (default 20240601), DATES (default 1000000) and REPETITIONS (default 5)
# change the draw and the number of timed repetitions; each figure is a median.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build}
seed=${SEED:-20240601}
count=${DATES:-1000000}
repetitions=${REPETITIONS:-5}
source "$root/bench/common.sh"

need_python "pandas, numpy" python3-pandas

build_targets "$build" intervals_bench

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$python" "$root/bench/pandas_peer.py" generate "$seed" "$count" "$work/dates"
"$build/bin/intervals_bench" --dates="$work/dates" --results="$work/results" \
  --benchmark_repetitions="$repetitions" --benchmark_report_aggregates_only=true \
  --benchmark_format=json >"$work/fmsd.json"
"$python" "$root/bench/pandas_peer.py" run "$work/dates" "$repetitions" "$work/results" >"$work/pandas.json"

"$python" - "$work/fmsd.json" "$work/pandas.json" "$seed" <<'EOF'
import json, sys

scale = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
fmsd = {}
for b in json.load(open(sys.argv[1]))["benchmarks"]:
    # One repetition reports its run alone, with no aggregates.
    if b.get("aggregate_name") == "median" or b.get("run_type") == "iteration":
        fmsd[b["run_name"]] = b["real_time"] * scale[b["time_unit"]] / b["dates"]
lines = [json.loads(l) for l in open(sys.argv[2])]
versions, peer = lines[0], lines[1:]

titles = {"BM_MonthAdvance": "advance by 1 MONTH", "BM_MonthCount": "count MONTH intervals",
          "BM_WeekdayAdvance": "advance by 3 WEEKDAY"}
print(f"seed {sys.argv[3]}; pandas {versions['pandas']}, numpy {versions['numpy']}; every way gave "
      "fmsd's results; medians in ns per date (per pair for counts); ratio = peer / fmsd")
print(f"{'case':<24}{'dates':>9}{'fmsd':>8}{'peer':>8}{'ratio':>8}  peer way")
shown = set()
for p in peer:
    title = "" if p["case"] in shown else titles[p["case"]]
    shown.add(p["case"])
    ns = fmsd[p["case"]]
    print(f"{title:<24}{p['dates']:>9}{ns:>8.1f}{p['ns']:>8.1f}{p['ns'] / ns:>7.1f}x  {p['how']}")
EOF
