// SPDX-License-Identifier: Apache-2.0
// The virtual GUID in the QoS of an endpoint: chosen by the application, or generated.
// Thread rule: free functions without state.
#ifndef NORVANE_MIDDLEWARE_VIRTUAL_GUID_HPP
#define NORVANE_MIDDLEWARE_VIRTUAL_GUID_HPP

#include "norvane/dds/qos.hpp"

namespace norvane {
namespace mw {

/// Decides on the GUID of an endpoint that is about to be made. A GUID that was generated for the endpoint whose QoS this is a copy
/// of is not taken over: the two would be one writer to their peers.
/// @return whether the engine is to generate it.
template <typename Protocol>
bool takes_generated_guid(Protocol& protocol) noexcept {
    if (protocol.virtual_guid == protocol.generated_virtual_guid) {
        protocol.virtual_guid = DDS_GUID_AUTO;
    }
    return protocol.virtual_guid == DDS_GUID_AUTO;
}

/// Enters the GUID that the engine has given the endpoint.
template <typename Protocol>
void note_guid(Protocol& protocol, const DDS_GUID_t& guid, bool was_generated) noexcept {
    protocol.virtual_guid = guid;
    protocol.generated_virtual_guid = was_generated ? guid : DDS_GUID_AUTO;
}

}  // namespace mw
}  // namespace norvane

#endif
