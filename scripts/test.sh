#!/usr/bin/env bash
# Builds everything and runs every test.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
bash "$root/scripts/build.sh"
cd "${KZ_BUILD_DIR:-$root/build}"
ctest --output-on-failure -j "${KZ_JOBS:-2}"
