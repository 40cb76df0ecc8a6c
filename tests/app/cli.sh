#!/usr/bin/env bash
# The command line: loading the module, its answers, and its errors.
set -uo pipefail
fmsd=$1
fail() { echo "FAIL: $*"; exit 1; }

out=$("$fmsd" info) || fail "info exits $?"
grep -q '^release  fmsd ' <<<"$out" || fail "info shows no release: $out"
for s in modout moddata mtstran mtsscov; do grep -q "  $s\$" <<<"$out" || fail "info lists no $s"; done

out=$("$fmsd" --json services) || fail "services --json exits $?"
[ "$out" = '{"services": ["modout", "moddata", "mtstran", "mtsscov"]}' ] || fail "services --json: $out"

"$fmsd" --version | grep -q '^fmsd [0-9]' || fail "--version"

"$fmsd" frobnicate >/dev/null 2>&1; [ $? -eq 2 ] || fail "an unknown command must exit 2"
"$fmsd" >/dev/null 2>&1; [ $? -eq 2 ] || fail "no command must exit 2"

err=$("$fmsd" --module /nonexistent/libfmsd.so info 2>&1 >/dev/null); rc=$?
[ $rc -eq 1 ] || fail "a missing module must exit 1, got $rc"
grep -q 'cannot use the module: /nonexistent/libfmsd.so' <<<"$err" || fail "missing module message: $err"

err=$(FMSD_MODULE=/nonexistent/other.so "$fmsd" info 2>&1 >/dev/null)
grep -q '/nonexistent/other.so' <<<"$err" || fail "FMSD_MODULE is not honoured: $err"
echo "ok"
