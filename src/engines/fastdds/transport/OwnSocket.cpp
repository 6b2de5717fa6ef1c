// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/transport/OwnSocket.hpp"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include <fastrtps/utils/IPLocator.h>

namespace norvane {
namespace fastdds {

// Other participants of this machine receive multicasts, too: IP_MULTICAST_LOOP is on by default.
OwnSocket::OwnSocket()
    : SenderResource(LOCATOR_KIND_UDPv4), _socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    send_lambda_ = [this](const rtps::octet* message, std::uint32_t length, rtps::LocatorsIterator* places,
                          rtps::LocatorsIterator* end, const std::chrono::steady_clock::time_point& /*deadline*/) {
        bool sent = true;
        for (; *places != *end; ++*places) {
            sent = send_to(message, length, **places) && sent;
        }
        return sent;
    };
}

OwnSocket::~OwnSocket() {
    if (_socket >= 0) {
        ::close(_socket);
    }
}

bool OwnSocket::send_to(const std::uint8_t* message, std::uint32_t length, const rtps::Locator_t& place) const noexcept {
    sockaddr_in to = {};
    to.sin_family = AF_INET;
    to.sin_port = htons(rtps::IPLocator::getPhysicalPort(place));
    std::memcpy(&to.sin_addr, rtps::IPLocator::getIPv4(place), sizeof to.sin_addr);
    return ::sendto(_socket, message, length, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to) >= 0;
}

bool OwnSocket::send_to_group(const std::uint8_t* message, std::uint32_t length, const rtps::Locator_t& group,
                              const std::vector<std::uint32_t>& addresses) noexcept {
    bool sent = false;
    const std::lock_guard<std::mutex> lock(_mutex);
    for (const std::uint32_t address : addresses) {
        const in_addr through = {address};
        sent = (::setsockopt(_socket, IPPROTO_IP, IP_MULTICAST_IF, &through, sizeof through) == 0 &&
                send_to(message, length, group)) ||
               sent;
    }
    return sent;
}

}  // namespace fastdds
}  // namespace norvane
