// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/transport/DelayLine.hpp"

#include <algorithm>
#include <chrono>
#include <utility>

#include "platform/Clock.hpp"

namespace norvane {
namespace fastdds {

bool DelayLine::hold(std::vector<std::uint8_t> datagram, std::int64_t due_ns, Delivery delivery) {
    const std::lock_guard<std::mutex> lock(_mutex);
    if (_closed || _held.size() == MOST_DATAGRAMS || _octets + datagram.size() > MOST_OCTETS || datagram.size() > ROOM) {
        return false;
    }
    if (!_thread.joinable()) {
        _thread = std::thread([this] { run(); });
    }
    const std::size_t size = datagram.size();
    const auto place = _held.emplace(due_ns, Held{std::move(datagram), std::move(delivery)});
    _octets += size;
    if (place == _held.begin()) {
        _changed.notify_one();
    }
    return true;
}

void DelayLine::close() noexcept {
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        _closed = true;
        _held.clear();
    }
    _changed.notify_one();
    if (_thread.joinable()) {
        _thread.join();
    }
}

void DelayLine::run() noexcept {
    std::vector<std::uint8_t> room(ROOM);
    std::unique_lock<std::mutex> lock(_mutex);
    while (!_closed) {
        if (_held.empty()) {
            _changed.wait(lock);
            continue;
        }
        const std::int64_t wait_ns = _held.begin()->first - platform::monotonic_ns();
        if (wait_ns > 0) {
            _changed.wait_for(lock, std::chrono::nanoseconds(wait_ns));
            continue;
        }
        const Held next = std::move(_held.begin()->second);
        _held.erase(_held.begin());
        _octets -= next.datagram.size();
        lock.unlock();
        std::copy(next.datagram.begin(), next.datagram.end(), room.begin());
        next.delivery(room.data(), static_cast<std::uint32_t>(next.datagram.size()));
        lock.lock();
    }
}

}  // namespace fastdds
}  // namespace norvane
