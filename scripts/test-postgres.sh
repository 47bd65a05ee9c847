#!/usr/bin/env bash
# Runs the LAN server's tests (CTest label "server") against PostgreSQL: a
# throw-away cluster in a temporary folder on a port of its own, started
# here and stopped on exit. Installs PostgreSQL first if it is missing.
# Env: KZ_BUILD_DIR (default build/), KZ_PG_PORT (default 55432).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${KZ_BUILD_DIR:-$root/build}"
port="${KZ_PG_PORT:-55432}"

sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
if ! ls /usr/lib/postgresql/*/bin/initdb >/dev/null 2>&1; then
  echo "test-postgres: installing postgresql"
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -qq
  $sudo apt-get install -y -qq --no-install-recommends postgresql >/dev/null
fi
bin="$(ls -d /usr/lib/postgresql/*/bin | sort -V | tail -n 1)"

# PostgreSQL refuses to run as root: as root the cluster belongs to the
# postgres user.
as_owner=()
tmp="$(mktemp -d)"
if [ "$(id -u)" -eq 0 ]; then
  chown postgres "$tmp"
  as_owner=(runuser -u postgres --)
fi
stop() {
  "${as_owner[@]}" "$bin/pg_ctl" -D "$tmp/data" -m immediate stop >/dev/null 2>&1 || true
  rm -rf "$tmp"
}
trap stop EXIT

"${as_owner[@]}" "$bin/initdb" -D "$tmp/data" -A trust -U kzlan --no-sync >/dev/null
"${as_owner[@]}" "$bin/pg_ctl" -D "$tmp/data" -l "$tmp/log" -w \
  -o "-p $port -k $tmp -c listen_addresses=127.0.0.1 -c fsync=off" start >/dev/null ||
  { cat "$tmp/log"; exit 1; }
"$bin/createdb" -h 127.0.0.1 -p "$port" -U kzlan kzlan_test
echo "test-postgres: PostgreSQL $("$bin/postgres" --version | awk '{print $3}') on 127.0.0.1:$port"

cmake --build "$build" --target test_lanstorage test_lanserver
cd "$build"
KZ_TEST_DB="postgresql://kzlan@127.0.0.1:$port/kzlan_test" ctest -L server --output-on-failure
