// SPDX-License-Identifier: Apache-2.0
// QoS records. Where a field has no effect, or on some engines only, the field says so. Copies are deep.
// Thread rule: plain values; one thread at a time.
#ifndef NORVANE_DDS_QOS_HPP
#define NORVANE_DDS_QOS_HPP

#include <utility>

#include "norvane/dds/sequence.hpp"
#include "norvane/dds/string.hpp"
#include "norvane/dds/types.hpp"
#include "norvane/export.hpp"

enum DDS_ReliabilityQosPolicyKind { DDS_BEST_EFFORT_RELIABILITY_QOS = 1, DDS_RELIABLE_RELIABILITY_QOS = 2 };
enum DDS_DurabilityQosPolicyKind {
    DDS_VOLATILE_DURABILITY_QOS = 0,
    DDS_TRANSIENT_LOCAL_DURABILITY_QOS = 1,
    DDS_TRANSIENT_DURABILITY_QOS = 2,  ///< Refused at creation: nothing here outlives its writer.
    DDS_PERSISTENT_DURABILITY_QOS = 3  ///< Refused at creation.
};
enum DDS_HistoryQosPolicyKind { DDS_KEEP_LAST_HISTORY_QOS = 0, DDS_KEEP_ALL_HISTORY_QOS = 1 };

/// Names a policy, in the statuses of incompatible peers.
enum DDS_QosPolicyId_t { DDS_INVALID_QOS_POLICY_ID = 0, DDS_DURABILITY_QOS_POLICY_ID = 2, DDS_RELIABILITY_QOS_POLICY_ID = 11 };

/// Whether a sample may be lost. A reader that asks for reliable matches reliable writers only.
struct DDS_ReliabilityQosPolicy {
    DDS_ReliabilityQosPolicyKind kind = DDS_BEST_EFFORT_RELIABILITY_QOS;
    /// Longest time that a write blocks when there is no room; zero never blocks, infinite waits without limit. (At a reader:
    /// unused.)
    DDS_Duration_t max_blocking_time = {0, 100000000};
};

/// Whether a reader that comes late gets what was written before. A reader matches writers that offer at least its kind.
struct DDS_DurabilityQosPolicy {
    DDS_DurabilityQosPolicyKind kind = DDS_VOLATILE_DURABILITY_QOS;
};

/// How many samples are kept: all, or the last `depth` of a reader (or of a transient-local writer).
struct DDS_HistoryQosPolicy {
    DDS_HistoryQosPolicyKind kind = DDS_KEEP_LAST_HISTORY_QOS;
    DDS_Long depth = 1;  ///< At least 1; not looked at with keep-all.
};

/// Bounds of what is kept.
struct DDS_ResourceLimitsQosPolicy {
    /// Samples that a reader holds at most, loaned ones included; that a writer holds at most. Unlimited, or at least 1.
    DDS_Long max_samples = DDS_LENGTH_UNLIMITED;
    /// Samples that a reader makes room for when it is created. At least 0, at most `max_samples`.
    DDS_Long initial_samples = 32;
};

/// Octets that matched peers see.
struct DDS_UserDataQosPolicy {
    DDS_OctetSeq value;
};

/// Names of an endpoint that matched peers see. Owned strings; may be null.
struct NORVANE_EXPORT DDS_EntityNameQosPolicy {
    char* name = nullptr;
    char* role_name = nullptr;

    DDS_EntityNameQosPolicy() = default;
    DDS_EntityNameQosPolicy(const DDS_EntityNameQosPolicy& other);
    DDS_EntityNameQosPolicy& operator=(const DDS_EntityNameQosPolicy& other);
    ~DDS_EntityNameQosPolicy();
};

/// A name with a value. Owned strings; may be null.
struct NORVANE_EXPORT DDS_Property_t {
    char* name = nullptr;
    char* value = nullptr;
    DDS_Boolean propagate = DDS_BOOLEAN_FALSE;  ///< Whether matched peers see it.

    DDS_Property_t() = default;
    DDS_Property_t(const DDS_Property_t& other);
    DDS_Property_t& operator=(const DDS_Property_t& other);
    // A sequence that grows moves its elements: a copy could run out of memory half-way, unnoticed.
    DDS_Property_t(DDS_Property_t&& other) noexcept
        : name(std::exchange(other.name, nullptr)), value(std::exchange(other.value, nullptr)), propagate(other.propagate) {}
    DDS_Property_t& operator=(DDS_Property_t&& other) noexcept {
        std::swap(name, other.name);
        std::swap(value, other.value);
        std::swap(propagate, other.propagate);
        return *this;
    }
    ~DDS_Property_t();
};
typedef norvane::Sequence<DDS_Property_t> DDS_PropertySeq;

/// Named values for the middleware, the engine, or peers.
struct DDS_PropertyQosPolicy {
    DDS_PropertySeq value;
};

/// Look-up and change of a property policy.
class NORVANE_EXPORT DDSPropertyQosPolicyHelper {
public:
    /// @param name  not null.
    /// @return the property, part of `policy`; null when there is none of that name.
    static DDS_Property_t* lookup_property(DDS_PropertyQosPolicy& policy, const char* name);
    static const DDS_Property_t* lookup_property(const DDS_PropertyQosPolicy& policy, const char* name);
    /// Adds a property.
    /// @param name, value  not null; copied.
    /// @return DDS_RETCODE_OK; DDS_RETCODE_BAD_PARAMETER for null; DDS_RETCODE_PRECONDITION_NOT_MET when the name is there
    ///         already; DDS_RETCODE_OUT_OF_RESOURCES when memory is short.
    static DDS_ReturnCode_t add_property(DDS_PropertyQosPolicy& policy, const char* name, const char* value, DDS_Boolean propagate);
    /// Adds a property, or changes the one of that name. Results as `add_property`.
    static DDS_ReturnCode_t assert_property(DDS_PropertyQosPolicy& policy, const char* name, const char* value,
                                            DDS_Boolean propagate);
    /// @return DDS_RETCODE_OK; DDS_RETCODE_PRECONDITION_NOT_MET when there is none of that name.
    static DDS_ReturnCode_t remove_property(DDS_PropertyQosPolicy& policy, const char* name);
};

/// Protocol settings of a reliable writer. The embedded engine has no protocol: there all of them are accepted, validated and not
/// used.
struct DDS_RtpsReliableWriterProtocol_t {
    DDS_Duration_t heartbeat_period = {3,
                                       0};  ///< The shorter of this and the next is the period, while samples are unacknowledged.
    DDS_Duration_t fast_heartbeat_period = {3, 0};         ///< See heartbeat_period.
    DDS_Duration_t late_joiner_heartbeat_period = {3, 0};  ///< Accepted, validated, not used.
    DDS_Long max_heartbeat_retries = 10;              ///< Accepted, validated, not used: heartbeats are repeated without limit.
    DDS_Long heartbeats_per_max_samples = 8;          ///< Accepted, validated, not used.
    DDS_Duration_t min_nack_response_delay = {0, 0};  ///< Delay of the answer to a negative acknowledgement.
    DDS_Duration_t max_nack_response_delay = {0, 200000000};  ///< Accepted, validated, not used.
    DDS_Long min_send_window_size = DDS_LENGTH_UNLIMITED;     ///< Accepted, validated, not used.
    DDS_Long max_send_window_size =
        DDS_LENGTH_UNLIMITED;  ///< Accepted, validated, not used: see the property "norvane.fastdds.window".
};

/// Protocol settings of a reliable reader. The embedded engine has no protocol: there both are accepted, validated and not used.
struct DDS_RtpsReliableReaderProtocol_t {
    DDS_Duration_t min_heartbeat_response_delay = {0, 0};          ///< Delay of the answer to a heartbeat.
    DDS_Duration_t max_heartbeat_response_delay = {0, 500000000};  ///< Accepted, validated, not used.
};

struct DDS_DataWriterProtocolQosPolicy {
    /// GUID under which the writer's samples are identified. Automatic: generated, and given by `get_qos` of the writer.
    /// The unknown GUID, or one that a writer of the domain (as far as the engine sees) has, is refused at creation.
    DDS_GUID_t virtual_guid = DDS_GUID_AUTO;
    /// Set by `get_qos` when the GUID was generated. A record in which both are equal is a copy of that writer's: another writer
    /// made from it gets a GUID of its own.
    DDS_GUID_t generated_virtual_guid = DDS_GUID_AUTO;
    DDS_RtpsReliableWriterProtocol_t rtps_reliable_writer;
};

struct DDS_DataReaderProtocolQosPolicy {
    /// GUID of the reader. Automatic: generated, and given by `get_qos` of the reader.
    DDS_GUID_t virtual_guid = DDS_GUID_AUTO;
    DDS_GUID_t generated_virtual_guid = DDS_GUID_AUTO;  ///< As for a writer.
    DDS_RtpsReliableReaderProtocol_t rtps_reliable_reader;
};

struct DDS_DataWriterResourceLimitsQosPolicy {
    /// Readers whose filter the writer evaluates itself; the others filter at their end. Unlimited, or at least 0. (Network
    /// engines.)
    DDS_Long max_remote_reader_filters = 32;
};

struct DDS_DataReaderResourceLimitsQosPolicy {
    /// Samples that one take returns at most. Unlimited, or at least 1. Reads are not bounded by it.
    DDS_Long max_samples_per_read = DDS_LENGTH_UNLIMITED;
};

/// Property of a data reader, to be propagated: the virtual GUID of the data writer that belongs to it, as 32 hexadecimal digits.
/// Peers see it as the reader's partner, and so know which writer and which reader are one application's.
inline constexpr const char* DDS_PARTNER_WRITER_PROPERTY = "norvane.partner_writer_guid";

namespace norvane {

/// Property of a data writer, to be propagated, with the value "true": a reader that is filtered on the virtual GUID of the writer
/// takes the answers to its samples. Network engines hold such an answer until that reader has matched. Every requester sets it on
/// its request writer.
inline constexpr const char* AWAITS_REPLIES_PROPERTY = "norvane.awaits_replies";

}  // namespace norvane

/// Settings of a participant. The property "norvane.engine" chooses its engine.
struct DDS_DomainParticipantQos {
    DDS_UserDataQosPolicy user_data;
    DDS_PropertyQosPolicy property;
    DDS_EntityNameQosPolicy participant_name;
};

struct DDS_PublisherQos {
    DDS_EntityNameQosPolicy publisher_name;
};

struct DDS_SubscriberQos {
    DDS_EntityNameQosPolicy subscriber_name;
};

struct DDS_TopicQos {
    DDS_UserDataQosPolicy topic_data;
};

struct DDS_DataWriterQos {
    DDS_DurabilityQosPolicy durability;
    DDS_ReliabilityQosPolicy reliability{DDS_RELIABLE_RELIABILITY_QOS};
    DDS_HistoryQosPolicy history;
    DDS_ResourceLimitsQosPolicy resource_limits;
    DDS_UserDataQosPolicy user_data;
    DDS_DataWriterProtocolQosPolicy protocol;
    DDS_DataWriterResourceLimitsQosPolicy writer_resource_limits;
    DDS_EntityNameQosPolicy publication_name;
    DDS_PropertyQosPolicy property;
};

struct DDS_DataReaderQos {
    DDS_DurabilityQosPolicy durability;
    DDS_ReliabilityQosPolicy reliability;
    DDS_HistoryQosPolicy history;
    DDS_ResourceLimitsQosPolicy resource_limits;
    DDS_UserDataQosPolicy user_data;
    DDS_DataReaderProtocolQosPolicy protocol;
    DDS_DataReaderResourceLimitsQosPolicy reader_resource_limits;
    DDS_EntityNameQosPolicy subscription_name;
    DDS_PropertyQosPolicy property;
};

/// Deep copy.
/// @return DDS_RETCODE_OK; DDS_RETCODE_BAD_PARAMETER when either is null; DDS_RETCODE_OUT_OF_RESOURCES when a string or a sequence
///         could not be copied (the destination is then partly filled).
NORVANE_EXPORT DDS_ReturnCode_t DDS_DataWriterQos_copy(DDS_DataWriterQos* destination, const DDS_DataWriterQos* source);
/// As DDS_DataWriterQos_copy, for a reader.
NORVANE_EXPORT DDS_ReturnCode_t DDS_DataReaderQos_copy(DDS_DataReaderQos* destination, const DDS_DataReaderQos* source);

// Passing one of these objects itself to a create operation means: use the default of the parent. Known by address.
NORVANE_EXPORT extern const DDS_DomainParticipantQos DDS_PARTICIPANT_QOS_DEFAULT;
NORVANE_EXPORT extern const DDS_PublisherQos DDS_PUBLISHER_QOS_DEFAULT;
NORVANE_EXPORT extern const DDS_SubscriberQos DDS_SUBSCRIBER_QOS_DEFAULT;
NORVANE_EXPORT extern const DDS_TopicQos DDS_TOPIC_QOS_DEFAULT;
NORVANE_EXPORT extern const DDS_DataWriterQos DDS_DATAWRITER_QOS_DEFAULT;
NORVANE_EXPORT extern const DDS_DataReaderQos DDS_DATAREADER_QOS_DEFAULT;

#endif
