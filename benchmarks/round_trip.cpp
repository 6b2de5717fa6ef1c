// What does a blocking round trip cost over handing 64 octets to another thread and back through mutex and condition variable?
// SPDX-License-Identifier: Apache-2.0
#include "EchoFloor.hpp"
#include "EchoService.hpp"
#include "Placement.hpp"
#include "Question.hpp"
#include "Stopwatch.hpp"

namespace bench {
namespace {

class RoundTrip : public Probe {
public:
    explicit RoundTrip(Placement placement) {
        if (placement == Placement::APART) {
            const cpu_set_t allowed = allowed_processors();
            confine(_service.echo_thread(), allowed, 0);
            confine(_floor.echo_thread(), allowed, 0);
            confine(pthread_self(), allowed, 1);
        }
    }

    Values measure() override {
        const double ours = ns_per_call(ROUND, [this] { call(_service.requester(), make_payload(++_number)); });
        const double floor = ns_per_call(ROUND, [this] {
            const Payload request = make_payload(++_number);
            check_echo(_floor.call(request), request.number);
        });
        return {ours, floor};
    }

private:
    EchoService<Payload> _service{"RoundTrip"};
    EchoFloor<Payload> _floor;
    std::uint64_t _number = 0;
};

std::function<std::unique_ptr<Probe>()> placed(Placement placement) {
    return [placement] { return std::make_unique<RoundTrip>(placement); };
}

const Question question("1_round_trip",
                        {{Processors::ONE, Spin::DEFAULT, placed(Placement::FREE)},
                         {Processors::TWO, Spin::OFF, placed(Placement::FREE)},
                         {Processors::TWO, Spin::OFF, placed(Placement::APART)}},
                        {{"round trip, 1 in flight, one core, blocking", Unit::TIME, {0, 0}, {0, 1}, 1.3},
                         {"round trip, 1 in flight, two cores, spin off", Unit::TIME, {1, 0}, {1, 1}, 1.15},
                         {"round trip, 1 in flight, each thread on its own core, spin off", Unit::TIME, {2, 0}, {2, 1}, 1.15}});

}  // namespace
}  // namespace bench
