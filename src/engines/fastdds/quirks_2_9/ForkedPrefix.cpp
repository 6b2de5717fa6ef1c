// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/quirks_2_9/ForkedPrefix.hpp"

#include <unistd.h>

#include <cstring>
#include <random>

namespace norvane {
namespace fastdds {

namespace {

// Places in a prefix. Before them: vendor and host.
constexpr std::size_t PROCESS = 4;
constexpr std::size_t NUMBER = 8;

}  // namespace

void ForkedPrefix::note(const eprosima::fastrtps::rtps::GuidPrefix_t& made) noexcept {
    if (_process == 0) {
        _prefix = made;
        _process = ::getpid();
    }
}

bool ForkedPrefix::is_of_a_parent() const noexcept { return _process != 0 && _process != ::getpid(); }

eprosima::fastrtps::rtps::GuidPrefix_t ForkedPrefix::next() {
    if (is_of_a_parent()) {
        _process = ::getpid();
        _is_forked = true;
        _count = 0;
        const std::uint32_t random = std::random_device()();
        std::memcpy(_prefix.value + PROCESS, &random, sizeof random);
    }
    if (!_is_forked) {
        return eprosima::fastrtps::rtps::GuidPrefix_t::unknown();
    }
    ++_count;
    std::memcpy(_prefix.value + NUMBER, &_count, sizeof _count);
    return _prefix;
}

}  // namespace fastdds
}  // namespace norvane
