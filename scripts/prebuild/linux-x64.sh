#!/usr/bin/env bash
# linux-x64: built here, for glibc 2.28 and later (CMake option VEMORA_PORTABLE).
#   scripts/prebuild/linux-x64.sh <output .node file>      exit 3: not buildable here
set -euo pipefail
[ "$(uname -sm)" = "Linux x86_64" ] || { echo "linux-x64 is built on Linux x86-64"; exit 3; }
./node_modules/.bin/cmake-js compile -O build-linux-x64 -p 2 --CDVEMORA_PORTABLE=ON
cp build-linux-x64/Release/libvemora_bindings.node "$1"
