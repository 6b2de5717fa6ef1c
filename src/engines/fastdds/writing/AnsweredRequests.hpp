// SPDX-License-Identifier: Apache-2.0
// The last request of a writer that was answered. A reply proves that its request arrived and, since delivery is in order, all
// earlier ones.
//
// The reader of the answers notes them, under its own mutex; the writer of the requests looks, under its own. Neither takes the
// other's.
#ifndef NORVANE_ENGINES_FASTDDS_WRITING_ANSWEREDREQUESTS_HPP
#define NORVANE_ENGINES_FASTDDS_WRITING_ANSWEREDREQUESTS_HPP

#include <cstdint>
#include <mutex>

#include "engines/fastdds/identity.hpp"
#include "platform/BriefMutex.hpp"

namespace norvane {
namespace fastdds {

class AnsweredRequests {
public:
    /// @param answering  a writer of the answering participant.
    void note(const rtps::GUID_t& answering, std::int64_t number) noexcept {
        const std::lock_guard<platform::BriefMutex> lock(_mutex);
        if (_answering != answering.guidPrefix) {
            _answering = answering.guidPrefix;
            _number = number;
        } else if (number > _number) {
            _number = number;
        }
    }
    /// @param asked  a reader of the participant that was asked.
    /// @return the highest number that it has answered; 0 if another participant has answered since.
    std::int64_t last_of(const rtps::GUID_t& asked) const noexcept {
        const std::lock_guard<platform::BriefMutex> lock(_mutex);
        return _answering == asked.guidPrefix ? _number : 0;
    }

private:
    mutable platform::BriefMutex _mutex;
    rtps::GuidPrefix_t _answering;
    std::int64_t _number = 0;
};

}  // namespace fastdds
}  // namespace norvane

#endif
