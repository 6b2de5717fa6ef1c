// SPDX-License-Identifier: Apache-2.0
// How to call from a coroutine (C++20): each co_await gives the thread away until the reply is there.
#include "norvane/coroutines.hpp"

#include <chrono>
#include <coroutine>
#include <cstdio>
#include <exception>
#include <future>
#include <string>

#include "norvane/norvane.hpp"

typedef norvane::Requester<std::string, std::string> TextRequester;

// The least that a coroutine can return: it starts at once, and has no owner. Programs have a task type of their library's.
struct Detached {
    struct promise_type {
        Detached get_return_object() { return {}; }
        std::suspend_never initial_suspend() noexcept { return {}; }
        std::suspend_never final_suspend() noexcept { return {}; }
        void return_void() {}
        void unhandled_exception() { std::terminate(); }
    };
};

//! [coroutine]
// Asks twice, the second time with the first reply.
Detached ask_twice(TextRequester& requester, std::promise<std::string>& answer) {
    try {
        const std::string once = co_await requester.call_async("stressed", std::chrono::seconds(10), norvane::use_awaitable);
        answer.set_value(co_await requester.call_async(once + "!", std::chrono::seconds(10), norvane::use_awaitable));
    } catch (...) {
        answer.set_exception(std::current_exception());
    }
}
//! [coroutine]

int main() {
    try {
        norvane::Participant participant;
        norvane::Service<std::string, std::string> service(
            norvane::ReplierParams(participant).service_name("Mirror"),
            [](const std::string& text) { return std::string(text.rbegin(), text.rend()); });
        //! [loop]
        norvane::Dispatcher dispatcher(norvane::Dispatcher::CALLERS);
        TextRequester requester(norvane::RequesterParams(participant).service_name("Mirror"), dispatcher);
        std::promise<std::string> answer;
        ask_twice(requester, answer);
        while (dispatcher.pending() > 0) {
            dispatcher.run_once(std::chrono::seconds(1));  // callbacks and coroutines run in here, on this thread
        }
        //! [loop]
        const std::string text = answer.get_future().get();
        std::printf("%s\n", text.c_str());
        return text == "!stressed" ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "how_to_coroutines: %s\n", error.what());
        return 1;
    }
}
