// What does a call between two processes cost when one of many requesters of a participant makes it, over a single one?
// SPDX-License-Identifier: Apache-2.0
#include <stdexcept>
#include <string>
#include <vector>

#include "Link.hpp"
#include "Memory.hpp"
#include "OwnService.hpp"
#include "Parcel.hpp"
#include "benchmarks/Question.hpp"
#include "benchmarks/Stopwatch.hpp"

namespace bench {
namespace {

constexpr int COUNTS[] = {1, 10, 100, 1000};
constexpr int FIRST_PAIR = 4;
constexpr std::chrono::milliseconds MANY_ROUND{40};

/// All of them call in turn. How long they and their replier took to find each other, and how much memory, is told besides.
class ManyRequesters : public Probe {
public:
    ManyRequesters(const Link& link, int count)
        : _count(static_cast<std::size_t>(count)),
          _memory_before(resident_octets()),
          _start(Clock::now()),
          _requesters(link, count),
          _discovery_ns(ns_since(_start)) {
        for (std::size_t requester = 0; requester < _count; ++requester) {
            _requesters.call(_parcel, requester);
        }
        _memory = resident_octets() - _memory_before;
    }

    Values measure() override {
        const double each = ns_per_call(MANY_ROUND, [this] {
            ++_parcel.number;
            _requesters.call(_parcel, ++_turn % _count);
        });
        return {each, _discovery_ns, _memory};
    }

private:
    const std::size_t _count;
    const double _memory_before;
    const Clock::time_point _start;
    OwnRequesters _requesters;
    const double _discovery_ns;
    double _memory = 0;
    Parcel _parcel = make_parcel(64);
    std::size_t _turn = 0;
};

std::vector<Stage> stages() {
    std::vector<Stage> all;
    int pair = FIRST_PAIR;
    for (const int count : COUNTS) {
        const Link link = {Transport::UDP, pair++};
        all.push_back({Processors::TWO, Spin::DEFAULT, [link] { return std::make_unique<OwnReplier>(link); }});
        all.push_back({Processors::TWO, Spin::DEFAULT, [link, count] { return std::make_unique<ManyRequesters>(link, count); }});
    }
    return all;
}

std::vector<Row> rows() {
    std::vector<Row> all;
    std::size_t replier = 0;
    for (const int count : COUNTS) {
        const std::size_t requesters = replier + 1;
        const std::string many = std::to_string(count) + (count == 1 ? " requester" : " requesters") + ", UDP: ";
        if (count != 1) {
            all.push_back({many + "a call, over 1", Unit::TIME, {requesters, 0}, {1, 0}, 1.5});
        }
        all.push_back({many + "until all are ready", Unit::TIME, {requesters, 1}, NO_SOURCE, NO_TARGET});
        all.push_back({many + "memory of their process", Unit::OCTETS, {requesters, 2}, NO_SOURCE, NO_TARGET});
        all.push_back({many + "memory of the replier's process", Unit::OCTETS, {replier, 0}, NO_SOURCE, NO_TARGET});
        replier += 2;
    }
    return all;
}

const Question question("3_many_requesters", stages(), rows());

}  // namespace
}  // namespace bench
