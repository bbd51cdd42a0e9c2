#!/usr/bin/env bash
# linux-arm64: cross-built with Debian's g++-aarch64-linux-gnu, for glibc 2.28
# and later (CMake option VEMORA_PORTABLE).
#   scripts/prebuild/linux-arm64.sh <output .node file>    exit 3: not buildable here
set -euo pipefail
command -v aarch64-linux-gnu-g++ >/dev/null ||
  { echo "linux-arm64 needs aarch64-linux-gnu-g++ (Debian: g++-aarch64-linux-gnu)"; exit 3; }
./node_modules/.bin/cmake-js compile -O build-linux-arm64 -p 2 --CDVEMORA_PORTABLE=ON \
  --CDCMAKE_TOOLCHAIN_FILE="$PWD/tools/linux-aarch64.cmake"
cp build-linux-arm64/Release/libvemora_bindings.node "$1"
