#!/usr/bin/env bash
# The JavaScript suite (all but the package test, which runs once) on the oldest
# and the newest Node.js major the package claims, with the official linux-x64
# binaries from the npm registry, against the prebuilt linux-x64 add-on: one
# Node-API binary serves them all.
#
#   scripts/test-node-versions.sh [version ...]    (default: the two below)
set -euo pipefail
cd "$(dirname "$0")/.."

oldest=20.20.2
newest=26.10.0
# The oldest tested must be the major that "engines" names.
claimed=$(node -p "require('./package.json').engines.node.match(/^>=(\d+)/)[1]")
[ "${oldest%%.*}" = "$claimed" ] || { echo "engines claims Node >=$claimed; test that major" >&2; exit 1; }
versions=("$@")
[ ${#versions[@]} -gt 0 ] || versions=("$oldest" "$newest")

[ -f prebuilds/linux-x64/libvemora_bindings.node ] || scripts/prebuild.sh linux-x64
export VEMORA_TEST_ADDON=$PWD/prebuilds/linux-x64/libvemora_bindings.node
mapfile -t suites < <(ls test/js/*.test.js | grep -v '/package\.test\.js$')
for version in "${versions[@]}"; do
  node_bin=$(scripts/official-node.sh linux-x64 "$version")
  printf '\n== Node %s\n' "$("$node_bin/node" --version)"
  # First on the PATH, so that the suites' child processes use it too.
  PATH="$node_bin:$PATH" node --test "${suites[@]}"
done
