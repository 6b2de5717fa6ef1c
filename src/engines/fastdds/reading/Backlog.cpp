// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/reading/Backlog.hpp"

#include <cstring>
#include <exception>
#include <utility>

#include "engines/fastdds/PayloadPool.hpp"

namespace norvane {
namespace fastdds {

bool Backlog::has_room_for(const DDS_GUID_t& writer, std::size_t octets) const noexcept {
    const auto place = _writers.find(writer);
    return place == _writers.end() ? octets <= MOST_OCTETS
                                   : place->second.samples.size() < MOST_SAMPLES && place->second.octets + octets <= MOST_OCTETS;
}

void Backlog::keep(const rtps::CacheChange_t& change) noexcept {
    const DDS_GUID_t writer = to_guid(change.writerGUID);
    if (!has_room_for(writer, change.serializedPayload.length)) {
        return;
    }
    try {
        OfWriter& of_writer = _writers[writer];
        if (of_writer.samples.count(change.sequenceNumber) != 0) {
            return;
        }
        auto copy = std::make_unique<rtps::CacheChange_t>();
        copy->kind = change.kind;
        copy->writerGUID = change.writerGUID;
        copy->sequenceNumber = change.sequenceNumber;
        copy->sourceTimestamp = change.sourceTimestamp;
        copy->write_params = change.write_params;
        // From the readers' pool, which would otherwise take the memory's place without giving it back.
        const rtps::SerializedPayload_t& payload = change.serializedPayload;
        if (PayloadPool::get()->get_payload(payload.length, *copy)) {
            std::memcpy(copy->serializedPayload.data, payload.data, payload.length);
            copy->serializedPayload.length = payload.length;
            copy->serializedPayload.encapsulation = payload.encapsulation;
            of_writer.octets += change.serializedPayload.length;
            of_writer.samples.emplace(change.sequenceNumber, std::move(copy));
        }
    } catch (const std::exception&) {
        // The writer sends it again.
    }
}

}  // namespace fastdds
}  // namespace norvane
