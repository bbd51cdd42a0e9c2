#!/usr/bin/env bash
# Runs every test: builds the add-on, the native tests, the test-only add-on
# on the fake platform and the benchmarks, then the native tests (with the
# fixture trees); builds and packs every prebuilt add-on this machine can
# (installing the cross tools when missing); runs the JavaScript tests,
# installs the packed packages (each Linux binary's glibc floor checked) with
# no compiler on the PATH and builds from source without them,
# tests the win32-x64 add-on under Wine, runs the quick suites on linux-arm64
# under qemu-user and the suite on the
# oldest and newest Node major; then the type test, a short run of the
# benchmark and the format check; then the same suites under ASan and UBSan,
# the parsers' fuzzers for a bounded time, and the leak loop under valgrind.
# Prints how long each step took.
set -euo pipefail
cd "$(dirname "$0")/.."

timings=()
step() {
  local name=$1 start=$SECONDS
  shift
  printf '\n== %s\n' "$name"
  "$@"
  timings+=("$(printf '%5ss  %s' $((SECONDS - start)) "$name")")
}

build() {
  # compile alone would keep the cache that `npm run build` configured without
  # the tests, and ctest would then find nothing to run.
  ./node_modules/.bin/cmake-js configure -p 2 --CDVEMORA_BUILD_TESTS=ON --CDVEMORA_BUILD_BENCH=ON
  ./node_modules/.bin/cmake-js build -p 2
}

# A few hundred iterations: the table and the targets are printed; nothing
# about time is asserted.
bench_smoke() {
  BENCH_ITERATIONS=300 BENCH_MEMORY_CALLS=2000 BENCH_PEER_ITERATIONS=1 node bench/run.js
}

# The tarballs of scripts/pack.sh, which the package test installs.
packages() {
  scripts/cross-tools.sh
  scripts/pack.sh build-packages
}

step "build (add-on, native tests, fake-platform add-on, benchmarks)" build
step "native tests" ctest --test-dir build --output-on-failure --timeout 120 --no-tests=error
step "prebuilt add-ons, packed" packages
mapfile -t js_suites < <(ls test/js/*.test.js | grep -v '/package\.test\.js$')
step "JavaScript tests" node --test "${js_suites[@]}"
step "package: installed with no compiler, built from source" \
  env VEMORA_PACKAGES="$PWD/build-packages" node --test test/js/package.test.js
step "linux-arm64 under qemu-user (quick suites)" scripts/test-arm64.sh
step "oldest and newest Node major" scripts/test-node-versions.sh
step "Windows x64 under Wine" scripts/windows.sh
step "types" ./node_modules/.bin/tsd --files 'test/types/*.test-d.ts' --files 'test/types/*.test-d.mts'
step "benchmark, short run" bench_smoke
step "format" bash -c "git ls-files -z -- '*.cc' '*.h' '*.mm' | xargs -0 clang-format --dry-run --Werror"
step "sanitizers (ASan, UBSan)" scripts/sanitize.sh
step "fuzzing (${VEMORA_FUZZ_SECONDS:-60} s per target)" scripts/fuzz.sh
step "valgrind" scripts/valgrind.sh

printf '\n== time per step\n'
printf '%s\n' "${timings[@]}"
echo "all tests passed"
