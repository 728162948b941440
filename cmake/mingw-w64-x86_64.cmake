# mingw-w64-x86_64.cmake - CMake toolchain file: cross-compile libnavo for 64-bit Windows with
# MinGW-w64 (Debian/Ubuntu package mingw-w64). Use:
#   cmake -S . -B build/windows -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(NAVO_MINGW_PREFIX x86_64-w64-mingw32 CACHE STRING "Target triplet of the MinGW-w64 tools")

# The POSIX-threads variant (...-posix) is preferred when present, as the C++ parts would need it;
# the library itself is C and links only msvcrt/ucrt and kernel32.
find_program(NAVO_MINGW_CC NAMES ${NAVO_MINGW_PREFIX}-gcc-posix ${NAVO_MINGW_PREFIX}-gcc REQUIRED)
find_program(NAVO_MINGW_CXX NAMES ${NAVO_MINGW_PREFIX}-g++-posix ${NAVO_MINGW_PREFIX}-g++ REQUIRED)
find_program(NAVO_MINGW_RC NAMES ${NAVO_MINGW_PREFIX}-windres)

set(CMAKE_C_COMPILER ${NAVO_MINGW_CC})
set(CMAKE_CXX_COMPILER ${NAVO_MINGW_CXX})
if(NAVO_MINGW_RC)
  set(CMAKE_RC_COMPILER ${NAVO_MINGW_RC})
endif()

# Headers and libraries come from the MinGW sysroot only; programs (cmake's helpers) from the host.
set(CMAKE_FIND_ROOT_PATH /usr/${NAVO_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Run cross-built programs (try_run, ctest) through wine when it is installed.
find_program(NAVO_WINE NAMES wine64 wine)
if(NAVO_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${NAVO_WINE})
endif()
