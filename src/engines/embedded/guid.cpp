// SPDX-License-Identifier: Apache-2.0
#include "engines/embedded/guid.hpp"

#include <atomic>
#include <cstdint>
#include <random>

namespace norvane {
namespace embedded {

namespace {

std::uint64_t draw_prefix() {
    std::random_device source;
    return (static_cast<std::uint64_t>(source()) << 32U) | source();
}

void put_big_endian(std::uint64_t value, DDS_Octet* place) noexcept {
    for (int octet = 7; octet >= 0; --octet) {
        place[octet] = static_cast<DDS_Octet>(value & 0xffU);
        value >>= 8U;
    }
}

}  // namespace

DDS_GUID_t next_guid() {
    static const std::uint64_t PREFIX = draw_prefix();
    static std::atomic<std::uint64_t> count{0};
    DDS_GUID_t guid;
    put_big_endian(PREFIX, guid.value);
    put_big_endian(count.fetch_add(1, std::memory_order_relaxed) + 1, guid.value + 8);
    return guid;
}

}  // namespace embedded
}  // namespace norvane
