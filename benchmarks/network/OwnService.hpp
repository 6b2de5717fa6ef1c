// SPDX-License-Identifier: Apache-2.0
// What is measured: requesters in one process, and a replier in another that answers each request with its own content.
// Thread rule: made, used and destroyed by one thread.
#ifndef BENCH_NETWORK_OWNSERVICE_HPP
#define BENCH_NETWORK_OWNSERVICE_HPP

#include <atomic>
#include <chrono>
#include <memory>
#include <norvane/norvane.hpp>
#include <stdexcept>
#include <thread>
#include <vector>

#include "Link.hpp"
#include "Memory.hpp"
#include "Parcel.hpp"
#include "benchmarks/EchoService.hpp"
#include "benchmarks/Question.hpp"

namespace bench {

inline norvane::ParticipantParams participant_params(const Link& link) {
    norvane::ParticipantParams params;
    params.domain_id(link.domain()).engine("fastdds");
    if (link.transport == Transport::UDP) {
        params.property("norvane.fastdds.transports", "udp").property("norvane.fastdds.interfaces", "127.0.0.1");
    } else {
        params.property("norvane.fastdds.transports", "shm");
    }
    return params;
}

/// Answers on a thread of its own. A round says how many octets the process has grown since then.
class OwnReplier : public Probe {
public:
    explicit OwnReplier(const Link& link)
        : _participant(participant_params(link)),
          _replier(norvane::ReplierParams(_participant).service_name("Echo")),
          _memory_before(resident_octets()),
          _answering([this] { answer(); }) {}
    ~OwnReplier() override {
        _ended = true;
        _answering.join();
    }

    Values measure() override { return {resident_octets() - _memory_before}; }

private:
    void answer() {
        while (!_ended) {
            if (!_replier.wait_for_requests(std::chrono::milliseconds(100))) {
                continue;
            }
            for (const auto& request : _replier.take_requests()) {
                _replier.send_reply(request.data(), request.identity());
            }
        }
    }

    norvane::Participant _participant;
    norvane::Replier<Parcel, Parcel> _replier;
    const double _memory_before;
    std::atomic<bool> _ended{false};
    std::thread _answering;  // last: it uses the others
};

/// Requesters of one service in one participant, each of them ready to call.
class OwnRequesters {
public:
    explicit OwnRequesters(const Link& link, int count = 1) : _participant(participant_params(link)) {
        for (int made = 0; made < count; ++made) {
            _requesters.push_back(
                std::make_unique<norvane::Requester<Parcel, Parcel>>(norvane::RequesterParams(_participant).service_name("Echo")));
        }
        for (const auto& requester : _requesters) {
            requester->wait_for_service(std::chrono::seconds(15));
        }
    }

    /// Sends, and blocks until the answer to that very request is there.
    void call(const Parcel& request, std::size_t requester = 0) { bench::call(*_requesters[requester], request); }

    void send(const Parcel& request) { _requesters[0]->send_request(request); }
    /// @return how many replies came, at least one; each is checked.
    std::uint64_t collect(std::uint64_t expected) {
        if (!_requesters[0]->wait_for_replies(std::chrono::seconds(10))) {
            throw std::runtime_error("no reply within 10 seconds");
        }
        const auto replies = _requesters[0]->take_replies();
        for (const auto& reply : replies) {
            if (reply.data().number != expected++) {
                throw std::runtime_error("wrong reply");
            }
        }
        return static_cast<std::uint64_t>(replies.length());
    }

private:
    norvane::Participant _participant;
    std::vector<std::unique_ptr<norvane::Requester<Parcel, Parcel>>> _requesters;
};

}  // namespace bench

#endif
