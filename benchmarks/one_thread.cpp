// What do send, take, reply, take cost on one thread, where nobody sleeps, over a mutex and a hash map?
// SPDX-License-Identifier: Apache-2.0
#include <mutex>
#include <unordered_map>

#include "EchoService.hpp"
#include "Question.hpp"
#include "Stopwatch.hpp"

namespace bench {
namespace {

/// The floor by hand: a payload is copied into a node under the lock, found under the lock, and erased.
class Store {
public:
    void put(const Payload& payload) {
        std::lock_guard<std::mutex> lock(_mutex);
        _payloads.emplace(payload.number, payload);
    }

    Payload take(std::uint64_t number) {
        std::lock_guard<std::mutex> lock(_mutex);
        const auto found = _payloads.find(number);
        const Payload payload = found->second;
        _payloads.erase(found);
        return payload;
    }

private:
    std::mutex _mutex;
    std::unordered_map<std::uint64_t, Payload> _payloads;
};

class OneThread : public Probe {
public:
    Values measure() override {
        const double ours = ns_per_call(ROUND, [this] {
            const Payload request = make_payload(++_number);
            const DDS_SampleIdentity_t id = _service.requester().send_request(request);
            {
                const auto requests = _service.replier().take_requests();
                _service.replier().send_reply(requests[0].data(), requests[0].identity());
            }
            const auto replies = _service.requester().take_replies(id);
            check_echo(replies[0].data(), request.number);
        });
        const double floor = ns_per_call(ROUND, [this] {
            const Payload request = make_payload(++_number);
            _requests.put(request);
            _replies.put(_requests.take(request.number));
            check_echo(_replies.take(request.number), request.number);
        });
        return {ours, floor};
    }

private:
    Service<Payload> _service{"OneThread"};
    Store _requests;
    Store _replies;
    std::uint64_t _number = 0;
};

const Question question("3_one_thread", {{Processors::TWO, Spin::DEFAULT, [] { return std::make_unique<OneThread>(); }}},
                        {{"send, take, reply, take on one thread, nobody sleeps", Unit::TIME, {0, 0}, {0, 1}, 8}});

}  // namespace
}  // namespace bench
