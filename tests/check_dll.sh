#!/usr/bin/env bash
# Checks a cross-built framedsp.dll:
#   - a PE32 i386 DLL (PE32+ x86-64 with "64") whose export table holds exactly the thirteen
#     plain names;
#   - it imports only system DLLs (no compiler runtime DLL to ship beside it);
#   - 32-bit: the import library's name@bytes list matches the __stdcall symbols the compiler
#     produced.
# Usage: check_dll.sh <build dir> <source dir> [64]
set -euo pipefail
BUILD=$1 SRC=$2 BITS=${3:-32}
DLL=$BUILD/framedsp.dll
if [ "$BITS" = 64 ]; then
  TOOLS=x86_64-w64-mingw32 FORMAT=pei-x86-64
else
  TOOLS=i686-w64-mingw32 FORMAT=pei-i386
fi
OBJDUMP=$(command -v $TOOLS-objdump || command -v objdump)
NM=$(command -v $TOOLS-nm || command -v nm)
fail() { echo "check_dll: $*" >&2; exit 1; }
[ -f "$DLL" ] || fail "$DLL not built"

"$OBJDUMP" -f "$DLL" | grep -q "file format $FORMAT\$" || fail "$DLL is not a $FORMAT image"
dump=$("$OBJDUMP" -p "$DLL")

# The export names: the lines of the [Ordinal/Name Pointer] table.
names=$(awk '/^\[Ordinal\/Name Pointer\] Table/ {on = 1; next} on && /^$/ {exit}
             on {print $NF}' <<<"$dump" | sort)
expected=$(printf '%s\n' DspBufferSmartCopy DspCompare DspCreateFrameRateConverter DspCreateMipMaps \
  DspCreateMotionVectors DspFilter DspFrameRateConvert DspNonUniformScaler DspScaler \
  DspScalerHelper DspSubPixelFilter DspSubPixelScaler DspSubPixelScalerHelper | sort)
[ "$names" = "$expected" ] || fail "exports differ:
got:
$names
expected:
$expected"
# The .def file lists the same names.
def_names=$(awk '/^EXPORTS/ {on = 1; next} on && NF {print $1}' "$SRC/src/framedsp.def" | sort)
[ "$def_names" = "$expected" ] || fail "src/framedsp.def lists other names"

imports=$(awk '/DLL Name:/ {print toupper($3)}' <<<"$dump" | sort -u)
for dll in $imports; do
  case "$dll" in
    KERNEL32.DLL | ADVAPI32.DLL | USER32.DLL | MSVCRT.DLL) ;;
    *) fail "imports $dll, which is not a system DLL" ;;
  esac
done

if [ "$BITS" = 64 ]; then
  echo "check_dll: 64-bit framedsp.dll exports the 13 plain names, imports only: $(echo $imports)"
  exit 0
fi

# Every export's __stdcall decoration as compiled, against the import library's list.
compiled=$(find "$BUILD" -name 'exports.cpp.obj' -exec "$NM" {} \; |
           awk '$2 == "T" && $3 ~ /^_Dsp[A-Za-z]*@[0-9]+$/ {sub(/^_/, "", $3); print $3}' | sort)
listed=$(awk '/^EXPORTS/ {on = 1; next} on && NF {print $1}' "$SRC/cmake/framedsp-stdcall.def" | sort)
[ "$(wc -l <<<"$compiled")" = 13 ] || fail "expected 13 __stdcall exports in exports.cpp.obj, got: $compiled"
[ "$compiled" = "$listed" ] || fail "cmake/framedsp-stdcall.def differs from the compiled names:
$compiled"
echo "check_dll: framedsp.dll exports the 13 plain __stdcall names, imports only: $(echo $imports)"
