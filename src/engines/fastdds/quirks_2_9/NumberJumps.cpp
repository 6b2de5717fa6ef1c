// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/quirks_2_9/NumberJumps.hpp"

#include <algorithm>
#include <cstring>
#include <mutex>

#include "engines/fastdds/quirks_2_9/Submessage.hpp"

namespace eprosima {
namespace fastrtps {
namespace rtps {

// Fast DDS exports it, and installs no header of it. These are its own declarations.
class WriterProxy {
public:
    const SequenceNumber_t available_changes_max() const;
    void loaded_from_storage(const SequenceNumber_t& number);
};

}  // namespace rtps
}  // namespace fastrtps
}  // namespace eprosima

namespace norvane {
namespace fastdds {

namespace {

typedef std::lock_guard<eprosima::fastrtps::RecursiveTimedMutex> ReaderLock;

constexpr std::size_t PREFIX_IN_HEADER = 8;
constexpr std::size_t PREFIX_OF_SOURCE = 8;
constexpr std::size_t SOURCE = 20;
constexpr std::size_t HEARTBEAT_SIZE = 28;
constexpr std::size_t BASE_OF_GAP = 16;
constexpr std::size_t GAP_SIZE = 28;
// A narrower gap occupies less memory than it takes octets.
constexpr std::int64_t NARROW = 4;

rtps::SequenceNumber_t to_rtps(std::int64_t number) noexcept {
    return rtps::SequenceNumber_t(static_cast<std::int32_t>(number >> 32), static_cast<std::uint32_t>(number));
}

std::int64_t passed_on(const rtps::WriterProxy& proxy) noexcept {
    return static_cast<std::int64_t>(proxy.available_changes_max().to64long());
}

}  // namespace

void NumberJumps::add(rtps::RTPSReader& reader, rtps::ReaderHistory& history) {
    rtps::StatefulReader* const stateful = dynamic_cast<rtps::StatefulReader*>(&reader);
    if (stateful != nullptr) {
        const std::lock_guard<std::shared_mutex> lock(_mutex);
        _readers.push_back({stateful, &history});
    }
}

void NumberJumps::remove(const rtps::RTPSReader& reader) noexcept {
    const std::lock_guard<std::shared_mutex> lock(_mutex);
    const auto place = std::find_if(_readers.begin(), _readers.end(), [&](const Listed& each) { return each.reader == &reader; });
    if (place != _readers.end()) {
        _readers.erase(place);
    }
}

bool NumberJumps::take_in(const std::uint8_t* message, std::size_t length) noexcept {
    if (!Submessage::begin_a_message(message, length)) {
        return true;
    }
    bool are_gaps_near = true;
    rtps::GUID_t writer;
    std::memcpy(writer.guidPrefix.value, message + PREFIX_IN_HEADER, sizeof writer.guidPrefix.value);
    Submessage each;
    for (std::size_t at = Submessage::MESSAGE_HEADER; each.read(message, length, at); at += Submessage::HEADER + each.length) {
        if (each.kind == Submessage::INFO_SRC && each.length >= SOURCE) {
            std::memcpy(writer.guidPrefix.value, each.body + PREFIX_OF_SOURCE, sizeof writer.guidPrefix.value);
            continue;
        }
        const bool is_heartbeat = each.kind == Submessage::HEARTBEAT && each.length >= HEARTBEAT_SIZE;
        const bool is_gap = each.kind == Submessage::GAP && each.length >= GAP_SIZE;
        if (!is_heartbeat && !is_gap) {
            continue;
        }
        const std::int64_t first = each.read_number(Submessage::FIRST_NUMBER);
        const std::int64_t behind = is_gap ? each.read_number(BASE_OF_GAP) + each.read_u32(BASE_OF_GAP + 8) : first;
        if (behind <= MOST_NUMBERS) {
            continue;
        }
        std::memcpy(writer.entityId.value, each.body + Submessage::WRITER, sizeof writer.entityId.value);
        if (is_heartbeat) {
            jump(writer, first);
        } else if (behind - first > NARROW) {
            are_gaps_near = is_near(writer, behind) && are_gaps_near;
        }
    }
    return are_gaps_near;
}

void NumberJumps::jump(const rtps::GUID_t& writer, std::int64_t first) noexcept {
    const std::uint64_t matches = _matches.load(std::memory_order_relaxed);
    {
        const std::lock_guard<std::mutex> lock(_done_mutex);
        Done& done = _done[GuidHash()(to_guid(writer)) % REMEMBERED];
        if (done.writer == writer && done.matches == matches && first - done.first <= MOST_NUMBERS) {
            return;
        }
        done = {writer, first, matches};
    }
    const std::shared_lock<std::shared_mutex> lock(_mutex);
    for (const Listed& each : _readers) {
        const ReaderLock reader_lock(each.reader->getMutex());
        rtps::WriterProxy* proxy = nullptr;
        if (!each.reader->matched_writer_lookup(writer, &proxy) || first - passed_on(*proxy) <= MOST_NUMBERS) {
            continue;
        }
        // What is held until samples have come that the writer does not have any more.
        rtps::CacheChange_t* held = nullptr;
        while (each.history->get_min_change_from(&held, writer) && held->sequenceNumber < to_rtps(first)) {
            each.history->remove_change(held);
        }
        // One is left for the heartbeat itself: Fast DDS looks for samples that are already there only when it moves on.
        proxy->loaded_from_storage(to_rtps(first - 2));
    }
}

bool NumberJumps::is_near(const rtps::GUID_t& writer, std::int64_t behind) noexcept {
    const std::shared_lock<std::shared_mutex> lock(_mutex);
    return std::all_of(_readers.begin(), _readers.end(), [&](const Listed& each) {
        const ReaderLock reader_lock(each.reader->getMutex());
        rtps::WriterProxy* proxy = nullptr;
        return !each.reader->matched_writer_lookup(writer, &proxy) || behind - passed_on(*proxy) <= MOST_NUMBERS;
    });
}

}  // namespace fastdds
}  // namespace norvane
