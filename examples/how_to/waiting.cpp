// SPDX-License-Identifier: Apache-2.0
// How to wait: for a service, for a reply, and what is known when none comes.
#include <chrono>
#include <cstdio>
#include <exception>
#include <string>

#include "norvane/norvane.hpp"

typedef norvane::Requester<std::string, std::string> TextRequester;

//! [wait_for_service]
bool is_there(TextRequester& requester) {
    return requester.wait_for_service(std::chrono::seconds(2));  // false when none was ready in time
}
//! [wait_for_service]

//! [timeout]
std::string ask(TextRequester& requester) {
    try {
        return requester.call("how are you?", std::chrono::milliseconds(200));
    } catch (const norvane::CallTimeoutException& error) {
        if (error.reason() == norvane::TimeoutReason::NO_REPLIER) {
            return "start the service first";
        }
        return error.what();  // says why, as far as it is known
    }
}
//! [timeout]

//! [fail]
std::string ask_at_once(TextRequester& requester) {
    return requester.call("how are you?", std::chrono::seconds(2), norvane::WhenNobodyIsThere::FAIL);
}
//! [fail]

//! [stats]
void print(const norvane::RequesterStatistics& stats) {
    std::printf("sent %lld, completed %lld, timed out %lld, late %lld\n", static_cast<long long>(stats.sent),
                static_cast<long long>(stats.completed), static_cast<long long>(stats.timed_out),
                static_cast<long long>(stats.late));
}
//! [stats]

bool has(const std::string& text, const char* part) { return text.find(part) != std::string::npos; }

int main() {
    try {
        norvane::Participant participant;
        TextRequester requester(norvane::RequesterParams(participant).service_name("Mood"));

        std::printf("%s\n", ask(requester).c_str());
        bool right = ask(requester) == "start the service first";
        try {
            ask_at_once(requester);
            right = false;
        } catch (const norvane::CallTimeoutException& error) {
            right = right && has(error.what(), "nothing was sent");
        }

        norvane::Service<std::string, std::string> service(norvane::ReplierParams(participant).service_name("Mood"),
                                                           [](const std::string&) { return std::string("fine"); });
        right = right && is_there(requester) && ask(requester) == "fine" && ask_at_once(requester) == "fine";
        print(requester.stats());
        return right && requester.stats().completed == 2 && requester.stats().timed_out == 3 ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "how_to_waiting: %s\n", error.what());
        return 1;
    }
}
