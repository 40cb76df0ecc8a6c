#!/usr/bin/env bash
# The module exports every host operation under both names and its entry points,
# and needs nothing from the host library to load.
set -euo pipefail
module=$1 hostlib=$2 abi=$3

defined=$(${NM:-nm} -D --defined-only "$module" | awk '{print $3}' | sort -u)
missing=()
count=0
while read -r name facility slot; do
  count=$((count + 1))
  for s in "$name" "_${name}_${facility}_${slot}"; do
    grep -qx -- "$s" <<<"$defined" || missing+=("$s")
  done
done < <(sed -n 's/^ *X(\([a-z0-9_]*\), \([0-9]*\), \([0-9]*\),.*/\1 \2 \3/p' "$abi")
[ "$count" -eq 67 ] || { echo "expected 67 host operations in $abi, found $count"; exit 1; }

for s in mcn_main himodcn qorfmsd vi_mcn mcn_pcns pcn_QORFMSD _B_ten _Z_twenty \
         v_global_gcb_anchor v_global_pidb_anchor u_deve u_devp modout moddata mtstran mtsscov \
         vmalloc_handler vmalcp_handler vmfree_handler; do
  grep -qx -- "$s" <<<"$defined" || missing+=("$s")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "not exported by $module: ${missing[*]}"
  exit 1
fi

host_symbols=$(${NM:-nm} --defined-only --extern-only "$hostlib" 2>/dev/null | awk 'NF==3 {print $3}' | sort -u)
undefined=$(${NM:-nm} -D --undefined-only "$module" | awk '{print $NF}' | sed 's/@.*//' | sort -u)
shared=$(comm -12 <(echo "$host_symbols") <(echo "$undefined"))
if [ -n "$shared" ]; then
  echo "the module needs symbols of the host library: $shared"
  exit 1
fi
echo "67 operations under both names, entry points exported, nothing needed from the host library"
