#!/usr/bin/env bash
# Mutation score of the test suite on the checked-in sample (scripts/mutants.txt).
# Usage: scripts/mutate.sh [--only TEXT] [--list FILE] [--survivors FILE] [--timeout SECONDS] [--every-test];
#        scripts/mutate.sh --generate N
set -euo pipefail
cd "$(dirname "$0")/.."
exec nice -n 10 python3 scripts/mutate.py "$@"
