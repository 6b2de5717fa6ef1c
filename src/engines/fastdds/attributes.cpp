// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/attributes.hpp"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstring>
#include <memory>
#include <system_error>
#include <utility>
#include <vector>

#include <fastdds/rtps/attributes/ServerAttributes.h>
#include <fastdds/rtps/transport/UDPv4TransportDescriptor.h>
#include <fastdds/rtps/transport/shared_mem/SharedMemTransportDescriptor.h>
#include <fastrtps/attributes/ParticipantAttributes.h>
#include <fastrtps/utils/IPLocator.h>
#include <fastrtps/xmlparser/XMLProfileManager.h>

#include "engines/fastdds/Endpoint.hpp"
#include "engines/fastdds/discovery/Announcement.hpp"
#include "engines/fastdds/discovery/LocalWriters.hpp"
#include "engines/fastdds/transport/Interfaces.hpp"
#include "engines/fastdds/transport/UdpTransport.hpp"
#include "engines/fastdds/transport/socket_buffers.hpp"
#include "middleware/clock.hpp"

namespace norvane {
namespace fastdds {

namespace {

std::uint32_t fragments_of(const rtps::GUID_t& writer, std::int64_t number) {
    const std::shared_ptr<Endpoint> found = LocalWriters::get().find(to_guid(writer));
    return found ? found->fragments_of(number) : 0;
}

namespace transport = eprosima::fastdds::rtps;
using eprosima::fastrtps::Duration_t;

constexpr const char* OWN_PREFIX = "norvane.";
// Octets of small messages in one datagram: the payload of an Ethernet frame.
constexpr std::size_t BATCH = 1472;
constexpr std::chrono::microseconds USUAL_PAUSE{25};
// Octets that a socket, or a segment of shared memory, holds: a few samples of 1 MiB. What does not fit is lost, and sent again
// after a heartbeat.
constexpr std::uint32_t USUAL_BUFFER = 4 * 1024 * 1024;
// Of a participant: all addresses that its machine has had since it was made (Fast DDS keeps them).
constexpr std::size_t MOST_PLACES = 16;
constexpr long SMALLEST_LIMIT = 64 * 1024;  // of a sample
constexpr long SMALLEST_BUFFER = 64 * 1024;
constexpr long LARGEST_BUFFER = 1024 * 1024 * 1024;

// Splits at commas, and trims white space.
std::vector<std::string> split(const std::string& text) {
    std::vector<std::string> parts;
    for (std::size_t start = 0; start <= text.size();) {
        const std::size_t end = std::min(text.find(',', start), text.size());
        const std::size_t first = text.find_first_not_of(' ', start);
        if (first < end) {
            parts.push_back(text.substr(first, text.find_last_not_of(' ', end - 1) + 1 - first));
        }
        start = end + 1;
    }
    return parts;
}

bool to_number(const std::string& text, long least, long most, long& number) {
    const char* const end = text.data() + text.size();
    const std::from_chars_result result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end && number >= least && number <= most;
}

// "address" or "address:port". Port 0 means none.
bool to_locator(const std::string& text, rtps::Locator_t& locator) {
    const std::size_t colon = text.find(':');
    long port = 0;
    if (colon != std::string::npos && !to_number(text.substr(colon + 1), 1, 65535, port)) {
        return false;
    }
    locator.kind = LOCATOR_KIND_UDPv4;
    locator.port = static_cast<std::uint32_t>(port);
    return rtps::IPLocator::setIPv4(locator, text.substr(0, colon));
}

Duration_t to_duration(const DDS_Duration_t& duration) { return Duration_t(duration.sec, duration.nanosec); }

// The application's own properties, without those of norvane.
template <typename Properties>
void pass_on(const DDS_PropertyQosPolicy& policy, Properties& properties) {
    for (DDS_Long index = 0; index < policy.value.length(); ++index) {
        const DDS_Property_t& property = policy.value[index];
        if (property.name != nullptr && property.value != nullptr &&
            std::strncmp(property.name, OWN_PREFIX, std::strlen(OWN_PREFIX)) != 0) {
            properties.emplace_back(std::string(property.name), std::string(property.value));
        }
    }
}

// The access control of Fast DDS reads the topic here, before it knows it otherwise. Precedes the application's properties: the
// first of a name counts.
void name_topic(const std::string& topic_name, rtps::EndpointAttributes& attributes) {
    attributes.properties.properties().emplace_back("topic_name", topic_name);
}

// Default: UDP alone. The shared memory of Fast DDS silently loses samples to a process that replaces a killed one.
struct Transports {
    bool chosen = true;
    bool udp = true;
    bool shared_memory = false;
    std::vector<std::string> interfaces;
    std::shared_ptr<Interfaces> own = std::make_shared<Interfaces>();  // of this machine
    std::uint32_t datagram = 0;  // octets at most; 0: the default of Fast DDS on this machine, what fits the interfaces beyond it
    std::uint32_t buffer = USUAL_BUFFER;
    bool batching = true;
    std::chrono::microseconds pause = USUAL_PAUSE;  // longest between samples that leave together
    bool has_faults = false;
    FaultPlan faults;
};

void add_transports(const Transports& transports, ParticipantChoice& choice) {
    rtps::RTPSParticipantAttributes& attributes = choice.attributes;
    if (!transports.chosen) {
        return;
    }
    attributes.useBuiltinTransports = false;
    if (transports.shared_memory) {
        auto shared_memory = std::make_shared<transport::SharedMemTransportDescriptor>();
        shared_memory->segment_size(transports.buffer);
        attributes.userTransports.push_back(shared_memory);
    }
    if (transports.udp) {
        auto udp = std::make_shared<transport::UDPv4TransportDescriptor>();
        udp->interfaceWhiteList = transports.interfaces;
        udp->sendBufferSize = transports.buffer;
        udp->receiveBufferSize = transports.buffer;
        choice.warning = warning_of_small_socket_buffers(transports.buffer);
        if (transports.datagram != 0) {
            udp->maxMessageSize = transports.datagram;
        }
        choice.ends.inbox = std::make_shared<Inbox>();
        choice.ends.jumps = std::make_shared<NumberJumps>();
        choice.ends.refusals = std::make_shared<Refusals>();
        if (transports.has_faults) {
            choice.ends.faults = std::make_shared<FaultInjector>(transports.faults);
        }
        choice.ends.far_datagram = transports.datagram == 0 ? transports.own->datagram_that_fits(transports.interfaces) : 0;
        choice.ends.interfaces = transports.own;
        choice.ends.addresses = transports.interfaces;
        choice.ends.moved_peers = std::make_shared<MovedPeers>();
        // A part of the buffer is left to what is small.
        choice.ends.paths = std::make_shared<Paths>(granted_socket_buffers(transports.buffer).receive / 4 * 3,
                                                    *choice.ends.interfaces, fragments_of);
        if (transports.batching) {
            const std::size_t limit = transports.datagram != 0 ? std::min<std::size_t>(BATCH, transports.datagram) : BATCH;
            choice.ends.outbox = std::make_shared<Outbox>(limit, transports.pause);
        }
        attributes.userTransports.push_back(make_udp_transport(udp, choice.ends));
    }
}

// Takes one property of norvane. @return false if its value or its name is not valid. @param reason  gets why, if there is more to say.
bool take(const std::string& name, const std::string& value, ParticipantChoice& choice, Transports& transports,
          std::string& reason) {
    rtps::BuiltinAttributes& builtin = choice.attributes.builtin;
    long number = 0;
    if (name == "norvane.fastdds.transports") {
        transports.chosen = true;
        transports.udp = transports.shared_memory = false;
        for (const std::string& part : split(value)) {
            if (part != "udp" && part != "shm") {
                return false;
            }
            (part == "udp" ? transports.udp : transports.shared_memory) = true;
        }
        return transports.udp || transports.shared_memory;
    }
    if (name == "norvane.fastdds.interfaces") {
        transports.chosen = true;
        transports.interfaces = split(value);
        return !transports.interfaces.empty() &&
               // On an address that the machine does not have a participant would hear nothing, without an error.
               std::all_of(transports.interfaces.begin(), transports.interfaces.end(),
                           [&](const std::string& address) { return transports.own->have(address); });
    }
    if (name == "norvane.fastdds.datagram" && to_number(value, 1024, 65500, number)) {
        transports.chosen = true;
        transports.datagram = static_cast<std::uint32_t>(number);
        return true;
    }
    if (name == "norvane.fastdds.buffer" && to_number(value, SMALLEST_BUFFER, LARGEST_BUFFER, number)) {
        transports.chosen = true;
        transports.buffer = static_cast<std::uint32_t>(number);
        return true;
    }
    if (name == "norvane.fastdds.batching" && (value == "on" || value == "off" || to_number(value, 1, 1000, number))) {
        transports.chosen = true;
        transports.batching = value != "off";
        transports.pause = number != 0 ? std::chrono::microseconds(number) : USUAL_PAUSE;
        return true;
    }
    if (name == "norvane.fastdds.faults") {
        transports.chosen = true;
        transports.has_faults = !value.empty();
        return transports.faults.parse(value, reason);
    }
    if (name == "norvane.fastdds.initial_peers") {
        const std::vector<std::string> peers = split(value);
        return !peers.empty() && std::all_of(peers.begin(), peers.end(), [&](const std::string& peer) {
            rtps::Locator_t locator;
            const bool legal = to_locator(peer, locator);
            builtin.initialPeersList.push_back(locator);
            return legal;
        });
    }
    if (name == "norvane.fastdds.discovery_server") {
        const std::vector<std::string> servers = split(value);
        builtin.discovery_config.discoveryProtocol = rtps::DiscoveryProtocol::CLIENT;
        for (std::size_t index = 0; index < servers.size(); ++index) {
            rtps::Locator_t locator;
            if (!to_locator(servers[index], locator) || locator.port == 0) {
                return false;
            }
            transport::RemoteServerAttributes server;
            server.metatrafficUnicastLocatorList.push_back(locator);
            if (!transport::get_server_client_default_guidPrefix(static_cast<int>(index), server.guidPrefix)) {
                return false;
            }
            builtin.discovery_config.m_DiscoveryServers.push_back(server);
        }
        return !servers.empty();
    }
    if (name == "norvane.fastdds.lease_ms" && to_number(value, 100, 3600 * 1000, number)) {
        builtin.discovery_config.leaseDuration = Duration_t(static_cast<long double>(number) / 1000);
        builtin.discovery_config.leaseDuration_announcementperiod = Duration_t(static_cast<long double>(number) / 3000);
        return true;
    }
    if (name == "norvane.fastdds.reach" && (value == "process" || value == "host" || value == "network")) {
        const std::uint32_t ignored = value == "process" ? rtps::FILTER_DIFFERENT_PROCESS | rtps::FILTER_DIFFERENT_HOST
                                      : value == "host"  ? static_cast<std::uint32_t>(rtps::FILTER_DIFFERENT_HOST)
                                                         : 0U;
        builtin.discovery_config.ignoreParticipantFlags = static_cast<rtps::ParticipantFilteringFlags_t>(ignored);
        return true;
    }
    if (name == "norvane.fastdds.window" && to_number(value, 1, 1000 * 1000, number)) {
        choice.window = number;
        return true;
    }
    if (name == "norvane.fastdds.max_sample_size" && to_number(value, SMALLEST_LIMIT, LARGEST_SAMPLE, number)) {
        choice.ends.largest_sample = static_cast<std::uint32_t>(number);
        return true;
    }
    if (name == "norvane.fastdds.writer_filters" && (value == "on" || value == "off")) {
        choice.writer_filters = value == "on";
        return true;
    }
    return false;
}

const DDS_Property_t* find(const DDS_PropertyQosPolicy& policy, const char* name) noexcept {
    for (DDS_Long index = 0; index < policy.value.length(); ++index) {
        const DDS_Property_t& property = policy.value[index];
        if (property.name != nullptr && property.value != nullptr && std::strcmp(property.name, name) == 0) {
            return &property;
        }
    }
    return nullptr;
}

// Whether security is asked for and would be missing: without this one property Fast DDS silently runs without security.
bool lacks_security(const rtps::PropertyPolicy& policy) {
    const std::vector<rtps::Property>& properties = policy.properties();
    return rtps::PropertyPolicyHelper::find_property(policy, "dds.sec.auth.plugin") == nullptr &&
           std::any_of(properties.begin(), properties.end(),
                       [](const rtps::Property& property) { return property.name().compare(0, 8, "dds.sec.") == 0; });
}

}  // namespace

bool choose(const DDS_DomainParticipantQos& qos, ParticipantChoice& choice, std::string& failure) {
    using eprosima::fastrtps::xmlparser::XMLP_ret;
    using eprosima::fastrtps::xmlparser::XMLProfileManager;
    rtps::RTPSParticipantAttributes& attributes = choice.attributes;
    attributes.allocation.locators.max_unicast_locators = MOST_PLACES;
    attributes.builtin.discovery_config.leaseDuration = Duration_t(2, 0);
    attributes.builtin.discovery_config.leaseDuration_announcementperiod = Duration_t(0, 666000000);

    // The profiles file first: single properties override it.
    const DDS_Property_t* const file = find(qos.property, "norvane.fastdds.profiles_file");
    if (file != nullptr && XMLProfileManager::loadXMLFile(std::string(file->value)) != XMLP_ret::XML_OK) {
        failure = std::string("property norvane.fastdds.profiles_file: Fast DDS does not accept \"") + file->value + "\"";
        return false;
    }
    const DDS_Property_t* const profile = find(qos.property, "norvane.fastdds.profile");
    if (profile != nullptr) {
        eprosima::fastrtps::ParticipantAttributes read;
        if (XMLProfileManager::fillParticipantAttributes(profile->value, read) != XMLP_ret::XML_OK) {
            failure =
                std::string("property norvane.fastdds.profile: Fast DDS has no participant profile \"") + profile->value + "\"";
            return false;
        }
        attributes = read.rtps;
    }
    Transports transports;
    transports.chosen = profile == nullptr;
    for (DDS_Long index = 0; index < qos.property.value.length(); ++index) {
        const DDS_Property_t& property = qos.property.value[index];
        if (property.name == nullptr || property.value == nullptr || &property == file || &property == profile ||
            std::strncmp(property.name, "norvane.fastdds.", std::strlen("norvane.fastdds.")) != 0) {
            continue;
        }
        std::string reason = "is not understood, or names what this machine does not have";
        if (!take(property.name, property.value, choice, transports, reason)) {
            failure = std::string("property ") + property.name + ": \"" + property.value + "\" " + reason;
            return false;
        }
    }
    if (transports.has_faults && !transports.udp) {
        failure = "property norvane.fastdds.faults: it applies to UDP only: add udp to the property norvane.fastdds.transports";
        return false;
    }
    add_transports(transports, choice);
    pass_on(qos.property, attributes.properties.properties());
    if (lacks_security(attributes.properties)) {
        failure = "property dds.sec.auth.plugin is missing: other properties ask for security, and without it there would be none";
        return false;
    }
    if (qos.participant_name.name != nullptr) {
        attributes.setName(qos.participant_name.name);
    }
    if (qos.user_data.value.length() > static_cast<DDS_Long>(MOST_USER_DATA)) {
        failure = "peers find no participant that has more than " + std::to_string(MOST_USER_DATA) + " octets of user data";
        return false;
    }
    for (DDS_Long index = 0; index < qos.user_data.value.length(); ++index) {
        attributes.userData.push_back(qos.user_data.value[index]);
    }
    return true;
}

rtps::WriterAttributes writer_attributes(const std::string& topic_name, const DDS_DataWriterQos& qos) {
    const DDS_RtpsReliableWriterProtocol_t& protocol = qos.protocol.rtps_reliable_writer;
    rtps::WriterAttributes attributes;
    attributes.endpoint.topicKind = rtps::NO_KEY;
    attributes.endpoint.reliabilityKind = qos.reliability.kind == DDS_RELIABLE_RELIABILITY_QOS ? rtps::RELIABLE : rtps::BEST_EFFORT;
    attributes.endpoint.durabilityKind =
        qos.durability.kind == DDS_TRANSIENT_LOCAL_DURABILITY_QOS ? rtps::TRANSIENT_LOCAL : rtps::VOLATILE;
    // Heartbeats are sent only while something is unacknowledged, so there is one period, the fast one.
    attributes.times.heartbeatPeriod = to_duration(mw::shorter(protocol.fast_heartbeat_period, protocol.heartbeat_period));
    attributes.times.initialHeartbeatDelay = Duration_t(0, 0);
    attributes.times.nackResponseDelay = to_duration(protocol.min_nack_response_delay);
    // Without it the timer thread of Fast DDS would wake up for every sample. A sample sent less than that ago is not sent again.
    attributes.times.nackSupressionDuration = Duration_t(0, 5000000);
    attributes.mode = rtps::SYNCHRONOUS_WRITER;
    name_topic(topic_name, attributes.endpoint);
    pass_on(qos.property, attributes.endpoint.properties.properties());
    return attributes;
}

rtps::ReaderAttributes reader_attributes(const std::string& topic_name, const DDS_DataReaderQos& qos) {
    rtps::ReaderAttributes attributes;
    attributes.endpoint.topicKind = rtps::NO_KEY;
    attributes.endpoint.reliabilityKind = qos.reliability.kind == DDS_RELIABLE_RELIABILITY_QOS ? rtps::RELIABLE : rtps::BEST_EFFORT;
    attributes.endpoint.durabilityKind =
        qos.durability.kind == DDS_TRANSIENT_LOCAL_DURABILITY_QOS ? rtps::TRANSIENT_LOCAL : rtps::VOLATILE;
    attributes.times.heartbeatResponseDelay = to_duration(qos.protocol.rtps_reliable_reader.min_heartbeat_response_delay);
    // With the default of 70 ms a tenth of all first calls would take that long. It is also the interval at which a reader asks a
    // writer that has not matched it yet: with none, hundreds of times for each peer that starts.
    attributes.times.initialAcknackDelay = Duration_t(0, 1000000);
    name_topic(topic_name, attributes.endpoint);
    pass_on(qos.property, attributes.endpoint.properties.properties());
    return attributes;
}

rtps::HistoryAttributes history_attributes() {
    // Samples are of all sizes. (A payload size of 0 would reserve no memory at all.)
    return rtps::HistoryAttributes(rtps::DYNAMIC_REUSABLE_MEMORY_MODE, 64, 0, 0);
}

eprosima::fastrtps::TopicAttributes topic_attributes(const std::string& topic_name, const std::string& type_name) {
    eprosima::fastrtps::TopicAttributes attributes(topic_name.c_str(), type_name.c_str(), rtps::NO_KEY);
    attributes.auto_fill_type_object = false;
    attributes.auto_fill_type_information = false;
    return attributes;
}

}  // namespace fastdds
}  // namespace norvane
