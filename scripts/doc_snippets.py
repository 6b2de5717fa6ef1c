#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Keeps the C++ that the documents show equal to sources that are compiled and run, and their links alive.

usage: scripts/doc_snippets.py --check|--write [<tree>]

A line `<!-- snippet: <file> <name> -->` stands above each block; the block is what lies in that file between two lines `//! [<name>]`, as Doxygen's
@snippet takes it. --write fills the blocks in, --check says which are not as their source. A block of C++ without such a line is an error, and so is a
link to a file that is not there.
"""
import re
import sys
import textwrap
from pathlib import Path

BLOCK = re.compile(r"(?P<mark><!-- snippet: (?P<file>\S+) (?P<name>\w+) -->\n)?^```(?:cpp|c\+\+)\n(?P<text>.*?)^```$", re.MULTILINE | re.DOTALL)
LONE_MARK = re.compile(r"^<!-- snippet: .*-->\n(?!```cpp\n)", re.MULTILINE)
CODE = re.compile(r"^```.*?^```$", re.MULTILINE | re.DOTALL)
LINK = re.compile(r"\]\((?!\w+:|#)([^)#\s]+)")
MARK_IN_SOURCE = re.compile(r"^\s*//! \[\w+\]\n", re.MULTILINE)


def snippet(source, name):
    """Returns the region of a source, without indentation and without the marks of others; None when there is not exactly one."""
    regions = source.split("//! [%s]\n" % name)
    if len(regions) != 3:
        return None
    text = MARK_IN_SOURCE.sub("", regions[1])
    return textwrap.dedent(text[:text.rindex("\n") + 1])


def main(mode, tree):
    complaints = []
    for document in [tree / "README.md"] + sorted((tree / "docs").glob("*.md")):
        shown = document.read_text()

        def place(index):
            return "%s:%d: " % (document.relative_to(tree), shown.count("\n", 0, index) + 1)

        def filled(match):
            if not match["mark"]:
                complaints.append(place(match.start()) + "a block of C++ without a line <!-- snippet: file name --> above it")
                return match[0]
            source = tree / match["file"]
            text = snippet(source.read_text(), match["name"]) if source.is_file() else None
            if text is None:
                complaints.append(place(match.start()) + "%s has no region [%s]" % (match["file"], match["name"]))
                return match[0]
            if mode == "--check" and text != match["text"]:
                complaints.append(place(match.start()) + "differs from [%s] of %s: scripts/doc_snippets.py --write" % (match["name"], match["file"]))
            return "%s```cpp\n%s```" % (match["mark"], text)

        complaints += [place(lone.start()) + "no block of C++ below" for lone in LONE_MARK.finditer(shown)]
        prose = CODE.sub(lambda code: re.sub(r"[^\n]", " ", code[0]), shown)
        complaints += [place(link.start()) + "no file " + link[1] for link in LINK.finditer(prose) if not (document.parent / link[1]).exists()]
        written = BLOCK.sub(filled, shown)
        if mode == "--write" and written != shown:
            document.write_text(written)
    print("\n".join(complaints), end="\n" if complaints else "")
    return 1 if complaints else 0


if len(sys.argv) not in (2, 3) or sys.argv[1] not in ("--check", "--write"):
    sys.exit(__doc__)
sys.exit(main(sys.argv[1], Path(sys.argv[2] if len(sys.argv) == 3 else Path(__file__).parent.parent).resolve()))
