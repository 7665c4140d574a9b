#!/usr/bin/env bash
# The storm benchmark of kalvo-devhost live: N short programs (/bin/true, eight at a time, as
# fast as xargs can start them) under live on each source, side by side: programs started,
# creations delivered, missed records, loss the tool counted, the host's CPU (user + system)
# per exec, and the spawn rate against the same storm with nothing watching. The sensor runs
# with its default configuration; its reports go to /dev/null. Then, on each source, the delay
# from each exec (the kernel's timestamp of it) to its delivery to the sensor: in the storm, and
# with sparse events (SPARSE programs, one every 20 ms). Run as root (BPF and netlink need it).
# Usage: scripts/storm.sh [PROGRAMS] [SPARSE]   (defaults 5000 and 300)
set -euo pipefail
cd "$(dirname "$0")/.."

programs=${1:-5000}
sparse=${2:-300}
cmake --preset gcc >/dev/null
cmake --build --preset gcc --target kalvo-devhost kalvo.securitymonitor -j "$(nproc)" >/dev/null
bin=$PWD/build/gcc/devhost/tool/kalvo-devhost

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
seq 1 "$programs" >"$work/numbers"

# "p50 p99 max" in µs from the delivery delay live noted on stderr (file $1), "- - -" if none.
latency() {
  sed -n 's/.*exec to the sensor: p50 \([0-9]*\) µs, p99 \([0-9]*\) µs, max \([0-9]*\) µs.*/\1 \2 \3/p' "$1" |
    grep . || echo "- - -"
}

# Starts live on source $1 for the tree of pid $2, its stderr in file $3; its pid in live.
start_live() {
  "$bin" live --source "$1" --tree "$2" --state "$work/state-$1" >/dev/null 2>"$3" &
  live=$!
  for _ in $(seq 100); do
    grep "following new ones" "$3" >/dev/null 2>&1 && break
    sleep 0.1
  done
}

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
printf '%-8s %8s %10s %7s %6s %12s %8s %11s %6s %8s %8s %8s\n' \
  source started delivered missed loss "cpu/exec µs" spawn/s "bare spawn/s" ratio "p50 µs" "p99 µs" "max µs"
for source in bpf netlink poll; do
  # The same storm with nothing watching, just before, so a change of the machine's load
  # between sources does not show as the sensor's cost.
  storm; run_storm
  bare=$rate
  storm
  start_live "$source" "$storm_pid" "$work/err-$source"
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
  # Loss as the tool counts it: programs gone before /proc was read, the kernel's dropped
  # netlink batches, BPF creations of the storm's tree not handed over.
  loss=$(awk '/ended before they could be read|dropped process events/ {
      for (i = 1; i <= NF; i++) if ($i ~ /^[0-9]+$/) total += $i }
    /could not hand over/ { sub(/.*followed: /, ""); total += $1 } END { print total + 0 }' <<<"$err")
  cpu=$(awk -v ns=$(( after - before )) -v n="$programs" 'BEGIN { printf "%.1f", ns / n / 1000 }')
  read -r p50 p99 max < <(latency "$work/err-$source")
  printf '%-8s %8s %10s %7s %6s %12s %8s %11s %5s%% %8s %8s %8s\n' "$source" "$programs" "$delivered" \
    $(( programs - delivered )) "$loss" "$cpu" "$rate" "$bare" $(( rate * 100 / bare )) "$p50" "$p99" "$max"
done

# Sparse events: one program every 20 ms (read's timeout: no program of its own in between).
echo
printf '%-8s %8s %8s %8s %8s\n' source sparse "p50 µs" "p99 µs" "max µs"
mkfifo "$work/never"
for source in bpf netlink poll; do
  (read -r _ <"$work/go"
    exec 3<>"$work/never"
    for _ in $(seq "$sparse"); do
      /bin/true sparse
      read -r -t 0.02 -u 3 _ || true
    done) &
  sparse_pid=$!
  start_live "$source" "$sparse_pid" "$work/sparse-$source"
  echo go >"$work/go"
  wait "$sparse_pid"
  sleep 0.5
  kill -INT "$live"
  wait "$live" || true
  read -r p50 p99 max < <(latency "$work/sparse-$source")
  printf '%-8s %8s %8s %8s %8s\n' "$source" "$sparse" "$p50" "$p99" "$max"
done
