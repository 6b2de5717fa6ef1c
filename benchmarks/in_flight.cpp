// How many calls a second go through with 64 requests in flight, over a pair of queues made of mutex and condition variable?
// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "EchoService.hpp"
#include "Placement.hpp"
#include "Question.hpp"
#include "Stopwatch.hpp"

namespace bench {
namespace {

constexpr std::uint64_t IN_FLIGHT = 64;

/// The floor by hand: a ring of payloads. At most IN_FLIGHT are ever in it, so it is never full.
class Queue {
public:
    void put(const Payload& payload) {
        {
            std::lock_guard<std::mutex> lock(_mutex);
            _ring[_put++ % IN_FLIGHT] = payload;
        }
        _filled.notify_one();
    }

    /// Sleeps until there is a payload.
    Payload take() {
        std::unique_lock<std::mutex> lock(_mutex);
        _filled.wait(lock, [this] { return _put != _taken; });
        return _ring[_taken++ % IN_FLIGHT];
    }

private:
    std::mutex _mutex;
    std::condition_variable _filled;
    std::array<Payload, IN_FLIGHT> _ring;
    std::uint64_t _put = 0;
    std::uint64_t _taken = 0;
};

class QueuePair {
public:
    ~QueuePair() {
        _requests.put(make_payload(STOP));
        _echo.join();
    }

    void send(const Payload& request) { _requests.put(request); }
    /// @return how many replies came, at least one; each is checked.
    std::uint64_t collect(std::uint64_t expected) {
        check_echo(_replies.take(), expected);
        return 1;
    }
    pthread_t echo_thread() { return _echo.native_handle(); }

private:
    void answer() {
        for (Payload request = _requests.take(); request.number != STOP; request = _requests.take()) {
            _replies.put(request);
        }
    }

    Queue _requests;
    Queue _replies;
    std::thread _echo{[this] { answer(); }};
};

class Ours {
public:
    void send(const Payload& request) { _service.requester().send_request(request); }
    std::uint64_t collect(std::uint64_t expected) {
        if (!_service.requester().wait_for_replies(std::chrono::seconds(10))) {
            throw std::runtime_error("no reply within 10 seconds");
        }
        const auto replies = _service.requester().take_replies();
        for (const auto& reply : replies) {
            check_echo(reply.data(), expected++);
        }
        return static_cast<std::uint64_t>(replies.length());
    }
    pthread_t echo_thread() { return _service.echo_thread(); }

private:
    EchoService<Payload> _service{"InFlight"};
};

/// Keeps IN_FLIGHT requests under way for the length of a round, then collects the rest.
/// @return calls per second.
template <class Transport>
double calls_per_second(Transport& transport) {
    constexpr std::uint64_t FIRST = 1;
    std::uint64_t sent = FIRST;
    std::uint64_t collected = FIRST;
    const Clock::time_point start = Clock::now();
    const Clock::time_point end = start + ROUND;
    for (bool sending = true; sending || collected < sent; sending = sending && Clock::now() < end) {
        while (sending && sent - collected < IN_FLIGHT) {
            transport.send(make_payload(sent++));
        }
        collected += transport.collect(collected);
    }
    return static_cast<double>(collected - FIRST) / ns_since(start) * 1e9;
}

class InFlight : public Probe {
public:
    explicit InFlight(Placement placement) {
        if (placement == Placement::APART) {
            const cpu_set_t allowed = allowed_processors();
            confine(_ours.echo_thread(), allowed, 0);
            confine(_floor.echo_thread(), allowed, 0);
            confine(pthread_self(), allowed, 1);
        }
    }

    Values measure() override { return {calls_per_second(_ours), calls_per_second(_floor)}; }

private:
    Ours _ours;
    QueuePair _floor;
};

Stage stage(Placement placement) {
    return {Processors::TWO, Spin::DEFAULT, [placement] { return std::make_unique<InFlight>(placement); }};
}

const Question question("4_in_flight", {stage(Placement::FREE), stage(Placement::APART)},
                        {{"64 in flight, two threads on two cores: calls per second", Unit::RATE, {0, 0}, {0, 1}, 0.6},
                         {"64 in flight, each thread on its own core: calls per second", Unit::RATE, {1, 0}, {1, 1}, 0.6}});

}  // namespace
}  // namespace bench
