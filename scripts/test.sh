#!/usr/bin/env bash
# Runs every test: builds the add-on, the native tests, the test-only add-on
# on the fake platform and the benchmarks, then the native tests (with the
# fixture trees), the JavaScript tests (the packed package among them), the
# Windows add-on cross-built and tested under Wine, the type test, a short run
# of the benchmark and the format check; then the same suites under ASan and
# UBSan, the parsers' fuzzers for a bounded time, and the leak loop under
# valgrind. Prints how long each step took.
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
  # compile alone would keep the cache that `npm install` configured without
  # the tests, and ctest would then find nothing to run.
  ./node_modules/.bin/cmake-js configure -p 2 --CDVEMORA_BUILD_TESTS=ON --CDVEMORA_BUILD_BENCH=ON
  ./node_modules/.bin/cmake-js build -p 2
}

# A few hundred iterations: the table and the targets are printed; nothing
# about time is asserted.
bench_smoke() {
  BENCH_ITERATIONS=300 BENCH_MEMORY_CALLS=2000 BENCH_PEER_ITERATIONS=1 node bench/run.js
}

step "build (add-on, native tests, fake-platform add-on, benchmarks)" build
step "native tests" ctest --test-dir build --output-on-failure --timeout 120 --no-tests=error
step "JavaScript tests" node --test test/js/*.test.js
step "Windows x64 under Wine" scripts/windows.sh
step "types" ./node_modules/.bin/tsd --files 'test/types/*.test-d.ts' --files 'test/types/*.test-d.mts'
step "benchmark, short run" bench_smoke
step "format" bash -c "git ls-files -z -- '*.cc' '*.h' '*.mm' | xargs -0 clang-format --dry-run --Werror"
step "sanitizers (ASan, UBSan)" scripts/sanitize.sh
step "fuzzing (${VEMORA_FUZZ_SECONDS:-20} s per target)" scripts/fuzz.sh
step "valgrind" scripts/valgrind.sh

printf '\n== time per step\n'
printf '%s\n' "${timings[@]}"
echo "all tests passed"
