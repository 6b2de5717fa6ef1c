# SPDX-License-Identifier: Apache-2.0
# How our own code is compiled. norvane_room() makes a room of src/; norvane_program() makes a test, example or benchmark.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)

# What is not marked NORVANE_EXPORT stays inside, inline members of exported classes included: else the list of exported
# symbols would depend on what the optimiser inlines.
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

if(PROJECT_IS_TOP_LEVEL)
    set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
    if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
        set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
    endif()
    find_program(NORVANE_CCACHE ccache)
    mark_as_advanced(NORVANE_CCACHE)
    if(NORVANE_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
        set(CMAKE_CXX_COMPILER_LAUNCHER "${NORVANE_CCACHE}")
    endif()
endif()

# The flags of everything that we compile. An interface target, so that a program that embeds the project is left alone.
add_library(norvane_compile_flags INTERFACE)
target_compile_options(norvane_compile_flags INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
if(NORVANE_WERROR)
    target_compile_options(norvane_compile_flags INTERFACE -Werror)
endif()
if(NORVANE_SANITIZE STREQUAL "address")
    set(norvane_sanitize_flags -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
elseif(NORVANE_SANITIZE STREQUAL "thread")
    set(norvane_sanitize_flags -fsanitize=thread -fno-omit-frame-pointer)
elseif(NORVANE_SANITIZE STREQUAL "fuzz")
    set(norvane_sanitize_flags -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
elseif(NORVANE_SANITIZE)
    message(FATAL_ERROR "NORVANE_SANITIZE is \"${NORVANE_SANITIZE}\": it may be empty, address, thread or fuzz")
endif()
if(norvane_sanitize_flags)
    target_compile_options(norvane_compile_flags INTERFACE ${norvane_sanitize_flags})
    target_link_options(norvane_compile_flags INTERFACE ${norvane_sanitize_flags})
endif()
if(NORVANE_COVERAGE)
    target_compile_options(norvane_compile_flags INTERFACE --coverage)
    target_link_options(norvane_compile_flags INTERFACE --coverage)
endif()

# norvane_room(<name> [SEES_ROOMS])
#
# Makes the object library of a room; its sources are added by the CMakeLists.txt of the folder. Without SEES_ROOMS the room
# is compiled with include/ alone, as a stranger's program would be: it cannot reach into another room.
function(norvane_room name)
    cmake_parse_arguments(PARSE_ARGV 1 room "SEES_ROOMS" "" "")
    add_library(${name} OBJECT)
    set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE ON)
    target_include_directories(${name} PUBLIC "${PROJECT_SOURCE_DIR}/include")
    if(room_SEES_ROOMS)
        target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}/src")
    endif()
    # Calls between our own exported functions need not go through the symbol table; nobody is meant to interpose them.
    target_compile_options(${name} PRIVATE -fno-semantic-interposition)
    # Tests hammer the library, and find more races when it is not slowed down; the tests themselves compile twice as fast without.
    if(NOT NORVANE_COVERAGE)
        target_compile_options(${name} PRIVATE $<$<CONFIG:Debug>:-O1>)
    endif()
    target_link_libraries(${name} PRIVATE norvane_compile_flags Threads::Threads)
    # The typed headers of third parties, without what they would have us link.
    target_include_directories(${name} SYSTEM PRIVATE $<TARGET_PROPERTY:fastcdr,INTERFACE_INCLUDE_DIRECTORIES>
                                                      $<TARGET_PROPERTY:Boost::headers,INTERFACE_INCLUDE_DIRECTORIES>)
endfunction()

# norvane_program(<name> SOURCES <file>... [LIBRARIES <target>...])
function(norvane_program name)
    cmake_parse_arguments(PARSE_ARGV 1 program "" "" "SOURCES;LIBRARIES")
    add_executable(${name} ${program_SOURCES})
    target_link_libraries(${name} PRIVATE ${program_LIBRARIES} norvane_compile_flags Threads::Threads)
endfunction()
