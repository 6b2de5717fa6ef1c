// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/transport/socket_buffers.hpp"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>

namespace norvane {
namespace fastdds {

namespace {

std::uint32_t granted(int descriptor, int option, std::uint32_t wanted) noexcept {
    const int asked = static_cast<int>(wanted);
    int size = 0;
    socklen_t length = sizeof size;
    if (::setsockopt(descriptor, SOL_SOCKET, option, &asked, sizeof asked) != 0 ||
        ::getsockopt(descriptor, SOL_SOCKET, option, &size, &length) != 0) {
        return 0;
    }
    // The system doubles what it grants, for its own overhead, and reports that.
    return std::min(static_cast<std::uint32_t>(size) / 2, wanted);
}

}  // namespace

SocketBuffers granted_socket_buffers(std::uint32_t wanted) noexcept {
    SocketBuffers buffers;
    const int descriptor = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor >= 0) {
        buffers.receive = granted(descriptor, SO_RCVBUF, wanted);
        buffers.send = granted(descriptor, SO_SNDBUF, wanted);
        ::close(descriptor);
    }
    return buffers;
}

std::string warning_of_small_socket_buffers(std::uint32_t wanted) {
    static std::atomic<std::uint32_t> confirmed{0};
    const SocketBuffers buffers = granted_socket_buffers(wanted);
    const bool is_enough = buffers.receive == 0 || (buffers.receive == wanted && buffers.send == wanted);
    if (is_enough || confirmed.exchange(std::max(wanted, confirmed.load())) >= wanted) {
        return std::string();
    }
    const std::string size = std::to_string(wanted);
    return "the system grants UDP sockets buffers of " + std::to_string(buffers.receive) + " octets to receive and " +
           std::to_string(buffers.send) + " to send, instead of " + size +
           ": large samples take longer. Run sysctl -w net.core.rmem_max=" + size + " net.core.wmem_max=" + size +
           ", or set the property norvane.fastdds.buffer to what is granted";
}

}  // namespace fastdds
}  // namespace norvane
