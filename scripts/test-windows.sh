#!/usr/bin/env bash
# The Windows registry implementation and the locating routine, cross-built with
# MinGW-w64 and run under Wine against a real registry in a throwaway prefix.
set -euo pipefail
cd "$(dirname "$0")/.."

wine=$(command -v wine64 || true)
[ -n "$wine" ] || [ ! -x /usr/lib/wine/wine64 ] || wine=/usr/lib/wine/wine64
if ! command -v x86_64-w64-mingw32-g++-posix >/dev/null || [ -z "$wine" ]; then
  echo "test-windows: MinGW-w64 or Wine is missing (scripts/setup.sh installs them)" >&2
  exit 1
fi

cmake -S tests/host/win -B build-mingw -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/mingw-w64.cmake" ${CMAKE_CXX_COMPILER_LAUNCHER:+-DCMAKE_CXX_COMPILER_LAUNCHER=$CMAKE_CXX_COMPILER_LAUNCHER} >/dev/null
ninja -C build-mingw interop_windows_tests

# A prefix of our own: the tests rewrite the current user's registry.
export WINEPREFIX="$PWD/build-mingw/wineprefix" WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
status=0
"$wine" build-mingw/interop_windows_tests.exe || status=$?
command -v wineserver >/dev/null && wineserver -w || [ ! -x /usr/lib/wine/wineserver ] || /usr/lib/wine/wineserver -w
exit $status
