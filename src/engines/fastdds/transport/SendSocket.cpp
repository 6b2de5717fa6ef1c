// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/transport/SendSocket.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fastrtps/utils/IPLocator.h>

namespace norvane {
namespace fastdds {

namespace {

// How long to wait for room at most, whatever the deadline: the caller may have a lock.
constexpr std::chrono::milliseconds PATIENCE{100};

}  // namespace

SendSocket::SendSocket(const std::string& from) noexcept : _descriptor(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    if (from.empty() || _descriptor < 0) {
        return;
    }
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    if (::inet_pton(AF_INET, from.c_str(), &address.sin_addr) != 1 ||
        ::bind(_descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ::close(_descriptor);
        _descriptor = -1;
    }
}

SendSocket::~SendSocket() {
    if (_descriptor >= 0) {
        ::close(_descriptor);
    }
}

// Not connected, although that would be a little faster: a connected socket keeps the address of the interface that it began with.
bool SendSocket::send(const std::uint8_t* octets, std::size_t length, const rtps::Locator_t& to,
                      const std::chrono::steady_clock::time_point& deadline) noexcept {
    if (_descriptor < 0 || to.kind != LOCATOR_KIND_UDPv4 || rtps::IPLocator::isMulticast(to)) {
        return false;
    }
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(rtps::IPLocator::getPhysicalPort(to));
    std::memcpy(&address.sin_addr, rtps::IPLocator::getIPv4(to), sizeof address.sin_addr);
    const auto hand_over = [&] {
        return ::sendto(_descriptor, octets, length, MSG_DONTWAIT, reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
               static_cast<ssize_t>(length);
    };
    if (hand_over()) {
        return true;
    }
    return (errno == EAGAIN || errno == EWOULDBLOCK) && wait_for_room(deadline) && hand_over();
}

// By another socket the datagram would overtake those of this one, where a network device has a queue for each: best-effort readers, who take nothing that
// is older than what they have, would lose all of those.
bool SendSocket::wait_for_room(const std::chrono::steady_clock::time_point& deadline) const noexcept {
    const auto end = std::min(deadline, std::chrono::steady_clock::now() + PATIENCE);
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        pollfd room = {_descriptor, POLLOUT, 0};
        const int found = ::poll(&room, 1, std::max(static_cast<int>(left.count()), 0));
        if (found >= 0 || errno != EINTR) {
            return found > 0;
        }
    }
}

}  // namespace fastdds
}  // namespace norvane
