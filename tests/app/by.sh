#!/usr/bin/env bash
# Commands run for each group of rows (--by): every group's output and result
# list as the command gives them for that group alone, in group order behind the
# BY variables; a failing group reported and left out; unsorted input refused.
set -uo pipefail
fmsd=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
python=/usr/bin/python3
fail() { echo "FAIL: $*"; exit 1; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1

run() {
  "$fmsd" "$@" >"$work/stdout" 2>"$work/stderr"
  rc=$?
  out=$(cat "$work/stdout")
  err=$(cat "$work/stderr")
}

# Five monthly series of 48 values under a text and a numeric BY variable; group
# (b, 7) has no value at all.
"$python" - <<'PY'
import math
rows = []
for region, ident, n in [("a", 1, 48), ("a", 2, 48), ("b", 7, 3), ("b", 8, 48), ("c", 3, 48)]:
    for i in range(n):
        y = 100 + 0.5 * i * ident + 10 * math.sin(2 * math.pi * i / 12 + ident) + ((i * 7919 + ident) % 13)
        rows.append(f"{region},{ident},{2000 + i // 12}-{i % 12 + 1:02d}-01,{repr(y) if ident != 7 else ''}")
open("all.csv", "w").write("region,id,date,x\n" + "\n".join(rows) + "\n")
PY
groups=("a 1" "a 2" "b 7" "b 8" "c 3")

# The rows of one group as a data set of their own.
group_file() {  # region id file
  awk -F, -v r="$1" -v i="$2" 'NR == 1 || ($1 == r && $2 == i)' all.csv >"$3"
}
# The rows of one group in a --by output (where texts are quoted), without the
# BY variables.
group_rows() {  # region id file
  awk -F, -v r="\"$1\"" -v i="$2" 'NR == 1 || ($1 == r && $2 == i)' "$3" | cut -d, -f3-
}

# ---- diagnose: one bad group among good ones ------------------------------------------------
opts='{"UNITROOT": {"TYPE": "SINGLEMEAN", "STATTYPE": "STUDENTIZED", "MAXAR": 2},
       "SEASONUR": {"TYPE": "SINGLEMEAN", "STATTYPE": "STUDENTIZED", "DLAG": 12}}'
D=(diagnose --in all.csv --var x --nlags 6 --options "$opts")
run "${D[@]}" --by region,id --out byout.csv --result by.json --jobs 3
[ $rc -eq 3 ] || fail "a run with a failing group exits $rc, not 3: $err"
[ "$(grep -c 'group' <<<"$err")" -eq 2 ] || fail "not one line for the failed group and one summary: $err"
grep -qE '^fmsd diagnose: group region=b, id=7 failed: mtsscov failed with result -[0-9]+ \(' <<<"$err" ||
  fail "the failed group is not named with its result: $err"
grep -q '1 of 5 groups failed; the other 4 were saved' <<<"$err" || fail "no summary: $err"
[ "$(head -1 byout.csv | cut -d, -f1-3)" = "region,id,LAG" ] || fail "BY variables are not first: $(head -1 byout.csv)"
grep -q '^"b",7,' byout.csv && fail "the failed group's rows are in the output"
[ "$(cut -d, -f1,2 byout.csv | sed 1d | uniq | tr -d '"' | tr '\n' ' ')" = "a,1 a,2 b,8 c,3 " ] ||
  fail "groups are not in input order: $(cut -d, -f1,2 byout.csv | uniq | tr '\n' ' ')"

for g in "${groups[@]}"; do
  set -- $g
  group_file "$1" "$2" "g$1$2.csv"
  run diagnose --in "g$1$2.csv" --var x --nlags 6 --options "$opts" --out "alone$1$2.csv" --result "alone$1$2.json"
  if [ "$2" = 7 ]; then
    [ $rc -eq 1 ] || fail "the short group alone exits $rc"
    continue
  fi
  [ $rc -eq 0 ] || fail "group $g alone exits $rc: $err"
  cmp -s <(group_rows "$1" "$2" byout.csv) "alone$1$2.csv" || fail "group $g differs from its run alone"
done

"$python" - <<'PY' || fail "the result array does not hold each group's own outcome"
import json, sys
runs = json.load(open("by.json"))
assert [(r["BY"]["region"], r["BY"]["id"]) for r in runs] == [("a", 1), ("a", 2), ("b", 7), ("b", 8), ("c", 3)], runs
for r in runs:
    key = r["BY"]["region"] + str(r["BY"]["id"])
    if key == "b7":
        assert r["RESULT"] < 0 and "mtsscov failed" in r["ERROR"] and "LIST" not in r, r
    else:
        assert r["RESULT"] == 0 and r["LIST"] == json.load(open(f"alone{key}.json")), (r, key)
PY

# The same groups on one worker give the same files.
run "${D[@]}" --by region,id --out one.csv --result one.json --jobs 1
[ $rc -eq 3 ] || fail "one worker exits $rc"
cmp -s one.csv byout.csv && cmp -s one.json by.json || fail "one worker writes other files than three"

# ---- transform: a numeric BY variable, standard output holding the outcomes ------------------
{ echo id,date,x; awk -F, 'NR > 1 && $2 != 7' all.csv | cut -d, -f2- | sort -t, -s -k1,1n; } >num.csv
run transform --in num.csv --var x --carry date --season 12 --options '{"TRNSTYPE": "LOG", "SDIF": 1}' \
  --by id --out tby.csv --progress on
[ $rc -eq 0 ] || fail "transform --by exits $rc: $err"
[ "$(head -1 tby.csv)" = "id,date,x" ] || fail "transform --by header: $(head -1 tby.csv)"
"$python" -c 'import json, sys; r = json.loads(sys.argv[1]); assert [g["BY"]["id"] for g in r] == [1, 2, 3, 8] and all(g["RESULT"] == 0 for g in r), r' "$out" ||
  fail "transform --by outcomes: $out"
for i in 1 2 3 8; do
  awk -F, -v i=$i 'NR == 1 || $1 == i' num.csv >"t$i.csv"
  run transform --in "t$i.csv" --var x --carry date --season 12 --options '{"TRNSTYPE": "LOG", "SDIF": 1}' --out "talone$i.csv"
  [ $rc -eq 0 ] || fail "transform of group $i alone exits $rc"
  cmp -s <(awk -F, -v i=$i 'NR == 1 || $1 == i' tby.csv | cut -d, -f2-) "talone$i.csv" ||
    fail "transform of group $i differs from its run alone"
done

# ---- forecast: a log-transformed seasonal model; group (b, 7) is too short ------------------
F=(forecast --id date --var x --interval month --transform log --trend linear --seasonal dummies
   --intervention step:2002-01-01 --holdout 6 --lead 12)
run "${F[@]}" --in all.csv --by region,id --out fby.csv --result fby.json --jobs 2
[ $rc -eq 3 ] || fail "forecast --by with a failing group exits $rc, not 3: $err"
grep -q '^fmsd forecast: group region=b, id=7 failed: ' <<<"$err" || fail "forecast: the failed group is not named: $err"
[ "$(head -1 fby.csv | cut -d, -f1-4)" = "region,id,date,x" ] || fail "forecast --by header: $(head -1 fby.csv)"
for g in "a 1" "a 2" "b 8" "c 3"; do
  set -- $g
  run "${F[@]}" --in "g$1$2.csv" --out "falone$1$2.csv" --result "falone$1$2.json"
  [ $rc -eq 0 ] || fail "forecast of group $g alone exits $rc: $err"
  cmp -s <(group_rows "$1" "$2" fby.csv) "falone$1$2.csv" || fail "forecast of group $g differs from its run alone"
done
"$python" - <<'PY' || fail "the forecast result array does not hold each group's own outcome"
import json
runs = json.load(open("fby.json"))
assert [(r["BY"]["region"], r["BY"]["id"]) for r in runs] == [("a", 1), ("a", 2), ("b", 7), ("b", 8), ("c", 3)], runs
for r in runs:
    key = r["BY"]["region"] + str(r["BY"]["id"])
    if key == "b7":
        assert "ERROR" in r and "LIST" not in r, r
    else:
        assert r["RESULT"] == 0 and r["LIST"] == json.load(open(f"falone{key}.json")), (r, key)
PY

# ---- what stops a run: nothing is saved -------------------------------------------------------
cp byout.csv kept.csv
run "${D[@]}" --by id --out byout.csv --result by.json
[ $rc -eq 1 ] || fail "unsorted input exits $rc"
grep -q 'not sorted by the BY variables: row 148 (id=3) comes after id=8' <<<"$err" || fail "unsorted message: $err"
cmp -s byout.csv kept.csv || fail "an unsorted run replaced the output"
ls .by.json.* >/dev/null 2>&1 && fail "an unsorted run left a temporary result file"
run "${D[@]}" --by id --out byout.csv
[ $rc -eq 1 ] || fail "unsorted input without --result exits $rc"
[ -z "$out" ] || python3 -c 'import json, sys; json.loads(sys.argv[1])' "$out" 2>/dev/null ||
  fail "a stopped run left standard output that is not JSON: $out"

awk -F, 'NR == 1 || $2 == 7' all.csv >short.csv
run diagnose --in short.csv --var x --nlags 6 --by id --out byout.csv --result by.json
[ $rc -eq 1 ] || fail "a run whose every group fails exits $rc"
grep -q 'every one of the 1 groups failed; nothing was saved' <<<"$err" || fail "all failed message: $err"
cmp -s byout.csv kept.csv || fail "a run of failed groups replaced the output"

run "${D[@]}" --by nosuch --out x.csv
[ $rc -eq 2 ] && grep -q 'has no variable nosuch' <<<"$err" || fail "an unknown BY variable: $rc $err"
run "${D[@]}" --by id --out LAG.csv --by id
[ $rc -eq 2 ] || fail "--by twice exits $rc"
run "${D[@]}" --out x.csv --jobs 2
[ $rc -eq 2 ] && grep -q -- '--jobs goes with --by only' <<<"$err" || fail "--jobs without --by: $rc $err"
run "${D[@]}" --by id --progress sometimes --out x.csv
[ $rc -eq 2 ] || fail "a bad --progress exits $rc"
printf 'id,LAG,x\n1,1,2\n1,1,3\n1,1,5\n1,1,4\n' >clash.csv
run diagnose --in clash.csv --var x --nlags 1 --by LAG --out x.csv
[ $rc -eq 1 ] && grep -q 'BY variable LAG has the name of a variable of the output' <<<"$err" ||
  fail "a BY variable named as an output variable: $rc $err"
ls x.csv >/dev/null 2>&1 && fail "a refused run wrote an output"
echo "by: all passed"
