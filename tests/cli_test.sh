#!/bin/sh
# End-to-end checks of the framedsp tool: cli_test.sh <path to the framedsp binary>.  Inputs are
# made here with awk; expected bytes and figures come from short formulas written here.
set -uf
LC_ALL=C
export LC_ALL
BIN=${1:?usage: cli_test.sh <path to framedsp>}
T=$(mktemp -d "${TMPDIR:-/tmp}/framedsp_cli.XXXXXX") || exit 1
trap 'rm -rf "$T"' EXIT INT TERM
failures=0
checks=0

fail() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }

try() {  # STATUS ARGS...: the tool with ARGS must exit with STATUS; output in $T/out and $T/err
  expected_status=$1
  shift
  "$BIN" "$@" >"$T/out" 2>"$T/err" </dev/null
  status=$?
  checks=$((checks + 1))
  if grep -q -e 'Sanitizer' -e 'runtime error:' "$T/err"; then fail "framedsp $*: sanitizer report"; fi
  [ "$status" -eq "$expected_status" ] || { fail "framedsp $*: exit status $status, expected $expected_status"; sed 's/^/    /' "$T/err" >&2; }
}

run() { try 0 "$@"; }

has() { grep -F -q -- "$2" "$1" || fail "$3: '$2' not in $(basename "$1")"; }  # FILE TEXT DESCRIPTION

mk() { awk "BEGIN { for (i = 0; i < $2; i++) printf \"%c\", $3 }" >"$1"; }  # FILE COUNT BYTE-i-EXPR

bytes() { od -An -v -tu1 "$1" | tr -s ' \n' '  ' | sed 's/^ //; s/ $//'; }  # FILE: decimal bytes

bytes_are() { got=$(bytes "$1"); [ "$got" = "$2" ] || fail "$3: bytes '$got', expected '$2'"; }  # FILE LIST WHAT

list() { awk "function v(x) { printf \"%s%d\", n++ ? \" \" : \"\", x } BEGIN { $1 }"; }  # what v() gets

figures() {  # SUM_OF_SQUARES PIXELS: "MSE PSNR" as compare prints them
  awk -v s="$1" -v n="$2" 'BEGIN { m = s / n; printf "%.6f %.3f", m, 20 * log(255 / sqrt(m + 0.00001)) / log(10) }'
}

row_is() {  # LABEL EXPECTED DESCRIPTION: a row of compare's table, label left out
  got=$(awk -v l="$1" '$1 == l { $1 = ""; sub(/^ /, ""); print; exit }' "$T/out")
  [ "$got" = "$2" ] || fail "$3: row '$1' is '$got', expected '$2'"
}

png_dims() {  # FILE: "WIDTH HEIGHT DEPTH COLOUR-TYPE" from the signature and the IHDR chunk
  od -An -v -tu1 -N26 "$1" 2>/dev/null | tr -s ' \n' '  ' | awk '{
    if ($1 != 137 || $2 != 80 || $3 != 78 || $4 != 71 || $13 != 73 || $14 != 72) { print "not a PNG"; exit }
    printf "%d %d %d %d", (($17 * 256 + $18) * 256 + $19) * 256 + $20, (($21 * 256 + $22) * 256 + $23) * 256 + $24, $25, $26 }'
}

png_is() { got=$(png_dims "$1"); [ "$got" = "$2" ] || fail "$1: PNG '$got', expected '$2'"; }

cases() {  # lines "STATUS|TEXT ON STDERR OR EMPTY|ARGUMENTS" on stdin
  while IFS='|' read -r want text args; do
    [ -n "$want" ] || continue
    # shellcheck disable=SC2086
    try "$want" $args
    [ -z "$text" ] || has "$T/err" "$text" "framedsp $args"
  done
}

same=$(figures 0 1)

# ---- formats, help texts
run formats
awk '$1 == 21 && $2 == "uyvy422" && $3 == 2 && $4 == "yes" && $7 == "yes" { a = 1 } $1 == 1 && $4 == "no" { b = 1 }
     $1 == 22 && $6 == "yes" && $7 == "no" { c = 1 } END { exit !(a && b && c) }' "$T/out" || fail "formats: rows 1, 21, 22"
has "$T/out" "2: uyvy422 + gray" "formats: planes of 28"

run --help
for word in "-pix_fmt" "-i IN" "-y to overwrite" "--progress" "examples:"; do has "$T/out" "$word" "--help"; done
# Every command the overview lists: a usage line and an example, and 'help CMD' prints the same.
commands=$(awk '/^commands:/ { on = 1; next } on && NF == 0 { exit } on { print $1 }' "$T/out")
[ "$(echo $commands | wc -w)" -eq 14 ] || fail "--help lists $(echo $commands | wc -w) commands, not 14"
for cmd in $commands; do
  run "$cmd" --help
  for w in "usage: framedsp $cmd" "example"; do has "$T/out" "$w" "$cmd --help"; done
  cp "$T/out" "$T/help_a"
  run help "$cmd"
  cmp -s "$T/out" "$T/help_a" || fail "help $cmd differs from $cmd --help"
done
run scale -h
has "$T/out" "usage: framedsp scale" "scale -h"

# ---- compare: MSE per channel = sum of squared byte differences / pixels (table rows)
# COUNT|BYTES OF A|BYTES OF B|OPTIONS|ROW|EXPECTED
while IFS='|' read -r n a b opts label want; do
  mk "$T/ca" "$n" "$a"
  mk "$T/cb" "$n" "$b"
  # shellcheck disable=SC2086
  run compare "$T/ca" "$T/cb" $opts
  row_is "$label" "$want" "compare $opts"
done <<EOF
16|128|i == 1 ? 138 : i == 4 ? 124 : i == 6 ? 144 : 128|-s 4x2 -pix_fmt 21|overall|$(figures 100 8) $(figures 16 8) $(figures 256 8)
18|50|i == 11 ? 56 : 50|-s 3x1 -f bgr24|1|$same $same $(figures 36 3)
14|90|i == 11 ? 110 : i == 10 ? 1 : 90|-s 2x2 -f uyvy422+key --key-stride 3|0|$same $same $same $(figures 400 4)
EOF
mk "$T/a.uyvy" 16 128
mk "$T/b.uyvy" 16 'i == 1 ? 138 : i == 4 ? 124 : i == 6 ? 144 : 128'
# Difference bytes a - b + 128, one gray pixel a byte; --diff-raw holds every frame.
run compare -i "$T/a.uyvy" -i "$T/b.uyvy" -s 4x2 -f uyvy422 --diff "$T/d.png" --diff-raw "$T/d.raw"
row_is 0 "$(figures 100 8) $(figures 16 8) $(figures 256 8)" "compare -i A -i B"
png_is "$T/d.png" "8 2 8 0"
bytes_are "$T/d.raw" "128 118 128 128 132 128 112 128 128 128 128 128 128 128 128 128" "--diff-raw"

# ---- errors, usage (2) and runtime (1), with the words that matter
head -c 10 "$T/a.uyvy" >"$T/short"
mk "$T/odd" 24 128
mk "$T/two" 32 128
mk "$T/c.uyvy" 36 '40 + i'
mk "$T/fin.uyvy" 96 100
printf 'keep' >"$T/exist"
cases <<EOF
1|10 bytes, shorter than one frame of 16 bytes|compare $T/short $T/a.uyvy -s 4x2 -f uyvy422
1|24 bytes, not a whole number of frames of 16 bytes|filter $T/odd $T/x -s 4x2 -f uyvy422 --box 3x3
1|left over; expected 16 or 32 bytes|copy $T/odd $T/x -s 4x2 -f uyvy422
1|holds 1 frame but|compare $T/a.uyvy $T/two -s 4x2 -f uyvy422
1|missing.uyvy: cannot open|scale $T/missing.uyvy $T/x -s 4x2 -f uyvy422 --to 2x2
1|exist already exists; add -y to overwrite it|copy $T/c.uyvy $T/exist -s 6x3 -f uyvy422
1|add -y|compare $T/a.uyvy $T/b.uyvy -s 4x2 -f uyvy422 --diff-raw $T/exist
1|add -y|generate $T/exist -s 4x2
2|did you mean 'uyvy422'?|compare $T/a.uyvy $T/b.uyvy -s 4x2 -f uyvu422
2|did you mean 'bgra', 'gray' or 'gray8'?|copy $T/a.uyvy $T/x -s 4x2 -f grya
2|; known names: bgra bgr24|mipmaps $T/a.uyvy $T/x.png -s 4x2 -f xyzzyplugh
2|unknown pixel format code 7|compare $T/a.uyvy $T/b.uyvy -s 4x2 -f 7
2|is not accepted by compare; accepted: bgra (0)|compare $T/a.uyvy $T/b.uyvy -s 4x2 -f 22
2|yuyv422 (25) needs an even width|scale $T/a.uyvy $T/x -s 5x2 -f yuyv422 --to 2x2
2|stride 6 is shorter than a line|compare $T/a.uyvy $T/b.uyvy -s 4x2 -f uyvy422 --stride 6
2|-s expects WxH|filter $T/a.uyvy $T/x -s 0x2 -f uyvy422 --box 3x3
2|--frame 1 is past the last frame (0)|compare $T/a.uyvy $T/b.uyvy -s 4x2 -f uyvy422 --diff $T/x.png --frame 1
2|--frame selects the frame of --diff|compare $T/a.uyvy $T/b.uyvy -s 4x2 -f uyvy422 --frame 0
2|unknown option --bogus|compare $T/a.uyvy $T/b.uyvy -s 4x2 -f uyvy422 --bogus
2|missing frame size (-s WxH)|compare $T/a.uyvy $T/b.uyvy -f uyvy422
2|missing pixel format|copy $T/a.uyvy $T/x -s 4x2
2|missing files; usage: framedsp compare A B|compare $T/a.uyvy -s 4x2 -f uyvy422
2|compare reads 2 input file(s)|compare -i $T/a.uyvy $T/b.uyvy -s 4x2 -f uyvy422
2|unexpected argument|copy -i $T/a.uyvy $T/x $T/y -s 4x2 -f uyvy422
2|-s given twice|copy $T/a.uyvy $T/x -s 4x2 -s 4x2 -f uyvy422
2|Try 'framedsp help compare'|compare
2||
2|did you mean 'compare'?|compar
2|did you mean 'mipmaps'?|help mipmap
2|IN and OUT are the same file|copy $T/c.uyvy $T/c.uyvy -s 6x3 -f uyvy422 -y
2|does not fit into 6x3|copy $T/c.uyvy $T/x -s 6x3 -f uyvy422 --region 4,0,4,2
2|needs an even region X and width|copy $T/c.uyvy $T/x -s 6x3 -f uyvy422 --region 1,0,4,2
2|--region expects X,Y,W,H|copy $T/c.uyvy $T/x -s 6x3 -f uyvy422 --region 0,0,4
2|--field expects a or b|copy $T/c.uyvy $T/x -s 6x3 -f uyvy422 --field c
2|exclude each other|copy $T/c.uyvy $T/x -s 6x3 -f uyvy422 --field a --to-frame b
2|--colorspace expects 601:709 or 709:601|copy $T/c.uyvy $T/x -s 6x3 -f uyvy422 --colorspace 601:2020
2|--dominance expects|copy $T/c.uyvy $T/x -s 6x3 -f uyvy422 --dominance 1,2,down
2|is not accepted by the copy|copy $T/c.uyvy $T/x -s 6x3 -f 2
2|--fir cut-off 101 is above 100|filter $T/fin.uyvy $T/x -s 12x4 -f uyvy422 --fir 7:101,7:50
2|--fir taps 2 is outside 3..15|filter $T/fin.uyvy $T/x -s 12x4 -f uyvy422 --fir 2:50,7:50
2|--fir expects TAPS:CUTOFF|filter $T/fin.uyvy $T/x -s 12x4 -f uyvy422 --fir 7:50,7
2|--box size 257 is above 256|filter $T/fin.uyvy $T/x -s 12x4 -f uyvy422 --box 257x1
2|--box expects WxH|filter $T/fin.uyvy $T/x -s 12x4 -f uyvy422 --box 9
2|give exactly one of|filter $T/fin.uyvy $T/x -s 12x4 -f uyvy422 --fir 7:50 --box 3x3
2|--temp-frame takes no value|filter $T/fin.uyvy $T/x -s 12x4 -f uyvy422 --box 3x3 --temp-frame=1
2|give --to WxH or --factor|scale $T/fin.uyvy $T/x -s 12x4 -f uyvy422
2|needs an even width|scale $T/fin.uyvy $T/x -s 12x4 -f uyvy422 --to 5x4
2|--filter expects nearest or linear|scale $T/fin.uyvy $T/x -s 12x4 -f uyvy422 --to 8x4 --filter cubic
2|--factor expects|scale $T/fin.uyvy $T/x -s 12x4 -f uyvy422 --factor 0
2|--kernel expects nearest, linear, cubic or lanczos3|scale $T/fin.uyvy $T/x -s 12x4 -f uyvy422 --to 8x4 --kernel bicubic
2|--fit needs --factor|scale $T/fin.uyvy $T/x -s 12x4 -f uyvy422 --fit --to 8x4
2|exclude each other|scale $T/fin.uyvy $T/x -s 12x4 -f uyvy422 --to 8x4 --field a --interlaced
2|--levels must be at most 5|mipmaps $T/fin.uyvy $T/x.png -s 12x4 -f uyvy422 --levels 6
2|--frame 2 is past the last frame (0)|mipmaps $T/fin.uyvy $T/x.png -s 12x4 -f uyvy422 --levels 2 --frame 2
2|4 levels need a frame of at least 8x8 pixels (level 3 of 8x4 would be empty)|mipmaps $T/a.uyvy $T/x.png -s 8x4 -f gray --levels 4
2|not bgra (0)|mipmaps $T/a.uyvy $T/x.png -s 2x2 -f bgra
2|vectors reads gray or 263 frames, not uyvy422|vectors $T/a.uyvy $T/a.uyvy $T/x.png -s 4x2 -f uyvy422
2|frame 2 is past the last frame (1)|vectors $T/fin.uyvy $T/fin.uyvy $T/x.png -s 8x6 -f gray --frame-b 2
2|a search range of 2 needs a frame of at least 8x8 pixels|vectors $T/fin.uyvy $T/fin.uyvy $T/x.png -s 8x6 -f gray --range 2
2|--style expects arrows or wheel, got 'dots'|vectors $T/fin.uyvy $T/fin.uyvy $T/x.png -s 8x6 -f gray --style dots
2|--block must be 8..32|vectors $T/fin.uyvy $T/fin.uyvy $T/x.png -s 8x6 -f gray --block 33
2|missing --from or --to|convert-rate $T/fin.uyvy $T/x -s 12x8 -f gray --to 60
2|convert-rate reads gray or 263 frames|convert-rate $T/fin.uyvy $T/x -s 12x4 -f uyvy422 --from 30 --to 60
2|--sampling is one of 6tap, 4tap, bilinear, nearest|convert-rate $T/fin.uyvy $T/x -s 12x8 -f gray --from 1 --to 2 --sampling 8tap
2|missing destination size (--dst WxH)|fit --src 720x486
2|--src-aspect must be at least 1|fit --src 720x486 --dst 720x486 --src-aspect 4:0
2|--src-aspect expects N:D|fit --src 720x486 --dst 720x486 --src-aspect 43
2|--mode expects fill, width or height|fit --src 720x486 --dst 720x486 --mode fit
2|cannot be used with --mode fill|fit --src 720x486 --dst 720x486 --mode fill --src-region 10x10
2|--src-region is larger than --src|fit --src 720x486 --dst 720x486 --src-region 800x10
2|Try 'framedsp help fit'|fit --src 720x486 --dst 720x486 extra
1|empty picture|fit --src 720x486 --src-aspect 4:3 --dst 720x486 --dst-aspect 999999999:1
EOF
[ "$(cat "$T/exist")" = keep ] || fail "an existing file was overwritten without -y"
for f in x x.png y; do [ ! -e "$T/$f" ] || fail "$f written by a refused command"; done

# ---- outputs of generate, copy, filter and scale
# Lines "ARGUMENTS writing $T/o|CHECK": = FILE (the same bytes), size BYTES, bytes B..., awk
# STATEMENTS (the numbers they pass to v()).
outputs() {
  while IFS='|' read -r args check; do
    rm -f "$T/o"
    run $args
    set -- $check
    case $1 in
      =) cmp -s "$T/o" "$2" || fail "framedsp $args: output differs from $2" ;;
      size) [ "$(wc -c <"$T/o")" -eq "$2" ] || fail "framedsp $args: not $2 bytes" ;;
      bytes) shift; bytes_are "$T/o" "$*" "framedsp $args" ;;
      awk) bytes_are "$T/o" "$(list "${check#awk }")" "framedsp $args" ;;
    esac
  done
}

# A 4x4 uyvy422 frame of bytes 50..81 (8 a line); strong chroma for BT.601/709; impulses of 200
# and 90 at luma samples 8 and 11 of 16 on lines of 16 (FIR 3 taps at 50: 113 287 113 of 512, so
# (113 * 200 + 400 * 16 + 256) >> 9 = 57 beside the 200, 119 on it, 32 and 58 about the 90);
# interleaved fields of 200 and 16 lines.
mk "$T/f.uyvy" 32 '50 + i'
printf 'P\144\360\200\040\220\160\100\200\050\200\240\360\353\020\020' >"$T/cs.uyvy"
mk "$T/imp.uyvy" 64 'i % 2 ? (int(i / 2) % 16 == 8 ? 200 : int(i / 2) % 16 == 11 ? 90 : 16) : 128'
mk "$T/fields.uyvy" 32 'i % 2 ? (int(i / 4) % 2 ? 16 : 200) : 128'
mk "$T/sfields.uyvy" 64 'i % 2 ? (int(i / 8) % 2 ? 16 : 200) : 128'
mk "$T/sfields6.uyvy" 144 'i % 2 ? (int(i / 12) % 2 ? 16 : 200) : 128'
printf '\000\144\310\372' >"$T/ramp.gray"
run generate "$T/clip.raw" -s 192x108 --frames 2
run scale "$T/clip.raw" "$T/s720" -s 192x108 -f uyvy422 --to 128x72
outputs <<EOF
generate $T/o -s 64x32 --frames 3|size 12288
copy -i $T/c.uyvy -s 6x3 -pix_fmt uyvy422 --region 2,1,4,2 --flip $T/o|awk for (r = 2; r >= 1; r--) for (c = 4; c < 12; c++) v(40 + 12 * r + c)
copy $T/a.uyvy $T/o -s 4x2 -f uyvy422 --to-frame b --region 2,1,2,1|awk for (i = 0; i < 32; i++) v(i >= 28 ? 128 : 0)
filter $T/imp.uyvy $T/o -s 16x2 -f uyvy --fir 3:50,3:100|awk for (i = 0; i < 64; i++) { m = int(i / 2) % 16; v(i % 2 ? (m == 7 || m == 9 ? 57 : m == 8 ? 119 : m == 10 || m == 12 ? 32 : m == 11 ? 58 : 16) : 128) }
filter $T/fields.uyvy $T/o -s 2x8 -f uyvy --fir 3:100,3:50 --interlaced|= $T/fields.uyvy
scale $T/ramp.gray $T/o -s 4x1 -f gray --to 8x1|bytes 0 50 100 150 200 225 250 250
scale $T/clip.raw $T/o -s 192x108 -f uyvy422 --to 128x72 --staged|= $T/s720
scale $T/ramp.gray $T/o -s 4x1 -f gray --to 4x1 --src-rect 1,0,2,1 --kernel linear|awk for (j = 0; j < 4; j++) { s = 0.75 + 0.5 * j; k = int(s); r[0] = 0; r[1] = 100; r[2] = 200; r[3] = 250; v(int(r[k] + (s - k) * (r[k + 1] - r[k]) + 0.5)) }
kenburns $T/clip.raw $T/o -s 192x108 -f uyvy422 --frames 2 --start 1 --end 1|= $T/clip.raw
panorama $T/clip.raw $T/o -s 192x108 -f uyvy422 --mode 0 --to 128x72 --kernel linear|= $T/s720
scale $T/clip.raw $T/o -s 192x108 -f uyvy422 --factor 0.5|size $((96 * 54 * 2 * 2))
scale $T/sfields.uyvy $T/o -s 4x8 -f uyvy422 --to 6x12 --interlaced|= $T/sfields6.uyvy
EOF
# The clip's frames differ; fields placed back, into a new file and then (-y) into that file,
# give the frame again; BT.601 -> BT.709 -> BT.601 comes back within 2.
head -c 41472 "$T/clip.raw" >"$T/f0.raw"
tail -c 41472 "$T/clip.raw" >"$T/f1.raw"
if cmp -s "$T/f0.raw" "$T/f1.raw"; then fail "generate: frames 0 and 1 equal"; fi
run copy "$T/f.uyvy" "$T/fa" -s 4x4 -f uyvy422 --field a
run copy "$T/f.uyvy" "$T/fb" -s 4x4 -f uyvy422 --field b
run copy "$T/fa" "$T/fr" -s 4x2 -f uyvy422 --to-frame a
try 1 copy "$T/fb" "$T/fr" -s 4x2 -f uyvy422 --to-frame b
run copy "$T/fb" "$T/fr" -s 4x2 -f uyvy422 --to-frame b -y
cmp -s "$T/f.uyvy" "$T/fr" || fail "copy: fields A and B placed back differ from the frame"
run copy "$T/cs.uyvy" "$T/cs709" -s 4x2 -f uyvy422 --colorspace 601:709
run copy "$T/cs709" "$T/cs601" -s 4x2 -f uyvy422 --colorspace 709:601
worst=$( (bytes "$T/cs.uyvy"; echo; bytes "$T/cs601"; echo) | awk 'NR == 1 { n = split($0, a) } NR == 2 { split($0, b) }
  END { w = 0; for (i = 1; i <= n; i++) { d = a[i] - b[i]; if (d < 0) d = -d; if (d > w) w = d }; print w }')
[ "$worst" -le 2 ] || fail "copy: colour-space round trip differs by $worst"

# ---- fit: the output size keeps the picture's shape (height * aspect / width per pixel)
while IFS='|' read -r opts want; do
  run fit $opts
  for w in $want; do has "$T/out" "$(echo "$w" | tr '_' ' ')" "fit $opts"; done
done <<EOF
--src 720x486 --src-aspect 4:3 --dst 1920x1080 --dst-aspect 16:9|mode:_height output:_1440x1080 scale:_--to_1440x1080 factors:_2_2.22222233
--src 1920x1080 --src-aspect 16:9 --dst 720x576 --dst-aspect 4:3 --mode fill|crop:_1440x1080+240+0 output:_720x576
EOF

# ---- progress: on stderr with --progress (stderr is no terminal here), never on stdout
mk "$T/p.uyvy" 48 128
for c in "copy" "filter --box 3x3" "scale --to 2x2" "compare"; do
  out="$T/p_out"
  [ "$c" = compare ] && out="$T/p.uyvy"
  run ${c%% *} "$T/p.uyvy" "$out" -s 4x2 -f uyvy422 ${c#"${c%% *}"} --progress -y
  has "$T/err" "framedsp ${c%% *}: frame 1/3 (33.3 %)" "$c progress"
  has "$T/err" "framedsp ${c%% *}: frame 3/3 (100.0 %)" "$c progress"
  if grep -q "frame 1/3" "$T/out"; then fail "$c: progress on stdout"; fi
done
run copy "$T/p.uyvy" "$T/p_out" -s 4x2 -f uyvy422 -y
[ -s "$T/err" ] && fail "copy without --progress wrote to stderr"

# ---- mipmaps: 16x16 blocks of distinct values (50 + 20 * block) in a 48x32 gray frame (level 4
# is 3 wide), and the same luma in uyvy422 with chroma noise that must not leak into the pyramid
mk "$T/blocks.gray" 1536 '50 + 20 * (int(i / 768) * 4 + int(i % 48 / 16))'
mk "$T/blocks.uyvy" 3072 'i % 2 ? 50 + 20 * (int(i / 1536) * 4 + int(i % 96 / 32)) : (i * 37) % 256'
while IFS='|' read -r in fmt opts png; do
  run mipmaps "$T/$in" "$T/m_$fmt.png" -s 48x32 -f "$fmt" $opts
  png_is "$T/m_$fmt.png" "$png"
done <<EOF
blocks.gray|gray|--filter nearest|93 32 8 0
blocks.uyvy|uyvy422|--levels 3 --filter nearest|84 32 8 0
blocks.gray|263|--levels 2 --filter linear|72 32 8 0
EOF
# The uyvy422 strip's pixels: pixel (x, y) of level k is the block value at (x << k, y << k), black
# below the smaller levels.  The expected strip is made here and drawn by compare --diff against
# a frame of 128s (a - 128 + 128), which writes the same gray PNG for the same pixels.
awk 'BEGIN { for (y = 0; y < 32; y++) for (x = 0; x < 84; x++) { k = x < 48 ? 0 : x < 72 ? 1 : 2; s = 2 ^ k
  printf "%c", y < 32 / s ? 50 + 20 * (int(y * s / 16) * 4 + int((x - 96 + 96 / s) * s / 16)) : 0 } }' >"$T/strip"
mk "$T/g128" 2688 128
run compare "$T/strip" "$T/g128" -s 84x32 -f gray --diff "$T/strip.png"
cmp -s "$T/strip.png" "$T/m_uyvy422.png" || fail "mipmaps uyvy422: the strip's pixels"

# ---- vectors: a smooth texture moved by (3, -2) between two 160x96 frames, gray and 263 (the
# luma plane, then a plane of 128)
awk 'BEGIN { srand(5); for (k = 0; k < 24; k++) { f = 0.02 + 0.3 * rand(); t = 6.283 * rand(); kx[k] = f * cos(t); ky[k] = f * sin(t); p[k] = 6.283 * rand() }
  for (fr = 0; fr < 2; fr++) for (plane = 0; plane < 2; plane++) for (y = 0; y < 96; y++) for (x = 0; x < 160; x++) {
    v = 128; for (k = 0; k < 24 && !plane; k++) v += 8.8 * sin(kx[k] * (x - 3 * fr) + ky[k] * (y + 2 * fr) + p[k])
    v = int(v + 0.5); printf "%c", (v < 1 ? 1 : (v > 255 ? 255 : v)) } }' >"$T/pair.263"
head -c 15360 "$T/pair.263" >"$T/pair.gray"
tail -c 30720 "$T/pair.263" | head -c 15360 >>"$T/pair.gray"
while IFS='|' read -r fmt opts blocks png; do
  # shellcheck disable=SC2086
  run vectors -i "$T/pair.$fmt" -i "$T/pair.$fmt" "$T/v_$fmt.png" -s 160x96 -pix_fmt "$fmt" --frame-b 1 $opts
  has "$T/out" "forward: $blocks blocks, median vector (3.00, -2.00) px" "vectors $fmt $opts"
  has "$T/out" "backward: $blocks blocks, median vector (-3.00, 2.00) px" "vectors $fmt $opts"
  png_is "$T/v_$fmt.png" "$png"
done <<EOF
gray||240|160 96 8 2
263|--style wheel --block 16|60|160 96 8 2
EOF

# ---- convert-rate: flat frames 10, 20, 30 at 30 -> 60 give 10, 15, 20, 25, 30; 60 -> 50 gives
# 10 and the frame 1/5 of the way from 20 to 30 (phase 3277: 22)
mk "$T/flat.gray" 4608 '10 + 10 * int(i / 1536)'
run convert-rate --from 30 --to 60 -s 48x32 -pix_fmt gray -i "$T/flat.gray" "$T/cr.gray" --png "$T/cr.png" --log
[ "$(bytes "$T/cr.gray" | tr ' ' '\n' | uniq | tr '\n' ' ')" = "10 15 20 25 30 " ] || fail "convert-rate 30 -> 60"
has "$T/out" "output 3: inputs 1-2 phase 8192" "convert-rate --log"
[ -s "$T/cr.png" ] || fail "convert-rate --png"
run convert-rate --from 60 --to 50 -s 48x32 -pix_fmt gray -i "$T/flat.gray" "$T/cr2.gray" --sampling 4tap
[ "$(bytes "$T/cr2.gray" | tr ' ' '\n' | uniq | tr '\n' ' ')" = "10 22 " ] || fail "convert-rate 60 -> 50"

# ---- demo, contact sheet
run demo --out "$T/demo" -s 64x32 --frames 3
for f in report.txt index.html clip_0.png diff_0_1.png diff_key.png copy_0.png fields_rebuilt.png \
  bt709.png fir7_50.png box9x9.png scaled_720.png scaled_sd_hd.png fit.png mipmaps.png vectors.png \
  convert_rate.png; do
  [ -s "$T/demo/$f" ] || fail "demo: $f missing"
done
png_is "$T/demo/diff_0_1.png" "128 32 8 0"
for line in "PSNR 98.131 dB" "equals frame 0 byte for byte" "round trip max difference" \
  "DspCreateMipMaps: luma of frame 0, 5 levels (64x32, 32x16, 16x8, 8x4, 4x2)" \
  "fitted to the height of 112x64 at 16:9" "DspCreateMotionVectors: luma, frame 0 -> 1, 4 levels, 8x8 blocks"; do
  has "$T/demo/report.txt" "$line" "demo report"
done
for line in "<img src=\"contact_sheet.png\"" "diff_0_altered.png" " ms)" "PSNR dB"; do
  has "$T/demo/index.html" "$line" "demo index"
done
# 4 columns of 320-pixel tiles with 8-pixel gaps; rows of 222 under a 30-pixel title.
set -- $(png_dims "$T/demo/contact_sheet.png")
[ "$1" = 1320 ] && [ "$3 $4" = "8 2" ] && [ $(( ($2 - 30) % 222 )) -eq 0 ] && [ "$2" -gt 30 ] ||
  fail "contact sheet is $*, expected 1320 x (30 + rows * 222), 8-bit RGB"
# The demo rewrites its own folder; another folder with files needs -y.
mkdir "$T/mine"
printf 'mine' >"$T/mine/report.txt"
run demo --out "$T/demo" -s 64x32 --frames 2
try 1 demo --out "$T/mine" -s 64x32 --frames 2
has "$T/err" "holds files that no earlier demo wrote; add -y" "demo into another folder"
[ "$(cat "$T/mine/report.txt")" = mine ] || fail "demo overwrote a file of another folder"
run demo --out "$T/mine" -s 64x32 --frames 2 -y

echo "cli_test: $checks runs, $failures failure(s)"
[ "$failures" -eq 0 ]
