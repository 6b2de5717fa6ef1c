// SPDX-License-Identifier: Apache-2.0
// The typed half of an asynchronous call: the request to be sent or kept, and the completion in the caller's form.
#ifndef NORVANE_DETAILS_ASYNC_CALL_HPP
#define NORVANE_DETAILS_ASYNC_CALL_HPP

#include <cstddef>
#include <exception>
#include <future>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "norvane/details/DispatcherLink.hpp"
#include "norvane/details/sample_argument.hpp"

namespace norvane {

template <class Reply>
class CallResult;

namespace details {

template <class Request>
class KeptRequestOf final : public KeptRequest {
public:
    explicit KeptRequestOf(const Request& request) : _request(request), _argument(_request, "Requester::call_async") {}
    const void* sample() const noexcept override { return _argument.sample(); }

private:
    const Request _request;
    const SampleArgument<Request> _argument;  // borrows from the copy
};

/// @tparam Reader  what lends the reply. @tparam Callback  invocable with CallResult<Reply>.
template <class Reply, class Reader, class Callback>
class CallbackCompletion final : public CallCompletion {
public:
    template <class C>
    CallbackCompletion(Reader* reader, C&& callback) : _reader(reader), _callback(std::forward<C>(callback)) {}
    void complete(CallEnding& ending) override { _callback(CallResult<Reply>(ending, _reader)); }

private:
    Reader* _reader;
    Callback _callback;
};

/// A call in the hands of its form: everything but how the caller is told. Borrows all of it.
template <class Request, class Reply, class Reader>
class AsyncCall {
public:
    /// @throws PreconditionNotMetException  the requester was given no dispatcher.
    AsyncCall(const std::shared_ptr<DispatcherLink>& link, Reader* reader, const Request& request, const Timeout& timeout)
        : _link(link), _reader(reader), _request(request), _timeout(timeout) {
        DispatcherLink::require(link);
    }

    /// Makes the call. Touches neither requester nor caller once the callback can run: it may have ended both.
    template <class C>
    void start(C&& callback) const {
        typedef CallbackCompletion<Reply, Reader, std::decay_t<C>> Completion;
        class Start final : public NewCall {
        public:
            Start(const AsyncCall& call, C& callback)
                : _call(call), _callback(callback), _argument(call._request, "Requester::call_async") {}
            const void* request() const noexcept override { return _argument.sample(); }
            std::unique_ptr<KeptRequest> keep_request() const override {
                return std::make_unique<KeptRequestOf<Request>>(_call._request);
            }
            CallCompletion* make_completion(void* room, std::size_t size) override {
                constexpr bool FITS = alignof(Completion) <= alignof(std::max_align_t);
                return FITS && sizeof(Completion) <= size ? new (room) Completion(_call._reader, std::forward<C>(_callback))
                                                          : new Completion(_call._reader, std::forward<C>(_callback));
            }

        private:
            const AsyncCall& _call;
            C& _callback;
            SampleArgument<Request> _argument;
        };
        Start start(*this, callback);
        const std::shared_ptr<DispatcherLink> link = _link;
        link->start(start, _timeout);
    }

private:
    const std::shared_ptr<DispatcherLink>& _link;
    Reader* _reader;
    const Request& _request;
    const Timeout _timeout;
};

/// What `call_async` returns for a form of being told. Other headers specialise it for forms of their own.
template <class Form>
struct AsyncForm {
    template <class Request, class Reply, class Reader, class Callback>
    static void begin(const AsyncCall<Request, Reply, Reader>& call, Callback&& callback) {
        static_assert(
            std::is_invocable<Form&, CallResult<Reply>>::value,
            "norvane: the callback of call_async is called with a CallResult<Reply>: take it by value or by const reference. (For "
            "use_awaitable, include norvane/coroutines.hpp.)");
        call.start(std::forward<Callback>(callback));
    }
};

/// A future as a callback.
template <class Reply>
class FulfilPromise {
public:
    std::future<Reply> get_future() { return _promise.get_future(); }
    void operator()(const CallResult<Reply>& result) {
        try {
            _promise.set_value(result.copy());
        } catch (...) {
            _promise.set_exception(std::current_exception());
        }
    }

private:
    std::promise<Reply> _promise;
};

}  // namespace details
}  // namespace norvane

#endif
