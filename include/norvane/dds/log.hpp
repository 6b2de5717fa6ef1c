// SPDX-License-Identifier: Apache-2.0
// The logging facility: message templates, masks, precondition flags, the print function, and the sink behind it.
//
// The caller looks at the masks before it prints; printing itself does not.
// Thread rule: everything here may be used from any thread at once.
#ifndef NORVANE_DDS_LOG_HPP
#define NORVANE_DDS_LOG_HPP

#include <atomic>
#include <cstdint>

#include "norvane/export.hpp"

/// A log template. `format` is a plain sentence with one "%s".
struct VOSTLogMessage {
    std::uint32_t messageId;  ///< Unique for each template.
    const char* format;
};

NORVANE_EXPORT extern const VOSTLogMessage VOST_LOG_CREATION_FAILURE_s;      ///< A create call returned null.
NORVANE_EXPORT extern const VOSTLogMessage VOST_LOG_CREATE_s;                ///< A create call returned null; says for what.
NORVANE_EXPORT extern const VOSTLogMessage VOST_LOG_GET_FAILURE_s;           ///< A get call failed.
NORVANE_EXPORT extern const VOSTLogMessage VOST_LOG_DESTRUCTION_FAILURE_s;   ///< An entity could not be deleted.
NORVANE_EXPORT extern const VOSTLogMessage VOST_LOG_REMOVE_FAILURE_s;        ///< Something could not be detached.
NORVANE_EXPORT extern const VOSTLogMessage VOST_LOG_PRECONDITION_FAILURE_s;  ///< A precondition does not hold.
NORVANE_EXPORT extern const VOSTLogMessage VOST_LOG_ANY_FAILURE_s;           ///< Any other call failed.
NORVANE_EXPORT extern const VOSTLogMessage VOST_LOG_ANY_s;                   ///< Free text.
NORVANE_EXPORT extern const VOSTLogMessage DDS_LOG_BAD_PARAMETER_s;          ///< A parameter was refused.

/// Which levels are on: 0x1 precondition failures, 0x2 errors, 0x4 warnings, 0x8 notices. At start 0x3, or what the environment
/// variable NORVANE_LOG_LEVEL says: "silent" 0x0, "error" 0x3, "warning" 0x7, "notice" 0xf.
NORVANE_EXPORT extern std::atomic<std::uint32_t> DDSLog_g_instrumentationMask;
/// Which parts log: 0x10 the library, 0x20 the middleware, 0x40 the engines. At start all three (none when "silent").
NORVANE_EXPORT extern std::atomic<std::uint32_t> DDSLog_g_submoduleMask;

/// When not zero, a failed precondition sets `VOSTLog_g_preconditionDetected`. Zero at start.
NORVANE_EXPORT extern std::atomic<int> VOSTLog_g_detectPrecondition;
/// Set to 1 by failed preconditions; never cleared by the library.
NORVANE_EXPORT extern std::atomic<int> VOSTLog_g_preconditionDetected;

/// Called at every failed precondition: a place for a breakpoint. Calls the callback of norvane::set_assert_callback, if any.
NORVANE_EXPORT void VOSTLog_onAssertBreakpoint();

/// Composes one line and hands it to the sink. Does not look at the masks; never throws; a line that cannot be composed for want
/// of memory goes out shortened.
/// @param unused    -1.
/// @param level     one level bit.
/// @param module    0xf0000 for the library; the low bits name the part.
/// @param file      source file of the call; not null.
/// @param line      source line of the call.
/// @param method    name of the reporting function; not null.
/// @param message   the template; not null.
/// @param argument  takes the place of the first "%s"; null is written "(null)".
NORVANE_EXPORT void VOSTLogMessage_printWithParams(int unused, std::uint32_t level, std::uint32_t module, const char* file,
                                                   int line, const char* method, const VOSTLogMessage* message,
                                                   const char* argument);

namespace norvane {

/// One line of the log. The pointers are borrowed for the call that gets it.
struct LogRecord {
    std::uint32_t level;  ///< One level bit.
    std::uint32_t module;
    std::uint32_t message_id;  ///< Of the template.
    const char* file;
    int line;
    const char* method;
    const char* text;  ///< The template with its argument in place.
};

/// Where log lines go.
class NORVANE_EXPORT LogSink {
public:
    virtual ~LogSink();
    /// Called from any thread, several at once, under no lock of the library. Must not throw.
    virtual void write(const LogRecord& record) noexcept = 0;
};

/// Replaces the sink.
///
/// Returns when no other thread is inside the old sink any more, so that it may then be destroyed.
/// @param sink  borrowed until replaced; null restores the default, one line per message on standard error.
/// @return the sink that was installed before; null for the default.
/// @par Threads  Any. Not from inside a sink's `write`.
NORVANE_EXPORT LogSink* set_log_sink(LogSink* sink);

/// Replaces the function that VOSTLog_onAssertBreakpoint calls; null for none. Returns the one before.
NORVANE_EXPORT void (*set_assert_callback(void (*callback)()))();

}  // namespace norvane

#endif
