#!/usr/bin/env bash
# Augmented Dickey-Fuller tests beside statsmodels on the same series, in one run:
# builds unitroot_bench, draws a random walk once from a seed, checks that adfuller
# gives fmsd's tau at every lag 0 to 12, times both sides and prints milliseconds per
# run of the thirteen lags and the ratios.
#
#   bench/compare_adf.sh [BUILD_DIR]     (default: build)
#
# Both sides count CPU time and take turns ROUNDS times (default 5), so that a shared
# machine whose load changes treats them alike; each figure is the median over the
# rounds. SEED (default 20240617) and COUNT (default 100000) change the draw.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build}
seed=${SEED:-20240617}
count=${COUNT:-100000}
rounds=${ROUNDS:-5}
source "$root/bench/common.sh"

need_python "statsmodels, numpy" python3-statsmodels

build_targets "$build" unitroot_bench

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$python" "$root/bench/adf_peer.py" generate "$seed" "$count" "$work/series"
"$build/bin/unitroot_bench" --series="$work/series" --results="$work/results" --benchmark_filter=none >/dev/null 2>&1
for round in $(seq "$rounds"); do
  "$build/bin/unitroot_bench" --series="$work/series" --benchmark_format=json >"$work/fmsd.$round.json"
  # The first round also checks the peer's statistics against fmsd's.
  check=()
  [ "$round" -gt 1 ] || check=("$work/results")
  "$python" "$root/bench/adf_peer.py" run "$work/series" 3 "${check[@]}" >"$work/peer.$round.json"
done

"$python" - "$work" "$rounds" "$seed" <<'PY'
import json, statistics, sys

work, rounds = sys.argv[1], int(sys.argv[2])
scale = {"ns": 1e-6, "us": 1e-3, "ms": 1, "s": 1e3}
fmsd, peer, first = {}, {}, None
for r in range(1, rounds + 1):
    for b in json.load(open(f"{work}/fmsd.{r}.json"))["benchmarks"]:
        fmsd.setdefault(b["name"], []).append(b["cpu_time"] * scale[b["time_unit"]])
    lines = [json.loads(l) for l in open(f"{work}/peer.{r}.json")]
    first = first or lines[0]
    for p in lines[1:]:
        peer.setdefault(p["how"], []).append(p["ms"])
ours = statistics.median(fmsd["BM_AugmentedEachLag"])
print(f"random walk, seed {sys.argv[3]}, n = {first['n']}; statsmodels {first['statsmodels']}, numpy {first['numpy']}")
print(f"single mean, lags 0 to 12; tau agrees with adfuller to {first['max_tau_diff']:.1e} (relative) at every lag;"
      f" medians over {rounds} rounds in CPU ms; ratio = peer / fmsd")
print(f"{'fmsd':>9}{'peer':>10}{'ratio':>8}  peer way")
for how, ms in peer.items():
    m = statistics.median(ms)
    print(f"{ours:>9.2f}{m:>10.2f}{m / ours:>7.1f}x  {how}")
print(f"fmsd, all three variants for every lag (etssur): {statistics.median(fmsd['BM_AllVariantsEachLag']):.2f} ms")
PY
