// SPDX-License-Identifier: Apache-2.0
// From QoS records to attributes of Fast DDS. The participant's properties choose transports and discovery; docs/engines.md lists
// them.
// Thread rule: plain functions on values.
#ifndef NORVANE_ENGINES_FASTDDS_ATTRIBUTES_HPP
#define NORVANE_ENGINES_FASTDDS_ATTRIBUTES_HPP

#include <cstdint>
#include <string>

#include <fastdds/rtps/attributes/HistoryAttributes.h>
#include <fastdds/rtps/attributes/RTPSParticipantAttributes.h>
#include <fastdds/rtps/attributes/ReaderAttributes.h>
#include <fastdds/rtps/attributes/WriterAttributes.h>
#include <fastrtps/attributes/TopicAttributes.h>

#include "engines/fastdds/identity.hpp"
#include "engines/fastdds/transport/UdpTransport.hpp"
#include "norvane/dds/qos.hpp"

namespace norvane {
namespace fastdds {

/// What a participant's QoS asks for.
struct ParticipantChoice {
    rtps::RTPSParticipantAttributes attributes;
    std::int64_t window = 4096;  ///< Samples on the way at most, of a writer without a bound of its own.
    bool writer_filters = true;
    TransportEnds ends;   ///< All null if the transports of Fast DDS are used unchanged.
    std::string warning;  ///< For the log; empty: nothing to warn of.
};

/// @param failure  gets the reason, which names the property, if the result is false.
/// @throws std::bad_alloc
bool choose(const DDS_DomainParticipantQos& qos, ParticipantChoice& choice, std::string& failure);

rtps::WriterAttributes writer_attributes(const std::string& topic_name, const DDS_DataWriterQos& qos);
rtps::ReaderAttributes reader_attributes(const std::string& topic_name, const DDS_DataReaderQos& qos);
rtps::HistoryAttributes history_attributes();
eprosima::fastrtps::TopicAttributes topic_attributes(const std::string& topic_name, const std::string& type_name);

}  // namespace fastdds
}  // namespace norvane

#endif
