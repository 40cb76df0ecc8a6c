#!/usr/bin/env bash
# fmsd report end to end: the page is self-contained, headless Chromium renders
# every panel with drawn charts, and bad input leaves no page behind.
set -uo pipefail
fmsd=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
here=$(cd "$(dirname "$0")" && pwd)
samples=$(cd "$here/../../samples" && pwd)
fail() { echo "FAIL: $*"; exit 1; }

chromium=$(command -v chromium || command -v chromium-browser) ||
  { echo "SKIP: chromium is not installed (scripts/deps.sh installs it)"; exit 77; }
python=/usr/bin/python3
"$python" -c 'import numpy, PIL' 2>/dev/null || fail "$python lacks numpy or PIL (scripts/deps.sh installs them)"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1

# The frame colours of the panels, as the page draws them.
series='series=#b00060' treated='treated=#00a0a0' decomposition='decomposition=#a0a000'
correlations='correlations=#6000b0' tests='tests=#b05000' forecast='forecast=#0050b0'

shoot() {  # page.html shot.png
  "$chromium" --headless --no-sandbox --disable-gpu --hide-scrollbars --user-data-dir="$work/profile" \
    --window-size=1000,4600 --screenshot="$work/$2" "file://$work/$1" >/dev/null 2>&1
  [ -s "$2" ] || fail "chromium made no screenshot of $1"
}

self_contained() {  # page.html
  ! grep -qi -e 'http' -e '<script' -e 'src=' -e 'url(' -e '<link' "$1" || fail "$1 refers to something outside it"
}

# A model's output data set: the last three years with a seasonal naive forecast,
# then a year beyond the data, and its result list.
awk -F, 'NR > 1 { d[NR - 1] = $1; v[NR - 1] = $2; n = NR - 1 }
  END {
    print "date,ACTUAL,PREDICT,UPPER,LOWER"
    for (i = n - 35; i <= n + 12; i++) {
      base = i <= n ? v[i - 12] : v[i - 12 - 12 * int((i - n + 11) / 12)]
      p = base * 1.12; a = i <= n ? v[i] : ""
      if (i <= n) date = d[i]; else date = sprintf("1961-%02d-01", i - n)
      printf "%s,%s,%.2f,%.2f,%.2f\n", date, a, p, p * 1.15, p * 0.85
    }
  }' "$samples/airpassengers.csv" >airout.csv
cat >fit.json <<'JSON'
{"DFE": 34, "NAMES": {"RMSE": "rmse", "MAPE": "mape"}, "VALUES": {"RMSE": 21.5, "MAPE": 4.25}}
JSON

# ---- every panel, from a log-transformed, differenced seasonal series and a forecast ----
"$fmsd" report --in "$samples/airpassengers.csv" --var passengers \
  --options '{"TRNSTYPE": "LOG", "DIF": 1, "SDIF": 1, "NLAGS": 24}' \
  --forecast airout.csv --fit fit.json --out air.html || fail "report exits $?"
self_contained air.html
[ "$(grep -c '<section class="panel"' air.html)" -eq 6 ] || fail "air.html does not hold six panels"
grep -q 'LOG transformation, 1 simple difference, 1 seasonal difference at lag 12' air.html ||
  fail "the treatment is not described"
grep -q '<td>RMSE</td><td>rmse</td><td>21.5</td>' air.html || fail "the statistics of fit are not shown"
# Lags 1 to 24 of each of the three functions, and a legend swatch for each.
bars=$(sed -n '/id="correlations"/,/<\/section>/p' air.html | grep -c '<rect .*fill="#1f77b4"')
[ "$bars" -eq 75 ] || fail "the correlation charts hold $bars bars, not 3 x 24 and 3 swatches"
shoot air.html air.png
"$python" "$here/report_png.py" air.png "$series" "$treated" "$decomposition" "$correlations" "$tests" \
  "$forecast" || fail "air.png does not show every panel"

# ---- a quarterly series with missing values: the season is found from the dates, -------
# ---- and without a forecast there is no forecast panel --------------------------------
"$fmsd" report --in "$samples/presidents.csv" --var approval --out pres.html || fail "presidents report exits $?"
self_contained pres.html
grep -q 'season length 4' pres.html || fail "the quarterly season was not found"
shoot pres.html pres.png
"$python" "$here/report_png.py" pres.png "$series" "$treated" "$decomposition" "$correlations" "$tests" \
  "!$forecast" || fail "pres.png does not show the panels it should"

# ---- a season beyond the seasonal test's reach, and a multiplicative decomposition ----
# ---- that meets a zero ------------------------------------------------------------------
"$fmsd" report --in "$samples/weekly.csv" --var sales --time date --season 52 --out weekly.html ||
  fail "weekly report exits $?"
grep -q '<td>SURREC</td><td>-99</td>' weekly.html || fail "a season of 52 must not run the seasonal unit-root test"
grep -q 'decomposition with period 52' weekly.html || fail "the weekly decomposition is missing"
awk 'BEGIN { print "date,x"; for (i = 0; i < 48; i++) printf "%d-%02d-01,%d\n", 2000 + int(i / 12), i % 12 + 1, (i == 30 ? 0 : 10 + i % 12) }' >withzero.csv
"$fmsd" report --in withzero.csv --var x --out zero.html || fail "report of a series with a zero exits $?"
grep -q 'an additive decomposition was done instead' zero.html || fail "the additive fallback is not told"

# ---- bad input: a clear message, and an earlier page left as it was -----------------------
cp air.html keep.html
err=$("$fmsd" report --in "$samples/airpassengers.csv" --var nosuch --out keep.html 2>&1); rc=$?
[ $rc -eq 1 ] || fail "a missing variable must exit 1, got $rc"
grep -q 'has no variable nosuch' <<<"$err" || fail "missing variable message: $err"
cmp -s air.html keep.html || fail "a failed report changed the earlier page"

printf 'date,x\n2000-01-01,1\n2000-02-01,0\n2000-03-01,2\n' >zero.csv
err=$("$fmsd" report --in zero.csv --var x --options '{"TRNSTYPE": "LOG"}' --out keep.html 2>&1); rc=$?
[ $rc -eq 1 ] || fail "a log of a zero must exit 1, got $rc"
grep -q 'mtstran failed with result -899' <<<"$err" || fail "transformation failure message: $err"
cmp -s air.html keep.html || fail "a failed service changed the earlier page"

err=$("$fmsd" report --in "$samples/airpassengers.csv" --var passengers --forecast zero.csv --out keep.html 2>&1)
[ $? -eq 1 ] || fail "a forecast data set without PREDICT must exit 1"
grep -q 'has no variable PREDICT' <<<"$err" || fail "forecast variable message: $err"

for bad in '--options {"BOGUS":1}' '--options {"DIF":-1}' '--options {"CDTYPE":"SUM"}' '--fit fit.json'; do
  "$fmsd" report --in "$samples/airpassengers.csv" --var passengers $bad --out keep.html >/dev/null 2>&1
  [ $? -eq 2 ] || fail "report with $bad must exit 2"
done
"$fmsd" report --in "$samples/airpassengers.csv" --var passengers --out nodir/x.html >/dev/null 2>&1
[ $? -eq 2 ] || fail "an --out in a missing directory must exit 2"
[ -z "$(ls -A | grep -v -e '\.html$' -e '\.png$' -e '\.csv$' -e '\.json$' -e '^profile$')" ] ||
  fail "temporary files were left behind: $(ls -A)"

help=$("$fmsd" report --help) || fail "report --help exits $?"
grep -q 'fmsd report --in' <<<"$help" || fail "report --help shows no example"
echo "report: all checks passed"
