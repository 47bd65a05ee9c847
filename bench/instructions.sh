#!/usr/bin/env bash
# Instructions per round trip, counted by callgrind over roundTrips() of
# kzfastpath (N round trips in one function, divided by N), heap
# allocations per round trip (dhat's total blocks at two loop lengths), and
# the peak memory of block round trips.
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
count logout-lent 2000
count delete 1000
count adduser 1000
# What N more round trips allocate, per round trip: setup and warm-up cancel.
allocs() { # name n
  local a b
  total() {
    valgrind --tool=dhat --dhat-out-file=/dev/null "$exe" --loop "$1" "$2" 2>&1 >/dev/null |
      sed -n 's/.*Total: .* bytes in \([0-9,]*\) blocks.*/\1/p' | tr -d ,
  }
  a=$(total "$1" "$2")
  b=$(total "$1" $(( 2 * $2 )))
  echo "$1: $(awk -v a="$a" -v b="$b" -v n="$2" 'BEGIN{printf "%.2f", (b - a) / n}') allocations per round trip"
}
for name in logout logout-lent chunk1k chunk1k-lent; do allocs $name 1000; done
# Block round trips, per block byte: 1 KiB carries the cost of a message
# over few bytes, 64 KiB is mostly the bytes.
block() { # name n size
  local ir
  ir=$(count "$1" "$2" | awk '{print $2}')
  echo "$1: $ir instructions per round trip, $(awk -v i="$ir" -v s="$3" 'BEGIN{printf "%.2f", i/s}') per block byte"
}
block screen1k 200 1024
block screen1k-lent 200 1024
block chunk1k 200 1024
block chunk1k-lent 200 1024
block screen64k 20 65536
# The largest block under the default receive limit stands for 16 MiB.
for size in 1024 16384 65536 1048576 16777184; do "$exe" --peak $size; done
