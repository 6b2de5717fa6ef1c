// SPDX-License-Identifier: Apache-2.0
// Sending, waiting and loans of the entity core: on one entity whose writer and reader share a topic.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "norvane/details/EntityUntypedImpl.hpp"
#include "support/DoubledDomain.hpp"
#include "support/LogCapture.hpp"
#include "support/OpenEntities.hpp"
#include "support/Thrown.hpp"

namespace norvane::test {
namespace {

constexpr DDS_Duration_t LONG = {20, 0};

class OneTopic : public details::EntityUntypedImpl::TopicBuilder {
public:
    explicit OneTopic(DDSDomainParticipant& participant) : _participant(participant) {}
    DDSTopic* create_writer_topic(const details::EntityParams&, const char* type_name) override {
        return _participant.create_topic("T", type_name, DDS_TOPIC_QOS_DEFAULT, NULL, 0);
    }
    DDSTopicDescription* create_reader_topic(const details::EntityParams& params, const char* type_name) override {
        return create_writer_topic(params, type_name);
    }

private:
    DDSDomainParticipant& _participant;
};

class LoopTest : public DoubledDomain<> {
protected:
    void SetUp() override { initialize(*_participant); }
    void TearDown() override {
        EXPECT_EQ("1 writers 1 readers 2 conditions", live());
        _entity.reset();
        EXPECT_EQ("", live());
    }
    void initialize(DDSDomainParticipant& participant) {
        _entity.reset(new OpenEntity());
        OneTopic topic(participant);
        _entity->initialize(RequesterParams(&participant).service_name("S"), &register_string, &register_string, STRING_SIZE, topic,
                            NULL, true, "Loop");
    }
    void write(int count = 1) {
        DDS_WriteParams_t params;
        for (const char* sample = "text"; count > 0; --count) {
            _entity->send_sample(&sample, params);
        }
    }
    // How many samples the reader holds in those states. Reading marks them, so it is done through the real reader, after the fact.
    int in_state(DDS_SampleStateMask states) {
        DDSReadCondition* condition =
            _entity->get_datareader()->create_readcondition(states, DDS_ANY_VIEW_STATE, DDS_ANY_INSTANCE_STATE);
        const int count = _entity->touch_samples(1000, condition);
        _entity->get_datareader()->delete_readcondition(condition);
        return count;
    }

    std::unique_ptr<OpenEntity> _entity;
};

TEST_F(LoopTest, the_last_sample_that_ends_a_wait_stays_not_read_and_the_clock_is_read_only_around_waits_with_another_to_come) {
    write(1);
    // One there; two come into the first wait, one into the second.
    _script.fail_call(0);
    _script.at_next("DDSDomainParticipant::get_current_time", [&] { write(2); });
    _script.at_next("DDS_DataReader::return_loan", nullptr);
    _script.at_next("DDS_DataReader::return_loan", [&] { write(); });
    EXPECT_TRUE(_entity->wait_for_any_sample(LONG, 4));
    const std::vector<std::string> calls = _script.calls();
    EXPECT_EQ(2, std::count(calls.begin(), calls.end(), "DDSDomainParticipant::get_current_time"));
    EXPECT_EQ(2, std::count(calls.begin(), calls.end(), "DDS_DataReader::read_or_take"));
    EXPECT_EQ(1, in_state(DDS_NOT_READ_SAMPLE_STATE));
    EXPECT_EQ(4, in_state(DDS_ANY_SAMPLE_STATE));
}

TEST_F(LoopTest, the_time_of_earlier_waits_counts_and_an_infinite_wait_stays_infinite) {
    // By the clock of this participant the first wait lasts a million seconds.
    class JumpingParticipant : public ForwardingParticipant {
    public:
        using ForwardingParticipant::ForwardingParticipant;
        DDS_ReturnCode_t get_current_time(DDS_Time_t& time) override {
            const DDS_ReturnCode_t code = ForwardingParticipant::get_current_time(time);
            time.sec += ++_readings % 2 == 0 ? 1000000 : 0;
            return code;
        }
        int _readings = 0;
    };
    for (const bool endless : {false, true}) {
        _entity.reset();
        JumpingParticipant jumping(_real, _script);
        initialize(jumping);
        _script.fail_call(0);
        _script.at_next("DDSDomainParticipant::get_current_time", [&] { write(); });
        _script.at_next("DDS_DataReader::return_loan", [&] { write(); });
        EXPECT_EQ(endless, _entity->wait_for_any_sample(endless ? DDS_DURATION_INFINITE : LONG, 2));
        _entity.reset();
    }
    initialize(*_participant);
}

TEST_F(LoopTest, a_receive_checks_its_limits_in_order) {
    const DDS_Duration_t SOME = {1, 0};
    const char* const ORDER = "max_count must be greater or equal than min_count";
    const struct {
        DDS_Long max_samples_per_read;
        int min_count;
        int max_count;
        DDS_Duration_t max_wait;
        const char* refusal;
    } cases[] = {
        {-1, 1, 0, SOME, "max_count must be greater than zero"},
        {-1, 5, 3, {0, 0}, ORDER},
        {-1, -1, -1, SOME, ""},
        {4, 1, -1, DDS_DURATION_INFINITE, ""},
        {4, 5, -1, SOME, ORDER},
        {4, -1, -1, DDS_DURATION_INFINITE, ""},
    };
    const LogCapture quiet;
    for (const auto& each : cases) {
        _entity->_max_samples_per_read = each.max_samples_per_read;
        const std::string refusal = "EntityUntypedImpl::validate:" + expanded(DDS_LOG_BAD_PARAMETER_s, each.refusal);
        EXPECT_EQ(*each.refusal == '\0' ? "" : refusal,
                  thrown_by([&] { _entity->validate(each.min_count, each.max_count, each.max_wait); }).message);
    }
}

}  // namespace
}  // namespace norvane::test
