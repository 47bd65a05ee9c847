#!/usr/bin/env bash
# Builds the reference LAN server, client and wire dump, then runs a whole
# session on 127.0.0.1: kzlan-server on a fresh database, kzdump --tap in
# front of it, a scripted kzlan-client session through the tap, every
# message printed field by field (scripts/session.sh).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
KZ_TARGET="kzlan-server kzlan-client kzdump" bash "$root/scripts/build.sh"
exec bash "$root/scripts/session.sh" "$@"
