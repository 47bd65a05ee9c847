#!/usr/bin/env bash
# Instructions per round trip, counted by callgrind over roundTrips() of
# kzfastpath (N round trips in one function, divided by N), and the peak
# memory of block round trips.
#   bash bench/instructions.sh [build dir, default build-rel]
set -euo pipefail
dir="${1:-build-rel}"
exe="$dir/bench/kzfastpath"
out="$(mktemp -d)"
trap 'rm -rf "$out"' EXIT
count() { # name n
  valgrind --tool=callgrind --toggle-collect=roundTrips --callgrind-out-file="$out/cg" \
    "$exe" --loop "$1" "$2" >/dev/null 2>"$out/log"
  # Collected events of the warm-up call and the N measured ones.
  local ir
  ir=$(grep -E '^(summary|totals):' "$out/cg" | head -1 | awk '{print $2}')
  echo "$1: $(( ir / ($2 + 1) )) instructions per round trip"
}
count logout 2000
count delete 1000
count adduser 1000
# Block round trips, per block byte: 1 KiB carries the cost of a message
# over few bytes, 64 KiB is mostly the bytes.
block() { # name n size
  local ir
  ir=$(count "$1" "$2" | awk '{print $2}')
  echo "$1: $ir instructions per round trip, $(awk -v i="$ir" -v s="$3" 'BEGIN{printf "%.2f", i/s}') per block byte"
}
block screen1k 200 1024
block screen64k 20 65536
# The largest block under the default receive limit stands for 16 MiB.
for size in 1024 16384 65536 1048576 16777184; do "$exe" --peak $size; done
