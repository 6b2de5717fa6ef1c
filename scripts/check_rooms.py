#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Who may include whom. Prints file:line, the include and the rule for everything that is out of its room; exits with 1 then.

usage: scripts/check_rooms.py [root of the tree]

Each room lists what it may include besides the C++ standard library; the first room whose folder holds the file is the file's.
"""
import re
import sys
from pathlib import Path

OBJECT_API = ("norvane/dds/*", "norvane/export.hpp")
FRONT_ENDS = ("norvane/norvane.hpp", "norvane/Requester.hpp", "norvane/Replier.hpp")
UMBRELLA = ("norvane/norvane.hpp",)
# C++ headers that make threads or locks. Requests and replies need none: the middleware below has them. (A future is something to hand out.)
THREADS = ("<thread>", "<mutex>", "<shared_mutex>", "<condition_variable>", "<pthread.h>")


class Room:
    """A folder, what its files may include besides <c++ headers> and their own folder, and exceptions to that."""

    def __init__(self, folder, may, never=(), system=()):
        self.folder, self.may, self.never, self.system = folder, may, never, system


# Where the types of applications are taken apart and encoded, and nowhere else.
FASTCDR = ("fastcdr/Cdr.h", "fastcdr/FastBuffer.h")
DESCRIBE = ("boost/describe/*", "boost/mp11/*")

# What engines have in common besides their contract.
ALL_ENGINES = ("engines/judgement.hpp", "engines/refusals.hpp", "engines/GuidHash.hpp")

ROOMS = [
    Room("include/norvane/dds/", OBJECT_API, THREADS),
    Room("include/norvane/details/member_kinds.hpp", OBJECT_API + ("norvane/details/*",), THREADS, system=DESCRIBE),
    Room("include/norvane/details/CdrEncoder.hpp", OBJECT_API + ("norvane/details/*",), THREADS, system=FASTCDR),
    Room("include/norvane/generated_types.hpp", ("norvane/details/*",), THREADS, system=FASTCDR),
    Room("include/norvane/details/",
         OBJECT_API + ("norvane/details/*", "norvane/Exception.hpp", "norvane/EntityParams.hpp", "norvane/RequesterParams.hpp",
                       "norvane/ReplierParams.hpp", "norvane/CallTimeoutException.hpp", "norvane/Statistics.hpp", "norvane/Timeout.hpp"), THREADS),
    Room("include/norvane/norvane.hpp", ("norvane/*",)),
    Room("include/norvane/", ("norvane/*",), UMBRELLA + THREADS),
    Room("src/requestreply/", ("norvane/*",), FRONT_ENDS + THREADS),
    Room("src/infrastructure/", ("norvane/*",), FRONT_ENDS + THREADS),
    Room("src/frontend/", ("norvane/*", "frontend/*"), FRONT_ENDS, system=("boost/*",)),
    Room("src/platform/", OBJECT_API + ("platform/*",), system=("*",)),
    Room("src/middleware/", OBJECT_API + ("middleware/*", "platform/*"), system=("unistd.h",)),
    Room("src/engines/embedded/", OBJECT_API + ("middleware/Engine.hpp", "platform/*", *ALL_ENGINES, "engines/embedded/*")),
    Room("src/engines/fastdds/", OBJECT_API + ("middleware/Engine.hpp", "platform/*", *ALL_ENGINES, "engines/fastdds/*"),
         system=("fastdds/*", "fastrtps/*", "fastcdr/*", "arpa/inet.h", "ifaddrs.h", "netinet/in.h", "poll.h", "sys/socket.h", "unistd.h",
                 "tinyxml2.h")),
    Room("src/engines/refusals.hpp", ("middleware/Engine.hpp",)),
    Room("src/engines/judgement.hpp", ("middleware/Engine.hpp",)),
    Room("src/engines/GuidHash.hpp", OBJECT_API),
    Room("src/engines/EngineModule", ("middleware/Engine.hpp", "engines/EngineModule.hpp"), system=("dlfcn.h", "unistd.h")),
    Room("src/engines/select.cpp", ("middleware/Engine.hpp", "engines/EngineModule.hpp", "engines/embedded/EmbeddedEngine.hpp")),
    Room("examples/", ("norvane/*",), ("norvane/details/*",), system=("*",)),
    Room("benchmarks/network/", ("norvane/*", "benchmarks/*"), ("norvane/details/*",), system=("*",)),
    Room("benchmarks/", ("norvane/*",), ("norvane/details/*",), system=("*",)),
    Room("tests/support/", ("norvane/*", "support/*"), system=("*",)),
    Room("tests/conformance/", OBJECT_API + ("support/*",), system=("*",)),
    Room("tests/requestreply/", ("norvane/*", "support/*"), system=("*",)),
    Room("tests/network/", ("norvane/*", "support/*", "network/*"), system=("*",)),
    Room("tests/package/", ("norvane/*",), ("norvane/details/*",), system=("*",)),
    Room("tests/unit/", ("*",), system=("*",)),
]

INCLUDE = re.compile(r'^\s*#\s*include\s*(?:"([^"]+)"|<([^>]+)>)')
# In this order, so that a quote in a comment and a comment mark in a string are both left alone.
NOISE = re.compile(r'//[^\n]*|/\*.*?\*/|R"(\w*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])+\'', re.DOTALL)
NAMES = re.compile(r"\b(?:class|struct)\s+(?:NORVANE_EXPORT\s+)?(\w*(?:Manager|Helper|Util|Common)\w*)\b\s*[:{;]")
FIXED_NAMES = {"DDSPropertyQosPolicyHelper"}
CXX_HEADER = re.compile(r"^[a-z_]+$")


def matches(name, patterns):
    return any(name.startswith(p[:-1]) if p.endswith("*") else name == p for p in patterns)


def room_of(path):
    return next((room for room in ROOMS if path.startswith(room.folder)), None)


def refusal(room, path, quoted, angled):
    """Why the file may not have this include; None when it may."""
    if angled is not None:
        if matches("<%s>" % angled, room.never):
            return "%s does without threads and locks" % room.folder
        if CXX_HEADER.match(angled) or matches(angled, room.system):
            return None
        return "%s may include of <...> the C++ library%s" % (room.folder, "".join(" and " + s for s in room.system))
    if ".." in Path(quoted).parts:
        return "no .. in an include"
    if "/" not in quoted:
        # By plain name only what lies beside the file.
        return None if (path.parent / quoted).is_file() else "a plain name means a file of the same folder"
    if matches(quoted, room.never) or not matches(quoted, room.may):
        return "%s may include %s%s" % (room.folder, ", ".join(room.may) or "nothing",
                                        ", but never " + ", ".join(room.never) if room.never else "")
    return None


def own_header(root, path):
    """The header that a source implements, as the source must spell it; None when it has none."""
    beside = path.with_suffix(".hpp")
    if beside.is_file():
        return {beside.name, str(beside.relative_to(root)).partition("/")[2]}
    public = [h for h in (root / "include" / "norvane").rglob(path.stem + ".hpp")]
    return {str(h.relative_to(root / "include")) for h in public} or None


def check_file(root, path):
    relative = path.relative_to(root).as_posix()
    text = path.read_text(encoding="utf-8")
    room = room_of(relative)
    if room is None:
        yield 1, relative, "this file is in no room of scripts/check_rooms.py"
        return
    # (Second where a benchmark puts its question first.)
    if "// SPDX-License-Identifier: Apache-2.0" not in text.split("\n", 2)[:2]:
        yield 1, text.split("\n", 1)[0], "a file begins with its SPDX line"

    # Blanked, not removed: line numbers stay. Strings go only for the brace count, since includes are written with quotes.
    code = NOISE.sub(lambda m: re.sub(r"[^\n]", " ", m.group()), text).split("\n")
    comments = NOISE.sub(lambda m: m.group() if m.group()[0] in "\"'R" else re.sub(r"[^\n]", " ", m.group()), text).split("\n")
    depth, includes = 0, 0
    for number, (line, braces) in enumerate(zip(comments, code), 1):
        found = INCLUDE.match(line)
        if found:
            includes += 1
            why = refusal(room, path, found[1], found[2])
            if why:
                yield number, line.strip(), why
            if depth:
                yield number, line.strip(), "no include inside a namespace or any other braces"
            own = own_header(root, path) if includes == 1 and path.suffix == ".cpp" and relative.startswith("src/") else None
            if own and found[1] not in own:
                yield number, line.strip(), "the first include is the file's own header: " + " or ".join(sorted(own))
        else:
            depth += braces.count("{") - braces.count("}")
    for found in NAMES.finditer("\n".join(code)):
        if found[1] not in FIXED_NAMES:
            yield "\n".join(code)[:found.start()].count("\n") + 1, found[1], "a name says what the thing is: no Manager, Helper, Util, Common"


def check_lists(root):
    """Every source of a room is in the CMakeLists.txt of its folder: what is not listed is not built, and nobody notices."""
    for folder in sorted({p.parent for p in (root / "src").rglob("*.cpp")}):
        listing = folder / "CMakeLists.txt"
        listed = set(re.findall(r"[\w.]+\.cpp", listing.read_text())) if listing.is_file() else set()
        for source in sorted(folder.glob("*.cpp")):
            if source.name not in listed:
                yield listing.relative_to(root).as_posix(), source.name


def main(root):
    failures = []
    files = [p for top in ("include", "src", "examples", "benchmarks", "tests") for p in sorted((root / top).rglob("*.[hc]pp"))]
    for path in files:
        for line, what, rule in check_file(root, path):
            failures.append("%s:%d: %s\n    %s" % (path.relative_to(root).as_posix(), line, what, rule))
    for listing, source in check_lists(root):
        failures.append("%s:1: %s is missing\n    every source of the folder is listed" % (listing, source))
    print("\n".join(failures) if failures else "%d files, each in its room" % len(files))
    return 1 if failures or not files else 0


if __name__ == "__main__":
    sys.exit(main(Path(sys.argv[1] if len(sys.argv) > 1 else Path(__file__).parent.parent).resolve()))
