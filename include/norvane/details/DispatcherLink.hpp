// SPDX-License-Identifier: Apache-2.0
// The connection of a requester to its dispatcher, and the untyped view of a call that both use.
#ifndef NORVANE_DETAILS_DISPATCHERLINK_HPP
#define NORVANE_DETAILS_DISPATCHERLINK_HPP

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>

#include "norvane/Timeout.hpp"
#include "norvane/dds/SampleInfo.hpp"
#include "norvane/export.hpp"

namespace norvane {

class Dispatcher;

namespace details {

class CallingRequester;

/// How an asynchronous call ended: with one reply on loan, or with an error.
struct CallEnding {
    void** reply = nullptr;  ///< On loan; CallCompletion::complete returns it, with `infos`.
    int count = 0;
    DDS_SampleInfoSeq infos;
    std::exception_ptr error;  ///< Null when there is a reply.
};

/// Receives the ending of a call.
class NORVANE_EXPORT CallCompletion {
public:
    virtual ~CallCompletion();
    /// Called once, without any lock of the library. What it throws is logged and counted.
    virtual void complete(CallEnding& ending) = 0;
};

/// A request that waits for a replier, or for room.
class NORVANE_EXPORT KeptRequest {
public:
    virtual ~KeptRequest();
    virtual const void* sample() const noexcept = 0;
};

/// A call that is about to be made. On the stack of the caller.
class NewCall {
public:
    /// @return the request as the core writes it.
    virtual const void* request() const noexcept = 0;
    /// @return a copy of the request.
    virtual std::unique_ptr<KeptRequest> keep_request() const = 0;
    /// Moves the completion out. @param room  where it is made when it fits in there; else it is on the heap.
    virtual CallCompletion* make_completion(void* room, std::size_t size) = 0;

protected:
    ~NewCall() = default;
};

/// One requester's share of a dispatcher. The requester owns it; calls that are being completed share it, so that a requester may
/// be destroyed inside its own callback.
class NORVANE_EXPORT DispatcherLink {
public:
    /// Room of a completion that needs no heap memory: its two pointers, and a callback of 80 octets.
    static constexpr std::size_t COMPLETION_ROOM = 96;

    /// @param dispatcher  may be gone before the requester.
    /// @param requester   closes the link before it goes.
    static std::shared_ptr<DispatcherLink> join(Dispatcher& dispatcher, CallingRequester& requester);
    /// @return the link. @throws PreconditionNotMetException  it is null: the requester was given no dispatcher.
    static DispatcherLink& require(const std::shared_ptr<DispatcherLink>& link);

    virtual ~DispatcherLink();
    /// Sends the request, or keeps it until a replier is ready and has room; the completion gets the ending, unless this throws.
    /// @throws AlreadyDeletedException  requester or dispatcher was closed. @throws what a write throws; std::bad_alloc.
    /// @par Blocks  Never.
    virtual void start(NewCall& call, const Timeout& timeout) = 0;
    /// @return how many calls wait to be sent.
    virtual std::int64_t kept_calls() const = 0;
    /// A replier has come or gone.
    virtual void repliers_changed() noexcept = 0;
    /// Takes every call out of the loop: `close` is to follow. No call is started any more. @par Blocks  Never.
    virtual void begin_close() noexcept = 0;
    /// Ends every call, on this thread, with the requester's closure. The requester is not touched afterwards.
    /// @par Blocks  While a callback of the requester runs in another thread; not when called inside a callback.
    virtual void close() noexcept = 0;

protected:
    DispatcherLink() = default;
    DispatcherLink(const DispatcherLink&) = delete;
    DispatcherLink& operator=(const DispatcherLink&) = delete;
};

}  // namespace details
}  // namespace norvane

#endif
