// SPDX-License-Identifier: Apache-2.0
// What a writer and a reader on Fast DDS have in common: what peers learn of it, its sink, the gate of its announcements and the
// gate of its calls.
//
// 1. Announcements run on the participant's dispatcher, with no lock held: they run user code, which may write, create and close.
// 2. Once `wait_until_quiet` has returned, no announcement runs or will run.
// 3. Once the gate of calls is shut and empty, no call into Fast DDS for this endpoint runs or will run.
#ifndef NORVANE_ENGINES_FASTDDS_ENDPOINT_HPP
#define NORVANE_ENGINES_FASTDDS_ENDPOINT_HPP

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_set>

#include "engines/Gate.hpp"
#include "engines/fastdds/discovery/Announcement.hpp"
#include "middleware/Engine.hpp"
#include "platform/Clock.hpp"

namespace norvane {
namespace fastdds {

class Endpoint : public std::enable_shared_from_this<Endpoint> {
public:
    Endpoint(const Endpoint&) = delete;
    Endpoint& operator=(const Endpoint&) = delete;

    const mw::EndpointInfo& info() const noexcept { return _info; }
    /// The GUID that was asked for belongs to another endpoint.
    void disown_guid() noexcept { _info.guid = DDS_GUID_UNKNOWN; }
    virtual bool is_writer() const noexcept = 0;
    /// @return whether it is a share of a common reader that takes the answers to that writer of this participant.
    virtual bool shares_answers_to(const DDS_GUID_t& /*asking*/) const noexcept { return false; }
    /// A requester that this endpoint may answer has come, changed or left. The participant's directory is locked.
    /// @param topic  of the answers; empty if it is not known.
    /// @return whether `run_timer` is to be called.
    virtual bool on_requester_changed(const std::string& /*topic*/) noexcept { return false; }

    /// Reports a peer to the sink, under the lock that orders events of this kind. Queues the listeners if the sink asks for it.
    void note(const mw::PeerEvent& event) noexcept;
    /// Reports an incompatible peer to the sink, once for each. The participant's directory is locked.
    void note_misfit(const rtps::GUID_t& peer, const mw::PeerEvent& event) noexcept;
    /// The peer has left; a later one of the same GUID is reported again. The participant's directory is locked.
    void forget_misfit(const rtps::GUID_t& peer) noexcept { _misfits.erase(to_guid(peer)); }

    /// Queues the listeners on the dispatcher.
    virtual void announce_soon() noexcept = 0;
    /// Runs the listeners, unless the endpoint is closing. On the dispatcher.
    void announce() noexcept;
    /// When its timer runs next. Guarded by the dispatcher.
    std::int64_t due_ns() const noexcept { return _due_ns; }
    void set_due(std::int64_t due_ns) noexcept { _due_ns = due_ns; }

    /// @return whether the endpoint was not queued yet.
    bool take_place_in_queue() noexcept { return !_queued.exchange(true); }

    /// Does what is due. On the worker. @return when to run again; NO_DEADLINE: not before the timer is started again.
    virtual std::int64_t run_timer() noexcept = 0;
    /// A writer: asks its readers what they lack, soon and on another thread. Under locks of Fast DDS.
    virtual void ask_soon() noexcept {}
    /// A writer: @return the number of fragments of a sample that it keeps; 0 if it does not keep that sample.
    /// @param number  of Fast DDS.
    virtual std::uint32_t fragments_of(std::int64_t /*number*/) noexcept { return 0; }

protected:
    Endpoint(const mw::EndpointInfo& info) : _info(info) {}
    virtual ~Endpoint() = default;

    void attach(mw::PeerSink& sink) noexcept { _peer_sink = &sink; }
    /// @return false if it was closed already.
    bool begin_to_close() noexcept { return !_closing.exchange(true); }
    void wait_until_quiet() noexcept {
        _announcements.shut();
        _announcements.wait_until_empty();
    }

    std::mutex _close_mutex;  // a second thread that closes waits for the first
    mw::EndpointInfo _info;   // constant once the endpoint is enabled
    mw::Gate _calls;

private:
    mw::PeerSink* _peer_sink = nullptr;
    mw::Gate _announcements;
    std::atomic<bool> _queued{false};
    std::int64_t _due_ns = platform::NO_DEADLINE;
    std::atomic<bool> _closing{false};
    std::unordered_set<DDS_GUID_t, GuidHash> _misfits;  // guarded by the participant's directory
};

/// A call into Fast DDS on behalf of an endpoint.
class Call {
public:
    explicit Call(mw::Gate& gate) noexcept : _gate(gate), _may_run(gate.enter()) {}
    ~Call() { _gate.leave(); }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;
    /// @return false when the endpoint is closing.
    bool may_run() const noexcept { return _may_run; }

private:
    mw::Gate& _gate;
    const bool _may_run;
};

}  // namespace fastdds
}  // namespace norvane

#endif
