// SPDX-License-Identifier: Apache-2.0
// What the callback of an asynchronous call is given: the reply, still on loan, or the error.
#ifndef NORVANE_CALLRESULT_HPP
#define NORVANE_CALLRESULT_HPP

#include <exception>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#include "norvane/CallTimeoutException.hpp"
#include "norvane/LoanedSamples.hpp"
#include "norvane/details/DispatcherLink.hpp"
#include "norvane/details/sample_copy.hpp"

namespace norvane {

/// How an asynchronous call ended.
/// @code
///     requester.call_async(question, 2s, [](const norvane::CallResult<Answer>& result) {
///         if (result.has_value()) {
///             use(result.value());
///         }
///     });
/// @endcode
/// Can be moved, not copied: it owns the loan.
/// @par Threads  Distinct objects: any. Same object: one at a time.
template <class Reply>
class CallResult {
    typedef typename LoanedSamples<Reply>::const_value_type Ref;

public:
    /// `const char*` for std::string, else `const Reply&`.
    typedef typename std::conditional<std::is_same<Reply, std::string>::value, const char*, const Reply&>::type Value;

    /// Takes over the outcome of a call. @param reader  the reader that lent its reply.
    template <class Reader>
    CallResult(details::CallEnding& ending, Reader* reader) : _error(std::move(ending.error)) {
        if (_error == nullptr) {
            _loan = details::create_loaned_samples<Reply>(ending.reply, ending.count, ending.infos, reader);
        }
    }

    /// @return whether there is a reply.
    bool has_value() const noexcept { return _error == nullptr; }
    explicit operator bool() const noexcept { return has_value(); }
    /// @return the reply, on loan from the reader: it is valid while this result lives.
    /// @throws the error, when there is no reply.
    Value value() const& { return ref().data(); }
    /// Of a result that is a temporary: a copy.
    Reply value() const&& { return copy(); }
    /// @return a copy of the reply. @throws the error, when there is no reply.
    Reply copy() const { return details::copy_of<Reply>(ref()); }
    /// @return the metadata of the reply. @throws the error, when there is no reply.
    const DDS_SampleInfo& info() const& { return ref().info(); }
    /// Of a result that is a temporary: a copy.
    DDS_SampleInfo info() const&& { return ref().info(); }
    /// @return CallTimeoutException, AlreadyDeletedException, or what else kept the reply from coming; null when it came.
    std::exception_ptr error() const noexcept { return _error; }
    /// @return why the time ran out; nothing when the call ended otherwise.
    std::optional<TimeoutReason> timeout_reason() const noexcept {
        try {
            if (_error != nullptr) {
                std::rethrow_exception(_error);
            }
        } catch (const CallTimeoutException& timeout) {
            return timeout.reason();
        } catch (...) {
            // Another error has no such reason.
        }
        return std::nullopt;
    }

private:
    Ref ref() const {
        if (_error != nullptr) {
            std::rethrow_exception(_error);
        }
        return _loan[0];
    }

    LoanedSamples<Reply> _loan;
    std::exception_ptr _error;
};

}  // namespace norvane

#endif
