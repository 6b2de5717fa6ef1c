# SPDX-License-Identifier: Apache-2.0
# What the build needs of the machine. A package that is missing is named as Debian names it.

# norvane_need(<package> <what for> <Debian package> [find_package arguments...])
macro(norvane_need package purpose debian_package)
    find_package(${package} ${ARGN} QUIET)
    if(NOT ${package}_FOUND)
        message(FATAL_ERROR "${package} is needed ${purpose}, and was not found.\n"
                            "On Debian: apt-get install ${debian_package}    (scripts/ensure_packages.sh installs all that is needed)")
    endif()
endmacro()

norvane_need(Threads "by the library" libc6-dev)
if(NORVANE_BUILD_TESTS)
    norvane_need(GTest "by the tests (NORVANE_BUILD_TESTS=OFF does without)" libgtest-dev)
    norvane_need(Python3 "by the tests (NORVANE_BUILD_TESTS=OFF does without)" python3 COMPONENTS Interpreter)
endif()
if(NORVANE_BUILD_BENCHMARKS)
    norvane_need(benchmark "by the benchmarks (NORVANE_BUILD_BENCHMARKS=OFF does without)" libbenchmark-dev)
endif()
