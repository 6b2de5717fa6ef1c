// SPDX-License-Identifier: Apache-2.0
// How two processes of a question reach each other, and nobody else.
#ifndef BENCH_NETWORK_LINK_HPP
#define BENCH_NETWORK_LINK_HPP

#include <unistd.h>

namespace bench {

enum class Transport {
    UDP,            ///< On 127.0.0.1: nothing leaves the machine.
    SHARED_MEMORY,  ///< That alone, for discovery too.
};

struct Link {
    Transport transport;
    /// A requester and its replier have the same one, and share it with no other pair of the program.
    int pair;

    /// @return a domain for the pair. Programs that run at the same time rarely share one.
    int domain() const {
        constexpr int PAIRS = 16;
        constexpr int DOMAINS = 230;  // above, ports run out
        return (static_cast<int>(getppid()) * PAIRS + pair) % DOMAINS;
    }
};

}  // namespace bench

#endif
