// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/quirks_2_9/Inbox.hpp"

#include <algorithm>
#include <mutex>
#include <utility>

#include "engines/fastdds/quirks_2_9/Submessage.hpp"
#include "platform/Clock.hpp"

namespace norvane {
namespace fastdds {

namespace {

// Fast DDS may keep the news that an endpoint has left until an earlier message has been repeated.
constexpr std::int64_t CAREFUL_FOR_NS = 100 * 1000 * 1000;

constexpr std::uint8_t INLINE_QOS_FLAG = 0x02;
constexpr std::uint8_t DATA_FLAG = 0x04;
// Offset of the writer's entity id in the body.
constexpr std::size_t WRITER_OF_DATA = 8;
constexpr std::size_t WRITER_OF_OTHERS = 4;

// @return whether the writer at that offset is one of the four that announce endpoints: writers or readers, plain or encrypted.
//         (When a whole participant leaves, Fast DDS does not hold its discovery mutex; and with security it then ends a timer,
//         which waits for the timer thread.)
bool is_about_endpoints(const Submessage& each, std::size_t place) noexcept {
    const std::uint8_t* const writer = each.body + place;
    return each.length >= place + 4 && (writer[0] == 0x00 || writer[0] == 0xff) && writer[1] == 0x00 &&
           (writer[2] == 0x03 || writer[2] == 0x04) && writer[3] == 0xc2;
}

// An endpoint that is there is announced with data and without inline QoS.
bool tells_of_an_end(const Submessage& each) noexcept {
    return each.kind == Submessage::DATA && (each.flags & (INLINE_QOS_FLAG | DATA_FLAG)) != DATA_FLAG &&
           is_about_endpoints(each, WRITER_OF_DATA);
}

bool is_sealed(const Submessage& each) noexcept {
    return each.kind >= Submessage::FIRST_OF_SECURITY && each.kind <= Submessage::LAST_OF_SECURITY;
}

bool moves_a_writer_on(const Submessage& each) noexcept {
    if (each.kind == Submessage::DATA || each.kind == Submessage::DATA_FRAG) {
        return is_about_endpoints(each, WRITER_OF_DATA);
    }
    return (each.kind == Submessage::GAP || each.kind == Submessage::HEARTBEAT) && is_about_endpoints(each, WRITER_OF_OTHERS);
}

}  // namespace

void Inbox::attach(EventThread& timers, std::vector<std::uint32_t> discovery_ports) noexcept {
    const std::lock_guard<std::shared_mutex> lock(_mutex);
    _timers = &timers;
    _discovery_ports = std::move(discovery_ports);
}

void Inbox::detach() noexcept {
    const std::lock_guard<std::shared_mutex> lock(_mutex);
    _timers = nullptr;
}

bool Inbox::must_pause_locked(const std::uint8_t* message, std::uint32_t length) noexcept {
    if (_timers == nullptr || !Submessage::begin_a_message(message, length)) {
        return false;
    }
    const std::int64_t now_ns = platform::monotonic_ns();
    const bool is_careful = now_ns < _careful_until_ns.load(std::memory_order_relaxed);
    std::size_t place = Submessage::MESSAGE_HEADER;
    for (Submessage each; each.read(message, length, place); place += Submessage::HEADER + each.length) {
        if (tells_of_an_end(each)) {
            _careful_until_ns.store(now_ns + CAREFUL_FOR_NS, std::memory_order_relaxed);
            return true;
        }
        if (is_sealed(each) || (is_careful && moves_a_writer_on(each))) {
            return true;
        }
    }
    return false;
}

}  // namespace fastdds
}  // namespace norvane
