#!/usr/bin/env bash
# Builds the libFuzzer harnesses (fuzz preset: clang, ASan+UBSan) and runs each in turn for
# the given time, starting from its checked-in corpus (fuzz/corpus/<name>, read only). New
# inputs collect in <build>/fuzz/work/<name>; a crash leaves its input as
# <build>/fuzz/crash-<name>-* and makes the script exit 1.
# Usage: scripts/fuzz.sh [seconds per harness, default 300] [harness names...]
#   e.g. scripts/fuzz.sh 600 json
# Environment: KALVO_FUZZ_BUILD (build directory, default build/fuzz).
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh

seconds=${1:-300}
shift || true
build=${KALVO_FUZZ_BUILD:-build/fuzz}
names=("$@")
if [ "${#names[@]}" -eq 0 ]; then
  names=(json)
fi

cmake --preset fuzz -B "$build" >/dev/null
cmake --build "$build" --target kalvo_fuzzers -j "$(nproc)"

failed=()
for name in "${names[@]}"; do
  work="$build/fuzz/work/$name"
  mkdir -p "$work"
  echo "=== fuzz_$name: ${seconds} s"
  if ! ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
      "$build/fuzz/fuzz_$name" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
      -print_final_stats=1 -artifact_prefix="$build/fuzz/crash-$name-" "$work" "fuzz/corpus/$name" \
      2> "$build/fuzz/$name.log"; then
    failed+=("$name")
  fi
  grep -E '^(#[0-9]+.*DONE|stat::number_of_executed_units|stat::peak_rss_mb|==[0-9]+==ERROR|property broken|SUMMARY)' \
    "$build/fuzz/$name.log" || true
done

if [ "${#failed[@]}" -gt 0 ]; then
  echo "FAILED harnesses: ${failed[*]} (logs in $build/fuzz/<name>.log)"
  exit 1
fi
echo "All harnesses ran ${seconds} s without a finding: ${names[*]}"
