// SPDX-License-Identifier: Apache-2.0
// A reader on the bus: its sink, its route, and the word that writers sleep on while it is full.
#ifndef NORVANE_ENGINES_EMBEDDED_READER_HPP
#define NORVANE_ENGINES_EMBEDDED_READER_HPP

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "engines/embedded/Endpoint.hpp"

namespace norvane {
namespace embedded {

class Writer;

class Reader : public Endpoint {
public:
    Reader(std::shared_ptr<const mw::EndpointInfo> info, const mw::ReaderSettings& settings) noexcept;

    /// Before the reader joins the bus.
    void open(mw::SampleSink& sink) noexcept;

    mw::SampleSink& sink() const noexcept { return *_sink; }
    bool routed() const noexcept { return _routed; }
    const DDS_GUID_t& route() const noexcept { return _route; }

    /// Changes when there may be room again, and when the reader leaves.
    platform::FutexWord& room() noexcept { return _room; }
    /// Wakes the writers that wait for room in this reader.
    void signal_room() noexcept;

    /// Number of writers with a backlog of older samples for the reader. A writer counts itself *before* the reader refuses a
    /// sample, so that the `room_freed` after the refusal sees the count.
    std::atomic<std::uint32_t>& debtors() noexcept { return _debtors; }

    /// Its matched writers. The bus's mutex is held.
    std::vector<std::shared_ptr<Writer>>& writers_locked() noexcept { return _writers; }

private:
    mw::SampleSink* _sink = nullptr;
    const bool _routed;
    const DDS_GUID_t _route;
    std::vector<std::shared_ptr<Writer>> _writers;
    platform::FutexWord _room{0};
    std::atomic<std::uint32_t> _debtors{0};
};

}  // namespace embedded
}  // namespace norvane

#endif
