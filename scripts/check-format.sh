#!/usr/bin/env bash
# Fails, naming each file, when a tracked C or C++ file differs from what clang-format (the
# project's .clang-format) makes of it. `scripts/check-format.sh --fix` rewrites them instead.
set -euo pipefail
cd "$(dirname "$0")/.."

mapfile -t files < <(git ls-files '*.h' '*.hpp' '*.c' '*.cpp')
if [ "${1:-}" = --fix ]; then
  clang-format -i "${files[@]}"
  exit 0
fi
clang-format --dry-run --Werror "${files[@]}"
echo "format: ${#files[@]} files as clang-format writes them"
