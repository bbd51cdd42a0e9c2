# CMake toolchain file: cross-compile for macOS on Intel (x86_64) from Linux.
# Needs Debian's clang-19 and lld-19, and a sysroot made by darwin-sysroot.sh (see the README):
#   cmake -S . -B build-darwin -G Ninja \
#     -DCMAKE_TOOLCHAIN_FILE=tools/darwin-x86_64.cmake \
#     -DDARWIN_SYSROOT=/tmp/darwin/root
# The result is a Mach-O x86_64 bundle: it proves the macOS sources compile
# and link; it cannot be run here.
set(DARWIN_ARCH x86_64)
include("${CMAKE_CURRENT_LIST_DIR}/darwin.cmake")
