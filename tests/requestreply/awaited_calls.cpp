// SPDX-License-Identifier: Apache-2.0
// Asynchronous calls that are awaited by coroutines. A program of its own: it needs C++20.
#include <future>
#include <string>
#include <utility>

#include "norvane/coroutines.hpp"
#include "support/ServiceFixture.hpp"
#include "support/Thrown.hpp"

namespace norvane::test {
namespace {

/// A coroutine that runs at once, and whose outcome is a future.
template <class T>
struct Started {
    struct promise_type : std::promise<T> {
        Started get_return_object() { return {this->get_future()}; }
        std::suspend_never initial_suspend() const noexcept { return {}; }
        std::suspend_never final_suspend() const noexcept { return {}; }
        void return_value(T value) { this->set_value(std::move(value)); }
        void unhandled_exception() { this->set_exception(std::current_exception()); }
    };
    std::future<T> outcome;
};

Started<std::string> ask_twice(TextRequester& requester, Timeout timeout) {
    const std::string first = co_await requester.call_async("a", timeout, use_awaitable);
    co_return co_await requester.call_async(first + "b", timeout, use_awaitable);
}

class AwaitedCalls : public ServiceFixture {};

TEST_P(AwaitedCalls, go_on_with_the_reply_or_the_error) {
    Dispatcher dispatcher;
    TextReplier replier(replier_params());
    TextRequester requester(requester_params(), dispatcher);
    std::future<std::string> answered = ask_twice(requester, PATIENCE).outcome;
    EXPECT_TRUE(eventually([&] { return answer_all(replier, "!") == 1; }));
    EXPECT_TRUE(eventually([&] { return answer_all(replier, "?") == 1; }));
    EXPECT_EQ("a!b?", answered.get());
    EXPECT_EQ("CallTimeoutException SILENT",
              thrown_by([&] { ask_twice(requester, std::chrono::milliseconds(1)).outcome.get(); }).type);
    std::future<std::string> pending = ask_twice(requester, PATIENCE).outcome;
    requester.close();
    EXPECT_EQ("AlreadyDeletedException", thrown_by([&] { pending.get(); }).type);
    EXPECT_EQ("AlreadyDeletedException", thrown_by([&] { ask_twice(requester, PATIENCE).outcome.get(); }).type) << "at once";
    TextRequester without(requester_params());
    EXPECT_EQ("PreconditionNotMetException", thrown_by([&] { ask_twice(without, PATIENCE).outcome.get(); }).type);
}

INSTANTIATE_TEST_SUITE_P(Engines, AwaitedCalls, ::testing::ValuesIn(engine_names()), engine_of_test);

}  // namespace
}  // namespace norvane::test
