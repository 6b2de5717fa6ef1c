// SPDX-License-Identifier: Apache-2.0
// The public face of a dispatcher, and the way of a requester to it.
#include "norvane/Dispatcher.hpp"

#include "frontend/DispatcherCalls.hpp"
#include "norvane/Exception.hpp"

namespace norvane {

Dispatcher::Dispatcher(Loop loop) : _calls(std::make_shared<Calls>(loop)) {
    if (loop == OWN_THREAD) {
        _calls->start_thread();
    }
}

Dispatcher::~Dispatcher() {
    if (!_calls->is_of_a_parent()) {  // not in a child made by fork(): its copy has no thread that could end
        _calls->close(true);
    }
}

int Dispatcher::run_once(const Timeout& max_wait) {
    const std::shared_ptr<Calls> calls = _calls;  // a callback may destroy the dispatcher
    return calls->run_once(max_wait);
}

std::int64_t Dispatcher::pending() const { return _calls->pending(); }

std::int64_t Dispatcher::failed_callbacks() const { return _calls->failed_callbacks(); }

void Dispatcher::close() noexcept {
    const std::shared_ptr<Calls> calls = _calls;
    calls->close(false);
}

namespace details {

CallCompletion::~CallCompletion() = default;

KeptRequest::~KeptRequest() = default;

DispatcherLink::~DispatcherLink() = default;

std::shared_ptr<DispatcherLink> DispatcherLink::join(Dispatcher& dispatcher, CallingRequester& requester) {
    dispatcher._calls->throw_if_forked("Requester::Requester");
    return std::make_shared<Dispatcher::Calls::Link>(dispatcher._calls, requester);
}

DispatcherLink& DispatcherLink::require(const std::shared_ptr<DispatcherLink>& link) {
    if (link == nullptr) {
        throw PreconditionNotMetException(
            "Requester::call_async: the requester has no dispatcher: make a norvane::Dispatcher, and give it to the constructor of "
            "the Requester");
    }
    return *link;
}

}  // namespace details
}  // namespace norvane
