// How much dearer is a call when 10, 100 or 1,000 requesters are on the service, over the same call when there is one?
// SPDX-License-Identifier: Apache-2.0
#include "EchoService.hpp"
#include "Question.hpp"
#include "Stopwatch.hpp"

namespace bench {
namespace {

/// Values: a call with one requester on the service, one of many calling, all of many calling in turn.
class ManyRequesters : public Probe {
public:
    explicit ManyRequesters(int requesters) : _count(static_cast<std::size_t>(requesters)), _many("Many", requesters) {}

    Values measure() override {
        const double alone = ns_per_call(ROUND, [this] { call(_alone.requester(), make_payload(++_number)); });
        const double one = ns_per_call(ROUND, [this] { call(_many.requester(_count / 2), make_payload(++_number)); });
        const double all = ns_per_call(ROUND, [this] { call(_many.requester(++_turn % _count), make_payload(++_number)); });
        return {alone, one, all};
    }

private:
    const std::size_t _count;
    EchoService<Payload> _alone{"Alone"};
    EchoService<Payload> _many;
    std::size_t _turn = 0;
    std::uint64_t _number = 0;
};

Stage with(int requesters) {
    return {Processors::ONE, Spin::DEFAULT, [requesters] { return std::make_unique<ManyRequesters>(requesters); }};
}

const Question question("6_many_requesters", {with(10), with(100), with(1000)},
                        {{"10 requesters over 1, blocking: one of them calls", Unit::TIME, {0, 1}, {0, 0}, 1.1},
                         {"10 requesters over 1, blocking: all call in turn", Unit::TIME, {0, 2}, {0, 0}, 1.3},
                         {"100 requesters over 1, blocking: one of them calls", Unit::TIME, {1, 1}, {1, 0}, 1.1},
                         {"100 requesters over 1, blocking: all call in turn", Unit::TIME, {1, 2}, {1, 0}, 1.3},
                         {"1,000 requesters over 1, blocking: one of them calls", Unit::TIME, {2, 1}, {2, 0}, 1.1},
                         {"1,000 requesters over 1, blocking: all call in turn", Unit::TIME, {2, 2}, {2, 0}, 1.3}});

}  // namespace
}  // namespace bench
