// SPDX-License-Identifier: Apache-2.0
// The reply readers that the requesters of a participant share: one for each topic and type, as long as a requester uses it.
// Any thread.
#ifndef NORVANE_ENGINES_FASTDDS_READING_REPLYREADERS_HPP
#define NORVANE_ENGINES_FASTDDS_READING_REPLYREADERS_HPP

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <tuple>

#include "middleware/Engine.hpp"

namespace norvane {
namespace fastdds {

class Domain;
class ReplyReader;

class ReplyReaders {
public:
    /// @return whether a share of a common reader suffices for these settings: answers to one writer, no bound that could stop
    ///         others, and nothing of its own to announce.
    static bool can_serve(const mw::ReaderSettings& settings) noexcept;

    /// @return the reader of that topic, type and response delay, made if there is none; null if Fast DDS refuses.
    /// @param failure  gets the reason, for the log.
    /// @throws std::bad_alloc
    std::shared_ptr<ReplyReader> get(const std::shared_ptr<Domain>& domain, const mw::ReaderSettings& settings,
                                     std::string& failure);

private:
    typedef std::tuple<std::string, std::string, std::uint64_t, DDS_Long, DDS_UnsignedLong> Kind;

    std::mutex _mutex;  // held while one is made; precedes every other lock
    std::map<Kind, std::weak_ptr<ReplyReader>> _readers;
};

}  // namespace fastdds
}  // namespace norvane

#endif
