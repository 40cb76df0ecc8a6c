#!/usr/bin/env bash
# The command line: loading the module, the service commands, and their errors.
set -uo pipefail
fmsd=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
fail() { echo "FAIL: $*"; exit 1; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1

# ---- the module ----------------------------------------------------------------------
out=$("$fmsd" info) || fail "info exits $?"
grep -q '^release  fmsd ' <<<"$out" || fail "info shows no release: $out"
for s in modout moddata mtstran mtsscov; do grep -q "  $s\$" <<<"$out" || fail "info lists no $s"; done

out=$("$fmsd" --json services) || fail "services --json exits $?"
[ "$out" = '{"services": ["modout", "moddata", "mtstran", "mtsscov"]}' ] || fail "services --json: $out"

grep -q '^fmsd [0-9]' <<<"$("$fmsd" --version)" || fail "--version"

"$fmsd" frobnicate >/dev/null 2>&1; [ $? -eq 2 ] || fail "an unknown command must exit 2"
"$fmsd" >/dev/null 2>&1; [ $? -eq 2 ] || fail "no command must exit 2"
"$fmsd" info extra >/dev/null 2>&1; [ $? -eq 2 ] || fail "info with an argument must exit 2"

err=$("$fmsd" --module /nonexistent/libfmsd.so info 2>&1 >/dev/null); rc=$?
[ $rc -eq 1 ] || fail "a missing module must exit 1, got $rc"
grep -q 'cannot use the module: /nonexistent/libfmsd.so' <<<"$err" || fail "missing module message: $err"

err=$(FMSD_MODULE=/nonexistent/other.so "$fmsd" info 2>&1 >/dev/null)
grep -q '/nonexistent/other.so' <<<"$err" || fail "FMSD_MODULE is not honoured: $err"

# ---- help: every option of the usage line and the list items, with an example --------------
# (Output is captured before grep reads it: grep -q stops early, which would end
# the writer with SIGPIPE.)
grep -q '^  diagnose ' <<<"$("$fmsd" --help)" || fail "--help does not list the service commands"
for c in moddata modout transform diagnose; do
  help=$("$fmsd" "$c" --help) || fail "$c --help exits $?"
  usage=$(head -1 <<<"$help")
  usage=${usage#* $c }
  for o in $(grep -o -- '--[a-z]* [A-Z]*' <<<"$usage" | tr ' ' '_'); do
    grep -q -- "^  ${o/_/ } " <<<"$help" || fail "$c --help does not document ${o/_/ }"
  done
  grep -q '^example:' <<<"$help" || fail "$c --help has no example"
done
grep -q 'CDCOMP' <<<"$("$fmsd" transform --help)" || fail "transform --help lacks the decomposition items"
grep -q 'STATTYPE' <<<"$("$fmsd" diagnose --help)" || fail "diagnose --help lacks the unit-root items"
grep -q 'FORCAST_RANGE' <<<"$("$fmsd" modout --help)" || fail "modout --help lacks the time ranges"

# ---- data for the service commands ---------------------------------------------------------
mkdir data
printf 'date,air\n' >data/air.csv
printf 'date,forecast,u95,l95,std\n' >data/fc.csv
for m in 01 02 03 04 05 06 07 08 09 10 11 12; do
  printf '2000-%s-01,%d\n' $m $((100 + 10#$m)) >>data/air.csv
  printf '2000-%s-01,%d,%d,%d,5\n' $m $((99 + 10#$m)) $((109 + 10#$m)) $((89 + 10#$m)) >>data/fc.csv
done
cp data/air.csv air.csv
printf 'date,out\n2000-01-01,1\n' >data/out.csv
cp data/out.csv kept.csv

# Runs the command; sets rc, out (standard output) and err (standard error).
run() {
  "$fmsd" "$@" >"$work/stdout" 2>"$work/stderr"
  rc=$?
  out=$(cat "$work/stdout")
  err=$(cat "$work/stderr")
}

# ---- command lines that cannot run: exit 2, a line that says why, nothing written --------------
usage_error() {  # expected text, then the command line
  local want=$1
  shift
  run "$@"
  [ $rc -eq 2 ] || fail "exit $rc, not 2, for: $* ($err)"
  grep -qF -- "$want" <<<"$err" || fail "'$want' not in the error for: $*: $err"
  [ -z "$out" ] || fail "standard output for: $*: $out"
}
T=(transform --in data/air.csv --var air --carry date)
usage_error '--out is required' "${T[@]}"
usage_error 'transform has no option --bogus' "${T[@]}" --bogus 1 --out x
usage_error '--var is given twice' "${T[@]}" --var air --out x
usage_error '--out needs a value' "${T[@]}" --out
usage_error '--season wants a whole number of at least 0' "${T[@]}" --season twelve --out x
usage_error '--season wants a whole number of at least 0' "${T[@]}" --season -1 --out x
usage_error '--nobs wants a whole number of at least 1' diagnose --in air --var air --nobs 0 --nlags 2 --out x
usage_error "unexpected argument 'extra'" "${T[@]}" extra --out x
usage_error "not a variable name" transform --in air --var 1air --carry date --out x
usage_error 'not a data set name' "${T[@]}" --out a.b.c
usage_error "'9lives' is not a member name" "${T[@]}" --out 9lives
usage_error 'library NOSUCH is not bound; give --lib NOSUCH=PATH' "${T[@]}" --out nosuch.x
usage_error "the file name 'my-out' cannot be a member name" "${T[@]}" --out data/my-out.csv
usage_error 'there is no directory' "${T[@]}" --out nodir/x.csv
usage_error 'a new CSV file is named in lower case; write data/newout.csv' "${T[@]}" --out data/NewOut.csv
usage_error '--options: line 1, column 11' "${T[@]}" --options '{"DIF": 1,, }' --out x
usage_error '--options nofile.json: cannot read the file' "${T[@]}" --options nofile.json --out x
usage_error 'must be a JSON object' "${T[@]}" --options '[1, 2]' --out x
usage_error '--lib wants NAME=PATH' --lib data "${T[@]}" --out x
usage_error "--lib lib is given twice" --lib lib=data --lib lib=data "${T[@]}" --out x
usage_error "'toolongname' is not a library name" --lib toolongname=data "${T[@]}" --out x
usage_error 'SQLite library data/air.csv: file is not a database' --lib db=data/air.csv "${T[@]}" --out db.x
usage_error '--result nodir/r.json: there is no directory' diagnose --in air --var air --nlags 2 --out x \
  --result nodir/r.json
ls x.csv data/x.csv >/dev/null 2>&1 && fail "a usage error wrote an output"

# ---- failing services: exit 1, one line naming the service, its result and the data; no output ----
service_fails() {  # service, expected result pattern, then the command line
  local service=$1 code=$2
  shift 2
  run "$@"
  [ $rc -eq 1 ] || fail "exit $rc, not 1, for: $* ($err)"
  [ "$(wc -l <<<"$err")" -eq 1 ] || fail "more than one line for: $*: $err"
  grep -qE -- "^fmsd [a-z]+: $service failed with result $code \([a-z]" <<<"$err" ||
    fail "no result line for: $*: $err"
  [ -z "$out" ] || fail "standard output for: $*: $out"
}
service_fails moddata -998 moddata --in air --out data/out.csv --params '{}'
grep -q 'for input WORK.air, output data/out.csv (CSV1.out)' <<<"$err" || fail "moddata names no data sets: $err"
cmp -s data/out.csv kept.csv || fail "a failed moddata replaced its output"

service_fails modout -998 --lib d=data modout --in d.air --forecast d.fc --out d.out --params '{}' --result r.json
grep -q 'input D.air, forecast D.fc, output D.out' <<<"$err" || fail "modout names no data sets: $err"
cmp -s data/out.csv kept.csv || fail "a failed modout replaced its output"
[ -e r.json ] && fail "a failed modout wrote its result file"

service_fails mtstran '-[0-9]+' transform --in nosuch --var air --carry date --out data/out.csv
grep -q 'variable air, carried variable date' <<<"$err" || fail "transform names no variables: $err"
cmp -s data/out.csv kept.csv || fail "a failed transform replaced its output"

# Without lags and without options there is nothing to compute.
service_fails mtsscov -998 --lib db="$work/new.db" diagnose --in air --var air --out db.diag --result r.json
[ -e new.db ] && fail "a failed diagnose created its database"
[ -e r.json ] && fail "a failed diagnose wrote its result file"

# ---- a service that succeeds: its output, and the result list on standard output or in a file ------
params='{"INTERVALINFO": {"INTERVAL": "MONTH", "SINTERVAL": "YEAR", "NSEASONS": 12}, "NPARMS": 2,
  "TIME_RANGES": {"DATA_RANGE": {"STDATE": 14610}},
  "VARLIST": [{"VARNAME": "date", "OLDNAME": "date", "VARTYPE": "TIMEID"},
              {"VARNAME": "actual", "OLDNAME": "air", "VARTYPE": "ACTUAL"},
              {"VARNAME": "predict", "OLDNAME": "forecast", "VARTYPE": "PREDICT"},
              {"VARNAME": "upper", "OLDNAME": "u95", "VARTYPE": "UPPER"},
              {"VARNAME": "lower", "OLDNAME": "l95", "VARTYPE": "LOWER"},
              {"VARNAME": "std", "OLDNAME": "std", "VARTYPE": "STD"},
              {"VARNAME": "error", "VARTYPE": "ERROR", "FROM": "GENERATE"}]}'
printf '%s\n' "$params" >params.json
run --lib d=data modout --in air.csv --forecast d.fc --out d.out --params params.json
[ $rc -eq 0 ] || fail "modout exits $rc: $err"
[ -z "$err" ] || fail "modout succeeded with a message: $err"
grep -q '^    "NPARMS": 2,$' <<<"$out" || fail "modout printed no result list: $out"
[ "$(head -1 data/out.csv)" = 'date,actual,predict,upper,lower,std,error' ] || fail "modout output: $(head -1 data/out.csv)"
grep -q '^2000-12-01,112,111,121,101,5,1$' data/out.csv || fail "modout output rows: $(cat data/out.csv)"

run --lib d=data modout --in air.csv --forecast d.fc --out d.out --params params.json --result r.json
[ $rc -eq 0 ] && [ -z "$out" ] || fail "modout with --result exits $rc and prints: $out"
grep -q '"DFE"' r.json || fail "the result file holds no result list"

# The service succeeds but its output cannot replace what is there: no result file either.
mkdir blocked.csv
run modout --in air.csv --forecast data/fc.csv --out blocked.csv --params params.json --result r2.json
[ $rc -eq 1 ] || fail "an output that cannot be saved exits $rc"
grep -q '^fmsd modout: modout succeeded, but its output could not be saved for .*; host: .*blocked' <<<"$err" ||
  fail "unsaved output message: $err"
[ -e r2.json ] && fail "an unsaved output left a result file"

# ---- diagnose (service mtsscov) ------------------------------------------------------------
# The air series has 12 values: of 24 lags asked, 11 are reported, a success with a notice.
run diagnose --in air.csv --var air --nlags 24 --options '{"CORRPROB": 1}' --out data/diag.csv
[ $rc -eq 0 ] || fail "diagnose exits $rc: $err"
grep -q '^fmsd diagnose: .*notice: .*fewer lags' <<<"$err" || fail "diagnose gave no notice: $err"
grep -q '^  "NLAGS": 11,$' <<<"$out" || fail "diagnose printed no result list: $out"
grep -q '"SURREC": -99' <<<"$out" || fail "diagnose ran a seasonal test it was not asked for: $out"
[ "$(head -1 data/diag.csv | tr ',' '\n' | wc -l)" -eq 24 ] || fail "diagnose output: $(head -1 data/diag.csv)"
[ "$(wc -l <data/diag.csv)" -eq 13 ] || fail "diagnose rows: $(cat data/diag.csv)"
grep -q '^0,12,' data/diag.csv || fail "diagnose lag 0: $(cat data/diag.csv)"

run diagnose --in air.csv --var air --nlags 3 --out data/diag.csv --result r3.json
[ $rc -eq 0 ] && [ -z "$out" ] && [ -z "$err" ] || fail "diagnose --nlags 3 exits $rc: $out $err"
grep -q '"NNMSS": 12' r3.json || fail "diagnose result file: $(cat r3.json)"
[ "$(head -1 data/diag.csv | tr ',' '\n' | wc -l)" -eq 18 ] || fail "diagnose output: $(head -1 data/diag.csv)"

# A failed diagnose keeps the output that was there.
cp data/diag.csv diag-kept.csv
service_fails mtsscov -996 diagnose --in air.csv --var nosuch --nlags 3 --out data/diag.csv
cmp -s data/diag.csv diag-kept.csv || fail "a failed diagnose replaced its output"
printf 'date,air\n2000-01-01,\n' >empty.csv
service_fails mtsscov -997 diagnose --in empty.csv --var air --nlags 3 --out data/diag.csv
cmp -s data/diag.csv diag-kept.csv || fail "a failed diagnose replaced its output"

# ---- transform: the treated series, its notices and its refusals ------------------------------
run transform --in data/air.csv --var air --carry date --season 12 --options '{"DIF": 1}' --out data/dif.csv
[ $rc -eq 0 ] && [ -z "$err" ] || fail "transform exits $rc: $err"
[ "$(head -3 data/dif.csv | tr '\n' ' ')" = 'date,air 2000-01-01, 2000-02-01,1 ' ] ||
  fail "transform output: $(head -3 data/dif.csv)"
# Without an option list the series is copied; with an empty one it is the percent change.
run transform --in data/air.csv --var air --carry date --out data/copy.csv
cmp -s data/copy.csv data/air.csv || fail "transform without options changed the series: $(cat data/copy.csv)"
run transform --in data/air.csv --var air --carry date --options '{}' --out data/pc.csv
grep -q '^2000-12-01,0.900900900900' data/pc.csv || fail "transform with {} is no percent change: $(cat data/pc.csv)"

run transform --in data/air.csv --var air --carry date --options '{"DIF": 12}' --out data/none.csv
[ $rc -eq 0 ] || fail "result 2 exits $rc"
grep -q '^fmsd transform: mtstran notice: result 2 (' <<<"$err" || fail "no notice for result 2: $err"
run transform --in data/air.csv --var air --carry date --season 3 --out data/fb.csv \
  --options '{"DIF": 2, "CDLIST": {"CDTYPE": "MULT", "CDCOMP": "TC"}}'
[ $rc -eq 0 ] && grep -q 'notice: result 3 (' <<<"$err" || fail "no notice for result 3 ($rc): $err"

cp data/out.csv tran-kept.csv
cp data/pc.csv data/neg.csv
printf '2001-01-01,-5\n' >>data/neg.csv
service_fails mtstran -899 transform --in data/neg.csv --var air --carry date --out data/out.csv \
  --options '{"TRNSTYPE": "SQRT"}'
service_fails mtstran -900 transform --in data/air.csv --var air --carry date --out data/out.csv \
  --options '{"CDLIST": {"CDTYPE": "ADD"}}'
service_fails mtstran -996 transform --in data/air.csv --var air --carry air --out data/out.csv
grep -q 'already has a variable air' <<<"$err" || fail "transform does not say why: $err"
cmp -s data/out.csv tran-kept.csv || fail "a failed transform replaced its output"

echo "ok"
