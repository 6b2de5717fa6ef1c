// SPDX-License-Identifier: Apache-2.0
// Copies of samples from other processes that a full bounded reader refused, so that they need not be sent again. They are not
// acknowledged: to their writer they are still on the way.
//
// Invariants:
// 1. A sample is in it at most once. The samples of a writer are in order of their numbers, with gaps.
// 2. Of each writer it holds at most MOST_OCTETS and MOST_SAMPLES. The writer sends the others again.
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

    /// @return whether a sample of that many octets can be kept.
    bool has_room_for(const DDS_GUID_t& writer, std::size_t octets) const noexcept;
    /// Copies a sample, unless it is in the backlog already, or there is no room or no memory for it.
    void keep(const rtps::CacheChange_t& change) noexcept;

    /// Hands out the samples of a writer in order until one is not taken, and removes those that are.
    /// @param take  `bool(rtps::CacheChange_t&)`: whether the sample has been taken. May call `keep`, and may throw.
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

    /// Removes the samples of a writer that has left.
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
