// How often is a thread that waits for its reply woken without one, while T threads of one requester wait at once?
// SPDX-License-Identifier: Apache-2.0
//
// What is counted: how often a thread comes back from a sleep inside one wait for its reply, less the one time that the reply was
// there. A sleep is a futex wait with a time limit: the wait has one, and a thread that sleeps for a lock has none. The replier
// gathers all T requests and answers the last one first.
#include <dlfcn.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <exception>
#include <thread>

#include "EchoService.hpp"
#include "Question.hpp"
#include "Stopwatch.hpp"

namespace {

thread_local long sleeps_of_this_thread = 0;

}  // namespace

// Stands before the C library's function of that name, and looks on.
extern "C" __attribute__((visibility("default"))) long syscall(long number, ...) noexcept {
    static const auto NEXT = reinterpret_cast<long (*)(long, ...)>(dlsym(RTLD_NEXT, "syscall"));
    long arguments[6];
    va_list list;
    va_start(list, number);
    for (long& argument : arguments) {
        argument = va_arg(list, long);
    }
    va_end(list);
    const long result = NEXT(number, arguments[0], arguments[1], arguments[2], arguments[3], arguments[4], arguments[5]);
    const int error = errno;
    const long operation = arguments[1] & FUTEX_CMD_MASK;
    const bool timed = arguments[3] != 0;
    if (number == SYS_futex && timed && (operation == FUTEX_WAIT || operation == FUTEX_WAIT_BITSET) &&
        (result == 0 || error != EAGAIN)) {
        ++sleeps_of_this_thread;
    }
    errno = error;
    return result;
}

namespace bench {
namespace {

constexpr int CALLS_PER_ROUND = 640;

class Wakeups : public Probe {
public:
    explicit Wakeups(int threads) : _threads(threads) {}

    Values measure() override {
        const int calls = CALLS_PER_ROUND / _threads;
        std::atomic<long> surplus{0};
        std::atomic<int> failures{0};
        std::vector<std::thread> callers;
        for (int client = 0; client < _threads; ++client) {
            callers.emplace_back([&, client] {
                try {
                    for (int call = 0; call < calls; ++call) {
                        surplus += surplus_sleeps_of_a_call(client, call);
                    }
                } catch (const std::exception&) {
                    ++failures;
                }
            });
        }
        try {
            for (int round = 0; round < calls; ++round) {
                answer_last_first();
            }
        } catch (const std::exception&) {
            ++failures;  // the callers give up by themselves
        }
        for (std::thread& caller : callers) {
            caller.join();
        }
        if (failures > 0) {
            throw std::runtime_error("a caller got no reply, or a wrong one");
        }
        if (_sleeps == 0) {
            throw std::runtime_error("no sleep was seen: this counts nothing");
        }
        return {static_cast<double>(surplus) / (calls * _threads)};
    }

private:
    long surplus_sleeps_of_a_call(int client, int call) {
        Payload request = make_payload(static_cast<std::uint64_t>(call));
        request.client = static_cast<std::uint32_t>(client);
        const DDS_SampleIdentity_t id = _service.requester().send_request(request);
        const long before = sleeps_of_this_thread;
        const bool there = _service.requester().wait_for_replies(std::chrono::seconds(10), id);
        const long sleeps = sleeps_of_this_thread - before;
        const auto replies = _service.requester().take_replies(id);
        if (!there || replies.length() != 1 || replies[0].data().client != request.client) {
            throw std::runtime_error("wrong reply");
        }
        check_echo(replies[0].data(), request.number);
        _sleeps += sleeps;
        return sleeps > 1 ? sleeps - 1 : 0;
    }

    void answer_last_first() {
        if (!_service.replier().wait_for_requests(std::chrono::seconds(10), _threads)) {
            throw std::runtime_error("no requests within 10 seconds");
        }
        const auto requests = _service.replier().take_requests();
        for (int index = requests.length() - 1; index >= 0; --index) {
            _service.replier().send_reply(requests[index].data(), requests[index].identity());
        }
    }

    const int _threads;
    std::atomic<long> _sleeps{0};
    Service<Payload> _service{"Wakeups"};
};

Stage with(int threads) {
    return {Processors::TWO, Spin::OFF, [threads] { return std::make_unique<Wakeups>(threads); }};
}

const Question question("9_wakeups", {with(1), with(8), with(64)},
                        {{"wake-ups without a reply per call, 1 thread waits (spin off)", Unit::COUNT, {0, 0}, NO_SOURCE, 0},
                         {"wake-ups without a reply per call, 8 threads wait (spin off)", Unit::COUNT, {1, 0}, NO_SOURCE, 0},
                         {"wake-ups without a reply per call, 64 threads wait (spin off)", Unit::COUNT, {2, 0}, NO_SOURCE, 0}});

}  // namespace
}  // namespace bench
