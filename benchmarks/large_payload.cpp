// What does a round trip of a megabyte cost over handing it on by hand, copied once each way?
// SPDX-License-Identifier: Apache-2.0
#include "EchoFloor.hpp"
#include "EchoService.hpp"
#include "Question.hpp"
#include "Stopwatch.hpp"

namespace bench {
namespace {

struct Megabyte {
    std::uint64_t number;
    char rest[(1 << 20) - sizeof(std::uint64_t)];
};

class LargePayload : public Probe {
public:
    LargePayload() { std::memset(_request->rest, 'x', sizeof _request->rest); }

    Values measure() override {
        const double ours = ns_per_call(ROUND, [this] {
            ++_request->number;
            call(_service.requester(), *_request);
        });
        const double floor = ns_per_call(ROUND, [this] {
            ++_request->number;
            if (_floor->call(*_request).number != _request->number) {
                throw std::runtime_error("wrong reply");
            }
        });
        return {ours, floor};
    }

private:
    EchoService<Megabyte> _service{"LargePayload"};
    std::unique_ptr<EchoFloor<Megabyte>> _floor = std::make_unique<EchoFloor<Megabyte>>();
    std::unique_ptr<Megabyte> _request = std::make_unique<Megabyte>();
};

const auto make_probe = [] { return std::make_unique<LargePayload>(); };

const Question question("7_large_payload", {{Processors::ONE, Spin::DEFAULT, make_probe}, {Processors::TWO, Spin::OFF, make_probe}},
                        {{"1 MiB to and fro, one core, blocking", Unit::TIME, {0, 0}, {0, 1}, 1.15},
                         {"1 MiB to and fro, two cores, blocking (spin off)", Unit::TIME, {1, 0}, {1, 1}, 1.15}});

}  // namespace
}  // namespace bench
