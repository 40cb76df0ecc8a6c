#!/usr/bin/env bash
# Diagnostics of many series at once: fmsd diagnose --by over COUNT monthly series
# of 144 values in one CSV file, beside the same work looped in statsmodels over a
# sample of the series, in one run.
#
#   bench/compare_by.sh [BUILD_DIR]     (default: build)
#
# COUNT (default 100000), SMALL (default 10000: the same run on the first SMALL
# series, to show that memory does not grow with the number of groups), SAMPLE
# (default 500: series the peer loops over), SEED (default 20240617).  FMSD names
# the program to time instead of BUILD_DIR/bin/fmsd.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build}
count=${COUNT:-100000}
small=${SMALL:-10000}
sample=${SAMPLE:-500}
seed=${SEED:-20240617}
source "$root/bench/common.sh"

if [ -z "${FMSD:-}" ]; then
  build_targets "$build" fmsd_cli fmsd
  FMSD=$build/bin/fmsd
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$python" "$root/bench/by_peer.py" generate "$seed" "$count" "$work/series.csv"
head -n $((small * 144 + 1)) "$work/series.csv" >"$work/first.csv"

options='{"UNITROOT": {"TYPE": "SINGLEMEAN", "STATTYPE": "STUDENTIZED", "MAXAR": 2},
          "SEASONUR": {"TYPE": "SINGLEMEAN", "STATTYPE": "STUDENTIZED", "DLAG": 12}}'
diagnose() {  # input, name of the run
  /usr/bin/time -f '{"wall": %e, "user": %U, "system": %S, "rss_kib": %M}' -o "$work/$2.time" \
    "$FMSD" diagnose --in "$1" --var x --nlags 24 --options "$options" --by ID \
    --out "$work/$2_out.csv" --result "$work/$2.json" --timing "$work/$2.timing" --progress off
}
diagnose "$work/first.csv" small
diagnose "$work/series.csv" full
"$python" "$root/bench/by_peer.py" run "$work/series.csv" "$sample" >"$work/peer.json"

"$python" - "$work" "$(nproc)" <<'PY'
import json, sys

work, cores = sys.argv[1], int(sys.argv[2])
peer = json.load(open(f"{work}/peer.json"))
per_series = peer["cpu_seconds_per_series"]
print(f"statsmodels {peer['statsmodels']}, numpy {peer['numpy']}; {cores} processors")
print(f"statsmodels loop over {peer['series']} series: {per_series * 1e3:.3f} ms of processor time a series, "
      f"{1 / per_series:.0f} series/s on one processor")
print(f"{'groups':>8} {'wall s':>8} {'cpu s':>8} {'RSS MiB':>8} {'calls s':>8} {'calls cpu s':>11}")
runs = {}
for name in ("small", "full"):
    t = json.load(open(f"{work}/{name}.time"))
    timing = json.load(open(f"{work}/{name}.timing"))
    runs[name] = (t, timing)
    print(f"{timing['groups']:>8} {t['wall']:>8.2f} {t['user'] + t['system']:>8.2f} {t['rss_kib'] / 1024:>8.1f} "
          f"{timing['service_seconds']:>8.2f} {timing['service_cpu_seconds']:>11.2f}")
t, timing = runs["full"]
n, workers = timing["groups"], timing["workers"]
calls_cpu = timing["service_cpu_seconds"] / n
print(f"diagnostics alone: {calls_cpu * 1e6:.1f} us of processor time a series; "
      f"{per_series / calls_cpu:.0f}x statsmodels per processor, "
      f"{workers * per_series / calls_cpu:.0f}x its one-processor loop with {workers} workers")
print(f"end to end: {n / t['wall']:.0f} series/s from CSV to output data set, "
      f"{n / t['wall'] * per_series:.0f}x the statsmodels loop (extrapolated: {n * per_series:.0f} s for {n} series)")
PY
