#!/usr/bin/env bash
# Builds the fuzz targets with clang, AddressSanitizer and UBSan, and runs each for
# a while on its corpus: fuzz/run.sh [seconds per target, default 60]
# New inputs that raise coverage are added to fuzz/corpus/<target>/; a crashing
# input is left as crash-* in the build directory: copy it into the corpus so that
# the regression tests replay it.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-60}
"$root/scripts/deps.sh"
command -v clang++ >/dev/null || apt-get install -y -qq clang libclang-rt-14-dev libfuzzer-14-dev
build=$root/build-fuzz
CC=clang CXX=clang++ cmake -S "$root" -B "$build" -G Ninja -DFMSD_FUZZ=ON -DFMSD_TESTS=OFF -DFMSD_BENCH=OFF \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
targets=(zintstr csv json)
cmake --build "$build" --target "${targets[@]/%/_fuzz}"
for target in "${targets[@]}"; do
  mkdir -p "$root/fuzz/corpus/$target"
  # Interval texts are short; CSV files and parameter lists need room.
  max_len=4096
  [ "$target" = zintstr ] && max_len=64
  (cd "$build" && "./bin/${target}_fuzz" -max_total_time="$seconds" -max_len="$max_len" "$root/fuzz/corpus/$target")
done
