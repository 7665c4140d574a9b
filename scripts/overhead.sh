#!/usr/bin/env bash
# The cost of kalvo-devhost live on the BPF source on real work: two workloads, each run three
# times (RUNS, if set) without and as many with live running (--source bpf, on the workload's
# process tree, reports to /dev/null), alternating. For each workload: the median wall times
# and their ratio, and the creations live delivered against the execs the workload ran, counted
# apart from the tool by perf (sched:sched_process_exec, inherited by the workload's children).
#   build:  a clean build of the release plug-in (about 250 execs).
#   script: a shell script that runs expr, test, sed and cat in loops, as configure scripts do
#           (4 execs an iteration; ITERATIONS defaults to 5000, so 20,000 execs).
# Run as root, on a machine as quiet as can be had: every run takes the whole machine. On a
# shared virtual machine one run differs from the next by a few per cent; more runs (an odd
# number) narrow the medians.
# Usage: [RUNS=N] scripts/overhead.sh [ITERATIONS [WORKLOAD...]]   (default: 5000 build script)
set -euo pipefail

# A workload's run itself, under perf: --workload NAME ITERATIONS WORKDIR.
if [ "${1:-}" = --workload ]; then
  case "$2" in
  build)
    cmake --build "$4/build" --target clean >/dev/null
    cmake --build "$4/build" --target kalvo.securitymonitor -j "$(nproc)" >/dev/null
    ;;
  script) /bin/sh "$4/script.sh" "$3" ;;
  esac
  exit
fi

cd "$(dirname "$0")/.."
script=$PWD/scripts/overhead.sh

iterations=${1:-5000}
workloads=("${@:2}")
[ "${#workloads[@]}" -gt 0 ] || workloads=(build script)
cmake --preset gcc >/dev/null
cmake --build --preset gcc --target kalvo-devhost kalvo.securitymonitor -j "$(nproc)" >/dev/null
bin=$PWD/build/gcc/devhost/tool/kalvo-devhost

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# The plug-in's release build, configured once; each run builds it from clean.
cmake -S . -B "$work/build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_C_COMPILER=gcc \
  -DCMAKE_CXX_COMPILER=g++ -DKALVO_BUILD_TESTS=OFF >/dev/null
cat >"$work/script.sh" <<'SCRIPT'
i=0
while /usr/bin/test "$i" -lt "$1"; do
  i=$(/usr/bin/expr "$i" + 1)
  echo "value $i" | /bin/sed 's/value/v/' | /bin/cat >/dev/null
done
SCRIPT

# One run of workload $1, watched by live when $2 is "live": sets wall (seconds), execs (perf's
# count) and delivered (live's creations of the workload, "-" without live).
run() {
  rm -f "$work/go"
  mkfifo "$work/go"
  # Held until released, so that live follows it from its first exec. perf's own exec is the
  # first creation in the tree; the execs it counts are the workload's.
  (read -r _ <"$work/go"
    exec perf stat -e sched:sched_process_exec -x, -o "$work/perf" -- "$script" --workload "$1" "$iterations" "$work") &
  local root=$! live="" start end
  if [ "$2" = live ]; then
    "$bin" live --source bpf --tree "$root" --state "$work/state" >/dev/null 2>"$work/err" &
    live=$!
    for _ in $(seq 100); do
      grep "following new ones" "$work/err" >/dev/null 2>&1 && break
      sleep 0.1
    done
  fi
  start=$(date +%s%N)
  echo go >"$work/go"
  wait "$root"
  end=$(date +%s%N)
  wall=$(awk -v ns=$(( end - start )) 'BEGIN { printf "%.2f", ns / 1e9 }')
  execs=$(awk -F, '/sched_process_exec/ { print $1 }' "$work/perf")
  delivered=-
  if [ -n "$live" ]; then
    sleep 0.5
    kill -INT "$live"
    wait "$live" || true
    created=$(sed -n 's/.*delivered [0-9]* events: create \([0-9]*\),.*/\1/p' "$work/err")
    delivered=$(( created - 1 ))
    if grep "could not hand over" "$work/err" >/dev/null; then grep "could not hand over" "$work/err" >&2; fi
  fi
}

repeats=${RUNS:-3}
median() { sort -n | sed -n "$(( (repeats + 1) / 2 ))p"; }

printf '%-7s %6s %10s %10s %7s %8s %s\n' workload execs "bare s" "live s" ratio missed "runs (bare/live s)"
for name in "${workloads[@]}"; do
  bare=() watched=() missed=0 execs_total=0
  runs=""
  for _ in $(seq "$repeats"); do
    run "$name" bare
    bare+=("$wall")
    run "$name" live
    watched+=("$wall")
    missed=$(( missed + execs - delivered ))
    execs_total=$(( execs_total + execs ))
    runs+="${bare[-1]}/${wall} "
  done
  b=$(printf '%s\n' "${bare[@]}" | median)
  w=$(printf '%s\n' "${watched[@]}" | median)
  ratio=$(awk -v b="$b" -v w="$w" 'BEGIN { printf "%.3f", w / b }')
  printf '%-7s %6s %10s %10s %7s %8s %s\n' "$name" $(( execs_total / repeats )) "$b" "$w" "$ratio" "$missed" "$runs"
done
