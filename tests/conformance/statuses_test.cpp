// SPDX-License-Identifier: Apache-2.0
// Statuses of endpoints, what they learn of their peers, and listeners.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <future>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "support/TextFixture.hpp"

namespace norvane::test {
namespace {

std::string shown(const DDS_IncompatibleQosStatus& status) {
    return "qos " + std::to_string(status.last_policy_id) + ":" + std::to_string(status.last_offered) + "<" +
           std::to_string(status.last_requested);
}
std::string shown(const DDS_IncompatibleTypeStatus& status) { return std::string("type ") + status.last_type_name; }
template <typename MatchedStatus>
std::string shown(const MatchedStatus& status) {
    return "matched " + std::to_string(status.current_count);
}

// Writes down what it is told.
class Notes : public DDSDataReaderListener, public DDSDataWriterListener {
public:
    void on_data_available(DDSDataReader*) override { note("data"); }
    void on_subscription_matched(DDSDataReader*, const DDS_SubscriptionMatchedStatus& status) override { note(shown(status)); }
    void on_requested_incompatible_qos(DDSDataReader*, const DDS_RequestedIncompatibleQosStatus& status) override {
        note(shown(status));
    }
    void on_incompatible_type(DDSDataReader*, const DDS_IncompatibleTypeStatus& status) override { note(shown(status)); }
    void on_sample_lost(DDSDataReader*, const DDS_SampleLostStatus& status) override {
        note("lost " + std::to_string(status.total_count));
    }
    void on_publication_matched(DDSDataWriter*, const DDS_PublicationMatchedStatus& status) override { note(shown(status)); }
    void on_offered_incompatible_qos(DDSDataWriter*, const DDS_OfferedIncompatibleQosStatus& status) override {
        note(shown(status));
    }
    void on_incompatible_type(DDSDataWriter*, const DDS_IncompatibleTypeStatus& status) override { note(shown(status)); }

    std::string text() const {
        const std::lock_guard<std::mutex> lock(_mutex);
        return _text;
    }
    bool comes_to(const std::string& expected) const {
        return eventually([&] { return text() == expected; });
    }

private:
    void note(const std::string& event) {
        const std::lock_guard<std::mutex> lock(_mutex);
        _text += (_text.empty() ? "" : ", ") + event;
    }
    mutable std::mutex _mutex;
    std::string _text;
};

std::string shown(const DDS_PropertyQosPolicy& policy) {
    std::string text;
    for (DDS_Long index = 0; index < policy.value.length(); ++index) {
        text += std::string(policy.value[index].name) + "=" + policy.value[index].value + ";";
    }
    return text;
}

class Statuses : public TextFixture {
protected:
    static std::string matched(DDSDataWriter& entity) {
        DDS_PublicationMatchedStatus status;
        return counts(entity.get_publication_matched_status(status), status);
    }
    static std::string matched(DDSDataReader& entity) {
        DDS_SubscriptionMatchedStatus status;
        return counts(entity.get_subscription_matched_status(status), status);
    }
    // Total and current, with their changes.
    template <typename Status>
    static std::string counts(DDS_ReturnCode_t code, const Status& status) {
        EXPECT_EQ(OK, code);
        return std::to_string(status.total_count) + "+" + std::to_string(status.total_count_change) + " " +
               std::to_string(status.current_count) + "+" + std::to_string(status.current_count_change);
    }
    // Takes everything, and counts it.
    int drain(DDSDataReader& reader) {
        DDSReadCondition& all = condition(reader);
        const int count = Loan(reader, all).count;
        EXPECT_EQ(OK, reader.delete_readcondition(&all));
        return count;
    }
};
INSTANTIATE_TEST_SUITE_P(Engine, Statuses, ::testing::ValuesIn(engine_names()), engine_of_test);

TEST_P(Statuses, peers_are_counted_and_described_for_as_long_as_they_match) {
    const auto introduce = [](auto& qos, DDS_EntityNameQosPolicy& name, const char* role) {
        const DDS_Octet octets[] = {4, 0, 2};
        qos.user_data.value.from_array(octets, 3);
        DDS_String_replace(&name.name, "name");
        DDS_String_replace(&name.role_name, role);
        DDSPropertyQosPolicyHelper::add_property(qos.property, "told", role, DDS_BOOLEAN_TRUE);
        DDSPropertyQosPolicyHelper::add_property(qos.property, "kept", role, DDS_BOOLEAN_FALSE);
    };
    DDS_DataWriterQos of_writer = writer_qos();
    introduce(of_writer, of_writer.publication_name, "speaker");
    of_writer.durability.kind = DDS_TRANSIENT_LOCAL_DURABILITY_QOS;
    DDSDataWriter& sender = writer(of_writer);
    EXPECT_EQ("0+0 0+0", matched(sender));

    // One reader in another participant, with a filter that names the writer.
    DDSDomainParticipant& elsewhere = *join();
    DDS_DataWriterQos resolved;
    ASSERT_EQ(OK, sender.get_qos(resolved));
    std::string filter = "@related_sample_identity.writer_guid.value = &hex(";
    for (const DDS_Octet octet : resolved.protocol.virtual_guid.value) {
        filter += {"0123456789abcdef"[octet >> 4], "0123456789abcdef"[octet & 15]};
    }
    DDSContentFilteredTopic* filtered =
        elsewhere.create_contentfilteredtopic("F", topic("T", &elsewhere), (filter + ")").c_str(), DDS_StringSeq());
    ASSERT_NE(nullptr, filtered);
    DDS_DataReaderQos of_reader = reader_qos();
    introduce(of_reader, of_reader.subscription_name, "listener");
    of_reader.reliability.kind = DDS_BEST_EFFORT_RELIABILITY_QOS;
    DDSDataReader& receiver = *elsewhere.create_datareader(filtered, of_reader, nullptr, 0);
    meet(sender, receiver);
    EXPECT_EQ("1+1 1+1", matched(sender));
    EXPECT_EQ("1+1 1+1", matched(receiver));
    EXPECT_EQ("1+0 1+0", matched(sender)) << "changes are told once";

    DDS_SubscriptionBuiltinTopicData of_receiver;
    ASSERT_EQ(OK, sender.get_matched_subscription_data(of_receiver, receiver.get_instance_handle()));
    EXPECT_EQ(0, std::memcmp(of_receiver.key.value, receiver.get_instance_handle().value, 16));
    EXPECT_EQ(resolved.protocol.virtual_guid, of_receiver.partner_key);
    EXPECT_EQ("T of DDS::String, name, listener, told=listener;",
              std::string(of_receiver.topic_name) + " of " + of_receiver.type_name + ", " + of_receiver.subscription_name.name +
                  ", " + of_receiver.subscription_name.role_name + ", " + shown(of_receiver.property));
    EXPECT_EQ(DDSStringTypeSupport::get_instance().get_type_operations()->layout_hash, of_receiver.type_hash);
    EXPECT_EQ(DDS_BEST_EFFORT_RELIABILITY_QOS, of_receiver.reliability.kind);
    EXPECT_EQ(DDS_VOLATILE_DURABILITY_QOS, of_receiver.durability.kind);
    ASSERT_EQ(3, of_receiver.user_data.value.length());
    EXPECT_EQ(2, of_receiver.user_data.value[2]);

    DDS_PublicationBuiltinTopicData of_sender;
    for (int times = 0; times < 2; ++times) {  // the record may be used again
        ASSERT_EQ(OK, receiver.get_matched_publication_data(of_sender, sender.get_instance_handle()));
        EXPECT_EQ(resolved.protocol.virtual_guid, of_sender.key);
        EXPECT_EQ(DDS_TRANSIENT_LOCAL_DURABILITY_QOS, of_sender.durability.kind);
        EXPECT_EQ("speaker, told=speaker;", std::string(of_sender.publication_name.role_name) + ", " + shown(of_sender.property));
        EXPECT_EQ(3, of_sender.user_data.value.length());
    }
    EXPECT_EQ(BAD_PARAMETER, receiver.get_matched_publication_data(of_sender, DDS_HANDLE_NIL));
    EXPECT_EQ(BAD_PARAMETER, receiver.get_matched_publication_data(of_sender, receiver.get_instance_handle()));

    // A reader may also say itself which writer belongs to it.
    DDS_SubscriptionBuiltinTopicData told;
    const std::pair<const char*, DDS_GUID_t> PARTNERS[] = {
        {"000102030405060708090a0b0c0d0eff", {{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 255}}},
        {"000102030405060708090a0b0c0d0e", DDS_GUID_UNKNOWN},
        {"000102030405060708090a0b0c0d0egg", DDS_GUID_UNKNOWN}};
    for (const auto& each : PARTNERS) {
        DDS_DataReaderQos qos = reader_qos();
        DDSPropertyQosPolicyHelper::add_property(qos.property, DDS_PARTNER_WRITER_PROPERTY, each.first, DDS_BOOLEAN_TRUE);
        DDSDataReader& announcing = reader(qos);
        meet(sender, announcing);
        ASSERT_EQ(OK, sender.get_matched_subscription_data(told, announcing.get_instance_handle()));
        EXPECT_EQ(each.second, told.partner_key) << each.first;
        EXPECT_EQ(of_sender.participant_key, told.participant_key);
        EXPECT_NE(of_receiver.participant_key, told.participant_key);
    }
    EXPECT_EQ("4+3 4+3", matched(sender));

    const DDS_InstanceHandle_t gone = receiver.get_instance_handle();
    EXPECT_EQ(OK, elsewhere.delete_datareader(&receiver));
    EXPECT_TRUE(eventually([&] { return sender.get_matched_subscription_data(of_receiver, gone) == BAD_PARAMETER; }));
    EXPECT_EQ("4+0 3+-1", matched(sender));
}

TEST_P(Statuses, peers_that_do_not_fit_are_reported_to_both_sides_with_the_reason) {
    const LogCapture log;
    DDSDomainParticipant& elsewhere = *join();
    const DDSDynamicDataTypeSupport narrow("Both", {{"number", DDS_DYNAMIC_INT32}});
    const DDSDynamicDataTypeSupport wide("Both", {{"number", DDS_DYNAMIC_INT64}});
    const DDSTypeSupport& text = DDSStringTypeSupport::get_instance();
    const DDSTypeSupport& octets = DDSOctetsTypeSupport::get_instance();
    const auto reliable = DDS_RELIABLE_RELIABILITY_QOS;
    const auto best_effort = DDS_BEST_EFFORT_RELIABILITY_QOS;
    const auto brief = DDS_VOLATILE_DURABILITY_QOS;
    const auto keeping = DDS_TRANSIENT_LOCAL_DURABILITY_QOS;
    struct {
        const DDSTypeSupport& writer_type;
        const DDSTypeSupport& reader_type;
        std::pair<DDS_ReliabilityQosPolicyKind, DDS_DurabilityQosPolicyKind> offered;
        std::pair<DDS_ReliabilityQosPolicyKind, DDS_DurabilityQosPolicyKind> requested;
        const char* told_writer;
        const char* told_reader;
    } const CASES[] = {
        {text, text, {reliable, keeping}, {reliable, keeping}, "matched 1", "matched 1"},
        {text, text, {reliable, keeping}, {best_effort, brief}, "matched 1", "matched 1"},
        {text, text, {best_effort, brief}, {reliable, brief}, "qos 11:1<2", "qos 11:1<2"},
        {text, text, {reliable, brief}, {reliable, keeping}, "qos 2:0<1", "qos 2:0<1"},
        {text, octets, {reliable, brief}, {reliable, brief}, "type DDS::Octets", "type DDS::String"},
        {narrow, wide, {reliable, brief}, {reliable, brief}, "type Both", "type Both"},
    };
    int row = 0;
    for (const auto& each : CASES) {
        SCOPED_TRACE(each.told_writer);
        const std::string name = "T" + std::to_string(row++);
        const auto make_topic = [&](DDSDomainParticipant& participant, const DDSTypeSupport& type) {
            EXPECT_EQ(OK, type.register_type(&participant));
            return participant.create_topic(name.c_str(), type.get_type_name(), DDS_TOPIC_QOS_DEFAULT, nullptr, 0);
        };
        DDS_DataWriterQos of_writer = writer_qos();
        of_writer.reliability.kind = each.offered.first;
        of_writer.durability.kind = each.offered.second;
        DDS_DataReaderQos of_reader = reader_qos();
        of_reader.reliability.kind = each.requested.first;
        of_reader.durability.kind = each.requested.second;
        Notes writer_notes;
        Notes reader_notes;
        DDSTopic* const offered = make_topic(_participant, each.writer_type);
        DDSDataWriter& sender = *_participant.create_datawriter(offered, of_writer, nullptr, 0);
        DDSDataReader& receiver =
            *elsewhere.create_datareader(make_topic(elsewhere, each.reader_type), of_reader, &reader_notes, DDS_STATUS_MASK_ALL);
        EXPECT_TRUE(reader_notes.comes_to(each.told_reader)) << reader_notes.text();
        EXPECT_EQ(0U, receiver.get_status_changes()) << "the listener has got it";
        EXPECT_TRUE(eventually([&] { return sender.get_status_changes() != 0; }));
        const auto told = [&] {
            DDS_OfferedIncompatibleQosStatus by_qos;
            DDS_IncompatibleTypeStatus by_type;
            DDS_PublicationMatchedStatus match;
            EXPECT_TRUE(sender.get_offered_incompatible_qos_status(by_qos) == OK &&
                        sender.get_incompatible_type_status(by_type) == OK);
            EXPECT_EQ(OK, sender.get_publication_matched_status(match));
            return std::string(by_qos.total_count_change == 1 ? shown(by_qos) : "") +
                   (by_type.total_count_change == 1 ? shown(by_type) : "") + (match.total_count_change == 1 ? shown(match) : "");
        };
        EXPECT_EQ(each.told_writer, told());
        EXPECT_EQ(0U, sender.get_status_changes());
        EXPECT_EQ("", told()) << "changes are told once";

        // The listener of a writer that comes second is told, too.
        DDSDataWriter& second = *_participant.create_datawriter(offered, of_writer, &writer_notes, DDS_STATUS_MASK_ALL);
        EXPECT_TRUE(writer_notes.comes_to(each.told_writer)) << writer_notes.text();
        EXPECT_EQ(OK, _participant.delete_datawriter(&second));
        EXPECT_EQ(OK, elsewhere.delete_datareader(&receiver));
    }
    EXPECT_LE(2, log.count("a reader there has the type \"DDS::Octets\" with another layout or name"));
    EXPECT_LE(2, log.count("a writer there has the type \"Both\" with another layout or name"));
}

TEST_P(Statuses, a_listener_is_told_what_its_mask_names_from_when_it_is_set) {
    const LogCapture log;
    Notes all;
    Notes data_only;
    Notes late;
    DDS_DataReaderQos narrow = reader_qos(1);
    narrow.reliability.kind = DDS_BEST_EFFORT_RELIABILITY_QOS;
    DDSDataReader& with_all = reader(narrow, "T", &all);
    DDSDataReader& with_data_only = reader(narrow, "T", &data_only, DDS_DATA_AVAILABLE_STATUS);
    DDSDataReader& with_none = reader(narrow, "T", &late, DDS_STATUS_MASK_NONE);
    DDSDataWriter& sender = writer();
    for (DDSDataReader* each : {&with_all, &with_data_only, &with_none}) {
        meet(sender, *each);
    }
    EXPECT_EQ("1+1 1+1", matched(with_none));
    EXPECT_EQ(OK, write(sender, "kept"));
    EXPECT_TRUE(all.comes_to("matched 1, data"));
    EXPECT_TRUE(data_only.comes_to("data"));
    EXPECT_EQ(OK, with_none.set_listener(&late, DDS_STATUS_MASK_ALL));
    EXPECT_EQ(OK, write(sender, "lost"));
    EXPECT_TRUE(all.comes_to("matched 1, data, lost 1"));
    EXPECT_TRUE(late.comes_to("lost 1")) << "what was before, and had been got, is old news: " << late.text();
    EXPECT_EQ("data", data_only.text());
    EXPECT_EQ(OK, with_all.set_listener(&data_only, DDS_STATUS_MASK_ALL));
    EXPECT_EQ(OK, with_data_only.set_listener(nullptr, DDS_STATUS_MASK_ALL));
    EXPECT_TRUE(with_all.get_listener() == &data_only && with_data_only.get_listener() == nullptr);
    EXPECT_EQ(OK, _participant.delete_datawriter(&sender));
    EXPECT_TRUE(data_only.comes_to("data, matched 0"));
    EXPECT_EQ("matched 1, data, lost 1", all.text());
}

TEST_P(Statuses, what_a_listener_throws_is_logged_and_counted_and_ends_nothing) {
    const LogCapture log;
    std::atomic<int> calls{0};
    DataListener listener([&](DDSDataReader& receiver) {
        drain(receiver);
        if (++calls == 1) {
            throw std::runtime_error("out of ideas");
        }
        throw 42;
    });
    DDSDataReader& receiver = reader(reader_qos(), "T", &listener);
    DDSDataWriter& sender = writer();
    meet(sender, receiver);
    for (int call = 1; call <= 3; ++call) {
        EXPECT_EQ(OK, write(sender, "x"));
        EXPECT_TRUE(eventually([&] { return calls == call; }));
    }
    EXPECT_EQ(OK, receiver.set_listener(nullptr, 0));
    EXPECT_EQ(1, log.count("the listener threw (time 1 for this entity): out of ideas"));
    EXPECT_EQ(1, log.count("the listener threw (time 3 for this entity)"));
}

TEST_P(Statuses, a_listener_may_write_but_is_never_blocked_in_it) {
    DDSDataReader& full = reader(reader_qos(1), "Answers");
    DDS_DataWriterQos patient = writer_qos(DDS_DURATION_INFINITE);
    patient.resource_limits.max_samples = 1;
    patient.resource_limits.initial_samples = 0;
    DDSDataWriter& answering = writer(patient, "Answers");
    meet(answering, full);
    std::promise<int> answered;
    DataListener listener([&](DDSDataReader&) {
        int written = 0;
        while (write(answering, "x") == OK && written < 100000) {
            ++written;
        }
        answered.set_value(written);
    });
    DDSDataReader& receiver = reader(reader_qos(), "T", &listener, DDS_DATA_AVAILABLE_STATUS);
    DDSDataWriter& sender = writer();
    meet(sender, receiver);
    EXPECT_EQ(OK, write(sender, "x"));
    auto outcome = answered.get_future();
    ASSERT_EQ(std::future_status::ready, outcome.wait_for(std::chrono::seconds(20)));
    EXPECT_LE(1, outcome.get());
    EXPECT_EQ(1, drain(full));
    EXPECT_EQ(OK, receiver.set_listener(nullptr, 0));
}

TEST_P(Statuses, one_thread_at_a_time_is_in_a_listener_and_nothing_goes_unnoticed) {
    constexpr int WRITERS = 4;
    constexpr int SAMPLES = 500;
    std::atomic<int> inside{0};
    std::atomic<int> got{0};
    std::atomic<int> overlaps{0};
    DataListener listener([&](DDSDataReader& receiver) {
        overlaps += ++inside == 1 ? 0 : 1;
        got += std::max(0, drain(receiver));
        std::this_thread::yield();
        --inside;
    });
    DDSDataReader& receiver = reader(reader_qos(), "T", &listener, DDS_DATA_AVAILABLE_STATUS);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < WRITERS; ++thread) {
        DDSDataWriter& sender = writer();
        meet(sender, receiver);
        threads.emplace_back([&sender] {
            for (int number = 0; number < SAMPLES; ++number) {
                EXPECT_EQ(OK, write(sender, "x"));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(eventually([&] { return got == WRITERS * SAMPLES; })) << got;
    EXPECT_EQ(0, overlaps);
    EXPECT_EQ(OK, receiver.set_listener(nullptr, 0));
}

TEST_P(Statuses, from_inside_a_listener_everything_may_go_but_what_it_listens_to) {
    const LogCapture log;
    DDSDataReader& neighbour = reader(reader_qos(), "Other");
    std::promise<void> done;
    DataListener listener([&](DDSDataReader& receiver) {
        EXPECT_EQ(PRECONDITION, _participant.delete_datareader(&receiver));
        EXPECT_EQ(PRECONDITION, receiver.set_listener(nullptr, 0));
        EXPECT_EQ(OK, _participant.delete_datareader(&neighbour));
        DDSDataReader& made = reader(reader_qos(), "Other");
        EXPECT_EQ(OK, made.set_listener(nullptr, 0));
        EXPECT_EQ(OK, _participant.delete_datareader(&made));
        EXPECT_EQ(OK, _participant.delete_datawriter(&writer(writer_qos(), "Other")));
        EXPECT_EQ(1, drain(receiver));
        done.set_value();
    });
    DDSDataReader& receiver = reader(reader_qos(), "T", &listener, DDS_DATA_AVAILABLE_STATUS);
    DDSDataWriter& sender = writer();
    meet(sender, receiver);
    EXPECT_EQ(OK, write(sender, "x"));
    EXPECT_EQ(std::future_status::ready, done.get_future().wait_for(std::chrono::seconds(20)));
    EXPECT_EQ(OK, _participant.delete_datareader(&receiver));
}

TEST_P(Statuses, who_takes_a_listener_away_waits_until_it_has_left) {
    static DDSDataReaderListener silent;
    struct {
        const char* what;
        std::function<DDS_ReturnCode_t(DDSDataReader&)> remove;
    } const CASES[] = {
        {"delete", [this](DDSDataReader& receiver) { return _participant.delete_datareader(&receiver); }},
        {"no listener", [](DDSDataReader& receiver) { return receiver.set_listener(nullptr, 0); }},
        {"another", [](DDSDataReader& receiver) { return receiver.set_listener(&silent, DDS_STATUS_MASK_ALL); }},
    };
    for (const auto& each : CASES) {
        SCOPED_TRACE(each.what);
        std::promise<void> inside;
        std::promise<void> go_on;
        std::atomic<bool> left{false};
        DataListener listener([&](DDSDataReader&) {
            inside.set_value();
            go_on.get_future().wait();
            left = true;
        });
        DDSDataReader& receiver = reader(reader_qos(), each.what, &listener, DDS_DATA_AVAILABLE_STATUS);
        DDSDataWriter& sender = writer(writer_qos(), each.what);
        meet(sender, receiver);
        auto writing = std::async(std::launch::async, [&] { return write(sender, "x"); });
        inside.get_future().wait();
        auto removing = start_blocking([&] {
            EXPECT_EQ(OK, each.remove(receiver));
            EXPECT_TRUE(left);
        });
        EXPECT_EQ(std::future_status::timeout, removing.wait_for(std::chrono::seconds(0)));
        go_on.set_value();
        removing.get();
        EXPECT_EQ(OK, writing.get());
    }
}

}  // namespace
}  // namespace norvane::test
