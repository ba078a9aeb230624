# Cross build for Windows x86-64 with mingw-w64 (posix thread model), static.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

# Where scripts/build-windows-deps installs the cross-built libraries.
if(DEFINED ENV{ORY_WIN_DEPS})
  set(lf_winDeps "$ENV{ORY_WIN_DEPS}")
elseif(DEFINED ENV{XDG_CACHE_HOME})
  set(lf_winDeps "$ENV{XDG_CACHE_HOME}/trovalyn/win64")
else()
  set(lf_winDeps "$ENV{HOME}/.cache/trovalyn/win64")
endif()
set(WIN_DEPS_PREFIX "${lf_winDeps}/prefix" CACHE PATH "cross-built Windows libraries")

set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32 "${WIN_DEPS_PREFIX}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
