#!/usr/bin/env bash
# Cross-builds the macOS add-on (a Mach-O bundle) from Linux for one
# architecture, to prove that every darwin source compiles and links with
# warnings as errors; the result is what the darwin prebuilt packages ship.
#
#   scripts/build-darwin.sh <sysroot> [build dir] [arm64|x86_64]    (default: build-darwin, arm64)
#
# <sysroot> is the root that darwin-sysroot.sh made (for example
# /tmp/darwin/root). Needs clang-19, lld-19 and llvm-19 from Debian. The
# toolchain file is tools/darwin-<arch>.cmake (VEMORA_DARWIN_TOOLCHAIN
# overrides it).
set -euo pipefail
sysroot=${1:?usage: scripts/build-darwin.sh <darwin sysroot> [build dir] [arm64|x86_64]}
out=${2:-build-darwin}
arch=${3:-arm64}
cd "$(dirname "$0")/.."
case "$arch" in
  arm64 | x86_64) ;;
  *) echo "no macOS build for architecture $arch (arm64 or x86_64)" >&2; exit 1 ;;
esac
toolchain=${VEMORA_DARWIN_TOOLCHAIN:-$PWD/tools/darwin-$arch.cmake}
[ -f "$toolchain" ] || { echo "no toolchain file at $toolchain" >&2; exit 1; }
./node_modules/.bin/cmake-js compile -O "$out" -p 2 \
  --CDCMAKE_TOOLCHAIN_FILE="$toolchain" --CDDARWIN_SYSROOT="$(cd "$sysroot" && pwd)"
addon="$out/Release/libvemora_bindings.node"
file "$addon"
file "$addon" | grep -q "Mach-O 64-bit $arch bundle" || { echo "not a Mach-O $arch bundle" >&2; exit 1; }
# macOS on Apple silicon refuses code without a signature; the linker signs ad hoc.
if [ "$arch" = arm64 ] && ! llvm-objdump-19 --macho --private-headers "$addon" | grep -q 'cmd LC_CODE_SIGNATURE$'; then
  echo "the darwin arm64 bundle is not signed" >&2
  exit 1
fi
# The bundle links with -undefined dynamic_lookup, so a platform reading
# missing from the darwin sources would only fail when macOS loads it.
missing=$(llvm-nm-19 -u "$addon" | grep -E 'vemora|formatBytes|_Mac' || true)
if [ -n "$missing" ]; then
  echo "undefined project symbols in the darwin $arch bundle:" >&2
  echo "$missing" >&2
  exit 1
fi
echo "darwin $arch bundle OK: $addon"
