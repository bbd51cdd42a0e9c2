#!/usr/bin/env bash
# win32-x64: cross-built with Debian's MinGW-w64, its C and C++ runtime linked
# in, Node-API found through a delay-load import library for node.exe.
#   scripts/prebuild/win32-x64.sh <output .node file>      exit 3: not buildable here
set -euo pipefail
command -v x86_64-w64-mingw32-g++-posix >/dev/null ||
  { echo "win32-x64 needs x86_64-w64-mingw32-g++-posix (Debian: g++-mingw-w64-x86-64-posix)"; exit 3; }
./node_modules/.bin/cmake-js configure -O build-win -p 2 \
  --CDCMAKE_TOOLCHAIN_FILE="$PWD/cmake/mingw-w64-x86_64.cmake"
./node_modules/.bin/cmake-js build -O build-win -p 2 --target libvemora_bindings
cp build-win/Release/libvemora_bindings.node "$1"
