// SPDX-License-Identifier: Apache-2.0
// Private to the sources of this folder: the log gate, the check of return codes on the fast path, and the owner of a read
// condition.
// Thread rule: no state; any thread.
#ifndef NORVANE_REQUESTREPLY_UNTYPEDCOMMON_PKG_HPP
#define NORVANE_REQUESTREPLY_UNTYPEDCOMMON_PKG_HPP

#include <cstdint>

#include "norvane/Exception.hpp"
#include "norvane/dds/DataReader.hpp"

namespace norvane {
namespace details {

// Level bits of the library's log lines, and the bit that each of them needs in the submodule mask.
constexpr std::uint32_t LOG_PRECONDITION = 0x1;
constexpr std::uint32_t LOG_ERROR = 0x2;
constexpr std::uint32_t LOG_NOTICE = 0x8;
constexpr std::uint32_t LOG_SUBMODULE = 0x10;
constexpr std::uint32_t LOG_MODULE = 0xf0000;

inline bool log_is_on(std::uint32_t level) noexcept {
    return (DDSLog_g_instrumentationMask.load(std::memory_order_relaxed) & level) != 0 &&
           (DDSLog_g_submoduleMask.load(std::memory_order_relaxed) & LOG_SUBMODULE) != 0;
}

/// Prints one line when the level is on. File and line are those of the caller.
inline void log_line(std::uint32_t level, const char* method, const VOSTLogMessage& message, const char* argument,
                     const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
    if (log_is_on(level)) {
        VOSTLogMessage_printWithParams(-1, level, LOG_MODULE, file, line, method, &message, argument);
    }
}

/// `check_retcode` for the fast path, which does not treat a time-out as an error: a success, an empty read or a time-out must not
/// pay for the allocation of its std::string.
inline bool check_code(DDS_ReturnCode_t retcode, const char* method_name, const VOSTLogMessage& error_msg, const char* msg) {
    if (retcode == DDS_RETCODE_OK) {
        return true;
    }
    if (retcode == DDS_RETCODE_NO_DATA || retcode == DDS_RETCODE_TIMEOUT) {
        return false;
    }
    return check_retcode(retcode, method_name, error_msg, msg, false);
}

/// Sets what requesters and repliers need where the application has said nothing. Every other field stays.
void set_request_reply_defaults(DDS_DataWriterQos& qos);
void set_request_reply_defaults(DDS_DataReaderQos& qos);

}  // namespace details
}  // namespace norvane

/// Owns one read condition and deletes it through its reader.
class ScopedReadCondition {
public:
    /// @param condition  may be null.
    explicit ScopedReadCondition(DDSReadCondition* condition) : _condition(condition) {}
    /// A failed deletion is not reported: the operation that used the condition has ended, and its outcome stands.
    virtual ~ScopedReadCondition();

    DDSReadCondition* get() { return _condition; }
    operator DDS::ReadCondition*() { return _condition; }

private:
    ScopedReadCondition(const ScopedReadCondition&);             // not defined
    ScopedReadCondition& operator=(const ScopedReadCondition&);  // not defined

    DDSReadCondition* _condition;
};

#endif
