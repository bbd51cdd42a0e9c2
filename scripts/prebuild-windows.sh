#!/usr/bin/env bash
# Cross-builds the win32-x64 add-on with Debian's MinGW-w64 and places it where
# node-gyp-build looks for it: prebuilds/win32-x64/libvemora_bindings.napi.node
# (any Node or Electron version: Node-API). Needs g++-mingw-w64-x86-64-posix.
#
#   scripts/prebuild-windows.sh [build dir]     (default: build-win)
set -euo pipefail
cd "$(dirname "$0")/.."
out=${1:-build-win}
export CMAKE_BUILD_PARALLEL_LEVEL=${CMAKE_BUILD_PARALLEL_LEVEL:-2}

command -v x86_64-w64-mingw32-g++-posix >/dev/null ||
  { echo "prebuild-windows: x86_64-w64-mingw32-g++-posix missing (g++-mingw-w64-x86-64-posix)" >&2; exit 1; }
./node_modules/.bin/cmake-js configure -O "$out" \
  --CDCMAKE_TOOLCHAIN_FILE="$PWD/cmake/mingw-w64-x86_64.cmake" >&2
./node_modules/.bin/cmake-js build -O "$out" --target libvemora_bindings >&2
mkdir -p prebuilds/win32-x64
cp "$out/Release/libvemora_bindings.node" prebuilds/win32-x64/libvemora_bindings.napi.node
echo "prebuild: prebuilds/win32-x64/libvemora_bindings.napi.node" >&2
