// SPDX-License-Identifier: Apache-2.0
// Services on every engine: workers at once, handlers that fail or call services, and every way to end one without losing a reply.
#include "norvane/Service.hpp"

#include <atomic>
#include <cstdint>
#include <fstream>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <new>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/AllocationProbe.hpp"
#include "support/LogCapture.hpp"
#include "support/ServiceFixture.hpp"
#include "support/Thrown.hpp"

namespace norvane::test {
namespace {

using std::chrono::milliseconds;
typedef std::vector<std::string> Strings;
typedef Service<std::string, std::string> TextService;
typedef ServiceOptions<std::string> TextOptions;
typedef std::vector<DDS_SampleIdentity_t> Ids;

/// Holds handlers until it is opened.
struct Gate {
    void pass() {
        ++inside;
        EXPECT_TRUE(eventually([this] { return open.load(); }, PATIENCE));
        --inside;
    }
    std::atomic<int> inside{0};
    std::atomic<bool> open{false};
};

typedef std::vector<std::int64_t> Figures;

/// @return handled, failed, unsent, discarded.
Figures figures(const TextService& service) {
    const ServiceStatistics counted = service.stats();
    return {counted.handled, counted.failed, counted.unsent, counted.discarded};
}

std::string marked(const std::string& request) { return request + "!"; }

class Services : public ServiceFixture {
protected:
    Services() : _requester(requester_params()) {}
    Ids send(const Strings& requests) {
        EXPECT_TRUE(_requester.wait_for_service(PATIENCE));
        Ids ids;
        for (const std::string& request : requests) {
            ids.push_back(_requester.send_request(request));
        }
        return ids;
    }
    Strings replies_to(const Ids& ids) {
        Strings replies;
        for (const DDS_SampleIdentity_t& id : ids) {
            EXPECT_TRUE(_requester.wait_for_replies(PATIENCE, id));
            replies.push_back(strings_of(_requester.take_replies(id)).at(0));
        }
        return replies;
    }

    TextRequester _requester;
};
INSTANTIATE_TEST_SUITE_P(Engine, Services, ::testing::ValuesIn(engine_names()), engine_of_test);

TEST_P(Services, each_worker_handles_one_request_at_a_time_and_the_rest_waits_in_order) {
    for (const int workers : {1, 3}) {
        Gate gate;
        std::mutex mutex;
        Strings handled;
        TextService service(
            replier_params(),
            [&](const std::string& request, const DDS_SampleInfo& info) {
                gate.pass();
                const std::lock_guard<std::mutex> guard(mutex);
                handled.push_back(request);
                return request + (info.valid_data ? "!" : "?");
            },
            TextOptions().workers(workers));
        const Strings requests = {"a", "b", "c", "d", "e", "f"};
        const Ids ids = send(requests);
        EXPECT_TRUE(eventually([&] { return gate.inside == workers; })) << "of " << workers;
        EXPECT_TRUE(eventually([&] { return service.replier_stats().queued == 6 - workers; }));
        gate.open = true;
        EXPECT_EQ((Strings{"a!", "b!", "c!", "d!", "e!", "f!"}), replies_to(ids));
        if (workers == 1) {
            EXPECT_EQ(requests, handled);
        }
        EXPECT_TRUE(service.drain());
        EXPECT_EQ((Figures{6, 0, 0, 0}), figures(service));
        EXPECT_EQ(6, service.replier_stats().answered);
    }
}

TEST_P(Services, a_handler_that_fails_is_logged_and_counted_and_answered_by_on_error) {
    const TextOptions::ErrorHandler explain = [](std::exception_ptr error) {
        return "sorry: " + thrown_by([&] { std::rethrow_exception(error); }).message;
    };
    const TextOptions::ErrorHandler fail = [](std::exception_ptr) -> std::string { throw std::logic_error("worse"); };
    struct Case {
        const char* request;
        TextOptions::ErrorHandler on_error;
        Strings replies;
        Figures counted;
        Strings logged;
    };
    const Case cases[] = {
        {"error", nullptr, {}, {1, 1, 0, 0}, {"a handler threw: broken"}},
        {"error", explain, {"sorry: broken"}, {1, 1, 0, 0}, {"a handler threw: broken"}},
        {"error", fail, {}, {1, 1, 0, 0}, {"a handler threw: broken", "on_error threw too, the request gets no reply: worse"}},
        {"memory", explain, {"sorry: std::bad_alloc"}, {1, 1, 0, 0}, {"a handler threw: std::bad_alloc"}},
        {"number", nullptr, {}, {1, 1, 0, 0}, {"a handler threw: an exception that is no std::exception"}},
        {"NUL", explain, {}, {1, 0, 1, 0}, {"a reply could not be written: "}},
    };
    for (const Case& each : cases) {
        const LogCapture log(0x2, 0x10);
        TextService service(
            replier_params(),
            [](const std::string& request) -> std::string {
                if (request == "error") {
                    throw std::runtime_error("broken");
                } else if (request == "memory") {
                    throw std::bad_alloc();
                } else if (request == "number") {
                    throw 7;
                }
                return request == "NUL" ? std::string(3, '\0') : "fine";
            },
            TextOptions().on_error(each.on_error));
        const Ids ids = send({each.request, "next"});
        EXPECT_EQ((Strings{"fine"}), replies_to({ids[1]})) << "the worker must go on after " << each.request;
        EXPECT_EQ(each.replies, strings_of(_requester.take_replies(ids[0]))) << each.request;
        EXPECT_TRUE(service.stop());
        EXPECT_EQ(each.counted, figures(service)) << each.request;
        for (const std::string& line : each.logged) {
            EXPECT_EQ(1, log.count(line)) << line;
        }
    }
}

// A listener may run inside the write of the reply, and what it writes does not wait for room.
TEST_P(Services, who_has_a_reply_finds_room_for_the_next_request) {
    struct Asking : DDSDataReaderListener {
        explicit Asking(TextRequester& a_requester) : requester(a_requester) {}
        void on_data_available(DDSDataReader*) override {
            if (sent < 5) {
                requester.send_request("x");
                ++sent;
            }
        }
        TextRequester& requester;
        std::atomic<int> sent{0};
    } asking(_requester);
    TextService service(replier_params().max_queued_requests(1), marked);
    EXPECT_EQ(DDS_RETCODE_OK, _requester.get_reply_datareader()->set_listener(&asking, DDS_DATA_AVAILABLE_STATUS));
    send({"x"});
    EXPECT_TRUE(eventually([&] { return service.stats().handled == 6; })) << asking.sent;
    EXPECT_EQ(DDS_RETCODE_OK, _requester.get_reply_datareader()->set_listener(nullptr, DDS_STATUS_MASK_NONE));
}

enum class End { DRAIN, STOP, DESTROY };

void end_by(End end, std::unique_ptr<TextService>& service, bool expected) {
    if (end == End::DESTROY) {
        service.reset();
    } else {
        EXPECT_EQ(expected, end == End::DRAIN ? service->drain() : service->stop());
    }
}

TEST_P(Services, drain_handles_what_is_queued_and_stop_discards_it_also_when_the_running_handler_does_it) {
    for (const bool by_handler : {false, true}) {
        for (const End end : {End::DRAIN, End::STOP, End::DESTROY}) {
            SCOPED_TRACE(std::to_string(static_cast<int>(end)) + (by_handler ? ", by the handler" : ""));
            const LogCapture log(0x3, 0x10);
            Gate gate;
            std::unique_ptr<TextService> service;
            auto token = std::make_shared<int>(0);
            const std::weak_ptr<int> work = token;
            service = std::make_unique<TextService>(replier_params(), [&, kept = std::move(token)](const std::string& request) {
                gate.pass();
                if (by_handler && request == "a") {
                    end_by(end, service, false);
                }
                return request + "!";
            });
            const Ids ids = send({"a", "b", "c"});
            EXPECT_TRUE(eventually([&] { return gate.inside == 1 && service->replier_stats().queued == 2; }));
            std::future<void> ending;
            if (!by_handler && end != End::DESTROY) {
                const ShutdownResult early = end == End::DRAIN ? service->drain(milliseconds(20)) : service->stop(milliseconds(20));
                EXPECT_FALSE(early) << "the handler does not return by itself";
                EXPECT_EQ(1, early.running_handlers);
                EXPECT_EQ(end == End::DRAIN ? 2 : 0, early.queued_requests);
                EXPECT_EQ(0, early.unacknowledged_replies);
                EXPECT_EQ(1, log.count(" is not complete: 1 handler(s) running, "));
            }
            if (!by_handler) {
                ending = std::async(std::launch::async, [&] { end_by(end, service, true); });
                EXPECT_TRUE(eventually([&] { return _requester.matched_repliers() == 0; }));
                EXPECT_NE(std::future_status::ready, ending.wait_for(milliseconds(0))) << "a handler was still running";
            }
            gate.open = true;
            EXPECT_EQ((Strings{"a!"}), replies_to({ids[0]})) << "it is written whatever ends";
            if (!by_handler) {
                ending.get();
            }
            if (service != nullptr) {
                EXPECT_TRUE(service->drain());
                EXPECT_EQ((end == End::DRAIN ? Figures{3, 0, 0, 0} : Figures{1, 0, 0, 2}), figures(*service));
                EXPECT_EQ(0, service->replier_stats().queued);
                EXPECT_TRUE(service->stop() && service->drain() && service->stop(milliseconds(0))) << "once ended, ended";
                service.reset();
            }
            EXPECT_TRUE(eventually([&] { return work.expired(); })) << "the worker whose handler destroyed the service keeps it";
            EXPECT_EQ((end == End::DRAIN ? Strings{"b!", "c!"} : Strings()), strings_of(_requester.take_replies()));
            EXPECT_TRUE(eventually([&] { return _requester.matched_repliers() == 0; }));
            EXPECT_EQ(by_handler || end == End::DESTROY ? 0 : 1, log.count(""));
        }
    }
}

TEST_P(Services, under_load_every_request_taken_in_is_answered_or_discarded_whoever_ends_the_service) {
    for (const End end : {End::DRAIN, End::STOP}) {
        auto service = std::make_unique<TextService>(replier_params(), marked, TextOptions().workers(3));
        const LogCapture quiet;  // requests to a service that has left are lost, and it says so
        std::atomic<int> ready{0};
        std::atomic<bool> over{false};
        const auto call = [&] {
            TextRequester requester(requester_params());
            EXPECT_TRUE(requester.wait_for_service(PATIENCE));
            ++ready;
            Ids ids;
            while (!over && ids.size() < 5000) {
                ids.push_back(requester.send_request(std::to_string(ids.size())));
            }
            EXPECT_TRUE(eventually([&] { return over.load(); }));
            std::int64_t replies = 0;
            for (std::size_t index = 0; index < ids.size(); ++index) {
                const Strings texts = strings_of(requester.take_replies(ids[index]));
                EXPECT_TRUE(texts.empty() || texts == Strings{std::to_string(index) + "!"});
                replies += static_cast<std::int64_t>(texts.size());
            }
            return replies;
        };
        std::vector<std::future<std::int64_t>> callers;
        for (int caller = 0; caller < 3; ++caller) {
            callers.push_back(std::async(std::launch::async, call));
        }
        EXPECT_TRUE(eventually([&] { return ready == 3 && service->stats().handled > 200; }));
        {
            const auto end_it = [&] { end_by(end, service, true); };
            const std::future<void> ending[] = {std::async(std::launch::async, end_it), std::async(std::launch::async, end_it)};
            end_it();
        }
        over = true;
        std::int64_t replies = 0;
        for (auto& caller : callers) {
            replies += caller.get();
        }
        const ServiceStatistics counted = service->stats();
        EXPECT_EQ(counted.handled, replies);
        EXPECT_EQ(service->replier_stats().received, counted.handled + counted.discarded);
        EXPECT_TRUE(end == End::STOP || counted.discarded == 0) << counted.discarded;
    }
}

TEST_P(Services, a_handler_may_call_another_service_and_its_own_while_a_worker_is_free) {
    const LogCapture log(0x2, 0x10);
    TextRequester own(requester_params());
    TextRequester other(requester_params(nullptr, "T"));
    TextService second(replier_params(nullptr, "T"), marked);
    for (const int workers : {1, 2}) {
        TextService first(
            replier_params(),
            [&](const std::string& request) {
                return request == "leaf"    ? "leaf"
                       : request == "other" ? other.call("other", PATIENCE)
                                            : own.call("leaf", workers == 1 ? Timeout(milliseconds(50)) : Timeout(PATIENCE));
            },
            TextOptions().workers(workers).on_error([](std::exception_ptr) { return "in vain"; }));
        EXPECT_EQ((Strings{"other!", workers == 1 ? "in vain" : "leaf"}), replies_to(send({"other", "own"})));
    }
    EXPECT_EQ(1, log.count("needs another worker that is free; there is 1 in all"));
}

TEST_P(Services, an_idle_service_sleeps_whatever_others_do) {
    Gate gate;
    std::atomic<long> threads[3] = {};
    TextService service(
        replier_params(),
        [&](const std::string& request) {
            threads[std::stoi(request)] = this_thread_number();
            gate.pass();
            return request;
        },
        TextOptions().workers(3));
    const Ids ids = send({"0", "1", "2"});
    EXPECT_TRUE(eventually([&] { return gate.inside == 3; }));
    gate.open = true;
    EXPECT_EQ((Strings{"0", "1", "2"}), replies_to(ids));

    const auto switches = [&] {
        long count = 0;
        for (const long thread : threads) {
            std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/status");
            std::string word;
            while (status >> word && word != "voluntary_ctxt_switches:") {
            }
            long of_thread = 0;
            status >> of_thread;
            count += of_thread;
        }
        return count;
    };
    TextService busy(replier_params(nullptr, "T"), marked);
    TextRequester other(requester_params(nullptr, "T"));
    EXPECT_TRUE(eventually([&] {
        const long before = switches();
        for (int call = 0; call < 100; ++call) {
            other.call("x", PATIENCE);
        }
        other.wait_for_replies(milliseconds(150));  // nothing comes: time for whoever looks now and then
        EXPECT_GT(before, 0);
        return switches() == before;
    }));
}

TEST_P(Services, what_cannot_be_made_is_refused_and_leaves_nothing) {
    const std::function<std::string(const std::string&)> none;
    const LogCapture quiet;
    EXPECT_EQ("BadParameterException", thrown_by([&] { TextService(replier_params(), none); }).type);
    EXPECT_EQ("BadParameterException", thrown_by([&] { TextService(replier_params(), marked, TextOptions().workers(0)); }).type);
    if (GetParam() != "embedded") {
        return;  // others may end the process where memory is short
    }
    // Also what fails while some workers run already, and a destructor that is short of memory. (PreconditionNotMetException: a type
    // that could not be registered.)
    const std::set<std::string> EXPECTED = {"", "bad_alloc", "RuntimeException", "OutOfResourcesException",
                                            "PreconditionNotMetException"};
    long made = 0;
    const long failures = fail_each_allocation([&] {
        const Thrown thrown = thrown_by([&] {
            TextService service(replier_params(nullptr, "T"), marked, TextOptions().workers(3));
            TextRequester requester(requester_params(nullptr, "T"));
            ++made;
        });
        AllocationProbe::stop();
        EXPECT_EQ(1U, EXPECTED.count(thrown.type)) << thrown.type;
        EXPECT_TRUE(AllocationProbe::has_failed() || thrown.type.empty()) << thrown.type;
        EXPECT_TRUE(only_topics_are_left("TRequest", "TReply"));
    });
    EXPECT_GT(failures, 40);
    EXPECT_GT(made, 1) << "the destructor was to run short of memory, too";
}

}  // namespace
}  // namespace norvane::test
