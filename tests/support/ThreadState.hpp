// SPDX-License-Identifier: Apache-2.0
// Whether a thread sleeps in the kernel: the side of "it is blocked" that can be observed from outside.
#ifndef NORVANE_TESTS_SUPPORT_THREADSTATE_HPP
#define NORVANE_TESTS_SUPPORT_THREADSTATE_HPP

#include <sys/syscall.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>

namespace norvane::test {

/// @return the number by which `is_asleep` knows the calling thread.
inline long this_thread_number() { return ::syscall(SYS_gettid); }

/// @param thread  of this process. 0, for none yet, is never asleep.
inline bool is_asleep(long thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    const std::string line((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    const std::string::size_type name_end = line.rfind(')');  // the name may hold anything
    return thread != 0 && name_end != std::string::npos && line.compare(name_end, 3, ") S") == 0;
}

}  // namespace norvane::test

#endif
