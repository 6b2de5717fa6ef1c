// SPDX-License-Identifier: Apache-2.0
// The paths (Path) of a participant to its peers. It reads the submessages of large samples, heartbeats and acknowledgements in
// both directions, and decides which messages may leave and which requests for fragments are out of date.
//
// 1. A locator belongs to the participant that the last message sent to it was addressed to. A writer has a path to it once a
//    reader there has acknowledged any of its samples. A best-effort reader, which never acknowledges, is not limited.
// 2. Samples below LARGE octets, and those of discovery, pass without a look.
// 3. The mutex is taken under locks of Fast DDS. The listener is called with it held, and takes leaf locks only.
//
// Thread rule: any thread at once.
#ifndef NORVANE_ENGINES_FASTDDS_TRANSPORT_PATHS_HPP
#define NORVANE_ENGINES_FASTDDS_TRANSPORT_PATHS_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include <fastdds/rtps/common/Guid.h>
#include <fastdds/rtps/common/Locator.h>

#include "engines/fastdds/identity.hpp"
#include "engines/fastdds/transport/Interfaces.hpp"
#include "engines/fastdds/transport/Path.hpp"

namespace norvane {
namespace fastdds {

class Paths {
public:
    /// Size in octets from which on a sample counts. Fragments always count.
    static constexpr std::size_t LARGE = 4096;
    /// Bound on locators; beyond it, the one that was unused for the longest time is forgotten.
    static constexpr std::size_t MOST_PATHS = 256;
    /// Bound on writers with readers at one locator; beyond it, the oldest is forgotten.
    static constexpr std::size_t MOST_WRITERS = 256;
    /// First window, in octets, to another machine, whose sockets and wire are not known.
    static constexpr std::int64_t FIRST_WINDOW = 64 * 1024;

    typedef std::function<void(const rtps::GUID_t& writer)> HeartbeatListener;

    /// @return the number of fragments of a sample that a writer of this process keeps; 0 if it keeps no such sample.
    typedef std::uint32_t (*FragmentCount)(const rtps::GUID_t& writer, std::int64_t number);

    /// @param capacity    octets that a peer's socket can buffer, assumed to be the same as here.
    /// @param interfaces  borrowed.
    /// @param fragments   is asked about samples that a peer requests fragments of, with no lock held.
    Paths(std::int64_t capacity, const Interfaces& interfaces, FragmentCount fragments) noexcept
        : _capacity(capacity), _interfaces(interfaces), _fragments(fragments) {}
    Paths(const Paths&) = delete;
    Paths& operator=(const Paths&) = delete;

    /// Sets the listener. When it returns, no call of the previous one runs or will run.
    /// @param listener  is called for a writer of this participant whose readers should be sent a heartbeat; must not block, nor
    ///                  call this object. Null for none.
    void listen(HeartbeatListener listener);

    /// HOLD: not to be sent, as if it were lost. PASS_WITHOUT_HEARTBEAT: to be sent without the heartbeats in it.
    enum class Verdict { PASS, PASS_WITHOUT_HEARTBEAT, HOLD };
    /// A message is about to be sent to a locator. Memory that is short ends in PASS.
    Verdict send(const std::uint8_t* message, std::size_t length, const rtps::Locator_t& place) noexcept;

    /// All readers of a writer of this participant have its samples up to and including a number: their replies prove it, or the
    /// readers have left.
    void acknowledge(const rtps::GUID_t& writer, std::int64_t up_to) noexcept;

    /// A message without a wire fault has arrived. @return false when its requests for fragments are to be removed: all of them are
    ///         on the way, or one is for fragments that do not exist: Fast DDS would send what lies behind the sample in memory.
    bool receive(const std::uint8_t* message, std::size_t length) noexcept;

private:
    typedef std::array<std::uint8_t, 12> Prefix;

    struct ToPlace {
        ToPlace(const rtps::Locator_t& at, const Prefix& of) : place(at), peer(of) {}

        rtps::Locator_t place;
        Prefix peer;
        std::vector<std::pair<std::uint32_t, Path>> paths;  // by the entity id of the writer
        std::int64_t used_ns = 0;
    };

    void learn_locked(const rtps::Locator_t& place, const Prefix& peer, std::int64_t now_ns);
    ToPlace* find_locked(const rtps::Locator_t& place) noexcept;
    static Path* path_of(ToPlace& to, std::uint32_t writer) noexcept;
    void ask_if_due_locked(Path& path, const std::uint8_t* participant, std::uint32_t entity, std::int64_t now_ns);
    Path& hear_locked(ToPlace& to, std::uint32_t writer);

    const std::int64_t _capacity;
    const Interfaces& _interfaces;
    const FragmentCount _fragments;
    std::mutex _mutex;
    HeartbeatListener _listener;
    std::vector<std::unique_ptr<ToPlace>> _places;
};

/// Copies a message without its submessages of one kind. @param copy  is overwritten; its memory is reused. @throws std::bad_alloc
void copy_without(std::uint8_t kind, const std::uint8_t* message, std::size_t length, std::vector<std::uint8_t>& copy);

}  // namespace fastdds
}  // namespace norvane

#endif
