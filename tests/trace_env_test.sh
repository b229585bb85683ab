#!/usr/bin/env bash
# FRAMEDSP_TRACE read from the environment: "1" prints one line per refusal on stderr; unset, ""
# and "0" print nothing.  The program checks that the statuses do not change.
# Usage: trace_env_test.sh [emulator] program
set -uo pipefail
PROG=("$@")
fail() { echo "trace_env_test: $*" >&2; exit 1; }
expected='DspCompare: refused: pixel format 22 is not one the comparison takes (0, 1, 5, 21, 25, 28, 30, 261)
DspCreateMipMaps: refused: handle is null'

err=$(FRAMEDSP_TRACE=1 "${PROG[@]}" 2>&1 >/dev/null) || fail "status changed with FRAMEDSP_TRACE=1"
err=${err//$'\r'/}  # Windows writes text lines with CR LF
[ "$err" = "$expected" ] || fail "FRAMEDSP_TRACE=1 printed:
$err"
for value in unset "" 0; do
  if [ "$value" = unset ]; then
    err=$(env -u FRAMEDSP_TRACE "${PROG[@]}" 2>&1 >/dev/null) || fail "status changed with FRAMEDSP_TRACE unset"
  else
    err=$(FRAMEDSP_TRACE=$value "${PROG[@]}" 2>&1 >/dev/null) || fail "status changed with FRAMEDSP_TRACE='$value'"
  fi
  [ -z "$err" ] || fail "FRAMEDSP_TRACE=$value printed: $err"
done
echo "trace_env_test: one line each with FRAMEDSP_TRACE=1, nothing when unset, empty or 0"
