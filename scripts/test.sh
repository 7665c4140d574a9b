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

# The fuzz smoke (its own block below) is no ctest preset: it runs with the default presets,
# or alone as `scripts/test.sh fuzz`, and stays out of the preset loop.
run_fuzz=0
[ "$#" -gt 0 ] || run_fuzz=1
kept=()
for preset in "${presets[@]}"; do
  if [ "$preset" = fuzz ]; then run_fuzz=1; else kept+=("$preset"); fi
done
presets=("${kept[@]}")

for preset in "${presets[@]}"; do
  echo "=== $preset: build"
  start=$SECONDS
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  echo "=== $preset: test"
  if ! ctest --preset "$preset" -j "$jobs"; then
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
  cmake --preset fuzz -DKALVO_FUZZ_SMOKE_SECONDS="${KALVO_FUZZ_SMOKE_SECONDS:-10}" >/dev/null
  cmake --build --preset fuzz --target kalvo_fuzzers -j "$jobs"
  echo "=== fuzz: smoke"
  if ! ctest --test-dir build/fuzz/fuzz -R '^fuzz_.*_smoke$' -j "$jobs" --output-on-failure; then
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
