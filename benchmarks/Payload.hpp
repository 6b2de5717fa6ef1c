// SPDX-License-Identifier: Apache-2.0
// The 64 octets that go to and fro.
#ifndef BENCH_PAYLOAD_HPP
#define BENCH_PAYLOAD_HPP

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>

namespace bench {

struct Payload {
    std::uint64_t number;
    std::uint32_t client;  ///< Which of several threads sent it.
    char text[52];
};
static_assert(sizeof(Payload) == 64, "the questions say 64 octets");

/// Asks whoever answers to end.
constexpr std::uint64_t STOP = UINT64_MAX;

inline Payload make_payload(std::uint64_t number) {
    Payload payload = {};
    payload.number = number;
    std::memset(payload.text, 'x', sizeof payload.text);
    return payload;
}

/// @throws std::runtime_error  the reply is not the one to that request: a benchmark of wrong answers would mean nothing.
inline void check_echo(const Payload& reply, std::uint64_t number) {
    if (reply.number != number || reply.text[51] != 'x') {
        throw std::runtime_error("wrong reply: " + std::to_string(reply.number) + " instead of " + std::to_string(number));
    }
}

}  // namespace bench

#endif
