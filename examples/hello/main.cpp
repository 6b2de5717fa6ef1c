// SPDX-License-Identifier: Apache-2.0
// Hello: one request, one reply. A replier and a requester meet on the name "Greeter"; neither knows where the other is.
#include <boost/describe.hpp>
#include <cstdio>
#include <exception>
#include <future>
#include <string>

#include "norvane/norvane.hpp"

//! [types]
struct Person {
    std::string name;
};
BOOST_DESCRIBE_STRUCT(Person, (), (name))

struct Greeting {
    std::string text;
};
BOOST_DESCRIBE_STRUCT(Greeting, (), (text))
//! [types]

//! [replier]
// Answers one request.
void serve(DDSDomainParticipant* participant) {
    norvane::Replier<Person, Greeting> replier(norvane::ReplierParams(participant).service_name("Greeter"));
    if (const auto request = replier.receive_request()) {
        replier.send_reply({"Hello, " + request->data().name + "!"}, request->identity());
        replier.wait_for_acknowledgments();  // before the replier goes
    }
}
//! [replier]

//! [requester]
Greeting greet(DDSDomainParticipant* participant, const std::string& name) {
    norvane::Requester<Person, Greeting> requester(norvane::RequesterParams(participant).service_name("Greeter"));
    return requester.call({name});  // waits for a replier, sends, waits for the reply; throws when none comes within 10 s
}
//! [requester]

int main() {
    try {
        norvane::Participant participant;
        std::future<void> server = std::async(std::launch::async, [&] { serve(participant); });
        const std::string text = greet(participant, "world").text;
        server.get();
        std::printf("%s\n", text.c_str());
        return text == "Hello, world!" ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "hello: %s\n", error.what());
        return 1;
    }
}
