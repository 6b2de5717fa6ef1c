#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# Configures and builds a preset of CMakePresets.json into build/<preset>. Silent unless it fails; build/<preset>.log has the output.
#
# usage: scripts/build_preset.sh <preset> [-D<variable>=<value>]... [target]...       without a target: everything
set -euo pipefail

preset="$1"
shift
options=()
while [[ "${1-}" == -D* ]]; do
    options+=("$1")
    shift
done
cd "$(dirname "$0")/.."
mkdir -p build
log="build/$preset.log"

if ! { cmake --preset "$preset" "${options[@]}" && cmake --build --preset "$preset" -j "$(nproc)" --target "${@:-all}"; } >"$log" 2>&1; then
    cat "$log" >&2
    echo "The build of preset $preset failed; its output is above, and in $log" >&2
    exit 1
fi
