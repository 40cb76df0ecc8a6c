#!/usr/bin/env bash
# Moving summaries and the classical decomposition beside pandas, bottleneck and
# statsmodels on the same series, in one run: builds moving_bench, draws the series
# once from a seed, checks that every peer way gives fmsd's results, times both
# sides and prints milliseconds per call on the whole series and the ratios.
#
#   bench/compare_moving.sh [BUILD_DIR]     (default: build)
#
# Both sides count CPU time, and take turns ROUNDS times (default 5), so that a
# shared machine whose load changes treats them alike; each figure is the median
# over the rounds. SEED (default 20240613) and COUNT (default 1000000) change the draw.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build}
seed=${SEED:-20240613}
count=${COUNT:-1000000}
rounds=${ROUNDS:-5}
source "$root/bench/common.sh"

need_python "pandas, numpy, bottleneck, statsmodels" python3-pandas python3-bottleneck python3-statsmodels

build_targets "$build" moving_bench

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$python" "$root/bench/moving_peer.py" generate "$seed" "$count" "$work/series"
"$build/bin/moving_bench" --series="$work/series" --results="$work/results" --benchmark_filter=none >/dev/null 2>&1
for round in $(seq "$rounds"); do
  "$build/bin/moving_bench" --series="$work/series" --benchmark_format=json >"$work/fmsd.$round.json"
  # The first round also checks every peer way against fmsd's results.
  check=()
  [ "$round" -gt 1 ] || check=("$work/results")
  "$python" "$root/bench/moving_peer.py" run "$work/series" 3 "${check[@]}" >"$work/peers.$round.json"
done

"$python" - "$work" "$rounds" "$seed" <<'PY'
import json, statistics, sys

work, rounds = sys.argv[1], int(sys.argv[2])
scale = {"ns": 1e-6, "us": 1e-3, "ms": 1, "s": 1e3}
times, peers = {}, {}
for r in range(1, rounds + 1):
    for b in json.load(open(f"{work}/fmsd.{r}.json"))["benchmarks"]:
        times.setdefault(b["name"], []).append(b["cpu_time"] * scale[b["time_unit"]])
    lines = [json.loads(l) for l in open(f"{work}/peers.{r}.json")]
    versions = lines[0]
    for p in lines[1:]:
        peers.setdefault((p["case"], p["how"]), []).append(p["ms"])
fmsd = {case: statistics.median(v) for case, v in times.items()}
peer = [{"case": case, "how": how, "ms": statistics.median(v)} for (case, how), v in peers.items()]

titles = {"BM_Mean": "mean, k=101", "BM_Variance": "variance, k=101", "BM_Median/101": "median, k=101",
          "BM_Median/10001": "median, k=10001", "BM_Maximum": "maximum, k=101",
          "BM_Decompose/multiplicative:0": "decomposition, additive",
          "BM_Decompose/multiplicative:1": "decomposition, multiplic."}
print(f"seed {sys.argv[3]}, n = {versions['n']}; pandas {versions['pandas']}, numpy {versions['numpy']}, "
      f"bottleneck {versions['bottleneck']}, statsmodels {versions['statsmodels']}; every way gave fmsd's "
      f"results; medians over {rounds} rounds in CPU ms per call; ratio = peer / fmsd")
print(f"{'case':<27}{'fmsd':>8}{'peer':>9}{'ratio':>8}  peer way")
shown = set()
for p in peer:
    title = "" if p["case"] in shown else titles[p["case"]]
    shown.add(p["case"])
    ms = fmsd[p["case"]]
    print(f"{title:<27}{ms:>8.2f}{p['ms']:>9.2f}{p['ms'] / ms:>7.2f}x  {p['how']}")
print(f"fmsd median, k=10001 against k=101: {fmsd['BM_Median/10001'] / fmsd['BM_Median/101']:.2f}x the time")
PY
