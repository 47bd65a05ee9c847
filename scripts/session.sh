#!/usr/bin/env bash
# A whole session, decoded: starts kzlan-server on 127.0.0.1 with a fresh
# database, puts `kzdump --tap` in front of it, runs a scripted kzlan-client
# session through the tap and prints each command, its output and the
# messages that crossed the wire for it, field by field. Builds nothing: the
# programs come from $KZ_BUILD_DIR (default build/). Exits 0 only if every
# step succeeded.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${KZ_BUILD_DIR:-$root/build}"
server="$build/tools/kzlan-server/kzlan-server"
client="$build/tools/kzlan-client/kzlan-client"
kzdump="$build/tools/kzdump"
for program in "$server" "$client" "$kzdump"; do
  if [ ! -x "$program" ]; then
    echo "session: $program is missing; build first: bash scripts/build.sh" >&2
    exit 1
  fi
done

work="$(mktemp -d)"
server_pid=""
tap_pid=""
cleanup() {
  [ -n "$tap_pid" ] && kill "$tap_pid" 2>/dev/null || true
  [ -n "$server_pid" ] && kill "$server_pid" 2>/dev/null || true
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

# Waits up to ten seconds for a line matching $2 in file $1 and prints it.
await() {
  for _ in $(seq 100); do
    if grep -q "$2" "$1" 2>/dev/null; then grep -m1 "$2" "$1"; return 0; fi
    sleep 0.1
  done
  echo "session: no '$2' in $1:" >&2
  cat "$1" >&2
  return 1
}

export KZLAN_PASSWORD="session-admin-pw"
# The first admin password from a file, as a service gets it: never on a command line.
(umask 077 && printf '%s\n' "$KZLAN_PASSWORD" >"$work/admin-password")
"$server" --listen 127.0.0.1 --port 0 --db "$work/kzlan.sqlite" --storage "$work/storage" \
  --admin-password-file "$work/admin-password" >"$work/server.out" 2>"$work/server.log" &
server_pid=$!
port="$(await "$work/server.out" '^kzlan-server listening on ' | sed 's/.*://')"
"$kzdump" --tap 0 "127.0.0.1:$port" >"$work/tap.txt" 2>"$work/tap.err" &
tap_pid=$!
tap_port="$(await "$work/tap.err" 'listening on port' | sed 's/.*port \([0-9]*\).*/\1/')"
echo "== kzlan-server on 127.0.0.1:$port (database $work/kzlan.sqlite), kzdump --tap on port $tap_port"

# A small work file to send: 100 KiB, two chunks.
head -c 102400 /dev/urandom >"$work/rose.dst"

shown=0 # bytes of the tap's output already printed
# After the first step, the login exchange and the lists the server sends
# after it are shown as one line per message; a step that asks for one of
# those lists passes its name (show=UserInfo) to see it whole.
quiet=""
show=""
step() {
  local words=() a
  for a in "$@"; do
    if [[ "$a" =~ ^[A-Za-z0-9_./:=-]+$ ]]; then words+=("$a"); else words+=("'$a'"); fi
  done
  echo
  echo "\$ kzlan-client ${words[*]}"
  local rc=0
  "$client" --port "$tap_port" "$@" 2>&1 || rc=$?
  # Let the tap print the last replies, then show what it decoded.
  for _ in $(seq 50); do
    tail -c +$((shown + 1)) "$work/tap.txt" | grep -q -- '^-- connection [0-9]* closed' && break
    sleep 0.1
  done
  local size hide="$quiet"
  size=$(stat -c %s "$work/tap.txt")
  [ -n "$show" ] && hide="$(sed "s/|$show//; s/($show|/(/" <<<"$hide")"
  head -c "$size" "$work/tap.txt" | tail -c +$((shown + 1)) |
    awk -v hide="$hide" '
      /^#[0-9]+ / { quiet = hide != "" && $0 ~ hide }
      /^-- / { quiet = 0 }
      !quiet || /^#[0-9]+ / { print "    " $0 }'
  shown=$size
  quiet=' (Login|UserInfo|MacInfo|OperatorUserInfo) \('
  show=""
  if [ "$rc" -ne 0 ]; then
    echo "session: 'kzlan-client $*' failed with exit code $rc" >&2
    exit 1
  fi
}

step login
step users add carol --password carol-pw --full-name "Carol Meyer" --group "Plant A/Line 1"
show=UserInfo step users list
step users move carol --to "Plant B/Line 3"
step users delete carol
show=MacInfo step machines list
step plans 2024-03-05
step prices set rose.dst 12.5
step prices list
step send "$work/rose.dst"
step logs '*' 2000-01-01 2100-01-01

echo
kill -TERM "$server_pid"
rc=0
wait "$server_pid" || rc=$?
server_pid=""
if [ "$rc" -ne 0 ]; then
  echo "session: kzlan-server did not stop cleanly (exit code $rc)" >&2
  cat "$work/server.log" >&2
  exit 1
fi
echo "== session complete; kzlan-server stopped cleanly"
