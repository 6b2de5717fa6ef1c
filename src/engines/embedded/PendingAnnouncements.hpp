// SPDX-License-Identifier: Apache-2.0
// Endpoints whose listeners are to run once every lock has been released. Only these endpoints are kept alive meanwhile: a listener
// may delete another endpoint, or the writer of the current write.
// Thread rule: a local of one thread.
#ifndef NORVANE_ENGINES_EMBEDDED_PENDINGANNOUNCEMENTS_HPP
#define NORVANE_ENGINES_EMBEDDED_PENDINGANNOUNCEMENTS_HPP

#include <cstddef>
#include <memory>
#include <vector>

#include "engines/embedded/Endpoint.hpp"

namespace norvane {
namespace embedded {

class PendingAnnouncements {
public:
    PendingAnnouncements() noexcept {}
    PendingAnnouncements(const PendingAnnouncements&) = delete;
    PendingAnnouncements& operator=(const PendingAnnouncements&) = delete;
    ~PendingAnnouncements();

    /// Makes room for so many in all; a few always fit.
    /// @return false when memory is short.
    bool make_room(std::size_t count) noexcept;
    /// There must be room.
    void add(std::shared_ptr<Endpoint> endpoint) noexcept;
    /// Runs them in the order of their addition. No lock is held.
    void run() noexcept;

private:
    static constexpr std::size_t FEW = 8;

    std::size_t _few_count = 0;
    union {
        std::shared_ptr<Endpoint> _few[FEW];  // the first `_few_count` are constructed: a write pays only for those it uses
    };
    std::vector<std::shared_ptr<Endpoint>> _more;
};

}  // namespace embedded
}  // namespace norvane

#endif
