// SPDX-License-Identifier: Apache-2.0
// Requester and replier of the untyped core: whose replies reach whom, what is refused, and what a call leaves behind.
#include <gtest/gtest.h>

#include "support/DoubledDomain.hpp"
#include "support/LogCapture.hpp"
#include "support/OpenEntities.hpp"
#include "support/Thrown.hpp"

namespace norvane::test {
namespace {

constexpr DDS_Duration_t LONG = {20, 0};

class Correlation : public DoubledDomain<> {
protected:
    DDSTopic* make_topic(const std::string& name) {
        register_string(NULL, _participant.get());
        return _participant->create_topic(name.c_str(), "DDS::String", DDS_TOPIC_QOS_DEFAULT, NULL, 0);
    }
    static std::string texts(const std::vector<Received>& received) {
        std::string all;
        for (const Received& each : received) {
            all += each.text + " ";
        }
        return all;
    }
};

TEST_F(Correlation, filter_is_named_and_written_digit_by_digit) {
    const DDS_GUID_t example = {{0x01, 0x0f, 0xa3, 0, 0x7c, 0x2e, 0x10, 0xff, 0, 0, 0, 0x01, 0x80, 0, 0, 0xc2}};
    struct Case {
        std::string topic;
        DDS_GUID_t guid;
        const char* digits;
    };
    const Case cases[] = {{"CalculatorReply", example, "010fa3007c2e10ff00000001800000c2"},
                          {"CalculatorReply", DDS_GUID_UNKNOWN, "00000000000000000000000000000000"},
                          {std::string(190, 't'), DDS_GUID_AUTO, "ffffffffffffffffffffffffffffffff"}};
    details::CorrelationCFTBuilder builder;
    for (const Case& each : cases) {
        DDSTopic* topic = make_topic(each.topic);
        DDSContentFilteredTopic* made = builder.create_correlation_cft(_participant.get(), topic, each.guid);
        ASSERT_NE(nullptr, made);
        EXPECT_EQ(topic, made->get_related_topic());
        EXPECT_EQ(each.topic + "_" + each.digits, made->get_name());
        EXPECT_EQ(std::string("@related_sample_identity.writer_guid.value = &hex(") + each.digits + ")",
                  made->get_filter_expression());
    }
    DDSTopic* topic = make_topic("CalculatorReply");
    LogCapture log;
    const auto refusal = [&](DDSDomainParticipant* participant, DDSTopic* of) {
        return thrown_by([&] { builder.create_correlation_cft(participant, of, example); });
    };
    EXPECT_EQ("participant != NULL", refusal(NULL, NULL).message);
    EXPECT_EQ("topic != NULL", refusal(_participant.get(), NULL).message);
    // The name is taken: by the first of the cases above.
    EXPECT_EQ("CorrelationCFTBuilder::create_correlation_cft:" +
                  expanded(VOST_LOG_CREATE_s, "content-filtered topic for topic CalculatorReply"),
              refusal(_participant.get(), topic).message);
}

TEST_F(Correlation, a_filter_of_the_applications_is_read_by_the_replier_and_stays_and_is_refused_elsewhere) {
    DDSTopic* base = make_topic("Base");
    _participant->create_contentfilteredtopic("FilteredRequest", base, "value = 'yes'", DDS_StringSeq());
    _participant->create_contentfilteredtopic("OtherReply", base, "value = 'yes'", DDS_StringSeq());
    {
        OpenReplier replier(params("Filtered"));
        OpenRequester requester(RequesterParams(_participant.get()).request_topic_name("Base").reply_topic_name("FilteredReply"));
        requester.send("no");
        requester.send("yes");
        EXPECT_EQ("yes ", texts(replier.requests()));
    }
    EXPECT_EQ("2 filters", live());
    LogCapture log;
    for (const Thrown& each :
         {thrown_by([&] { OpenRequester requester(params("Filtered")); }),
          thrown_by([&] { OpenRequester requester(params("Other")); }), thrown_by([&] { OpenReplier replier(params("Other")); })}) {
        EXPECT_EQ("PreconditionNotMetException", each.type);
        EXPECT_NE(std::string::npos, each.message.find("a content-filtered topic with the name already exists (")) << each.message;
    }
    EXPECT_EQ("2 filters", live());
}

TEST_F(Correlation, identities_that_name_no_request_are_refused_and_both_halves_of_a_number_count) {
    OpenRequester requester(params("S"));
    OpenReplier replier(params("S"));
    const DDS_SampleIdentity_t request = requester.send("x");
    const LogCapture quiet;
    for (const DDS_SequenceNumber_t& number :
         {DDS_AUTO_SEQUENCE_NUMBER, DDS::SEQUENCE_NUMBER_MAX, DDS::SEQUENCE_NUMBER_ZERO, DDS::SEQUENCE_NUMBER_UNKNOWN}) {
        DDS_SampleIdentity_t identity = {request.writer_guid, number};
        _script.fail_call(0);
        for (const Thrown& thrown :
             {thrown_by([&] { requester.wait_for_replies(LONG, 1, identity); }),
              thrown_by([&] { requester.replies(identity, true); }), thrown_by([&] { replier.reply(identity, "y"); })}) {
            EXPECT_EQ("BadParameterException", thrown.type);
        }
        EXPECT_EQ(0U, _script.calls().size()) << "refused before anything is done";
        identity.sequence_number.low ^= 1;
        EXPECT_TRUE(requester.replies(identity, true).empty());
        EXPECT_EQ("", thrown_by([&] { replier.reply(identity, "y"); }).type);
    }
    EXPECT_EQ(0, requester.waitset_pool().buffers_in_use());
}

}  // namespace
}  // namespace norvane::test
