#!/usr/bin/env bash
# The installed kzlan-server package as systemd would run it, on a machine
# where systemd is not running (CI): the unit verified, the server started
# from the unit's ExecStart line as the unit's user with the installed
# configuration (on loopback, a free port), a client logged in with the admin
# password the first start wrote, the configuration reloaded on SIGHUP, and
# the server stopped by SIGTERM. Needs root; leaves no process behind.
set -euo pipefail
unit=/usr/lib/systemd/system/kzlan-server.service
state=/var/lib/kzlan-server
work="$(mktemp -d)"
pid=""
cleanup() {
  [ -n "$pid" ] && kill "$pid" 2>/dev/null && wait "$pid" 2>/dev/null
  rm -rf "$work" "$state"
}
trap cleanup EXIT

echo "-- systemd-analyze verify $unit"
systemd-analyze verify "$unit"

user="$(sed -n 's/^User=//p' "$unit")"
exec_start="$(sed -n 's/^ExecStart=//p' "$unit")"
getent passwd "$user" >/dev/null || { echo "no user $user: the package's postinst makes it"; exit 1; }
# What StateDirectory= does before the start.
[ -d "$state" ] && { echo "$state exists already: not a fresh install"; exit 1; }
install -d -o "$user" -g "$user" -m 0750 "$state"

echo "-- as $user: $exec_start (on 127.0.0.1, a free port)"
# The command line overrides the installed configuration's 0.0.0.0:7600.
# shellcheck disable=SC2086 # the unit's line, split as systemd splits it
setpriv --reuid="$user" --regid="$user" --init-groups --no-new-privs \
  $exec_start --listen 127.0.0.1 --port 0 >"$work/out" 2>"$work/log" &
pid=$!
for _ in $(seq 100); do
  grep -q 'listening on' "$work/out" && break
  kill -0 "$pid" 2>/dev/null || { cat "$work/log"; exit 1; }
  sleep 0.1
done
port="$(sed -n 's/.*listening on 127\.0\.0\.1:\([0-9]*\).*/\1/p' "$work/out")"
[ -n "$port" ] || { echo "the server did not listen"; cat "$work/log"; exit 1; }
echo "   listening on port $port"

pwfile="$state/admin-password"
[ "$(stat -c '%U %a' "$pwfile")" = "$user 600" ] || { ls -l "$pwfile"; exit 1; }
[ "$(stat -c '%U' "$state/kzlan.sqlite")" = "$user" ]
KZLAN_PASSWORD="$(head -n1 "$pwfile")" kzlan-client --port "$port" login
if KZLAN_PASSWORD=wrong kzlan-client --port "$port" login >/dev/null 2>&1; then
  echo "a wrong password logged in"; exit 1
fi

echo "-- SIGHUP: the configuration read again"
kill -HUP "$pid"
for _ in $(seq 50); do grep -q 'configuration reloaded' "$work/log" && break; sleep 0.1; done
grep 'configuration reloaded' "$work/log"
KZLAN_PASSWORD="$(head -n1 "$pwfile")" kzlan-client --port "$port" login >/dev/null

echo "-- SIGTERM: stops"
kill -TERM "$pid"
wait "$pid"
pid=""
echo "service: ok"
