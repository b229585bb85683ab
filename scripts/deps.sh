#!/usr/bin/env bash
# Installs what building and testing framedsp needs, when it is missing (Debian packages).
# Quiet when everything is present.  Optional extras are tried but never required; name them in
# FRAMEDSP_OPTIONAL_DEPS, e.g. "g++-mingw-w64-i686" (the 32-bit Windows DLL, `make windows`),
# "wine wine32:i386" (running its smoke test), "g++-mingw-w64-x86-64-posix wine64" (the 64-bit
# DLL, its test suite and the CLI, built and run under Wine: `make windows64 windows-test`),
# "libyuv-dev" (peer benchmarks).
set -u
need=()
have_pkg() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q 'install ok installed'; }
command -v cmake >/dev/null 2>&1 || need+=(cmake)
command -v g++ >/dev/null 2>&1 || need+=(g++)
command -v nm >/dev/null 2>&1 || need+=(binutils)
for p in libgtest-dev libgmock-dev libbenchmark-dev libpng-dev pkg-config; do
  have_pkg "$p" || need+=("$p")
done
optional=()
for p in ${FRAMEDSP_OPTIONAL_DEPS:-}; do
  have_pkg "$p" || optional+=("$p")
done
if [ ${#need[@]} -eq 0 ] && [ ${#optional[@]} -eq 0 ]; then exit 0; fi
if ! command -v apt-get >/dev/null 2>&1; then
  [ ${#need[@]} -eq 0 ] && exit 0
  echo "deps: missing ${need[*]} and no apt-get here; install them by hand" >&2
  exit 1
fi
SUDO=""
if [ "$(id -u)" != 0 ]; then SUDO="sudo"; fi
echo "deps: installing ${need[*]} ${optional[*]}" >&2
# 32-bit packages (wine32:i386 for running the Windows DLL's smoke test) need the i386 architecture.
case " ${optional[*]} " in
  *:i386*) dpkg --print-foreign-architectures | grep -qx i386 || $SUDO dpkg --add-architecture i386 ;;
esac
$SUDO apt-get update -qq >/dev/null 2>&1 || true
if [ ${#need[@]} -gt 0 ]; then
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${need[@]}" >/dev/null || {
    echo "deps: could not install ${need[*]}" >&2
    exit 1
  }
fi
if [ ${#optional[@]} -gt 0 ]; then
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${optional[@]}" >/dev/null 2>&1 ||
    echo "deps: optional ${optional[*]} not installed (continuing)" >&2
fi
exit 0
