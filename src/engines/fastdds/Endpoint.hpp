// SPDX-License-Identifier: Apache-2.0
// What a writer and a reader on Fast DDS have in common: what peers learn of it, its sink, the gate of its announcements and the gate of
// its calls.
//
// 1. Announcements run on the participant's dispatcher, with no lock held: they run user code, which may write, create and close.
// 2. Once `wait_until_quiet` has returned, no announcement runs, and none begins.
// 3. Once the gate of calls is shut and empty, no call into Fast DDS on behalf of this endpoint runs, and none begins.
#ifndef NORVANE_ENGINES_FASTDDS_ENDPOINT_HPP
#define NORVANE_ENGINES_FASTDDS_ENDPOINT_HPP

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_set>

#include "engines/fastdds/discovery/Announcement.hpp"
#include "middleware/Engine.hpp"
#include "platform/Clock.hpp"
#include "platform/FutexWord.hpp"

namespace norvane {
namespace fastdds {

/// Counts those inside; once shut, nobody comes in.
class Gate {
public:
    /// @return false when it is shut. `leave` must follow in any case.
    bool enter() noexcept { return (_inside.fetch_add(1) & SHUT) == 0; }
    void leave() noexcept {
        if (_inside.fetch_sub(1) == (SHUT | 1U)) {
            platform::wake_all(_inside);
        }
    }
    bool is_shut() const noexcept { return (_inside.load() & SHUT) != 0; }
    void shut() noexcept { _inside.fetch_or(SHUT); }
    void wait_until_empty() noexcept {
        for (std::uint32_t seen = _inside.load(); seen != SHUT; seen = _inside.load()) {
            platform::wait_on(_inside, seen, platform::NO_DEADLINE);
        }
    }

private:
    static constexpr std::uint32_t SHUT = 0x80000000U;

    platform::FutexWord _inside{0};
};

class Endpoint : public std::enable_shared_from_this<Endpoint> {
public:
    Endpoint(const Endpoint&) = delete;
    Endpoint& operator=(const Endpoint&) = delete;

    const mw::EndpointInfo& info() const noexcept { return _info; }
    /// The GUID that was asked for is another's.
    void disown_guid() noexcept { _info.guid = DDS_GUID_UNKNOWN; }
    virtual bool is_writer() const noexcept = 0;
    /// @return whether it is a part of a shared reader, and gets the answers to that writer of this participant.
    virtual bool shares_answers_to(const DDS_GUID_t& /*asking*/) const noexcept { return false; }
    /// Something is new of a requester whose answers come, or may come, from here: `run_timer` follows. The participant's directory is locked.
    /// @param topic  of the answers; empty when it is not known.
    /// @return whether it is of any interest here.
    virtual bool on_requester_changed(const std::string& /*topic*/) noexcept { return false; }

    /// Tells the sink of a peer, with whatever lock that orders the events of this kind. Announces when that is wanted.
    void note(const mw::PeerEvent& event) noexcept;
    /// Tells the sink of a peer that does not fit, once for each. The participant's directory is locked.
    void note_misfit(const rtps::GUID_t& peer, const mw::PeerEvent& event) noexcept;
    /// The peer is gone; one that comes later under the same GUID is told of again. The participant's directory is locked.
    void forget_misfit(const rtps::GUID_t& peer) noexcept { _misfits.erase(to_guid(peer)); }

    /// Has the listeners run soon, on the dispatcher.
    virtual void announce_soon() noexcept = 0;
    /// Runs the listeners, unless the endpoint is closing. On the dispatcher.
    void announce() noexcept;
    /// When it is to be attended to next. Guarded by the dispatcher.
    std::int64_t due_ns() const noexcept { return _due_ns; }
    void set_due(std::int64_t due_ns) noexcept { _due_ns = due_ns; }

    /// @return whether the endpoint was not waiting for an announcement yet.
    bool take_place_in_queue() noexcept { return !_queued.exchange(true); }

    /// Does what has become due. On the worker. @return when to come again; NO_DEADLINE for not before it is asked for.
    virtual std::int64_t run_timer() noexcept = 0;
    /// A writer: asks its readers what they lack, soon and on another thread. Under locks of Fast DDS.
    virtual void ask_soon() noexcept {}

protected:
    Endpoint(const mw::EndpointInfo& info) : _info(info) {}
    virtual ~Endpoint() = default;

    void attach(mw::PeerSink& sink) noexcept { _peer_sink = &sink; }
    /// @return false when it was closed already.
    bool begin_to_close() noexcept { return !_closing.exchange(true); }
    void wait_until_quiet() noexcept {
        _announcements.shut();
        _announcements.wait_until_empty();
    }

    std::mutex _close_mutex;  // who closes second finds it closed, and not still being closed
    mw::EndpointInfo _info;   // constant once the endpoint is enabled
    Gate _calls;

private:
    mw::PeerSink* _peer_sink = nullptr;
    Gate _announcements;
    std::atomic<bool> _queued{false};
    std::int64_t _due_ns = platform::NO_DEADLINE;
    std::atomic<bool> _closing{false};
    std::unordered_set<DDS_GUID_t, GuidHash> _misfits;  // guarded by the participant's directory
};

/// A call into Fast DDS on behalf of an endpoint.
class Call {
public:
    explicit Call(Gate& gate) noexcept : _gate(gate), _may_run(gate.enter()) {}
    ~Call() { _gate.leave(); }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;
    /// @return false when the endpoint is closing.
    bool may_run() const noexcept { return _may_run; }

private:
    Gate& _gate;
    const bool _may_run;
};

}  // namespace fastdds
}  // namespace norvane

#endif
