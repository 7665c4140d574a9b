#!/usr/bin/env bash
# Builds the sensor and kalvo-devhost for release with g++ and makes the Debian package of the
# installed tree (cpack -G DEB, its dependencies found by dpkg-shlibdeps). Prints its path.
# Usage: scripts/package.sh
# Then, as root: dpkg -i build/package/kalvo-securitymonitor_*.deb; kalvo-devhost health;
# dpkg -r kalvo-securitymonitor
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh

build=build/package
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ \
  -DKALVO_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" --target kalvo-devhost kalvo.securitymonitor -j "$(nproc)"
# CPack warns of the two absent maintainer scripts named on purpose (see cmake/KalvoInstall.cmake):
# its output is shown only when it fails.
log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! (cd "$build" && cpack -G DEB) >"$log" 2>&1; then
  cat "$log" >&2
  exit 1
fi
ls "$build"/kalvo-securitymonitor_*.deb
