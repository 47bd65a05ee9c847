#!/usr/bin/env bash
# Builds and runs a host program against an installed kzresolver, once with
# its CMake package and once with its pkg-config file.
#
#   run.sh QT_MAJOR BUILD_DIR   installs BUILD_DIR into a scratch prefix first
#   run.sh QT_MAJOR --system    uses the copy installed on the machine (.deb)
set -euo pipefail
major="$1"; where="$2"; src="$(cd "$(dirname "$0")" && pwd)"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

if [ "$where" = "--system" ]; then
  prefix=/usr
  cmake_prefix=()
else
  prefix="$work/prefix"
  cmake --install "$where" --prefix "$prefix" >/dev/null
  cmake_prefix=(-DCMAKE_PREFIX_PATH="$prefix")
  libdirs=("$prefix"/lib "$prefix"/lib/*-linux-gnu "$prefix"/lib64)
  pcdirs=()
  for d in "${libdirs[@]}"; do [ -d "$d/pkgconfig" ] && pcdirs+=("$d/pkgconfig"); done
  export PKG_CONFIG_PATH="$(IFS=:; echo "${pcdirs[*]}")${PKG_CONFIG_PATH:+:$PKG_CONFIG_PATH}"
  export LD_LIBRARY_PATH="$(IFS=:; echo "${libdirs[*]}")${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}"
fi

echo "-- CMake: find_package(KZResolverQt$major)"
cmake -S "$src" -B "$work/cmake" -G Ninja -DQT_VERSION_MAJOR="$major" "${cmake_prefix[@]}" >/dev/null
cmake --build "$work/cmake" >/dev/null
"$work/cmake/consumer"

echo "-- pkg-config: kzresolver-qt$major"
pc=(pkg-config kzresolver-qt"$major")
# Qt asks for position-independent code in programs that use it.
${CXX:-c++} -std=c++17 -fPIC -DKZ_EXPECT_QT="$major" "$src/consumer.cpp" -o "$work/pc-consumer" \
  $("${pc[@]}" --cflags) $("${pc[@]}" --libs)
"$work/pc-consumer"
