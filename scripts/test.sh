#!/usr/bin/env bash
# The test command: builds and runs the whole suite with g++/libstdc++, clang++/libc++,
# AddressSanitizer+UndefinedBehaviorSanitizer and ThreadSanitizer, then cross-built for Linux
# arm64 and run under qemu-aarch64.
# Usage: scripts/test.sh [preset...]   (default: every preset of the suite)
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh

presets=("$@")
[ "${#presets[@]}" -gt 0 ] || presets=(gcc clang-libcxx asan tsan aarch64)

jobs=$(nproc)
failed=()

# How every preset is configured (unity builds, line tables), shared with scripts/main.sh.
source scripts/build-flags.sh

# Every step prints its wall and CPU time (user + system of the step's processes).
step() {
  local label=$1 status=0
  shift
  TIMEFORMAT="=== $label: %R s wall, %U s user, %S s sys"
  time "$@" || status=$?
  return "$status"
}

# The fuzz smoke (its own block below) is no ctest preset: it runs with the default presets,
# or alone as `scripts/test.sh fuzz`, and stays out of the preset loop.
run_fuzz=0
[ "$#" -gt 0 ] || run_fuzz=1
kept=()
for preset in "${presets[@]}"; do
  if [ "$preset" = fuzz ]; then run_fuzz=1; else kept+=("$preset"); fi
done
presets=("${kept[@]}")

# Formatting first: every C and C++ file as clang-format (the project's .clang-format) writes it.
echo "=== format"
if ! step "format check" scripts/check-format.sh; then
  failed+=(format)
fi

# ThreadSanitizer finds races only where threads meet: under it run the sensor's test programs
# that drive it or its foundation from several threads (the others are single-threaded and run
# under every other preset; kalvo-devhost's few threads share plain locked state).
declare -A only=(
  [tsan]="sensor_tests eil_core_test eil_values_test"
)

for preset in "${presets[@]}"; do
  echo "=== $preset: build"
  start=$SECONDS
  targets=()
  selection=()
  if [ -n "${only[$preset]:-}" ]; then
    read -ra programs <<<"${only[$preset]}"
    targets=(--target "${programs[@]}")
    selection=(-L "^($(IFS='|'; echo "${programs[*]}"))$")
  fi
  step "$preset configure" cmake --preset "$preset" "${build_flags[@]}" >/dev/null
  step "$preset build" cmake --build --preset "$preset" -j "$jobs" "${targets[@]}"
  echo "=== $preset: test"
  if ! step "$preset test" ctest --preset "$preset" -j "$jobs" "${selection[@]}"; then
    failed+=("$preset")
  fi
  echo "=== $preset: $((SECONDS - start)) s"
done

# ---------------------------------------------------------------------------------------------
# Fuzz smoke: every libFuzzer harness (fuzz preset: clang, ASan+UBSan) runs for a few seconds
# (KALVO_FUZZ_SMOKE_SECONDS, default 10) over its checked-in corpus. Longer runs: scripts/fuzz.sh.
if [ "$run_fuzz" = 1 ]; then
  echo "=== fuzz: build"
  start=$SECONDS
  step "fuzz configure" cmake --preset fuzz "${build_flags[@]}" \
    -DKALVO_FUZZ_SMOKE_SECONDS="${KALVO_FUZZ_SMOKE_SECONDS:-10}" >/dev/null
  step "fuzz build" cmake --build --preset fuzz --target kalvo_fuzzers -j "$jobs"
  echo "=== fuzz: smoke"
  # The harnesses are independent: as many run at once as there are cores.
  if ! step "fuzz smoke" ctest --test-dir build/fuzz/fuzz -R '^fuzz_.*_smoke$' -j "$jobs" --output-on-failure; then
    failed+=(fuzz)
  fi
  echo "=== fuzz: $((SECONDS - start)) s"
  presets+=(fuzz)
fi
# ---------------------------------------------------------------------------------------------

if [ "${#failed[@]}" -gt 0 ]; then
  echo "FAILED presets: ${failed[*]}"
  exit 1
fi
echo "All presets passed: ${presets[*]}"
