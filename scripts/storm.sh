#!/usr/bin/env bash
# The storm benchmark of kalvo-devhost live: N short programs (/bin/true, eight at a time, as
# fast as xargs can start them) under live on each source, side by side: programs started,
# creations delivered, missed records, loss the tool counted, the host's CPU (user + system)
# per exec, and the spawn rate against the same storm with nothing watching. The sensor runs
# with its default configuration; its reports go to /dev/null. Run as root (BPF and netlink
# need it).
# Usage: scripts/storm.sh [PROGRAMS]   (default 5000)
set -euo pipefail
cd "$(dirname "$0")/.."

programs=${1:-5000}
cmake --preset gcc >/dev/null
cmake --build --preset gcc --target kalvo-devhost kalvo.securitymonitor -j "$(nproc)" >/dev/null
bin=$PWD/build/gcc/devhost/tool/kalvo-devhost

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
seq 1 "$programs" >"$work/numbers"

# The CPU time of every thread of process $1, in nanoseconds.
cpu_ns() { cat /proc/"$1"/task/*/schedstat | awk '{ total += $1 } END { printf "%d", total }'; }
now_ns() { date +%s%N; }

# A storm held until "$work/go" is written to (its pid in storm_pid); run_storm lets it go
# and sets its spawn rate per second.
storm() {
  (read -r _ <"$work/go"; exec xargs -P 8 -n 1 /bin/true storm <"$work/numbers") &
  storm_pid=$!
}
run_storm() {
  local start end
  start=$(now_ns)
  echo go >"$work/go"
  wait "$storm_pid"
  end=$(now_ns)
  rate=$(( programs * 1000000000 / (end - start) ))
}

mkfifo "$work/go"
printf '%-8s %8s %10s %7s %6s %12s %8s %11s %6s\n' \
  source started delivered missed loss "cpu/exec µs" spawn/s "bare spawn/s" ratio
for source in bpf netlink poll; do
  # The same storm with nothing watching, just before, so a change of the machine's load
  # between sources does not show as the sensor's cost.
  storm; run_storm
  bare=$rate
  storm
  "$bin" live --source "$source" --tree "$storm_pid" --state "$work/state-$source" \
    >/dev/null 2>"$work/err-$source" &
  live=$!
  for _ in $(seq 100); do
    grep "following new ones" "$work/err-$source" >/dev/null && break
    sleep 0.1
  done
  before=$(cpu_ns "$live")
  run_storm
  sleep 1  # lets live catch up before its CPU is read
  after=$(cpu_ns "$live")
  kill -INT "$live"
  wait "$live" || true
  err=$(cat "$work/err-$source")
  # Creations under the storm's root: xargs itself, then the programs.
  created=$(sed -n 's/.*delivered [0-9]* events: create \([0-9]*\),.*/\1/p' <<<"$err")
  delivered=$(( created - 1 ))
  loss=$(awk '/ended before they could be read|dropped process events|could not hand over/ {
    for (i = 1; i <= NF; i++) if ($i ~ /^[0-9]+$/) total += $i } END { print total + 0 }' <<<"$err")
  cpu=$(awk -v ns=$(( after - before )) -v n="$programs" 'BEGIN { printf "%.1f", ns / n / 1000 }')
  printf '%-8s %8s %10s %7s %6s %12s %8s %11s %5s%%\n' "$source" "$programs" "$delivered" \
    $(( programs - delivered )) "$loss" "$cpu" "$rate" "$bare" $(( rate * 100 / bare ))
done
