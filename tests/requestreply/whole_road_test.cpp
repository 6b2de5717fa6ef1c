// SPDX-License-Identifier: Apache-2.0
// What requesters and repliers share, on every engine: participants, topics and processes that come and go.
#include <unistd.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/LogCapture.hpp"
#include "support/ServiceFixture.hpp"
#include "support/Thrown.hpp"

namespace norvane::test {
namespace {

typedef std::vector<std::string> Strings;

class WholeRoad : public ServiceFixture {};
INSTANTIATE_TEST_SUITE_P(Engine, WholeRoad, ::testing::ValuesIn(engine_names()), engine_of_test);

// P participant, R requester, S service, D dispatcher, L loan of a reply, W plain reader with a condition on a wait set.
TEST_P(WholeRoad, a_participant_that_goes_too_early_stays_until_the_last_requester_and_service_have_gone) {
    for (const std::string order : {"PRSDLW", "PSRLDW", "RPSWLD", "SPDLRW", "LDPWSR", "WLRSPD", "DPSLWR"}) {
        const LogCapture log;
        const auto probe = std::make_shared<const DDS_TypeOperations>(*DDSStringTypeSupport::get_instance().get_type_operations());
        ParticipantParams params = ParticipantParams().domain_id(_domain).engine(GetParam());
        params.property("norvane.fastdds.interfaces", "127.0.0.1").property("norvane.fastdds.reach", "process");
        auto participant = std::make_unique<Participant>(params);
        DDSDomainParticipant& joined = *participant->get();
        ASSERT_EQ(DDS_RETCODE_OK, joined.register_type("Probe", probe));
        auto dispatcher = std::make_unique<Dispatcher>();
        auto service = std::make_unique<Service<std::string, std::string>>(replier_params(&joined),
                                                                           [](const std::string& text) { return "to " + text; });
        auto requester = std::make_unique<TextRequester>(requester_params(&joined), *dispatcher);
        ASSERT_TRUE(requester->wait_for_service(PATIENCE));
        const DDS_SampleIdentity_t id = requester->send_request("x");
        ASSERT_TRUE(requester->wait_for_replies(PATIENCE, id));
        Texts loan = requester->read_replies(id);
        DDSTopic* const plain = joined.create_topic("T", "Probe", DDS_TOPIC_QOS_DEFAULT, nullptr, 0);
        DDSDataReader* const reader = joined.create_datareader(plain, DDS_DATAREADER_QOS_DEFAULT, nullptr, 0);
        DDSReadCondition* const condition =
            reader->create_readcondition(DDS_ANY_SAMPLE_STATE, DDS_ANY_VIEW_STATE, DDS_ANY_INSTANCE_STATE);
        auto waitset = std::make_unique<DDSWaitSet>();
        ASSERT_EQ(DDS_RETCODE_OK, waitset->attach_condition(condition));

        EXPECT_EQ(DDS_RETCODE_PRECONDITION_NOT_MET, joined.delete_contained_entities());
        EXPECT_EQ(DDS_RETCODE_PRECONDITION_NOT_MET, factory().delete_participant(&joined));
        EXPECT_EQ(2, log.count("the writer of \"SReply\" of a Replier"));
        const std::map<char, std::function<void()>> steps = {
            {'P', [&] { participant.reset(); }}, {'R', [&] { requester.reset(); }},  {'S', [&] { service.reset(); }},
            {'D', [&] { dispatcher.reset(); }},  {'L', [&] { loan.return_loan(); }}, {'W', [&] { waitset.reset(); }},
        };
        bool goes_early = false;
        for (const char part : order) {
            goes_early = goes_early || (part == 'P' && (requester != nullptr || service != nullptr));
            steps.at(part)();
            if (requester != nullptr && service != nullptr) {
                EXPECT_EQ("to y", requester->call("y", PATIENCE)) << order << " after " << part;
            }
            EXPECT_TRUE(loan.empty() || strings_of(loan) == Strings{"to x"});
            EXPECT_EQ(participant == nullptr && requester == nullptr && service == nullptr, probe.use_count() == 1)
                << order << " after " << part;
        }
        EXPECT_EQ(goes_early ? 1 : 0, log.count("The participant stays until they are gone")) << order;
    }
}

TEST_P(WholeRoad, a_forked_child_cannot_use_what_its_parent_made_but_may_destroy_it) {
    auto participant = std::make_unique<Participant>(
        ParticipantParams().domain_id(_domain).engine(GetParam()).property("norvane.fastdds.interfaces", "127.0.0.1"));
    auto dispatcher = std::make_unique<Dispatcher>();
    auto service = std::make_unique<Service<std::string, std::string>>(replier_params(participant->get()),
                                                                       [](const std::string& text) { return "to " + text; });
    auto requester = std::make_unique<TextRequester>(requester_params(participant->get()), *dispatcher);
    TextRequester lonely(requester_params(participant->get(), "empty"), *dispatcher);
    auto drained = std::make_unique<Service<std::string, std::string>>(replier_params(participant->get(), "drained"),
                                                                       [](const std::string& text) { return text; });
    ASSERT_TRUE(requester->call("x", PATIENCE) == "to x" && drained->drain(PATIENCE));
    for (const bool participant_first : {false, true}) {
        EXPECT_EXIT(
            {
                ::alarm(20);  // for a child that hangs
                participant_first ? participant.reset() : void();
                const std::string call = thrown_by([&] { requester->call("x", PATIENCE); }).type;
                const std::string kept = thrown_by([&] { lonely.call_async("x", PATIENCE); }).type;
                const std::string stop = thrown_by([&] { service->stop(PATIENCE); }).type;
                const std::string made = participant_first
                                             ? "RuntimeException"
                                             : thrown_by([&] { TextRequester(requester_params(participant->get())); }).type;
                requester.reset();
                service.reset();
                drained.reset();
                dispatcher.reset();
                participant.reset();
                ::_exit(call == "IllegalOperationException" && kept == call && stop == call && made == "RuntimeException" ? 0 : 1);
            },
            ::testing::ExitedWithCode(0), "the process was forked after the writer was made");
    }
    EXPECT_EQ("to y", requester->call("y", PATIENCE)) << "the parent";
}

TEST_P(WholeRoad, a_topic_goes_with_its_last_user_unless_the_application_has_seen_it) {
    const LogCapture log;
    const auto has_topic = [&](const char* name) { return _participant.lookup_topicdescription(name) != nullptr; };
    const auto text_requester = [&] { return thrown_by([&] { TextRequester requester(requester_params()); }).type; };
    {
        const Requester<std::string, DDS_Octets> wrong(requester_params());
        const Replier<std::string, DDS_Octets> other(replier_params());
        EXPECT_EQ("PreconditionNotMetException", text_requester()) << "the topic has another type";
    }
    EXPECT_EQ("", text_requester()) << "the other type is gone with its users";
    EXPECT_FALSE(has_topic("SRequest") || has_topic("SReply"));

    DDSTopic* const made = _participant.create_topic("SRequest", "DDS::String", DDS_TOPIC_QOS_DEFAULT, nullptr, 0);
    DDSTopicDescription* found = nullptr;
    {
        const TextReplier replier(replier_params());
        found = _participant.lookup_topicdescription("SReply");
    }
    EXPECT_STREQ("SRequest", made->get_name());
    EXPECT_STREQ("SReply", found->get_name());
    EXPECT_TRUE(only_topics_are_left() && !has_topic("SRequest") && !has_topic("SReply"));
}

}  // namespace
}  // namespace norvane::test
