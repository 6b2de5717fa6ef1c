// SPDX-License-Identifier: Apache-2.0
// A call from one participant to another, on the engine that NORVANE_ENGINE names. Says why when it cannot.
#include <exception>
#include <iostream>
#include <norvane/norvane.hpp>
#include <string>

int main() {
    try {
        norvane::ParticipantParams params;
        params.property("norvane.fastdds.interfaces", "127.0.0.1").property("norvane.fastdds.reach", "process");
        norvane::Participant there(params);
        norvane::Participant here(params);
        norvane::Service<std::string, std::string> service(norvane::ReplierParams(there).service_name("Echo"),
                                                           [](const std::string& text) { return text + "!"; });
        norvane::Requester<std::string, std::string> requester(norvane::RequesterParams(here).service_name("Echo"));
        std::cout << requester.call("hello") << "\n";
        return 0;
    } catch (const std::exception& failure) {
        std::cout << failure.what() << "\n";
        return 1;
    }
}
