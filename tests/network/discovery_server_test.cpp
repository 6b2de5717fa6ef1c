// SPDX-License-Identifier: Apache-2.0
// Participants that look for each other at a discovery server, one of Fast DDS itself, and nowhere else.
#include <gtest/gtest.h>

#include <fastrtps/utils/IPLocator.h>
#include <fastdds/dds/domain/DomainParticipant.hpp>
#include <fastdds/dds/domain/DomainParticipantFactory.hpp>

#include <memory>
#include <string>
#include <vector>

#include "network/PeerProcess.hpp"
#include "network/Questions.hpp"
#include "support/Eventually.hpp"

namespace norvane::test {
namespace {

namespace dds = eprosima::fastdds::dds;
namespace rtps = eprosima::fastrtps::rtps;

// Arguments: domain; prefix of the server's GUID; port.
int discovery_server(const std::vector<std::string>& arguments) {
    dds::DomainParticipantQos qos;
    rtps::Locator_t address;
    rtps::IPLocator::setIPv4(address, 127, 0, 0, 1);
    rtps::IPLocator::setPhysicalPort(address, static_cast<std::uint16_t>(std::stoi(arguments[2])));
    qos.wire_protocol().builtin.discovery_config.discoveryProtocol = rtps::DiscoveryProtocol_t::SERVER;
    qos.wire_protocol().builtin.metatrafficUnicastLocatorList.push_back(address);
    std::istringstream(arguments[1]) >> qos.wire_protocol().prefix;
    dds::DomainParticipantFactory& factory = *dds::DomainParticipantFactory::get_instance();
    dds::DomainParticipant* const server = factory.create_participant(static_cast<dds::DomainId_t>(std::stoi(arguments[0])), qos);
    answer_lines([&](const std::string&) { return ""; }, server != nullptr);
    return factory.delete_participant(server) == eprosima::fastrtps::types::ReturnCode_t::RETCODE_OK ? 0 : 1;
}

const KnownRole SERVER("discovery_server", discovery_server);

TEST(DiscoveryServer, brings_those_together_who_look_at_it_and_is_not_needed_by_those_who_have_met) {
    const int domain = domain_of_test();
    // Ports of the domain that no participant of the test has.
    const auto port = [&](int number) { return std::to_string(7400 + 250 * domain + 200 + number); };
    const auto server_of = [&](int number) {
        return start_peer("discovery_server", {std::to_string(domain),
                                               "44.53.0" + std::to_string(number) + ".5f.45.50.52.4f.53.49.4d.41", port(number)});
    };
    const ParticipantParams params =
        on_loopback(domain).property("norvane.fastdds.discovery_server", "127.0.0.1:" + port(0) + ", 127.0.0.1:" + port(1));
    const auto oracle = words_of(params, {"Registered", ""});
    const auto first = start_peer("oracle", oracle);
    Participant participant(params);
    Asker asker(RequesterParams(participant).service_name("Registered"));
    const auto finds = [&](int repliers) { return eventually([&] { return asker.matched_repliers() == repliers; }); };

    EXPECT_FALSE(asker.wait_for_service(std::chrono::seconds(1))) << "they have met without a server";
    // One of the two is enough, and not the first.
    auto server = server_of(1);
    EXPECT_EQ("ok", ask_all(asker, "first", 3));
    server.reset();
    EXPECT_EQ("ok", ask_all(asker, "first", 3));
    // Another takes its place: newcomers are found, and who dies is missed.
    server = server_of(0);
    const auto second = start_peer("oracle", oracle);
    EXPECT_TRUE(finds(2));
    first->kill();
    EXPECT_TRUE(finds(1));
    EXPECT_EQ("ok", ask_all(asker, "second", 3));
}

}  // namespace
}  // namespace norvane::test
