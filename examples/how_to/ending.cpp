// SPDX-License-Identifier: Apache-2.0
// How to end: close wakes every waiting thread, and a service finishes what is queued. And how to read the library's log.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <exception>
#include <future>
#include <string>

#include "norvane/norvane.hpp"

typedef norvane::Requester<std::string, std::string> TextRequester;
typedef norvane::Service<std::string, std::string> TextService;

//! [close]
// Returns what a thread in the middle of a call is told.
std::string call_until_closed(TextRequester& requester) {
    try {
        for (;;) {
            requester.call("still there?", std::chrono::hours(1));
        }
    } catch (const norvane::AlreadyDeletedException& error) {
        return error.what();
    }
}
//! [close]

//! [drain]
// True: every request that has come is answered, and every reply has arrived.
bool shut_down(TextService& service) {
    const norvane::ShutdownResult result = service.drain(std::chrono::seconds(5));
    if (!result) {
        std::printf("%d handlers still run, %lld requests are queued\n", result.running_handlers,
                    static_cast<long long>(result.queued_requests));
    }
    return result;
}
//! [drain]

//! [log]
// Gets every line of the log while it lives. Called from any thread.
class PrefixedLines final : public norvane::LogSink {
public:
    PrefixedLines() { norvane::set_log_sink(this); }
    ~PrefixedLines() override { norvane::set_log_sink(nullptr); }
    void write(const norvane::LogRecord& record) noexcept override {
        ++_count;
        std::printf("[norvane] %s: %s\n", record.method, record.text);
    }
    int count() const { return _count; }

private:
    std::atomic<int> _count{0};
};
//! [log]

//! [engine]
bool has_engine(const std::string& name) {
    try {
        norvane::Participant participant(0, name);  // domain 0
        return true;
    } catch (const norvane::RuntimeException&) {
        return false;  // the log says why
    }
}
//! [engine]

int main() {
    PrefixedLines lines;
    try {
        norvane::Participant participant;
        TextService service(norvane::ReplierParams(participant).service_name("Watch"),
                            [](const std::string& text) { return text; });
        TextRequester requester(norvane::RequesterParams(participant).service_name("Watch"));
        std::future<std::string> told = std::async(std::launch::async, [&] { return call_until_closed(requester); });
        const bool ready = requester.wait_for_service();
        const bool drained = shut_down(service);  // from here on the calls wait: no replier is there
        requester.close();
        const std::string message = told.get();
        const bool right = has_engine("embedded") && !has_engine("pigeons") && lines.count() > 0;
        return right && ready && drained && message.find("the requester was closed") != std::string::npos ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "how_to_ending: %s\n", error.what());
        return 1;
    }
}
