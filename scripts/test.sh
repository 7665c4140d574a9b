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

if [ "${#failed[@]}" -gt 0 ]; then
  echo "FAILED presets: ${failed[*]}"
  exit 1
fi
echo "All presets passed: ${presets[*]}"
