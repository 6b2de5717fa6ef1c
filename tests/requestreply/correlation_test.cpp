// SPDX-License-Identifier: Apache-2.0
// Requester and replier of the untyped core: whose replies reach whom, what is refused, and what a call leaves behind.
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <thread>

#include "support/DoubledDomain.hpp"
#include "support/Eventually.hpp"
#include "support/LogCapture.hpp"
#include "support/OpenEntities.hpp"
#include "support/Thrown.hpp"

namespace norvane {
namespace test {
namespace {

constexpr DDS_Duration_t LONG = {20, 0};
constexpr DDS_Duration_t SHORT = {0, 20000000};

// Keeps the filters that were asked for.
class NotingParticipant : public ForwardingParticipant {
public:
    using ForwardingParticipant::ForwardingParticipant;
    DDSDataWriter* create_datawriter(DDSTopic* topic, const DDS_DataWriterQos& qos, DDSDataWriterListener* listener,
                                     DDS_StatusMask mask) override {
        DDSDataWriter* writer = ForwardingParticipant::create_datawriter(topic, qos, listener, mask);
        dynamic_cast<ForwardingDataWriter&>(*writer).pretend_guid(pretended_guid);
        return writer;
    }
    DDSContentFilteredTopic* create_contentfilteredtopic(const char* name, DDSTopic* related_topic, const char* filter_expression,
                                                         const DDS_StringSeq& expression_parameters) override {
        filter_name = name;
        filter = filter_expression;
        parameter_count = expression_parameters.length();
        return ForwardingParticipant::create_contentfilteredtopic(name, related_topic, filter_expression, expression_parameters);
    }
    DDS_GUID_t pretended_guid = DDS_GUID_AUTO;
    std::string filter_name;
    std::string filter;
    DDS_Long parameter_count = -1;
};

const char* register_octets(DDSTypeSupport*, DDSDomainParticipant* participant) {
    const DDSOctetsTypeSupport& type = DDSOctetsTypeSupport::get_instance();
    return type.register_type(participant) == DDS_RETCODE_OK ? type.get_type_name() : nullptr;
}

class Correlation : public DoubledDomain<NotingParticipant> {
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
    // Topic, type and role.
    template <typename Entity>
    static std::string writer_of(Entity& entity) {
        DDSTopic* topic = entity.get_datawriter()->get_topic();
        DDS_DataWriterQos qos;
        EXPECT_EQ(DDS_RETCODE_OK, entity.get_datawriter()->get_qos(qos));
        return std::string(topic->get_name()) + " " + topic->get_type_name() + " " + qos.publication_name.role_name;
    }
    // No condition is left, no wait set taken, and none of the pooled ones holds a condition.
    void expect_idle(OpenRequester& requester) {
        EXPECT_EQ(0, requester.waitset_pool().buffers_in_use());
        std::vector<DDSWaitSet*> taken;
        for (int count = requester.waitset_pool().buffers_allocated(); count > 0; --count) {
            taken.push_back(requester.waitset_pool().get_ptr());
            DDSConditionSeq attached;
            EXPECT_EQ(DDS_RETCODE_OK, taken.back()->get_conditions(attached));
            EXPECT_EQ(0, attached.length());
        }
        for (DDSWaitSet* each : taken) {
            requester.waitset_pool().return_ptr(each);
        }
    }
};

const DDS_SequenceNumber_t REFUSED_NUMBERS[] = {DDS_AUTO_SEQUENCE_NUMBER, DDS::SEQUENCE_NUMBER_MAX, DDS::SEQUENCE_NUMBER_ZERO,
                                                DDS::SEQUENCE_NUMBER_UNKNOWN};

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
        EXPECT_EQ(each.topic + "_" + each.digits, _participant->filter_name);
        EXPECT_EQ(std::string("@related_sample_identity.writer_guid.value = &hex(") + each.digits + ")", _participant->filter);
        EXPECT_EQ(0, _participant->parameter_count);
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

TEST_F(Correlation, entities_use_the_topics_of_their_service_or_the_ones_named_and_leave_only_topics) {
    for (const bool by_service : {true, false}) {
        RequesterParams named = RequesterParams(_participant.get());
        by_service ? named.service_name("Calculator") : named.request_topic_name("Q").reply_topic_name("R");
        const std::string requests = by_service ? "CalculatorRequest" : "Q";
        const std::string replies = by_service ? "CalculatorReply" : "R";
        {
            // Requests are strings, replies octets; the first of the two makes the topics.
            std::unique_ptr<OpenReplier> replier;
            if (!by_service) {
                replier.reset(new OpenReplier(named, NULL, &register_string, &register_octets));
            }
            OpenRequester requester(named, &register_string, &register_octets);
            if (by_service) {
                replier.reset(new OpenReplier(named, NULL, &register_string, &register_octets));
            }
            EXPECT_EQ(requests + " DDS::String Requester", writer_of(requester));
            EXPECT_EQ(replies + " DDS::Octets Replier", writer_of(*replier));
            DDS_DataReaderQos reader_qos;
            ASSERT_EQ(DDS_RETCODE_OK, replier->get_datareader()->get_qos(reader_qos));
            EXPECT_STREQ("Replier", reader_qos.subscription_name.role_name);
            EXPECT_EQ(requests, replier->get_datareader()->get_topicdescription()->get_name());
            DDS_DataWriterQos qos;
            ASSERT_EQ(DDS_RETCODE_OK, requester.get_datawriter()->get_qos(qos));
            std::string filter_name = replies + "_";
            for (const DDS_Octet octet : qos.protocol.virtual_guid.value) {
                char digits[3];
                std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned int>(octet));
                filter_name += digits;
            }
            EXPECT_EQ(filter_name, requester.get_datareader()->get_topicdescription()->get_name());
        }
        EXPECT_EQ("", live());
        EXPECT_NE(nullptr, _real.lookup_topicdescription(requests.c_str()));
        EXPECT_EQ(nullptr, _real.lookup_topicdescription(_participant->filter_name.c_str()));
    }
}

TEST_F(Correlation, a_writer_that_does_not_tell_its_guid_makes_no_requester) {
    _participant->pretended_guid = DDS_GUID_UNKNOWN;
    LogCapture log;
    const Thrown thrown = thrown_by([&] { OpenRequester requester(params("S")); });
    EXPECT_EQ("RuntimeException", thrown.type);
    EXPECT_NE(std::string::npos, thrown.message.find(expanded(VOST_LOG_GET_FAILURE_s, "DataWriter virtual guid")))
        << thrown.message;
    EXPECT_EQ("", live());
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

TEST_F(Correlation, a_wait_is_ended_by_its_own_reply_only) {
    OpenRequester requester(params("S"));
    OpenReplier replier(params("S"));
    const DDS_SampleIdentity_t awaited = requester.send("awaited");
    const DDS_SampleIdentity_t other = requester.send("other");
    replier.requests(2);
    std::atomic<bool> ended{false};
    std::thread waiting([&] {
        EXPECT_TRUE(requester.wait_for_replies(DDS_DURATION_INFINITE, 1, awaited));
        ended = true;
    });
    // In its wait, or about to be: the reply to the other request must not matter in either case.
    EXPECT_TRUE(eventually([&] { return requester.waitset_pool().buffers_in_use() == 1; }));
    replier.reply(other, "for the other");
    EXPECT_TRUE(requester.wait_for_replies(LONG, 1, other));
    EXPECT_FALSE(ended);
    EXPECT_EQ("", texts(requester.replies(other, true, 0)));
    const std::vector<Received> got = requester.replies({DDS_GUID_AUTO, other.sequence_number}, true);
    ASSERT_EQ("for the other ", texts(got)) << "only the number is looked at";
    EXPECT_EQ(other, got[0].related_identity);
    replier.reply(awaited, "at last");
    waiting.join();
    expect_idle(requester);
}

TEST_F(Correlation, identities_that_name_no_request_are_refused_before_anything_is_done) {
    OpenRequester requester(params("S"));
    OpenReplier replier(params("S"));
    const DDS_SampleIdentity_t request = requester.send("x");
    const std::string no_request =
        "RequesterUntypedImpl::create_correlation_condition:" + expanded(DDS_LOG_BAD_PARAMETER_s, "sample identity");
    const std::string no_guid = "ReplierUntypedImpl::configure_params_for_reply:" +
                                expanded(DDS_LOG_BAD_PARAMETER_s, "related request identity (writer guid)");
    const std::string no_number = "ReplierUntypedImpl::configure_params_for_reply:" +
                                  expanded(DDS_LOG_BAD_PARAMETER_s, "related request identity (sequence number)");
    LogCapture log;
    for (const DDS_SequenceNumber_t& number : REFUSED_NUMBERS) {
        _script.fail_call(0);
        const DDS_SampleIdentity_t identity = {request.writer_guid, number};
        for (const Thrown& thrown : {thrown_by([&] { requester.wait_for_replies(LONG, 1, identity); }),
                                     thrown_by([&] { requester.replies(identity, true); })}) {
            EXPECT_EQ("BadParameterException", thrown.type);
            EXPECT_EQ(no_request, thrown.message);
        }
        EXPECT_EQ(no_number, thrown_by([&] { replier.reply(identity, "y"); }).message);
        EXPECT_EQ(0U, _script.calls().size());
        // Both halves must be equal.
        DDS_SampleIdentity_t close = identity;
        close.sequence_number.low ^= 1;
        EXPECT_EQ("", texts(requester.replies(close, true)));
        DDS_WriteParams_t params;
        EXPECT_EQ("", thrown_by([&] { OpenReplier::configure_params_for_reply(params, close); }).message);
    }
    for (const DDS_GUID_t& guid : {DDS_GUID_AUTO, DDS_GUID_UNKNOWN}) {
        DDS_WriteParams_t params;
        params.related_sample_identity = request;
        const Thrown thrown = thrown_by([&] {
            OpenReplier::configure_params_for_reply(params, {guid, DDS::SEQUENCE_NUMBER_ZERO});  // both halves are wrong
        });
        EXPECT_EQ("BadParameterException", thrown.type);
        EXPECT_EQ(no_guid, thrown.message);
        EXPECT_TRUE(params.related_sample_identity == request);
    }
    DDS_WriteParams_t params;
    params.identity = {{{5}}, {5, 5}};
    OpenReplier::configure_params_for_reply(params, request);
    EXPECT_TRUE(params.related_sample_identity == request);
    EXPECT_TRUE(params.identity == (DDS_SampleIdentity_t{{{5}}, {5, 5}}));
    expect_idle(requester);
}

TEST_F(Correlation, swapped_requesters_hold_each_others_requests_and_keep_their_pools) {
    OpenRequester one(params("One"));
    OpenRequester two(params("Two"));
    OpenReplier replier(params("One"));
    const DDS_SampleIdentity_t request = one.send("x");
    FastObjectPool<DDSWaitSet>* pool = &one.waitset_pool();
    details::swap(one, two);
    EXPECT_EQ(pool, &one.waitset_pool());
    replier.reply(replier.requests().at(0).identity, "y");
    EXPECT_TRUE(two.wait_for_replies(LONG, 1, request));
    EXPECT_EQ("y ", texts(two.replies(request, true)));
    EXPECT_EQ("", texts(one.replies(request, true)));
}

}  // namespace
}  // namespace test
}  // namespace norvane
