// SPDX-License-Identifier: Apache-2.0
// Answers to those who cannot hear them yet: held for requesters of ours, sent at once to everybody else.
#include <gtest/gtest.h>

#include <algorithm>
#include <future>
#include <string>
#include <vector>

#include "support/TextFixture.hpp"

namespace norvane::test {
namespace {

class FullPairs : public TextFixture {
protected:
    FullPairs() : _elsewhere(*join()) {}

    /// The half of a requester that asks. @param role  null: none.
    DDSDataWriter& asker(bool awaits_replies = true, const char* role = nullptr) {
        DDS_DataWriterQos qos = writer_qos();
        qos.publication_name.role_name = role != nullptr ? DDS_String_dup(role) : nullptr;
        if (awaits_replies) {
            DDSPropertyQosPolicyHelper::add_property(qos.property, AWAITS_REPLIES_PROPERTY, "true", DDS_BOOLEAN_TRUE);
        }
        DDSDataWriter* made = _elsewhere.create_datawriter(topic("Ask", &_elsewhere), qos, nullptr, 0);
        EXPECT_NE(nullptr, made);
        return *made;
    }
    /// The half that hears the answers to one writer. @param max_samples  with a bound it has a reader of Fast DDS for itself;
    /// without, a share.
    DDSDataReader& hearer(DDSDataWriter& asking, DDS_Long max_samples) {
        std::string filter = "@related_sample_identity.writer_guid.value = &hex(";
        for (const DDS_Octet octet : asking.get_instance_handle().value) {
            filter += {"0123456789abcdef"[octet >> 4], "0123456789abcdef"[octet & 15]};
        }
        const std::string name = "F" + std::to_string(_filters++);
        DDSContentFilteredTopic* filtered = _elsewhere.create_contentfilteredtopic(name.c_str(), topic("Answer", &_elsewhere),
                                                                                   (filter + ")").c_str(), DDS_StringSeq());
        DDSDataReader* made = _elsewhere.create_datareader(filtered, reader_qos(max_samples), nullptr, 0);
        EXPECT_NE(nullptr, made);
        return *made;
    }
    void wait_for_their_reader(const char* role, DDS_Long max_samples);
    static DDS_SampleIdentity_t asked_by(DDSDataWriter& asking, DDS_UnsignedLong number) {
        DDS_SampleIdentity_t identity = related_to(number);
        std::memcpy(identity.writer_guid.value, asking.get_instance_handle().value, sizeof identity.writer_guid.value);
        return identity;
    }
    static DDS_SampleIdentity_t answer(DDSDataWriter& answering, const char* text, const DDS_SampleIdentity_t& related) {
        DDS_WriteParams_t params;
        params.related_sample_identity = related;
        EXPECT_EQ(OK, write(answering, text, params));
        return params.identity;
    }
    static std::string counts(DDSDataWriter& sender) {
        DDS_DataWriterCounts counts;
        EXPECT_EQ(OK, sender.get_counts(counts));
        return std::to_string(counts.written) + " " + std::to_string(counts.unaddressed);
    }
    /// A writer of answers that knows of the one who asks.
    DDSDataWriter& answerer(DDSDataWriter& asking, const DDS_DataWriterQos& qos = writer_qos()) {
        meet(asking, reader(reader_qos(), "Ask"));
        return writer(qos, "Answer");
    }

    DDSDomainParticipant& _elsewhere;
    int _filters = 0;
};
INSTANTIATE_TEST_SUITE_P(Engine, FullPairs, ::testing::Values("fastdds"), engine_of_test);

void FullPairs::wait_for_their_reader(const char* role, DDS_Long max_samples) {
    DDSDataWriter& asking = asker(true, role);
    DDSDataWriter& other = asker();
    DDSDataWriter& answering = answerer(asking);
    meet(answering, hearer(other, max_samples));
    DDSDataReader& monitor = reader(reader_qos(), "Answer");
    meet(answering, monitor);
    const DDS_GUID_t own = asked_by(answering, 0).writer_guid;
    for (DDS_UnsignedLong number = 1; number <= 3; ++number) {
        EXPECT_EQ(DDS_UNKNOWN_SAMPLE_IDENTITY, answer(answering, std::to_string(number).c_str(), asked_by(asking, number)))
            << "its number is not known yet";
        // Nobody else is kept waiting by it.
        EXPECT_EQ((DDS_SampleIdentity_t{own, {0, number}}), answer(answering, "other", asked_by(other, number)));
    }
    EXPECT_EQ(DDS_RETCODE_TIMEOUT, answering.wait_for_acknowledgments(SHORT_TIME)) << "some have not even been sent";
    EXPECT_EQ("6 0", counts(answering));
    EXPECT_EQ("other other other", take(monitor));
    DDSDataReader& ear = hearer(asking, max_samples);
    DDSReadCondition& all = condition(ear);
    EXPECT_TRUE(eventually([&] { return Loan(ear, all, false).count == 3; }));
    {
        const Loan loan(ear, all);
        EXPECT_EQ("1 2 3", loan.texts());
        EXPECT_EQ((DDS_SampleIdentity_t{own, {0, 4}}), identity_of(loan.infos[0])) << "numbered when it is sent";
        EXPECT_EQ(asked_by(asking, 1), related_identity_of(loan.infos[0]));
    }
    EXPECT_EQ(OK, answering.wait_for_acknowledgments(LONG_TIME));
    EXPECT_NE(DDS_UNKNOWN_SAMPLE_IDENTITY, answer(answering, "4", asked_by(asking, 4)));
    EXPECT_TRUE(eventually([&] { return take(ear) == "4"; }));
}

TEST_P(FullPairs, answers_wait_for_the_reader_of_their_requester_and_keep_their_order) {
    wait_for_their_reader("Requester", DDS_LENGTH_UNLIMITED);
    wait_for_their_reader("Replier", DDS_LENGTH_UNLIMITED);
    wait_for_their_reader("one of their own", 100);
}

// Those that share a reader come and go by themselves.
TEST_P(FullPairs, readers_that_are_shared_serve_each_requester_for_as_long_as_it_stays) {
    DDSDataWriter& first = asker();
    DDSDataWriter& second = asker();
    DDSDataReader& first_ear = hearer(first, DDS_LENGTH_UNLIMITED);
    DDSDataWriter& answering = answerer(first);
    meet(answering, first_ear);
    DDSDataReader& second_ear = hearer(second, DDS_LENGTH_UNLIMITED);
    DDS_SubscriptionMatchedStatus status;
    EXPECT_EQ(OK, second_ear.get_subscription_matched_status(status));
    EXPECT_EQ(1, status.current_count) << "it is told of those that are there already";
    meet(answering, second_ear);
    DDS_SubscriptionBuiltinTopicData told;
    EXPECT_EQ(OK, answering.get_matched_subscription_data(told, second_ear.get_instance_handle()));
    EXPECT_EQ(asked_by(second, 0).writer_guid, told.partner_key);
    answer(answering, "1", asked_by(first, 1));
    answer(answering, "2", asked_by(second, 1));
    EXPECT_EQ(OK, answering.wait_for_acknowledgments(LONG_TIME));
    EXPECT_TRUE(eventually([&] { return take(first_ear) == "1"; }));
    EXPECT_TRUE(eventually([&] { return take(second_ear) == "2"; }));
    // What is for one that has left goes to nobody, and what comes behind it arrives at once.
    const DDS_SampleIdentity_t forgotten = asked_by(first, 2);
    EXPECT_EQ(OK, _elsewhere.delete_datareader(&first_ear));
    EXPECT_EQ(OK, _elsewhere.delete_datawriter(&first));
    EXPECT_TRUE(eventually([&] { return answer(answering, "nobody's", forgotten), counts(answering).back() != '0'; }));
    answer(answering, "3", asked_by(second, 2));
    EXPECT_TRUE(eventually([&] { return take(second_ear) == "3"; }));
    EXPECT_EQ(OK, _elsewhere.delete_datareader(&second_ear));
    DDS_InstanceHandleSeq handles;
    EXPECT_TRUE(eventually([&] { return answering.get_matched_subscriptions(handles) == OK && handles.length() == 0; }));
}

// Gaps are what others got. Behind one, nothing that a full reader refused may count as received.
TEST_P(FullPairs, a_reader_with_a_bound_gets_every_answer_of_its_own_among_those_of_others) {
    constexpr int ANSWERS = 50;
    DDSDataWriter& asking = asker();
    DDSDataWriter& other = asker();
    DDSDataWriter& answering = answerer(asking);
    DDSDataReader& ear = hearer(asking, 5);
    meet(answering, ear);
    meet(answering, hearer(other, 1000));
    const std::future<void> asked = std::async(std::launch::async, [&] {
        for (DDS_UnsignedLong number = 1; number <= ANSWERS; ++number) {
            answer(answering, "mine", asked_by(asking, number));
            answer(answering, "not mine", asked_by(other, number));
        }
    });
    std::string all;
    EXPECT_TRUE(eventually([&] { return all += take(ear), std::count(all.begin(), all.end(), 'm') == ANSWERS; })) << all;
}

TEST_P(FullPairs, an_answer_that_nobody_will_hear_is_given_up_and_counted) {
    DDSDataWriter& asking = asker();
    DDSDataWriter& silent = asker();
    DDSDataWriter& answering = answerer(asking);
    answer(answering, "too late", asked_by(asking, 1));
    EXPECT_EQ("1 0", counts(answering));
    EXPECT_EQ(OK, _elsewhere.delete_datawriter(&asking));
    EXPECT_TRUE(eventually([&] { return counts(answering) == "1 1"; })) << counts(answering);
    EXPECT_EQ(OK, answering.wait_for_acknowledgments(LONG_TIME));
    // One that stays and never listens is waited for as long as a write may take.
    DDSDataWriter& hasty = answerer(silent, writer_qos(SHORT_TIME));
    answer(hasty, "in vain", asked_by(silent, 1));
    EXPECT_EQ("1 0", counts(hasty));
    EXPECT_TRUE(eventually([&] { return counts(hasty) == "1 1"; })) << counts(hasty);
    // What is held goes with its writer.
    answer(answering, "unheard", asked_by(silent, 2));
    EXPECT_EQ(OK, _participant.delete_datawriter(&answering));
}

TEST_P(FullPairs, those_who_announce_no_such_thing_are_answered_at_once) {
    DDSDataWriter& plain = asker(false);
    DDSDataWriter& of_another_role = asker(false, "Requester");
    DDSDataWriter& answering = answerer(plain);
    for (DDSDataWriter* each : {&plain, &of_another_role}) {
        EXPECT_NE(DDS_UNKNOWN_SAMPLE_IDENTITY, answer(answering, "x", asked_by(*each, 1)));
    }
    EXPECT_NE(DDS_UNKNOWN_SAMPLE_IDENTITY, answer(answering, "x", related_to(1)));
    EXPECT_EQ("3 3", counts(answering));
    // A reader of its own hears the answers to it all the same.
    DDSDataReader& ear = hearer(plain, DDS_LENGTH_UNLIMITED);
    meet(answering, ear);
    answer(answering, "y", asked_by(plain, 2));
    EXPECT_TRUE(eventually([&] { return take(ear) == "y"; }));
}

}  // namespace
}  // namespace norvane::test
