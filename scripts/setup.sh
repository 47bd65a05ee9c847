#!/usr/bin/env bash
# Installs what the build needs on a Debian machine, if it is missing.
set -euo pipefail

# qt6-base-dev for the Qt 6 build (-DQT_VERSION_MAJOR=6); dpkg-dev and file
# for cpack's Debian packages (dpkg-shlibdeps). The Qt SQL drivers (SQLite,
# PostgreSQL) of both majors for kzlan-server, and postgresql for its tests on
# PostgreSQL (scripts/test-postgres.sh). openssl: the TLS tests make their
# certificates with it. protobuf for the protobuf column of the fast-path
# benchmark (bench/bench_protobuf.cpp). tshark runs the Wireshark dissector's
# tests. lintian checks the Debian packages; systemd gives systemd-analyze (the
# server's unit verified) and systemd-sysusers (the package's user); doxygen
# makes the documentation package. pybind11-dev and python3-dev build the Python
# module (python/), python3-pytest runs its tests.
packages=(cmake ninja-build g++ pkg-config ccache qtbase5-dev qt6-base-dev libgtest-dev
          libgmock-dev libbenchmark-dev libssl-dev clang-14 libclang-rt-14-dev libfuzzer-14-dev
          dpkg-dev file libqt5sql5-sqlite libqt5sql5-psql libqt6sql6-sqlite libqt6sql6-psql
          postgresql openssl libprotobuf-dev protobuf-compiler tshark lintian systemd doxygen
          pybind11-dev python3-dev python3-pytest)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "setup: installing ${missing[*]}"
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
# tshark's package asks whether non-root users may capture: no.
echo "wireshark-common wireshark-common/install-setuid boolean false" | $sudo debconf-set-selections
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
