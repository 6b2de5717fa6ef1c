// SPDX-License-Identifier: Apache-2.0
// How the middleware and the engines write a log line: the masks are checked first, and the text is built only for a line that goes
// out.
//
// A text is a `const char*`, a `std::string`, or a callable that returns either; give a callable where building costs something.
// Header only, on the exported logging facility, so that an engine in a module of its own logs the same way.
// Thread rule: any thread. Never throws.
#ifndef NORVANE_MIDDLEWARE_LOG_HPP
#define NORVANE_MIDDLEWARE_LOG_HPP

#include <cstdint>
#include <string>
#include <type_traits>

#include "norvane/dds/log.hpp"

namespace norvane {
namespace mw {

/// Level bits.
constexpr std::uint32_t LOG_LEVEL_ERROR = 0x2;
constexpr std::uint32_t LOG_LEVEL_WARNING = 0x4;
constexpr std::uint32_t LOG_LEVEL_NOTICE = 0x8;

/// Part that logs, as a bit of DDSLog_g_submoduleMask.
enum class LogPart : std::uint32_t { MIDDLEWARE = 0x20, ENGINE = 0x40 };

/// @return whether a line of this level and part goes out.
inline bool log_is_on(std::uint32_t level, LogPart part = LogPart::MIDDLEWARE) noexcept {
    return (DDSLog_g_instrumentationMask.load(std::memory_order_relaxed) & level) != 0 &&
           (DDSLog_g_submoduleMask.load(std::memory_order_relaxed) & static_cast<std::uint32_t>(part)) != 0;
}

namespace log_text {
inline const char* as_chars(const char* text) noexcept { return text; }
inline const char* as_chars(const std::string& text) noexcept { return text.c_str(); }
}  // namespace log_text

/// Writes a line when its gate is open. Use the three functions below.
template <typename Text>
void log_line(std::uint32_t level, LogPart part, const char* file, int line, const char* method, const Text& text) noexcept {
    if (!log_is_on(level, part)) {
        return;
    }
    constexpr std::uint32_t MODULE = 0xf0000;
    const std::uint32_t module = MODULE | static_cast<std::uint32_t>(part);
    try {
        if constexpr (std::is_invocable<const Text&>::value) {
            const auto& built = text();
            VOSTLogMessage_printWithParams(-1, level, module, file, line, method, &VOST_LOG_ANY_s, log_text::as_chars(built));
        } else {
            VOSTLogMessage_printWithParams(-1, level, module, file, line, method, &VOST_LOG_ANY_s, log_text::as_chars(text));
        }
    } catch (...) {
        VOSTLogMessage_printWithParams(-1, level, module, file, line, method, &VOST_LOG_ANY_s,
                                       "(no memory for the text of this line)");
    }
}

/// Something failed, or an argument was refused. `log_error<LogPart::ENGINE>(...)` from an engine.
/// @param method  class and function joined by "::".
template <LogPart PART = LogPart::MIDDLEWARE, typename Text>
void log_error(const char* method, const Text& text, const char* file = __builtin_FILE(), int line = __builtin_LINE()) noexcept {
    log_line(LOG_LEVEL_ERROR, PART, file, line, method, text);
}

/// Something works, but not as it should.
template <LogPart PART = LogPart::MIDDLEWARE, typename Text>
void log_warning(const char* method, const Text& text, const char* file = __builtin_FILE(), int line = __builtin_LINE()) noexcept {
    log_line(LOG_LEVEL_WARNING, PART, file, line, method, text);
}

/// Something worth knowing when a problem is investigated.
template <LogPart PART = LogPart::MIDDLEWARE, typename Text>
void log_notice(const char* method, const Text& text, const char* file = __builtin_FILE(), int line = __builtin_LINE()) noexcept {
    log_line(LOG_LEVEL_NOTICE, PART, file, line, method, text);
}

}  // namespace mw
}  // namespace norvane

#endif
