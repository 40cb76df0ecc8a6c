#!/usr/bin/env bash
# Cross-builds the module and its tests for aarch64 and runs them under qemu user
# mode, so the aarch64 host call stubs are assembled, linked and exercised on a
# machine without an aarch64 processor.
#   tools/check-aarch64.sh [BUILD_DIR]     (default /tmp/build-aarch64)
# GoogleTest is cross-built from Debian's sources into BUILD_DIR/gtest and found
# through the toolchain's search root; nothing outside BUILD_DIR is written apart
# from the Debian packages installed when missing.  Logs are in BUILD_DIR/logs.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-/tmp/build-aarch64}
triple=aarch64-linux-gnu
sysroot=/usr/$triple
gtest_src=/usr/src/googletest
started=$SECONDS

mkdir -p "$build/logs"
build=$(cd "$build" && pwd)
logs=$build/logs
step=setup

fail() {
  echo "aarch64 check FAILED: $step ($(( SECONDS - started ))s; logs in $logs)" >&2
  exit 1
}
trap 'fail' ERR

# Runs a step quietly, showing the end of its log when it fails.
run_logged() {
  local log=$logs/$1.log
  shift
  if ! "$@" >"$log" 2>&1; then
    tail -n 40 "$log" >&2
    fail
  fi
}

# ---- packages ----------------------------------------------------------------------
step="installing packages"
packages=(g++-aarch64-linux-gnu binutils-aarch64-linux-gnu qemu-user googletest cmake ninja-build)
missing=()
for p in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
  [ "$status" = "install ok installed" ] || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing ${missing[*]}"
  as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || { echo "need root or sudo to install ${missing[*]}" >&2; fail; }
    as_root=(sudo)
  fi
  run_logged apt-update "${as_root[@]}" apt-get update
  run_logged apt-install "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y --no-install-recommends "${missing[@]}"
fi

# ---- toolchain -----------------------------------------------------------------------
# Libraries, headers and packages come only from the cross sysroot and the
# cross-built GoogleTest, never from the build machine's own x86-64 copies.
toolchain=$build/aarch64-toolchain.cmake
cat >"$toolchain" <<EOF
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER $triple-gcc)
set(CMAKE_CXX_COMPILER $triple-g++)
set(CMAKE_ASM_COMPILER $triple-gcc)
set(CMAKE_FIND_ROOT_PATH $sysroot $build/gtest)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L $sysroot)
EOF

# ---- GoogleTest for aarch64 -------------------------------------------------------------
step="cross-building GoogleTest"
run_logged gtest-configure cmake -S "$gtest_src" -B "$build/gtest-build" -G Ninja \
  -DCMAKE_TOOLCHAIN_FILE="$toolchain" -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_INSTALL_PREFIX="$build/gtest" -DBUILD_GMOCK=OFF -DINSTALL_GTEST=ON
run_logged gtest-build cmake --build "$build/gtest-build" --parallel "$(nproc)"
run_logged gtest-install cmake --install "$build/gtest-build"

# ---- the module and its tests ----------------------------------------------------------
step="configuring fmsd"
run_logged configure cmake -S "$root" -B "$build/fmsd" -G Ninja \
  -DCMAKE_TOOLCHAIN_FILE="$toolchain" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DFMSD_BENCH=OFF -DFMSD_TESTS=ON -DGTest_DIR="$build/gtest/lib/cmake/GTest"
step="building fmsd"
run_logged build cmake --build "$build/fmsd" --parallel "$(nproc)" \
  --target fmsd fmsdhost module_tests util_tests

module=$build/fmsd/lib/libfmsd.so
step="checking the module is aarch64"
$triple-readelf -h "$module" | grep -q 'Machine: *AArch64'

# ---- run the tests under emulation ------------------------------------------------------
summary=()
for suite in module util; do
  step="running ${suite}_tests under qemu-aarch64"
  log=$logs/${suite}_tests.log
  if ! (cd "$build/fmsd" && qemu-aarch64 -L "$sysroot" "bin/${suite}_tests" --gtest_color=no) >"$log" 2>&1; then
    # The first failure in full, then the list of failed tests (or the end of a crash).
    awk '/: Failure$/ && !seen++ {n = 12} n > 0 {print; n--}' "$log" >&2
    grep -E '^\[  FAILED  \]' "$log" >&2 || tail -n 20 "$log" >&2
    fail
  fi
  passed=$(sed -n 's/^\[  PASSED  \] \([0-9]*\) tests\{0,1\}\..*/\1/p' "$log")
  if [ -z "$passed" ] || [ "$passed" -eq 0 ]; then
    tail -n 20 "$log" >&2
    fail
  fi
  summary+=("${suite}_tests $passed passed")
done

# ---- exported names -----------------------------------------------------------------------
# The project's own export check with the cross nm (the build machine's nm need
# not read aarch64 objects).
step="checking the module's exports"
run_logged symbols env NM="$triple-nm" "$root/tests/module/symbols.sh" \
  "$module" "$build/fmsd/lib/libfmsdhost.a" "$root/include/fmsd/hostabi.h"
exports=$(tail -n 1 "$logs/symbols.log")

trap - ERR
echo "aarch64 check passed: stubs assembled; ${summary[0]}, ${summary[1]} under qemu; $exports ($(( SECONDS - started ))s)"
