// SPDX-License-Identifier: Apache-2.0
// What the system allows the buffers of UDP sockets to be. Thread rule: any thread.
#ifndef NORVANE_ENGINES_FASTDDS_TRANSPORT_SOCKET_BUFFERS_HPP
#define NORVANE_ENGINES_FASTDDS_TRANSPORT_SOCKET_BUFFERS_HPP

#include <cstdint>
#include <string>

namespace norvane {
namespace fastdds {

struct SocketBuffers {
    std::uint32_t receive = 0;
    std::uint32_t send = 0;
};

/// @return the octets that a UDP socket gets when it asks for `wanted` in both directions, at most `wanted`; zeros when there is no
/// socket to be had.
SocketBuffers granted_socket_buffers(std::uint32_t wanted) noexcept;

/// @return what to log when the system grants less than `wanted`: once in a process, and again when more is wanted; else an empty
/// text.
/// @throws std::bad_alloc
std::string warning_of_small_socket_buffers(std::uint32_t wanted);

}  // namespace fastdds
}  // namespace norvane

#endif
