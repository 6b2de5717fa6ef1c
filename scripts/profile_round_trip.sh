#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Where does the time of a call between two processes go? Shares by library, then by function, of both processes together.
#
# usage: scripts/profile_round_trip.sh [<calls in flight>]      1 unless told
set -eu
cd "$(dirname "$0")/.."
in_flight="${1:-1}"

scripts/ensure_packages.sh build examples bench fastdds profile
scripts/build_preset.sh bench norvane_network_profile
record="$(mktemp)"
trap 'rm -f "$record"' EXIT
# The clock's event is there on virtual machines, too.
perf record -q -e cpu-clock -F 4000 -o "$record" build/release/benchmarks/network/norvane_network_profile 5 "$in_flight"
for key in dso dso,symbol; do
    echo
    perf report -i "$record" --stdio -q --sort "$key" --percent-limit 1 2>/dev/null
done
