# Cross-compilation to 64-bit Windows with MinGW-w64 (Debian g++-mingw-w64-x86-64-posix: the
# POSIX thread model, which libgomp needs for OpenMP).
#   cmake -S . -B build/windows -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(VELKOR_MINGW_PREFIX x86_64-w64-mingw32)
find_program(CMAKE_C_COMPILER NAMES ${VELKOR_MINGW_PREFIX}-gcc-posix ${VELKOR_MINGW_PREFIX}-gcc REQUIRED)
find_program(CMAKE_CXX_COMPILER NAMES ${VELKOR_MINGW_PREFIX}-g++-posix ${VELKOR_MINGW_PREFIX}-g++ REQUIRED)
find_program(CMAKE_RC_COMPILER NAMES ${VELKOR_MINGW_PREFIX}-windres)
find_program(CMAKE_OBJDUMP NAMES ${VELKOR_MINGW_PREFIX}-objdump)

set(CMAKE_FIND_ROOT_PATH /usr/${VELKOR_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)

# Boost.Math is header-only and platform-neutral: the host's copy serves the cross build. It is
# reached through a directory holding only a link to /usr/include/boost, so that none of the
# host's C library headers in /usr/include can shadow the MinGW ones.
if(NOT VELKOR_BOOST_INCLUDE AND EXISTS /usr/include/boost/math/distributions/normal.hpp)
  set(_velkor_boost_dir ${CMAKE_BINARY_DIR}/boost-include)
  if(NOT EXISTS ${_velkor_boost_dir}/boost)
    file(MAKE_DIRECTORY ${_velkor_boost_dir})
    file(CREATE_LINK /usr/include/boost ${_velkor_boost_dir}/boost SYMBOLIC)
  endif()
  set(VELKOR_BOOST_INCLUDE ${_velkor_boost_dir} CACHE PATH "Boost headers (header-only use)")
endif()

# Programs built for Windows run on this machine under Wine.
find_program(VELKOR_WINE NAMES wine64 wine)
if(VELKOR_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${VELKOR_WINE})
endif()
