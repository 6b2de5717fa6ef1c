// SPDX-License-Identifier: Apache-2.0
#include "network/NetworkNamespace.hpp"

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <string>

namespace norvane::test {

namespace {

// In a user namespace of its own: somebody who is nobody outside, and may do everything inside, processes that it starts included.
bool become_root() {
    const uid_t user = ::getuid();
    return ::unshare(CLONE_NEWUSER) == 0 &&
           static_cast<bool>(std::ofstream("/proc/self/uid_map") << "0 " << user << " 1" << std::flush);
}

}  // namespace

bool leave_the_network() {
    if (::unshare(CLONE_NEWNET) != 0 && !(become_root() && ::unshare(CLONE_NEWNET) == 0)) {
        return false;
    }
    const int socket = ::socket(AF_INET, SOCK_DGRAM, 0);
    ifreq request = {};
    std::strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP;
    const bool is_up = ::ioctl(socket, SIOCSIFFLAGS, &request) == 0;
    ::close(socket);
    return is_up;
}

Carried carried() {
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
