#!/bin/sh
# End-to-end checks of the framedsp tool: usage: cli_test.sh <path to the framedsp binary>.
# Input files are made here with head/tr/dd; expected figures are computed here with awk.
set -u

BIN=${1:?usage: cli_test.sh <path to framedsp>}
T=$(mktemp -d "${TMPDIR:-/tmp}/framedsp_cli.XXXXXX") || exit 1
trap 'rm -rf "$T"' EXIT INT TERM
failures=0
checks=0

fail() {
  echo "FAIL: $*" >&2
  failures=$((failures + 1))
}

# run ARGS...: output in $T/out and $T/err, exit status in $status.
run() {
  "$BIN" "$@" >"$T/out" 2>"$T/err"
  status=$?
  checks=$((checks + 1))
  if [ "$status" -ge 128 ]; then
    fail "framedsp $* crashed (status $status)"
    sed 's/^/    /' "$T/err" >&2
  fi
  if grep -q -e 'Sanitizer' -e 'runtime error:' "$T/err"; then
    fail "framedsp $*: sanitizer report"
    sed 's/^/    /' "$T/err" >&2
  fi
}

expect_status() {
  if [ "$status" -ne "$1" ]; then
    fail "$2: exit status $status, expected $1"
    sed 's/^/    /' "$T/err" >&2
  fi
}

expect_in() {  # FILE TEXT DESCRIPTION
  grep -F -q -- "$2" "$1" || fail "$3: '$2' not in $(basename "$1")"
}

# fill FILE COUNT VALUE: COUNT bytes of VALUE.
fill() {
  head -c "$2" /dev/zero | tr '\000' "$(printf '\\%03o' "$3")" >"$1"
}

# poke FILE OFFSET VALUE: set one byte.
poke() {
  printf "$(printf '\\%03o' "$3")" | dd of="$1" bs=1 seek="$2" conv=notrunc 2>/dev/null
}

# figures SUM_OF_SQUARES PIXELS: "MSE PSNR" as the tool prints them.
figures() {
  awk -v s="$1" -v n="$2" 'BEGIN {
    m = s / n
    printf "%.6f %.3f", m, 20 * log(255 / sqrt(m + 0.00001)) / log(10)
  }'
}

# row LABEL: the figures of one table row (frame number or "overall") without the label.
row() {
  awk -v l="$1" '$1 == l { $1 = ""; sub(/^ /, ""); print; exit }' "$T/out"
}

expect_row() {  # LABEL EXPECTED DESCRIPTION
  got=$(row "$1")
  [ "$got" = "$2" ] || fail "$3: row '$1' is '$got', expected '$2'"
}

byte_list() {  # FILE: the bytes as decimal numbers on one line
  od -An -v -tu1 "$1" | tr -s ' \n' '  ' | sed 's/^ //; s/ $//'
}

same=$(figures 0 1)

# ---- formats
run formats
expect_status 0 "formats"
awk '$1 == 21 && $2 == "uyvy422" && $3 == 2 && $7 == "yes" { ok = 1 } END { exit !ok }' "$T/out" ||
  fail "formats: row of 21 is not 'uyvy422, 2 bytes, compare yes'"
# has_row AWK-CONDITION DESCRIPTION: some line of the output satisfies the condition.
has_row() {
  awk "$1 { ok = 1 } END { exit !ok }" "$T/out" || fail "$2"
}
has_row '$1 == 25 && $2 == "yuyv422"' "formats: 25 is not yuyv422"
has_row '$1 == 261 && $2 == "gray"' "formats: 261 is not gray"
has_row '$1 == 22 && $7 == "no"' "formats: 22 should not be accepted by compare"
expect_in "$T/out" "uyvy422+key" "formats"
expect_in "$T/out" "2: uyvy422 + gray" "formats: planes of 28"

# ---- compare: identical 4x2 uyvy422 frames
fill "$T/a.uyvy" 16 128
cp "$T/a.uyvy" "$T/same.uyvy"
run compare "$T/a.uyvy" "$T/same.uyvy" -s 4x2 --format uyvy422
expect_status 0 "compare identical"
expect_row 0 "$same $same $same" "compare identical, frame 0"
expect_row overall "$same $same $same" "compare identical, overall"

# B: Y (byte 1) -10, U of the second pair (byte 4) +4, V (byte 6) -16.
cp "$T/a.uyvy" "$T/b.uyvy"
poke "$T/b.uyvy" 1 138
poke "$T/b.uyvy" 4 124
poke "$T/b.uyvy" 6 144
run compare "$T/a.uyvy" "$T/b.uyvy" -s 4x2 --format uyvy422 --diff "$T/d.png" --diff-raw "$T/d.raw"
expect_status 0 "compare differing"
expected="$(figures 100 8) $(figures 16 8) $(figures 256 8)"
expect_row 0 "$expected" "compare uyvy422 Y/U/V"
expect_row overall "$expected" "compare uyvy422 overall"
expect_in "$T/out" "Y MSE" "compare uyvy422 header"

# The same bytes read as Y U Y V: byte 1 is U, bytes 4 and 6 are Y.
run compare "$T/a.uyvy" "$T/b.uyvy" -s 4x2 --format yuyv422
expect_status 0 "compare yuyv422"
expect_row 0 "$(figures 272 8) $(figures 100 8) $same" "compare yuyv422 Y/U/V"
run compare "$T/a.uyvy" "$T/b.uyvy" -s 4x2 --format 21
expect_status 0 "compare by code"
expect_row 0 "$expected" "compare by code 21"

# Difference image: PNG signature, 8x2 (two bytes a pixel shown as gray), raw bytes a - b + 128.
sig=$(od -An -tx1 -N8 "$T/d.png" 2>/dev/null | tr -d ' \n')
[ "$sig" = "89504e470d0a1a0a" ] || fail "--diff: not a PNG (signature '$sig')"
ihdr=$(od -An -tu1 -j16 -N8 "$T/d.png" 2>/dev/null | tr -s ' ' | sed 's/^ //; s/ $//')
[ "$ihdr" = "0 0 0 8 0 0 0 2" ] || fail "--diff: PNG size bytes '$ihdr', expected 8x2"
got=$(byte_list "$T/d.raw")
[ "$got" = "128 118 128 128 132 128 112 128 128 128 128 128 128 128 128 128" ] ||
  fail "--diff-raw: bytes '$got'"

# ---- compare: two bgr24 frames of 3x1, the second with R of pixel 0 off by 6
fill "$T/a.bgr" 18 50
cp "$T/a.bgr" "$T/b.bgr"
poke "$T/b.bgr" 11 56
run compare "$T/a.bgr" "$T/b.bgr" -s 3x1 -f bgr24 --diff "$T/d1.png" --frame 1
expect_status 0 "compare bgr24"
expect_row 0 "$same $same $same" "bgr24 frame 0"
expect_row 1 "$same $same $(figures 36 3)" "bgr24 frame 1"
expect_row overall "$same $same $(figures 18 3)" "bgr24 overall (mean of per-frame MSE)"
expect_in "$T/out" "R MSE" "bgr24 header"
[ -s "$T/d1.png" ] || fail "bgr24 --diff --frame 1 wrote nothing"

# ---- compare: gray and the two-plane uyvy422+key
fill "$T/a.key" 4 200
cp "$T/a.key" "$T/b.key"
poke "$T/b.key" 2 197
run compare "$T/a.key" "$T/b.key" -s 4x1 --format gray
expect_status 0 "compare gray"
expect_row 0 "$(figures 9 4)" "gray key channel"

# 2x2: picture of 2 lines of 4 bytes, key plane of 2 lines with key stride 3 (14 bytes a frame).
fill "$T/a.uk" 14 90
cp "$T/a.uk" "$T/b.uk"
poke "$T/b.uk" 11 110
poke "$T/b.uk" 10 1
run compare "$T/a.uk" "$T/b.uk" -s 2x2 --format uyvy422+key --key-stride 3
expect_status 0 "compare uyvy422+key"
expect_row 0 "$same $same $same $(figures 400 4)" "uyvy422+key (key at stride * height)"

# Padding bytes of a --stride are not compared: 2x2 uyvy422 with stride 6.
fill "$T/a.pad" 12 60
cp "$T/a.pad" "$T/b.pad"
poke "$T/b.pad" 4 0
poke "$T/b.pad" 5 255
poke "$T/b.pad" 7 70
run compare "$T/a.pad" "$T/b.pad" -s 2x2 --format uyvy422 --stride 6
expect_status 0 "compare with stride"
expect_row 0 "$(figures 100 4) $same $same" "stride padding ignored"

# ---- errors
head -c 10 "$T/a.uyvy" >"$T/short.uyvy"
run compare "$T/short.uyvy" "$T/a.uyvy" -s 4x2 --format uyvy422
expect_status 1 "short file"
expect_in "$T/err" "shorter than one frame" "short file"
expect_in "$T/err" "16 bytes" "short file"

fill "$T/odd.uyvy" 24 128
run compare "$T/odd.uyvy" "$T/odd.uyvy" -s 4x2 --format uyvy422
expect_status 1 "partial frame"
expect_in "$T/err" "not a whole number of frames of 16 bytes" "partial frame"

fill "$T/two.uyvy" 32 128
run compare "$T/a.uyvy" "$T/two.uyvy" -s 4x2 --format uyvy422
expect_status 1 "different frame counts"

run compare "$T/a.uyvy" "$T/missing.uyvy" -s 4x2 --format uyvy422
expect_status 1 "missing file"
expect_in "$T/err" "missing.uyvy" "missing file"

run compare "$T/a.uyvy" "$T/b.uyvy" -s 4x2 --format uyvu422
expect_status 2 "unknown format"
expect_in "$T/err" "did you mean 'uyvy422'" "unknown format suggestion"
run compare "$T/a.uyvy" "$T/b.uyvy" -s 4x2 --format rgb24
expect_status 2 "unknown format rgb24"
expect_in "$T/err" "'bgr24'" "rgb24 suggestion"
run compare "$T/a.uyvy" "$T/b.uyvy" -s 4x2 --format 7
expect_status 2 "unknown code"
run compare "$T/a.uyvy" "$T/b.uyvy" -s 4x2 --format 22
expect_status 2 "format not accepted by compare"
expect_in "$T/err" "not accepted by compare" "format 22"

run compare "$T/a.uyvy" "$T/b.uyvy" -s 3x2 --format uyvy422
expect_status 2 "odd width"
expect_in "$T/err" "even width" "odd width"
run compare "$T/a.uyvy" "$T/b.uyvy" -s 4x2 --format uyvy422 --stride 6
expect_status 2 "stride shorter than a line"
run compare "$T/a.uyvy" "$T/b.uyvy" -s 4by2 --format uyvy422
expect_status 2 "bad size"
run compare "$T/a.uyvy" "$T/b.uyvy" -s 4x2 --format uyvy422 --diff "$T/x.png" --frame 1
expect_status 2 "--frame past the end"
run compare "$T/a.uyvy" "$T/b.uyvy" -s 4x2 --format uyvy422 --bogus
expect_status 2 "unknown option"
run compare "$T/a.uyvy" "$T/b.uyvy" --format uyvy422
expect_status 2 "missing size"
expect_in "$T/err" "-s WxH" "missing size"
run compare "$T/a.uyvy" -s 4x2 --format uyvy422
expect_status 2 "one input file"
run compare
expect_status 2 "compare without arguments"
[ -s "$T/err" ] || fail "compare without arguments: no message"
run
expect_status 2 "no command"
run compar
expect_status 2 "unknown command"
expect_in "$T/err" "did you mean 'compare'" "unknown command"

# ---- help
run --help
expect_status 0 "--help"
expect_in "$T/out" "compare" "--help"
run help compare
expect_status 0 "help compare"
expect_in "$T/out" "examples:" "help compare"
run compare --help
expect_status 0 "compare --help"
expect_in "$T/out" "--diff" "compare --help"
run demo --help
expect_status 0 "demo --help"
run help nothing
expect_status 2 "help on an unknown command"

# ---- generated clip
run generate "$T/clip.raw" -s 64x32 --frames 3
expect_status 0 "generate"
size=$(wc -c <"$T/clip.raw" | tr -d ' ')
[ "$size" = 12288 ] || fail "generate: $size bytes, expected 3 frames of 64*32*2"
run compare "$T/clip.raw" "$T/clip.raw" -s 64x32 -f uyvy422
expect_status 0 "compare clip with itself"
for r in 0 1 2 overall; do expect_row "$r" "$same $same $same" "clip with itself"; done
dd if="$T/clip.raw" of="$T/f0.raw" bs=4096 count=1 2>/dev/null
dd if="$T/clip.raw" of="$T/f1.raw" bs=4096 skip=1 count=1 2>/dev/null
run compare "$T/f0.raw" "$T/f1.raw" -s 64x32 -f uyvy422
expect_status 0 "compare clip frames 0 and 1"
awk '$1 == 0 && $2 > 0 { ok = 1 } END { exit !ok }' "$T/out" || fail "clip frames 0 and 1 do not differ"

# ---- copy
# bytes FILE FIRST COUNT: COUNT bytes FIRST, FIRST+1, ... (values below 128).
bytes() {
  LC_ALL=C awk -v f="$2" -v n="$3" 'BEGIN { for (i = 0; i < n; i++) printf "%c", f + i }' >"$1"
}

# A 6x3 uyvy422 frame (12 bytes a line) of bytes 40..75; region 2,1,4,2 is bytes 4..11 of lines
# 1 and 2.
bytes "$T/c.uyvy" 40 36
run copy "$T/c.uyvy" "$T/crop.uyvy" -s 6x3 -f uyvy422 --region 2,1,4,2
expect_status 0 "copy --region"
expected=$(awk 'BEGIN { for (r = 1; r <= 2; r++) for (c = 4; c < 12; c++) printf "%s%d", (r > 1 || c > 4) ? " " : "", 40 + 12 * r + c }')
got=$(byte_list "$T/crop.uyvy")
[ "$got" = "$expected" ] || fail "copy --region: bytes '$got', expected '$expected'"

# --flip: the region arrives with its lines in reverse memory order.
run copy "$T/c.uyvy" "$T/flip.uyvy" -s 6x3 -f uyvy422 --region 2,1,4,2 --flip
expect_status 0 "copy --flip"
expected=$(awk 'BEGIN { for (r = 2; r >= 1; r--) for (c = 4; c < 12; c++) printf "%s%d", (r < 2 || c > 4) ? " " : "", 40 + 12 * r + c }')
got=$(byte_list "$T/flip.uyvy")
[ "$got" = "$expected" ] || fail "copy --flip: bytes '$got', expected '$expected'"

# A 4x4 interleaved frame (8 bytes a line, bytes 50..81): field A is lines 0 and 2, B 1 and 3;
# both placed back give the frame again.
bytes "$T/f.uyvy" 50 32
run copy "$T/f.uyvy" "$T/fa.uyvy" -s 4x4 -f uyvy422 --field a
expect_status 0 "copy --field a"
expected=$(awk 'BEGIN { for (r = 0; r < 4; r += 2) for (c = 0; c < 8; c++) printf "%s%d", (r || c) ? " " : "", 50 + 8 * r + c }')
got=$(byte_list "$T/fa.uyvy")
[ "$got" = "$expected" ] || fail "copy --field a: bytes '$got', expected '$expected'"
run copy "$T/f.uyvy" "$T/fb.uyvy" -s 4x4 -f uyvy422 --field b
expect_status 0 "copy --field b"
expected=$(awk 'BEGIN { for (r = 1; r < 4; r += 2) for (c = 0; c < 8; c++) printf "%s%d", (r > 1 || c) ? " " : "", 50 + 8 * r + c }')
got=$(byte_list "$T/fb.uyvy")
[ "$got" = "$expected" ] || fail "copy --field b: bytes '$got', expected '$expected'"
run copy "$T/fa.uyvy" "$T/fr.uyvy" -s 4x2 -f uyvy422 --to-frame a
expect_status 0 "copy --to-frame a (new file)"
run copy "$T/fb.uyvy" "$T/fr.uyvy" -s 4x2 -f uyvy422 --to-frame b -y
expect_status 0 "copy --to-frame b (existing file)"
cmp -s "$T/f.uyvy" "$T/fr.uyvy" || fail "copy: fields A and B placed back differ from the frame"

# BT.601 -> BT.709 -> BT.601 on a 4x2 frame with strong chroma: changed, then back within 2.
printf 'P\144\360\200\040\220\160\100\200\050\200\240\360\353\020\020' >"$T/cs.uyvy"
run copy "$T/cs.uyvy" "$T/cs709.uyvy" -s 4x2 -f uyvy422 --colorspace 601:709
expect_status 0 "copy --colorspace 601:709"
cmp -s "$T/cs.uyvy" "$T/cs709.uyvy" && fail "copy --colorspace 601:709 changed nothing"
run copy "$T/cs709.uyvy" "$T/cs601.uyvy" -s 4x2 -f uyvy422 --colorspace 709:601
expect_status 0 "copy --colorspace 709:601"
worst=$( (byte_list "$T/cs.uyvy"; echo; byte_list "$T/cs601.uyvy"; echo) | awk '
  NR == 1 { n = split($0, a, " ") } NR == 2 { split($0, b, " ") }
  END { w = 0; for (i = 1; i <= n; i++) { d = a[i] - b[i]; if (d < 0) d = -d; if (d > w) w = d }; print w }')
[ "$worst" -le 2 ] || fail "copy: colour-space round trip differs by $worst"
# Full-chroma formats are never converted.
run copy "$T/c.uyvy" "$T/c.bgr" -s 4x3 -f bgr24 --colorspace 601:709
expect_status 0 "copy bgr24 --colorspace"
cmp -s "$T/c.uyvy" "$T/c.bgr" || fail "copy: bgr24 changed by --colorspace"

# Bad usage: exit 2.
for bad in "--region 4,0,4,2" "--region 1,0,4,2" "--region 0,0,4" "--field c" \
  "--field a --to-frame b" "--colorspace 601:2020" "--dominance 3,1" "--dominance 1,2,down" \
  "-f 2" "-f uyvy423" "-s 5x3"; do
  # shellcheck disable=SC2086
  run copy "$T/c.uyvy" "$T/bad.uyvy" -s 6x3 -f uyvy422 $bad
  expect_status 2 "copy $bad"
done
run copy "$T/c.uyvy" "$T/bad.uyvy" -f uyvy422
expect_status 2 "copy without size"
run copy "$T/c.uyvy" -s 6x3 -f uyvy422
expect_status 2 "copy without OUT"
run copy "$T/c.uyvy" "$T/c.uyvy" -s 6x3 -f uyvy422
expect_status 2 "copy onto its input"
run copy --help
expect_status 0 "copy --help"
expect_in "$T/out" "--to-frame" "copy --help"

# ---- filter
# Expected outputs are computed here from the coefficient rows written out below (outer tap
# first, centre last) with the rounding (sum + 256) >> 9 clamped to 0..255, and for the box
# (sum * R + 2^22) >> 23 in 32-bit unsigned arithmetic, R = trunc(2^23 / N + 0.5).

# flat VALUE SUM...: a flat field through passes whose rows sum to SUM (one argument a pass).
flat() {
  awk -v v="$1" -v sums="$(shift; echo "$@")" 'BEGIN {
    n = split(sums, s, " ")
    for (i = 1; i <= n; i++) { v = int((s[i] * v + 256) / 512); if (v > 255) v = 255; if (v < 0) v = 0 }
    print v }'
}

# filtered IN LINE_BYTES LINES DIST KIND TAPS: the expected bytes of one-direction filtering,
# "-" near the edges, whose rules are not checked here: where the window leaves the line or the
# plane, and for the FIR also where its last tap is the last byte of the line or fewer than
# twice the taps below the centre remain in the plane (there the FIR edge rules replace taps
# that exist).  DIST: v (one line apart), uyvy (luma 2 bytes apart, chroma 4), or a byte
# distance.  KIND: fir (TAPS = the full symmetric row) or box (TAPS = window size N; the window
# starts N/2 samples before the centre).
filtered() {
  byte_list "$1" | awk -v lb="$2" -v lines="$3" -v dist="$4" -v kind="$5" -v taps="$6" '{
    n = split($0, x, " ")
    if (kind == "fir") { t = split(taps, c, " "); before = (t - 1) / 2 }
    else { t = taps; before = int(t / 2); for (k = 1; k <= t; k++) c[k] = 1
           r = int(8388608 / t + 0.5) }
    for (i = 0; i < n; i++) {
      if (dist == "v") d = lb; else if (dist == "uyvy") d = (i % 2) ? 2 : 4; else d = dist
      first = i - before * d; last = first + (t - 1) * d
      if (dist == "v") ok = first >= 0 && last < n && (kind != "fir" || last + before * d < n)
      else ok = first >= 0 && int(first / lb) == int(i / lb) && int(last / lb) == int(i / lb) &&
                (kind != "fir" || last % lb != lb - 1)
      if (!ok) { out = "-" } else {
        s = 0
        for (k = 1; k <= t; k++) s += c[k] * x[first + (k - 1) * d + 1]
        if (kind == "fir") out = int((s + 256 - (s + 256) % 512) / 512)
        else out = int(((s * r + 4194304) % 4294967296) / 8388608)
        if (out > 255) out = 255
        if (out < 0) out = 0
      }
      printf "%s%s", i ? " " : "", out
    }
    print ""
  }'
}

# matches EXPECTED GOT: equal word by word, "-" in EXPECTED matching anything.
matches() {
  awk -v e="$1" -v g="$2" 'BEGIN {
    n = split(e, a, " "); m = split(g, b, " ")
    if (n != m) exit 1
    for (i = 1; i <= n; i++) if (a[i] != "-" && a[i] != b[i]) exit 1
  }'
}

# A 16x4 uyvy422 frame of 255 and one of 128, one file of two frames.
fill "$T/flat255.uyvy" 128 255
fill "$T/flat128.uyvy" 128 128
cat "$T/flat255.uyvy" "$T/flat128.uyvy" >"$T/flat2.uyvy"

run filter "$T/flat255.uyvy" "$T/fo.uyvy" -s 16x4 -f uyvy422 --fir 3:95,3:95
if [ "$status" -eq 1 ] && grep -q "0x80004001" "$T/err"; then
  # DspFilter answers not-implemented: the error path is checked, the known answers wait.
  expect_in "$T/err" "DspFilter returned 0x80004001" "filter while not implemented"
  echo "cli_test: SKIPPED the filter known-answer checks: DspFilter is not implemented in this build"
  filter_works=0
else
  expect_status 0 "filter flat 255, 3 taps at 95"
  filter_works=1
fi

if [ "$filter_works" -eq 1 ]; then
  # 3 taps at 95: 13 + 486 + 13 = 512 keeps 255.
  v=$(flat 255 512 512)
  got=$(byte_list "$T/fo.uyvy" | tr ' ' '\n' | sort -u | tr '\n' ' ' | sed 's/ $//')
  [ "$got" = "$v" ] || fail "filter flat 255 with 3 taps at 95: bytes '$got', expected all $v"

  # 15 taps at 95 sums to 510 (255 -> 254 -> 253); 15 taps at 50 to 514 (128 -> 129 -> 130).
  for opts in "15:95 510" "15:50 514"; do
    set -- $opts
    run filter "$T/flat2.uyvy" "$T/fo2.uyvy" -y -s 16x4 -f uyvy422 --fir "$1,$1"
    expect_status 0 "filter two flat frames --fir $1,$1"
    e1=$(flat 255 "$2" "$2")
    e2=$(flat 128 "$2" "$2")
    expected=$(awk -v a="$e1" -v b="$e2" 'BEGIN { for (i = 0; i < 256; i++) printf "%s%d", i ? " " : "", i < 128 ? a : b }')
    got=$(byte_list "$T/fo2.uyvy")
    [ "$got" = "$expected" ] || fail "filter --fir $1,$1 on flat 255 and 128 frames: expected $e1 and $e2, got '$got'"
    # Horizontal only: one pass of the row's gain.
    run filter "$T/flat2.uyvy" "$T/fo2h.uyvy" -y -s 16x4 -f uyvy422 --fir "$1,3:100"
    expect_status 0 "filter --fir $1,3:100"
    e1=$(flat 255 "$2")
    e2=$(flat 128 "$2")
    expected=$(awk -v a="$e1" -v b="$e2" 'BEGIN { for (i = 0; i < 256; i++) printf "%s%d", i ? " " : "", i < 128 ? a : b }')
    got=$(byte_list "$T/fo2h.uyvy")
    [ "$got" = "$expected" ] || fail "filter --fir $1,3:100 on flat frames: got '$got'"
  done

  # Both directions off, a box of 0x0 and a box of 1x1: the frames come out unchanged.
  bytes "$T/ramp.uyvy" 20 96
  for opts in "--fir 7:100,7:100" "--fir 0:100,0:100" "--box 0x0" "--box 1x1" "--box 1x1 --temp-frame"; do
    # shellcheck disable=SC2086
    run filter "$T/ramp.uyvy" "$T/same.uyvy" -y -s 12x4 -f uyvy422 $opts
    expect_status 0 "filter $opts"
    cmp -s "$T/ramp.uyvy" "$T/same.uyvy" || fail "filter $opts changed the frame"
  done

  # Horizontal FIR on a luma impulse: 3 taps at 50 (113, 287, 113), interior samples.
  awk 'BEGIN { for (y = 0; y < 2; y++) for (x = 0; x < 16; x++) printf "%c%c", 128, x == 8 ? 200 : (x == 11 ? 90 : 16) }' \
    | LC_ALL=C cat >"$T/imp.uyvy"
  run filter "$T/imp.uyvy" "$T/imph.uyvy" -s 16x2 -f uyvy422 --fir 3:50,3:100
  expect_status 0 "filter horizontal impulse"
  expected=$(filtered "$T/imp.uyvy" 32 2 uyvy fir "113 287 113")
  got=$(byte_list "$T/imph.uyvy")
  matches "$expected" "$got" || fail "filter --fir 3:50,3:100: got '$got', expected '$expected'"
  # Even tap counts use the next lower odd row: 4 taps equal 3.
  run filter "$T/imp.uyvy" "$T/imph4.uyvy" -s 16x2 -f uyvy422 --fir 4:50,3:100
  expect_status 0 "filter 4 taps"
  cmp -s "$T/imph.uyvy" "$T/imph4.uyvy" || fail "filter: 4 taps differ from 3 taps"
  # The temporary frame gives the same bytes.
  run filter "$T/imp.uyvy" "$T/imph_t.uyvy" -s 16x2 -f uyvy422 --fir 3:50,3:100 --temp-frame
  expect_status 0 "filter --temp-frame"
  cmp -s "$T/imph.uyvy" "$T/imph_t.uyvy" || fail "filter --temp-frame differs from the direct path"

  # Vertical FIR on a row impulse: 5 taps at 50 (15, 105, 271, 105, 15), interior rows.
  awk 'BEGIN { for (y = 0; y < 9; y++) for (x = 0; x < 2; x++) printf "%c%c", 128, y == 4 ? 200 : (y == 6 ? 60 : 16) }' \
    | LC_ALL=C cat >"$T/vimp.uyvy"
  run filter "$T/vimp.uyvy" "$T/vimpv.uyvy" -s 2x9 -f uyvy422 --fir 3:100,5:50
  expect_status 0 "filter vertical impulse"
  expected=$(filtered "$T/vimp.uyvy" 4 9 v fir "15 105 271 105 15")
  got=$(byte_list "$T/vimpv.uyvy")
  matches "$expected" "$got" || fail "filter --fir 3:100,5:50: got '$got', expected '$expected'"

  # Interleaved fields of 200 and 16: --interlaced keeps them apart (a flat field each), while
  # the progressive filter mixes them.
  awk 'BEGIN { for (y = 0; y < 8; y++) for (x = 0; x < 2; x++) printf "%c%c", 128, y % 2 ? 16 : 200 }' \
    | LC_ALL=C cat >"$T/fields.uyvy"
  run filter "$T/fields.uyvy" "$T/fields_i.uyvy" -s 2x8 -f uyvy422 --fir 3:100,3:50 --interlaced
  expect_status 0 "filter --interlaced"
  expected=$(byte_list "$T/fields.uyvy" | awk '{ for (i = 1; i <= NF; i++) { v = $i; v = int((513 * v + 256) / 512); printf "%s%d", (i > 1) ? " " : "", v } }')
  got=$(byte_list "$T/fields_i.uyvy")
  [ "$got" = "$expected" ] || fail "filter --interlaced mixed the fields: got '$got'"
  run filter "$T/fields.uyvy" "$T/fields_p.uyvy" -s 2x8 -f uyvy422 --fir 3:100,3:50
  expect_status 0 "filter progressive fields"
  cmp -s "$T/fields_i.uyvy" "$T/fields_p.uyvy" && fail "filter: progressive result equals the by-field one"

  # Horizontal box of 5 on a bgra line with impulses in B and R, interior pixels.
  awk 'BEGIN { for (x = 0; x < 12; x++) printf "%c%c%c%c", x == 6 ? 250 : 10, 40, x == 3 ? 7 : 99, 255 }' \
    | LC_ALL=C cat >"$T/imp.bgra"
  run filter "$T/imp.bgra" "$T/impb.bgra" -s 12x1 -f bgra --box 5x0
  expect_status 0 "filter --box 5x0"
  expected=$(filtered "$T/imp.bgra" 48 1 4 box 5)
  got=$(byte_list "$T/impb.bgra")
  matches "$expected" "$got" || fail "filter --box 5x0: got '$got', expected '$expected'"
  # Vertical box of 4 (even: one more row above the centre) on gray rows.
  awk 'BEGIN { for (y = 0; y < 10; y++) for (x = 0; x < 4; x++) printf "%c", y == 5 ? 240 : 4 * y + x }' \
    | LC_ALL=C cat >"$T/rows.gray"
  run filter "$T/rows.gray" "$T/rowsb.gray" -s 4x10 -f gray --box 0x4
  expect_status 0 "filter --box 0x4"
  expected=$(filtered "$T/rows.gray" 4 10 v box 4)
  got=$(byte_list "$T/rowsb.gray")
  matches "$expected" "$got" || fail "filter --box 0x4: got '$got', expected '$expected'"
  # A flat 200 field through 9x9 and 255 through 255x255 stays flat.
  fill "$T/flat200.bgra" 1024 200
  run filter "$T/flat200.bgra" "$T/flatb.bgra" -s 16x16 -f bgra --box 9x9
  expect_status 0 "filter --box 9x9"
  cmp -s "$T/flat200.bgra" "$T/flatb.bgra" || fail "filter --box 9x9 changed a flat 200 field"
  fill "$T/flat255.bgra" 1024 255
  run filter "$T/flat255.bgra" "$T/flatb.bgra" -y -s 16x16 -f bgra --box 256x255
  expect_status 0 "filter --box 256x255"
  cmp -s "$T/flat255.bgra" "$T/flatb.bgra" || fail "filter --box 256x255 changed a flat 255 field"
fi

# Bad usage: exit 2, whether or not the library filters.
fill "$T/fin.uyvy" 96 100
for bad in "--fir 7:101,7:50" "--fir 2:50,7:50" "--fir 16:50,3:50" "--fir 7:50,7" "--fir 7:50,x:9" \
  "--fir abc" "--fir 7:50,7:50,7:50" "--box 257x1" "--box 9" "--box 9x" "--box x9" "--box -1x2" \
  "--fir 7:50 --box 3x3" "" "--fir 7:50 -f 2" "--fir 7:50 -f uyvy423" "--fir 7:50 -s 5x4" \
  "--box 3x3 --fields" "--box 3x3 --temp-frame=1"; do
  # shellcheck disable=SC2086
  run filter "$T/fin.uyvy" "$T/bad.uyvy" -s 12x4 -f uyvy422 $bad
  expect_status 2 "filter $bad"
done
run filter "$T/fin.uyvy" "$T/bad.uyvy" -f uyvy422 --box 3x3
expect_status 2 "filter without size"
run filter "$T/fin.uyvy" -s 12x4 -f uyvy422 --box 3x3
expect_status 2 "filter without OUT"
run filter "$T/fin.uyvy" "$T/fin.uyvy" -s 12x4 -f uyvy422 --box 3x3
expect_status 2 "filter onto its input"
# Runtime errors: exit 1.
run filter "$T/missing.uyvy" "$T/bad.uyvy" -s 12x4 -f uyvy422 --box 3x3
expect_status 1 "filter a missing file"
run filter "$T/fin.uyvy" "$T/bad.uyvy" -s 12x3 -f uyvy422 --box 3x3
expect_status 1 "filter a partial frame"
run filter --help
expect_status 0 "filter --help"
expect_in "$T/out" "--interlaced" "filter --help"
run help filter
expect_status 0 "help filter"
expect_in "$T/out" "examples:" "help filter"

# ---- fit
# fit_expect MODE SW SH SN SD DW DH DN DD: the output size the tool must print, computed here in
# awk's doubles in the same order of operations (pixel shape = H * N / (W * D)).
fit_expect() {
  awk -v m="$1" -v sw="$2" -v sh="$3" -v sn="$4" -v sd="$5" -v dw="$6" -v dh="$7" -v dn="$8" \
    -v dd="$9" 'BEGIN {
    sp = (sh * sn) / (sw * sd); dp = (dh * dn) / (dw * dd)
    if (m == "width") { h = dw / sw; printf "%dx%d\n", dw, int(dp * sh * h / sp) }
    else { v = dh / sh; printf "%dx%d\n", int(sp * sw * v / dp), dh }
  }'
}
run fit --src 720x486 --src-aspect 4:3 --dst 1920x1080 --dst-aspect 16:9
expect_status 0 "fit 720x486 4:3 to the height of 1920x1080 16:9"
expect_in "$T/out" "output: 1440x1080" "fit to height"
expect_in "$T/out" "scale: --to 1440x1080" "fit to height"
expect_in "$T/out" "mode: height" "fit to height"
factors=$(sed -n 's/^factors: //p' "$T/out")
awk -v f="$factors" 'BEGIN { split(f, a, " "); d = a[2] - 1080 / 486; if (d < 0) d = -d;
  exit !(a[1] == 2 && d < 1e-6) }' || fail "fit to height: factors '$factors', expected 2 and 1080/486"
for c in "width 720 486 4 3 1920 1080 16 9" "height 640 480 4 3 1280 720 16 9" \
  "width 1920 1080 16 9 720 576 4 3" "height 1920 1080 16 9 720 480 4 3" \
  "height 352 288 4 3 1024 768 4 3" "width 1000 999 37 29 333 777 5 11"; do
  set -- $c
  want=$(fit_expect "$@")
  run fit --mode "$1" --src "$2x$3" --src-aspect "$4:$5" --dst "$6x$7" --dst-aspect "$8:$9"
  expect_status 0 "fit $c"
  expect_in "$T/out" "output: $want" "fit $c"
  expect_in "$T/out" "scale: --to $want" "fit $c"
done
# Square pixels by default: a 2:1 picture fitted to the width of a 100x100 square is 100x50.
run fit --src 200x100 --dst 100x100 --mode width
expect_status 0 "fit with square pixels"
expect_in "$T/out" "output: 100x50" "fit with square pixels"
expect_in "$T/out" "factors: 0.5 0.5" "fit with square pixels"
# Fill: 16:9 HD covering 4:3 PAL crops the width to 1440 and keeps all 1080 lines.
run fit --src 1920x1080 --src-aspect 16:9 --dst 720x576 --dst-aspect 4:3 --mode fill
expect_status 0 "fit fill"
expect_in "$T/out" "crop: 1440x1080+240+0" "fit fill"
expect_in "$T/out" "output: 720x576" "fit fill"
expect_in "$T/out" "factors: 0.5 " "fit fill"
# A destination region replaces the destination size.
run fit --src 720x486 --src-aspect 4:3 --dst 1920x1080 --dst-aspect 16:9 --dst-region 960x540
expect_status 0 "fit into a region"
expect_in "$T/out" "output: 720x540" "fit into a region"
for bad in "--src 720x486" "--dst 720x486" "--src 0x486 --dst 720x486" \
  "--src 720x486 --dst 720x486 --src-aspect 4:0" "--src 720x486 --dst 720x486 --src-aspect 43" \
  "--src 720x486 --dst 720x486 --mode fit" "--src 720x486 --dst 720x486 --mode fill --src-region 10x10" \
  "--src 720x486 --dst 720x486 --src-region 800x10" "--src 720x486 --dst 720x486 extra"; do
  run fit $bad
  expect_status 2 "fit $bad"
  expect_in "$T/err" "Try 'framedsp help fit'" "fit $bad"
done
run fit --src 720x486 --src-aspect 4:3 --dst 720x486 --dst-aspect 999999999:1
expect_status 1 "fit to an empty picture"
run fit --help
expect_status 0 "fit --help"
expect_in "$T/out" "--mode fill|width|height" "fit --help"
# ---- scale
# resampled LINE... : one gray line (decimal bytes) resized to N samples by the library's rule:
# step = in * 16384 / out, index = acc >> 14 clamped, linear ((b - a) * f + a * 16384 + 8192) >> 14.
resampled() {  # N LINEAR BYTES...
  n=$1; lin=$2; shift 2
  echo "$*" | awk -v n="$n" -v lin="$lin" '{
    m = NF; step = int(m * 16384 / n)
    for (j = 0; j < n; j++) {
      acc = j * step; i = int(acc / 16384); if (i > m - 1) i = m - 1
      a = $(i + 1); k = i + 1 < m ? i + 1 : m - 1; b = $(k + 1); f = acc % 16384
      v = lin ? int(((b - a) * f + a * 16384 + 8192) / 16384) : a
      if ((b - a) * f + a * 16384 + 8192 < 0) v = -1
      printf "%s%d", j ? " " : "", v
    }
  }'
}
printf '\000\144\310\372' >"$T/ramp.gray"   # 0 100 200 250
for mode in nearest linear; do
  lin=0; [ "$mode" = linear ] && lin=1
  for to in 8 6 2 4; do
    run scale "$T/ramp.gray" "$T/ramp_$to.gray" -y -s 4x1 -f gray --to "${to}x1" --filter "$mode"
    expect_status 0 "scale gray 4 -> $to $mode"
    expected=$(resampled "$to" "$lin" 0 100 200 250)
    got=$(byte_list "$T/ramp_$to.gray")
    [ "$got" = "$expected" ] || fail "scale gray 4 -> $to $mode: got '$got', expected '$expected'"
  done
done
# Vertical: a column of 3 lines to 5, linear (2 pixels a line, both the same).
printf '\012\012\120\120\360\360' >"$T/col.gray"   # 10 80 240
run scale "$T/col.gray" "$T/col5.gray" -s 2x3 -f gray --to 2x5 --filter linear
expect_status 0 "scale gray 2x3 -> 2x5"
expected=$(resampled 5 1 10 80 240 | awk '{ for (i = 1; i <= NF; i++) printf "%s%d %d", (i > 1) ? " " : "", $i, $i }')
got=$(byte_list "$T/col5.gray")
[ "$got" = "$expected" ] || fail "scale vertical linear: got '$got', expected '$expected'"
# 1080 -> 720 uyvy, staged equals direct, factors and --fit give the sizes they promise.
run generate "$T/clip.uyvy" -s 192x108 --frames 2
expect_status 0 "generate for scale"
run scale "$T/clip.uyvy" "$T/s720.uyvy" -s 192x108 --format uyvy422 --to 128x72 --filter linear
expect_status 0 "scale uyvy 192x108 -> 128x72"
[ "$(wc -c <"$T/s720.uyvy")" -eq $((128 * 72 * 2 * 2)) ] || fail "scale: output size"
run scale "$T/clip.uyvy" "$T/s720s.uyvy" -s 192x108 --format uyvy422 --to 128x72 --filter linear --staged
expect_status 0 "scale --staged"
cmp -s "$T/s720.uyvy" "$T/s720s.uyvy" || fail "scale --staged differs from the direct path"
# --fir: the filtered path gives the scaled frames filtered as 'framedsp filter' filters them.
run scale "$T/clip.uyvy" "$T/s720f.uyvy" -s 192x108 --format uyvy422 --to 128x72 --filter linear --fir 7:40,5:60
expect_status 0 "scale --fir"
run filter "$T/s720.uyvy" "$T/s720sf.uyvy" -s 128x72 -f uyvy422 --fir 7:40,5:60
expect_status 0 "filter the scaled clip"
cmp -s "$T/s720f.uyvy" "$T/s720sf.uyvy" || fail "scale --fir differs from scale, then filter"
cmp -s "$T/s720f.uyvy" "$T/s720.uyvy" && fail "scale --fir left the frames unfiltered"
run scale "$T/clip.uyvy" "$T/half.uyvy" -s 192x108 -f uyvy422 --factor 0.5
expect_status 0 "scale --factor 0.5"
[ "$(wc -c <"$T/half.uyvy")" -eq $((96 * 54 * 2 * 2)) ] || fail "scale --factor 0.5: output size"
run scale "$T/clip.uyvy" "$T/fit.uyvy" -s 192x108 -f uyvy422 --factor 0.5 --fit --to 128x72
expect_status 0 "scale --fit --to"
run scale "$T/clip.uyvy" "$T/fa.uyvy" -y -s 192x108 -f uyvy422 --field a --to 128x36
expect_status 0 "scale --field a"
[ "$(wc -c <"$T/fa.uyvy")" -eq $((128 * 36 * 2 * 2)) ] || fail "scale --field a: output size"
run scale "$T/clip.uyvy" "$T/up.uyvy" -s 192x108 -f uyvy422 --to 256x144 --interlaced --colorspace 601:709
expect_status 0 "scale --interlaced --colorspace"
# Interleaved fields of 200 and 16 stay apart with --interlaced (each field is flat).
awk 'BEGIN { for (y = 0; y < 8; y++) for (x = 0; x < 4; x++) printf "%c%c", 128, y % 2 ? 16 : 200 }' \
  | LC_ALL=C cat >"$T/sfields.uyvy"
run scale "$T/sfields.uyvy" "$T/sfields_i.uyvy" -s 4x8 -f uyvy422 --to 6x12 --interlaced
expect_status 0 "scale --interlaced fields"
expected=$(awk 'BEGIN { for (y = 0; y < 12; y++) for (x = 0; x < 6; x++) printf "%s128 %d", (y || x) ? " " : "", y % 2 ? 16 : 200 }')
got=$(byte_list "$T/sfields_i.uyvy")
[ "$got" = "$expected" ] || fail "scale --interlaced mixed the fields: got '$got'"
run scale "$T/sfields.uyvy" "$T/sfields_p.uyvy" -s 4x8 -f uyvy422 --to 6x12
expect_status 0 "scale progressive fields"
cmp -s "$T/sfields_i.uyvy" "$T/sfields_p.uyvy" && fail "scale: progressive result equals the by-field one"
# Bad usage: exit 2; runtime errors: exit 1.
for bad in "" "--to 5x4" "--to 8x4 --filter cubic" "--factor 0" "--factor x" "--fit" "--to 8" \
  "--to 8x4 --field c" "--to 8x4 --field a --interlaced" "--to 8x4 --colorspace 1:2" \
  "--to 8x4 --fir 7" "--to 8x4 --fir 7:101" "--to 8x4 --fir 2:50,5:50"; do
  # shellcheck disable=SC2086
  run scale "$T/fin.uyvy" "$T/bad.uyvy" -s 12x4 -f uyvy422 $bad
  expect_status 2 "scale $bad"
done
run scale "$T/fin.uyvy" "$T/fin.uyvy" -s 12x4 -f uyvy422 --to 8x4
expect_status 2 "scale onto its input"
run scale "$T/missing.uyvy" "$T/bad.uyvy" -s 12x4 -f uyvy422 --to 8x4
expect_status 1 "scale a missing file"
run scale --help
expect_status 0 "scale --help"
expect_in "$T/out" "--factor" "scale --help"
run help scale
expect_status 0 "help scale"

# ---- demo
run demo --out "$T/demo" -s 64x32 --frames 3
expect_status 0 "demo"
for f in report.txt index.html clip_0.png diff_0_1.png diff_0_same.png diff_key.png \
  field_a.png field_b.png fields_rebuilt.png bt709.png diff_bt709_round_trip.png; do
  [ -s "$T/demo/$f" ] || fail "demo: $f missing"
done
sig=$(od -An -tx1 -N8 "$T/demo/diff_0_1.png" 2>/dev/null | tr -d ' \n')
[ "$sig" = "89504e470d0a1a0a" ] || fail "demo: diff_0_1.png is not a PNG"
expect_in "$T/demo/report.txt" "PSNR 98.131 dB" "demo report (identical frames)"
expect_in "$T/demo/index.html" "diff_0_altered.png" "demo index"
expect_in "$T/demo/report.txt" "equals frame 0 byte for byte" "demo fields"
expect_in "$T/demo/report.txt" "round trip max difference" "demo colour space"
if [ "$filter_works" -eq 1 ]; then
  for f in fir7_50.png diff_fir7_50.png box9x9.png diff_box9x9.png; do
    [ -s "$T/demo/$f" ] || fail "demo: $f missing"
  done
else
  expect_in "$T/demo/report.txt" "skipped: DspFilter is not available" "demo filter steps"
fi

for f in scaled_720.png scaled_sd.png scaled_sd_hd.png; do
  [ -s "$T/demo/$f" ] || fail "demo: $f missing"
done
expect_in "$T/demo/report.txt" "DspScaler" "demo scale steps"

# ---- help texts of every command
run --help
expect_status 0 "--help"
for cmd in formats compare copy filter scale fit mipmaps generate demo help; do
  expect_in "$T/out" "  $cmd " "--help lists $cmd"
done
expect_in "$T/out" "--progress" "--help mentions --progress"
expect_in "$T/out" "examples:" "--help examples"
run -h
expect_status 0 "-h"
for cmd in formats compare copy filter scale fit mipmaps generate demo; do
  run "$cmd" --help
  expect_status 0 "$cmd --help"
  expect_in "$T/out" "usage: framedsp $cmd" "$cmd --help usage line"
  expect_in "$T/out" "example" "$cmd --help examples"
  cp "$T/out" "$T/help_a"
  run help "$cmd"
  expect_status 0 "help $cmd"
  cmp -s "$T/out" "$T/help_a" || fail "help $cmd differs from $cmd --help"
  run "$cmd" -h
  cmp -s "$T/out" "$T/help_a" || fail "$cmd -h differs from $cmd --help"
done
run help --help
expect_status 0 "help --help"
expect_in "$T/out" "usage: framedsp help" "help --help"
run help mipmap
expect_status 2 "help on a misspelt command"
expect_in "$T/err" "did you mean 'mipmaps'" "help mipmap suggestion"

# ---- clear errors across commands
# A 4x2 uyvy422 frame needs 16 bytes; the short file has 10.
run scale "$T/short.uyvy" "$T/s_out.uyvy" -s 4x2 -f uyvy422 --to 2x2
expect_status 1 "scale: short file"
expect_in "$T/err" "10 bytes, shorter than one frame of 16 bytes" "scale: short file sizes"
run mipmaps "$T/short.uyvy" "$T/m.png" -s 4x2 -f uyvy422 --levels 2
expect_status 1 "mipmaps: short file"
expect_in "$T/err" "10 bytes, shorter than one frame of 16 bytes" "mipmaps: short file sizes"
[ -e "$T/m.png" ] && fail "mipmaps: PNG written although the input was short"
run filter "$T/odd.uyvy" "$T/f_out.uyvy" -s 4x2 -f uyvy422 --box 3x3
expect_status 1 "filter: partial frame"
expect_in "$T/err" "24 bytes, not a whole number of frames of 16 bytes" "filter: partial frame"
expect_in "$T/err" "expected 16 or 32 bytes" "filter: partial frame, nearest sizes"
run copy "$T/a.uyvy" "$T/c_out.uyvy" -s 4x2 -f grya
expect_status 2 "copy: unknown format"
expect_in "$T/err" "did you mean 'bgra', 'gray' or 'gray8'?" "copy: every name at the nearest distance"
run mipmaps "$T/a.uyvy" "$T/m.png" -s 4x2 -f yuvy422
expect_status 2 "mipmaps: unknown format"
expect_in "$T/err" "did you mean 'uyvy422' or 'yuyv422'" "mipmaps: two equally near names"
run mipmaps "$T/a.uyvy" "$T/m.png" -s 4x2 -f xyzzyplugh
expect_status 2 "mipmaps: far-off format name"
expect_in "$T/err" "known names: bgra bgr24" "mipmaps: list when nothing is near"
run scale "$T/a.uyvy" "$T/s_out.uyvy" -s 5x2 -f yuyv422 --to 2x2
expect_status 2 "scale: odd width"
expect_in "$T/err" "yuyv422 (25) needs an even width" "scale: odd width"
run filter "$T/a.uyvy" "$T/f_out.uyvy" -s 0x2 -f uyvy422 --box 3x3
expect_status 2 "filter: zero width"
expect_in "$T/err" "-s expects WxH" "filter: zero width"

# ---- progress line
fill "$T/p.uyvy" 48 128
run copy "$T/p.uyvy" "$T/p_out.uyvy" -s 4x2 -f uyvy422 --progress
expect_status 0 "copy --progress"
expect_in "$T/err" "framedsp copy: frame 3/3 (100.0 %)" "copy progress line"
expect_in "$T/err" "frame 1/3 (33.3 %)" "copy progress, first frame"
grep -q "frame 1/3" "$T/out" && fail "progress went to stdout"
run compare "$T/p.uyvy" "$T/p_out.uyvy" -s 4x2 -f uyvy422 --progress
expect_status 0 "compare --progress"
expect_in "$T/err" "framedsp compare: frame 3/3" "compare progress line"
expect_row overall "$same $same $same" "compare with progress: figures unchanged"
run scale "$T/p.uyvy" "$T/p_scaled.uyvy" -s 4x2 -f uyvy422 --to 2x2 --progress
expect_status 0 "scale --progress"
expect_in "$T/err" "framedsp scale: frame 3/3" "scale progress line"
run copy "$T/p.uyvy" "$T/p_out.uyvy" -s 4x2 -f uyvy422 -y
expect_status 0 "copy without --progress"
[ -s "$T/err" ] && fail "copy without --progress and no terminal wrote to stderr"

# ---- mipmaps
# png_info FILE: "width height bit-depth colour-type" from the IHDR chunk (bytes 16..25).
png_info() {
  od -An -v -tu1 -j16 -N10 "$1" | awk '{ printf "%d %d %d %d", \
    $1 * 16777216 + $2 * 65536 + $3 * 256 + $4, $5 * 16777216 + $6 * 65536 + $7 * 256 + $8, $9, $10 }'
}
# A 64x32 gray frame in blocks of 16x16 of distinct values (50 + 20 * block), and a uyvy422
# frame whose luma is the same and whose chroma is noise that must not leak into the pyramid.
awk 'BEGIN { for (y = 0; y < 32; ++y) for (x = 0; x < 64; ++x)
  printf "%c", 50 + 20 * (int(y / 16) * 4 + int(x / 16)) }' LC_ALL=C >"$T/blocks.gray"
awk 'BEGIN { for (y = 0; y < 32; ++y) for (x = 0; x < 64; ++x)
  printf "%c%c", (x * 37 + y * 11) % 256, 50 + 20 * (int(y / 16) * 4 + int(x / 16)) }' LC_ALL=C >"$T/blocks.uyvy"
[ "$(wc -c <"$T/blocks.gray")" -eq 2048 ] || fail "test setup: blocks.gray has the wrong size"
run mipmaps "$T/blocks.gray" "$T/m_gray.png" -s 64x32 -f gray --filter nearest
expect_status 0 "mipmaps gray"
expect_in "$T/out" "level 4: 4x2" "mipmaps level sizes"
[ "$(png_info "$T/m_gray.png")" = "124 32 8 0" ] || fail "mipmaps gray: IHDR $(png_info "$T/m_gray.png"), expected 124x32 8-bit gray"
run mipmaps "$T/blocks.uyvy" "$T/m_uyvy.png" -s 64x32 -f uyvy422 --levels 3 --filter nearest
expect_status 0 "mipmaps uyvy422"
[ "$(png_info "$T/m_uyvy.png")" = "112 32 8 0" ] || fail "mipmaps uyvy422: IHDR $(png_info "$T/m_uyvy.png"), expected 112x32 (64+32+16)"
run mipmaps "$T/blocks.gray" "$T/m_263.png" -s 64x32 -f 263 --levels 2 --filter linear
expect_status 0 "mipmaps format 263"
[ "$(png_info "$T/m_263.png")" = "96 32 8 0" ] || fail "mipmaps 263: IHDR $(png_info "$T/m_263.png")"
run mipmaps "$T/blocks.gray" "$T/m_lin.png" -s 64x32 -f gray --filter linear
expect_status 0 "mipmaps gray linear"
fill "$T/flat.gray" 2048 77
run mipmaps "$T/flat.gray" "$T/m_flat.png" -s 64x32 -f gray --filter linear
expect_status 0 "mipmaps flat linear"
for bad in "--levels 6" "--levels 1" "--filter cubic" "--frame 1"; do
  # shellcheck disable=SC2086
  run mipmaps "$T/blocks.gray" "$T/m_bad.png" -s 64x32 -f gray $bad
  expect_status 2 "mipmaps $bad"
done
run mipmaps "$T/blocks.gray" "$T/m_bad.png" -s 8x4 -f gray --levels 4
expect_status 2 "mipmaps: frame too small for the levels"
expect_in "$T/err" "4 levels need a frame of at least 8x8 pixels (level 3 of 8x4 would be empty)" "mipmaps: 4 levels from 8x4"
run mipmaps "$T/a.uyvy" "$T/m_bad.png" -s 4x2 -f uyvy422 --levels 3
expect_status 2 "mipmaps: 3 levels from 4x2"
expect_in "$T/err" "3 levels need a frame of at least 4x4" "mipmaps: level would be empty"
run mipmaps "$T/a.uyvy" "$T/m_bad.png" -s 2x2 -f bgra
expect_status 2 "mipmaps: bgra"
expect_in "$T/err" "not bgra (0)" "mipmaps: format without luma"
run mipmaps "$T/blocks.gray" -s 64x32 -f gray
expect_status 2 "mipmaps: no output file"
[ -e "$T/m_bad.png" ] && fail "mipmaps: PNG written on a usage error"

# Pixel checks where python3 is there to decode the PNGs: level 0 is the luma itself; with 16x16
# blocks every level down to 4x2 is still made of whole blocks, so each level pixel (x, y) of
# level k must be the block value at (x << k, y << k) whichever sample the halving picks; the
# area below the smaller levels is black; a flat frame stays flat at every level.
if command -v python3 >/dev/null 2>&1; then
  cat >"$T/png_check.py" <<'EOF'
import struct, sys, zlib

def decode(path):
    data = open(path, 'rb').read()
    assert data[:8] == b'\x89PNG\r\n\x1a\n', 'not a PNG'
    pos, idat = 8, b''
    while pos < len(data):
        n = struct.unpack('>I', data[pos:pos + 4])[0]
        kind, body = data[pos + 4:pos + 8], data[pos + 8:pos + 8 + n]
        if kind == b'IHDR':
            w, h, depth, colour = struct.unpack('>IIBB', body[:10])
        elif kind == b'IDAT':
            idat += body
        pos += 12 + n
    bpp = {0: 1, 2: 3}[colour]
    raw, stride, rows, prev, off = zlib.decompress(idat), w * bpp, [], bytearray(w * bpp), 0
    for y in range(h):
        f, line = raw[off], bytearray(raw[off + 1:off + 1 + stride])
        off += 1 + stride
        for i in range(stride):
            a = line[i - bpp] if i >= bpp else 0
            b, c = prev[i], prev[i - bpp] if i >= bpp else 0
            if f == 1: line[i] = (line[i] + a) & 255
            elif f == 2: line[i] = (line[i] + b) & 255
            elif f == 3: line[i] = (line[i] + (a + b) // 2) & 255
            elif f == 4:
                p = a + b - c
                pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
                pr = a if pa <= pb and pa <= pc else (b if pb <= pc else c)
                line[i] = (line[i] + pr) & 255
        rows.append(line)
        prev = line
    return w, h, colour, rows

def block(x, y):
    return 50 + 20 * ((y // 16) * 4 + x // 16)

def check_blocks(path, levels):
    w, h, colour, rows = decode(path)
    left, lw, lh = 0, 64, 32
    for k in range(levels):
        for y in range(h):
            for x in range(lw):
                want = block(x << k, y << k) if y < lh else 0
                got = rows[y][left + x]
                if got != want:
                    sys.exit('%s: level %d pixel (%d,%d) is %d, expected %d' % (path, k, x, y, got, want))
        left, lw, lh = left + lw, lw // 2, lh // 2
    assert left == w, (left, w)

def check_flat(path, value):
    w, h, colour, rows = decode(path)
    left, lw, lh = 0, 64, 32
    while left < w:
        for y in range(h):
            for x in range(lw):
                want = value if y < lh else 0
                if rows[y][left + x] != want:
                    sys.exit('%s: pixel (%d,%d) is %d, expected %d' % (path, left + x, y, rows[y][left + x], want))
        left, lw, lh = left + lw, lw // 2, lh // 2

def check_sheet(path, title_rgb):
    w, h, colour, rows = decode(path)
    assert colour == 2, 'contact sheet is not RGB'
    top = rows[8:22]
    found = any(tuple(r[i:i + 3]) == title_rgb for r in top for i in range(0, len(r), 3))
    if not found:
        sys.exit('%s: no title pixels in the top rows' % path)

what = sys.argv[1]
if what == 'blocks': check_blocks(sys.argv[2], int(sys.argv[3]))
elif what == 'flat': check_flat(sys.argv[2], int(sys.argv[3]))
elif what == 'sheet': check_sheet(sys.argv[2], (255, 214, 90))
EOF
  python3 "$T/png_check.py" blocks "$T/m_gray.png" 5 || fail "mipmaps gray: pixels"
  python3 "$T/png_check.py" blocks "$T/m_uyvy.png" 3 || fail "mipmaps uyvy422 luma: pixels"
  python3 "$T/png_check.py" flat "$T/m_flat.png" 77 || fail "mipmaps flat: pixels"
  python3 "$T/png_check.py" blocks "$T/m_lin.png" 5 || fail "mipmaps gray linear: pixels"
  # The checker itself must notice a wrong pyramid: the flat strip is no block strip.
  python3 "$T/png_check.py" blocks "$T/m_flat.png" 5 2>/dev/null && fail "png check accepts a wrong strip"
else
  echo "cli_test: python3 not found, mipmap pixel checks skipped" >&2
fi

# ---- demo: contact sheet, fit and pyramid steps, HTML
for f in contact_sheet.png fit.png mipmaps.png; do
  [ -s "$T/demo/$f" ] || fail "demo: $f missing"
done
expect_in "$T/demo/index.html" "<img src=\"contact_sheet.png\"" "demo index shows the contact sheet"
expect_in "$T/demo/index.html" "mipmaps.png" "demo index: pyramid"
expect_in "$T/demo/index.html" "fit.png" "demo index: fit"
expect_in "$T/demo/index.html" " ms)" "demo index: timings"
expect_in "$T/demo/index.html" "PSNR dB" "demo index: PSNR"
expect_in "$T/demo/report.txt" "DspCreateMipMaps: luma of frame 0, 5 levels (64x32, 32x16, 16x8, 8x4, 4x2)" "demo pyramid"
# 64x32 at 4:3 fitted to the height of a 113x64 16:9 frame: 64 * (32*4)/(64*3) * 2 / PAR_dst.
expect_in "$T/demo/report.txt" "fitted to the height of 112x64 at 16:9" "demo fit"
# Sheet layout: 4 columns of 320-pixel tiles with 8-pixel gaps; rows of 222 under a 30-pixel title.
info=$(png_info "$T/demo/contact_sheet.png")
set -- $info
[ "$1" = 1320 ] || fail "contact sheet width $1, expected 1320"
[ "$3 $4" = "8 2" ] || fail "contact sheet is not 8-bit RGB ($3 $4)"
[ "$2" -gt 30 ] && [ $(( ($2 - 30) % 222 )) -eq 0 ] || fail "contact sheet height $2 is not 30 + rows * 222"
if command -v python3 >/dev/null 2>&1; then
  python3 "$T/png_check.py" sheet "$T/demo/contact_sheet.png" || fail "contact sheet: title"
fi

echo "cli_test: $checks runs, $failures failure(s)"
[ "$failures" -eq 0 ]
