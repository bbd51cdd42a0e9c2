#!/bin/sh
# Runs a Windows program under Wine, without Wine's debug chatter, in the
# prefix scripts/windows.sh sets up (WINEPREFIX, by default build-win/wine).
# ctest's emulator for the cross-built tests.
export WINEPREFIX="${WINEPREFIX:-$(cd "$(dirname "$0")/.." && pwd)/build-win/wine}"
export WINEDEBUG="${WINEDEBUG:--all}"
exec wine "$@"
