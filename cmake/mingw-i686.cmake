# Cross-compiles the 32-bit Windows DLL with Debian's mingw-w64 (g++-mingw-w64-i686).
#   cmake -S . -B build-win32 -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-i686.cmake
set(CMAKE_SYSTEM_PROCESSOR i686)
set(FRAMEDSP_MINGW_PREFIX i686-w64-mingw32 CACHE STRING "mingw-w64 tool prefix")
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)

# Wine runs the cross-built programs when it is installed.
find_program(FRAMEDSP_WINE NAMES wine)
if(FRAMEDSP_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${FRAMEDSP_WINE})
endif()
