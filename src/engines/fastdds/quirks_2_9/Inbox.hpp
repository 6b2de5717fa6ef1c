// SPDX-License-Identifier: Apache-2.0
// Receives the messages to a participant over UDP. One that may remove endpoints of peers is delivered while the timer thread is
// paused (EventThread).
// Thread rule: any thread at once.
#ifndef NORVANE_ENGINES_FASTDDS_QUIRKS_2_9_INBOX_HPP
#define NORVANE_ENGINES_FASTDDS_QUIRKS_2_9_INBOX_HPP

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <shared_mutex>
#include <vector>

#include "engines/fastdds/quirks_2_9/EventThread.hpp"

namespace norvane {
namespace fastdds {

class Inbox {
public:
    /// @param timers  of the participant; borrowed until `detach`. @param discovery_ports  those on which peers announce endpoints.
    void attach(EventThread& timers, std::vector<std::uint32_t> discovery_ports) noexcept;
    /// When it returns, no thread uses the timer thread.
    void detach() noexcept;

    /// Delivers a message. @param port  on which it came. @param hand_on  a call without arguments, which does not throw.
    /// @return whether peers announce themselves and their endpoints on that port.
    template <typename HandOn>
    bool take_in(const std::uint8_t* message, std::uint32_t length, std::uint32_t port, const HandOn& hand_on) {
        const std::shared_lock<std::shared_mutex> lock(_mutex);
        const bool is_for_discovery = std::find(_discovery_ports.begin(), _discovery_ports.end(), port) != _discovery_ports.end();
        if (!is_for_discovery || !must_pause_locked(message, length)) {
            hand_on();
            return is_for_discovery;
        }
        const std::uint64_t time = _timers->pause();
        _timers->wait_until_paused(time);
        hand_on();
        _timers->resume(time);
        return true;
    }

private:
    bool must_pause_locked(const std::uint8_t* message, std::uint32_t length) noexcept;

    std::shared_mutex _mutex;  // shared while a message is delivered; precedes all locks of Fast DDS
    EventThread* _timers = nullptr;
    std::vector<std::uint32_t> _discovery_ports;
    std::atomic<std::int64_t> _careful_until_ns{0};
};

}  // namespace fastdds
}  // namespace norvane

#endif
