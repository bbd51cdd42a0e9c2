# CMake toolchain file: cross-compile for macOS on Apple silicon from Linux.
# Needs Debian's clang-19 and lld-19, and a sysroot made by darwin-sysroot.sh (see the README):
#   cmake -S . -B build-darwin -G Ninja \
#     -DCMAKE_TOOLCHAIN_FILE=tools/darwin-arm64.cmake \
#     -DDARWIN_SYSROOT=/tmp/darwin/root
# The result is a Mach-O arm64 bundle: it proves the macOS sources compile
# and link; it cannot be run here.
set(DARWIN_ARCH arm64)
include("${CMAKE_CURRENT_LIST_DIR}/darwin.cmake")
