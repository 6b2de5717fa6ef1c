// SPDX-License-Identifier: Apache-2.0
// Whether a writer and a reader of one topic go together, the same for all engines.
// Thread rule: a plain function on values.
#ifndef NORVANE_ENGINES_JUDGEMENT_HPP
#define NORVANE_ENGINES_JUDGEMENT_HPP

#include "middleware/Engine.hpp"

namespace norvane {
namespace mw {

/// @param of_one_type  whether their types are taken for the same: engines know more or less of a peer's type.
/// @return what becomes of the two, as both will be told; only `peer` is still to be filled in.
inline PeerEvent judge(const EndpointInfo& writer, const EndpointInfo& reader, bool of_one_type) noexcept {
    PeerEvent event = {PeerEventKind::MATCHED, nullptr};
    if (!of_one_type) {
        event.kind = PeerEventKind::INCOMPATIBLE_TYPE;
    } else if (writer.reliability.kind < reader.reliability.kind) {
        event.kind = PeerEventKind::INCOMPATIBLE_QOS;
        event.policy = DDS_RELIABILITY_QOS_POLICY_ID;
        event.offered = writer.reliability.kind;
        event.requested = reader.reliability.kind;
    } else if (writer.durability.kind < reader.durability.kind) {
        event.kind = PeerEventKind::INCOMPATIBLE_QOS;
        event.policy = DDS_DURABILITY_QOS_POLICY_ID;
        event.offered = writer.durability.kind;
        event.requested = reader.durability.kind;
    }
    return event;
}

}  // namespace mw
}  // namespace norvane

#endif
