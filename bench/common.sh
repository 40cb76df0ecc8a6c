# Sourced by the bench/compare_*.sh scripts, after they set `root`.
# Debian's interpreter, where the python3-* packages install, whatever else is on PATH.
python=/usr/bin/python3

# need_python "MODULE, ..." PACKAGE...: installs the Debian packages of the peers
# when the modules cannot be imported.
need_python() {
  local imports=$1
  shift
  "$python" -c "import $imports" 2>/dev/null && return 0
  echo "$(basename "$0" .sh): installing $*" >&2
  local as_root=()
  [ "$(id -u)" -eq 0 ] || as_root=(sudo)
  export DEBIAN_FRONTEND=noninteractive
  "${as_root[@]}" apt-get install -y -qq --no-install-recommends "$@" >/dev/null ||
    { "${as_root[@]}" apt-get update -qq && "${as_root[@]}" apt-get install -y -qq --no-install-recommends "$@" >/dev/null; }
}

# build_targets BUILD_DIR TARGET...: configures an optimised build with the
# benchmarks and builds just these targets.
build_targets() {
  local build=$1
  shift
  cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DFMSD_BENCH=ON >/dev/null
  cmake --build "$build" --target "$@" >/dev/null
}
