// SPDX-License-Identifier: Apache-2.0
// Many replies: one request is answered by a stream of replies, and the last of them says that it is over.
#include <boost/describe.hpp>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <future>

#include "norvane/norvane.hpp"

struct Wish {
    std::uint32_t count;
};
BOOST_DESCRIBE_STRUCT(Wish, (), (count))

struct Square {
    std::uint64_t value;
    bool is_end;  // all were sent: this one is none
};
BOOST_DESCRIBE_STRUCT(Square, (), (value, is_end))

//! [replier]
void serve(norvane::Replier<Wish, Square>& replier) {
    if (const auto request = replier.receive_request()) {
        for (std::uint64_t number = 0; number < request->data().count; ++number) {
            replier.send_reply({number * number, false}, request->identity());
        }
        replier.send_reply({0, true}, request->identity());
    }
}
//! [replier]

//! [requester]
// Returns the sum of the first squares.
std::uint64_t sum_of_squares(norvane::Requester<Wish, Square>& requester, std::uint32_t count) {
    const DDS_SampleIdentity_t id = requester.send_request({count});
    std::uint64_t sum = 0;
    bool is_end = false;
    while (!is_end && requester.wait_for_replies(norvane::DEFAULT_TIMEOUT, id)) {
        for (const auto& reply : requester.take_replies(id)) {  // all that are there by now
            sum += reply.data().value;
            is_end = reply.data().is_end;
        }
    }
    requester.forget(id);  // no further reply is wanted
    if (!is_end) {
        throw norvane::TimeoutException("the stream of squares has stopped");
    }
    return sum;
}
//! [requester]

int main() {
    try {
        norvane::Participant participant;
        norvane::Replier<Wish, Square> replier(norvane::ReplierParams(participant).service_name("Squares"));
        norvane::Requester<Wish, Square> requester(norvane::RequesterParams(participant).service_name("Squares"));
        requester.wait_for_service();
        std::future<void> server = std::async(std::launch::async, [&] { serve(replier); });
        const std::uint64_t sum = sum_of_squares(requester, 100);
        server.get();
        std::printf("the first 100 squares make %llu\n", static_cast<unsigned long long>(sum));
        return sum == 328350 ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "many_replies: %s\n", error.what());
        return 1;
    }
}
