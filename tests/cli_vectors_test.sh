#!/bin/bash
# `framedsp vectors` on two gray frames of a smooth texture moved by (3, -2) pixels: statistics,
# PNG of the field in both styles, and its usage errors.  Needs python3 to write the frames.
set -u
CLI=$1
T=$(mktemp -d)
trap 'rm -rf "$T"' EXIT
command -v python3 >/dev/null 2>&1 || { echo "cli_vectors_test: SKIPPED (no python3)"; exit 0; }
python3 - "$T/pair.gray" <<'PY'
import math, random, sys
random.seed(5)
waves = [(0.02 + 0.3 * random.random(), 6.283 * random.random(), 6.283 * random.random()) for _ in range(24)]
def at(x, y):
    v = 128 + sum(22 * math.sin(f * (math.cos(t) * x + math.sin(t) * y) + p) for f, t, p in waves) / 2.5
    return max(0, min(255, int(round(v))))
with open(sys.argv[1], "wb") as out:
    for dx, dy in ((0, 0), (3, -2)):
        out.write(bytes(at(x - dx, y - dy) for y in range(96) for x in range(160)))
PY
failures=0
fail() { echo "cli_vectors_test: FAIL: $1"; failures=$((failures + 1)); }

"$CLI" vectors "$T/pair.gray" "$T/pair.gray" "$T/v.png" -s 160x96 --frame-b 1 >"$T/out" 2>&1 || fail "exit status $?"
grep -q "forward: 240 blocks, median vector (3.00, -2.00) px" "$T/out" || fail "forward median"
grep -q "backward: 240 blocks, median vector (-3.00, 2.00) px" "$T/out" || fail "backward median"
[ -s "$T/v.png" ] || fail "no PNG"
"$CLI" vectors "$T/pair.gray" "$T/pair.gray" "$T/w.png" -s 160x96 --frame-b 1 --style wheel --block 16 >"$T/out" 2>&1 ||
  fail "wheel: exit status $?"
grep -q "forward: 60 blocks" "$T/out" || fail "16x16 blocks"
"$CLI" vectors "$T/pair.gray" "$T/pair.gray" "$T/x.png" -s 160x96 --frame-b 2 >"$T/out" 2>&1
[ $? -eq 2 ] || fail "a missing frame is a usage error"
"$CLI" vectors "$T/pair.gray" "$T/pair.gray" "$T/x.png" -s 160x96 --style dots >"$T/out" 2>&1
[ $? -eq 2 ] || fail "an unknown style is a usage error"
[ -e "$T/x.png" ] && fail "PNG written after an error"
echo "cli_vectors_test: $failures failure(s)"
[ "$failures" -eq 0 ]
