// SPDX-License-Identifier: Apache-2.0
// The bodies of the QoS records: deep copies, the property look-up, and the objects that stand for "the default of the parent".
// Thread rule: plain values; one thread at a time.
#include "norvane/dds/qos.hpp"

#include <cstring>
#include <utility>

const DDS_DomainParticipantQos DDS_PARTICIPANT_QOS_DEFAULT;
const DDS_PublisherQos DDS_PUBLISHER_QOS_DEFAULT;
const DDS_SubscriberQos DDS_SUBSCRIBER_QOS_DEFAULT;
const DDS_TopicQos DDS_TOPIC_QOS_DEFAULT;
const DDS_DataWriterQos DDS_DATAWRITER_QOS_DEFAULT;
const DDS_DataReaderQos DDS_DATAREADER_QOS_DEFAULT;

namespace {

// A copy that ran out of memory leaves null where its source has a string.
bool is_copied(const char* copy, const char* source) noexcept { return source == nullptr || copy != nullptr; }

bool copy_checked(DDS_EntityNameQosPolicy& destination, const DDS_EntityNameQosPolicy& source) {
    destination = source;
    return is_copied(destination.name, source.name) && is_copied(destination.role_name, source.role_name);
}

bool copy_checked(DDS_PropertyQosPolicy& destination, const DDS_PropertyQosPolicy& source) {
    if (!destination.value.copy_from(source.value)) {
        return false;
    }
    for (DDS_Long index = 0; index < source.value.length(); ++index) {
        const DDS_Property_t& copy = destination.value[index];
        const DDS_Property_t& original = source.value[index];
        if (!is_copied(copy.name, original.name) || !is_copied(copy.value, original.value)) {
            return false;
        }
    }
    return true;
}

// What writers and readers have in common.
template <typename Qos>
bool copy_shared(Qos& destination, const Qos& source) {
    destination.durability = source.durability;
    destination.reliability = source.reliability;
    destination.history = source.history;
    destination.resource_limits = source.resource_limits;
    destination.protocol = source.protocol;
    return destination.user_data.value.copy_from(source.user_data.value) && copy_checked(destination.property, source.property);
}

DDS_Long index_of(const DDS_PropertyQosPolicy& policy, const char* name) noexcept {
    for (DDS_Long index = 0; name != nullptr && index < policy.value.length(); ++index) {
        const char* const found = policy.value[index].name;
        if (found != nullptr && std::strcmp(found, name) == 0) {
            return index;
        }
    }
    return -1;
}

}  // namespace

DDS_EntityNameQosPolicy::DDS_EntityNameQosPolicy(const DDS_EntityNameQosPolicy& other)
    : name(DDS_String_dup(other.name)), role_name(DDS_String_dup(other.role_name)) {}

DDS_EntityNameQosPolicy& DDS_EntityNameQosPolicy::operator=(const DDS_EntityNameQosPolicy& other) {
    DDS_String_replace(&name, other.name);
    DDS_String_replace(&role_name, other.role_name);
    return *this;
}

DDS_EntityNameQosPolicy::~DDS_EntityNameQosPolicy() {
    DDS_String_free(name);
    DDS_String_free(role_name);
}

DDS_Property_t::DDS_Property_t(const DDS_Property_t& other)
    : name(DDS_String_dup(other.name)), value(DDS_String_dup(other.value)), propagate(other.propagate) {}

DDS_Property_t& DDS_Property_t::operator=(const DDS_Property_t& other) {
    DDS_String_replace(&name, other.name);
    DDS_String_replace(&value, other.value);
    propagate = other.propagate;
    return *this;
}

DDS_Property_t::~DDS_Property_t() {
    DDS_String_free(name);
    DDS_String_free(value);
}

DDS_Property_t* DDSPropertyQosPolicyHelper::lookup_property(DDS_PropertyQosPolicy& policy, const char* name) {
    const DDS_Long index = index_of(policy, name);
    return index >= 0 ? &policy.value[index] : nullptr;
}

const DDS_Property_t* DDSPropertyQosPolicyHelper::lookup_property(const DDS_PropertyQosPolicy& policy, const char* name) {
    const DDS_Long index = index_of(policy, name);
    return index >= 0 ? &policy.value[index] : nullptr;
}

DDS_ReturnCode_t DDSPropertyQosPolicyHelper::add_property(DDS_PropertyQosPolicy& policy, const char* name, const char* value,
                                                          DDS_Boolean propagate) {
    if (name == nullptr || value == nullptr) {
        return DDS_RETCODE_BAD_PARAMETER;
    }
    if (index_of(policy, name) >= 0) {
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    }
    // The strings come first: once the sequence has grown, nothing can fail any more. They may also be part of this very policy.
    char* const name_copy = DDS_String_dup(name);
    char* const value_copy = DDS_String_dup(value);
    const DDS_Long length = policy.value.length();
    if (name_copy == nullptr || value_copy == nullptr || !policy.value.ensure_length(length + 1, length + 4)) {
        DDS_String_free(name_copy);
        DDS_String_free(value_copy);
        return DDS_RETCODE_OUT_OF_RESOURCES;
    }
    // An element that is reused still has its old strings.
    DDS_Property_t& property = policy.value[length];
    DDS_String_free(property.name);
    DDS_String_free(property.value);
    property.name = name_copy;
    property.value = value_copy;
    property.propagate = propagate;
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t DDSPropertyQosPolicyHelper::assert_property(DDS_PropertyQosPolicy& policy, const char* name, const char* value,
                                                             DDS_Boolean propagate) {
    DDS_Property_t* const property = lookup_property(policy, name);
    if (property == nullptr || value == nullptr) {
        return add_property(policy, name, value, propagate);
    }
    char* const value_copy = DDS_String_dup(value);
    if (value_copy == nullptr) {
        return DDS_RETCODE_OUT_OF_RESOURCES;
    }
    DDS_String_free(property->value);
    property->value = value_copy;
    property->propagate = propagate;
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t DDSPropertyQosPolicyHelper::remove_property(DDS_PropertyQosPolicy& policy, const char* name) {
    const DDS_Long index = index_of(policy, name);
    if (index < 0) {
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    }
    const DDS_Long last = policy.value.length() - 1;
    for (DDS_Long place = index; place < last; ++place) {
        std::swap(policy.value[place], policy.value[place + 1]);
    }
    policy.value.length(last);
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t DDS_DataWriterQos_copy(DDS_DataWriterQos* destination, const DDS_DataWriterQos* source) {
    if (destination == nullptr || source == nullptr) {
        return DDS_RETCODE_BAD_PARAMETER;
    }
    destination->writer_resource_limits = source->writer_resource_limits;
    return copy_shared(*destination, *source) && copy_checked(destination->publication_name, source->publication_name)
               ? DDS_RETCODE_OK
               : DDS_RETCODE_OUT_OF_RESOURCES;
}

DDS_ReturnCode_t DDS_DataReaderQos_copy(DDS_DataReaderQos* destination, const DDS_DataReaderQos* source) {
    if (destination == nullptr || source == nullptr) {
        return DDS_RETCODE_BAD_PARAMETER;
    }
    destination->reader_resource_limits = source->reader_resource_limits;
    return copy_shared(*destination, *source) && copy_checked(destination->subscription_name, source->subscription_name)
               ? DDS_RETCODE_OK
               : DDS_RETCODE_OUT_OF_RESOURCES;
}
