// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/SendSocket.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include <fastrtps/utils/IPLocator.h>

namespace norvane {
namespace fastdds {

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
bool SendSocket::send(const std::uint8_t* octets, std::size_t length, const rtps::Locator_t& to) noexcept {
    if (_descriptor < 0 || to.kind != LOCATOR_KIND_UDPv4 || rtps::IPLocator::isMulticast(to)) {
        return false;
    }
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(rtps::IPLocator::getPhysicalPort(to));
    std::memcpy(&address.sin_addr, rtps::IPLocator::getIPv4(to), sizeof address.sin_addr);
    return ::sendto(_descriptor, octets, length, MSG_DONTWAIT, reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
           static_cast<ssize_t>(length);
}

}  // namespace fastdds
}  // namespace norvane
