#!/usr/bin/env bash
# Builds the prebuilt add-ons, one npm package per target, in prebuilds/<target>/:
# the binary libvemora_bindings.node with its package.json (os, cpu, libc),
# README.md and LICENSE. The targets are libvemora's optional dependencies
# @libvemora/<target>; scripts/prebuild/<target>.sh <file> builds each one's
# binary into <file>, or exits 3 after saying what this machine lacks for it,
# and the other targets still build. Prints what it built and skipped.
#
#   scripts/prebuild.sh [target ...]      (default: every target)
#   VEMORA_ALL_TARGETS=1                  a skipped target fails the run (for a release)
#   VEMORA_DARWIN_SYSROOT=/tmp/darwin/root
set -euo pipefail
export CMAKE_BUILD_PARALLEL_LEVEL=${CMAKE_BUILD_PARALLEL_LEVEL:-2}
cd "$(dirname "$0")/.."

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  mapfile -t targets < <(node -p "Object.keys(require('./package.json').optionalDependencies)
    .map((name) => name.replace('@libvemora/', '')).join('\n')")
fi

summary=()
skipped=0
for target in "${targets[@]}"; do
  dir=prebuilds/$target
  rm -rf "$dir"
  script=scripts/prebuild/$target.sh
  start=$SECONDS
  status=0
  if [ -f "$script" ]; then
    mkdir -p "$dir"
    printf '\n== prebuild %s\n' "$target" >&2
    bash "$script" "$PWD/$dir/libvemora_bindings.node" >&2 || status=$?
  else
    echo "no $script" >&2
    status=3
  fi
  if [ "$status" -eq 0 ]; then
    node scripts/platform-package.js "$target" "$dir"
    summary+=("$(printf '%-13s built   %4ss  %s bytes' "$target" $((SECONDS - start)) \
      "$(stat -c %s "$dir/libvemora_bindings.node")")")
  elif [ "$status" -eq 3 ]; then
    rm -rf "$dir"
    skipped=$((skipped + 1))
    summary+=("$(printf '%-13s skipped (see above)' "$target")")
  else
    echo "prebuild: $target failed" >&2
    exit "$status"
  fi
done

printf '\n== prebuilt add-ons\n' >&2
printf '%s\n' "${summary[@]}" >&2
if [ "$skipped" -gt 0 ] && [ -n "${VEMORA_ALL_TARGETS:-}" ]; then
  echo "prebuild: $skipped target(s) skipped, and VEMORA_ALL_TARGETS asks for all" >&2
  exit 1
fi
