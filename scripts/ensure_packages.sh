#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Installs the Debian packages that are missing, as root or through sudo. Does nothing, and needs no network, when all are there.
#
# usage: scripts/ensure_packages.sh <group>...      groups: build examples fastdds test bench profile
set -eu

if [ $# -eq 0 ]; then
    sed -n 's/^# \(usage: .*\)/\1/p' "$0" >&2
    exit 2
fi

missing=""

# need <package> <command or file that it brings>: what is there by other means than apt is fine too.
need() {
    case "$2" in
        /*) [ -e "$2" ] && return 0 ;;
        *) command -v "$2" >/dev/null 2>&1 && return 0 ;;
    esac
    missing="$missing $1"
}

for group in "$@"; do
    case "$group" in
        build)
            need g++ g++
            need cmake cmake
            need ninja-build ninja
            need libfastcdr-dev /usr/include/fastcdr/Cdr.h
            need libboost1.81-dev /usr/include/boost/describe/class.hpp
            ;;
        examples)
            need libmuparser-dev /usr/include/muParser.h
            need libcli11-dev /usr/include/CLI/CLI.hpp
            ;;
        test)
            need libgtest-dev /usr/include/gtest/gtest.h
            need python3 python3
            need doxygen doxygen
            need openssl openssl
            need iproute2 /usr/sbin/ip
            ;;
        fastdds)
            need libfastrtps-dev /usr/include/fastdds/rtps/RTPSDomain.h
            ;;
        profile)
            need linux-perf perf
            ;;
        bench)
            need libbenchmark-dev /usr/include/benchmark/benchmark.h
            need libzmq3-dev /usr/include/zmq.h
            ;;
        *)
            echo "scripts/ensure_packages.sh: no such group: $group" >&2
            exit 2
            ;;
    esac
done
[ -z "$missing" ] && exit 0

if ! command -v apt-get >/dev/null 2>&1; then
    echo "Needed, and not found (Debian names):$missing. This machine has no apt-get: install them by hand." >&2
    exit 1
fi
as_root=""
if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null 2>&1; then
        echo "Needed, and not found:$missing. Neither root nor sudo is at hand; as root: apt-get install$missing" >&2
        exit 1
    fi
    as_root="sudo"
fi

output="$(mktemp)"
trap 'rm -f "$output"' EXIT
# The variable is a list: one word a package. A minute's patience for another apt that holds the lock.
install_missing() {
    # shellcheck disable=SC2086
    $as_root env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=60 install -y --no-install-recommends $missing
}

echo "Installing:$missing"
# First without an update: on a machine whose package lists are fresh that is the slower half.
if ! install_missing >"$output" 2>&1; then
    if ! { $as_root apt-get -o DPkg::Lock::Timeout=60 update && install_missing; } >>"$output" 2>&1; then
        cat "$output" >&2
        echo "Could not install:$missing" >&2
        exit 1
    fi
fi
