// SPDX-License-Identifier: Apache-2.0
// Asynchronous calls in coroutines. Needs C++20; the library itself does not.
//
// A form of its own beside future and callback: what is declared here changes nothing for translation units that do not include it.
#ifndef NORVANE_COROUTINES_HPP
#define NORVANE_COROUTINES_HPP

#if !defined(__cpp_impl_coroutine) || __cplusplus < 202002L
#error "norvane/coroutines.hpp needs C++20 coroutines: compile this file with -std=c++20 or newer"
#else

#include <coroutine>
#include <exception>
#include <optional>

#include "norvane/CallResult.hpp"
#include "norvane/details/async_call.hpp"

namespace norvane {

/// Chooses the awaitable form: `Reply reply = co_await requester.call_async(request, timeout, norvane::use_awaitable);`
/// A coroutine must not be destroyed while it waits: close the requester first, and it goes on with AlreadyDeletedException.
struct use_awaitable_t {
    explicit use_awaitable_t() = default;
};
inline constexpr use_awaitable_t use_awaitable{};

namespace details {

/// A call while it is awaited. The coroutine goes on in the thread that completes the call, or at once when the call could not be
/// made. Nothing is allocated: the state is in the coroutine's frame.
template <class Request, class Reply, class Reader>
class CallAwaiter {
public:
    explicit CallAwaiter(const AsyncCall<Request, Reply, Reader>& call) : _call(call) {}
    CallAwaiter(const CallAwaiter&) = delete;
    CallAwaiter& operator=(const CallAwaiter&) = delete;

    bool await_ready() const noexcept { return false; }
    // Once the call is started this object may be gone: the coroutine may be running elsewhere already. Not inlined, since some
    // compilers would then keep the locals in the coroutine's frame, which may be gone with it.
    [[gnu::noinline]] void await_suspend(std::coroutine_handle<> waiting) {
        _call.start([this, waiting](CallResult<Reply> result) {
            _result.emplace(std::move(result));
            waiting.resume();
        });
    }
    /// @return the reply. @throws what the call ended with.
    Reply await_resume() const { return _result->copy(); }

private:
    const AsyncCall<Request, Reply, Reader>& _call;
    std::optional<CallResult<Reply>> _result;
};

/// The call that `co_await` makes: nothing is sent before. It borrows the request, which may be a temporary: so it is awaited in
/// the expression that makes it, and not once it has a name.
template <class Request, class Reply, class Reader>
class [[nodiscard]] AwaitableCall {
public:
    explicit AwaitableCall(const AsyncCall<Request, Reply, Reader>& call) : _call(call) {}
    AwaitableCall(const AwaitableCall&) = delete;
    AwaitableCall& operator=(const AwaitableCall&) = delete;

    CallAwaiter<Request, Reply, Reader> operator co_await() && { return CallAwaiter<Request, Reply, Reader>(_call); }
    CallAwaiter<Request, Reply, Reader> operator co_await() & = delete;  // it borrows the request: await it at once

private:
    const AsyncCall<Request, Reply, Reader> _call;
};

template <>
struct AsyncForm<use_awaitable_t> {
    /// The awaitable borrows the request: await it in the expression that makes it.
    template <class Request, class Reply, class Reader>
    static AwaitableCall<Request, Reply, Reader> begin(const AsyncCall<Request, Reply, Reader>& call, const use_awaitable_t&) {
        return AwaitableCall<Request, Reply, Reader>(call);
    }
};

}  // namespace details
}  // namespace norvane

#endif
#endif
