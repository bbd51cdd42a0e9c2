#!/usr/bin/env bash
# Installs, when missing, the Debian packages that the prebuilt add-ons and
# their tests need: the aarch64 cross compiler and qemu-user for linux-arm64,
# MinGW-w64 for win32-x64 (Wine, for its tests, comes with scripts/windows.sh),
# and, where the macOS sysroot exists (VEMORA_DARWIN_SYSROOT, default
# /tmp/darwin/root), clang-19, lld-19 and llvm-19 for darwin. The sysroot
# itself cannot be made here: see the README.
set -euo pipefail
need=()
command -v aarch64-linux-gnu-g++ >/dev/null || need+=(g++-aarch64-linux-gnu)
command -v qemu-aarch64-static >/dev/null || need+=(qemu-user-static)
command -v update-binfmts >/dev/null || need+=(binfmt-support)
command -v x86_64-w64-mingw32-g++-posix >/dev/null ||
  need+=(g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix)
if [ -d "${VEMORA_DARWIN_SYSROOT:-/tmp/darwin/root}" ]; then
  command -v clang-19 >/dev/null || need+=(clang-19)
  command -v ld64.lld-19 >/dev/null || need+=(lld-19)
  command -v llvm-nm-19 >/dev/null || need+=(llvm-19)
  command -v file >/dev/null || need+=(file)
fi
[ ${#need[@]} -gt 0 ] || exit 0
sudo=""
[ "$(id -u)" -eq 0 ] || sudo=sudo
echo "installing ${need[*]}"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${need[@]}"
