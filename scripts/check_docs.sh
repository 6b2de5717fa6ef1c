#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Makes the reference of the public headers and the documents with Doxygen; fails at the first warning.
#
# usage: scripts/check_docs.sh [<output folder>]      (build/docs when none is given; its html/index.html is the reference)
set -eu
cd "$(dirname "$0")/.."

NORVANE_DOCS="${1-build/docs}"
NORVANE_VERSION="$(sed -n 's/.*VERSION_TEXT\[\] = "\(.*\)".*/\1/p' include/norvane/version.hpp)"
export NORVANE_DOCS NORVANE_VERSION
mkdir -p "$NORVANE_DOCS"
doxygen docs/Doxyfile
