// SPDX-License-Identifier: Apache-2.0
// A call from one participant to another, on the engine that NORVANE_ENGINE names. Argument: the domain. Says why when it cannot.
#include <cstdlib>
#include <exception>
#include <iostream>
#include <norvane/norvane.hpp>
#include <string>

int main(int count, char** words) {
    try {
        norvane::ParticipantParams params;
        params.domain_id(count > 1 ? std::atoi(words[1]) : 0).property("norvane.fastdds.interfaces", "127.0.0.1");
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
