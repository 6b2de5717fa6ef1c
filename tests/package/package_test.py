#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Configures the tree as users do, and builds and runs programs of applications against an installed one.

usage: package_test.py <case> <source tree> <build tree> <scratch folder>     (CTest calls it; the cases are the functions below)
"""
import os
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

SOURCE, BUILD, SCRATCH = (Path(p).resolve() for p in sys.argv[2:5])
PREFIX = SCRATCH / "prefix"
# Programs that were built with one minor version do not run with the next, until 1.0.
BREAKS = re.search(r'VERSION_TEXT\[\] = "(0\.\d+|[1-9]\d*)', (SOURCE / "include/norvane/version.hpp").read_text())[1]
SONAME = "libnorvane.so." + BREAKS


def run(*command, **more):
    """Runs a command and returns what it printed; its whole output goes to the log when it fails."""
    done = subprocess.run([str(c) for c in command], capture_output=True, text=True, timeout=300, **more)
    if done.returncode != 0:
        sys.exit("%s\nexit code %d\n%s%s" % (" ".join(map(str, command)), done.returncode, done.stdout, done.stderr))
    return done.stdout


def check(holds, what):
    if not holds:
        sys.exit(what)


def install():
    """The installed tree holds the library under its three names, and each public header."""
    shutil.rmtree(SCRATCH, ignore_errors=True)
    run("cmake", "--install", BUILD, "--prefix", PREFIX)
    library = next(PREFIX.rglob("libnorvane.so"))
    check(library.is_symlink() and os.readlink(library) == SONAME, "libnorvane.so does not lead to its SONAME")
    check("soname: [%s]" % SONAME in run("readelf", "-d", library), "wrong SONAME")
    here = {p.relative_to(SOURCE / "include") for p in (SOURCE / "include").rglob("*.hpp")}
    there = {p.relative_to(PREFIX / "include") for p in (PREFIX / "include").rglob("*.hpp")}
    check(here == there, "headers that are not installed, or should not be: %s" % (here ^ there))


def consumer():
    """A program of three lines finds the package, links and runs; and so does the example that README.md shows."""
    expected = re.search(r"prints\s+`([^`]+)`", (SOURCE / "README.md").read_text())
    check(expected, "README.md does not say what its example prints")

    build = SCRATCH / "consumer"
    run("cmake", "-S", SOURCE / "tests/package/consumer", "-B", build, "-DCMAKE_PREFIX_PATH=%s" % PREFIX)
    run("cmake", "--build", build)
    run(build / "consumer")
    printed = run(build / "readme_example").strip()
    check(printed == expected[1], "the example of README.md prints %r, and says %r" % (printed, expected[1]))


def engine_module():
    """A program finds the installed engine module beside the library; without it, it is refused by name."""
    build = SCRATCH / "engine_consumer"
    run("cmake", "-S", SOURCE / "tests/package/consumer", "-B", build, "-DCMAKE_PREFIX_PATH=%s" % PREFIX)
    run("cmake", "--build", build, "--target", "between_participants")

    def call(**environment):
        """What the program says on either output, and its exit code."""
        done = subprocess.run([build / "between_participants"], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=60,
                              env=dict(os.environ, **environment))
        return done.returncode, done.stdout
    library = next(PREFIX.rglob("libnorvane.so"))
    for engine in "embedded", "fastdds":
        code, said = call(NORVANE_ENGINE=engine)
        check((code, said) == (0, "hello!\n"), "on the installed %s: exit code %d, and it says:\n%s" % (engine, code, said))

    # The same program on a library that has no module beside it.
    elsewhere = SCRATCH / "without_module"
    elsewhere.mkdir(exist_ok=True)
    shutil.copy(library.resolve(), elsewhere / SONAME)
    code, said = call(NORVANE_ENGINE="fastdds", LD_LIBRARY_PATH=str(elsewhere))
    check(code == 1 and "libnorvane_fastdds.so.%s cannot be opened" % BREAKS in said and "could not create: participant" in said,
          "without the module: exit code %d, and it says:\n%s" % (code, said))
    code, said = call(NORVANE_ENGINE="embedded", LD_LIBRARY_PATH=str(elsewhere))
    check((code, said) == (0, "hello!\n"), "embedded without the module: exit code %d, and it says:\n%s" % (code, said))


def examples():
    """Each example is a project of its own, that finds what it needs; the first is built and run as such. (The build of the tree runs them all.)"""
    for project in sorted((SOURCE / "examples").glob("*/CMakeLists.txt")):
        name = project.parent.name
        build = SCRATCH / "examples" / name
        run("cmake", "-S", project.parent, "-B", build, "-DCMAKE_PREFIX_PATH=%s" % PREFIX)
        if name == "hello":
            run("cmake", "--build", build)
            check(run(build / "hello") == "Hello, world!\n", "the example hello does not greet")


def pkg_config():
    """The same program builds with what pkg-config says."""
    os.environ["PKG_CONFIG_PATH"] = str(next(PREFIX.rglob("norvane.pc")).parent)
    flags = run("pkg-config", "--cflags", "--libs", "norvane").split()
    program = SCRATCH / "pkg_config_consumer"
    run(os.environ.get("CXX", "c++"), "-std=c++17", SOURCE / "tests/package/consumer/main.cpp", "-o", program, *flags)
    run(program, env=dict(os.environ, LD_LIBRARY_PATH=run("pkg-config", "--variable=libdir", "norvane").strip()))


HIDDEN, SHOWN = "-DCMAKE_DISABLE_FIND_PACKAGE_fastrtps=ON", "-DCMAKE_DISABLE_FIND_PACKAGE_fastrtps=OFF"
# Options of one configuration after the other in the same tree, whether there is an engine on Fast DDS then, and words of the output. None: it fails.
CONFIGURATIONS = [
    ([HIDDEN], False, "Without the engine on Fast DDS"),
    ([SHOWN], True, ""),
    ([SHOWN, "-DNORVANE_FASTDDS=OFF"], False, "NORVANE_FASTDDS=OFF"),
    ([HIDDEN, "-DNORVANE_FASTDDS=ON"], None, "apt-get install libfastrtps-dev"),
    ([SHOWN], True, ""),
    (["-DBUILD_SHARED_LIBS=OFF"], None, "BUILD_SHARED_LIBS=OFF: norvane is a shared library only"),
]


def configurations():
    """A tree that was made without Fast DDS has the engine once its package is there; what was asked for and cannot be had fails by name."""
    with tempfile.TemporaryDirectory() as tree:
        for options, has_engine, words in CONFIGURATIONS:
            done = subprocess.run(["cmake", "-S", SOURCE, "-B", tree, "-DNORVANE_BUILD_TESTS=OFF", "-DNORVANE_BUILD_EXAMPLES=OFF"] + options,
                                  capture_output=True, text=True, timeout=120)
            said = done.stdout + done.stderr
            check((done.returncode == 0) == (has_engine is not None) and words in said, "%s: exit code %d\n%s" % (options, done.returncode, said))
            if has_engine is not None:
                targets = run("cmake", "--build", tree, "--target", "help")
                check(("norvane_fastdds" in targets) == has_engine, "%s: the targets are\n%s" % (options, targets))


# A request type, how it is described, the beginning of the sentence that the compiler says of it, and the member that its notes name.
WRONG_TYPES = [
    ("struct T { std::string s; };", "", "describe the request or reply type", ""),
    ("struct T { int* p; std::string s; };", "BOOST_DESCRIBE_STRUCT(T, (), (p, s))", "give this member", r"Member = int\s*\*"),
    ("struct T { std::vector<std::map<int, int>> m; };", "BOOST_DESCRIBE_STRUCT(T, (), (m))", "give this member", "Member = std::map<int, int>"),
    ("struct T { int i; long double l; };", "BOOST_DESCRIBE_STRUCT(T, (), (i, l))", "give this member", "Member = long double"),
    ("struct T { std::vector<std::optional<int>> o; };", "BOOST_DESCRIBE_STRUCT(T, (), (o))", "give this member", "std::optional<int>"),
    ("struct E {}; BOOST_DESCRIBE_STRUCT(E, (), ()) struct T { std::vector<E> e; };", "BOOST_DESCRIBE_STRUCT(T, (), (e))", "give this member", ""),
    ("struct I { void* p; }; BOOST_DESCRIBE_STRUCT(I, (), (p)) struct T { std::optional<I> i; };", "BOOST_DESCRIBE_STRUCT(T, (), (i))",
     "give this member", r"Struct = I; Member = void\s*\*"),
    ("struct T { int i; std::vector<T> t; };", "BOOST_DESCRIBE_STRUCT(T, (), (i, t))", "give this member", "Member = T"),
    ("struct T { std::deque<int> d; };", "BOOST_DESCRIBE_STRUCT(T, (), (d))", "give this member", "Member = std::deque<int>"),
    ("struct T { std::unique_ptr<int> u; };", "BOOST_DESCRIBE_STRUCT(T, (), (u))", "give this member", "Member = std::unique_ptr<int>"),
    ("class I { int i; }; class T { I i;", "BOOST_DESCRIBE_CLASS(T, (), (), (), (i)) };", "give this member", "Member = I"),
    ("struct T { const int c = 1; int i; };", "BOOST_DESCRIBE_STRUCT(T, (), (c, i))", "a member of a described type must be neither const", "Member = const int"),
    ("enum class E : long { A = 1L << 32 }; BOOST_DESCRIBE_ENUM(E, A) struct T { E e; };", "BOOST_DESCRIBE_STRUCT(T, (), (e))",
     "an enumeration is sent in 32 bits", "Member = E"),
    ("enum class E : long {}; struct T { std::vector<E> e; };", "BOOST_DESCRIBE_STRUCT(T, (), (e))", "an enumeration is sent in 32 bits", "Member = E"),
    ("enum E { A }; struct T { E e; };", "BOOST_DESCRIBE_STRUCT(T, (), (e))", "describe this enumeration with BOOST_DESCRIBE_ENUM", "Member = E"),
    ("enum class E : long { A = -1 }; BOOST_DESCRIBE_ENUM(E, A) struct T { E e; };", "BOOST_DESCRIBE_STRUCT(T, (), (e))", "", ""),
    ("class T { int hidden; public: int i;", "BOOST_DESCRIBE_CLASS(T, (), (i), (), ()) };", "name every member", "T = T"),
    ("class T { char c; std::string s; bool b; public: int i; virtual ~T() = default; T() = default; T(const T&) = default; T& operator=(const T&) = default;",
     "T(T&&) = default; BOOST_DESCRIBE_CLASS(T, (), (i), (), (c, s, b)) };", "", ""),
    ("struct T { int i; std::string forgotten; };", "BOOST_DESCRIBE_STRUCT(T, (), (i))", "name every member", "T = T"),
    ("struct T { double d; bool told; bool in_padding; };", "BOOST_DESCRIBE_STRUCT(T, (), (d, told))", "name every member", "T = T"),
    ("struct T { T(int); int i; };", "BOOST_DESCRIBE_STRUCT(T, (), (i))", "give the described type a default constructor", ""),
    ("struct T { T() = default; T(const T&); T& operator=(const T&) = default; int i; };", "BOOST_DESCRIBE_STRUCT(T, (), (i))",
     "give the described type a move constructor", ""),
]


def wrong_types():
    """A type that cannot be a request is refused with one error of one sentence; the same program with a good type compiles."""
    compiler = os.environ.get("CXX", "c++")
    flags = ["-std=c++17", "-fsyntax-only", "-I%s" % (SOURCE / "include"), "-x", "c++", "-"]
    for types, description, sentence, member in WRONG_TYPES:
        program = "\n".join(["#include <deque>", "#include <map>", "#include <memory>", '#include "norvane/norvane.hpp"', types, description,
                             "void make(norvane::RequesterParams& params) { norvane::Requester<T, T> requester(params); }", ""])
        done = subprocess.run([compiler] + flags, input=program, capture_output=True, text=True, timeout=120)
        errors = [line for line in done.stderr.splitlines() if " error: " in line]
        if not sentence:
            check(done.returncode == 0, "%s\nshould compile:\n%s" % (program, done.stderr))
        else:
            check(len(errors) == 1 and "norvane: " + sentence in errors[0] and errors[0].rstrip('"').endswith("."),
                  "%s\nshould give one error, norvane: %s ...\n%s" % (program, sentence, done.stderr))
            notes = re.search(member, done.stderr) or "clang" in compiler
            check(notes, "%s\nno note names %s\n%s" % (program, member, done.stderr))


# Statements about a requester of T that would refer to what is gone at their end, and the words of the compiler's complaint; none where the
# statement is right.
WRONG_USES = [
    ("(void)requester.take_replies().begin();", "keep the LoanedSamples in a variable"),
    ("(void)requester.take_replies().data_seq().length();", "keep the LoanedSamples in a variable"),
    ("T& data = requester.take_replies()[0].data();", "cannot bind"),
    ("T& data = requester.take_reply().value().data();", "cannot bind"),
    ("text = &texts.take_replies()[0].data();", "taking .*address of"),
    ("params.datawriter_qos(DDS_DataWriterQos());", "only its address is kept"),
    ("params.participant(norvane::Participant());", "it leaves its domain"),
    ("(void)norvane::Participant().get();", "it leaves its domain"),
    ("norvane::SampleRef<const T>().set_data(T());", "only its address is kept"),
    ("norvane::SampleRef<const T>().set_info(DDS_SampleInfo());", "only its address is kept"),
    ("auto call = requester.call_async(T(), norvane::DEFAULT_TIMEOUT, norvane::use_awaitable); co_await call;", "it borrows the request: await it at once"),
    ("co_await requester.call_async(T(), norvane::DEFAULT_TIMEOUT, norvane::use_awaitable);", ""),
    ("for (const auto& each : requester.take_replies()) { use(each.data()); }", ""),
    ("const T& copied = requester.take_replies()[0].data(); use(copied); use(requester.take_reply()->data()); use(*requester.take_reply());", ""),
    ("const std::string& copied = texts.take_replies()[0].data(); const DDS_SampleInfo& info = texts.take_replies()[0].info();", ""),
]
USES = """#include <coroutine>
#include "norvane/coroutines.hpp"
#include "norvane/norvane.hpp"
struct T { std::string s; };
BOOST_DESCRIBE_STRUCT(T, (), (s))
struct Task {
    struct promise_type {
        Task get_return_object() { return {}; }
        std::suspend_never initial_suspend() { return {}; }
        std::suspend_never final_suspend() noexcept { return {}; }
        void return_void() {}
        void unhandled_exception() {}
    };
};
void use(const T&);
Task make(norvane::RequesterParams& params, norvane::Requester<T, T>& requester, norvane::Requester<std::string, std::string>& texts, const char* const* text) {
    co_await std::suspend_never();
"""


def wrong_uses():
    """What would refer to a temporary that is gone is refused at its line, in words that say what to do; what is right compiles."""
    program = USES + "\n".join("{ %s }" % use for use, _ in WRONG_USES) + "\n}\n"
    done = subprocess.run([os.environ.get("CXX", "c++"), "-std=c++20", "-fsyntax-only", "-I%s" % (SOURCE / "include"), "-x", "c++", "-"],
                          input=program, capture_output=True, text=True, timeout=120)
    for number, (use, words) in enumerate(WRONG_USES, USES.count("\n") + 1):
        said = re.findall(r"^<stdin>:%d:.*?(?=^<stdin>|\Z)" % number, done.stderr, re.MULTILINE | re.DOTALL)
        errors = [each for each in said if " error: " in each.splitlines()[0]]
        check(bool(errors) == bool(words) and (not words or re.search(words, errors[0])),
              "%s\nshould be %s:\n%s" % (use, "refused: " + words if words else "accepted", "".join(said)))


{"configurations": configurations, "install": install, "consumer": consumer, "examples": examples, "engine_module": engine_module, "pkg_config": pkg_config, "wrong_types": wrong_types, "wrong_uses": wrong_uses}[sys.argv[1]]()
