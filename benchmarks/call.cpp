// What does `call` cost over send, wait and take by hand, and a described struct over a plain one of the same octets?
// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <boost/describe.hpp>

#include "EchoService.hpp"
#include "Question.hpp"
#include "Stopwatch.hpp"

namespace bench {

/// The 64 octets of Payload, described.
struct DescribedPayload {
    std::uint64_t number;
    std::array<std::uint64_t, 7> rest;
};
BOOST_DESCRIBE_STRUCT(DescribedPayload, (), (number, rest))
static_assert(sizeof(DescribedPayload) == sizeof(Payload), "the same octets");

namespace {

/// Two services side by side: the floor by hand over the plain struct, ours by `call` over the described one.
template <template <class> class Kind>
class Calls : public Probe {
public:
    Values measure() override {
        const double ours = ns_per_call(ROUND, [this] {
            DescribedPayload request{};
            request.number = ++_number;
            if (_described.requester().call(request).number != request.number) {
                throw std::runtime_error("wrong reply");
            }
        });
        const double floor = ns_per_call(ROUND, [this] { call(_plain.requester(), make_payload(++_number)); });
        return {ours, floor};
    }

protected:
    Kind<DescribedPayload> _described{"Described"};
    Kind<Payload> _plain{"Plain"};

private:
    std::uint64_t _number = 0;
};

/// Answers inside the write: nobody sleeps, and only the work is left.
template <class Content>
class Answerer : public DDSDataReaderListener {
public:
    explicit Answerer(norvane::Replier<Content, Content>& replier) : _replier(replier) {
        replier.get_request_datareader()->set_listener(this, DDS_DATA_AVAILABLE_STATUS);
    }
    ~Answerer() override { _replier.get_request_datareader()->set_listener(nullptr, 0); }
    void on_data_available(DDSDataReader*) override {
        for (const auto& request : _replier.take_requests()) {
            _replier.send_reply(request.data(), request.identity());
        }
    }

private:
    norvane::Replier<Content, Content>& _replier;
};

class CallsOnOneThread : public Calls<Service> {
    Answerer<DescribedPayload> _answers_described{_described.replier()};
    Answerer<Payload> _answers_plain{_plain.replier()};
};

template <class Kind>
std::unique_ptr<Probe> make() {
    return std::make_unique<Kind>();
}

const Question question("10_call",
                        {{Processors::ONE, Spin::DEFAULT, make<Calls<EchoService>>},
                         {Processors::TWO, Spin::OFF, make<Calls<EchoService>>},
                         {Processors::TWO, Spin::DEFAULT, make<CallsOnOneThread>}},
                        {{"call over a described struct, over send, wait, take by hand; one core", Unit::TIME, {0, 0}, {0, 1}, 1.1},
                         {"the same on two cores, spin off", Unit::TIME, {1, 0}, {1, 1}, 1.1},
                         {"the same answered inside the write, nobody sleeps", Unit::TIME, {2, 0}, {2, 1}, 1.1}});

}  // namespace
}  // namespace bench
