// SPDX-License-Identifier: Apache-2.0
#include "middleware/PeerRegister.hpp"

#include <algorithm>
#include <iterator>
#include <new>
#include <utility>

namespace norvane {
namespace mw {

namespace {

DDS_GUID_t guid_of(const DDS_InstanceHandle_t& handle) noexcept {
    DDS_GUID_t guid;
    std::memcpy(guid.value, handle.value, sizeof guid.value);
    return guid;
}

std::string text_of(const char* text) { return text != nullptr ? text : ""; }

template <typename Qos>
EndpointInfo describe_endpoint(const std::string& topic_name, const std::string& type_name, const DDS_TypeOperations& type,
                               const Qos& qos, const DDS_EntityNameQosPolicy& name) {
    EndpointInfo info;
    info.guid = qos.protocol.virtual_guid;
    info.topic_name = topic_name;
    info.type_name = type_name;
    info.type_hash = type.layout_hash;
    info.reliability = qos.reliability;
    info.durability = qos.durability;
    for (DDS_Long index = 0; index < qos.user_data.value.length(); ++index) {
        info.user_data.push_back(qos.user_data.value[index]);
    }
    info.name = text_of(name.name);
    info.role_name = text_of(name.role_name);
    for (DDS_Long index = 0; index < qos.property.value.length(); ++index) {
        const DDS_Property_t& property = qos.property.value[index];
        if (property.propagate != DDS_BOOLEAN_FALSE) {
            info.properties.emplace_back(text_of(property.name), text_of(property.value));
        }
    }
    return info;
}

bool replace(char*& target, const std::string& text) noexcept { return DDS_String_replace(&target, text.c_str()) != nullptr; }

template <typename Data>
DDS_ReturnCode_t report_endpoint(const EndpointInfo& peer, Data& data, DDS_EntityNameQosPolicy& name) noexcept {
    data.key = peer.guid;
    data.participant_key = peer.participant_guid;
    data.partner_key = peer.partner_guid;
    data.type_hash = peer.type_hash;
    data.reliability = peer.reliability;
    data.durability = peer.durability;
    const DDS_Long octets = static_cast<DDS_Long>(peer.user_data.size());
    bool complete = replace(data.topic_name, peer.topic_name) && replace(data.type_name, peer.type_name) &&
                    replace(name.name, peer.name) && replace(name.role_name, peer.role_name) &&
                    data.user_data.value.from_array(peer.user_data.data(), octets);
    // As the peer has them: it may have two of one name, which is no reason to refuse what else is known of it.
    const DDS_Long count = static_cast<DDS_Long>(peer.properties.size());
    complete = complete && data.property.value.ensure_length(count, count);
    for (DDS_Long index = 0; complete && index < count; ++index) {
        DDS_Property_t& property = data.property.value[index];
        const auto& announced = peer.properties[static_cast<std::size_t>(index)];
        complete = replace(property.name, announced.first) && replace(property.value, announced.second);
        property.propagate = DDS_BOOLEAN_TRUE;
    }
    return complete ? DDS_RETCODE_OK : DDS_RETCODE_OUT_OF_RESOURCES;
}

}  // namespace

bool PeerRegister::note(const PeerEvent& event) noexcept {
    std::lock_guard<std::mutex> lock(_mutex);
    switch (event.kind) {
        case PeerEventKind::MATCHED:
            ++_counts.total;
            ++_counts.total_change;
            ++_counts.current;
            ++_counts.current_change;
            _counts.last_handle = handle_of(event.peer->guid);
            try {
                _matched.emplace(event.peer->guid, event.peer);
            } catch (const std::bad_alloc&) {
                return false;
            }
            return true;
        case PeerEventKind::DELETED:
        case PeerEventKind::LOST: {
            // Counted also when there was no memory to list it: the two events come in pairs.
            const auto namesakes = _matched.equal_range(event.peer->guid);
            const auto gone =
                std::find_if(namesakes.first, namesakes.second, [&](const auto& peer) { return peer.second == event.peer; });
            if (gone != namesakes.second) {
                _matched.erase(gone);
            }
            --_counts.current;
            --_counts.current_change;
            _counts.last_handle = handle_of(event.peer->guid);
            return true;
        }
        case PeerEventKind::INCOMPATIBLE_QOS:
            ++_incompatible_qos.total_count;
            ++_incompatible_qos.total_count_change;
            _incompatible_qos.last_policy_id = event.policy;
            _incompatible_qos.last_offered = event.offered;
            _incompatible_qos.last_requested = event.requested;
            return true;
        case PeerEventKind::INCOMPATIBLE_TYPE:
            ++_incompatible_type.total_count;
            ++_incompatible_type.total_count_change;
            std::strncpy(_incompatible_type.last_type_name, event.peer->type_name.c_str(),
                         sizeof _incompatible_type.last_type_name - 1);
            return true;
    }
    return true;
}

MatchCounts PeerRegister::match_counts() noexcept {
    std::lock_guard<std::mutex> lock(_mutex);
    const MatchCounts counts = _counts;
    _counts.total_change = 0;
    _counts.current_change = 0;
    return counts;
}

DDS_IncompatibleQosStatus PeerRegister::incompatible_qos() noexcept {
    std::lock_guard<std::mutex> lock(_mutex);
    const DDS_IncompatibleQosStatus status = _incompatible_qos;
    _incompatible_qos.total_count_change = 0;
    return status;
}

DDS_IncompatibleTypeStatus PeerRegister::incompatible_type() noexcept {
    std::lock_guard<std::mutex> lock(_mutex);
    const DDS_IncompatibleTypeStatus status = _incompatible_type;
    _incompatible_type.total_count_change = 0;
    return status;
}

DDS_ReturnCode_t PeerRegister::list(DDS_InstanceHandleSeq& handles) noexcept {
    std::lock_guard<std::mutex> lock(_mutex);
    const DDS_Long count = static_cast<DDS_Long>(_matched.size());
    if (!handles.ensure_length(count, count > handles.maximum() ? count : handles.maximum())) {
        return DDS_RETCODE_OUT_OF_RESOURCES;
    }
    DDS_Long index = 0;
    for (auto peer = _matched.begin(); peer != _matched.end(); peer = _matched.upper_bound(peer->first)) {
        handles[index++] = handle_of(peer->first);
    }
    handles.length(index);
    return DDS_RETCODE_OK;
}

std::shared_ptr<const EndpointInfo> PeerRegister::find(const DDS_InstanceHandle_t& handle) noexcept {
    std::lock_guard<std::mutex> lock(_mutex);
    const auto namesakes = _matched.equal_range(guid_of(handle));
    return namesakes.first != namesakes.second ? std::prev(namesakes.second)->second : nullptr;
}

EndpointInfo describe(const std::string& topic_name, const std::string& type_name, const DDS_TypeOperations& type,
                      const DDS_DataWriterQos& qos) {
    return describe_endpoint(topic_name, type_name, type, qos, qos.publication_name);
}

EndpointInfo describe(const std::string& topic_name, const std::string& type_name, const DDS_TypeOperations& type,
                      const DDS_DataReaderQos& qos) {
    return describe_endpoint(topic_name, type_name, type, qos, qos.subscription_name);
}

DDS_ReturnCode_t report(const EndpointInfo& peer, DDS_SubscriptionBuiltinTopicData& data) noexcept {
    return report_endpoint(peer, data, data.subscription_name);
}

DDS_ReturnCode_t report(const EndpointInfo& peer, DDS_PublicationBuiltinTopicData& data) noexcept {
    return report_endpoint(peer, data, data.publication_name);
}

}  // namespace mw
}  // namespace norvane
