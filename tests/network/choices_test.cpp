// SPDX-License-Identifier: Apache-2.0
// Transports and discovery, chosen by a participant's properties or in Fast DDS's own file.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "network/PeerProcess.hpp"
#include "support/ServiceFixture.hpp"
#include "support/TextFixture.hpp"

namespace norvane::test {
namespace {

typedef std::vector<std::pair<std::string, std::string>> Properties;

class Choices : public TextFixture {
protected:
    DDSDomainParticipant* make(const Properties& properties) {
        DDS_DomainParticipantQos qos;
        DDSPropertyQosPolicyHelper::add_property(qos.property, "norvane.engine", "fastdds", DDS_BOOLEAN_FALSE);
        for (const auto& property : properties) {
            DDSPropertyQosPolicyHelper::add_property(qos.property, property.first.c_str(), property.second.c_str(),
                                                     DDS_BOOLEAN_FALSE);
        }
        DDSDomainParticipant* made = factory().create_participant(_domain, qos, nullptr, 0);
        if (made != nullptr) {
            _participants.push_back(made);
        }
        return made;
    }
    /// Whether a sample gets from the one to the other.
    bool connected(DDSDomainParticipant& from, DDSDomainParticipant& to) {
        const std::string name = "T" + std::to_string(_topics++);
        DDSDataWriter* sender = from.create_datawriter(topic(name, &from), writer_qos(), nullptr, 0);
        DDSDataReader* receiver = to.create_datareader(topic(name, &to), reader_qos(), nullptr, 0);
        meet(*sender, *receiver);
        deliver(*sender, "x");
        return take(*receiver) == "x";
    }

    int _topics = 0;
};
INSTANTIATE_TEST_SUITE_P(Engine, Choices, ::testing::Values("fastdds"), engine_of_test);

TEST_P(Choices, participants_meet_over_the_transports_that_both_have) {
    const auto on = [&](const char* transports) {
        return make({{"norvane.fastdds.transports", transports}, {"norvane.fastdds.interfaces", "127.0.0.1"}});
    };
    DDSDomainParticipant* const one = on("shm");
    DDSDomainParticipant* const another = on("shm");
    DDSDomainParticipant* const wired = on("udp");
    DDSDomainParticipant* const open = on(" shm , udp");
    ASSERT_TRUE(one != nullptr && another != nullptr && wired != nullptr && open != nullptr);
    // One that all could hear is heard by those alone that have a transport in common with it.
    DDSDataWriter* const sender = one->create_datawriter(topic("All", one), writer_qos(), nullptr, 0);
    wired->create_datareader(topic("All", wired), reader_qos(), nullptr, 0);
    EXPECT_TRUE(connected(*wired, *open));
    EXPECT_TRUE(connected(*one, *another));
    meet(*sender, *another->create_datareader(topic("All", another), reader_qos(), nullptr, 0));
    DDS_PublicationMatchedStatus status;
    EXPECT_EQ(DDS_RETCODE_OK, sender->get_publication_matched_status(status));
    EXPECT_EQ(1, status.total_count);
}

TEST_P(Choices, experts_say_it_in_the_file_of_fast_dds) {
    const std::string file = ::testing::TempDir() + "norvane_profiles_" + std::to_string(::getpid()) + ".xml";
    std::ofstream(file) << R"(<?xml version="1.0" encoding="UTF-8"?>
<profiles xmlns="http://www.eprosima.com/XMLSchemas/fastRTPS_Profiles">
  <transport_descriptors>
    <transport_descriptor><transport_id>local</transport_id><type>UDPv4</type>
      <interfaceWhiteList><address>127.0.0.1</address></interfaceWhiteList></transport_descriptor>
  </transport_descriptors>
  <participant profile_name="at home"><rtps><name>expert</name>
    <userTransports><transport_id>local</transport_id></userTransports><useBuiltinTransports>false</useBuiltinTransports>
  </rtps></participant>
</profiles>)";
    DDSDomainParticipant* const expert = make({{"norvane.fastdds.profiles_file", file}, {"norvane.fastdds.profile", "at home"}});
    ASSERT_NE(nullptr, expert);
    EXPECT_TRUE(connected(*expert, _participant));
    std::remove(file.c_str());
}

TEST_P(Choices, a_property_that_is_not_understood_is_refused_by_name) {
    const Properties CASES = {
        {"transports", "pigeons"},
        {"interfaces", "127.0.0.1, 203.0.113.1"},
        {"initial_peers", "127.0.0.1:70000"},
        {"discovery_server", "127.0.0.1"},
        {"lease_ms", "soon"},
        {"datagram", "1000"},
        {"buffer", "65535"},
        {"buffer", "1073741825"},
        {"batching", "yes"},
        {"window", "-1"},
        {"max_sample_size", "65535"},
        {"writer_filters", "maybe"},
        {"reach", "moon"},
        {"faults", "drop=DATUM:0.1"},
        {"faults", "drop=DATA:1.1"},
        {"faults", "drop=DATA:nan"},
        {"faults", "drop=DATA:0.1;drop=DATA:0.2"},
        {"faults", "delay=5"},
        {"faults", "delay=61s"},
        {"faults", "gap=1"},
        {"faults", "rate=10"},
        {"faults", "seed=-1;;"},
        {"speed", "fast"},
        {"profile", "nowhere"},
        {"profiles_file", "/nowhere/at.all"},
    };
    for (const auto& each : CASES) {
        const LogCapture log;
        EXPECT_EQ(nullptr, make({{"norvane.fastdds." + each.first, each.second}})) << each.first << " = " << each.second;
        EXPECT_EQ(1, log.count("property norvane.fastdds." + each.first));
    }
}

TEST_P(Choices, what_is_too_long_to_announce_is_refused) {
    const auto writer_with = [&](DDS_Long octets) {
        DDS_DataWriterQos qos = writer_qos();
        EXPECT_TRUE(qos.user_data.value.ensure_length(octets, octets));
        return _participant.create_datawriter(topic("T"), qos, nullptr, 0);
    };
    EXPECT_EQ(nullptr, writer_with(60000));
    DDSDomainParticipant* const peer = join();
    meet(*writer_with(59800), *peer->create_datareader(topic("T", peer), reader_qos(), nullptr, 0));
}

TEST_P(Choices, a_buffer_beyond_the_limit_of_the_system_is_told_with_the_remedy) {
    constexpr long LARGE = 512L * 1024 * 1024;
    long granted = 0;
    if (!(std::ifstream("/proc/sys/net/core/rmem_max") >> granted) || granted >= LARGE) {
        GTEST_SKIP() << "this machine grants sockets any buffer, or does not tell";
    }
    const LogCapture log;
    EXPECT_NE(nullptr, make({{"norvane.fastdds.buffer", std::to_string(LARGE)}}));
    EXPECT_EQ(1, log.count("sysctl -w net.core.rmem_max=" + std::to_string(LARGE)));
    EXPECT_EQ(1, log.count("buffers of " + std::to_string(granted) + " octets to receive"));
}

TEST_P(Choices, a_sample_beyond_the_limit_is_refused_on_either_side) {
    DDSDomainParticipant* const narrow =
        make({{"norvane.fastdds.max_sample_size", "65536"}, {"norvane.fastdds.interfaces", "127.0.0.1"}});
    ASSERT_NE(nullptr, narrow);
    PeerProcess replier("echo", {std::to_string(_domain)});
    TextRequester requester(RequesterParams(narrow).service_name("S"));
    EXPECT_EQ("x!", requester.call("x", std::chrono::seconds(10)));
    const LogCapture log;
    const std::string longest(65536 - 9, 'x');  // with encapsulation, length and NUL
    EXPECT_THROW(requester.send_request(longest + "x"), OutOfResourcesException);
    EXPECT_LE(1, log.count("norvane.fastdds.max_sample_size allows 65536"));
    requester.send_request(longest);
    EXPECT_TRUE(eventually([&] { return log.count("a sample longer than norvane.fastdds.max_sample_size") == 1; }));
}

TEST_P(Choices, a_window_bounds_what_is_on_the_way) {
    DDSDomainParticipant* const narrow = make({{"norvane.fastdds.window", "5"}, {"norvane.fastdds.interfaces", "127.0.0.1"}});
    ASSERT_NE(nullptr, narrow);
    DDSDataWriter* const sender = narrow->create_datawriter(topic("T", narrow), writer_qos(NO_TIME), nullptr, 0);
    meet(*sender, reader(reader_qos(2)));
    EXPECT_EQ(7, fill(*sender));
}

}  // namespace
}  // namespace norvane::test
