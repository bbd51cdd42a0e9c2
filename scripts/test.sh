#!/usr/bin/env bash
# Runs every test: builds the add-on, the native tests and the test-only
# add-on on the fake platform, then the native tests, the JavaScript tests
# (the packed package among them), the type test and the format check.
set -euo pipefail
cd "$(dirname "$0")/.."

step() { printf '\n== %s\n' "$*"; }

step "build (add-on, native tests, fake-platform add-on)"
# configure explicitly: compile alone keeps an existing build's settings.
./node_modules/.bin/cmake-js configure --CDVEMORA_BUILD_TESTS=ON
./node_modules/.bin/cmake-js build

step "native tests"
ctest --test-dir build --output-on-failure --no-tests=error --timeout 120

step "JavaScript tests"
node --test test/js/*.test.js

step "types"
./node_modules/.bin/tsd --files 'test/types/*.test-d.ts' --files 'test/types/*.test-d.mts'
echo "type test passed"

step "format"
git ls-files -z -- '*.cc' '*.h' '*.mm' | xargs -0 clang-format --dry-run --Werror
echo "all tests passed"
