// How many times does a call go to the heap in steady state?
// SPDX-License-Identifier: Apache-2.0
//
// The allocator of this whole program is replaced by one that counts and hands on. operator new ends here too.
#include <atomic>
#include <cerrno>
#include <cstdlib>

#include "EchoService.hpp"
#include "Question.hpp"
#include "Stopwatch.hpp"

namespace {

std::atomic<long> allocation_count{0};
// Off, it costs the other questions next to nothing.
std::atomic<bool> counting{false};

void count_allocation() {
    if (counting.load(std::memory_order_relaxed)) {
        allocation_count.fetch_add(1, std::memory_order_relaxed);
    }
}

}  // namespace

#if defined(__GLIBC__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

extern "C" {
void* __libc_malloc(std::size_t size) noexcept;
void* __libc_calloc(std::size_t count, std::size_t size) noexcept;
void* __libc_realloc(void* place, std::size_t size) noexcept;
void* __libc_memalign(std::size_t alignment, std::size_t size) noexcept;

__attribute__((visibility("default"))) void* malloc(std::size_t size) noexcept {
    count_allocation();
    return __libc_malloc(size);
}
__attribute__((visibility("default"))) void* calloc(std::size_t count, std::size_t size) noexcept {
    count_allocation();
    return __libc_calloc(count, size);
}
__attribute__((visibility("default"))) void* realloc(void* place, std::size_t size) noexcept {
    count_allocation();
    return __libc_realloc(place, size);
}
__attribute__((visibility("default"))) void* memalign(std::size_t alignment, std::size_t size) noexcept {
    count_allocation();
    return __libc_memalign(alignment, size);
}
__attribute__((visibility("default"))) void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
    count_allocation();
    return __libc_memalign(alignment, size);
}
__attribute__((visibility("default"))) int posix_memalign(void** place, std::size_t alignment, std::size_t size) noexcept {
    count_allocation();
    *place = __libc_memalign(alignment, size);
    return *place == nullptr ? ENOMEM : 0;
}
}

#endif

namespace bench {
namespace {

constexpr int CALLS = 1000;
constexpr int IN_FLIGHT = 64;

/// @return allocations of the whole process per call, while `calls` makes CALLS calls.
template <class Operation>
double allocations_per_call(Operation&& calls) {
    allocation_count = 0;
    counting = true;
    calls();
    counting = false;
    return static_cast<double>(allocation_count.load()) / CALLS;
}

/// Values: allocations per call of a blocking round trip, of 64 calls in flight, of one thread that plays both ends, and of `call`.
class Allocations : public Probe {
public:
    Allocations() {
        const double seen = allocations_per_call([] {
            for (int call = 0; call < CALLS; ++call) {
                const auto thing = std::make_unique<Payload>();
                observe(thing.get());
            }
        });
        if (seen != 1) {
            throw std::runtime_error("the counting allocator is not in use");
        }
        // Pools grow with the most that was ever under way, and how much that is depends on who runs when: with 64 in flight they
        // might grow once more after a long time. The steady state is what comes after that.
        for (int round = 0; round < 10; ++round) {
            in_flight(16 * IN_FLIGHT);
            calls();
        }
    }

    Values measure() override {
        return {allocations_per_call([this] { round_trips(); }), allocations_per_call([this] { in_flight(IN_FLIGHT); }),
                allocations_per_call([this] { one_thread(); }), allocations_per_call([this] { calls(); })};
    }

private:
    void round_trips() {
        for (std::uint64_t number = 0; number < CALLS; ++number) {
            call(_echo.requester(), make_payload(number));
        }
    }

    void calls() {
        for (std::uint64_t number = 0; number < CALLS; ++number) {
            check_echo(_echo.requester().call(make_payload(number)), number);
        }
    }

    void in_flight(int window) {
        int sent = 0;
        for (int collected = 0; collected < CALLS;) {
            for (; sent < CALLS && sent - collected < window; ++sent) {
                _echo.requester().send_request(make_payload(static_cast<std::uint64_t>(sent)));
            }
            if (!_echo.requester().wait_for_replies(std::chrono::seconds(10))) {
                throw std::runtime_error("no reply within 10 seconds");
            }
            collected += _echo.requester().take_replies().length();
        }
    }

    void one_thread() {
        for (std::uint64_t number = 0; number < CALLS; ++number) {
            const DDS_SampleIdentity_t id = _both_ends.requester().send_request(make_payload(number));
            {
                const auto requests = _both_ends.replier().take_requests();
                _both_ends.replier().send_reply(requests[0].data(), requests[0].identity());
            }
            const auto replies = _both_ends.requester().take_replies(id);
            check_echo(replies[0].data(), number);
        }
    }

    EchoService<Payload> _echo{"Allocations"};
    Service<Payload> _both_ends{"AllocationsOneThread"};
};

const Question question("8_allocations", {{Processors::TWO, Spin::DEFAULT, [] { return std::make_unique<Allocations>(); }}},
                        {{"heap allocations per call: round trip", Unit::COUNT, {0, 0}, NO_SOURCE, 0},
                         {"heap allocations per call: 64 in flight", Unit::COUNT, {0, 1}, NO_SOURCE, 0},
                         {"heap allocations per call: send, take, reply, take on one thread", Unit::COUNT, {0, 2}, NO_SOURCE, 0},
                         {"heap allocations per call: call", Unit::COUNT, {0, 3}, NO_SOURCE, 0}});

}  // namespace
}  // namespace bench
