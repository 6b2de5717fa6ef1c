// SPDX-License-Identifier: Apache-2.0
// The reply readers that the requesters of a participant share: one for each topic and type, there for as long as somebody uses it.
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
    /// @return whether a reader with these settings can do with a part of a shared one: it wants the answers to one writer, has no bound that
    ///         could stop the others, and nothing of its own to announce.
    static bool can_serve(const mw::ReaderSettings& settings) noexcept;

    /// @return the reader of that topic, type and pace, made if it is not there; null when Fast DDS refuses.
    /// @param failure  gets the reason, in words for the log.
    /// @throws std::bad_alloc
    std::shared_ptr<ReplyReader> get(const std::shared_ptr<Domain>& domain, const mw::ReaderSettings& settings,
                                     std::string& failure);

private:
    typedef std::tuple<std::string, std::string, std::uint64_t, DDS_Long, DDS_UnsignedLong> Kind;

    std::mutex _mutex;  // held while one is made: above all others
    std::map<Kind, std::weak_ptr<ReplyReader>> _readers;
};

}  // namespace fastdds
}  // namespace norvane

#endif
