#!/usr/bin/env bash
# Runs test/harness/leak-loop.js (every VemoraCore method on its success and
# error paths, thousands of times, then a few workers) under valgrind's
# memcheck on a RelWithDebInfo build of the add-on, and fails on any memory
# error and on any definitely or indirectly lost block.
#
#   VEMORA_LEAK_LOOP_CALLS=2000   rounds of calls
set -euo pipefail
cd "$(dirname "$0")/.."

out=build-valgrind
./node_modules/.bin/cmake-js configure -O "$out" -B RelWithDebInfo -p 2
./node_modules/.bin/cmake-js build -O "$out" -B RelWithDebInfo -p 2
addon=$PWD/$out/RelWithDebInfo/libvemora_bindings.node
log=$PWD/$out/memcheck.log

printf '\n== leak loop under valgrind memcheck\n'
# --jitless: V8's generated code confuses memcheck's counts and triples the time.
status=0
CALLS=${VEMORA_LEAK_LOOP_CALLS:-2000} VEMORA_TEST_ADDON=$addon \
  valgrind --tool=memcheck --leak-check=full --show-leak-kinds=definite,indirect \
  --errors-for-leak-kinds=definite,indirect --error-exitcode=99 --num-callers=30 \
  --log-file="$log" node --jitless test/harness/leak-loop.js 2>"$out/leak-loop.stderr" ||
  status=$?
grep -E 'definitely lost:|indirectly lost:|ERROR SUMMARY' "$log"
if [ "$status" -ne 0 ]; then
  cat "$log" >&2
  tail -20 "$out/leak-loop.stderr" >&2
  echo "valgrind: leak loop failed with status $status (log: $log)" >&2
  exit 1
fi
echo "valgrind found nothing"
