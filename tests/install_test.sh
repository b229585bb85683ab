#!/usr/bin/env bash
# Installs the built library into a prefix inside the build tree, then builds and runs, against
# that installed copy only:
#   - through find_package: the README's C example (shared) and a C++ host (shared and static);
#   - through pkg-config:   the same C example and C++ host (shared), and the C example against
#                           the static library with the flags of `pkg-config --static`.
# Usage: install_test.sh <cmake> <build dir> <source dir> <C compiler> <C++ compiler>
set -euo pipefail
CMAKE=$1 BUILD=$2 SRC=$3 CC=$4 CXX=$5
WORK=$BUILD/install-test
PREFIX=$WORK/prefix
rm -rf "$WORK"
mkdir -p "$WORK"
fail() { echo "install_test: $*" >&2; exit 1; }

"$CMAKE" --install "$BUILD" --prefix "$PREFIX" >"$WORK/install.log" || fail "cmake --install failed"
for f in include/framedsp/framedsp.h; do [ -f "$PREFIX/$f" ] || fail "missing $f"; done
LIBDIR=$(dirname "$(find "$PREFIX" -name framedsp.pc -path '*/pkgconfig/*' | head -n1)")/..
LIBDIR=$(cd "$LIBDIR" && pwd)
for f in libframedsp.so libframedsp.a pkgconfig/framedsp.pc cmake/framedsp/framedspConfig.cmake \
         cmake/framedsp/framedspConfigVersion.cmake cmake/framedsp/framedspTargets.cmake; do
  [ -e "$LIBDIR/$f" ] || fail "missing $LIBDIR/$f"
done
# Nothing internal is installed: only the public header.
[ "$(find "$PREFIX/include" -type f | wc -l)" = 1 ] || fail "headers other than framedsp.h installed"

# The README's C example: the first ```c block.
awk '/^```c$/ {on = 1; next} /^```$/ {if (on) exit} on {print}' "$SRC/README.md" >"$WORK/example.c"
[ -s "$WORK/example.c" ] || fail "no C example in README.md"
EXPECTED="Y: MSE 0.0977  PSNR 58.23 dB"

# Runs a program and checks it uses the installed shared library (or none, when static).
run_checked() {  # <binary> <expected line> <shared|static>
  local out
  out=$("$1") || fail "$1 exited with $?"
  grep -qxF "$2" <<<"$out" || fail "$1 printed '$out', expected '$2'"
  local linked
  linked=$(ldd "$1" | grep libframedsp || true)
  if [ "$3" = shared ]; then
    grep -qF "$LIBDIR/libframedsp.so" <<<"$linked" || fail "$1 does not load the installed copy: $linked"
  else
    [ -z "$linked" ] || fail "$1 should not load libframedsp.so: $linked"
    grep -q ' T DspBufferSmartCopy$' <<<"$(nm "$1")" || fail "$1 does not contain the library"
  fi
}

# 1. find_package
"$CMAKE" -S "$SRC/tests/install_consumer" -B "$WORK/cmake-build" -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_PREFIX_PATH="$PREFIX" -DCMAKE_C_COMPILER="$CC" -DCMAKE_CXX_COMPILER="$CXX" \
  -DEXAMPLE_C="$WORK/example.c" >"$WORK/consumer-configure.log" 2>&1 ||
  { cat "$WORK/consumer-configure.log" >&2; fail "consumer configure failed"; }
"$CMAKE" --build "$WORK/cmake-build" -j 2 >"$WORK/consumer-build.log" 2>&1 ||
  { cat "$WORK/consumer-build.log" >&2; fail "consumer build failed"; }
run_checked "$WORK/cmake-build/example_c" "$EXPECTED" shared
run_checked "$WORK/cmake-build/host_cxx" "host ok" shared
run_checked "$WORK/cmake-build/host_cxx_static" "host ok" static
echo "find_package: C example and C++ host (shared, static) built and ran"

# 2. pkg-config
export PKG_CONFIG_PATH=$LIBDIR/pkgconfig
export PKG_CONFIG_LIBDIR=$LIBDIR/pkgconfig  # nothing from the system's own search path
[ "$(pkg-config --modversion framedsp)" != "" ] || fail "pkg-config does not find framedsp"
RPATH="-Wl,-rpath,$LIBDIR"
# shellcheck disable=SC2046
"$CC" -std=c99 -Wall -Wextra -Werror "$WORK/example.c" $(pkg-config --cflags --libs framedsp) "$RPATH" \
  -o "$WORK/pc_example_c" || fail "pkg-config C build failed"
# shellcheck disable=SC2046
"$CXX" -std=c++17 -Wall -Wextra -Werror "$SRC/tests/install_consumer/host.cpp" \
  $(pkg-config --cflags --libs framedsp) "$RPATH" -o "$WORK/pc_host_cxx" || fail "pkg-config C++ build failed"
# Static: the archive itself, then the private libraries pkg-config lists (the C++ runtime among
# them, since a C host links with the C driver).
STATIC_LIBS=$(pkg-config --static --libs framedsp | sed -e 's/-lframedsp\b//' -e 's/-L[^ ]*//g')
# shellcheck disable=SC2046,SC2086
"$CC" -std=c99 -Wall -Wextra -Werror $(pkg-config --static --cflags framedsp) "$WORK/example.c" \
  "$LIBDIR/libframedsp.a" $STATIC_LIBS -o "$WORK/pc_example_c_static" || fail "pkg-config static C build failed"
run_checked "$WORK/pc_example_c" "$EXPECTED" shared
run_checked "$WORK/pc_host_cxx" "host ok" shared
run_checked "$WORK/pc_example_c_static" "$EXPECTED" static
echo "pkg-config: C example (shared, static) and C++ host built and ran"
echo "install test passed"
