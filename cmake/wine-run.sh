#!/bin/sh
# Runs a Windows program under Wine, in the prefix scripts/windows.sh set up
# (WINEPREFIX), without Wine's debug chatter. ctest's emulator.
export WINEPREFIX="${WINEPREFIX:-${TMPDIR:-/tmp}/wine-vemora-$(id -u)}"
export WINEDEBUG="${WINEDEBUG:--all}"
exec wine "$@"
