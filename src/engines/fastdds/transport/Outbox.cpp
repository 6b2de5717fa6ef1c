// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/transport/Outbox.hpp"

#include <algorithm>
#include <exception>

#include <fastdds/rtps/common/LocatorsIterator.hpp>

#include "platform/Clock.hpp"

namespace norvane {
namespace fastdds {

namespace {

// Messages wait only after this many consecutive ones.
constexpr int BURST = 4;
// If a message waited and no other joined it before its writer waited too, the next burst must be longer by this before messages
// wait.
constexpr int BACKOFF = 100;
// Length of a round of the thread, in pauses, and at least.
constexpr int ROUND_PAUSES = 4;
constexpr std::chrono::microseconds SHORTEST_ROUND{100};
// After so many rounds without a waiting message the thread sleeps.
constexpr int IDLE_ROUNDS = 10;
constexpr std::size_t MOST_DESTINATIONS = 16;
constexpr std::int64_t DESTINATION_IDLE_NS = 1000 * 1000 * 1000;
// Longest time that the socket may block while its buffer is full.
constexpr std::chrono::milliseconds PATIENCE{100};

// The list of a single place, as Fast DDS takes it.
class OnePlace final : public eprosima::fastdds::rtps::LocatorsIterator {
public:
    OnePlace(const rtps::Locator_t& place, bool at_end) noexcept : _place(place), _at_end(at_end) {}
    LocatorsIterator& operator++() override {
        _at_end = true;
        return *this;
    }
    bool operator==(const LocatorsIterator& other) const override { return _at_end == static_cast<const OnePlace&>(other)._at_end; }
    bool operator!=(const LocatorsIterator& other) const override { return !(*this == other); }
    const rtps::Locator_t& operator*() const override { return _place; }

private:
    const rtps::Locator_t& _place;
    bool _at_end;
};

// The outbox to which the calling thread wrote messages that wait.
struct Deferred {
    ~Deferred();
    const Outbox* at = nullptr;  // compared only; its memory stays while `in` refers to it
    std::weak_ptr<Outbox> in;
};

thread_local const Outbox* writing_to = nullptr;
thread_local bool has_deferred = false;
// After that, destructors of statics and of other thread-locals may still write, but their messages cannot wait.
thread_local bool has_ended = false;
thread_local Deferred deferred;

Deferred::~Deferred() {
    Outbox::send_deferred();
    has_ended = true;
}

}  // namespace

Outbox::Outbox(std::size_t datagram_limit, std::chrono::microseconds pause) noexcept
    : _datagram_limit(datagram_limit),
      _pause_ns(std::chrono::nanoseconds(pause).count()),
      _round_length(std::max(SHORTEST_ROUND, ROUND_PAUSES * pause)) {}

bool Outbox::send_now(rtps::SenderResource& sender, const std::uint8_t* message, std::uint32_t length, const rtps::Locator_t& to,
                      const TimePoint& deadline) {
    OnePlace place(to, false);
    OnePlace end(to, true);
    return sender.send(message, length, &place, &end, deadline);
}

Outbox::BatchScope::BatchScope(const Outbox* outbox) noexcept : _before(writing_to) { writing_to = outbox; }
Outbox::BatchScope::~BatchScope() { writing_to = _before; }

bool Outbox::send(rtps::SenderResource& sender, const std::uint8_t* message, std::uint32_t length, const rtps::Locator_t& to,
                  const TimePoint& deadline) noexcept {
    const bool is_wanted_together = writing_to == this && !has_ended && 2 * length <= _datagram_limit;
    bool is_deferred = false;
    bool sent = false;
    try {
        std::lock_guard<std::mutex> lock(_mutex);
        Destination* const destination = find_locked(sender, to);
        if (destination == nullptr) {
            sent = send_now(sender, message, length, to, deadline);
            if (sent && is_wanted_together && !_closed) {
                add_destination_locked(sender, to);
            }
        } else if (!is_wanted_together) {
            sent = send_behind_locked(*destination, message, length, deadline);
        } else {
            const bool goes_on = destination->thread == &deferred && platform::monotonic_ns() - destination->last_ns <= _pause_ns;
            destination->burst = goes_on ? destination->burst + 1 : 0;
            destination->thread = &deferred;
            is_deferred = destination->burst >= BURST && defer_locked(*destination, message, length);
            sent = is_deferred || send_behind_locked(*destination, message, length, deadline);
            destination->last_ns = platform::monotonic_ns();
        }
    } catch (const std::exception&) {
        return sent;  // memory is short: what was not sent counts as lost on the wire
    }
    if (is_deferred && (!has_deferred || deferred.at != this)) {
        send_deferred();
        deferred.at = this;
        deferred.in = weak_from_this();
        has_deferred = true;
    }
    return sent;
}

Outbox::Destination* Outbox::find_locked(const rtps::SenderResource& sender, const rtps::Locator_t& to) noexcept {
    for (const std::unique_ptr<Destination>& destination : _destinations) {
        if (destination->sender == &sender && destination->place == to) {
            return destination.get();
        }
    }
    return nullptr;
}

// If there are enough of them, all in use, messages to other places are sent singly.
void Outbox::add_destination_locked(rtps::SenderResource& sender, const rtps::Locator_t& to) {
    const std::int64_t now_ns = platform::monotonic_ns();
    if (_destinations.size() == MOST_DESTINATIONS) {
        const auto oldest = std::min_element(_destinations.begin(), _destinations.end(),
                                             [](const auto& one, const auto& other) { return one->last_ns < other->last_ns; });
        if (now_ns - (*oldest)->last_ns < DESTINATION_IDLE_NS) {
            return;
        }
        post_locked(**oldest);  // messages may wait here if the process was stopped
        _destinations.erase(oldest);
    }
    _destinations.push_back(std::make_unique<Destination>(sender, to, _datagram_limit));
    _destinations.back()->last_ns = now_ns;
}

// @return false if the message cannot wait, also for want of memory or of a thread.
bool Outbox::defer_locked(Destination& destination, const std::uint8_t* message, std::uint32_t length) noexcept {
    if (!destination.waiting.has_room_for(length)) {
        post_locked(destination);
    }
    const bool is_first = destination.waiting.is_empty();
    try {
        watch_locked();
        if (!destination.waiting.append(message, length)) {
            return false;
        }
    } catch (const std::exception&) {
        return false;
    }
    destination.round = is_first ? _round : destination.round;
    if (!destination.waiting.has_room_for(length)) {
        post_locked(destination);  // full: the next message of this size would not fit
    }
    return true;
}

bool Outbox::send_behind_locked(Destination& destination, const std::uint8_t* message, std::uint32_t length,
                                const TimePoint& deadline) {
    if (!destination.waiting.is_empty()) {
        const bool is_joined = destination.waiting.append(message, length);  // its memory is reserved
        post_locked(destination);
        if (is_joined) {
            return true;
        }
    }
    return send_now(*destination.sender, message, length, destination.place, deadline);
}

void Outbox::post_locked(Destination& destination) noexcept {
    if (destination.waiting.is_empty()) {
        return;
    }
    const std::vector<std::uint8_t>& octets = destination.waiting.octets();
    try {
        send_now(*destination.sender, octets.data(), static_cast<std::uint32_t>(octets.size()), destination.place,
                 std::chrono::steady_clock::now() + PATIENCE);
    } catch (const std::exception&) {
        // Counts as lost on the wire.
    }
    destination.waiting.clear();
}

void Outbox::flush() noexcept {
    std::lock_guard<std::mutex> lock(_mutex);
    for (const std::unique_ptr<Destination>& destination : _destinations) {
        destination->burst = destination->waiting.message_count() == 1 ? -BACKOFF : destination->burst;
        post_locked(*destination);
    }
}

void Outbox::send_deferred() noexcept {
    if (!has_deferred) {
        return;
    }
    has_deferred = false;
    if (const std::shared_ptr<Outbox> outbox = deferred.in.lock()) {
        outbox->flush();
    }
}

void Outbox::close() noexcept {
    {
        std::lock_guard<std::mutex> lock(_mutex);
        _closed = true;
        for (const std::unique_ptr<Destination>& destination : _destinations) {
            post_locked(*destination);
        }
        _destinations.clear();  // their sockets are closed next
    }
    _wanted.notify_one();
    if (_watcher.joinable()) {
        _watcher.join();
    }
}

// ---- the thread for messages whose writer neither waits nor writes again -------------------------------------------

// @throws std::system_error  no thread can be started.
void Outbox::watch_locked() {
    if (_watched) {
        return;
    }
    if (!_watcher.joinable()) {
        _watcher = std::thread([this] { run_watcher(); });
    }
    _watched = true;
    _wanted.notify_one();
}

void Outbox::run_watcher() noexcept {
    int idle_rounds = 0;
    std::unique_lock<std::mutex> lock(_mutex);
    while (!_closed) {
        if (!_watched) {
            idle_rounds = 0;
            _wanted.wait(lock);
            continue;
        }
        _wanted.wait_for(lock, _round_length);
        bool is_idle = true;
        for (const std::unique_ptr<Destination>& destination : _destinations) {
            is_idle = is_idle && destination->waiting.is_empty();
            if (destination->round != _round) {
                post_locked(*destination);
            }
        }
        ++_round;
        idle_rounds = is_idle ? idle_rounds + 1 : 0;
        _watched = idle_rounds < IDLE_ROUNDS;
    }
}

}  // namespace fastdds
}  // namespace norvane
