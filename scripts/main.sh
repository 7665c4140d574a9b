#!/usr/bin/env bash
# The main command: builds the sensor and kalvo-devhost (the stand-in host as a program) with
# g++, then runs the sensor on this machine's processes for a short while, and meanwhile types a
# short session into an interactive bash through a pseudo-terminal, so its lines show up as
# shell commands next to the creations of the programs they start. What the sensor reports goes
# to stdout, one JSON object a line; its log lines and the summary (events delivered,
# filtered, suppressed, reported) go to stderr.
# Usage: scripts/main.sh [SECONDS]   (default 10)
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-10}

scripts/install-deps.sh

source scripts/build-flags.sh
cmake --preset gcc "${build_flags[@]}" >/dev/null
cmake --build --preset gcc --target kalvo-devhost kalvo.securitymonitor -j "$(nproc)"

echo "=== kalvo-devhost live for ${seconds} s, with a bash session typed into it (the sensor's state is"
echo "=== kept between runs: a second run reports as existing only the processes started since the first)"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
build/gcc/devhost/tool/kalvo-devhost live --duration "$seconds" 2> >(tee "$log" >&2) &
live=$!
for _ in $(seq 100); do
  grep "following new ones" "$log" >/dev/null && break
  sleep 0.1
done
printf '%s\n' 'echo hello from an interactive bash' 'ls / | wc -l' 'for word in one two; do' 'echo "$word"' 'done' 'exit' |
  TERM=dumb HISTFILE=/dev/null script -qc "bash --norc --noprofile -i" /dev/null >/dev/null
wait "$live"
