// SPDX-License-Identifier: Apache-2.0
// Samples from other processes that a bounded reader refused for want of room, so that they need not come over the wire again. They
// are not acknowledged: to their writer they are still on the way.
//
// Invariants:
// 1. A sample is here once at most. Those of a writer are in order, and may have gaps.
// 2. The octets of a writer's samples are at most MOST_OCTETS, its samples at most MOST_SAMPLES: what is beyond is sent again by
//    the writer.
//
// Thread rule: under the mutex of the RTPS reader.
#ifndef NORVANE_ENGINES_FASTDDS_READING_BACKLOG_HPP
#define NORVANE_ENGINES_FASTDDS_READING_BACKLOG_HPP

#include <cstddef>
#include <map>
#include <memory>
#include <unordered_map>

#include <fastdds/rtps/common/CacheChange.h>

#include "engines/fastdds/identity.hpp"

namespace norvane {
namespace fastdds {

class Backlog {
public:
    static constexpr std::size_t MOST_OCTETS = 256 * 1024;
    static constexpr std::size_t MOST_SAMPLES = 1024;

    Backlog() = default;
    Backlog(const Backlog&) = delete;
    Backlog& operator=(const Backlog&) = delete;

    /// @return whether a sample of that size can be kept.
    bool has_room_for(const DDS_GUID_t& writer, std::size_t octets) const noexcept;
    /// Copies a sample, unless it is here already, or there is no room or no memory for it.
    void keep(const rtps::CacheChange_t& change) noexcept;

    /// Hands out the samples of a writer in their order until one is not taken, and forgets those that are.
    /// @param take  gets a sample, `rtps::CacheChange_t&`; @return whether it has been taken. It may call `keep`.
    template <typename Take>
    void hand_out(const DDS_GUID_t& writer, const Take& take) {
        const auto place = _writers.find(writer);
        if (place == _writers.end()) {
            return;
        }
        Samples& samples = place->second.samples;
        while (!samples.empty() && take(*samples.begin()->second)) {
            place->second.octets -= samples.begin()->second->serializedPayload.length;
            samples.erase(samples.begin());
        }
        if (samples.empty()) {
            _writers.erase(place);
        }
    }

    void forget(const DDS_GUID_t& writer) noexcept { _writers.erase(writer); }

private:
    typedef std::map<rtps::SequenceNumber_t, std::unique_ptr<rtps::CacheChange_t>> Samples;

    struct OfWriter {
        Samples samples;
        std::size_t octets = 0;
    };

    std::unordered_map<DDS_GUID_t, OfWriter, GuidHash> _writers;
};

}  // namespace fastdds
}  // namespace norvane

#endif
