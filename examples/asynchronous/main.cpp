// SPDX-License-Identifier: Apache-2.0
// Asynchronous calls: a thousand are in flight at once, and no thread waits for each. The dispatcher's one thread takes in the
// replies and keeps the deadlines.
#include <boost/describe.hpp>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <future>
#include <vector>

#include "norvane/norvane.hpp"

struct Number {
    std::int64_t value;
};
BOOST_DESCRIBE_STRUCT(Number, (), (value))

typedef norvane::Requester<Number, Number> NumberRequester;

//! [futures]
std::int64_t sum_of_doubles(NumberRequester& requester) {
    std::vector<std::future<Number>> doubles;
    for (std::int64_t value = 1; value <= 1000; ++value) {
        doubles.push_back(requester.call_async({value}));  // returns at once
    }
    std::int64_t sum = 0;
    for (std::future<Number>& future : doubles) {
        sum += future.get().value;  // throws what the call ended with, if not with a reply
    }
    return sum;
}
//! [futures]

//! [callback]
void double_it(NumberRequester& requester, std::int64_t value, std::promise<std::int64_t>& doubled) {
    requester.call_async({value}, std::chrono::seconds(10), [&doubled](const norvane::CallResult<Number>& result) {
        if (result.has_value()) {
            doubled.set_value(result.value().value);  // the reply is on loan until the callback returns
        } else {
            doubled.set_exception(result.error());
        }
    });
}
//! [callback]

int run() {
    norvane::Participant participant;
    norvane::Service<Number, Number> service(norvane::ReplierParams(participant).service_name("Doubler"),
                                             [](const Number& number) { return Number{number.value * 2}; });
    //! [dispatcher]
    norvane::Dispatcher dispatcher;
    NumberRequester requester(norvane::RequesterParams(participant).service_name("Doubler"), dispatcher);
    //! [dispatcher]
    requester.wait_for_service();
    const std::int64_t sum = sum_of_doubles(requester);
    std::promise<std::int64_t> doubled;
    double_it(requester, 21, doubled);
    const std::int64_t answer = doubled.get_future().get();
    std::printf("1000 calls in flight at once: their doubles make %lld; a callback was told %lld\n", static_cast<long long>(sum),
                static_cast<long long>(answer));
    return sum == 1001000 && answer == 42 ? 0 : 1;
}

int main() {
    try {
        return run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "asynchronous: %s\n", error.what());
        return 1;
    }
}
