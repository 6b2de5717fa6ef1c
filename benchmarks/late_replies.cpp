// What does a call that timed out leave behind, when its reply comes later, and when nobody is there?
// SPDX-License-Identifier: Apache-2.0
#include <malloc.h>

#include "EchoService.hpp"
#include "Question.hpp"

namespace bench {
namespace {

/// A round is 20,000 calls with a live replier and 20,000 without any: 25 rounds make the million.
constexpr int CALLS = 20000;

double heap_octets() {
    const struct mallinfo2 heap = mallinfo2();
    return static_cast<double>(heap.uordblks + heap.hblkhd);
}

void give_up(norvane::Requester<Payload, Payload>& requester, norvane::WhenNobodyIsThere when_nobody) {
    try {
        requester.call(make_payload(1), DDS_DURATION_ZERO, when_nobody);
    } catch (const norvane::TimeoutException&) {
        return;
    }
    throw std::runtime_error("a call without time got a reply");
}

/// Values: octets of heap kept per call, with a replier that answers each of them too late, and with none.
class LateReplies : public Probe {
public:
    Values measure() override {
        const double before = heap_octets();
        for (int done = 0; done < CALLS; done += BATCH) {
            for (int call = 0; call < BATCH; ++call) {
                give_up(_service.requester(), norvane::WhenNobodyIsThere::WAIT);
            }
            const auto requests = _service.replier().take_requests();
            if (requests.length() != BATCH) {
                throw std::runtime_error("a request was lost");
            }
            for (const auto& request : requests) {
                _service.replier().send_reply(request.data(), request.identity());
            }
        }
        const double between = heap_octets();
        for (int call = 0; call < CALLS; ++call) {
            give_up(_lonely, norvane::WhenNobodyIsThere::FAIL);
        }
        if (_service.requester().stats().queued != 0) {
            throw std::runtime_error("a late reply was kept");
        }
        return {(between - before) / CALLS, (heap_octets() - between) / CALLS};
    }

private:
    static constexpr int BATCH = 100;

    Service<Payload> _service{"Late"};
    Domain _domain;
    norvane::Requester<Payload, Payload> _lonely{norvane::RequesterParams(_domain.participant()).service_name("Nobody")};
};

const Question question("12_late_replies", {{Processors::TWO, Spin::OFF, [] { return std::make_unique<LateReplies>(); }}},
                        {{"octets of heap kept per timed-out call, replies come late", Unit::COUNT, {0, 0}, NO_SOURCE, 0.1},
                         {"octets of heap kept per timed-out call, nobody is there", Unit::COUNT, {0, 1}, NO_SOURCE, 0.1}});

}  // namespace
}  // namespace bench
