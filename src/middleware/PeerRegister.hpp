// SPDX-License-Identifier: Apache-2.0
// The peers of one endpoint: those that match, those that a policy or the type rules out, and the counts that statuses report.
// Thread rule: any thread; a leaf lock of its own.
#ifndef NORVANE_MIDDLEWARE_PEERREGISTER_HPP
#define NORVANE_MIDDLEWARE_PEERREGISTER_HPP

#include <map>
#include <memory>
#include <mutex>

#include "middleware/Engine.hpp"
#include "norvane/dds/Status.hpp"

namespace norvane {
namespace mw {

/// Matched peers of either kind. The changes are those since the counts were last got.
struct MatchCounts {
    DDS_Long total = 0;
    DDS_Long total_change = 0;
    DDS_Long current = 0;
    DDS_Long current_change = 0;
    DDS_InstanceHandle_t last_handle;
};

class PeerRegister {
public:
    /// Notes an event. @return false when memory was too short to note it.
    bool note(const PeerEvent& event) noexcept;

    MatchCounts match_counts() noexcept;
    DDS_IncompatibleQosStatus incompatible_qos() noexcept;
    DDS_IncompatibleTypeStatus incompatible_type() noexcept;

    [[nodiscard]] DDS_ReturnCode_t list(DDS_InstanceHandleSeq& handles) noexcept;
    /// @return what is known of a matched peer; of the latest when several have one GUID; null when none has that handle.
    std::shared_ptr<const EndpointInfo> find(const DDS_InstanceHandle_t& handle) noexcept;

private:
    struct Order {
        bool operator()(const DDS_GUID_t& left, const DDS_GUID_t& right) const noexcept {
            return std::memcmp(left.value, right.value, sizeof left.value) < 0;
        }
    };

    std::mutex _mutex;
    // In order of arrival. A peer with the GUID of a killed one may appear before the loss of that one is noticed.
    std::multimap<DDS_GUID_t, std::shared_ptr<const EndpointInfo>, Order> _matched;
    MatchCounts _counts;
    DDS_IncompatibleQosStatus _incompatible_qos;
    DDS_IncompatibleTypeStatus _incompatible_type;
};

/// Fills what an engine tells peers, from QoS, topic and type. @throws std::bad_alloc
EndpointInfo describe(const std::string& topic_name, const std::string& type_name, const DDS_TypeOperations& type,
                      const DDS_DataWriterQos& qos);
EndpointInfo describe(const std::string& topic_name, const std::string& type_name, const DDS_TypeOperations& type,
                      const DDS_DataReaderQos& qos);

/// Fills what the object API reports about a peer. @return DDS_RETCODE_OK or DDS_RETCODE_OUT_OF_RESOURCES.
[[nodiscard]] DDS_ReturnCode_t report(const EndpointInfo& peer, DDS_SubscriptionBuiltinTopicData& data) noexcept;
[[nodiscard]] DDS_ReturnCode_t report(const EndpointInfo& peer, DDS_PublicationBuiltinTopicData& data) noexcept;

inline DDS_InstanceHandle_t handle_of(const DDS_GUID_t& guid) noexcept {
    DDS_InstanceHandle_t handle;
    std::memcpy(handle.value, guid.value, sizeof handle.value);
    return handle;
}

}  // namespace mw
}  // namespace norvane

#endif
