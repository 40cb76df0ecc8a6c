#!/usr/bin/env bash
# Builds dfsim and runs the whole simulation plan into tools/dfsim/data, resumably: cells
# already simulated at the asked replication counts are skipped, so the same command
# continues an interrupted run or tops up cells written with fewer replications.
#   tools/dfsim/run.sh [BUILD_DIR] [dfsim options...]
# e.g. tools/dfsim/run.sh /tmp/dfsim-build --threads 2 --reps 4000000 --reps-large 4000000
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-/tmp/dfsim-build}
shift || true
mkdir -p "$build"
g++ -O3 -std=c++20 -Wall -Wextra -Wshadow -Werror -pthread -o "$build/dfsim" "$root/tools/dfsim/dfsim.cpp"
cd "$root"
exec nice -n 10 "$build/dfsim" --out tools/dfsim/data "$@"
