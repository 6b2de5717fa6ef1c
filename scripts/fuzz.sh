#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# Builds the programs for libFuzzer and runs each for some time, beginning with the inputs in tests/fuzz/corpus/<program>. Stops at the
# first fault; the input that shows it is then in build/fuzz.
#
# usage: scripts/fuzz.sh [<seconds>] [<program>...]       without: 60 seconds, all of them
set -euo pipefail

seconds="${1:-60}"
shift || true
cd "$(dirname "$0")/.."
scripts/build_preset.sh fuzz
if [ $# -eq 0 ]; then
    set -- $(basename -s .cpp tests/fuzz/fuzz_*.cpp)
fi
for program in "$@"; do
    echo "== $program"
    found="build/fuzz/corpus/$program" # what is found is not put into the tree
    mkdir -p "$found"
    "build/fuzz/tests/fuzz/$program" -max_total_time="$seconds" -max_len=4096 -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
        -artifact_prefix="build/fuzz/$program-" "$found" "tests/fuzz/corpus/$program" 2>&1 |
        grep -E "ERROR|SUMMARY|Test unit|number_of_executed_units"
done
