// SPDX-License-Identifier: Apache-2.0
// Many threads: eight callers share one requester, and four workers answer them. Each caller gets the replies to its own requests.
#include <atomic>
#include <boost/describe.hpp>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <numeric>
#include <thread>
#include <vector>

#include "norvane/norvane.hpp"

struct Numbers {
    std::vector<std::int64_t> values;
};
BOOST_DESCRIBE_STRUCT(Numbers, (), (values))

struct Sum {
    std::int64_t value;
};
BOOST_DESCRIBE_STRUCT(Sum, (), (value))

typedef norvane::Requester<Numbers, Sum> SumRequester;

constexpr int CALLERS = 8;
constexpr int CALLS = 100;

// Returns how many calls brought the caller its own sum.
int call_many(SumRequester& requester, int caller) {
    int right = 0;
    for (int call = 1; call <= CALLS; ++call) {
        right += requester.call({{caller * CALLS, call}}).value == caller * CALLS + call ? 1 : 0;  // no other call has that sum
    }
    return right;
}

int run() {
    norvane::Participant participant;
    //! [service]
    norvane::Service<Numbers, Sum> service(
        norvane::ReplierParams(participant).service_name("Adder"),
        [](const Numbers& numbers) { return Sum{std::accumulate(numbers.values.begin(), numbers.values.end(), std::int64_t{0})}; },
        norvane::ServiceOptions<Sum>().workers(4));
    //! [service]
    //! [callers]
    SumRequester requester(norvane::RequesterParams(participant).service_name("Adder"));
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    for (int caller = 0; caller < CALLERS; ++caller) {
        threads.emplace_back([&requester, &right, caller] {
            try {
                right += call_many(requester, caller);
            } catch (const std::exception& error) {
                std::fprintf(stderr, "caller %d: %s\n", caller, error.what());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    //! [callers]
    std::printf("%d threads made %d calls each: %d right answers\n", CALLERS, CALLS, right.load());
    return right == CALLERS * CALLS ? 0 : 1;
}

int main() {
    try {
        return run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "many_threads: %s\n", error.what());
        return 1;
    }
}
