#!/usr/bin/env bash
# The quick JavaScript suites (argument table, class, memory, survey) on
# linux-arm64 for real: the prebuilt arm64 add-on in the package layout
# (node_modules/@libvemora/linux-arm64, loaded by index.js), run by the official
# arm64 Node binary under qemu-user. Installs qemu-user-static and
# binfmt-support when missing, and lets the kernel hand arm64 programs to qemu,
# so that the suites' child processes run too. The survey's cases on the
# test-only add-ons (the fake Apple-silicon Mac, the test NVML) are left out:
# those are built for x86-64 only.
#
#   scripts/test-arm64.sh        VEMORA_ARM64_NODE=22.23.3 (Node version)
set -euo pipefail
cd "$(dirname "$0")/.."

sudo=""
[ "$(id -u)" -eq 0 ] || sudo=sudo
if ! command -v qemu-aarch64-static >/dev/null || ! command -v update-binfmts >/dev/null; then
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq qemu-user-static binfmt-support
fi
if ! grep -qx enabled /proc/sys/fs/binfmt_misc/qemu-aarch64 2>/dev/null; then
  [ -e /proc/sys/fs/binfmt_misc/register ] ||
    $sudo mount -t binfmt_misc binfmt_misc /proc/sys/fs/binfmt_misc
  $sudo update-binfmts --enable qemu-aarch64
fi
[ -f prebuilds/linux-arm64/libvemora_bindings.node ] || scripts/prebuild.sh linux-arm64
node_bin=$(scripts/official-node.sh linux-arm64 "${VEMORA_ARM64_NODE:-22.23.3}")

stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
cp package.json index.js index.mjs "$stage/"
mkdir -p "$stage/test" "$stage/node_modules/@libvemora"
cp -r test/js test/harness "$stage/test/"
cp -r prebuilds/linux-arm64 "$stage/node_modules/@libvemora/"
cd "$stage"
# Where qemu finds the arm64 dynamic loader and libraries (Debian's cross libc).
export QEMU_LD_PREFIX=/usr/aarch64-linux-gnu
export VEMORA_TEST_ADDON=$stage/node_modules/@libvemora/linux-arm64/libvemora_bindings.node
"$node_bin/node" -p '`${process.version} ${process.arch} under qemu-user`'
"$node_bin/node" --test --test-skip-pattern='fake platform|Linux GPUs' \
  test/js/arguments.test.js test/js/class.test.js test/js/memory.test.js test/js/survey.test.js
