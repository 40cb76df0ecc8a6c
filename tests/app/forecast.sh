#!/usr/bin/env bash
# fmsd forecast end to end, against lm() and predict() in R on the same models
# (tools/forecast_reference.R), and its refusals of bad input.
set -uo pipefail
fmsd=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
data=$(cd "$(dirname "$0")/../data/forecast" && pwd)
fail() { echo "FAIL: $*"; exit 1; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
cp "$data/air.csv" "$data/seatbelts.csv" .

run() {
  out=$("$fmsd" "$@" 2>err.txt)
  rc=$?
  err=$(cat err.txt)
}

# compare OUTPUT.csv CASE RESULT.json|- COLUMN=EXPECTED_COLUMN...
# Output rows are matched to CASE_expected.csv by date, and every expected value
# must agree to 1e-8 relative (an empty cell is a missing value).  The estimates
# (CASE_estimates.csv, except those named in $ORIGIN, which depend on where the
# trend is counted from) and CASE_stats.csv are checked against the result list.
compare() {
  python3 - "$data" "$@" <<'EOF'
import csv, json, os, sys
data, output, case, result = sys.argv[1:5]
pairs = [a.split("=") for a in sys.argv[5:]]
origin = set(filter(None, os.environ.get("ORIGIN", "").split(",")))
def close(a, b, what):
    if b == "":
        if a not in ("", None):
            sys.exit(f"{what}: {a} where a missing value was expected")
        return
    x, y = float(a), float(b)
    if not abs(x - y) <= 1e-8 * abs(y):
        sys.exit(f"{what}: {x!r}, expected {y!r}")
got = {r["date"]: r for r in csv.DictReader(open(output))}
want = list(csv.DictReader(open(os.path.join(data, case + "_expected.csv"))))
if len(got) != len(want):
    sys.exit(f"{len(got)} output rows, expected {len(want)}")
for w in want:
    g = got.get(w["date"])
    if g is None:
        sys.exit(f"no output row for {w['date']}")
    for col, ref in pairs:
        close(g[col], w[ref], f"{w['date']} {col}")
if result == "-":
    sys.exit(0)
res = json.load(open(result))
model = res["MODEL"]
reference = list(csv.DictReader(open(os.path.join(data, case + "_estimates.csv"))))
if [e["NAME"] for e in model["ESTIMATES"]] != [w["name"] for w in reference]:
    sys.exit(f"estimates {[e['NAME'] for e in model['ESTIMATES']]}")
for e, w in zip(model["ESTIMATES"], reference):
    if w["estimate"] == "":
        if e["ALIASED"] != 1 or e["ESTIMATE"] is not None:
            sys.exit(f"{w['name']} should be aliased: {e}")
    elif w["name"] not in origin:
        if e["ALIASED"] != 0:
            sys.exit(f"{w['name']} should not be aliased")
        for key in ("ESTIMATE", "STDERR", "TVALUE", "PROBT"):
            close(e[key], w[key.lower()], f"{w['name']} {key}")
stats = {r["name"]: r["value"] for r in csv.DictReader(open(os.path.join(data, case + "_stats.csv")))}
for key in ("DF", "RMSE", "TQUANTILE"):
    close(model[key], stats[key], key)
close(res["VALUES"]["SSE"], stats["SSE"], "SSE over the evaluation range")
EOF
}

# ---- help ---------------------------------------------------------------------------------
help=$("$fmsd" forecast --help) || fail "forecast --help exits $?"
usage=$(head -1 <<<"$help")
for o in $(grep -o -- '--[a-z-]*' <<<"${usage#* forecast }"); do
  grep -q -- "^  $o " <<<"$help" || fail "forecast --help does not document $o"
done
grep -q '^example:' <<<"$help" || fail "forecast --help has no example"
grep -q '^  forecast ' <<<"$("$fmsd" --help)" || fail "fmsd --help does not list forecast"

# ---- a log-scale seasonal model with a step, a hold-out year and 24 months ahead ----------
model=(--in air.csv --id date --var passengers --interval month --transform log --trend linear
       --seasonal dummies --intervention step:1955-01-01 --holdout 12 --lead 24 --level 0.9)
run forecast "${model[@]}" --out airfc.csv --result air.json
[ $rc -eq 0 ] || fail "forecast exits $rc: $err"
[ -z "$out$err" ] || fail "forecast with --result printed: $out$err"
[ "$(head -1 airfc.csv)" = 'date,passengers,predict,std,lower,upper,error,nerror,residual,resstd,nresid' ] ||
  fail "output columns: $(head -1 airfc.csv)"
msg=$(compare airfc.csv air air.json predict=predict std=std lower=lower upper=upper residual=residual \
      resstd=resstd) || fail "log model: $msg"
awk -F, '$1 == "1950-03-01" && ($2 - 141)^2 < 1e-20 {ok = 1} END {exit !ok}' airfc.csv ||
  fail "the actual series is not on its own scale"
grep -q '^1962-12-01,,' airfc.csv || fail "no forecast row for the end of the lead"

run forecast "${model[@]}" --back median --out airmed.csv
[ $rc -eq 0 ] || fail "forecast --back median exits $rc: $err"
grep -q '"RMSE"' <<<"$out" || fail "forecast printed no result list: $out"
msg=$(compare airmed.csv air - predict=median lower=lower upper=upper) || fail "median: $msg"

# ---- regressors, an adjustment, interventions, an aliased column, a fit range that
# starts after the data, 1984 to be forecast from its regressors, 99% limits ------------------
mkdir lib && mv seatbelts.csv lib/
run --lib ts=lib forecast --in ts.seatbelts --id date --var killed --interval month --adjust van \
    --regressors petrol,kms,kms2 --trend linear,quad --seasonal dummies --fit-start 1970-01-15 \
    --intervention step:1983-02-01,point:1974-01-01 --lead 0 --level 0.99 \
    --evaluate-start 1982-01-01 --evaluate-end 1983-12-01 --out ts.sbfc --result sb.json
[ $rc -eq 0 ] || fail "seatbelts forecast exits $rc: $err"
[ "$(head -1 lib/sbfc.csv)" = 'date,killed,predict,std,lower,upper,error,nerror,petrol,kms,kms2,van' ] ||
  fail "output columns: $(head -1 lib/sbfc.csv)"
msg=$(ORIGIN="INTERCEPT,TREND LINEAR,TREND QUAD" compare lib/sbfc.csv seatbelts sb.json predict=predict std=std \
      lower=lower upper=upper) || fail "seatbelts: $msg"
grep -q '"NMISS": 12,' sb.json || fail "the 12 months without the series are not counted as skipped"

# ---- bad input: a clear message, exit 1 or 2, nothing written ---------------------------------
printf 'date,out\n2000-01-01,1\n' >kept.csv
refused() {  # refused STATUS PATTERN ARGS...
  local status=$1 pattern=$2
  shift 2
  cp kept.csv o.csv
  run "$@" --out o.csv
  [ $rc -eq "$status" ] || fail "$* exits $rc, not $status: $err"
  grep -q -- "$pattern" <<<"$err" || fail "$*: message '$err' lacks '$pattern'"
  cmp -s o.csv kept.csv || fail "$*: a refused forecast replaced its output"
  [ -e r.json ] && fail "$*: a refused forecast wrote its result file"
  return 0
}
base=(forecast --in air.csv --id date --interval month --result r.json)
refused 1 'the series nosuch is not in CSV1.air' "${base[@]}" --var nosuch
refused 1 "'FORTNIGHT' is not an interval" forecast --in air.csv --id date --var passengers --interval fortnight
refused 1 'needs more observations than parameters' "${base[@]}" --var passengers --seasonal dummies --holdout 135
refused 2 '--level wants a number between 0 and 1' "${base[@]}" --var passengers --level 1.5
refused 2 "'wiggly' is not a trend curve" "${base[@]}" --var passengers --trend wiggly
refused 2 'give one of them' "${base[@]}" --var passengers --holdout 12 --fit-end 1958-12-01
refused 2 'there is no such day' "${base[@]}" --var passengers --intervention step:1955-13-01
refused 2 'the input variable error has the name of an output variable' "${base[@]}" --var error
sed '5d' air.csv >gap.csv
refused 1 'row 4 holds 1949-05-01 where 1949-04-01 was expected' forecast --in gap.csv --id date --var passengers \
  --interval month
echo "forecast: all checks passed"
