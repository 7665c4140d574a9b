#!/usr/bin/env bash
# Builds the release preset and runs the benchmarks, then the memory soak. Every target is a
# ratio measured in the same run; the benchmark binary prints them ("RATIO ..." lines) after
# its table, and the soak prints its own. The full JSON goes to <build>/bench.json.
# Usage: scripts/bench.sh [--quick] [extra Google Benchmark flags...]
#   --quick   shorter runs (no repetitions, 100,000 soak creations against 10,000) for a check
#             that everything works; the figures of docs/performance.md come from a full run.
# Environment: KALVO_BENCH_BUILD (build directory, default build/release).
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh

build=${KALVO_BENCH_BUILD:-build/release}
quick=0
if [ "${1:-}" = "--quick" ]; then
  quick=1
  shift
fi

cmake --preset release -B "$build" >/dev/null
cmake --build "$build" --target kalvo_bench kalvo_memory_soak -j "$(nproc)"

if [ "$quick" -eq 1 ]; then
  repetitions=(--benchmark_min_time=0.05)
  soak=(100000 10000)
else
  repetitions=(--benchmark_repetitions=5 --benchmark_report_aggregates_only=true)
  soak=(10000000 100000)
fi

echo "=== benchmarks"
"$build/bench/kalvo_bench" "${repetitions[@]}" --benchmark_out="$build/bench.json" --benchmark_out_format=json "$@"
echo "=== memory soak: ${soak[0]} creations with distinct keys"
"$build/bench/kalvo_memory_soak" "${soak[@]}"
