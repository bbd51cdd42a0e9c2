#!/usr/bin/env bash
# Builds the add-on, the fake-platform add-on and the native tests with
# AddressSanitizer and UndefinedBehaviorSanitizer (GCC, Debug) in build-asan,
# then runs the native tests and the JavaScript suite against those builds.
# Any report fails the run: UBSan does not recover, LeakSanitizer checks at
# every process exit, and every report is also written to a file, so one made
# while a test captured the standard error stream, or in a child process whose
# exit status nobody checked, still counts.
set -euo pipefail
cd "$(dirname "$0")/.."

out=build-asan
# configure, then build: compile would ignore the options once $out exists.
./node_modules/.bin/cmake-js configure -O "$out" -D -p 2 \
  --CDVEMORA_SANITIZE=ON --CDVEMORA_BUILD_TESTS=ON
./node_modules/.bin/cmake-js build -O "$out" -D -p 2

addon=$PWD/$out/Debug/libvemora_bindings.node
fake_addon=$PWD/$out/fake-platform/libvemora_bindings.node
gpu_fake_addon=$PWD/$out/gpu-fake/libvemora_bindings.node
# A build that lost its flags would pass everything below without checking.
for module in "$addon" "$fake_addon" "$gpu_fake_addon"; do
  ldd "$module" | grep libasan >/dev/null || { echo "$module is not built with ASan" >&2; exit 1; }
done

reports=$PWD/$out/sanitizer-reports
rm -rf "$reports"
mkdir -p "$reports"
export ASAN_OPTIONS=log_path=$reports/asan
export UBSAN_OPTIONS=print_stacktrace=1:log_path=$reports/ubsan

status=0
printf '\n== native tests (ASan, UBSan)\n'
ctest --test-dir "$out" --output-on-failure --timeout 300 || status=1

printf '\n== JavaScript tests (ASan, UBSan)\n'
# node itself is not instrumented, so the ASan runtime must be loaded first;
# the preload carries into the child processes the tests start.
# The package and CLI tests load the package's own build and run npm, the
# compiler and tsd, and the prebuilt-binary test runs readelf, none of which
# are ours to check (and V8's shutdown leaks under LeakSanitizer when npm exits
# early); they run in the plain suite.
mapfile -t suites < <(ls test/js/*.test.js | grep -vE '/(package|cli|prebuilds)\.test\.js$')
LD_PRELOAD=$(g++ -print-file-name=libasan.so) \
  VEMORA_TEST_ADDON=$addon VEMORA_TEST_FAKE_ADDON=$fake_addon VEMORA_TEST_GPU_FAKE_ADDON=$gpu_fake_addon \
  node --test "${suites[@]}" || status=1

found=0
for report in "$reports"/*; do
  [ -e "$report" ] || continue
  printf '\n== %s\n' "$report" >&2
  head -60 "$report" >&2
  found=$((found + 1))
done
if [ "$found" -gt 0 ]; then
  echo "sanitizer reports: $found, in $reports" >&2
  status=1
fi
[ "$status" -eq 0 ] && echo "sanitizers found nothing"
exit "$status"
