#!/usr/bin/env bash
# The main command: builds the sensor and kalvo-devhost (the stand-in host as a program) with
# g++, then runs the sensor on this machine's processes for a short while. What the sensor
# reports goes to stdout, one JSON object a line; its log lines and the summary (events
# delivered, filtered, suppressed, reported) go to stderr.
# Usage: scripts/main.sh [SECONDS]   (default 10)
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-10}

scripts/install-deps.sh

cmake --preset gcc >/dev/null
cmake --build --preset gcc --target kalvo-devhost kalvo.securitymonitor -j "$(nproc)"

echo "=== kalvo-devhost live for ${seconds} s (the sensor's state is kept between runs: a second"
echo "=== run reports as existing only the processes started since the first)"
build/gcc/devhost/tool/kalvo-devhost live --duration "$seconds"
