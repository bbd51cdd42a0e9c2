# CMake toolchain file: cross-compile for macOS on Intel (x86_64) from Linux.
# Needs Debian's clang-19 and lld-19, and a sysroot made by darwin-sysroot.sh (see the README):
#   cmake -S . -B build-darwin -G Ninja \
#     -DCMAKE_TOOLCHAIN_FILE=tools/darwin-x86_64.cmake \
#     -DDARWIN_SYSROOT=/tmp/darwin/root
# The result is a Mach-O x86_64 bundle: it proves the macOS sources compile
# and link; it cannot be run here.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_OSX_ARCHITECTURES x86_64)
set(CMAKE_OSX_DEPLOYMENT_TARGET 13.0)
if(NOT DARWIN_SYSROOT)
  set(DARWIN_SYSROOT "$ENV{DARWIN_SYSROOT}")
endif()
if(NOT DARWIN_SYSROOT)
  message(FATAL_ERROR "Set DARWIN_SYSROOT to the root made by darwin-sysroot.sh")
endif()
# try_compile projects see the same sysroot.
set(ENV{DARWIN_SYSROOT} "${DARWIN_SYSROOT}")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES DARWIN_SYSROOT)
set(CMAKE_SYSROOT "${DARWIN_SYSROOT}")
set(CMAKE_OSX_SYSROOT "${DARWIN_SYSROOT}")
set(triple x86_64-apple-macos13.0)
foreach(lang C CXX OBJC OBJCXX)
  set(CMAKE_${lang}_COMPILER_TARGET ${triple})
endforeach()
set(CMAKE_C_COMPILER clang-19)
set(CMAKE_CXX_COMPILER clang++-19)
set(CMAKE_OBJC_COMPILER clang-19)
set(CMAKE_OBJCXX_COMPILER clang++-19)
set(CMAKE_AR llvm-ar-19 CACHE FILEPATH "")
set(CMAKE_RANLIB llvm-ranlib-19 CACHE FILEPATH "")
set(CMAKE_INSTALL_NAME_TOOL llvm-install-name-tool-19 CACHE FILEPATH "")
set(CMAKE_LINKER_TYPE LLD)
add_link_options(-fuse-ld=lld)
set(CMAKE_FIND_ROOT_PATH "${DARWIN_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# Frameworks live in the sysroot: -framework Metal etc. resolve there.
set(CMAKE_FRAMEWORK_PATH "${DARWIN_SYSROOT}/System/Library/Frameworks")
