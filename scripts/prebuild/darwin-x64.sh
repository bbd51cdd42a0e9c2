#!/usr/bin/env bash
# darwin-x64: Intel Macs, and x64 apps under Rosetta (scripts/prebuild/darwin.sh).
exec bash "$(dirname "$0")/darwin.sh" x86_64 "$@"
