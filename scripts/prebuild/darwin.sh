#!/usr/bin/env bash
# darwin-arm64 and darwin-x64: cross-built with clang-19 and lld-19 against the
# macOS sysroot (VEMORA_DARWIN_SYSROOT, default /tmp/darwin/root; see the README).
#   scripts/prebuild/darwin.sh <arm64|x86_64> <output .node file>    exit 3: not buildable here
set -euo pipefail
arch=$1
sysroot=${VEMORA_DARWIN_SYSROOT:-/tmp/darwin/root}
[ -d "$sysroot" ] || { echo "darwin needs the macOS sysroot $sysroot (VEMORA_DARWIN_SYSROOT)"; exit 3; }
for tool in clang-19 ld64.lld-19 llvm-nm-19 llvm-objdump-19; do
  command -v "$tool" >/dev/null || { echo "darwin needs $tool (Debian: clang-19 lld-19 llvm-19)"; exit 3; }
done
scripts/build-darwin.sh "$sysroot" "build-darwin-$arch" "$arch"
cp "build-darwin-$arch/Release/libvemora_bindings.node" "$2"
