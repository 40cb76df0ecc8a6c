#!/usr/bin/env bash
# The four services through the command line on the sample data sets: their values
# against statsmodels, numpy and pandas (tests/data/app, from tools/samples_reference.py),
# the result codes of each service, and outputs that a failed call leaves alone.
set -uo pipefail
fmsd=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
here=$(cd "$(dirname "$0")" && pwd)
samples=$here/../../samples
ref=$here/../data/app
fail() { echo "FAIL: $*"; exit 1; }
check() { /usr/bin/python3 "$here/samples_check.py" "$@"; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
cp "$samples"/*.csv .

# Runs the command; sets rc, out (standard output) and err (standard error).
run() {
  "$fmsd" "$@" >"$work/stdout" 2>"$work/stderr"
  rc=$?
  out=$(cat "$work/stdout")
  err=$(cat "$work/stderr")
}
succeeds() {  # expected result (0 or a positive notice), then the command line
  local code=$1
  shift
  run "$@"
  [ $rc -eq 0 ] || fail "exit $rc for: $* ($err)"
  if [ "$code" -eq 0 ]; then
    [ -z "$err" ] || fail "a message for: $*: $err"
  else
    grep -q "notice: result $code (" <<<"$err" || fail "no notice of result $code for: $*: $err"
  fi
}
# A failed call exits 1 with its result, writes nothing to standard output, and
# leaves the output that was there byte for byte.
fails() {  # service, result, output file, then the command line
  local service=$1 code=$2 output=$3
  shift 3
  printf 'kept,%s\n' "$RANDOM" >"$output"
  cp "$output" "$work/before"
  run "$@"
  [ $rc -eq 1 ] || fail "exit $rc, not 1, for: $* ($err)"
  grep -q -- "$service failed with result $code (" <<<"$err" || fail "not result $code for: $*: $err"
  [ -z "$out" ] || fail "standard output for: $*: $out"
  cmp -s "$output" "$work/before" || fail "a failed $service changed $output"
  rm -f "$output"
}
item() { grep -o "\"$1\": [^,}]*" <<<"$out" | head -1 | sed 's/.*: //'; }
columns() { head -1 "$1" | tr ',' '\n' | wc -l; }

# ---- diagnose (mtsscov) ----------------------------------------------------------------
UR='"UNITROOT": {"TYPE": "%s", "STATTYPE": "STUDENTIZED", "MAXAR": %d}'
diagnosed() {  # file, variable, lags, unit-root type, MAXAR
  succeeds 0 diagnose --in "$1.csv" --var "$2" --nlags "$3" --out "diag_$1.csv" \
    --options "{\"CORRPROB\": 1, $(printf "$UR" "$4" "$5")}"
  check columns "diag_$1.csv" "$ref/diag_$1.csv" 1e-9 ACF=ACF PACF=PACF WNOISE=WNOISE ||
    fail "diagnose $1: correlations differ from statsmodels"
  # The studentized probabilities come from another approximation of the
  # Dickey-Fuller distribution than adfuller's, so they agree only roughly.
  check columns "diag_$1.csv" "$ref/diag_$1.csv" 0.02 UNITROOT=ADF ||
    fail "diagnose $1: UNITROOT probabilities are not within 0.02 of adfuller's (missing ones are nan)"
}
diagnosed airpassengers passengers 24 SINGLEMEAN 6
[ "$(columns diag_airpassengers.csv)" -eq 24 ] || fail "CORRPROB gives no 24 variables"
[ "$(wc -l <diag_airpassengers.csv)" -eq 26 ] || fail "24 lags give no 25 rows"
diagnosed co2 co2 24 TREND 6
diagnosed ukgas gas 12 ZEROMEAN 4

# Without CORRPROB, 18 variables; a seasonal test runs only for a DLAG of 2 to 12.
succeeds 0 diagnose --in airpassengers.csv --var passengers --nlags 12 --out d18.csv \
  --options '{"SEASONUR": {"TYPE": "SINGLEMEAN", "DLAG": 12, "MAXAR": 2}}'
[ "$(columns d18.csv)" -eq 18 ] || fail "diagnose without CORRPROB: $(head -1 d18.csv)"
[ "$(item SURREC)" != -99 ] && [ "$(item SURPVAL)" != null ] || fail "DLAG 12 ran no seasonal test: $out"
succeeds 0 diagnose --in airpassengers.csv --var passengers --nlags 12 --out d18.csv \
  --options '{"SEASONUR": {"TYPE": "SINGLEMEAN", "DLAG": 1}}'
[ "$(item SURREC)" = -99 ] && [ "$(item SURPVAL)" = null ] || fail "DLAG 1 ran a seasonal test: $out"
# A unit-root list without TYPE runs no test; FSTAT with TREND reports the F probability.
succeeds 0 diagnose --in co2.csv --var co2 --nlags 4 --out d.csv --options '{"UNITROOT": {"MAXAR": 2}}'
[ "$(item URPVAL)" = null ] || fail "a unit-root test ran without TYPE: $out"
succeeds 0 diagnose --in co2.csv --var co2 --nlags 4 --out d.csv \
  --options '{"UNITROOT": {"TYPE": "TREND", "STATTYPE": "FSTAT", "MAXAR": 2}}'
[ "$(item URPVAL)" != null ] || fail "FSTAT with TREND gives no probability: $out"
# No lags with an options list: no rows, and no unit-root loop.
succeeds 0 diagnose --in co2.csv --var co2 --out d.csv --options '{"UNITROOT": {"TYPE": "TREND"}}'
[ "$(item NLAGS)" = -1 ] && [ "$(wc -l <d.csv)" -eq 1 ] && [ "$(item URREC)" = -99 ] ||
  fail "diagnose without lags: $out $(cat d.csv)"

# presidents: missing at the start (1945 Q1), inside and at the end (1974 Q4 is present).
succeeds 0 diagnose --in presidents.csv --var approval --nlags 8 --out d.csv
[ "$(item N)" = 119 ] && [ "$(item NNMSS)" = 114 ] || fail "presidents: N and NNMSS: $out"
# Its first six quarters hold five values: of 12 lags asked, 4 can be had.
succeeds 1 diagnose --in presidents.csv --var approval --nobs 6 --nlags 12 --out d.csv
[ "$(item NLAGS)" = 4 ] && [ "$(wc -l <d.csv)" -eq 6 ] || fail "fewer lags: $out $(cat d.csv)"
fails mtsscov -997 d.csv diagnose --in presidents.csv --var approval --nobs 1 --nlags 2 --out d.csv
fails mtsscov -996 d.csv diagnose --in presidents.csv --var nosuch --nlags 2 --out d.csv
fails mtsscov -998 d.csv diagnose --in presidents.csv --var approval --out d.csv

# The same series read from an SQLite database gives the same rows.
succeeds 0 --lib db="$work/samples.db" transform --in airpassengers.csv --var passengers --carry date --out db.air
succeeds 0 --lib db="$work/samples.db" diagnose --in db.air --var passengers --nlags 24 --out db_diag.csv \
  --options "{\"CORRPROB\": 1, $(printf "$UR" SINGLEMEAN 6)}"
cmp -s db_diag.csv diag_airpassengers.csv || fail "diagnose reads the SQLite copy differently"

# ---- transform (mtstran) -----------------------------------------------------------------
T=(--in airpassengers.csv --var passengers --carry date)
treated() {  # reference column, season, options
  succeeds "${4:-0}" transform "${T[@]}" --season "$2" --options "$3" --out "t_$1.csv"
  check columns "t_$1.csv" "$ref/transform_air.csv" 1e-12 "passengers=$1" || fail "transform $1: $3"
  cmp -s <(cut -d, -f1 "t_$1.csv") <(cut -d, -f1 airpassengers.csv) || fail "transform $1 changed the dates"
}
treated logdif 12 '{"TRNSTYPE": "LOG", "DIF": 1, "SDIF": 1}'
[ "$(sed -n 2,14p t_logdif.csv | grep -c ',$')" -eq 13 ] || fail "DIF 1 and SDIF 1 leave no 13 missing"
treated pchange 0 '{}'
treated mult_tc 12 '{"CDLIST": {"CDTYPE": "MULT", "CDCOMP": "TC"}}'
treated mult_sc 12 '{"CDLIST": {"CDTYPE": "MULTIPLICATIVE", "CDCOMP": "SC"}}'
treated mult_ic 12 '{"CDLIST": {"CDTYPE": "M", "CDCOMP": "IC"}}'
treated mult_sa 12 '{"CDLIST": {"CDTYPE": "MULT", "CDCOMP": "tc"}}'
# The differences hold a 0 (August 1949): the multiplicative request falls back to additive.
treated fallback_tc 12 '{"DIF": 1, "CDLIST": {"CDTYPE": "MULT", "CDCOMP": "TC"}}' 3
# Seasonal differences need a season of 2 or more.
succeeds 0 transform "${T[@]}" --season 1 --options '{"SDIF": 2}' --out t.csv
cmp -s t.csv airpassengers.csv || fail "SDIF with season 1 changed the series"
succeeds 2 transform --in ukgas.csv --var gas --carry date --options '{"DIF": 200}' --out t.csv
[ "$(cut -d, -f2 t.csv | sort -u | tr '\n' ' ')" = ' gas ' ] || fail "result 2 with values left"
# A logarithm of the differences, which go below 0.
succeeds 0 transform "${T[@]}" --options '{"DIF": 1}' --out airdif.csv
fails mtstran -899 t.csv transform --in airdif.csv --var passengers --carry date --options '{"TRNSTYPE": "LOG"}' \
  --out t.csv
fails mtstran -900 t.csv transform "${T[@]}" --options '{"CDLIST": {"CDTYPE": "ADD"}}' --out t.csv
fails mtstran -996 t.csv transform --in airpassengers.csv --var sales --carry date --out t.csv

# ---- moddata -------------------------------------------------------------------------------
MONTH='"INTERVALINFO": {"INTERVAL": "MONTH", "SINTERVAL": "YEAR", "NSEASONS": 12}'
AIR='"TIME_RANGES": {"DATA_RANGE": {"STDATE": -4017, "NOBS": 144}, "FORCAST_RANGE": {"ENDDATE": 700}}'
VARS='{"VARNAME": "date", "OLDNAME": "date", "VARTYPE": "TIMEID"},
      {"VARNAME": "air", "OLDNAME": "passengers", "VARTYPE": "ACTUAL", "TRNSTYPE": "LOG"}'
GEN='{"VARNAME": "trend", "VARTYPE": "TC", "FROM": "GEN"},
     {"VARNAME": "quad", "VARTYPE": "TC", "VARKIND": "QUAD", "FROM": "GEN"},
     {"VARNAME": "step", "VARTYPE": "INT", "VARKIND": "STEP", "VARDATE": -1826, "FROM": "GEN"},
     {"VARNAME": "ramp", "VARTYPE": "INT", "VARKIND": "RAMP", "VARDATE": -1810, "FROM": "GEN"},
     {"VARNAME": "point", "VARTYPE": "INT", "VARDATE": -1826, "FROM": "GEN"}'
for m in $(seq 1 11); do GEN+=", {\"VARNAME\": \"s$m\", \"VARTYPE\": \"SD\", \"FROM\": \"GEN\"}"; done
succeeds 0 moddata --in airpassengers.csv --out model.csv --params "{$MONTH, $AIR, \"VARLIST\": [$VARS, $GEN]}"
[ "$(wc -l <model.csv)" -eq 157 ] || fail "moddata: 12 months past the data give no 156 rows"
cmp -s <(cut -d, -f1 model.csv) <(cut -d, -f1 "$ref/moddata_air.csv") || fail "moddata: time IDs"
check columns model.csv "$ref/moddata_air.csv" 1e-14 air=air trend=trend quad=quad step=step ramp=ramp \
  point=point $(for m in $(seq 1 11); do printf 's%d=s%d ' "$m" "$m"; done) || fail "moddata values"

# The adjustments (here days of the month) leave the actual series only for a
# model that is not adjustment-only.
awk -F, 'NR == 1 { print $0 ",days"; next }
  { split($1, d, "-"); m = d[2] + 0; n = (m == 2) ? 28 + (d[1] % 4 == 0) : 30 + ((m + (m > 7)) % 2); print $0 "," n }' \
  airpassengers.csv >airdays.csv
ADJ='{"VARNAME": "days", "OLDNAME": "days", "VARTYPE": "ADJ"}'
VARSRAW='{"VARNAME": "date", "OLDNAME": "date", "VARTYPE": "TIMEID"},
         {"VARNAME": "air", "OLDNAME": "passengers", "VARTYPE": "ACTUAL"}'
for model in ARIMA ADJONLY; do
  succeeds 0 moddata --in airdays.csv --out adj.csv \
    --params "{$MONTH, $AIR, \"MODELTYPE\": \"$model\", \"VARLIST\": [$VARSRAW, $ADJ]}"
  want=$(awk -F, -v m=$model 'NR > 1 { print $1 "," (m == "ADJONLY" ? $2 : $2 - $3) "," $3 }' airdays.csv)
  [ "$(sed -n 2,145p adj.csv)" = "$want" ] || fail "moddata $model: $(sed -n 2,4p adj.csv)"
done

# Weekly: 1997 has a 53rd week, shared between the first and the last dummy.
WEEKS=""
for w in $(seq 1 52); do WEEKS+=", {\"VARNAME\": \"w$w\", \"VARTYPE\": \"SD\", \"FROM\": \"GEN\"}"; done
succeeds 0 moddata --in weekly.csv --out wmodel.csv --params "{
  \"INTERVALINFO\": {\"INTERVAL\": \"WEEK\", \"SINTERVAL\": \"YEAR\", \"NSEASONS\": 52}, \"NOINT\": 1,
  \"TIME_RANGES\": {\"DATA_RANGE\": {\"STDATE\": 13519, \"NOBS\": 156}},
  \"VARLIST\": [{\"VARNAME\": \"date\", \"OLDNAME\": \"date\", \"VARTYPE\": \"TIMEID\"},
                {\"VARNAME\": \"sales\", \"OLDNAME\": \"sales\", \"VARTYPE\": \"ACTUAL\"} $WEEKS]}"
check columns wmodel.csv "$ref/moddata_weekly.csv" 1e-15 \
  $(for w in $(seq 1 52); do printf 'w%d=w%d ' "$w" "$w"; done) || fail "moddata: week dummies"

P="{$MONTH, $AIR, \"VARLIST\": [$VARS]}"
fails moddata -996 m.csv moddata --in airpassengers.csv --out m.csv --params "${P/passengers/sales}"
fails moddata -996 m.csv moddata --in airpassengers.csv --out m.csv --params "${P/-4017/1000}"
fails moddata -997 m.csv moddata --in airpassengers.csv --out m.csv --params "${P/\"NOBS\": 144/\"NOBS\": 0}"
fails moddata -998 m.csv moddata --in airpassengers.csv --out m.csv --params "${P/\"INTERVALINFO\"/\"INFO\"}"
fails moddata -998 m.csv moddata --in airpassengers.csv --out m.csv --params "${P/TIMEID/ACTUAL}"
# A data range of 2^31 - 1 months needs a 4 GiB season array, which is refused.
if [ "${FMSD_SANITIZED:-0}" = 1 ]; then
  ASAN_OPTIONS=${ASAN_OPTIONS:-}:allocator_may_return_null=1:max_allocation_size_mb=1024 \
    fails moddata -999 m.csv moddata --in airpassengers.csv --out m.csv --params "${P/144/2147483647}"
else
  (ulimit -v 1048576 && fails moddata -999 m.csv moddata --in airpassengers.csv --out m.csv \
    --params "${P/144/2147483647}") || exit 1
fi

# ---- modout --------------------------------------------------------------------------------
# The model data of the model: log passengers, which modout turns back.
succeeds 0 moddata --in airpassengers.csv --out logair.csv --params "{$MONTH, $AIR, \"VARLIST\": [$VARS]}"
cp "$ref/airforecast.csv" .
OUTVARS='{"VARNAME": "date", "OLDNAME": "date", "VARTYPE": "TIMEID"},
  {"VARNAME": "actual", "OLDNAME": "air", "VARTYPE": "ACTUAL"},
  {"VARNAME": "predict", "OLDNAME": "forecast", "VARTYPE": "PREDICT", "TRNSTYPE": "LOG", "TRNSOPT": "MEAN"},
  {"VARNAME": "upper", "OLDNAME": "u95", "VARTYPE": "UPPER"},
  {"VARNAME": "lower", "OLDNAME": "l95", "VARTYPE": "LOWER"},
  {"VARNAME": "error", "VARTYPE": "ERROR", "FROM": "GEN"},
  {"VARNAME": "std", "VARTYPE": "STD", "FROM": "GEN"},
  {"VARNAME": "nerror", "VARTYPE": "NERROR", "FROM": "GEN"},
  {"VARNAME": "residual", "OLDNAME": "residual", "VARTYPE": "RESIDUAL"},
  {"VARNAME": "resstd", "OLDNAME": "resstd", "VARTYPE": "RESSTD"},
  {"VARNAME": "nresid", "VARTYPE": "NRESID", "FROM": "GEN"}'
O="{$MONTH, $AIR, \"NPARMS\": 1, \"VARLIST\": [$OUTVARS]}"
M=(modout --in logair.csv --forecast airforecast.csv --out out.csv)
succeeds 0 "${M[@]}" --params "$O" --result fit.json
check columns out.csv "$ref/modout_air.csv" 1e-12 actual=actual predict=predict upper=upper lower=lower \
  error=error std=std nerror=nerror residual=residual resstd=resstd nresid=nresid || fail "modout values"
check fit fit.json "$ref/modout_fit.csv" 1e-12 || fail "modout statistics of fit"

# MEDIAN turns the prediction back with the plain inverse.
succeeds 0 "${M[@]}" --params "${O/MEAN/MEDIAN}"
/usr/bin/python3 -c '
import sys, numpy as np, pandas as pd
got = pd.read_csv("out.csv")["predict"].to_numpy()[12:]
want = np.exp(pd.read_csv("airforecast.csv")["forecast"].to_numpy())
sys.exit(0 if np.allclose(got, want, rtol=1e-13, atol=0) else 1)' || fail "modout MEDIAN predictions"

# A data range from 1950: the rows of 1949 are skipped. PUREARMA 2 then blanks the
# predictions and limits of January and February 1950.
O50=${O/-4017/-3652}
succeeds 0 "${M[@]}" --params "$O50" --result r.json
[ "$(sed -n 2p out.csv | cut -d, -f1)" = 1950-01-01 ] || fail "modout from 1950: $(sed -n 2p out.csv)"
[ "$(sed -n 2p out.csv | cut -d, -f3)" != "" ] || fail "modout from 1950 has no first prediction"
succeeds 0 "${M[@]}" --params "${O50/\"NPARMS\"/\"PUREARMA\": 2, \"NPARMS\"}" --result r.json
[ "$(sed -n 2,3p out.csv | cut -d, -f3-5 | tr '\n' ' ')" = ',, ,, ' ] || fail "PUREARMA 2: $(sed -n 2,3p out.csv)"
[ "$(sed -n 4p out.csv | cut -d, -f3)" != "" ] || fail "PUREARMA 2 blanks a third row"

# An untransformed model writes no residuals.
UNT='{"VARNAME": "date", "OLDNAME": "date", "VARTYPE": "TIMEID"},
  {"VARNAME": "actual", "OLDNAME": "air", "VARTYPE": "ACTUAL"},
  {"VARNAME": "predict", "OLDNAME": "forecast", "VARTYPE": "PREDICT"},
  {"VARNAME": "upper", "OLDNAME": "u95", "VARTYPE": "UPPER"},
  {"VARNAME": "lower", "OLDNAME": "l95", "VARTYPE": "LOWER"},
  {"VARNAME": "std", "OLDNAME": "resstd", "VARTYPE": "STD"},
  {"VARNAME": "residual", "OLDNAME": "residual", "VARTYPE": "RESIDUAL"},
  {"VARNAME": "resstd", "VARTYPE": "RESSTD", "FROM": "GEN"},
  {"VARNAME": "nresid", "VARTYPE": "NRESID", "FROM": "GEN"}'
succeeds 0 "${M[@]}" --params "{$MONTH, $AIR, \"VARLIST\": [$UNT]}" --result r.json
[ "$(cut -d, -f7-9 out.csv | sort -u | tr '\n' ' ')" = ',, residual,resstd,nresid ' ] ||
  fail "an untransformed model wrote residuals: $(sed -n 20p out.csv)"

fails modout -996 o.csv modout --in logair.csv --forecast nosuch.csv --out o.csv --params "$O"
# A fit range that ends in 1940, before the data.
early='"FIT_RANGE": {"ENDDATE": -7305}, "FORCAST_RANGE"'
fails modout -997 o.csv modout --in logair.csv --forecast airforecast.csv --out o.csv \
  --params "${O/\"FORCAST_RANGE\"/$early}"
fails modout -998 o.csv modout --in logair.csv --forecast airforecast.csv --out o.csv --params '{}'
fails modout -998 o.csv modout --in logair.csv --forecast airforecast.csv --out o.csv \
  --params "${O/\"VARTYPE\": \"RESSTD\"/\"VARTYPE\": \"REG\"}"

echo "ok"
