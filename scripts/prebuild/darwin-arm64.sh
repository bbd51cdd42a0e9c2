#!/usr/bin/env bash
# darwin-arm64: Apple silicon Macs (scripts/prebuild/darwin.sh).
exec bash "$(dirname "$0")/darwin.sh" arm64 "$@"
