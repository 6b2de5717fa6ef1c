// SPDX-License-Identifier: Apache-2.0
// Writers and readers of texts at the object API, and loans that go back by themselves.
#ifndef NORVANE_TESTS_SUPPORT_TEXTFIXTURE_HPP
#define NORVANE_TESTS_SUPPORT_TEXTFIXTURE_HPP

#include <functional>
#include <string>
#include <utility>

#include "norvane/dds/WaitSet.hpp"
#include "support/EngineFixture.hpp"
#include "support/Eventually.hpp"
#include "support/LogCapture.hpp"

namespace norvane::test {

constexpr DDS_ReturnCode_t OK = DDS_RETCODE_OK;
constexpr DDS_ReturnCode_t TIMEOUT = DDS_RETCODE_TIMEOUT;
constexpr DDS_ReturnCode_t NO_DATA = DDS_RETCODE_NO_DATA;
constexpr DDS_ReturnCode_t BAD_PARAMETER = DDS_RETCODE_BAD_PARAMETER;
constexpr DDS_ReturnCode_t PRECONDITION = DDS_RETCODE_PRECONDITION_NOT_MET;
constexpr DDS_ReturnCode_t ALREADY_DELETED = DDS_RETCODE_ALREADY_DELETED;

constexpr DDS_Duration_t LONG_TIME = {30, 0};
constexpr DDS_Duration_t SHORT_TIME = {0, 20000000};
constexpr DDS_Duration_t NO_TIME = DDS_DURATION_ZERO;
constexpr int TEXT_SIZE = static_cast<int>(sizeof(char*));

/// One loaned read or take, given back at the end if nobody has done so.
class Loan {
public:
    Loan(DDSDataReader& reader, DDSReadCondition& condition, bool take = true, DDS_Long max_samples = DDS_LENGTH_UNLIMITED)
        : _reader(reader) {
        code = DDS_DataReader_read_or_take_w_condition_untypedI(reader.get_c_datareader(), &is_loan, &data, &count, infos, 0, 0,
                                                                DDS_BOOLEAN_TRUE, nullptr, TEXT_SIZE, max_samples,
                                                                condition.get_c_readcondition(), take);
    }
    /// What is under an index key.
    Loan(DDSDataReader& reader, const char* index_name, DDS_UnsignedLong key, bool take,
         DDS_Long max_samples = DDS_LENGTH_UNLIMITED)
        : _reader(reader) {
        code = DDS_DataReader_read_or_take_index_key_untypedI(reader.get_c_datareader(), &data, &count, infos, TEXT_SIZE,
                                                              max_samples, index_name, {0, key}, take);
    }
    ~Loan() {
        if (!infos.has_ownership()) {
            EXPECT_EQ(DDS_RETCODE_OK, give_back());
        }
    }
    Loan(const Loan&) = delete;
    Loan& operator=(const Loan&) = delete;

    DDS_ReturnCode_t give_back() { return DDS_DataReader_return_loan_untypedI(_reader.get_c_datareader(), data, infos); }
    const char* text(int index) const { return *static_cast<char**>(data[index]); }
    /// @return the texts in order, separated by blanks; "-" for one that is empty or null (an encoding knows no null).
    std::string texts() const {
        std::string all;
        for (int index = 0; index < count; ++index) {
            const bool is_empty = text(index) == nullptr || *text(index) == '\0';
            all += (index == 0 ? "" : " ") + std::string(is_empty ? "-" : text(index));
        }
        return all;
    }

    DDS_ReturnCode_t code;
    DDS_Boolean is_loan = DDS_BOOLEAN_FALSE;
    void** data = nullptr;
    int count = -1;
    DDS_SampleInfoSeq infos;

private:
    DDSDataReader& _reader;
};

/// Calls what a test gives it when there is data.
class DataListener : public DDSDataReaderListener {
public:
    explicit DataListener(std::function<void(DDSDataReader&)> call) : _call(std::move(call)) {}
    void on_data_available(DDSDataReader* reader) override { _call(*reader); }

private:
    const std::function<void(DDSDataReader&)> _call;
};

inline DDS_SampleIdentity_t identity_of(const DDS_SampleInfo& info) {
    return {info.original_publication_virtual_guid, info.original_publication_virtual_sequence_number};
}
inline DDS_SampleIdentity_t related_identity_of(const DDS_SampleInfo& info) {
    return {info.related_original_publication_virtual_guid, info.related_original_publication_virtual_sequence_number};
}

/// @return an identity with the number; its GUID names nobody in particular.
inline DDS_SampleIdentity_t related_to(DDS_UnsignedLong number) { return {{{0x42}}, {0, number}}; }

class TextFixture : public EngineFixture {
protected:
    /// Reliable and keep-all. @param max_samples  room of a reader.
    template <typename Qos>
    static Qos keep_all(DDS_Long max_samples = DDS_LENGTH_UNLIMITED) {
        Qos qos;
        qos.reliability.kind = DDS_RELIABLE_RELIABILITY_QOS;
        qos.reliability.max_blocking_time = LONG_TIME;
        qos.history.kind = DDS_KEEP_ALL_HISTORY_QOS;
        qos.resource_limits.max_samples = max_samples;
        qos.resource_limits.initial_samples = 0;
        return qos;
    }
    static DDS_DataReaderQos reader_qos(DDS_Long max_samples = DDS_LENGTH_UNLIMITED) {
        return keep_all<DDS_DataReaderQos>(max_samples);
    }
    static DDS_DataWriterQos writer_qos(const DDS_Duration_t& max_blocking_time = LONG_TIME) {
        DDS_DataWriterQos qos = keep_all<DDS_DataWriterQos>();
        qos.reliability.max_blocking_time = max_blocking_time;
        return qos;
    }

    DDSTopic* topic(const std::string& name = "T", DDSDomainParticipant* participant = nullptr) {
        DDSDomainParticipant& owner = participant != nullptr ? *participant : _participant;
        EXPECT_EQ(DDS_RETCODE_OK, DDSStringTypeSupport::get_instance().register_type(&owner));
        DDSTopic* made = owner.create_topic(name.c_str(), "DDS::String", DDS_TOPIC_QOS_DEFAULT, nullptr, 0);
        EXPECT_NE(nullptr, made);
        return made;
    }
    DDSDataWriter& writer(const DDS_DataWriterQos& qos = writer_qos(), const std::string& name = "T",
                          DDSDataWriterListener* listener = nullptr, DDS_StatusMask mask = DDS_STATUS_MASK_ALL) {
        DDSDataWriter* made = _participant.create_datawriter(topic(name), qos, listener, mask);
        EXPECT_NE(nullptr, made);
        return *made;
    }
    DDSDataReader& reader(const DDS_DataReaderQos& qos = reader_qos(), const std::string& name = "T",
                          DDSDataReaderListener* listener = nullptr, DDS_StatusMask mask = DDS_STATUS_MASK_ALL) {
        DDSDataReader* made = _participant.create_datareader(topic(name), qos, listener, mask);
        EXPECT_NE(nullptr, made);
        return *made;
    }
    DDSReadCondition& condition(DDSDataReader& reader, DDS_SampleStateMask states = DDS_ANY_SAMPLE_STATE) {
        DDSReadCondition* made = reader.create_readcondition(states, DDS_ANY_VIEW_STATE, DDS_ANY_INSTANCE_STATE);
        EXPECT_NE(nullptr, made);
        return *made;
    }
    DDSReadCondition& key_condition(DDSDataReader& reader, DDS_UnsignedLong number,
                                    DDS_SampleStateMask states = DDS_ANY_SAMPLE_STATE) {
        DDS_SampleInfo key;
        key.related_original_publication_virtual_sequence_number = {0, number};
        DDSReadCondition* made = reader.create_index_condition(states, DDS_ANY_VIEW_STATE, DDS_ANY_INSTANCE_STATE, "index", key);
        EXPECT_NE(nullptr, made);
        return *made;
    }
    /// Waits until the two have found each other.
    static void meet(DDSDataWriter& writer, DDSDataReader& reader) {
        const auto lists = [](auto& entity, auto get_matched, DDSEntity& peer) {
            DDS_InstanceHandleSeq handles;
            EXPECT_EQ(DDS_RETCODE_OK, (entity.*get_matched)(handles));
            for (DDS_Long index = 0; index < handles.length(); ++index) {
                if (handles[index] == peer.get_instance_handle()) {
                    return true;
                }
            }
            return false;
        };
        EXPECT_TRUE(eventually([&] { return lists(writer, &DDSDataWriter::get_matched_subscriptions, reader); }));
        EXPECT_TRUE(eventually([&] { return lists(reader, &DDSDataReader::get_matched_publications, writer); }));
    }

    static DDS_ReturnCode_t write(DDSDataWriter& writer, const char* text, DDS_WriteParams_t& params) {
        return DDS_DataWriter_write_w_params_untyped_generalI(writer.get_c_datawriter(), nullptr, &text, params);
    }
    static DDS_ReturnCode_t write(DDSDataWriter& writer, const std::string& text,
                                  const DDS_SampleIdentity_t& related = DDS_UNKNOWN_SAMPLE_IDENTITY) {
        DDS_WriteParams_t params;
        params.related_sample_identity = related;
        return write(writer, text.c_str(), params);
    }
    /// Writes, and waits until all reliable readers have it.
    static DDS_SampleIdentity_t deliver(DDSDataWriter& writer, const std::string& text,
                                        const DDS_SampleIdentity_t& related = DDS_UNKNOWN_SAMPLE_IDENTITY) {
        DDS_WriteParams_t params;
        params.related_sample_identity = related;
        EXPECT_EQ(DDS_RETCODE_OK, write(writer, text.c_str(), params));
        EXPECT_EQ(DDS_RETCODE_OK, writer.wait_for_acknowledgments(LONG_TIME));
        return params.identity;
    }
    /// Writes until there is no room any more. @param writer  one that has no patience.
    static int fill(DDSDataWriter& writer) {
        int written = 0;
        DDS_ReturnCode_t code = DDS_RETCODE_OK;
        while (code == DDS_RETCODE_OK && written < 100000) {
            code = write(writer, std::to_string(written + 1));
            written += code == DDS_RETCODE_OK ? 1 : 0;
        }
        EXPECT_EQ(DDS_RETCODE_TIMEOUT, code);
        return written;
    }
    /// @return the texts that are there, taken; nothing else uses the reader's conditions.
    std::string take(DDSDataReader& reader, DDS_SampleStateMask states = DDS_ANY_SAMPLE_STATE) {
        DDSReadCondition& all = condition(reader, states);
        const std::string texts = Loan(reader, all).texts();
        EXPECT_EQ(DDS_RETCODE_OK, reader.delete_readcondition(&all));
        return texts;
    }
};

}  // namespace norvane::test

#endif
