// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/transport/FaultInjector.hpp"

#include <algorithm>
#include <exception>
#include <initializer_list>
#include <string>
#include <utility>

#include "middleware/Log.hpp"
#include "platform/Clock.hpp"

namespace norvane {
namespace fastdds {

namespace {

using mw::LogPart;

constexpr std::size_t HEADER = Submessage::MESSAGE_HEADER;
constexpr std::size_t PREFIX_IN_HEADER = 8;
constexpr std::size_t PREFIX_SIZE = 12;
constexpr std::size_t IDS_OF_DATA = 12;  // octets of a body up to the end of the writer's id
constexpr std::size_t IDS_OF_OTHERS = 8;
// What is reordered comes up to so much late: others overtake it.
constexpr double LATEST_NS = 3e6;

// Of decisions about a datagram; those about submessages have their kind instead.
enum Purpose : std::uint64_t { DROP = 100, DELAY, DUPLICATE, REORDER, LATENESS, TAMPER, PLACE };

// A number that looks random, of several that do not (SplitMix64).
std::uint64_t mix(std::initializer_list<std::uint64_t> values) noexcept {
    std::uint64_t state = 0;
    for (const std::uint64_t value : values) {
        state = (state ^ value) + 0x9e3779b97f4a7c15U;
        state = (state ^ (state >> 30U)) * 0xbf58476d1ce4e5b9U;
        state = (state ^ (state >> 27U)) * 0x94d049bb133111ebU;
        state ^= state >> 31U;
    }
    return state;
}

// 0 to 1, 1 excluded.
double share(std::initializer_list<std::uint64_t> values) noexcept {
    return static_cast<double>(mix(values) >> 11U) / static_cast<double>(1ULL << 53U);
}

std::uint64_t read_octets(const std::uint8_t* octets, std::size_t count) noexcept {
    std::uint64_t number = 0;
    for (std::size_t index = 0; index < count; ++index) {
        number = number << 8U | octets[index];
    }
    return number;
}

std::uint64_t sender_of(const std::uint8_t* message) noexcept {
    return mix({read_octets(message + PREFIX_IN_HEADER, 8), read_octets(message + PREFIX_IN_HEADER + 8, PREFIX_SIZE - 8)});
}

bool is_data(const Submessage& each) noexcept { return each.kind == Submessage::DATA || each.kind == Submessage::DATA_FRAG; }

bool names_its_endpoints(const Submessage& each) noexcept { return each.length >= (is_data(each) ? IDS_OF_DATA : IDS_OF_OTHERS); }

const std::uint8_t* writer_of(const Submessage& each) noexcept {
    return each.body + (is_data(each) ? Submessage::WRITER_OF_DATA : Submessage::WRITER);
}

}  // namespace

std::uint64_t FaultInjector::Counts::increment(std::uint64_t key) {
    if (_recent.size() == MOST && _recent.count(key) == 0) {
        _earlier = std::move(_recent);
        _recent.clear();
    }
    const auto added = _recent.emplace(key, 0);
    if (added.second) {
        const auto place = _earlier.find(key);
        added.first->second = place != _earlier.end() ? place->second : 0;
    }
    return added.first->second++;
}

FaultInjector::FaultInjector(const FaultPlan& plan)
    : _plan(plan),
      _loses_submessages(plan.gap || std::any_of(plan.drop.begin(), plan.drop.end() - 1, [](double drop) { return drop != 0; }) ||
                         std::any_of(plan.first.begin(), plan.first.end() - 1, [](bool first) { return first; })) {
    mw::log_warning<LogPart::ENGINE>("FaultInjector::FaultInjector", [&] {
        return "the property norvane.fastdds.faults injects faults into what this participant receives, seed " +
               std::to_string(_plan.seed) + ": for tests only";
    });
}

FaultInjector::~FaultInjector() {
    mw::log_notice<LogPart::ENGINE>("FaultInjector::~FaultInjector", [&] {
        return "datagrams " + std::to_string(_totals.datagrams) + ", octets " + std::to_string(_totals.octets) + ", lost " +
               std::to_string(_totals.lost) + ", submessages lost " + std::to_string(_totals.lost_submessages) + ", delayed " +
               std::to_string(_totals.delayed) + ", duplicated " + std::to_string(_totals.duplicated) + ", tampered " +
               std::to_string(_totals.tampered);
    });
}

void FaultInjector::receive(const std::uint8_t* message, std::uint32_t length, std::uint32_t port,
                            const Delivery& deliver) noexcept {
    try {
        std::vector<std::uint8_t> copy;
        const Fate fate = decide(message, length, port, copy);
        if (fate.is_lost) {
            return;
        }
        if (fate.due_ns != 0) {
            std::vector<std::uint8_t> held = copy.empty() ? std::vector<std::uint8_t>(message, message + length) : std::move(copy);
            if (fate.is_duplicated) {
                _delay_line.hold(held, fate.due_ns, deliver);
            }
            _delay_line.hold(std::move(held), fate.due_ns, deliver);
            return;
        }
        if (!copy.empty()) {
            length = static_cast<std::uint32_t>(copy.size());
            copy.resize(std::max(copy.size(), DelayLine::ROOM));
            message = copy.data();
        }
        for (int times = fate.is_duplicated ? 2 : 1; times > 0; --times) {
            deliver(message, length);
        }
    } catch (const std::exception&) {
        // Counts as lost on the wire.
    }
}

// @param copy  gets what is to be delivered; empty: the message as it is.
FaultInjector::Fate FaultInjector::decide(const std::uint8_t* message, std::uint32_t length, std::uint32_t port,
                                          std::vector<std::uint8_t>& copy) {
    const std::lock_guard<std::mutex> lock(_mutex);
    Fate fate;
    _totals.datagrams += 1;
    _totals.octets += length;
    if (!Submessage::begin_a_message(message, length)) {
        return fate;
    }
    const std::uint64_t stream = port % 2;
    const std::uint64_t number = _senders.increment(mix({sender_of(message), stream}));
    const auto hits = [&](Purpose purpose, double of) { return of > 0 && share({_plan.seed, purpose, stream, number}) < of; };
    fate.is_lost = hits(DROP, _plan.drop[FaultPlan::ALL]) || (_plan.first[FaultPlan::ALL] && number == 0) ||
                   (_loses_submessages && lose_submessages_locked(message, length, copy)) ||
                   (_plan.bits_per_ns > 0 && !wait_for_turn_locked(length, fate.due_ns));
    if (fate.is_lost) {
        ++_totals.lost;
        return fate;
    }
    if (hits(TAMPER, _plan.tampered)) {
        if (copy.empty()) {
            copy.assign(message, message + length);
        }
        const std::uint64_t bit = mix({_plan.seed, PLACE, stream, number}) % (8 * (copy.size() - HEADER));
        copy[HEADER + bit / 8] = static_cast<std::uint8_t>(copy[HEADER + bit / 8] ^ 1U << bit % 8);
        ++_totals.tampered;
    }
    std::int64_t late_ns = hits(DELAY, _plan.delayed) ? _plan.delay_ns : 0;
    if (hits(REORDER, _plan.reordered)) {
        late_ns += static_cast<std::int64_t>(LATEST_NS * share({_plan.seed, LATENESS, stream, number}));
    }
    if (late_ns > 0) {
        fate.due_ns = (fate.due_ns != 0 ? fate.due_ns : platform::monotonic_ns()) + late_ns;
    }
    fate.is_duplicated = hits(DUPLICATE, _plan.duplicated);
    _totals.delayed += fate.due_ns != 0 ? 1 : 0;
    _totals.duplicated += fate.is_duplicated ? 1 : 0;
    return fate;
}

// @return whether nothing but context is left of the message.
bool FaultInjector::lose_submessages_locked(const std::uint8_t* message, std::uint32_t length, std::vector<std::uint8_t>& copy) {
    bool has_more = false;  // than what says for whom and when
    std::size_t place = HEADER;
    std::size_t lost = 0;
    const auto take_copy = [&](std::size_t end) {
        copy.reserve(length);
        copy.assign(message, message + end);
    };
    Submessage each;
    for (; place != length && each.read(message, length, place); place += Submessage::HEADER + each.length) {
        const std::uint8_t* const begin = message + place;
        if (is_lost_locked(each, message)) {
            if (lost++ == 0) {
                take_copy(place);
            }
            continue;
        }
        has_more = has_more || (each.kind != Submessage::INFO_TS && each.kind != Submessage::INFO_DST &&
                                each.kind != Submessage::PAD && each.kind < Submessage::FIRST_OF_VENDORS);
        if (lost != 0) {
            copy.insert(copy.end(), begin, begin + Submessage::HEADER + each.length);
        }
    }
    if (lost != 0) {
        copy.insert(copy.end(), message + place, message + length);  // what cannot be read
    }
    _totals.lost_submessages += lost;
    return lost != 0 && !has_more;
}

bool FaultInjector::is_lost_locked(const Submessage& each, const std::uint8_t* message) {
    const FaultPlan::Kind kind = kind_of(each);
    if (kind == FaultPlan::OTHER) {
        return false;
    }
    bool is_lost = false;
    const std::uint64_t writer = read_octets(writer_of(each), 4);
    if (_plan.drop[kind] > 0 || _plan.first[kind]) {
        const std::uint64_t reader = read_octets(writer_of(each) - 4, 4);
        const std::uint64_t number = _pairs.increment(mix({sender_of(message), kind, writer, reader}));
        is_lost = share({_plan.seed, kind, writer, reader, number}) < _plan.drop[kind] || (_plan.first[kind] && number == 0);
    }
    if (_plan.gap && ((kind == FaultPlan::DATA && each.length >= Submessage::NUMBER_OF_DATA + 8) ||
                      (kind == FaultPlan::DATA_FRAG && each.length >= Submessage::FRAGMENT_COUNT))) {
        const std::uint64_t number = static_cast<std::uint64_t>(each.read_number(Submessage::NUMBER_OF_DATA));
        const std::uint64_t fragment = kind == FaultPlan::DATA_FRAG ? each.read_u32(Submessage::FIRST_FRAGMENT) : 0;
        is_lost = _samples.increment(mix({sender_of(message), writer, number, fragment})) == 0 || is_lost;
    }
    return is_lost;
}

// @param due_ns  gets when the last of its octets has come. @return false if the queue is full.
bool FaultInjector::wait_for_turn_locked(std::uint32_t length, std::int64_t& due_ns) noexcept {
    const std::int64_t now_ns = platform::monotonic_ns();
    const std::int64_t begin_ns = std::max(now_ns, _free_at_ns);
    if (static_cast<double>(begin_ns - now_ns) * _plan.bits_per_ns / 8 > static_cast<double>(_plan.queue)) {
        return false;
    }
    _free_at_ns = due_ns = begin_ns + static_cast<std::int64_t>(8 * length / _plan.bits_per_ns);
    return true;
}

FaultPlan::Kind FaultInjector::kind_of(const Submessage& each) noexcept {
    if (each.kind > Submessage::DATA_FRAG || !names_its_endpoints(each)) {
        return FaultPlan::OTHER;
    }
    const std::uint8_t* const writer = writer_of(each);
    if ((writer[3] & Submessage::BUILTIN_ENTITY) == Submessage::BUILTIN_ENTITY) {
        // 00.01.00.c2 and ff.01.01.c2 announce participants, 00.00.03.c2 and ff.00.03.c2 writers, with a 4 readers.
        return each.kind != Submessage::DATA || writer[3] != 0xc2 ? FaultPlan::OTHER
               : writer[1] == 1                                   ? FaultPlan::PARTICIPANT
               : writer[2] == 3                                   ? FaultPlan::WRITER
               : writer[2] == 4                                   ? FaultPlan::READER
                                                                  : FaultPlan::OTHER;
    }
    switch (each.kind) {
        case Submessage::DATA:
            return FaultPlan::DATA;
        case Submessage::DATA_FRAG:
            return FaultPlan::DATA_FRAG;
        case Submessage::HEARTBEAT:
            return FaultPlan::HEARTBEAT;
        case Submessage::HEARTBEAT_FRAG:
            return FaultPlan::HEARTBEAT_FRAG;
        case Submessage::ACKNACK:
            return FaultPlan::ACKNACK;
        case Submessage::NACK_FRAG:
            return FaultPlan::NACK_FRAG;
        case Submessage::GAP:
            return FaultPlan::GAP;
        default:
            return FaultPlan::OTHER;
    }
}

}  // namespace fastdds
}  // namespace norvane
