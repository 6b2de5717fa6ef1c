// SPDX-License-Identifier: Apache-2.0
// Where small messages of a participant wait to leave in one datagram, while a thread writes one after the other.
//
// 1. A message waits only when its writer's thread has just sent several to the same place, each right after the one before. A single call, or a few,
//    go out at once.
// 2. What waits goes out when its datagram is full; when a message that may not wait goes to the same place; when the thread that wrote it waits or
//    finds nothing (DeferringEngines); and, for threads that do neither, a little later, by a thread of the outbox.
// 3. Messages to one place leave in the order in which they came.
// 4. The mutex is taken under locks of Fast DDS, and held while a datagram is handed to the socket. It is a leaf.
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
#include "engines/fastdds/transport/SendSocket.hpp"

namespace norvane {
namespace fastdds {

class Outbox : public std::enable_shared_from_this<Outbox> {
public:
    typedef std::chrono::steady_clock::time_point TimePoint;

    /// @param datagram_limit  octets of a datagram with several messages at most.
    /// @param pause           a message belongs to a run when it comes so soon after the one before. Longer than it takes to write one, shorter than a
    ///                        round trip. What waits leaves after four to twelve of them at the latest, but a round of the thread takes a tenth of a millisecond.
    /// @param socket          what goes to a place that has a lane leaves by it, if it can; null: by Fast DDS's own alone.
    Outbox(std::size_t datagram_limit, std::chrono::microseconds pause, std::unique_ptr<SendSocket> socket) noexcept;
    ~Outbox() { close(); }
    Outbox(const Outbox&) = delete;
    Outbox& operator=(const Outbox&) = delete;

    /// While it exists, what the calling thread sends through the outbox may wait.
    class BatchScope {
    public:
        /// @param outbox  null: nothing waits.
        explicit BatchScope(const Outbox* outbox) noexcept;
        ~BatchScope();
        BatchScope(const BatchScope&) = delete;
        BatchScope& operator=(const BatchScope&) = delete;

    private:
        const Outbox* const _before;
    };

    /// Sends, or keeps the message for a while.
    /// @param sender  lives until the outbox is closed.
    /// @return whether it has been sent, or will be.
    bool send(rtps::SenderResource& sender, const std::uint8_t* message, std::uint32_t length, const rtps::Locator_t& to,
              const TimePoint& deadline) noexcept;

    /// Sends by a socket of Fast DDS, past every outbox.
    static bool send_now(rtps::SenderResource& sender, const std::uint8_t* message, std::uint32_t length, const rtps::Locator_t& to,
                         const TimePoint& deadline);

    /// Sends what waits.
    void flush() noexcept;

    /// Sends what waits. From now on nothing does.
    void close() noexcept;

    /// Sends what waits, in whichever outbox, since the calling thread wrote it.
    static void send_deferred() noexcept;

private:
    // From one socket to one place that it reaches.
    struct Destination {
        Destination(rtps::SenderResource& from, const rtps::Locator_t& to, std::size_t limit)
            : sender(&from), place(to), waiting(limit) {}

        rtps::SenderResource* sender;
        rtps::Locator_t place;
        Datagram waiting;
        std::uint64_t round = 0;       // of the thread below, when the first message came in
        std::int64_t last_ns = 0;      // when the last message that may wait was dealt with
        const void* thread = nullptr;  // that sent it
        int burst = 0;                 // such messages of that thread, each right after the one before
    };

    Destination* find_locked(const rtps::SenderResource& sender, const rtps::Locator_t& to) noexcept;
    void add_destination_locked(rtps::SenderResource& sender, const rtps::Locator_t& to);
    bool defer_locked(Destination& destination, const std::uint8_t* message, std::uint32_t length) noexcept;
    bool send_behind_locked(Destination& destination, const std::uint8_t* message, std::uint32_t length, const TimePoint& deadline);
    bool hand_over_locked(const Destination& destination, const std::uint8_t* message, std::uint32_t length,
                          const TimePoint& deadline);
    void post_locked(Destination& destination) noexcept;
    void watch_locked();
    void run_watcher() noexcept;

    const std::size_t _datagram_limit;
    const std::int64_t _pause_ns;
    const std::chrono::microseconds _round_length;
    const std::unique_ptr<SendSocket> _socket;
    std::mutex _mutex;
    std::vector<std::unique_ptr<Destination>> _destinations;
    bool _closed = false;
    bool _watched = false;  // the thread looks again by itself
    std::uint64_t _round = 0;
    std::condition_variable _wanted;
    std::thread _watcher;
};

}  // namespace fastdds
}  // namespace norvane

#endif
