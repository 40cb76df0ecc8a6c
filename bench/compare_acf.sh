#!/usr/bin/env bash
# Autocorrelation diagnostics beside statsmodels on the same series, in one run: builds
# acf_bench, draws an AR(1) series once from a seed, checks that both sides give the
# same ACF, standard errors, PACF, IACF and Ljung-Box probabilities, times both and
# prints milliseconds and the ratio.
#
#   bench/compare_acf.sh [BUILD_DIR]     (default: build)
#
# SEED (default 20240611), COUNT (default 1000000), SMALL (default 20000, the size at
# which statsmodels' quadratic default calls are timed), REPETITIONS (default 5) and
# ROUNDS (default 3) change the draw and the timing. The two sides take turns, ROUNDS
# times, so that a change in the machine's load falls on both; each figure is the
# median of all repetitions of all rounds.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build}
seed=${SEED:-20240611}
count=${COUNT:-1000000}
small=${SMALL:-20000}
repetitions=${REPETITIONS:-5}
rounds=${ROUNDS:-3}
source "$root/bench/common.sh"

need_python "statsmodels, scipy, numpy" python3-statsmodels

build_targets "$build" acf_bench

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$python" "$root/bench/acf_peer.py" generate "$seed" "$count" "$work/series"
for round in $(seq "$rounds"); do
  results=()
  [ "$round" -eq 1 ] && results=(--results="$work/results")
  "$build/bin/acf_bench" --series="$work/series" --small="$small" "${results[@]}" \
    --benchmark_repetitions="$repetitions" --benchmark_format=json >"$work/fmsd$round.json"
  results=()
  [ "$round" -eq 1 ] && results=("$work/results")
  "$python" "$root/bench/acf_peer.py" run "$work/series" "$small" "$repetitions" "${results[@]}" \
    >"$work/peer$round.json"
done

"$python" - "$work" "$rounds" "$seed" <<'EOF'
import json, statistics, sys

work, rounds, seed = sys.argv[1], int(sys.argv[2]), sys.argv[3]
scale = {"ns": 1e-6, "us": 1e-3, "ms": 1, "s": 1e3}
fmsd, peer, agreement = {}, {}, {}
for r in range(1, rounds + 1):
    for b in json.load(open(f"{work}/fmsd{r}.json"))["benchmarks"]:
        if b.get("run_type") == "iteration":
            name, n = b["run_name"].split("/")
            fmsd.setdefault((name, int(n)), []).append(b["real_time"] * scale[b["time_unit"]])
    lines = [json.loads(l) for l in open(f"{work}/peer{r}.json")]
    versions = lines[0]
    for p in lines[1:]:
        peer.setdefault((p["n"], p["how"]), []).extend(p["samples_ms"])
        if "max_abs_diff" in p:
            agreement[p["n"], p["how"]] = p["max_abs_diff"]
fmsd = {k: statistics.median(v) for k, v in fmsd.items()}

print(f"AR(1) series, seed {seed}; 100 lags; statsmodels {versions['statsmodels']}, "
      f"scipy {versions['scipy']}, numpy {versions['numpy']}")
print("autocovariances, ACF and standard errors, PACF, IACF, Ljung-Box probabilities; "
      f"medians of {len(next(iter(peer.values())))} runs in ms; ratio = peer / fmsd")
print(f"{'n':>9}{'fmsd':>9}{'peer':>10}{'ratio':>8}  peer way (max |difference| from fmsd)")
for (n, how), samples in peer.items():
    ours, theirs = fmsd["BM_Diagnostics", n], statistics.median(samples)
    agree = f" ({agreement[n, how]:.1e})" if (n, how) in agreement else " (other PACF method, no IACF)"
    print(f"{n:>9}{ours:>9.2f}{theirs:>10.2f}{theirs / ours:>7.1f}x  {how}{agree}")
print("fmsd alone:")
for (name, n), ms in sorted(fmsd.items(), key=lambda item: (-item[0][1], item[0][0])):
    print(f"{n:>9}{ms:>9.2f}  {name}")
EOF
