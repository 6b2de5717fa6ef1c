#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Compares what the shared library exports with a checked-in list, or writes that list anew.

usage: scripts/exported_symbols.py [--write] <libnorvane.so> <list>

Demangled, sorted, one line each. Left out, since the compiler exports them as it pleases: instantiations of the C++ library, and
virtual tables (that of an abstract class comes and goes with the optimisation; the type infos, which a catch needs, stay listed).
"""
import re
import subprocess
import sys
from pathlib import Path

# _Z (_ZZ: a static of a function), what the symbol is for (virtual table, type info, its name), then a name within std:: or __gnu_cxx::.
STANDARD = re.compile(r"^_ZZ?(T[ISVT][PK]*|GV|GR)?(N[VKRO]*)?(S[tabsiod]|9__gnu_cxx)")


def exported(library):
    lines = subprocess.run(["nm", "--dynamic", "--defined-only", "--format=posix", library], check=True, capture_output=True,
                           text=True).stdout.splitlines()
    names = [line.split()[0].split("@")[0] for line in lines]
    names = [name for name in names if not STANDARD.match(name) and not name.startswith("_ZTV")]
    demangled = subprocess.run(["c++filt"], input="\n".join(names), check=True, capture_output=True, text=True).stdout.splitlines()
    # Two mangled names may stand for one (the constructors of complete and of base objects).
    return sorted(set(filter(None, demangled)))


def main(arguments):
    write = arguments[:1] == ["--write"]
    if len(arguments) - write != 2:
        print(__doc__, file=sys.stderr)
        return 2
    library, listing = arguments[write], Path(arguments[write + 1])
    now = exported(library)
    if not now:
        print("%s exports nothing of ours" % library)
        return 1
    if write:
        listing.write_text("\n".join(now) + "\n")
        return 0
    before = listing.read_text().splitlines()
    gone, new = sorted(set(before) - set(now)), sorted(set(now) - set(before))
    for name in gone:
        print("gone:  " + name)
    for name in new:
        print("new:   " + name)
    if gone or new:
        print("\nIf that is meant: scripts/exported_symbols.py --write %s %s" % (library, listing))
        return 1
    print("%d symbols, as listed" % len(now))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
