// SPDX-License-Identifier: Apache-2.0
// Where participants are whose addresses have changed. Fast DDS announces the new address of a participant in addition to all earlier
// ones, and those of its endpoints not at all; a participant that knew it goes on sending to the places that it had then. What is
// sent to one of these goes to the address, too, from which the participant sends now. Not instead: a sender's address may be forged,
// and must not silence a participant.
// Thread rule: any thread.
#ifndef NORVANE_ENGINES_FASTDDS_QUIRKS_2_9_MOVEDPEERS_HPP
#define NORVANE_ENGINES_FASTDDS_QUIRKS_2_9_MOVEDPEERS_HPP

#include <atomic>
#include <cstddef>
#include <map>
#include <mutex>
#include <optional>
#include <vector>

#include <fastdds/rtps/common/Locator.h>
#include <fastdds/rtps/common/GuidPrefix_t.hpp>

namespace norvane {
namespace fastdds {

class MovedPeers {
public:
    typedef eprosima::fastrtps::rtps::GuidPrefix_t Prefix;
    typedef eprosima::fastrtps::rtps::Locator_t Locator;
    typedef std::vector<Locator> Locators;

    static constexpr std::size_t MOST_LISTS =
        16;  ///< Of places that endpoints of a participant have in common. Others are not kept.

    /// Fast DDS has discovered a participant, and sends announcements to these places.
    /// @throws std::bad_alloc
    void note_new(const Prefix& peer, Locators places);
    /// A participant has announced itself, for the first time or again. @param places  all that it has or had.
    /// @throws std::bad_alloc
    void note(const Prefix& peer, Locators places);
    /// Fast DDS has discovered an endpoint of a participant, and sends to these places.
    /// @throws std::bad_alloc
    void note_endpoint(const Prefix& peer, const Locators& places);
    /// An announcement of a participant has come from an address. @param source  of any port.
    void note_source(const Prefix& peer, const Locator& source) noexcept;
    void forget(const Prefix& peer) noexcept;

    /// @return where to send what goes to a place, too, if its participant has moved. One relaxed load while none has.
    std::optional<Locator> other(const Locator& place) const noexcept;

private:
    struct Peer {
        std::vector<Locators> used;  // lists of places; Fast DDS sends to all of a list
        Locators announced;
        std::optional<Locator> source;  // the latest, if it is among those announced
    };

    // @return where else to send what goes to that list; none if it has the place already.
    static std::optional<Locator> other_than(const Locators& used, const Locator& place, const Peer& peer) noexcept;
    void look_for_moves_locked() noexcept;

    std::atomic<bool> _has_moved{false};  // any
    mutable std::mutex _mutex;
    std::map<Prefix, Peer> _peers;  // those that Fast DDS knows
};

}  // namespace fastdds
}  // namespace norvane

#endif
