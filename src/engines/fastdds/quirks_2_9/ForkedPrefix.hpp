// SPDX-License-Identifier: Apache-2.0
// The GUID prefixes of a forked child. Fast DDS makes that of each participant from one that it keeps since its first participant,
// process id included. A child made by fork() would share it with its parent, and each would look for the other's endpoints in its own
// memory.
// Thread rule: one thread at a time.
#ifndef NORVANE_ENGINES_FASTDDS_QUIRKS_2_9_FORKEDPREFIX_HPP
#define NORVANE_ENGINES_FASTDDS_QUIRKS_2_9_FORKEDPREFIX_HPP

#include <cstddef>
#include <cstdint>

#include <sys/types.h>

#include <fastdds/rtps/common/GuidPrefix_t.hpp>

namespace norvane {
namespace fastdds {

class ForkedPrefix {
public:
    /// @param made  the prefix of a participant that has been made.
    void note(const eprosima::fastrtps::rtps::GuidPrefix_t& made) noexcept;
    /// @return whether this process was forked since its last participant.
    bool is_of_a_parent() const noexcept;
    /// @return the prefix for one more participant; unknown: Fast DDS may choose.
    /// @throws std::exception  no randomness.
    eprosima::fastrtps::rtps::GuidPrefix_t next();

private:
    eprosima::fastrtps::rtps::GuidPrefix_t _prefix;
    pid_t _process = 0;  // that `_prefix` is of
    bool _is_forked = false;
    std::uint32_t _count = 0;
};

}  // namespace fastdds
}  // namespace norvane

#endif
