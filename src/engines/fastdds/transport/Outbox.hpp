// SPDX-License-Identifier: Apache-2.0
// Joins small messages of a participant into one datagram while a thread writes one after the other.
//
// 1. A message waits only if its thread has just sent several to the same destination, each right after the one before. A single
//    call, or a few, are sent at once.
// 2. Waiting messages are sent when their datagram is full; when a message that may not wait goes to the same destination; when the
//    thread that wrote them waits or finds no sample (DeferringEngines); and for threads that do neither, a little later, by a
//    thread of the outbox.
// 3. Messages to one destination are sent in order.
// 4. The mutex is taken under locks of Fast DDS, and held while a datagram is given to the socket. It is a leaf.
#ifndef NORVANE_ENGINES_FASTDDS_TRANSPORT_OUTBOX_HPP
#define NORVANE_ENGINES_FASTDDS_TRANSPORT_OUTBOX_HPP

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <fastdds/rtps/common/Locator.h>
#include <fastdds/rtps/network/SenderResource.h>

#include "engines/fastdds/identity.hpp"
#include "engines/fastdds/transport/Datagram.hpp"

namespace norvane {
namespace fastdds {

class Outbox : public std::enable_shared_from_this<Outbox> {
public:
    typedef std::chrono::steady_clock::time_point TimePoint;

    /// @param datagram_limit  most octets of a datagram with several messages.
    /// @param pause  longest time between two messages of a burst: longer than it takes to write one, shorter than a round trip. A
    ///         waiting message is sent after four to twelve pauses at the latest; rounds of the thread take at least a tenth of a
    ///         millisecond.
    Outbox(std::size_t datagram_limit, std::chrono::microseconds pause) noexcept;
    ~Outbox() { close(); }
    Outbox(const Outbox&) = delete;
    Outbox& operator=(const Outbox&) = delete;

    /// While it exists, messages that the calling thread sends through the outbox may wait.
    class BatchScope {
    public:
        /// @param outbox  null: no message waits.
        explicit BatchScope(const Outbox* outbox) noexcept;
        ~BatchScope();
        BatchScope(const BatchScope&) = delete;
        BatchScope& operator=(const BatchScope&) = delete;

    private:
        const Outbox* const _before;
    };

    /// Sends a message, or keeps it for a while.
    /// @param sender  lives until the outbox is closed.
    /// @return whether it was sent, or will be.
    bool send(rtps::SenderResource& sender, const std::uint8_t* message, std::uint32_t length, const rtps::Locator_t& to,
              const TimePoint& deadline) noexcept;

    /// Sends by a socket of Fast DDS, past every outbox.
    static bool send_now(rtps::SenderResource& sender, const std::uint8_t* message, std::uint32_t length, const rtps::Locator_t& to,
                         const TimePoint& deadline);

    /// Sends all waiting messages.
    void flush() noexcept;

    /// Sends all waiting messages. Later ones do not wait.
    void close() noexcept;

    /// Sends the waiting messages of the outbox to which the calling thread wrote last.
    static void send_deferred() noexcept;

private:
    // A socket, and a place to which it sends.
    struct Destination {
        Destination(rtps::SenderResource& from, const rtps::Locator_t& to, std::size_t limit)
            : sender(&from), place(to), waiting(limit) {}

        rtps::SenderResource* sender;
        rtps::Locator_t place;
        Datagram waiting;
        std::uint64_t round = 0;       // of the thread below, when the first waiting message came
        std::int64_t last_ns = 0;      // when the last message that may wait was sent or kept
        const void* thread = nullptr;  // that wrote it
        int burst = 0;                 // such messages of that thread, each right after the one before
    };

    Destination* find_locked(const rtps::SenderResource& sender, const rtps::Locator_t& to) noexcept;
    void add_destination_locked(rtps::SenderResource& sender, const rtps::Locator_t& to);
    bool defer_locked(Destination& destination, const std::uint8_t* message, std::uint32_t length) noexcept;
    bool send_behind_locked(Destination& destination, const std::uint8_t* message, std::uint32_t length, const TimePoint& deadline);
    void post_locked(Destination& destination) noexcept;
    void watch_locked();
    void run_watcher() noexcept;

    const std::size_t _datagram_limit;
    const std::int64_t _pause_ns;
    const std::chrono::microseconds _round_length;
    std::mutex _mutex;
    std::vector<std::unique_ptr<Destination>> _destinations;
    bool _closed = false;
    bool _watched = false;  // the thread runs rounds
    std::uint64_t _round = 0;
    std::condition_variable _wanted;
    std::thread _watcher;
};

}  // namespace fastdds
}  // namespace norvane

#endif
