// SPDX-License-Identifier: Apache-2.0
// Which repliers a requester can call: those whose request reader its writer has matched, and whose reply writer its reader has
// matched.
//
// A replier of ours says which writer belongs to its reader, and counts as ready when both are matched. Readers and writers that
// announce no partner belong to plain peers: they are paired by their number, for each participant.
// Thread rule: any thread. Lock order: its own mutex, then the middleware's. Listens to both endpoints for as long as it lives.
#ifndef NORVANE_DETAILS_MATCHEDREPLIERS_HPP
#define NORVANE_DETAILS_MATCHEDREPLIERS_HPP

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "norvane/CallTimeoutException.hpp"
#include "norvane/Timeout.hpp"
#include "norvane/dds/DataReader.hpp"
#include "norvane/dds/DataWriter.hpp"
#include "norvane/export.hpp"

namespace norvane {
namespace details {

/// Why no reply came: as a value, and in words.
struct NoReply {
    TimeoutReason reason;
    std::string text;
};

class NORVANE_EXPORT MatchedRepliers {
public:
    /// @param writer, reader  of the requester; outlive this object.
    MatchedRepliers(DDSDataWriter& writer, DDSDataReader& reader);
    ~MatchedRepliers();
    MatchedRepliers(const MatchedRepliers&) = delete;
    MatchedRepliers& operator=(const MatchedRepliers&) = delete;

    /// @return how many repliers are ready.
    int count() const noexcept;
    /// Waits until so many are ready.
    /// @return false when the time ran out, or `close` was called.
    bool wait(const Deadline& deadline, int wanted);
    /// Has a function called after every change, from a thread of the middleware, without any lock of ours. Once, before there are
    /// waits.
    void set_on_change(std::function<void()> on_change);
    /// Ends every wait, now and later.
    void close() noexcept;
    /// @return number of the replier that became ready last; they are numbered from 1 on. 0 before the first. Never blocks.
    std::uint64_t newest() const noexcept;
    /// @return why no replier is ready: none is there, another QoS, another type, or one direction is missing.
    NoReply obstacle() const;
    /// @return why a request that was sent has no reply. @param newest  what `newest` returned before it was sent.
    NoReply silence(std::uint64_t newest) const;

private:
    class State;
    std::unique_ptr<State> _state;
};

}  // namespace details
}  // namespace norvane

#endif
