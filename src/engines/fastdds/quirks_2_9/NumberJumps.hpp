// SPDX-License-Identifier: Apache-2.0
// What Fast DDS does for each single number of a writer, in the messages to a participant: it counts from the last number that a
// reader has passed on to the first that a heartbeat says is left, with the reader locked (a second for each 500 million: a reader
// that meets a writer of long standing), and it keeps an entry for each number of a gap that lies ahead.
//
// 1. Before a heartbeat with a far number is handed on, the readers that have matched the writer are moved there at once.
// 2. A gap far ahead of a reader is removed from the message. The reader asks for it again when it gets there.
// 3. A message that is encrypted is not looked into.
// 4. A reader that is matched while such a heartbeat is being handed on may still count.
//
// Thread rule: any thread at once. The mutex is held while the mutexes of readers are taken, and never taken under those.
#ifndef NORVANE_ENGINES_FASTDDS_QUIRKS_2_9_NUMBERJUMPS_HPP
#define NORVANE_ENGINES_FASTDDS_QUIRKS_2_9_NUMBERJUMPS_HPP

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <shared_mutex>
#include <vector>

#include <fastdds/rtps/common/Guid.h>
#include <fastdds/rtps/history/IChangePool.h>
#include <fastdds/rtps/history/ReaderHistory.h>
#include <fastdds/rtps/reader/RTPSReader.h>
#include <fastdds/rtps/reader/StatefulReader.h>

#include "engines/fastdds/identity.hpp"

namespace norvane {
namespace fastdds {

class NumberJumps {
public:
    /// Numbers that Fast DDS may count, or keep, at once.
    static constexpr std::int64_t MOST_NUMBERS = 1 << 17;

    NumberJumps() = default;
    NumberJumps(const NumberJumps&) = delete;
    NumberJumps& operator=(const NumberJumps&) = delete;

    /// Lists a reader of the participant. Both are borrowed until `remove`. @throws std::bad_alloc
    void add(rtps::RTPSReader& reader, rtps::ReaderHistory& history);
    /// When it returns, the reader is not used.
    void remove(const rtps::RTPSReader& reader) noexcept;
    /// A reader has matched a writer. May be called under the mutex of that reader.
    void note_match() noexcept { _matches.fetch_add(1, std::memory_order_relaxed); }

    /// A message without a wire fault is about to be handed on. @return false if its gaps are to be removed.
    bool take_in(const std::uint8_t* message, std::size_t length) noexcept;

private:
    struct Listed {
        rtps::StatefulReader* reader;
        rtps::ReaderHistory* history;
    };
    // What has been done about a writer, for all readers that were matched by then.
    struct Done {
        rtps::GUID_t writer;
        std::int64_t first = 0;
        std::uint64_t matches = 0;
    };
    static constexpr std::size_t REMEMBERED = 64;

    void jump(const rtps::GUID_t& writer, std::int64_t first) noexcept;
    bool is_near(const rtps::GUID_t& writer, std::int64_t behind) noexcept;

    std::shared_mutex _mutex;
    std::vector<Listed> _readers;
    std::atomic<std::uint64_t> _matches{1};
    std::mutex _done_mutex;  // a leaf
    std::array<Done, REMEMBERED> _done;
};

}  // namespace fastdds
}  // namespace norvane

#endif
