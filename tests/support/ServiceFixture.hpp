// SPDX-License-Identifier: Apache-2.0
// Requesters and repliers of texts, on every engine.
#ifndef NORVANE_TESTS_SUPPORT_SERVICEFIXTURE_HPP
#define NORVANE_TESTS_SUPPORT_SERVICEFIXTURE_HPP

#include <chrono>
#include <string>
#include <vector>

#include "norvane/norvane.hpp"
#include "support/EngineFixture.hpp"
#include "support/Eventually.hpp"

namespace norvane::test {

typedef Requester<std::string, std::string> TextRequester;
typedef Replier<std::string, std::string> TextReplier;
typedef LoanedSamples<std::string> Texts;

constexpr std::chrono::seconds PATIENCE(30);

inline std::vector<std::string> strings_of(const Texts& loan) {
    std::vector<std::string> copies;
    for (const auto& each : loan) {
        copies.push_back(each);
    }
    return copies;
}

/// Answers what is there with the same text and a mark.
inline int answer_all(TextReplier& replier, const std::string& mark) {
    const Texts requests = replier.take_requests();
    for (const auto& request : requests) {
        replier.send_reply(request.c_str() + mark, request.identity());
    }
    return requests.length();
}

class ServiceFixture : public EngineFixture {
protected:
    RequesterParams requester_params(DDSDomainParticipant* participant = nullptr, const std::string& service = "S") {
        return RequesterParams(participant != nullptr ? participant : &_participant).service_name(service);
    }
    ReplierParams replier_params(DDSDomainParticipant* participant = nullptr, const std::string& service = "S") {
        return ReplierParams(participant != nullptr ? participant : &_participant).service_name(service);
    }
    /// For a requester whose requests wait where they are written: an engine that keeps samples on the way to the reader keeps one.
    static DDS_DataWriterQos one_on_the_way() {
        DDS_DataWriterQos qos;
        qos.reliability = {DDS_RELIABLE_RELIABILITY_QOS, {10, 0}};
        qos.history.kind = DDS_KEEP_ALL_HISTORY_QOS;
        qos.resource_limits = {1, 0};
        return qos;
    }
    /// Waits until the requester knows so many repliers, both their ends.
    static void await_repliers(TextRequester& requester, int count) {
        await_peers(*requester.get_request_datawriter(), *requester.get_reply_datareader(), count);
    }
    /// Waits until the replier knows so many requesters, both their ends.
    static void await_requesters(TextReplier& replier, int count) {
        await_peers(*replier.get_reply_datawriter(), *replier.get_request_datareader(), count);
    }
    static void await_peers(DDSDataWriter& writer, DDSDataReader& reader, int count) {
        EXPECT_TRUE(eventually([&] {
            DDS_PublicationMatchedStatus readers;
            DDS_SubscriptionMatchedStatus writers;
            EXPECT_EQ(DDS_RETCODE_OK, writer.get_publication_matched_status(readers));
            EXPECT_EQ(DDS_RETCODE_OK, reader.get_subscription_matched_status(writers));
            return readers.current_count == count && writers.current_count == count;
        })) << count;
    }
    /// Deletes what an application deletes at its end. @return whether nothing was left that is in use.
    bool only_topics_are_left(const std::string& request_topic = "SRequest", const std::string& reply_topic = "SReply") {
        for (const std::string& name : {request_topic, reply_topic}) {
            DDSTopic* topic = DDSTopic::narrow(_participant.lookup_topicdescription(name.c_str()));
            if (topic != nullptr && _participant.delete_topic(topic) != DDS_RETCODE_OK) {
                return false;
            }
        }
        return true;
    }
};

}  // namespace norvane::test

#endif
