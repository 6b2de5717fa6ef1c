// SPDX-License-Identifier: Apache-2.0
// How much memory this process has.
#ifndef BENCH_NETWORK_MEMORY_HPP
#define BENCH_NETWORK_MEMORY_HPP

#include <unistd.h>

#include <fstream>
#include <stdexcept>

namespace bench {

/// @return the octets of this process that are in memory.
inline double resident_octets() {
    std::ifstream file("/proc/self/statm");
    double all = 0;
    double resident = 0;
    if (!(file >> all >> resident)) {
        throw std::runtime_error("/proc/self/statm cannot be read");
    }
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE));
}

}  // namespace bench

#endif
