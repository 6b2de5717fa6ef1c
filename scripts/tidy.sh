#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Runs clang-tidy with the checks of .clang-tidy, all of them errors, over the sources of the library (or those given).
# Configures the preset dev when needed. Slow: minutes.
#
# usage: scripts/tidy.sh [source file]...
set -eu
cd "$(dirname "$0")/.."

[ -f build/dev/compile_commands.json ] || cmake --preset dev >/dev/null
if [ $# -eq 0 ]; then
    # shellcheck disable=SC2046
    set -- $(find src examples -name '*.cpp' | sort)
fi
printf '%s\n' "$@" | xargs -P "$(nproc)" -n 1 clang-tidy -p build/dev --quiet
