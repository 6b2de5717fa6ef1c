// SPDX-License-Identifier: Apache-2.0
// The time-out of a call, with its reason as a value: no program need search in the text.
#ifndef NORVANE_CALLTIMEOUTEXCEPTION_HPP
#define NORVANE_CALLTIMEOUTEXCEPTION_HPP

#include <string>

#include "norvane/Exception.hpp"
#include "norvane/export.hpp"

namespace norvane {

/// Why a call got no reply in time, as far as the requester knows.
enum class TimeoutReason {
    NO_REPLIER,         ///< Nothing was sent: no replier was there.
    INCOMPATIBLE_QOS,   ///< Nothing was sent: the only repliers found have a QoS that never matches. The message names the policy.
    INCOMPATIBLE_TYPE,  ///< Nothing was sent: the only repliers found have other types. The message names the type.
    NOT_MATCHED_YET,    ///< Nothing was sent: a replier was matched in one direction only. It may be ready soon.
    NO_ROOM,            ///< Nothing was sent: a replier's queue was full.
    SILENT,             ///< The request was sent, and a replier that was there then still is: it is slow, or does not answer.
    REPLIER_LEFT        ///< The request was sent, and every replier that was there then has left or was lost.
};

/// A call that ended without a reply when its time was over. Thrown by `Requester::call`, and what a future, a CallResult or an
/// awaited call of `call_async` ends with.
///
/// After NO_REPLIER to NO_ROOM the request went nowhere, and may be sent again without being executed twice.
class NORVANE_EXPORT CallTimeoutException : public TimeoutException {
public:
    CallTimeoutException(const std::string& message, TimeoutReason reason);
    CallTimeoutException(const CallTimeoutException& other);
    ~CallTimeoutException() override;
    /// @return why no reply came.
    TimeoutReason reason() const noexcept { return _reason; }
    [[noreturn]] void raise() override;
    /// Throws a new exception of this class, with the same reason.
    [[noreturn]] void rethrow(const std::string& additional_info) const override;

private:
    TimeoutReason _reason;
};

}  // namespace norvane

#endif
