// What does it cost to collect the reply to one particular request when N replies are waiting, over a hash map under a mutex?
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <mutex>
#include <random>
#include <unordered_map>
#include <utility>

#include "EchoService.hpp"
#include "Question.hpp"
#include "Stopwatch.hpp"

namespace bench {
namespace {

/// Collections between two looks at the clock. With few replies waiting they go over as many stores, so that each store still
/// has its N at every collection.
constexpr std::size_t BATCH = 16;
constexpr std::size_t FEW = 1000;

/// The floor by hand.
class Map {
public:
    typedef std::uint64_t Key;

    Key fill(std::uint64_t number) {
        std::lock_guard<std::mutex> lock(_mutex);
        _replies.emplace(number, make_payload(number));
        return number;
    }

    void collect(Key key, std::uint64_t number) {
        std::unique_lock<std::mutex> lock(_mutex);
        const auto found = _replies.find(key);
        const Payload reply = found->second;
        _replies.erase(found);
        lock.unlock();
        check_echo(reply, number);
    }

private:
    std::mutex _mutex;
    std::unordered_map<std::uint64_t, Payload> _replies;
};

class Ours {
public:
    typedef DDS_SampleIdentity_t Key;

    Ours() : _service("Collect" + std::to_string(++_made)) {}

    Key fill(std::uint64_t number) {
        const Key id = _service.requester().send_request(make_payload(number));
        const auto requests = _service.replier().take_requests();
        _service.replier().send_reply(requests[0].data(), requests[0].identity());
        return id;
    }

    void collect(const Key& id, std::uint64_t number) {
        const auto replies = _service.requester().take_replies(id);
        if (replies.length() != 1) {
            throw std::runtime_error("the reply is not there");
        }
        check_echo(replies[0].data(), number);
    }

private:
    static int _made;
    Service<Payload> _service;
};

int Ours::_made = 0;

/// One store or BATCH of them, each with N replies waiting; of those, which ones are collected next is up to chance.
template <class Store>
class Waiting {
public:
    explicit Waiting(std::size_t replies) : _stores(replies < FEW ? BATCH : 1), _waiting(_stores.size()) {
        for (std::size_t store = 0; store < _stores.size(); ++store) {
            for (std::size_t reply = 0; reply < replies; ++reply) {
                fill(store);
            }
        }
    }

    /// @return nanoseconds per collection.
    double measure() {
        double spent_ns = 0;
        double collected = 0;
        std::vector<std::pair<typename Store::Key, std::uint64_t>> chosen(BATCH);
        for (const Clock::time_point end = Clock::now() + ROUND; Clock::now() < end; collected += BATCH) {
            for (std::size_t index = 0; index < BATCH; ++index) {
                auto& waiting = _waiting[index % _stores.size()];
                std::swap(waiting[_random() % waiting.size()], waiting.back());
                chosen[index] = waiting.back();
                waiting.pop_back();
            }
            const Clock::time_point start = Clock::now();
            for (std::size_t index = 0; index < BATCH; ++index) {
                _stores[index % _stores.size()].collect(chosen[index].first, chosen[index].second);
            }
            spent_ns += ns_since(start);
            for (std::size_t index = 0; index < BATCH; ++index) {
                fill(index % _stores.size());
            }
        }
        return spent_ns / collected;
    }

private:
    void fill(std::size_t store) {
        const std::uint64_t number = ++_number;
        _waiting[store].emplace_back(_stores[store].fill(number), number);
    }

    std::vector<Store> _stores;
    std::vector<std::vector<std::pair<typename Store::Key, std::uint64_t>>> _waiting;
    std::minstd_rand _random{1};
    std::uint64_t _number = 0;
};

class Collect : public Probe {
public:
    explicit Collect(std::size_t replies) : _ours(replies), _floor(replies) {}

    Values measure() override { return {_ours.measure(), _floor.measure()}; }

private:
    Waiting<Ours> _ours;
    Waiting<Map> _floor;
};

Stage with(std::size_t replies) {
    return {Processors::TWO, Spin::DEFAULT, [replies] { return std::make_unique<Collect>(replies); }};
}

Row row(const char* replies, std::size_t stage) {
    return {std::string("collecting one particular reply of ") + replies, Unit::TIME, {stage, 0}, {stage, 1}, 10};
}

const Question question("5_collect_one_of_many", {with(1), with(10), with(100), with(1000), with(10000), with(100000)},
                        {row("1", 0), row("10", 1), row("100", 2), row("1,000", 3), row("10,000", 4), row("100,000", 5)});

}  // namespace
}  // namespace bench
