// SPDX-License-Identifier: Apache-2.0
// What a writer and a reader on the bus have in common: what peers learn of it, its sink, and the gate of its announcements.
//
// 1. `announce` is called with no lock held: it runs user code, which may write, create and close.
// 2. Once `wait_until_quiet` has returned, no announcement runs, and none begins.
#ifndef NORVANE_ENGINES_EMBEDDED_ENDPOINT_HPP
#define NORVANE_ENGINES_EMBEDDED_ENDPOINT_HPP

#include <memory>

#include "engines/Gate.hpp"
#include "middleware/Engine.hpp"

namespace norvane {
namespace embedded {

class Endpoint {
public:
    Endpoint(const Endpoint&) = delete;
    Endpoint& operator=(const Endpoint&) = delete;

    const std::shared_ptr<const mw::EndpointInfo>& info() const noexcept { return _info; }

    /// Tells the sink of a peer. The bus's mutex is held, which puts the events of one peer in order.
    /// @return whether `announce` is wanted.
    bool note_locked(const mw::PeerEvent& event) noexcept { return _peer_sink->peer_changed(event); }

    /// Runs the listeners, unless the endpoint is closing.
    void announce() noexcept;

    /// Refuses further announcements, and blocks until those that run have returned.
    void wait_until_quiet() noexcept;

    /// Notes that the endpoint has left the bus. The bus's mutex is held.
    /// @return false when it had left already.
    bool leave_locked() noexcept;

protected:
    explicit Endpoint(std::shared_ptr<const mw::EndpointInfo> info) noexcept;
    ~Endpoint() = default;

    void attach(mw::PeerSink& sink) noexcept { _peer_sink = &sink; }

private:
    const std::shared_ptr<const mw::EndpointInfo> _info;
    mw::PeerSink* _peer_sink = nullptr;
    bool _left = false;
    // Announcements that run. One that waits for its turn in some thread is not counted: the one before it may close this endpoint,
    // and would wait for its own thread.
    mw::Gate _announcements;
};

}  // namespace embedded
}  // namespace norvane

#endif
