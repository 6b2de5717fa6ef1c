# SPDX-License-Identifier: Apache-2.0
# What the build needs of the machine. A package that is missing is named as Debian names it.

# norvane_need(<package> <what for> <Debian package> [find_package arguments...])
macro(norvane_need package purpose debian_package)
    find_package(${package} ${ARGN} QUIET)
    if(NOT ${package}_FOUND)
        if(${package}_VERSION)
            set(norvane_found_instead " (There is version ${${package}_VERSION}.)")
        endif()
        message(FATAL_ERROR "${package} is needed ${purpose}, and was not found.${norvane_found_instead}\n"
                            "On Debian: apt-get install ${debian_package}    (scripts/ensure_packages.sh installs all that is needed)")
    endif()
endmacro()

norvane_need(Threads "by the library" libc6-dev)
# What the typed headers need. (Fast-CDR 2 is another library under the same name, and Boost has Describe since 1.77; packaged is 1.81.)
norvane_need(fastcdr "in version 1.0.26 or newer, below 2, by the typed headers" libfastcdr-dev 1.0.26)
norvane_need(Boost "in version 1.81 or newer, by the typed headers (Boost.Describe)" libboost1.81-dev 1.81)
if(NORVANE_BUILD_TESTS)
    norvane_need(GTest "by the tests (NORVANE_BUILD_TESTS=OFF does without)" libgtest-dev)
    norvane_need(Python3 "by the tests (NORVANE_BUILD_TESTS=OFF does without)" python3 COMPONENTS Interpreter)
endif()
if(NORVANE_BUILD_BENCHMARKS)
    norvane_need(benchmark "by the benchmarks (NORVANE_BUILD_BENCHMARKS=OFF does without)" libbenchmark-dev)
endif()
