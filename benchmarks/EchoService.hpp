// SPDX-License-Identifier: Apache-2.0
// What is measured: requesters and a replier of one service in one process, and a thread that answers each request with its own
// content. Thread rule: made, used and destroyed by one thread, but for the requesters themselves, which any thread may use.
#ifndef BENCH_ECHOSERVICE_HPP
#define BENCH_ECHOSERVICE_HPP

#include <chrono>
#include <memory>
#include <norvane/norvane.hpp>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Payload.hpp"
#include "Stopwatch.hpp"

namespace bench {

/// A participant that takes what it made along when it goes.
class Domain {
public:
    Domain()
        : _participant(DDSDomainParticipantFactory::get_instance()->create_participant(0, DDS_PARTICIPANT_QOS_DEFAULT, nullptr,
                                                                                       DDS_STATUS_MASK_NONE)) {
        if (_participant == nullptr) {
            throw std::runtime_error("no participant");
        }
    }
    Domain(const Domain&) = delete;
    Domain& operator=(const Domain&) = delete;
    ~Domain() {
        _participant->delete_contained_entities();
        DDSDomainParticipantFactory::get_instance()->delete_participant(_participant);
    }

    DDSDomainParticipant* participant() const { return _participant; }

private:
    DDSDomainParticipant* _participant;
};

/// The two ends of a service, without a thread: whoever owns it plays both.
template <class Content>
class Service {
public:
    typedef norvane::Requester<Content, Content> Requester;
    typedef norvane::Replier<Content, Content> Replier;

    /// Several requesters share one participant, as in an application; the replier has its own.
    explicit Service(const std::string& name, int requester_count = 1)
        : _replier(std::make_unique<Replier>(norvane::ReplierParams(_replier_domain.participant()).service_name(name))) {
        for (int made = 0; made < requester_count; ++made) {
            _requesters.push_back(
                std::make_unique<Requester>(norvane::RequesterParams(_requester_domain.participant()).service_name(name)));
        }
    }

    Requester& requester(std::size_t index = 0) { return *_requesters[index]; }
    Replier& replier() { return *_replier; }

private:
    Domain _replier_domain;
    Domain _requester_domain;
    std::unique_ptr<Replier> _replier;
    std::vector<std::unique_ptr<Requester>> _requesters;
};

/// Sends, blocks until the reply to that very request is there, takes it and checks it.
template <class Content>
void call(norvane::Requester<Content, Content>& requester, const Content& request) {
    const DDS_SampleIdentity_t id = requester.send_request(request);
    if (!requester.wait_for_replies(std::chrono::seconds(10), id)) {
        throw std::runtime_error("no reply within 10 seconds");
    }
    const auto replies = requester.take_replies(id);
    if (replies.length() != 1 || replies[0].data().number != request.number) {
        throw std::runtime_error("wrong reply");
    }
}

/// A service with a thread that answers.
template <class Content>
class EchoService : public Service<Content> {
public:
    /// @param handling  how long the handler of a request computes.
    explicit EchoService(const std::string& name, int requester_count = 1, std::chrono::nanoseconds handling = {})
        : Service<Content>(name, requester_count), _handling(handling), _echo([this] { answer(); }) {}
    EchoService(const EchoService&) = delete;
    EchoService& operator=(const EchoService&) = delete;
    ~EchoService() {
        auto last = std::make_unique<Content>();
        last->number = STOP;
        this->requester().send_request(*last);
        _echo.join();
    }

    pthread_t echo_thread() { return _echo.native_handle(); }

private:
    void answer() {
        while (true) {
            this->replier().wait_for_requests(DDS_DURATION_INFINITE);
            const auto requests = this->replier().take_requests();
            for (const auto& request : requests) {
                if (request.data().number == STOP) {
                    return;
                }
                if (_handling.count() > 0) {
                    const auto done = Clock::now() + _handling;
                    while (Clock::now() < done) {
                    }
                }
                this->replier().send_reply(request.data(), request.identity());
            }
        }
    }

    const std::chrono::nanoseconds _handling;
    std::thread _echo;
};

}  // namespace bench

#endif
