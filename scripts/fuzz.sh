#!/usr/bin/env bash
# Builds the libFuzzer targets of the Linux parsers (test/fuzz/fuzz_*.cc) with
# clang-19, ASan and UBSan, and runs each for a bounded time from its seeds in
# test/fuzz/corpus/<name>/. Fails when any target crashes, reports or breaks
# one of its properties; the input that did it is kept in the artifacts folder.
#
#   scripts/fuzz.sh [target ...]        (default: every target)
#   VEMORA_FUZZ_SECONDS=60              time per target
#   VEMORA_FUZZ_ARTIFACTS=build-fuzz/artifacts
#
# Replay a saved input: build-fuzz/test/fuzz/fuzz_<name> <artifact file>
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${VEMORA_FUZZ_SECONDS:-60}
out=build-fuzz
artifacts=${VEMORA_FUZZ_ARTIFACTS:-$out/artifacts}

# A fresh machine has neither clang-19 nor its runtime libraries (libFuzzer,
# the sanitizers).
fuzzer_runtime() { [ -f "$(clang++-19 -print-resource-dir)/lib/linux/libclang_rt.fuzzer-x86_64.a" ]; }
if ! command -v clang++-19 >/dev/null || ! fuzzer_runtime; then
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo=sudo
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq clang-19 libclang-rt-19-dev
fi

generator=()
command -v ninja >/dev/null && generator=(-G Ninja)
cmake -S . -B "$out" "${generator[@]}" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_COMPILER=clang-19 -DCMAKE_CXX_COMPILER=clang++-19 -DVEMORA_FUZZ=ON >/dev/null
cmake --build "$out" --parallel 2

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for source in test/fuzz/fuzz_*.cc; do
    name=$(basename "$source" .cc)
    targets+=("${name#fuzz_}")
  done
fi

mkdir -p "$artifacts"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=()
for name in "${targets[@]}"; do
  seeds=test/fuzz/corpus/$name
  [ -d "$seeds" ] || { echo "no seed corpus at $seeds" >&2; exit 1; }
  # libFuzzer writes what it learns into its first corpus folder: keep the
  # checked-in seeds out of its reach.
  corpus=$work/$name
  mkdir -p "$corpus"
  cp "$seeds"/* "$corpus"/
  printf '\n== fuzz_%s for %ss (%s seeds)\n' "$name" "$seconds" "$(ls "$seeds" | wc -l)"
  if ! "$out/test/fuzz/fuzz_$name" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=1024 \
    -print_final_stats=1 -artifact_prefix="$artifacts/fuzz_${name}-" "$corpus" \
    >"$work/$name.log" 2>&1; then
    failed+=("$name")
    tail -40 "$work/$name.log" >&2
  fi
  grep -E '^(stat::number_of_executed_units|stat::peak_rss_mb)|^Done' "$work/$name.log" || true
done

if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzzing failed for: ${failed[*]} (inputs in $artifacts/)" >&2
  exit 1
fi
echo "fuzzing found nothing in ${#targets[@]} targets"
