#!/usr/bin/env bash
# Installs, with apt-get, the Debian packages fmsd needs to build and test that
# are not installed yet.  Nothing else is touched.
set -euo pipefail

packages=(g++ cmake ninja-build pkg-config binutils libgtest-dev libgmock-dev libbenchmark-dev libsqlite3-dev python3
          python3-numpy python3-pandas python3-statsmodels python3-pil chromium)

missing=()
for p in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
  [ "$status" = "install ok installed" ] || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "fmsd: installing ${missing[*]}"
as_root=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "fmsd: need root or sudo to install ${missing[*]}" >&2; exit 1; }
  as_root=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
