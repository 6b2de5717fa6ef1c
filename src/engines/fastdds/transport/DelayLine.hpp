// SPDX-License-Identifier: Apache-2.0
// Datagrams that arrive later than they came. Those that are due at the same time keep their order.
//
// Thread rule: any thread at once. Its own thread, which is started with the first datagram, delivers with no lock held.
#ifndef NORVANE_ENGINES_FASTDDS_TRANSPORT_DELAYLINE_HPP
#define NORVANE_ENGINES_FASTDDS_TRANSPORT_DELAYLINE_HPP

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

namespace norvane {
namespace fastdds {

class DelayLine {
public:
    /// Hands a datagram on. Must not throw.
    typedef std::function<void(const std::uint8_t* message, std::uint32_t length)> Delivery;

    /// Bounds on what is held; what comes beyond is lost.
    static constexpr std::size_t MOST_DATAGRAMS = 65'536;
    static constexpr std::size_t MOST_OCTETS = 64U << 20;
    /// Fast DDS may read a fragment at a size that another datagram gave: behind a datagram lies as much as in its own buffers.
    static constexpr std::size_t ROOM = 2U << 16;

    DelayLine() = default;
    ~DelayLine() { close(); }
    DelayLine(const DelayLine&) = delete;
    DelayLine& operator=(const DelayLine&) = delete;

    /// Takes a copy. @param due_ns  on the monotonic clock. @return false if there is no room, or the line is closed.
    /// @throws std::bad_alloc, std::system_error  no thread can be started.
    bool hold(std::vector<std::uint8_t> datagram, std::int64_t due_ns, Delivery delivery);

    /// Drops what is held. When it returns, no datagram is delivered or will be. Not to be called by a delivery.
    void close() noexcept;

private:
    struct Held {
        std::vector<std::uint8_t> datagram;
        Delivery delivery;
    };

    void run() noexcept;

    std::mutex _mutex;  // a leaf
    std::condition_variable _changed;
    std::multimap<std::int64_t, Held> _held;  // by the time when they are due
    std::size_t _octets = 0;
    bool _closed = false;
    std::thread _thread;
};

}  // namespace fastdds
}  // namespace norvane

#endif
