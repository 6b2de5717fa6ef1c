// SPDX-License-Identifier: Apache-2.0
// Serves asynchronous calls: waits for their replies, watches their deadlines, and completes them.
#ifndef NORVANE_DISPATCHER_HPP
#define NORVANE_DISPATCHER_HPP

#include <cstdint>
#include <memory>

#include "norvane/Timeout.hpp"
#include "norvane/export.hpp"

namespace norvane {

namespace details {
class DispatcherLink;
}

/// Serves the asynchronous calls of any number of requesters, thousands at a time, on one thread.
/// @code
///     norvane::Dispatcher dispatcher;
///     norvane::Requester<Question, Answer> requester(norvane::RequesterParams(participant).service_name("Oracle"), dispatcher);
///     std::future<Answer> answer = requester.call_async(question);
/// @endcode
/// Futures, callbacks and coroutines are completed by the thread of the loop, those of closed requesters and dispatchers by the
/// thread that closes. No lock of the library is held then: a callback may make asynchronous calls, and close and destroy
/// requesters and dispatchers. While one blocks, no other call is completed, not even by its deadline.
///
/// Dispatcher and requesters may be destroyed in any order.
/// @par Threads  Same object: any, but destruction overlaps with nothing but callbacks.
class NORVANE_EXPORT Dispatcher {
public:
    /// Which thread runs the loop.
    enum Loop {
        OWN_THREAD,  ///< A thread that the dispatcher starts.
        CALLERS      ///< The application, with `run_once`.
    };

    /// @throws std::system_error  no thread could be had. @throws std::bad_alloc  memory is short.
    explicit Dispatcher(Loop loop = OWN_THREAD);
    /// Closes the dispatcher. Inside a callback it does not wait for the dispatcher's thread, which ends by itself. In a child
    /// process made by fork() it does nothing.
    ~Dispatcher();
    Dispatcher(const Dispatcher&) = delete;
    Dispatcher& operator=(const Dispatcher&) = delete;

    /// One round of the loop: waits until at least one call can be ended, and ends all that can.
    /// @param max_wait  longest wait. Zero only looks; infinite never gives up.
    /// @return how many calls ended; 0 on time-out.
    /// @throws PreconditionNotMetException  another thread is in this function, or this one is inside a callback of this loop; or
    ///                                      the dispatcher has a thread of its own.
    /// @throws AlreadyDeletedException      the dispatcher was closed.
    /// @par Threads  One at a time.
    /// @par Blocks   Up to `max_wait`, and while callbacks run.
    int run_once(const Timeout& max_wait = DDS_DURATION_INFINITE);

    /// @return how many calls have not ended. @par Blocks  Never.
    std::int64_t pending() const;
    /// @return how many callbacks have ended with an exception. Each is logged. @par Blocks  Never.
    std::int64_t failed_callbacks() const;

    /// Ends every call with AlreadyDeletedException, on this thread; later ones are refused with it. Calling it again does nothing.
    /// @par Threads  Any, also inside a callback.
    /// @par Blocks   While a callback runs in another thread; not when called inside a callback.
    void close() noexcept;

private:
    friend class details::DispatcherLink;
    class Calls;

    std::shared_ptr<Calls> _calls;  // shared with the links of the requesters, and with the thread
};

}  // namespace norvane

#endif
