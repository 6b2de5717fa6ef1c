// SPDX-License-Identifier: Apache-2.0
// The scalar types, identifiers, times and state masks that every other header of the object API uses.
#ifndef NORVANE_DDS_TYPES_HPP
#define NORVANE_DDS_TYPES_HPP

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "norvane/dds/retcode.hpp"

typedef unsigned char DDS_Octet;
typedef unsigned char DDS_Boolean;
typedef std::int32_t DDS_Long;
typedef std::uint32_t DDS_UnsignedLong;
typedef std::int64_t DDS_LongLong;
typedef std::uint64_t DDS_UnsignedLongLong;
typedef DDS_Long DDS_DomainId_t;

constexpr DDS_Boolean DDS_BOOLEAN_TRUE = 1;
constexpr DDS_Boolean DDS_BOOLEAN_FALSE = 0;

/// The count that means no limit.
constexpr DDS_Long DDS_LENGTH_UNLIMITED = -1;

// ---- identities -------------------------------------------------------------------------------------------------

/// Global identifier of an endpoint: 16 octets, compared as bytes.
struct DDS_GUID_t {
    DDS_Octet value[16];
};

/// Asks the middleware to choose the GUID. Not the identifier of anything.
inline constexpr DDS_GUID_t DDS_GUID_AUTO = {
    {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff}};
/// No GUID: the value of a record that names no endpoint.
inline constexpr DDS_GUID_t DDS_GUID_UNKNOWN = {{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}};

/// @return non-zero when the 16 octets of both are the same. Neither may be null.
inline DDS_Boolean DDS_GUID_equals(const DDS_GUID_t* left, const DDS_GUID_t* right) noexcept {
    return std::memcmp(left->value, right->value, sizeof left->value) == 0 ? DDS_BOOLEAN_TRUE : DDS_BOOLEAN_FALSE;
}

/// Copies the 16 octets of `source`. Neither may be null; both may be the same.
inline void DDS_GUID_copy(DDS_GUID_t* destination, const DDS_GUID_t* source) noexcept {
    std::memmove(destination->value, source->value, sizeof destination->value);
}

inline bool operator==(const DDS_GUID_t& left, const DDS_GUID_t& right) noexcept {
    return DDS_GUID_equals(&left, &right) != DDS_BOOLEAN_FALSE;
}
inline bool operator!=(const DDS_GUID_t& left, const DDS_GUID_t& right) noexcept { return !(left == right); }

/// Position of a sample among those of its writer. The first sample of a writer has `high` 0 and `low` 1.
struct DDS_SequenceNumber_t {
    DDS_Long high;
    DDS_UnsignedLong low;
};

inline bool operator==(const DDS_SequenceNumber_t& left, const DDS_SequenceNumber_t& right) noexcept {
    return left.high == right.high && left.low == right.low;
}
inline bool operator!=(const DDS_SequenceNumber_t& left, const DDS_SequenceNumber_t& right) noexcept { return !(left == right); }

/// Asks the middleware to assign the writer's next number.
inline constexpr DDS_SequenceNumber_t DDS_AUTO_SEQUENCE_NUMBER = {-1, 0xffffffffU};

namespace DDS {
inline constexpr DDS_SequenceNumber_t SEQUENCE_NUMBER_ZERO = {0, 0};
inline constexpr DDS_SequenceNumber_t SEQUENCE_NUMBER_MAX = {0x7fffffff, 0xffffffffU};
/// No number: what a record holds that names no sample.
inline constexpr DDS_SequenceNumber_t SEQUENCE_NUMBER_UNKNOWN = {-1, 0};
}  // namespace DDS

/// Identifies one written sample: its writer and its number. Unknown after default construction.
struct DDS_SampleIdentity_t {
    DDS_GUID_t writer_guid = DDS_GUID_UNKNOWN;
    DDS_SequenceNumber_t sequence_number = DDS::SEQUENCE_NUMBER_UNKNOWN;
};

inline bool operator==(const DDS_SampleIdentity_t& left, const DDS_SampleIdentity_t& right) noexcept {
    return left.sequence_number == right.sequence_number && left.writer_guid == right.writer_guid;
}
inline bool operator!=(const DDS_SampleIdentity_t& left, const DDS_SampleIdentity_t& right) noexcept { return !(left == right); }

/// Asks the middleware to assign the writer's GUID and its next number.
inline constexpr DDS_SampleIdentity_t DDS_AUTO_SAMPLE_IDENTITY = {DDS_GUID_AUTO, DDS_AUTO_SEQUENCE_NUMBER};
/// Names no sample.
inline constexpr DDS_SampleIdentity_t DDS_UNKNOWN_SAMPLE_IDENTITY = {DDS_GUID_UNKNOWN, DDS::SEQUENCE_NUMBER_UNKNOWN};

/// Makes the record unknown. Not null.
inline void DDS_SampleIdentity_t_initialize(DDS_SampleIdentity_t* self) noexcept { *self = DDS_SampleIdentity_t(); }
/// Releases nothing: the record holds no memory. There for symmetry with the other records.
inline void DDS_SampleIdentity_t_finalize(DDS_SampleIdentity_t*) noexcept {}

/// Names a matched peer: its GUID. All octets zero: no peer (`DDS_HANDLE_NIL`).
struct DDS_InstanceHandle_t {
    DDS_Octet value[16] = {};
};
inline const DDS_InstanceHandle_t DDS_HANDLE_NIL = {};

inline bool operator==(const DDS_InstanceHandle_t& left, const DDS_InstanceHandle_t& right) noexcept {
    return std::memcmp(left.value, right.value, sizeof left.value) == 0;
}
inline bool operator!=(const DDS_InstanceHandle_t& left, const DDS_InstanceHandle_t& right) noexcept { return !(left == right); }

// ---- time -------------------------------------------------------------------------------------------------------

/// A length of time. `sec` may be negative; `nanosec` counts upwards from it and is below 1,000,000,000.
struct DDS_Duration_t {
    DDS_Long sec;
    DDS_UnsignedLong nanosec;
};

/// A point in time since the Unix epoch.
struct DDS_Time_t {
    DDS_LongLong sec;
    DDS_UnsignedLong nanosec;
};

inline constexpr DDS_Duration_t DDS_DURATION_ZERO = {0, 0};
/// Never over. Subtracting from it leaves it infinite.
inline constexpr DDS_Duration_t DDS_DURATION_INFINITE = {0x7fffffff, 0x7fffffffU};
/// What a sample carries whose source gave no time.
inline constexpr DDS_Time_t DDS_TIME_INVALID = {-1, 0xffffffffU};

constexpr bool operator==(const DDS_Duration_t& left, const DDS_Duration_t& right) noexcept {
    return left.sec == right.sec && left.nanosec == right.nanosec;
}
constexpr bool operator!=(const DDS_Duration_t& left, const DDS_Duration_t& right) noexcept { return !(left == right); }
constexpr bool operator==(const DDS_Time_t& left, const DDS_Time_t& right) noexcept {
    return left.sec == right.sec && left.nanosec == right.nanosec;
}
constexpr bool operator!=(const DDS_Time_t& left, const DDS_Time_t& right) noexcept { return !(left == right); }

namespace norvane {
namespace details {
// Saturates: the longest waits must not overflow into a time-out.
constexpr DDS_Duration_t normalized_duration(DDS_LongLong sec, DDS_LongLong nanosec) noexcept {
    constexpr DDS_LongLong NANOSECONDS = 1000000000;
    sec += nanosec / NANOSECONDS;
    nanosec %= NANOSECONDS;
    if (nanosec < 0) {
        nanosec += NANOSECONDS;
        --sec;
    }
    if (sec >= DDS_DURATION_INFINITE.sec) {
        return {0x7ffffffe, 999999999U};
    }
    if (sec < INT32_MIN) {
        return {INT32_MIN, 0};
    }
    return {static_cast<DDS_Long>(sec), static_cast<DDS_UnsignedLong>(nanosec)};
}
}  // namespace details
}  // namespace norvane

/// @return the time from `earlier` to `later`, negative when they are the other way round; the longest finite or the
///         shortest duration when it does not fit.
constexpr DDS_Duration_t operator-(const DDS_Time_t& later, const DDS_Time_t& earlier) noexcept {
    if (later.sec > earlier.sec && earlier.sec < 0 && later.sec > INT64_MAX + earlier.sec) {
        return {0x7ffffffe, 999999999U};
    }
    if (later.sec < 0 && earlier.sec > 0 && later.sec < INT64_MIN + earlier.sec) {
        return {INT32_MIN, 0};
    }
    return norvane::details::normalized_duration(
        later.sec - earlier.sec, static_cast<DDS_LongLong>(later.nanosec) - static_cast<DDS_LongLong>(earlier.nanosec));
}

/// @return `left` less `right`; infinite when `left` is infinite, and the shortest duration when only `right` is.
constexpr DDS_Duration_t operator-(const DDS_Duration_t& left, const DDS_Duration_t& right) noexcept {
    if (left == DDS_DURATION_INFINITE) {
        return DDS_DURATION_INFINITE;
    }
    if (right == DDS_DURATION_INFINITE) {
        return {INT32_MIN, 0};
    }
    return norvane::details::normalized_duration(
        static_cast<DDS_LongLong>(left.sec) - right.sec,
        static_cast<DDS_LongLong>(left.nanosec) - static_cast<DDS_LongLong>(right.nanosec));
}

// ---- states and statuses ----------------------------------------------------------------------------------------

typedef DDS_UnsignedLong DDS_SampleStateMask;
typedef DDS_UnsignedLong DDS_ViewStateMask;
typedef DDS_UnsignedLong DDS_InstanceStateMask;
typedef DDS_UnsignedLong DDS_StatusMask;

constexpr DDS_SampleStateMask DDS_READ_SAMPLE_STATE = 1;
constexpr DDS_SampleStateMask DDS_NOT_READ_SAMPLE_STATE = 2;
constexpr DDS_SampleStateMask DDS_ANY_SAMPLE_STATE = 0xffff;

// Topics are keyless: every sample is of one instance that is new and alive. A condition whose view or instance mask
// leaves that out selects nothing.
constexpr DDS_ViewStateMask DDS_NEW_VIEW_STATE = 1;
constexpr DDS_ViewStateMask DDS_NOT_NEW_VIEW_STATE = 2;
constexpr DDS_ViewStateMask DDS_ANY_VIEW_STATE = 0xffff;

constexpr DDS_InstanceStateMask DDS_ALIVE_INSTANCE_STATE = 1;
constexpr DDS_InstanceStateMask DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE = 2;
constexpr DDS_InstanceStateMask DDS_NOT_ALIVE_NO_WRITERS_INSTANCE_STATE = 4;
constexpr DDS_InstanceStateMask DDS_ANY_INSTANCE_STATE = 0xffff;

constexpr DDS_StatusMask DDS_STATUS_MASK_NONE = 0;
constexpr DDS_StatusMask DDS_OFFERED_INCOMPATIBLE_QOS_STATUS = 1U << 5;
constexpr DDS_StatusMask DDS_REQUESTED_INCOMPATIBLE_QOS_STATUS = 1U << 6;
constexpr DDS_StatusMask DDS_SAMPLE_LOST_STATUS = 1U << 7;
constexpr DDS_StatusMask DDS_DATA_AVAILABLE_STATUS = 1U << 10;
constexpr DDS_StatusMask DDS_PUBLICATION_MATCHED_STATUS = 1U << 13;
constexpr DDS_StatusMask DDS_SUBSCRIPTION_MATCHED_STATUS = 1U << 14;
constexpr DDS_StatusMask DDS_INCOMPATIBLE_TYPE_STATUS = 1U << 24;
constexpr DDS_StatusMask DDS_STATUS_MASK_ALL = 0xffffffffU;

#endif
