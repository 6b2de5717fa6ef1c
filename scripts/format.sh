#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Formats every C++ file of the tree with clang-format, or (--check) says which ones are not formatted.
#
# usage: scripts/format.sh [--check]
set -eu
cd "$(dirname "$0")/.."

# Major versions of clang-format disagree in details: the tree is formatted with Debian 12's.
version="$(clang-format --version | sed -n 's/.*version \([0-9]*\).*/\1/p')"
if [ "$version" != 14 ]; then
    echo "clang-format 14 is wanted, this is $version (Debian 12: apt-get install clang-format)" >&2
    exit 1
fi

case "${1-}" in
    "") mode="-i" ;;
    --check) mode="--dry-run --Werror" ;;
    *)
        sed -n 's/^# \(usage: .*\)/\1/p' "$0" >&2
        exit 2
        ;;
esac
# shellcheck disable=SC2086
find include src tests examples benchmarks -name '*.?pp' -print0 | xargs -0 clang-format $mode
