#!/usr/bin/env bash
# The module exports every host operation under both names and its entry points,
# and needs nothing from the host library to load.
set -euo pipefail
module=$1 hostlib=$2 abi=$3

defined=$(${NM:-nm} -D --defined-only "$module" | awk '{print $3}' | sort -u)
# Both names of every operation in the header (an empty parse would prove nothing), then the entry points.
wanted=$(sed -n 's/^ *X(\([a-z0-9_]*\), \([0-9]*\), \([0-9]*\),.*/\1 _\1_\2_\3/p' "$abi")
count=$(wc -l <<<"$wanted")
[ "$count" -eq 67 ] || { echo "expected 67 host operations in $abi, found $count"; exit 1; }
wanted="$wanted mcn_main himodcn qorfmsd vi_mcn mcn_pcns pcn_QORFMSD _B_ten _Z_twenty v_global_gcb_anchor
  v_global_pidb_anchor u_deve u_devp modout moddata mtstran mtsscov vmalloc_handler vmalcp_handler vmfree_handler"
missing=$(comm -23 <(tr -s ' \n' '\n' <<<"$wanted" | sed '/^$/d' | sort -u) <(echo "$defined"))
[ -z "$missing" ] || { echo "not exported by $module:" $missing; exit 1; }

host_symbols=$(${NM:-nm} --defined-only --extern-only "$hostlib" 2>/dev/null | awk 'NF==3 {print $3}' | sort -u)
undefined=$(${NM:-nm} -D --undefined-only "$module" | awk '{print $NF}' | sed 's/@.*//' | sort -u)
shared=$(comm -12 <(echo "$host_symbols") <(echo "$undefined"))
[ -z "$shared" ] || { echo "the module needs symbols of the host library: $shared"; exit 1; }
echo "67 operations under both names, entry points exported, nothing needed from the host library"
