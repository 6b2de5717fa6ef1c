// SPDX-License-Identifier: Apache-2.0
// Asynchronous calls: both loops, both forms, deadlines, requests that stand in line, closing from everywhere, and what they
// allocate.
#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <iterator>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/AllocationProbe.hpp"
#include "support/LogCapture.hpp"
#include "support/Seed.hpp"
#include "support/ServiceFixture.hpp"
#include "support/Thrown.hpp"

namespace norvane::test {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds SHORT(20);
constexpr milliseconds AT_ONCE(0);

struct Number {
    int value;
};

/// A dispatcher whose loop runs, in whosever thread.
class Served {
public:
    explicit Served(Dispatcher::Loop loop = Dispatcher::OWN_THREAD) : dispatcher(std::in_place, loop) {
        if (loop == Dispatcher::CALLERS) {
            _thread = std::thread([this] {
                _number = this_thread_number();
                // A callback may destroy the dispatcher.
                const Thrown thrown = thrown_by([this] {
                    while (dispatcher) {
                        dispatcher->run_once();
                    }
                });
                EXPECT_EQ(dispatcher ? "AlreadyDeletedException" : "", thrown.type) << thrown.message;
            });
            EXPECT_TRUE(eventually([this] { return is_asleep(_number); }));
        }
    }
    ~Served() {
        if (dispatcher) {
            dispatcher->close();
        }
        if (_thread.joinable()) {
            _thread.join();
        }
    }
    std::optional<Dispatcher> dispatcher;

private:
    std::atomic<long> _number{0};
    std::thread _thread;
};

/// What callbacks were told, in order.
class Record {
public:
    auto callback(const std::string& name = "") {
        return [this, name](const CallResult<std::string>& result) {
            const std::string text = result ? result.value() : thrown_by([&] { result.value(); }).type;
            std::lock_guard<std::mutex> guard(_mutex);
            _told.push_back(name + text);
        };
    }
    std::vector<std::string> told() const {
        std::lock_guard<std::mutex> guard(_mutex);
        return _told;
    }
    bool has(std::size_t count) const {
        return eventually([&] { return told().size() >= count; });
    }

private:
    mutable std::mutex _mutex;
    std::vector<std::string> _told;
};

class AsyncCalls : public ServiceFixture {
protected:
    /// Answers so many requests.
    static void answer(TextReplier& replier, int count) {
        EXPECT_TRUE(eventually([&] { return (count -= answer_all(replier, "!")) <= 0; }));
    }
    /// Runs the loop until so many calls have ended.
    static void run(Dispatcher& dispatcher, int count) {
        while (count > 0) {
            const int ended = dispatcher.run_once(PATIENCE);
            ASSERT_GT(ended, 0);
            count -= ended;
        }
    }
};

TEST_P(AsyncCalls, end_with_their_reply_in_either_form_and_loop) {
    for (const Dispatcher::Loop loop : {Dispatcher::OWN_THREAD, Dispatcher::CALLERS}) {
        Served served(loop);
        TextReplier replier(replier_params());
        TextRequester requester(requester_params(), *served.dispatcher);
        Record record;
        std::future<std::string> first = requester.call_async("a");
        requester.call_async("dropped");
        requester.call_async("b", PATIENCE, record.callback());
        // Moved in, and the loan moved out: the reply outlives callback and requester.
        std::promise<CallResult<std::string>> kept;
        requester.call_async("c", PATIENCE, [&kept, own = std::make_unique<int>(1)](CallResult<std::string> result) {
            kept.set_value(std::move(result));
        });
        answer(replier, 4);
        EXPECT_EQ("a!", first.get());
        EXPECT_TRUE(record.has(1));
        EXPECT_EQ("b!", record.told()[0]);
        const CallResult<std::string> result = kept.get_future().get();
        EXPECT_STREQ("c!", result.value());
        EXPECT_TRUE(result.info().valid_data);
        EXPECT_TRUE(eventually([&] { return served.dispatcher->pending() == 0; }));
        EXPECT_EQ(4, requester.stats().completed);
        EXPECT_EQ(0, requester.stats().pending + requester.stats().queued);
    }
}

TEST_P(AsyncCalls, say_at_once_what_is_wrong_at_once) {
    Dispatcher own;
    Dispatcher callers(Dispatcher::CALLERS);
    TextRequester without(requester_params());
    TextRequester requester(requester_params(), callers);
    Record record;
    expect_thrown("PreconditionNotMetException", "make a norvane::Dispatcher", thrown_by([&] { without.call_async("x"); }));
    expect_thrown("PreconditionNotMetException", "thread of its own", thrown_by([&] { own.run_once(AT_ONCE); }));
    expect_thrown("BadParameterException", "NUL", thrown_by([&] {
                      requester.call_async({"a\0b", 3}, PATIENCE, record.callback());
                  }));
    EXPECT_EQ(0, callers.run_once(AT_ONCE));
    requester.call_async("x", AT_ONCE, [&](const CallResult<std::string>&) {
        expect_thrown("PreconditionNotMetException", "in the loop already", thrown_by([&] { callers.run_once(AT_ONCE); }));
        throw std::runtime_error("the callback's own");
    });
    LogCapture log;
    EXPECT_EQ(1, callers.run_once(SHORT));
    EXPECT_EQ(1, callers.failed_callbacks());
    EXPECT_EQ(1, log.count("the callback's own"));
    requester.close();
    expect_thrown("AlreadyDeletedException", "requester was closed", thrown_by([&] { requester.call_async("x"); }));
    TextRequester another(requester_params(), callers);
    callers.close();
    callers.close();
    expect_thrown("AlreadyDeletedException", "dispatcher was closed", thrown_by([&] { another.call_async("x"); }));
    expect_thrown("AlreadyDeletedException", "dispatcher was closed", thrown_by([&] { callers.run_once(AT_ONCE); }));
    EXPECT_TRUE(record.told().empty()) << "told twice";
}

TEST_P(AsyncCalls, expire_in_the_order_of_their_deadlines_and_leave_nothing_behind) {
    Dispatcher dispatcher(Dispatcher::CALLERS);
    TextReplier replier(replier_params());
    TextRequester requester(requester_params(), dispatcher);
    EXPECT_TRUE(requester.wait_for_service());
    Record record;
    const char* const names[] = {"3", "1", "2"};
    for (const char* name : names) {
        requester.call_async(name, SHORT * std::stoi(name), record.callback(name));
    }
    requester.call_async("never", std::chrono::hours::max(), record.callback("never"));
    requester.call_async("before", -SHORT, record.callback("0"));
    EXPECT_EQ(0, replier.take_requests(0).length());
    run(dispatcher, 4);
    const std::string EXPIRED = "CallTimeoutException SILENT";
    EXPECT_EQ((std::vector<std::string>{"0" + EXPIRED, "1" + EXPIRED, "2" + EXPIRED, "3" + EXPIRED}), record.told());
    EXPECT_EQ(4, requester.stats().timed_out);
    answer(replier, 5);
    run(dispatcher, 1);
    EXPECT_EQ("nevernever!", record.told().back());
    EXPECT_TRUE(eventually([&] { return requester.stats().late == 4; }));
    EXPECT_EQ(0, requester.stats().queued);

    // Time that is over before the call is made is not over before that of others: a chain of such calls took the loop for itself.
    int links = 0;
    std::function<void(const CallResult<std::string>&)> chain = [&](const CallResult<std::string>&) {
        if (++links < 100) {
            requester.call_async("x", -SHORT, chain);
        }
    };
    requester.call_async("x", -SHORT, chain);
    EXPECT_EQ(1, dispatcher.run_once(PATIENCE));
    run(dispatcher, 99);
    answer(replier, 100);
    EXPECT_TRUE(eventually([&] { return requester.stats().late == 104; }));

    // A reply that is there when the time is up still counts. (Nobody runs the loop meanwhile.)
    std::future<std::string> late = requester.call_async("x", milliseconds(1));
    answer(replier, 1);
    const auto up = std::chrono::steady_clock::now() + milliseconds(2);
    EXPECT_TRUE(eventually([&] { return std::chrono::steady_clock::now() > up && requester.stats().queued == 1; }));
    run(dispatcher, 1);
    EXPECT_EQ("x!", late.get());
    expect_thrown("CallTimeoutException SILENT", "no reply within 0.02 s", thrown_by([&] {
                      std::future<std::string> silent = requester.call_async("x", SHORT);
                      run(dispatcher, 1);
                      silent.get();
                  }));
}

TEST_P(AsyncCalls, wait_in_line_for_a_replier_and_for_room) {
    Served served;
    TextRequester requester(requester_params(), *served.dispatcher);
    std::future<std::string> expired = requester.call_async("x", SHORT);
    std::vector<std::future<std::string>> replies;
    for (int number = 0; number < 8; ++number) {
        std::string text = std::to_string(number);
        replies.push_back(requester.call_async(text, PATIENCE));
        text.assign("gone");
    }
    expect_thrown("CallTimeoutException NO_REPLIER", "nothing was sent within 0.02 s: no replier is there",
                  thrown_by([&] { expired.get(); }));
    EXPECT_EQ(0, requester.stats().sent);
    EXPECT_EQ(8, requester.stats().pending);
    // A queue of one: each request but the first finds it full.
    TextReplier replier(replier_params().max_queued_requests(1));
    for (int number = 0; number < 8; ++number) {
        const auto request = replier.receive_request(PATIENCE);
        ASSERT_TRUE(request);
        EXPECT_EQ(std::to_string(number), request->data());
        replier.send_reply(request->data() + "!", request->identity());
        EXPECT_EQ(std::to_string(number) + "!", replies[static_cast<std::size_t>(number)].get());
    }
}

TEST_P(AsyncCalls, are_all_told_when_something_is_closed_wherever_that_is_done) {
    struct World {
        Served served;
        std::optional<TextRequester> requester;
    };
    const std::pair<const char*, std::function<void(World&)>> CLOSINGS[] = {
        {"requester was closed", [](World& world) { world.requester->close(); }},
        {"requester was closed", [](World& world) { world.requester.reset(); }},
        {"dispatcher was closed", [](World& world) { world.served.dispatcher->close(); }},
        {"dispatcher was closed", [](World& world) { world.served.dispatcher.reset(); }},
    };
    enum Place { OUTSIDE, IN_A_CALLBACK, IN_A_CALLBACK_OF_CLOSING };
    const auto close_somewhere = [&](Dispatcher::Loop loop, std::size_t number, Place place) {
        SCOPED_TRACE(std::to_string(loop) + "/" + std::to_string(number) + "/" + std::to_string(place));
        const auto& closing = CLOSINGS[number];
        TextReplier replier(replier_params());
        World world{Served(loop), std::nullopt};
        world.requester.emplace(requester_params(), *world.served.dispatcher);
        EXPECT_TRUE(world.requester->wait_for_service());
        Record record;
        std::vector<std::future<std::string>> futures;
        for (int call = 0; call < 5; ++call) {
            futures.push_back(world.requester->call_async("x", PATIENCE));
            world.requester->call_async("x", PATIENCE, record.callback());
        }
        const auto begin = std::chrono::steady_clock::now();
        if (place == OUTSIDE) {
            closing.second(world);
        } else {
            std::promise<void> done;
            world.requester->call_async("closer", place == IN_A_CALLBACK ? AT_ONCE : PATIENCE, [&](const CallResult<std::string>&) {
                closing.second(world);
                done.set_value();
            });
            if (place == IN_A_CALLBACK_OF_CLOSING) {
                world.requester->close();
            }
            done.get_future().get();
        }
        for (std::future<std::string>& future : futures) {
            expect_thrown("AlreadyDeletedException", place == IN_A_CALLBACK_OF_CLOSING ? "was closed" : closing.first,
                          thrown_by([&] { future.get(); }));
        }
        EXPECT_TRUE(record.has(5));
        EXPECT_EQ(std::vector<std::string>(5, "AlreadyDeletedException"), record.told());
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5)) << "nobody waited for a time-out";
    };
    for (std::size_t number = 0; number < std::size(CLOSINGS); ++number) {
        for (const Place place : {OUTSIDE, IN_A_CALLBACK, IN_A_CALLBACK_OF_CLOSING}) {
            close_somewhere(Dispatcher::OWN_THREAD, number, place);
            // (A dispatcher may not be destroyed while another thread is in `run_once`.)
            if (number < 3 || place == IN_A_CALLBACK) {
                close_somewhere(Dispatcher::CALLERS, number, place);
            }
        }
    }
}

TEST_P(AsyncCalls, that_are_being_told_are_waited_for_by_who_closes) {
    for (const bool closes_dispatcher : {false, true}) {
        Served served;
        TextRequester requester(requester_params(), *served.dispatcher);
        std::promise<void> inside;
        std::promise<void> go_on;
        std::atomic<bool> told{false};
        requester.call_async("x", AT_ONCE, [&](const CallResult<std::string>&) {
            inside.set_value();
            go_on.get_future().get();
            told = true;
        });
        inside.get_future().get();
        std::future<bool> closer = start_blocking([&] {
            closes_dispatcher ? served.dispatcher->close() : requester.close();
            return told.load();
        });
        EXPECT_EQ(std::future_status::timeout, closer.wait_for(AT_ONCE));
        go_on.set_value();
        EXPECT_TRUE(closer.get());
    }
}

TEST_P(AsyncCalls, by_the_thousand_and_blocking_ones_and_an_onlooker_do_not_disturb_each_other) {
    constexpr int CALLERS = 64;
    constexpr int CALLS = 60;
    Served served;
    const Service<std::string, std::string> service(replier_params(), [](const std::string& text) { return text + "!"; });
    TextRequester requester(requester_params(), *served.dispatcher);
    EXPECT_TRUE(requester.wait_for_service());
    std::atomic<int> right{0};
    std::atomic<bool> done{false};
    const std::future<void> onlooker = std::async(std::launch::async, [&] {
        while (!done) {
            requester.wait_for_replies(milliseconds(1), 1000000);
        }
    });
    // Each caller blocks, or has calls under way, or a chain of them, each made by the callback of the one before.
    std::function<void(int, bool)> call_async = [&](int number, bool is_chain) {
        requester.call_async(std::to_string(number), PATIENCE, [&, number, is_chain](const CallResult<std::string>& result) {
            right += result && result.value() == std::to_string(number) + "!";
            if (is_chain && number > 1) {
                call_async(number - 1, true);
            }
        });
    };
    std::vector<std::future<void>> callers;
    for (int caller = 0; caller < CALLERS; ++caller) {
        callers.push_back(std::async(std::launch::async, [&, caller] {
            for (int number = CALLS; number > (caller % 3 == 0 ? CALLS - 1 : 0); --number) {
                if (caller % 3 == 2) {
                    right += requester.call(std::to_string(number), PATIENCE) == std::to_string(number) + "!";
                } else {
                    call_async(number, caller % 3 == 0);
                }
            }
        }));
    }
    callers.clear();
    EXPECT_TRUE(eventually([&] { return right == CALLERS * CALLS; }, PATIENCE)) << right;
    done = true;
    EXPECT_TRUE(eventually([&] { return served.dispatcher->pending() == 0; }));
    const RequesterStatistics statistics = requester.stats();
    EXPECT_EQ(CALLERS * CALLS, statistics.sent);
    EXPECT_EQ(CALLERS * CALLS, statistics.completed);
    EXPECT_EQ(0, statistics.pending + statistics.queued + statistics.timed_out + statistics.unmatched);
}

TEST_P(AsyncCalls, allocate_nothing_in_steady_state_but_what_their_form_needs) {
    if (GetParam() != "embedded") {
        GTEST_SKIP() << "a promise of the embedded engine";
    }
    typedef norvane::Requester<Number, Number> NumberRequester;
    typedef norvane::Replier<Number, Number> NumberReplier;
    Dispatcher dispatcher(Dispatcher::CALLERS);
    NumberReplier replier(replier_params());
    NumberRequester requester(requester_params(), dispatcher);
    int sum = 0;
    std::size_t sent = 0;
    std::array<DDS_SampleIdentity_t, 10> ids;
    const auto round = [&](auto call) {
        for (int number = 0; number < 10; ++number) {
            call(number);
        }
        while (replier.wait_for_requests(AT_ONCE)) {
            const auto requests = replier.take_requests(1);
            replier.send_reply(requests[0].data(), requests[0].identity());
        }
        while (dispatcher.run_once(AT_ONCE) > 0) {
        }
        for (; sent > 0; --sent) {
            sum += requester.wait_for_replies(PATIENCE, ids[sent - 1]) ? requester.take_replies(ids[sent - 1]).length() : 100;
        }
    };
    const auto plain = [&](int number) { ids[sent++] = requester.send_request({number}); };
    const auto small = [&](int number) {
        requester.call_async({number}, PATIENCE, [&sum, room = std::array<char, 72>()](const CallResult<Number>& result) {
            sum += result.value().value + room[0];
        });
    };
    const auto large = [&](int number) {
        requester.call_async({number}, PATIENCE, [&sum, room = std::array<char, 80>()](const CallResult<Number>& result) {
            sum += result.value().value + room[0];
        });
    };
    const auto expiring = [&](int number) {
        requester.call_async({number}, AT_ONCE, [&sum](const CallResult<Number>& result) { sum += result.has_value() ? 100 : 0; });
    };
    const auto allocated = [&](auto call) {
        AllocationProbe::fail(0);
        round(call);
        AllocationProbe::stop();
        return AllocationProbe::count();
    };
    round(small);
    round(small);
    EXPECT_EQ(0, allocated(small));
    EXPECT_EQ(10, allocated(large)) << "one each: the callback does not fit";
    EXPECT_EQ(4 * 45, sum);
    round(plain);
    EXPECT_EQ(0, allocated(plain)) << "asked and awaited without a dispatcher";
    EXPECT_EQ(4 * 45 + 20, sum);
    round(expiring);
    AllocationProbe::fail(0);
    for (int times = 0; times < 100; ++times) {
        round(expiring);
    }
    AllocationProbe::stop();
    EXPECT_EQ(0, AllocationProbe::outstanding()) << "memory is flat, however many calls expire";
}

TEST_P(AsyncCalls, are_told_exactly_once_whatever_comes_and_goes_meanwhile) {
    const unsigned seed = test_seed();
    const std::uint32_t level = DDSLog_g_instrumentationMask.exchange(0);  // repliers that leave while they answer
    std::atomic<int> made{0};
    std::atomic<int> told{0};
    std::atomic<bool> done{false};
    const auto tell = [&](const CallResult<std::string>&) { ++told; };
    // Call by call: either it throws, or its callback is called.
    const auto call = [&](TextRequester& requester, const Timeout& timeout, auto callback) {
        ++made;
        made -= thrown_by([&] { requester.call_async("x", timeout, callback); }).type != "";
    };
    std::thread coming_and_going([&] {
        std::mt19937 random(seed);
        while (!done) {
            TextReplier replier(replier_params().max_queued_requests(static_cast<int>(1 + random() % 8)));
            for (auto rounds = random() % 20; rounds > 0; --rounds) {
                replier.wait_for_requests(milliseconds(1));
                answer_all(replier, "!");
            }
        }
    });
    const auto live = [&](unsigned number) {
        std::mt19937 random(seed + number);
        for (int round = 0; round < 20; ++round) {
            Served served(random() % 2 == 0 ? Dispatcher::OWN_THREAD : Dispatcher::CALLERS);
            std::optional<TextRequester> requesters[2];
            for (auto& requester : requesters) {
                requester.emplace(requester_params(), *served.dispatcher);
            }
            for (int step = 0; step < 100; ++step) {
                auto& requester = requesters[random() % 2];
                const milliseconds timeout(random() % 8);
                const auto action = random() % 64;
                if (!requester || action == 0) {
                    requester.reset();
                } else if (action == 1) {
                    requester->close();
                } else if (action < 8) {
                    EXPECT_NE("future_error", thrown_by([&] { requester->call_async("x", timeout).get(); }).type);
                } else if (action < 16) {
                    call(*requester, timeout, [&, own = &*requester, timeout](const CallResult<std::string>&) {
                        ++told;
                        call(*own, timeout, tell);
                    });
                } else {
                    call(*requester, timeout, tell);
                }
            }
            if (random() % 2 == 0) {
                served.dispatcher->close();
            }
        }
    };
    std::thread worlds[] = {std::thread(live, 1), std::thread(live, 2)};
    for (std::thread& world : worlds) {
        world.join();
    }
    done = true;
    coming_and_going.join();
    DDSLog_g_instrumentationMask = level;
    EXPECT_GT(told, 0);
    EXPECT_EQ(made, told);
}

INSTANTIATE_TEST_SUITE_P(Engines, AsyncCalls, ::testing::ValuesIn(engine_names()), engine_of_test);

}  // namespace
}  // namespace norvane::test
