#!/usr/bin/env bash
# Cross-builds the macOS arm64 add-on (a Mach-O bundle) from Linux, to prove
# that every darwin source compiles and links with warnings as errors.
#
#   scripts/build-darwin.sh <sysroot> [build dir]
#
# <sysroot> is the root that darwin-sysroot.sh made (for example
# /tmp/darwin/root). Needs clang-19, lld-19 and llvm-19 from Debian.
set -euo pipefail
sysroot=${1:?usage: scripts/build-darwin.sh <darwin sysroot> [build dir]}
out=${2:-build-darwin}
cd "$(dirname "$0")/.."
toolchain=${VEMORA_DARWIN_TOOLCHAIN:-$(cd ../shared/tools 2>/dev/null && pwd)/darwin-arm64.cmake}
[ -f "$toolchain" ] || { echo "no darwin-arm64.cmake toolchain at $toolchain" >&2; exit 1; }
./node_modules/.bin/cmake-js compile -O "$out" \
  --CDCMAKE_TOOLCHAIN_FILE="$toolchain" --CDDARWIN_SYSROOT="$(cd "$sysroot" && pwd)"
addon="$out/Release/libvemora_bindings.node"
file "$addon"
file "$addon" | grep -q 'Mach-O 64-bit arm64' || { echo "not a Mach-O arm64 bundle" >&2; exit 1; }
# The bundle links with -undefined dynamic_lookup, so a platform reading
# missing from the darwin sources would only fail when macOS loads it.
missing=$(llvm-nm-19 -u "$addon" | grep -E 'vemora|formatBytes|_Mac' || true)
if [ -n "$missing" ]; then
  echo "undefined project symbols in the darwin bundle:" >&2
  echo "$missing" >&2
  exit 1
fi
echo "darwin bundle OK: $addon"
