// SPDX-License-Identifier: Apache-2.0
// Domain numbers of tests whose participants can be reached from other processes: two test runs on one machine never share one.
#ifndef NORVANE_TESTS_SUPPORT_DOMAINNUMBER_HPP
#define NORVANE_TESTS_SUPPORT_DOMAINNUMBER_HPP

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <stdexcept>

namespace norvane::test {

/// Claims a number by an abstract socket of that name. Such names belong to a network namespace, as domains do, and go with their
/// process.
/// @return a number that no other process has claimed, until this one ends.
inline int claim_domain() {
    constexpr int DOMAINS = 230;
    for (int attempt = 0; attempt < DOMAINS; ++attempt) {
        const int domain = (::getpid() + attempt) % DOMAINS;
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        // (The first octet of an abstract name is zero.)
        const int length = std::snprintf(address.sun_path + 1, sizeof address.sun_path - 1, "norvane-test-domain-%d", domain);
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + static_cast<std::size_t>(length));
        const int claim = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (::bind(claim, reinterpret_cast<sockaddr*>(&address), size) == 0) {
            return domain;  // the socket stays open on purpose
        }
        ::close(claim);
    }
    throw std::runtime_error("other tests have claimed every domain number");
}

}  // namespace norvane::test

#endif
