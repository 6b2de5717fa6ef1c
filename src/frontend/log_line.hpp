// SPDX-License-Identifier: Apache-2.0
// The front-ends' own log lines: they carry the library's bit.
#ifndef NORVANE_FRONTEND_LOG_LINE_HPP
#define NORVANE_FRONTEND_LOG_LINE_HPP

#include <cstdint>

#include "norvane/dds/log.hpp"

namespace norvane {
namespace details {

constexpr std::uint32_t LOG_ERROR = 0x2;

/// Prints one line when the level is on. @param text  goes out as it is. File and line are those of the caller.
inline void log_line(std::uint32_t level, const char* method, const char* text, const char* file = __builtin_FILE(),
                     int line = __builtin_LINE()) noexcept {
    constexpr std::uint32_t SUBMODULE = 0x10;
    constexpr std::uint32_t MODULE = 0xf0000;
    if ((DDSLog_g_instrumentationMask.load(std::memory_order_relaxed) & level) != 0 &&
        (DDSLog_g_submoduleMask.load(std::memory_order_relaxed) & SUBMODULE) != 0) {
        VOSTLogMessage_printWithParams(-1, level, MODULE, file, line, method, &VOST_LOG_ANY_s, text);
    }
}

}  // namespace details
}  // namespace norvane

#endif
