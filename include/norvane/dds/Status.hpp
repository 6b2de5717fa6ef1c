// SPDX-License-Identifier: Apache-2.0
// Statuses of entities, what is known of matched peers, and the base of all entities.
#ifndef NORVANE_DDS_STATUS_HPP
#define NORVANE_DDS_STATUS_HPP

#include "norvane/dds/Condition.hpp"
#include "norvane/dds/qos.hpp"

/// Readers that match a writer. The changes are those since the status was last got.
struct DDS_PublicationMatchedStatus {
    DDS_Long total_count = 0;
    DDS_Long total_count_change = 0;
    DDS_Long current_count = 0;
    DDS_Long current_count_change = 0;
    DDS_InstanceHandle_t last_subscription_handle;
};

/// Writers that match a reader. The changes are those since the status was last got.
struct DDS_SubscriptionMatchedStatus {
    DDS_Long total_count = 0;
    DDS_Long total_count_change = 0;
    DDS_Long current_count = 0;
    DDS_Long current_count_change = 0;
    DDS_InstanceHandle_t last_publication_handle;
};

/// Peers that would match but for a policy.
struct DDS_IncompatibleQosStatus {
    DDS_Long total_count = 0;
    DDS_Long total_count_change = 0;
    DDS_QosPolicyId_t last_policy_id = DDS_INVALID_QOS_POLICY_ID;
    DDS_Long last_offered = 0;    ///< Kind that the writer offered.
    DDS_Long last_requested = 0;  ///< Kind that the reader asked for.
};
typedef DDS_IncompatibleQosStatus DDS_OfferedIncompatibleQosStatus;
typedef DDS_IncompatibleQosStatus DDS_RequestedIncompatibleQosStatus;

/// Peers on the same topic with another type.
struct DDS_IncompatibleTypeStatus {
    DDS_Long total_count = 0;
    DDS_Long total_count_change = 0;
    char last_type_name[256] = {};  ///< The peer's type, cut to fit.
};

/// Samples that a reader did not keep.
struct DDS_SampleLostStatus {
    DDS_LongLong total_count = 0;  ///< All of the below.
    DDS_LongLong total_count_change = 0;
    DDS_LongLong no_room_count = 0;     ///< Best effort, and the reader was full.
    DDS_LongLong replaced_count = 0;    ///< Keep-last, and a later one took its place before it was taken.
    DDS_LongLong closed_key_count = 0;  ///< For an index key that is not open (any more, or yet).
};

/// Counts of a writer, for example of samples for which there was no reader.
struct DDS_DataWriterCounts {
    DDS_LongLong written = 0;         ///< Successful writes.
    DDS_LongLong unaddressed = 0;     ///< Of these, those for which there was no reader at all.
    DDS_LongLong unacknowledged = 0;  ///< Of these, those that some reader has not acknowledged yet, as far as is known.
};

/// Samples of a reader, from its start on and now.
struct DDS_DataReaderCounts {
    DDS_LongLong received = 0;    ///< Taken in, whatever became of them.
    DDS_LongLong held = 0;        ///< Not taken yet.
    DDS_LongLong closed_key = 0;  ///< Dropped for an index key that is not open (any more).
    DDS_LongLong lost = 0;        ///< Dropped because there was no room, or replaced.
};

/// What a writer knows of a matched reader.
struct DDS_SubscriptionBuiltinTopicData {
    DDS_GUID_t key = DDS_GUID_UNKNOWN;              ///< GUID of the reader.
    DDS_GUID_t participant_key = DDS_GUID_UNKNOWN;  ///< GUID of its participant.
    DDS_GUID_t partner_key = DDS_GUID_UNKNOWN;      ///< Writer that belongs to it (its filter names it), else unknown.
    char* topic_name = nullptr;                     ///< Owned.
    char* type_name = nullptr;                      ///< Owned.
    DDS_UnsignedLongLong type_hash = 0;
    DDS_ReliabilityQosPolicy reliability;
    DDS_DurabilityQosPolicy durability;
    DDS_UserDataQosPolicy user_data;
    DDS_EntityNameQosPolicy subscription_name;
    DDS_PropertyQosPolicy property;  ///< Those that the reader propagates.

    DDS_SubscriptionBuiltinTopicData() = default;
    DDS_SubscriptionBuiltinTopicData(const DDS_SubscriptionBuiltinTopicData&) = delete;
    DDS_SubscriptionBuiltinTopicData& operator=(const DDS_SubscriptionBuiltinTopicData&) = delete;
    ~DDS_SubscriptionBuiltinTopicData() {
        DDS_String_free(topic_name);
        DDS_String_free(type_name);
    }
};

/// What a reader knows of a matched writer.
struct DDS_PublicationBuiltinTopicData {
    DDS_GUID_t key = DDS_GUID_UNKNOWN;              ///< Virtual GUID of the writer.
    DDS_GUID_t participant_key = DDS_GUID_UNKNOWN;  ///< GUID of its participant.
    DDS_GUID_t partner_key = DDS_GUID_UNKNOWN;      ///< Reader that belongs to it, as far as it says so, else unknown.
    char* topic_name = nullptr;                     ///< Owned.
    char* type_name = nullptr;                      ///< Owned.
    DDS_UnsignedLongLong type_hash = 0;
    DDS_ReliabilityQosPolicy reliability;
    DDS_DurabilityQosPolicy durability;
    DDS_UserDataQosPolicy user_data;
    DDS_EntityNameQosPolicy publication_name;
    DDS_PropertyQosPolicy property;  ///< Those that the writer propagates.

    DDS_PublicationBuiltinTopicData() = default;
    DDS_PublicationBuiltinTopicData(const DDS_PublicationBuiltinTopicData&) = delete;
    DDS_PublicationBuiltinTopicData& operator=(const DDS_PublicationBuiltinTopicData&) = delete;
    ~DDS_PublicationBuiltinTopicData() {
        DDS_String_free(topic_name);
        DDS_String_free(type_name);
    }
};

/// What all entities have in common. An entity belongs to the one that made it, and is deleted through it.
class NORVANE_EXPORT DDSEntity {
public:
    virtual ~DDSEntity();
    /// @return the entity's status condition; the same one each time, never null.
    virtual DDSStatusCondition* get_statuscondition() = 0;
    /// @return the statuses that have changed since they were last got.
    virtual DDS_StatusMask get_status_changes() = 0;
    /// @return the handle under which peers know the entity: its GUID; nil for one that peers do not see.
    virtual DDS_InstanceHandle_t get_instance_handle() = 0;

protected:
    DDSEntity() = default;
    DDSEntity(const DDSEntity&) = delete;
    DDSEntity& operator=(const DDSEntity&) = delete;
};

#endif
