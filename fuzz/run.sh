#!/usr/bin/env bash
# Runs the fuzz targets of a build configured with -DKZ_FUZZ=ON, one after
# the other, each for SECONDS, from its seeds and regression inputs, with the
# dictionary. Prints libFuzzer's closing figures (executions, coverage) per
# target and fails at the first target that finds a fault; the input that
# found it is left in BUILD/fuzz/artifacts/.
#
# Usage: fuzz/run.sh BUILD SECONDS [TARGET...]   (TARGET: stream decode frame cipher coding)
# KZ_FUZZ_KERNELS=portable|avx2|avx512 pins the coding and CRC kernels of
# the frame and stream targets (see fuzz/CMakeLists.txt).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="$(cd "${1:?build directory}" && pwd)"
seconds="${2:?seconds per target}"
shift 2
targets=("$@")
[ ${#targets[@]} -eq 0 ] && targets=(stream decode frame cipher coding)

seeds="$build/fuzz/seeds"
mkdir -p "$build/fuzz/artifacts"
for t in "${targets[@]}"; do
  exe="$build/fuzz/${t}_fuzz"
  [ -x "$exe" ] || { echo "fuzz: $exe is missing (configure with -DKZ_FUZZ=ON)"; exit 1; }
  corpus="$build/fuzz/corpus/$t"   # what the fuzzer learns; seeds and regressions stay untouched
  mkdir -p "$corpus"
  dirs=("$corpus" "$seeds/${t}_fuzz")
  [ -d "$root/fuzz/regressions/${t}_fuzz" ] && dirs+=("$root/fuzz/regressions/${t}_fuzz")
  dict=()
  [ "$t" != cipher ] && dict=(-dict="$seeds/kz.dict")
  log="$build/fuzz/$t.log"
  echo "== ${t}_fuzz: ${seconds}s"
  status=0
  "$exe" "${dict[@]}" -max_total_time="$seconds" -print_final_stats=1 -timeout=20 \
    -rss_limit_mb=2048 -artifact_prefix="$build/fuzz/artifacts/${t}-" "${dirs[@]}" \
    >"$log" 2>&1 || status=$?
  # The last status line (executions, coverage, corpus) and the final stats.
  grep -E '^#[0-9]+' "$log" | tail -n 1 || true
  grep -E '^stat::' "$log" || true
  if [ "$status" -ne 0 ]; then
    echo "fuzz: ${t}_fuzz found a fault (exit $status); its report:"
    grep -vE '^#[0-9]+' "$log" | tail -n 60
    exit 1
  fi
done
