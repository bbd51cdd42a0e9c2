# Cross-builds the Windows x64 add-on and its tests with Debian's MinGW-w64
# (g++-mingw-w64-x86-64-posix); the tests run under Wine through
# cmake/wine-run.sh, which ctest uses as the emulator.
#   cmake-js configure --CDCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR AMD64)

set(VEMORA_MINGW_PREFIX x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${VEMORA_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${VEMORA_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER ${VEMORA_MINGW_PREFIX}-windres)
set(CMAKE_DLLTOOL ${VEMORA_MINGW_PREFIX}-dlltool)

set(CMAKE_FIND_ROOT_PATH /usr/${VEMORA_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Test programs link MinGW's runtime in, so Wine needs no MinGW DLL.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/wine-run.sh)
