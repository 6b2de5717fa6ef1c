// SPDX-License-Identifier: Apache-2.0
// The paths of a participant to its peers (Path). It reads what large samples, heartbeats and acknowledgements go out and come in,
// and decides what may leave, and which requests for a repeat are out of date.
//
// 1. A place belongs to the participant that the last message sent there named. A writer has a path to it once its readers there
//    have acknowledged anything: a peer that never does is sent everything.
// 2. Samples below LARGE octets, and those of discovery, pass untouched.
// 3. The mutex is taken under locks of Fast DDS. The listener is called with it held, and takes leaves only.
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
    /// Octets of a message from which on it counts.
    static constexpr std::size_t LARGE = 4096;
    static constexpr std::size_t MOST_PATHS = 256;
    static constexpr std::size_t MOST_WRITERS = 256;  // with readers at one place
    /// Where the sockets at the other end, and the wire, are not known: what is sent before the first acknowledgement.
    static constexpr std::int64_t FIRST_WINDOW = 64 * 1024;

    typedef std::function<void(const rtps::GUID_t& writer)> HeartbeatListener;

    /// @param capacity  octets that a peer's socket takes; it is assumed to be as ours. @param interfaces  borrowed.
    Paths(std::int64_t capacity, const Interfaces& interfaces) noexcept : _capacity(capacity), _interfaces(interfaces) {}
    Paths(const Paths&) = delete;
    Paths& operator=(const Paths&) = delete;

    /// @param listener  is told of writers of this participant whose readers should be asked what they lack. Null: nobody is told;
    ///                  when it returns, no call of the one before runs.
    void listen(HeartbeatListener listener);

    enum class Verdict { PASS, PASS_WITHOUT_HEARTBEAT, HOLD };
    /// A message is about to be sent. HOLD: it must not be; it counts as lost.
    Verdict send(const std::uint8_t* message, std::size_t length, const rtps::Locator_t& place) noexcept;

    /// All readers of a writer of this participant have its samples up to a number: what they answered says so, or they are gone.
    void acknowledge(const rtps::GUID_t& writer, std::int64_t up_to) noexcept;

    /// A message has come. @return false when its requests for fragments are out of date, and should be taken out.
    bool receive(const std::uint8_t* message, std::size_t length) noexcept;

private:
    typedef std::array<std::uint8_t, 12> Prefix;

    struct ToPlace {
        ToPlace(const rtps::Locator_t& at, const Prefix& of) : place(at), peer(of) {}

        rtps::Locator_t place;
        Prefix peer;
        std::vector<std::pair<std::uint32_t, Path>> paths;  // of writers whose readers there acknowledge
        std::int64_t used_ns = 0;
    };

    void learn_locked(const rtps::Locator_t& place, const Prefix& peer, std::int64_t now_ns);
    ToPlace* find_locked(const rtps::Locator_t& place) noexcept;
    static Path* path_of(ToPlace& to, std::uint32_t writer) noexcept;
    Path& hear_locked(ToPlace& to, std::uint32_t writer);

    const std::int64_t _capacity;
    const Interfaces& _interfaces;
    std::mutex _mutex;
    HeartbeatListener _listener;
    std::vector<std::unique_ptr<ToPlace>> _places;
};

/// Copies a message without its submessages of one kind.
void copy_without(std::uint8_t kind, const std::uint8_t* message, std::size_t length, std::vector<std::uint8_t>& copy);

}  // namespace fastdds
}  // namespace norvane

#endif
