#!/usr/bin/env bash
# Places the prebuilt add-ons that `npm pack` ships into prebuilds/, in the
# layout node-gyp-build loads from (prebuilds/<platform>-<arch>/):
#   linux-x64     built here (glibc)
#   darwin-arm64  cross-built with scripts/build-darwin.sh, when the macOS
#                 sysroot and toolchain are there; skipped otherwise
#   win32-x64     cross-built with MinGW-w64 by scripts/prebuild-windows.sh,
#                 when it is installed; skipped otherwise
#
#   scripts/prebuild.sh [darwin sysroot]     (default: $VEMORA_DARWIN_SYSROOT or /tmp/darwin/root)
#
# npm runs it before `npm pack` and `npm publish` (the prepack script).
set -euo pipefail
export CMAKE_BUILD_PARALLEL_LEVEL=${CMAKE_BUILD_PARALLEL_LEVEL:-2}
cd "$(dirname "$0")/.."

# The tags after the name tell node-gyp-build the binary is Node-API (any Node
# or Electron version) and, on Linux, linked against glibc (not musl).
linux_name=libvemora_bindings.napi.glibc.node
darwin_name=libvemora_bindings.napi.node

rm -rf prebuilds
mkdir -p prebuilds

if [ "$(uname -s)-$(uname -m)" = "Linux-x86_64" ]; then
  ./node_modules/.bin/cmake-js compile -O build-linux -p 2 >&2
  mkdir -p prebuilds/linux-x64
  cp build-linux/Release/libvemora_bindings.node "prebuilds/linux-x64/$linux_name"
  echo "prebuild: prebuilds/linux-x64/$linux_name" >&2
else
  echo "prebuild: not on Linux x86_64, no linux-x64 prebuild" >&2
fi

sysroot=${1:-${VEMORA_DARWIN_SYSROOT:-/tmp/darwin/root}}
toolchain=${VEMORA_DARWIN_TOOLCHAIN:-$(cd ../shared/tools 2>/dev/null && pwd || true)/darwin-arm64.cmake}
missing=()
[ -d "$sysroot" ] || missing+=("macOS sysroot $sysroot")
[ -f "$toolchain" ] || missing+=("toolchain file darwin-arm64.cmake (set VEMORA_DARWIN_TOOLCHAIN)")
command -v clang-19 >/dev/null || missing+=("clang-19")
if [ ${#missing[@]} -eq 0 ]; then
  VEMORA_DARWIN_TOOLCHAIN="$toolchain" scripts/build-darwin.sh "$sysroot" build-darwin >&2
  mkdir -p prebuilds/darwin-arm64
  cp build-darwin/Release/libvemora_bindings.node "prebuilds/darwin-arm64/$darwin_name"
  echo "prebuild: prebuilds/darwin-arm64/$darwin_name" >&2
else
  echo "prebuild: no darwin-arm64 prebuild, missing: $(IFS=,; echo "${missing[*]}")" >&2
fi

if command -v x86_64-w64-mingw32-g++-posix >/dev/null; then
  scripts/prebuild-windows.sh
else
  echo "prebuild: no win32-x64 prebuild, missing: x86_64-w64-mingw32-g++-posix" >&2
fi
