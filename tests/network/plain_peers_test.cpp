// SPDX-License-Identifier: Apache-2.0
// Programs on Fast DDS's own DDS layer, without any of ours: they ask and answer with the identities that its WriteParams carry.
#include <gtest/gtest.h>

#include <fastdds/rtps/transport/UDPv4TransportDescriptor.h>
#include <fastdds/dds/domain/DomainParticipant.hpp>
#include <fastdds/dds/domain/DomainParticipantFactory.hpp>
#include <fastdds/dds/domain/DomainParticipantListener.hpp>
#include <fastdds/dds/publisher/DataWriter.hpp>
#include <fastdds/dds/publisher/Publisher.hpp>
#include <fastdds/dds/subscriber/DataReader.hpp>
#include <fastdds/dds/subscriber/SampleInfo.hpp>
#include <fastdds/dds/subscriber/Subscriber.hpp>
#include <fastdds/dds/topic/Topic.hpp>
#include <fastdds/dds/topic/TopicDataType.hpp>
#include <fastdds/dds/topic/TypeSupport.hpp>

#include <atomic>
#include <cstring>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "network/PeerProcess.hpp"
#include "network/Questions.hpp"
#include "support/ServiceFixture.hpp"
#include "support/TextFixture.hpp"
#include "support/Thrown.hpp"

namespace norvane::test {
namespace {

namespace dds = eprosima::fastdds::dds;
namespace rtps = eprosima::fastrtps::rtps;

// A string in CDR, little-endian, as any DDS program has it.
class PlainText : public dds::TopicDataType {
public:
    PlainText() {
        setName("DDS::String");
        m_typeSize = 70000;
        m_isGetKeyDefined = false;
        auto_fill_type_object(false);
        auto_fill_type_information(false);
    }
    bool serialize(void* data, rtps::SerializedPayload_t* payload) override {
        const std::string& text = *static_cast<std::string*>(data);
        const std::uint32_t length = static_cast<std::uint32_t>(text.size()) + 1;
        const std::uint8_t header[] = {0, 1, 0, 0};
        std::memcpy(payload->data, header, 4);
        std::memcpy(payload->data + 4, &length, 4);
        std::memcpy(payload->data + 8, text.c_str(), length);
        payload->length = 8 + length;
        payload->encapsulation = CDR_LE;
        return true;
    }
    bool deserialize(rtps::SerializedPayload_t* payload, void* data) override {
        std::uint32_t length = 0;
        std::memcpy(&length, payload->data + 4, 4);
        static_cast<std::string*>(data)->assign(reinterpret_cast<char*>(payload->data + 8), length - 1);
        return true;
    }
    std::function<std::uint32_t()> getSerializedSizeProvider(void* data) override {
        return [data] { return static_cast<std::uint32_t>(static_cast<std::string*>(data)->size() + 9); };
    }
    void* createData() override { return new std::string; }
    void deleteData(void* data) override { delete static_cast<std::string*>(data); }
    bool getKey(void*, rtps::InstanceHandle_t*, bool) override { return false; }
};

class PlainParticipant {
public:
    explicit PlainParticipant(int domain, dds::DomainParticipantListener* listener = nullptr) : _type(new PlainText) {
        dds::DomainParticipantQos qos;
        auto udp = std::make_shared<eprosima::fastdds::rtps::UDPv4TransportDescriptor>();
        udp->interfaceWhiteList.push_back("127.0.0.1");
        qos.transport().use_builtin_transports = false;
        qos.transport().user_transports.push_back(udp);
        _participant = dds::DomainParticipantFactory::get_instance()->create_participant(static_cast<dds::DomainId_t>(domain), qos,
                                                                                         listener, dds::StatusMask::none());
        _type.register_type(_participant);
    }
    ~PlainParticipant() {
        _participant->delete_contained_entities();
        dds::DomainParticipantFactory::get_instance()->delete_participant(_participant);
    }
    dds::DataWriter* writer(const char* topic, const std::vector<rtps::octet>& user_data = {}) {
        dds::DataWriterQos qos;
        qos.user_data().setValue(user_data);
        qos.reliability().kind = dds::RELIABLE_RELIABILITY_QOS;
        qos.history().kind = dds::KEEP_ALL_HISTORY_QOS;
        qos.reliable_writer_qos().times.heartbeatPeriod = {0, 20000000};
        return _participant->create_publisher(dds::PUBLISHER_QOS_DEFAULT)->create_datawriter(make_topic(topic), qos);
    }
    dds::DataReader* reader(const char* topic, dds::DataReaderListener* listener = nullptr) {
        dds::DataReaderQos qos;
        qos.reliability().kind = dds::RELIABLE_RELIABILITY_QOS;
        qos.history().kind = dds::KEEP_ALL_HISTORY_QOS;
        return _participant->create_subscriber(dds::SUBSCRIBER_QOS_DEFAULT)->create_datareader(make_topic(topic), qos, listener);
    }

private:
    dds::Topic* make_topic(const char* name) { return _participant->create_topic(name, "DDS::String", dds::TOPIC_QOS_DEFAULT); }

    dds::TypeSupport _type;
    dds::DomainParticipant* _participant;
};

// @return whether there was a sample to take.
bool take_next(dds::DataReader& reader, std::string& text, dds::SampleInfo& info) {
    return reader.take_next_sample(&text, &info) == eprosima::fastrtps::types::ReturnCode_t::RETCODE_OK && info.valid_data;
}

// Takes the next sample, waiting for it. @return whether one came.
bool next(dds::DataReader& reader, std::string& text, dds::SampleInfo& info,
          std::chrono::milliseconds patience = std::chrono::seconds(10)) {
    return eventually([&] { return take_next(reader, text, info); }, patience);
}

// A plain replier: answers each request with itself and a mark, and says which one it is about.
int plain_echo(const std::vector<std::string>& arguments) {
    struct Echo : public dds::DataReaderListener {
        void on_data_available(dds::DataReader* requests) override {
            std::string text;
            for (dds::SampleInfo info; take_next(*requests, text, info);) {
                text += "!";
                rtps::WriteParams params;
                params.related_sample_identity(info.sample_identity);
                replies->write(&text, params);
            }
        }
        dds::DataWriter* replies;
    } echo;
    PlainParticipant participant(std::stoi(arguments[0]));
    echo.replies = participant.writer("SReply");
    participant.reader("SRequest", &echo);
    return answer_lines([](const std::string&) { return ""; });
}

const KnownRole PLAIN_ECHO("plain_echo", plain_echo);

class PlainPeers : public TextFixture {
protected:
    RequesterParams requester_params() { return RequesterParams(&_participant).service_name("S"); }
};
INSTANTIATE_TEST_SUITE_P(Engine, PlainPeers, ::testing::Values("fastdds"), engine_of_test);

TEST_P(PlainPeers, a_plain_replier_answers_each_of_our_requesters) {
    const PeerProcess server("plain_echo", {std::to_string(_domain)});
    DDS_DataWriterQos named = writer_qos();
    named.protocol.virtual_guid = {{0x4e, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}};
    TextRequester plain(requester_params());
    TextRequester with_name_of_its_own(requester_params().datawriter_qos(named));
    for (TextRequester* each : {&plain, &with_name_of_its_own}) {
        // Nothing tells when the replier has found our reader: it answers at once, and its first answers may be lost.
        EXPECT_TRUE(eventually([&] { return thrown_by([&] { each->call("first", std::chrono::seconds(1)); }).type.empty(); }));
    }
    for (int number = 0; number < 50; ++number) {
        for (TextRequester* each : {&plain, &with_name_of_its_own}) {
            EXPECT_EQ(std::to_string(number) + "!", each->call(std::to_string(number), std::chrono::seconds(5)));
        }
    }
    // Those of one thread, right after one another, share datagrams.
    constexpr int AT_ONCE = 300;
    for (int number = 0; number < AT_ONCE; ++number) {
        plain.send_request(std::to_string(number));
    }
    for (int number = 0; number < AT_ONCE; ++number) {
        const auto answer = plain.receive_reply(std::chrono::seconds(5));
        ASSERT_TRUE(answer.has_value());
        EXPECT_EQ(std::to_string(number) + "!", answer->data());
    }
}

TEST_P(PlainPeers, a_plain_requester_gets_its_answers_from_our_replier) {
    PeerProcess server("echo", {std::to_string(_domain)});
    PlainParticipant participant(_domain);
    dds::DataWriter* requests = participant.writer("SRequest");
    dds::DataReader* replies = participant.reader("SReply");
    // Nothing tells when the server has found its reader: answers are sent at once, and the first ones may be lost.
    std::string reply;
    dds::SampleInfo info;
    EXPECT_TRUE(eventually([&] {
        std::string text = "anybody there";
        return requests->write(&text) && next(*replies, reply, info, std::chrono::milliseconds(100));
    }));
    while (next(*replies, reply, info, std::chrono::milliseconds(100))) {
    }
    for (int number = 0; number < 50; ++number) {
        std::string text = std::to_string(number);
        rtps::WriteParams params;
        EXPECT_TRUE(requests->write(&text, params));
        ASSERT_TRUE(next(*replies, reply, info)) << number;
        EXPECT_EQ(text + "!", reply);
        EXPECT_EQ(params.sample_identity(), info.related_sample_identity);
    }
}

// Fast DDS may be a second late with what takes the place of an announcement that was not delivered yet.
TEST_P(PlainPeers, our_requesters_are_announced_once) {
    struct Announcements : public dds::DomainParticipantListener {
        void on_publisher_discovery(dds::DomainParticipant*, rtps::WriterDiscoveryInfo&& info) override {
            if (info.info.topicName() == "End") {
                end = true;
            } else if (info.info.topicName() == "SRequest") {
                (info.status == rtps::WriterDiscoveryInfo::DISCOVERED_WRITER ? found : changed) += 1;
            }
        }
        std::atomic<int> found{0};
        std::atomic<int> changed{0};
        std::atomic<bool> end{false};
    } announcements;
    PlainParticipant participant(_domain, &announcements);
    const DDS_DataReaderQos bounded = reader_qos(4);
    TextRequester known(requester_params());
    ASSERT_TRUE(eventually([&] { return announcements.found == 1; })) << "the participants have met";
    TextRequester sharing(requester_params());
    TextRequester with_a_reader_of_its_own(requester_params().datareader_qos(bounded));
    // Announcements of writers come in their order.
    writer(writer_qos(), "End");
    EXPECT_TRUE(eventually([&] { return announcements.end.load(); }));
    EXPECT_EQ(3, announcements.found);
    EXPECT_EQ(0, announcements.changed);
}

// What the first requester that is found announces of itself.
struct AnnouncedRequester : public dds::DomainParticipantListener {
    void on_publisher_discovery(dds::DomainParticipant*, rtps::WriterDiscoveryInfo&& info) override {
        if (info.info.topicName() == "SRequest" && !taken) {
            octets = info.info.m_qos.m_userData.data_vec();
            taken = true;
        }
    }
    std::vector<rtps::octet> octets;
    std::atomic<bool> taken{false};
};

TEST_P(PlainPeers, a_stranger_that_announces_a_requesters_guid_does_not_silence_it) {
    AnnouncedRequester copy;
    PeerProcess server("echo", {std::to_string(_domain)});
    PlainParticipant listening(_domain, &copy);
    TextRequester requester(requester_params());
    const auto is_served = [&] { return requester.call("x", std::chrono::seconds(10)) == "x!"; };
    EXPECT_TRUE(is_served());
    ASSERT_TRUE(eventually([&] { return copy.taken.load(); }));
    {
        PlainParticipant stranger(_domain);
        dds::DataWriter* requests = stranger.writer("SRequest", copy.octets);
        dds::PublicationMatchedStatus matched;
        ASSERT_TRUE(eventually([&] { return requests->get_publication_matched_status(matched), matched.current_count == 1; }));
        EXPECT_TRUE(is_served());
    }
    EXPECT_TRUE(is_served());
    EXPECT_EQ("y!", TextRequester(requester_params()).call("y", std::chrono::seconds(10)))
        << "the server has seen the stranger leave";
    EXPECT_TRUE(is_served());
}

// Any line: calls once, and says how that went.
int calling(const std::vector<std::string>& arguments) {
    const Participant participant(on_loopback(std::stoi(arguments[0])));
    TextRequester requester(RequesterParams(participant).service_name("S"));
    return answer_lines([&](const std::string& text) {
        std::string reply = "no reply";
        thrown_by([&] { reply = requester.call(text, std::chrono::seconds(1)); });
        return reply;
    });
}

const KnownRole CALLING("calling", calling);

TEST_P(PlainPeers, a_requester_that_is_one_too_many_of_its_guid_is_served_when_others_leave) {
    AnnouncedRequester copy;
    PeerProcess requester("calling", {std::to_string(_domain)});
    PlainParticipant listening(_domain, &copy);
    ASSERT_TRUE(eventually([&] { return copy.taken.load(); }));
    requester.stop();  // so that the server comes to know of it at last
    std::list<PlainParticipant> crowd;
    PeerProcess server("echo", {std::to_string(_domain)});
    for (int count = 0; count < 9; ++count) {
        dds::DataWriter* const requests = crowd.emplace_back(_domain).writer("SRequest", copy.octets);
        dds::PublicationMatchedStatus matched;
        ASSERT_TRUE(eventually([&] { return requests->get_publication_matched_status(matched), matched.current_count == 1; }));
    }
    requester.go_on();
    EXPECT_EQ("no reply", requester.ask("x"));
    crowd.clear();
    EXPECT_TRUE(eventually([&] { return requester.ask("x") == "x!"; }));
}

// What peers announce is not to be trusted: octets that only look like ours are the application's.
TEST_P(PlainPeers, announcements_that_are_damaged_or_forged_are_plain_octets) {
    const std::string mark = "\x01norvane\x1a";  // version and magic
    const auto block = [&](const std::string& fields, unsigned length) {
        std::string text = "own" + fields;
        for (int octet = 0; octet < 4; ++octet) {
            text += static_cast<char>(length >> (8 * octet));
        }
        return text + mark;
    };
    const std::string guid = std::string("\x01\x10\0\0\0", 5) + std::string(16, 'g');
    const std::string property = std::string("\x06\x04\0\0\0p\0ab", 9);
    struct {
        const char* what;
        std::string octets;
        bool ours;
    } const CASES[] = {
        {"nothing", "", false},
        {"no fields", block("", 0), true},
        {"a GUID and something from a later version", block(guid + std::string("\x63\x01\0\0\0x", 6), 27), true},
        {"two properties of one name", block(property + property, 18), true},
        {"longer than all there is", block(guid, 1000), false},
        {"as long as can be", block(guid, 0xffffffff), false},
        {"cut off in a head", block(guid, 4), false},
        {"a field that is longer than the block", block(std::string("\x04\xff\xff\xff\xff", 5), 5), false},
        {"a short GUID", block(std::string("\x01\x02\0\0\0gg", 7), 7), false},
        {"a GUID of nobody", block(std::string("\x01\x10\0\0\0", 5) + std::string(16, '\0'), 21), false},
        {"a property without an end", block(std::string("\x06\x01\0\0\0p", 6), 6), false},
        {"another version", std::string("own") + std::string(4, '\0') + "\x02norvane\x1a", false},
    };
    PlainParticipant participant(_domain);
    int row = 0;
    for (const auto& each : CASES) {
        SCOPED_TRACE(each.what);
        const std::string name = "T" + std::to_string(row++);
        DDSDataReader& listening = reader(reader_qos(), name);
        participant.writer(name.c_str(), std::vector<rtps::octet>(each.octets.begin(), each.octets.end()));
        DDS_InstanceHandleSeq peers;
        ASSERT_TRUE(eventually([&] { return listening.get_matched_publications(peers) == DDS_RETCODE_OK && peers.length() == 1; }));
        DDS_PublicationBuiltinTopicData told;
        ASSERT_EQ(DDS_RETCODE_OK, listening.get_matched_publication_data(told, peers[0]));
        const DDS_Octet* const first = told.user_data.value.get_contiguous_buffer();
        EXPECT_EQ(each.ours ? "own" : each.octets, std::string(first, first + told.user_data.value.length()));
    }
}

}  // namespace
}  // namespace norvane::test
