# Cross-compiles the 64-bit Windows DLL, its tests and the command-line tool with Debian's
# mingw-w64 (g++-mingw-w64-x86-64-posix).
#   cmake -S . -B build-win64 -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-x86_64.cmake
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(FRAMEDSP_MINGW_PREFIX x86_64-w64-mingw32 CACHE STRING "mingw-w64 tool prefix")
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)

# Debian's wine64 package puts the loader beside its libraries, not on PATH.
find_program(FRAMEDSP_WINE NAMES wine64 PATHS /usr/lib/wine NO_DEFAULT_PATH)
find_program(FRAMEDSP_WINE NAMES wine64)
if(FRAMEDSP_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${FRAMEDSP_WINE})
endif()
