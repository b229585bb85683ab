# Cross-compiles the 32-bit Windows DLL with Debian's mingw-w64 (g++-mingw-w64-i686).
#   cmake -S . -B build-win32 -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-i686.cmake
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR i686)

set(FRAMEDSP_MINGW_PREFIX i686-w64-mingw32 CACHE STRING "mingw-w64 tool prefix")
# The POSIX-thread variant of the compiler provides std::thread and std::mutex.
find_program(CMAKE_C_COMPILER NAMES ${FRAMEDSP_MINGW_PREFIX}-gcc-posix ${FRAMEDSP_MINGW_PREFIX}-gcc REQUIRED)
find_program(CMAKE_CXX_COMPILER NAMES ${FRAMEDSP_MINGW_PREFIX}-g++-posix ${FRAMEDSP_MINGW_PREFIX}-g++ REQUIRED)
find_program(CMAKE_RC_COMPILER NAMES ${FRAMEDSP_MINGW_PREFIX}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${FRAMEDSP_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Wine runs the cross-built programs when it is installed.
find_program(FRAMEDSP_WINE NAMES wine)
if(FRAMEDSP_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${FRAMEDSP_WINE})
endif()

# Writes the import library from cmake/framedsp-stdcall.def.
find_program(FRAMEDSP_DLLTOOL NAMES ${FRAMEDSP_MINGW_PREFIX}-dlltool REQUIRED)
