// SPDX-License-Identifier: Apache-2.0
// How to answer: later, from another thread; and how to keep requests from piling up.
#include <chrono>
#include <cstdio>
#include <exception>
#include <future>
#include <optional>
#include <string>
#include <utility>

#include "norvane/norvane.hpp"

typedef norvane::Requester<std::string, std::string> TextRequester;
typedef norvane::Replier<std::string, std::string> TextReplier;

//! [later]
std::future<void> answer_later(TextReplier& replier) {
    std::optional<norvane::Sample<std::string>> request = replier.receive_request();  // a copy: no loan is kept
    if (!request) {
        throw norvane::TimeoutException("no request came");
    }
    return std::async(std::launch::async, [&replier, request = std::move(*request)] {
        replier.send_reply(request.data() + ", done", request.identity());  // the identity is all that an answer needs
    });
}
//! [later]

//! [limit]
norvane::ReplierParams short_queue(DDSDomainParticipant* participant) {
    return norvane::ReplierParams(participant).service_name("Office").max_queued_requests(2);
}

// Returns whether the work was accepted in time.
bool offer(TextRequester& requester, const std::string& work) {
    try {
        requester.call(work, std::chrono::milliseconds(50));
        return true;
    } catch (const norvane::CallTimeoutException& error) {
        // NO_ROOM: it was not sent. SILENT: it was, and may still be done, since "fastdds" sends without waiting for room.
        const bool was_sent = error.reason() == norvane::TimeoutReason::SILENT;
        std::printf("%s (%s)\n", error.what(), was_sent ? "sent" : "not sent");
        return false;
    }
}
//! [limit]

int main() {
    try {
        norvane::Participant participant;
        TextReplier replier(short_queue(participant));
        TextRequester requester(norvane::RequesterParams(participant).service_name("Office"));
        requester.wait_for_service();

        const DDS_SampleIdentity_t id = requester.send_request("letter");
        std::future<void> answered = answer_later(replier);
        const bool replied = requester.wait_for_replies(norvane::DEFAULT_TIMEOUT, id);
        answered.get();
        const auto reply = requester.take_reply(id);
        std::printf("%s\n", replied ? reply->data().c_str() : "no reply");

        requester.send_request("first");
        requester.send_request("second");
        return replied && reply->data() == "letter, done" && !offer(requester, "third") ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "how_to_answering: %s\n", error.what());
        return 1;
    }
}
