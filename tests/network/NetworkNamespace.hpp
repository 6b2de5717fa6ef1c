// SPDX-License-Identifier: Apache-2.0
// A network of a peer's own, where nothing else is on the wire, and wires may be laid and cut.
#ifndef NORVANE_TESTS_NETWORK_NETWORKNAMESPACE_HPP
#define NORVANE_TESTS_NETWORK_NETWORKNAMESPACE_HPP

#include <sched.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

namespace norvane::test {

/// Runs a command of the shell. (Debian keeps ip where a user's PATH does not look.) @return whether it succeeded.
inline bool run(const std::string& command) {
    return std::system(("{ PATH=$PATH:/usr/sbin:/sbin; " + command + "; } >/dev/null 2>&1").c_str()) == 0;
}

/// Takes this process, and those that it starts, into a network namespace with a loopback and no more. Before it has threads.
/// @return whether the machine allows it.
inline bool leave_the_network() {
    const uid_t user = ::getuid();
    // Without the right to do so: in a user namespace, as its root.
    if (::unshare(CLONE_NEWNET) != 0 &&
        (::unshare(CLONE_NEWUSER) != 0 || !(std::ofstream("/proc/self/uid_map") << "0 " << user << " 1" << std::flush) ||
         ::unshare(CLONE_NEWNET) != 0)) {
        return false;
    }
    return run("ip link set lo up");
}

struct Carried {
    long octets = -1;
    long packets = -1;
};
/// @return what this process's loopback has carried so far. On any thread.
inline Carried carried() {
    std::ifstream devices("/proc/self/net/dev");
    Carried all;
    for (std::string word; devices >> word;) {
        if (word == "lo:") {
            devices >> all.octets >> all.packets;
            break;
        }
    }
    return all;
}

}  // namespace norvane::test

#endif
