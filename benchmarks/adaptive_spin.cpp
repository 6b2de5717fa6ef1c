// What does the adaptive spin bring when a core is free, and what does it cost when spinning is of no use?
// SPDX-License-Identifier: Apache-2.0
#include <atomic>
#include <thread>

#include "EchoService.hpp"
#include "Placement.hpp"
#include "Question.hpp"
#include "Stopwatch.hpp"

namespace bench {
namespace {

constexpr std::chrono::milliseconds LONG_ROUND{30};  // the rare and the slow calls would be too few in a short one

/// The floor: two threads, each on its core, spin on an atomic and hand the payload to and fro beside it.
double spinning_round_trip_ns() {
    struct alignas(64) Cell {
        std::atomic<std::uint64_t> turn{0};
        alignas(64) Payload payload;
    };
    static Cell request;
    static Cell reply;
    request.turn = reply.turn = 0;
    const cpu_set_t allowed = allowed_processors();
    std::thread echo([&allowed] {
        confine(pthread_self(), allowed, 0);
        for (std::uint64_t turn = 1;; ++turn) {
            while (request.turn.load(std::memory_order_acquire) != turn) {
            }
            reply.payload = request.payload;
            const bool last = reply.payload.number == STOP;
            reply.turn.store(turn, std::memory_order_release);
            if (last) {
                return;
            }
        }
    });
    confine(pthread_self(), allowed, 1);
    std::uint64_t turn = 0;
    const auto exchange = [&turn](std::uint64_t number) {
        request.payload = make_payload(number);
        request.turn.store(++turn, std::memory_order_release);
        while (reply.turn.load(std::memory_order_acquire) != turn) {
        }
        check_echo(reply.payload, number);
    };
    exchange(0);  // until here the echo thread was starting
    const double ns = ns_per_call(ROUND, [&] { exchange(turn); });
    exchange(STOP);
    echo.join();
    pthread_setaffinity_np(pthread_self(), sizeof allowed, &allowed);
    return ns;
}

class SpinningFloor : public Probe {
public:
    Values measure() override { return {spinning_round_trip_ns()}; }
};

struct Circumstances {
    bool third_busy_thread;
    std::chrono::nanoseconds handling;
    std::chrono::nanoseconds period;  ///< from call to call; zero: one after another
};

/// Values: latency of a call, and processor time of a call, that of caller and replier together.
class Call : public Probe {
public:
    explicit Call(const Circumstances& circumstances)
        : _circumstances(circumstances),
          _service("AdaptiveSpin", 1, circumstances.handling),
          _echo_clock(processor_clock(_service.echo_thread())) {}

    Values measure() override {
        std::atomic<bool> over{false};
        std::thread busy;
        if (_circumstances.third_busy_thread) {
            busy = std::thread([&over] {
                while (!over.load(std::memory_order_relaxed)) {
                }
            });
        }
        double latency_ns = 0;
        double calls = 0;
        const double processor_start = processor_ns(CLOCK_THREAD_CPUTIME_ID) + processor_ns(_echo_clock);
        const Clock::time_point start = Clock::now();
        for (auto due = start; due < start + LONG_ROUND; ++calls) {
            const Clock::time_point called = Clock::now();
            call(_service.requester(), make_payload(++_number));
            latency_ns += ns_since(called);
            if (_circumstances.period.count() > 0) {
                due += _circumstances.period;
                std::this_thread::sleep_until(due);
            } else {
                due = Clock::now();
            }
        }
        const double spent_ns = processor_ns(CLOCK_THREAD_CPUTIME_ID) + processor_ns(_echo_clock) - processor_start;
        over = true;
        if (busy.joinable()) {
            busy.join();
        }
        return {latency_ns / calls, spent_ns / calls};
    }

private:
    const Circumstances _circumstances;
    EchoService<Payload> _service;
    const clockid_t _echo_clock;
    std::uint64_t _number = 0;
};

std::function<std::unique_ptr<Probe>()> calls(const Circumstances& circumstances) {
    return [circumstances] { return std::make_unique<Call>(circumstances); };
}

using std::chrono::microseconds;

constexpr Circumstances PLAIN = {false, {}, {}};
constexpr Circumstances BUSY = {true, {}, {}};
constexpr Circumstances SLOW = {false, microseconds(100), {}};
constexpr Circumstances RARE = {false, {}, microseconds(200)};

const Question plain("2_spin_plain",
                     {{Processors::TWO, Spin::DEFAULT, calls(PLAIN)},
                      {Processors::TWO, Spin::OFF, calls(PLAIN)},
                      {Processors::TWO, Spin::OFF, [] { return std::make_unique<SpinningFloor>(); }}},
                     {{"round trip with spin, two cores, over two threads spinning", Unit::TIME, {0, 0}, {2, 0}, 20},
                      {"  the same over spin off: latency", Unit::TIME, {0, 0}, {1, 0}, 1.1},
                      {"  the same over spin off: processor time", Unit::TIME, {0, 1}, {1, 1}, 1.1}});
const Question busy("2_spin_third_busy_thread",
                    {{Processors::TWO, Spin::DEFAULT, calls(BUSY)}, {Processors::TWO, Spin::OFF, calls(BUSY)}},
                    {{"spin over spin off, third thread busy: latency", Unit::TIME, {0, 0}, {1, 0}, 1.1},
                     {"spin over spin off, third thread busy: processor time", Unit::TIME, {0, 1}, {1, 1}, 1.1}});
const Question slow("2_spin_slow_handler",
                    {{Processors::TWO, Spin::DEFAULT, calls(SLOW)}, {Processors::TWO, Spin::OFF, calls(SLOW)}},
                    {{"spin over spin off, handler of 100 us: latency", Unit::TIME, {0, 0}, {1, 0}, 1.1},
                     {"spin over spin off, handler of 100 us: processor time", Unit::TIME, {0, 1}, {1, 1}, 1.1}});
const Question rare("2_spin_rare_calls", {{Processors::TWO, Spin::DEFAULT, calls(RARE)}, {Processors::TWO, Spin::OFF, calls(RARE)}},
                    {{"spin over spin off, a call every 200 us: latency", Unit::TIME, {0, 0}, {1, 0}, 1.1},
                     {"spin over spin off, a call every 200 us: processor time", Unit::TIME, {0, 1}, {1, 1}, 1.1}});
const Question one_core("2_spin_one_core",
                        {{Processors::ONE, Spin::DEFAULT, calls(PLAIN)}, {Processors::ONE, Spin::OFF, calls(PLAIN)}},
                        {{"spin over spin off, one core allowed (so no spin): latency", Unit::TIME, {0, 0}, {1, 0}, 1.1},
                         {"spin over spin off, one core allowed: processor time", Unit::TIME, {0, 1}, {1, 1}, 1.1}});

}  // namespace
}  // namespace bench
