// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/transport/Paths.hpp"

#include <algorithm>
#include <cstring>
#include <exception>
#include <utility>

#include "engines/fastdds/quirks_2_9/Submessage.hpp"
#include "platform/Clock.hpp"

namespace norvane {
namespace fastdds {

namespace {

constexpr std::size_t PREFIX_IN_HEADER = 8;
constexpr std::uint32_t MOST_BITS = Path::TOLD;

// An entity is four octets, whatever the order of the others.
std::uint32_t entity_at(const Submessage& each, std::size_t place) noexcept {
    std::uint32_t entity = 0;
    std::memcpy(&entity, each.body + place, sizeof entity);
    return entity;
}

bool is_of_user(const Submessage& each, std::size_t place) noexcept {
    return (each.body[place + 3] & Submessage::BUILTIN_ENTITY) == 0;
}

// A set of numbers, from a base on.
struct Bits {
    const Submessage& in;
    std::size_t place;  // of the count
    std::uint32_t count = 0;

    bool read() noexcept {
        count = in.length >= place + 4 ? in.read_u32(place) : MOST_BITS + 1;
        return count <= MOST_BITS && in.length >= place + 4 + (count + 31) / 32 * 4;
    }
    bool has(std::uint32_t index) const noexcept {
        return index < count && (in.read_u32(place + 4 + index / 32 * 4) >> (31 - index % 32) & 1U) != 0;
    }
};

// @param participant  that the submessage is for; null if it is not named.
// @return whether the fragments that a reader asks for exist. Discovery has no samples in fragments.
bool asks_for_what_exists(const Submessage& each, const std::uint8_t* participant, Paths::FragmentCount fragments) noexcept {
    Bits bits = {each, Submessage::SET_OF_NACK_FRAG + 4};
    if (participant == nullptr || !is_of_user(each, Submessage::WRITER) || !bits.read()) {
        return false;
    }
    std::uint32_t behind = bits.count;
    while (behind > 0 && !bits.has(behind - 1)) {
        --behind;
    }
    rtps::GUID_t writer;
    std::memcpy(writer.guidPrefix.value, participant, sizeof writer.guidPrefix.value);
    std::memcpy(writer.entityId.value, each.body + Submessage::WRITER, sizeof writer.entityId.value);
    const std::uint64_t last = static_cast<std::uint64_t>(each.read_u32(Submessage::SET_OF_NACK_FRAG)) + behind - 1;
    return behind == 0 || last <= fragments(writer, each.read_number(Submessage::FIRST_NUMBER));
}

// Whether a message with such a submessage is to be looked at. Those with small samples alone are not.
bool counts(std::uint8_t kind, std::size_t length, std::size_t large) noexcept {
    return kind == Submessage::DATA_FRAG || kind == Submessage::HEARTBEAT || kind == Submessage::ACKNACK ||
           (kind == Submessage::DATA && length >= large);
}

}  // namespace

void Paths::listen(HeartbeatListener listener) {
    const std::lock_guard<std::mutex> lock(_mutex);
    _listener.swap(listener);
}

Paths::ToPlace* Paths::find_locked(const rtps::Locator_t& place) noexcept {
    const auto found = std::find_if(_places.begin(), _places.end(), [&](const auto& each) { return each->place == place; });
    return found == _places.end() ? nullptr : found->get();
}

void Paths::learn_locked(const rtps::Locator_t& place, const Prefix& peer, std::int64_t now_ns) {
    ToPlace* const known = find_locked(place);
    if (known != nullptr && known->peer == peer) {
        known->used_ns = now_ns;
        return;
    }
    // Replace the entry of a process that is gone and whose port another one has; or, at the limit, the one unused for longest.
    const auto gone = known != nullptr
                          ? std::find_if(_places.begin(), _places.end(), [&](const auto& each) { return each.get() == known; })
                      : _places.size() < MOST_PATHS
                          ? _places.end()
                          : std::min_element(_places.begin(), _places.end(),
                                             [](const auto& one, const auto& other) { return one->used_ns < other->used_ns; });
    auto added = std::make_unique<ToPlace>(place, peer);
    added->used_ns = now_ns;
    if (gone != _places.end()) {
        *gone = std::move(added);
    } else {
        _places.push_back(std::move(added));
    }
}

Path* Paths::path_of(ToPlace& to, std::uint32_t writer) noexcept {
    const auto found = std::find_if(to.paths.begin(), to.paths.end(), [writer](const auto& each) { return each.first == writer; });
    return found == to.paths.end() ? nullptr : &found->second;
}

Path& Paths::hear_locked(ToPlace& to, std::uint32_t writer) {
    if (Path* const known = path_of(to, writer)) {
        return *known;
    }
    if (to.paths.size() == MOST_WRITERS) {
        to.paths.erase(to.paths.begin());
    }
    to.paths.emplace_back(writer, Path(_interfaces.reach_within(to.place) ? _capacity : FIRST_WINDOW, _capacity));
    return to.paths.back().second;
}

void Paths::ask_if_due_locked(Path& path, const std::uint8_t* participant, std::uint32_t entity, std::int64_t now_ns) {
    if (path.is_heartbeat_due(now_ns) && _listener) {
        rtps::GUID_t writer;
        std::memcpy(writer.guidPrefix.value, participant, sizeof writer.guidPrefix.value);
        std::memcpy(writer.entityId.value, &entity, sizeof entity);
        _listener(writer);
    }
}

Paths::Verdict Paths::send(const std::uint8_t* message, std::size_t length, const rtps::Locator_t& place) noexcept {
    if (!Submessage::begin_a_message(message, length)) {
        return Verdict::PASS;
    }
    const std::uint8_t* destination = nullptr;
    Path::Piece piece;
    std::uint32_t writer_entity = 0;
    bool has_piece = false;
    bool has_heartbeat = false;
    bool is_end = true;  // of its sample
    bool is_wanted = false;
    Submessage each;
    for (std::size_t at = Submessage::MESSAGE_HEADER; each.read(message, length, at); at += Submessage::HEADER + each.length) {
        if (each.kind == Submessage::INFO_DST && each.length >= 12) {
            destination = each.body;
            continue;
        }
        is_wanted = is_wanted || counts(each.kind, each.length, LARGE);
        has_heartbeat = has_heartbeat || each.kind == Submessage::HEARTBEAT;
        const bool is_fragment = each.kind == Submessage::DATA_FRAG && each.length >= Submessage::DATA_FRAG_HEAD;
        const bool is_large = each.kind == Submessage::DATA && each.length >= LARGE;
        if ((!is_fragment && !is_large) || !is_of_user(each, Submessage::WRITER_OF_DATA)) {
            continue;
        }
        const std::uint32_t first = is_fragment ? each.read_u32(Submessage::FIRST_FRAGMENT) : 0;
        const std::uint32_t last = is_fragment ? first + std::max(each.read_u16(Submessage::FRAGMENT_COUNT), 1U) - 1 : 0;
        const std::int64_t number = each.read_number(Submessage::NUMBER_OF_DATA);
        const bool goes_on = has_piece && number == piece.number;
        piece.is_alone = piece.is_alone && (goes_on || !has_piece);
        piece.first_fragment = goes_on ? std::min(piece.first_fragment, first) : first;
        piece.last_fragment = last;
        is_end = !is_fragment || static_cast<std::uint64_t>(last) * each.read_u16(Submessage::FRAGMENT_SIZE) >=
                                     each.read_u32(Submessage::SAMPLE_SIZE);
        writer_entity = entity_at(each, Submessage::WRITER_OF_DATA);
        piece.number = number;
        has_piece = true;
    }
    if (!is_wanted) {
        return Verdict::PASS;
    }
    try {
        const std::int64_t now_ns = platform::monotonic_ns();
        const std::lock_guard<std::mutex> lock(_mutex);
        Prefix peer = {};
        if (destination != nullptr) {
            std::memcpy(peer.data(), destination, peer.size());
            if (peer != Prefix{}) {
                learn_locked(place, peer, now_ns);
            }
        }
        ToPlace* const to = has_piece ? find_locked(place) : nullptr;
        Path* const path = to == nullptr ? nullptr : path_of(*to, writer_entity);
        if (path == nullptr) {
            return Verdict::PASS;
        }
        const bool may_leave = path->send(piece, static_cast<std::int64_t>(length), now_ns);
        ask_if_due_locked(*path, message + PREFIX_IN_HEADER, writer_entity, now_ns);
        // A heartbeat behind each fragment would make the reader ask for fragments that are still on the way. The listener sends
        // one at the end of a burst.
        return !may_leave ? Verdict::HOLD : has_heartbeat && !is_end ? Verdict::PASS_WITHOUT_HEARTBEAT : Verdict::PASS;
    } catch (const std::exception&) {
        return Verdict::PASS;  // memory is short: not limited
    }
}

bool Paths::receive(const std::uint8_t* message, std::size_t length) noexcept {
    if (!Submessage::begin_a_message(message, length)) {
        return true;
    }
    bool is_current = true;  // as long as no request for fragments is looked at
    bool is_wanted = false;
    const std::uint8_t* destination = nullptr;
    Submessage each;
    for (std::size_t at = Submessage::MESSAGE_HEADER; each.read(message, length, at); at += Submessage::HEADER + each.length) {
        if (each.kind == Submessage::INFO_DST && each.length >= 12) {
            destination = each.body;
            continue;
        }
        const bool is_acknack = each.kind == Submessage::ACKNACK && each.length >= Submessage::SET_OF_ACKNACK + 12;
        const bool is_nack_frag = each.kind == Submessage::NACK_FRAG && each.length >= Submessage::SET_OF_NACK_FRAG + 8;
        if (is_nack_frag && !asks_for_what_exists(each, destination, _fragments)) {
            return false;
        }
        if ((!is_acknack && !is_nack_frag) || !is_of_user(each, Submessage::WRITER)) {
            continue;
        }
        const std::uint32_t writer = entity_at(each, Submessage::WRITER);
        Bits bits = {each, is_acknack ? Submessage::SET_OF_ACKNACK + 8 : Submessage::SET_OF_NACK_FRAG + 4};
        if (!bits.read()) {
            continue;
        }
        const std::int64_t now_ns = platform::monotonic_ns();
        const std::lock_guard<std::mutex> lock(_mutex);
        for (const std::unique_ptr<ToPlace>& to : _places) {
            if (std::memcmp(to->peer.data(), message + PREFIX_IN_HEADER, to->peer.size()) != 0) {
                continue;
            }
            Path* path = path_of(*to, writer);
            if (is_acknack) {
                try {
                    path = &hear_locked(*to, writer);
                } catch (const std::exception&) {
                    continue;  // memory is short: no window yet
                }
                const std::int64_t base = each.read_number(Submessage::SET_OF_ACKNACK);
                path->acknowledge(
                    base,
                    [&](std::int64_t number) {
                        const auto index = static_cast<std::uint32_t>(std::min<std::int64_t>(number - base, MOST_BITS));
                        return index >= bits.count ? Path::Fate::UNKNOWN
                               : bits.has(index)   ? Path::Fate::MISSING
                                                   : Path::Fate::ARRIVED;
                    },
                    now_ns);
            } else if (path != nullptr) {
                const std::uint32_t base = each.read_u32(Submessage::SET_OF_NACK_FRAG);
                const auto fate = [&](std::uint32_t fragment) {
                    const std::uint32_t index = fragment - base;
                    return index >= Path::TOLD ? Path::Fate::UNKNOWN : bits.has(index) ? Path::Fate::MISSING : Path::Fate::ARRIVED;
                };
                is_current = false;
                is_wanted = path->ask_again(each.read_number(Submessage::FIRST_NUMBER), base, fate, now_ns) || is_wanted;
            } else {
                is_wanted = true;
            }
            if (path != nullptr && destination != nullptr) {
                ask_if_due_locked(*path, destination, writer, now_ns);
            }
        }
    }
    return is_current || is_wanted;
}

void Paths::acknowledge(const rtps::GUID_t& writer, std::int64_t up_to) noexcept {
    std::uint32_t entity = 0;
    std::memcpy(&entity, writer.entityId.value, sizeof entity);
    const std::int64_t now_ns = platform::monotonic_ns();
    const std::lock_guard<std::mutex> lock(_mutex);
    for (const std::unique_ptr<ToPlace>& to : _places) {
        if (Path* const path = path_of(*to, entity)) {
            path->acknowledge(up_to + 1, now_ns);
        }
    }
}

void copy_without(std::uint8_t kind, const std::uint8_t* message, std::size_t length, std::vector<std::uint8_t>& copy) {
    copy.assign(message, message + Submessage::MESSAGE_HEADER);
    Submessage each;
    for (std::size_t at = Submessage::MESSAGE_HEADER; each.read(message, length, at); at += Submessage::HEADER + each.length) {
        if (each.kind != kind) {
            copy.insert(copy.end(), message + at, each.body + each.length);
        }
    }
}

}  // namespace fastdds
}  // namespace norvane
