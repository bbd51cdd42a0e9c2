# CMake toolchain file: cross-compile for Linux on 64-bit ARM (aarch64, glibc) from Linux x86-64
# with Debian's g++-aarch64-linux-gnu:
#   npx cmake-js compile -O build-linux-arm64 --CDCMAKE_TOOLCHAIN_FILE=$PWD/tools/linux-aarch64.cmake
# Programs built with it run here under qemu-user (qemu-user-static).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_CROSSCOMPILING_EMULATOR /usr/bin/qemu-aarch64-static -L /usr/aarch64-linux-gnu)
