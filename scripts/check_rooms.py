#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Who may include whom. Prints file:line, the include and the rule for each one that breaks it; exits with 1 then.

usage: scripts/check_rooms.py [root of the tree]

A room is a folder, or some files of one. It lists what its files may include of the rooms and libraries named in OURS; the first room that
holds a file is the file's. All other headers (the C++ library's, the system's, those of other libraries) are free, except threads and locks in
rooms that do without them. A plain name means a file of the same folder.
"""
import re
import sys
from pathlib import Path

# What the rules are about: the rooms, and Fast DDS.
OURS = ("norvane/", "frontend/", "requestreply/", "infrastructure/", "middleware/", "platform/", "engines/", "support/", "network/", "benchmarks/",
        "fastdds/", "fastrtps/")
FAST_DDS = ("fastdds/*", "fastrtps/*")
THREADS = {"thread", "mutex", "shared_mutex", "condition_variable", "pthread.h"}

OBJECT_API = ("norvane/dds/*", "norvane/export.hpp")
UNTYPED = tuple("norvane/details/%s.hpp" % name for name in (
    "EntityUntypedImpl", "RequesterUntypedImpl", "ReplierUntypedImpl", "FastObjectPool", "guid_text", "precondition", "sample_identity", "topic_names"))
PARAMETERS = ("norvane/Exception.hpp", "norvane/EntityParams.hpp", "norvane/RequesterParams.hpp", "norvane/ReplierParams.hpp",
              "norvane/request_reply_qos.hpp")
CORE = OBJECT_API + UNTYPED + PARAMETERS
TYPED = ("norvane/norvane.hpp", "norvane/Requester.hpp", "norvane/Replier.hpp", "norvane/Service.hpp", "norvane/coroutines.hpp")
SEAM = OBJECT_API + ("middleware/Engine.hpp", "middleware/Log.hpp", "middleware/SequenceNumber.hpp", "middleware/clock.hpp", "platform/*")
FASTDDS_ENGINE = SEAM + FAST_DDS + tuple("engines/%s.hpp" % name for name in ("judgement", "refusals", "GuidHash", "Gate", "SampleReference"))

# (folder or beginning of a path, what it may include, what it must not all the same, whether it may have threads and locks)
ROOMS = [
    ("include/norvane/dds/", OBJECT_API, (), False),
    *(("include/" + header, CORE, (), False) for header in UNTYPED + PARAMETERS),
    ("include/norvane/details/", CORE + ("norvane/details/*", "norvane/CallTimeoutException.hpp", "norvane/Statistics.hpp", "norvane/Timeout.hpp"), (), False),
    ("include/norvane/norvane.hpp", ("norvane/*",), (), True),
    ("include/norvane/", ("norvane/*",), ("norvane/norvane.hpp",), False),
    ("src/requestreply/", CORE, (), False),
    ("src/infrastructure/", CORE + ("norvane/LoanedSamples.hpp",), (), False),
    ("src/frontend/", ("norvane/*", "frontend/*"), TYPED, True),
    ("src/platform/", ("platform/*",), (), True),
    ("src/middleware/", OBJECT_API + ("middleware/*", "platform/*"), (), True),
    ("src/engines/embedded/", SEAM + ("engines/*",), ("engines/fastdds/*", "engines/EngineModule.hpp"), True),
    # Datagrams know nothing of endpoints, and a writer nothing of readers.
    ("src/engines/fastdds/quirks_2_9/", FASTDDS_ENGINE + ("engines/fastdds/identity.hpp", "engines/fastdds/quirks_2_9/*"), (), True),
    ("src/engines/fastdds/transport/",
     FASTDDS_ENGINE + ("engines/fastdds/identity.hpp", "engines/fastdds/quirks_2_9/*", "engines/fastdds/transport/*"), (), True),
    ("src/engines/fastdds/writing/", FASTDDS_ENGINE + ("engines/fastdds/*",), ("engines/fastdds/reading/*",), True),
    ("src/engines/fastdds/", FASTDDS_ENGINE + ("engines/fastdds/*",), (), True),
    ("src/engines/select.cpp", SEAM + ("engines/EngineModule.hpp", "engines/embedded/EmbeddedEngine.hpp"), (), True),
    ("src/engines/", SEAM + ("engines/*",), ("engines/embedded/*", "engines/fastdds/*"), True),
    ("examples/", ("norvane/*",), ("norvane/details/*",), True),
    ("benchmarks/network/", ("norvane/*", "benchmarks/*") + FAST_DDS, ("norvane/details/*",), True),
    ("benchmarks/", ("norvane/*", "benchmarks/*"), ("norvane/details/*", "benchmarks/network/*"), True),
    ("tests/support/", ("norvane/*", "support/*"), (), True),
    ("tests/conformance/", OBJECT_API + ("support/*",), (), True),
    ("tests/requestreply/", ("norvane/*", "support/*"), (), True),
    ("tests/network/", ("norvane/*", "support/*", "network/*") + FAST_DDS, (), True),
    ("tests/package/", ("norvane/*",), ("norvane/details/*",), True),
    ("tests/fuzz/", ("*",), (), True),
    ("tests/unit/", ("*",), (), True),
]

INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*["<]([^">]+)[">]', re.MULTILINE)


def matches(name, patterns):
    return any(name.startswith(p[:-1]) if p.endswith("*") else name == p for p in patterns)


def refusal(room, path, name):
    """Why the file may not include this; None when it may."""
    folder, may, never, threads = room
    if ".." in Path(name).parts:
        return "no .. in an include"
    if name in THREADS and not threads:
        return "%s does without threads and locks" % folder
    if name.startswith(OURS) and (matches(name, never) or not matches(name, may)):
        return "%s may include %s%s" % (folder, ", ".join(may), ", but never " + ", ".join(never) if never else "")
    return None


def check_file(root, path):
    relative = path.relative_to(root).as_posix()
    text = path.read_text(encoding="utf-8")
    room = next((room for room in ROOMS if relative.startswith(room[0])), None)
    if room is None:
        yield 1, relative, "this file is in no room of scripts/check_rooms.py"
        return
    if "// SPDX-License-Identifier: Apache-2.0" not in text.split("\n", 2)[:2]:  # (the second line where a benchmark puts its question first)
        yield 1, text.split("\n", 1)[0], "a file begins with its SPDX line"
    for found in INCLUDE.finditer(text):
        why = refusal(room, path, found[1])
        if why:
            yield text.count("\n", 0, found.start()) + 1, found[0].strip(), why
    # A header that is included first somewhere is complete in itself.
    own, first = path.with_suffix(".hpp"), INCLUDE.search(text)
    if path.suffix == ".cpp" and relative.startswith("src/") and own.is_file() and Path(first[1]).name != own.name:
        yield text.count("\n", 0, first.start()) + 1, first[0].strip(), "the first include is the file's own header, " + own.name


def main(root):
    failures = []
    files = [p for top in ("include", "src", "examples", "benchmarks", "tests") for p in sorted((root / top).rglob("*.[hc]pp"))]
    for path in files:
        failures += ["%s:%d: %s\n    %s" % (path.relative_to(root).as_posix(), *complaint) for complaint in check_file(root, path)]
        listing = path.with_name("CMakeLists.txt")
        if path.suffix == ".cpp" and path.is_relative_to(root / "src") and not (
                listing.is_file() and re.search(r"\b%s\b" % re.escape(path.name), listing.read_text())):
            failures.append("%s: %s is missing: it is not built" % (listing.relative_to(root).as_posix(), path.name))
    print("\n".join(failures) if failures else "%d files, each in its room" % len(files))
    return 1 if failures or not files else 0


if __name__ == "__main__":
    sys.exit(main(Path(sys.argv[1] if len(sys.argv) > 1 else Path(__file__).parent.parent).resolve()))
