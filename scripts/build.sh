#!/usr/bin/env bash
# Configures and builds the project in build/ (or $KZ_BUILD_DIR).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
bash "$root/scripts/setup.sh"
dir="${KZ_BUILD_DIR:-$root/build}"
cmake -S "$root" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE="${KZ_BUILD_TYPE:-RelWithDebInfo}" "$@" >/dev/null
# KZ_TARGET: one target or several, separated by spaces (default: all).
cmake --build "$dir" -j "${KZ_JOBS:-2}" ${KZ_TARGET:+--target $KZ_TARGET}
