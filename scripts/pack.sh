#!/usr/bin/env bash
# Builds the prebuilt add-ons (scripts/prebuild.sh) and packs libvemora and one
# package per built target into <dest>:
#   libvemora-<version>.tgz  libvemora-<target>-<version>.tgz ...
# To publish, `npm publish` each libvemora-<target> tarball, then libvemora's;
# VEMORA_ALL_TARGETS=1 refuses to pack a release that lacks a target.
#
#   scripts/pack.sh [dest]       (default: dist)
set -euo pipefail
cd "$(dirname "$0")/.."
dest=${1:-dist}
mkdir -p "$dest"
dest=$(cd "$dest" && pwd)
rm -f "$dest"/libvemora-*.tgz
scripts/prebuild.sh
# --ignore-scripts: prepare, the build for working in this repository, has no
# part in the package.
npm pack --ignore-scripts --loglevel=warn --pack-destination "$dest" >/dev/null
for dir in prebuilds/*/; do
  npm pack --ignore-scripts --loglevel=warn --pack-destination "$dest" "./$dir" >/dev/null
done
ls -l "$dest"/libvemora-*.tgz
