// SPDX-License-Identifier: Apache-2.0
// Conversions of GUIDs, numbers, identities and times between ours and those of Fast DDS.
#ifndef NORVANE_ENGINES_FASTDDS_IDENTITY_HPP
#define NORVANE_ENGINES_FASTDDS_IDENTITY_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <fastdds/rtps/common/Guid.h>
#include <fastdds/rtps/common/SampleIdentity.h>
#include <fastdds/rtps/common/SequenceNumber.h>
#include <fastdds/rtps/common/Time_t.h>

#include "engines/GuidHash.hpp"
#include "middleware/SequenceNumber.hpp"
#include "norvane/dds/types.hpp"

namespace norvane {
namespace fastdds {

namespace rtps = eprosima::fastrtps::rtps;

inline DDS_GUID_t to_guid(const rtps::GUID_t& guid) noexcept {
    DDS_GUID_t result;
    std::memcpy(result.value, guid.guidPrefix.value, sizeof guid.guidPrefix.value);
    std::memcpy(result.value + sizeof guid.guidPrefix.value, guid.entityId.value, sizeof guid.entityId.value);
    return result;
}

inline rtps::GUID_t to_rtps(const DDS_GUID_t& guid) noexcept {
    rtps::GUID_t result;
    std::memcpy(result.guidPrefix.value, guid.value, sizeof result.guidPrefix.value);
    std::memcpy(result.entityId.value, guid.value + sizeof result.guidPrefix.value, sizeof result.entityId.value);
    return result;
}

using mw::to_integer;
using mw::to_sequence_number;

inline DDS_SequenceNumber_t to_sequence_number(const rtps::SequenceNumber_t& number) noexcept { return {number.high, number.low}; }

inline DDS_SampleIdentity_t to_identity(const rtps::SampleIdentity& identity) noexcept {
    return {to_guid(identity.writer_guid()), to_sequence_number(identity.sequence_number())};
}

inline rtps::SampleIdentity to_rtps(const DDS_SampleIdentity_t& identity) noexcept {
    rtps::SampleIdentity result;
    result.writer_guid(to_rtps(identity.writer_guid));
    result.sequence_number(rtps::SequenceNumber_t(identity.sequence_number.high, identity.sequence_number.low));
    return result;
}

inline DDS_Time_t to_time(const rtps::Time_t& time) noexcept { return {time.seconds(), time.nanosec()}; }

inline rtps::Time_t to_rtps(const DDS_Time_t& time) noexcept {
    rtps::Time_t result;
    result.seconds(static_cast<std::int32_t>(time.sec));
    result.nanosec(time.nanosec);
    return result;
}

using mw::GuidHash;

}  // namespace fastdds
}  // namespace norvane

#endif
