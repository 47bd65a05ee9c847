#!/usr/bin/env bash
# Builds the library demo and runs it: a server and a client, each with its
# own resolver, talking over TCP on 127.0.0.1, every message family in turn.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
KZ_TARGET=kzdemo bash "$root/scripts/build.sh"
exec "${KZ_BUILD_DIR:-$root/build}/examples/kzdemo" "$@"
