#!/usr/bin/env bash
# Runs every test: builds the add-on, the native tests, the test-only add-on
# on the fake platform and the benchmarks, then the native tests, the
# JavaScript tests, a short run of the benchmark and the format check.
set -euo pipefail
cd "$(dirname "$0")/.."

step() { printf '\n== %s\n' "$*"; }

step "build (add-on, native tests, fake-platform add-on, benchmarks)"
# Configured every time: `cmake-js compile` would keep the cache that
# `npm install` left, configured without the tests.
./node_modules/.bin/cmake-js configure --CDVEMORA_BUILD_TESTS=ON --CDVEMORA_BUILD_BENCH=ON
./node_modules/.bin/cmake-js build --parallel 2

step "native tests"
ctest --test-dir build --output-on-failure --timeout 120

step "JavaScript tests"
node --test test/js/*.test.js

step "benchmark, short run (the table and the targets; nothing about time is asserted)"
BENCH_ITERATIONS=300 BENCH_MEMORY_CALLS=2000 BENCH_PEER_ITERATIONS=1 node bench/run.js

step "format"
git ls-files -z -- '*.cc' '*.h' '*.mm' | xargs -0 clang-format --dry-run --Werror
echo "all tests passed"
