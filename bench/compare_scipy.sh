#!/usr/bin/env bash
# The probability routines beside scipy.special on the same arguments, in one run.
# Usage: bench/compare_scipy.sh BUILD_DIR   (Debian's python3-scipy is installed if missing)
set -euo pipefail
build=${1:-build}
root=$(cd "$(dirname "$0")/.." && pwd)
source "$root/bench/common.sh"
need_python "scipy" python3-scipy
ninja -C "$build" probability_bench >/dev/null
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
"$build/bin/probability_bench" --benchmark_repetitions=3 --benchmark_report_aggregates_only=true \
  --benchmark_format=json >"$tmp/ours.json"
/usr/bin/python3 "$root/bench/scipy_peer.py" >"$tmp/peer.json"
/usr/bin/python3 - "$tmp/ours.json" "$tmp/peer.json" <<'PY'
import json, sys
ours = {b["run_name"]: 1e9 / b["items_per_second"] for b in json.load(open(sys.argv[1]))["benchmarks"]
        if b.get("aggregate_name") == "median"}
peer = json.load(open(sys.argv[2]))
print("| scipy.special call | fmsd ns/call | scipy ns/element | scipy / fmsd |")
print("|---|---|---|---|")
for name, t in ours.items():
    print(f"| {name} | {t:.1f} | {peer[name]:.1f} | {peer[name] / t:.2f}x |")
PY
