# Cross build for Windows x86-64 with mingw-w64 (posix thread model), static.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

get_filename_component(lf_repoRoot "${CMAKE_CURRENT_LIST_DIR}/.." ABSOLUTE)
set(WIN_DEPS_PREFIX "${lf_repoRoot}/.cache/win64/prefix" CACHE PATH "cross-built Windows libraries")

set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32 "${WIN_DEPS_PREFIX}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
