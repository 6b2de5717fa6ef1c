// SPDX-License-Identifier: Apache-2.0
// Making calls, ending them, and closing.
#include "frontend/DispatcherCalls.hpp"

#include <unistd.h>

#include <algorithm>
#include <string>

#include "frontend/log_line.hpp"
#include "norvane/Exception.hpp"

namespace norvane {

using details::error_from;
using details::error_of;

namespace {

thread_local int callback_depth = 0;

}  // namespace

bool Dispatcher::Calls::EarlierDeadline::operator()(const Call& left, const Call& right) const noexcept {
    return left.deadline < right.deadline;
}

void Dispatcher::Calls::Call::drop_completion() noexcept {
    if (static_cast<void*>(completion) == room) {
        completion->~CallCompletion();
    } else {
        delete completion;
    }
    completion = nullptr;
}

Dispatcher::Calls::Calls(Loop loop) : _process(::getpid()), _loop(loop) {
    check_retcode(_waitset.attach_condition(&_nudge), "Dispatcher::Dispatcher", VOST_LOG_ANY_FAILURE_s,
                  "attach the guard condition", true);
}

bool Dispatcher::Calls::is_of_a_parent() const noexcept { return ::getpid() != _process; }

void Dispatcher::Calls::throw_if_forked(const char* method_name) const {
    if (is_of_a_parent()) {
        throw IllegalOperationException(std::string(method_name) +
                                        ": the process was forked after the dispatcher was made; make one in the child");
    }
}

// ---- records --------------------------------------------------------------------------------------------------------------------

Dispatcher::Calls::Call& Dispatcher::Calls::take_record_locked() {
    if (_free == nullptr) {
        return _records.emplace_back();
    }
    Call& call = *_free;
    _free = call.next_free;
    return call;
}

void Dispatcher::Calls::recycle_locked(Call& call) noexcept {
    call.link = nullptr;
    call.interruption = DDS_RETCODE_OK;
    call.next_free = _free;
    _free = &call;
}

// Adds a call to those that were sent, or to those that wait to be sent. On an error it is in no list.
DDS_ReturnCode_t Dispatcher::Calls::place_locked(Call& call) noexcept {
    if (call.request == nullptr) {
        call.is_sent = true;
        const DDS_ReturnCode_t code = _waitset.attach_condition(&call);
        if (code != DDS_RETCODE_OK) {
            call.is_sent = false;
            call.link->requester.close_call(call.open);
            return code;
        }
        call.link->sent.push_back(call);
    } else {
        call.link->kept.push_back(call);
    }
    // Nearly always the latest of all: no search.
    _deadlines.insert(_deadlines.end(), call);
    return DDS_RETCODE_OK;
}

void Dispatcher::Calls::remove_locked(Call& call) noexcept {
    _deadlines.erase(_deadlines.iterator_to(call));
    if (call.is_sent) {
        call.is_sent = false;
        call.link->sent.erase(CallList::s_iterator_to(call));
        call.link->requester.close_call(call.open);
        return;
    }
    call.link->kept.erase(CallList::s_iterator_to(call));
    if (call.link->kept.empty() && call.link->in_lines.is_linked()) {
        _lines.erase(Lines::s_iterator_to(*call.link));
    }
}

// ---- making calls ---------------------------------------------------------------------------------------------------------------

std::exception_ptr Dispatcher::Calls::closure_locked(const Link& link) const noexcept {
    return link.closure != nullptr ? link.closure : _closure;
}

void Dispatcher::Calls::start(Link& link, NewCall& new_call, const Timeout& timeout) {
    const Deadline deadline(timeout);
    Call* call = nullptr;
    bool stands_in_line = false;
    {
        Lock lock(_mutex);
        if (closure_locked(link) != nullptr) {
            std::rethrow_exception(closure_locked(link));
        }
        call = &take_record_locked();
        stands_in_line = !link.kept.empty();
    }
    call->link = &link;
    call->timeout = timeout;
    call->deadline = deadline.time();
    const auto give_up = [&] {
        if (call->completion != nullptr) {
            call->drop_completion();
        }
        call->request.reset();
        Lock lock(_mutex);
        recycle_locked(*call);
    };
    std::exception_ptr error;
    try {
        call->completion = new_call.make_completion(call->room, sizeof call->room);
        if (stands_in_line || !link.requester.try_open_call(new_call.request(), call->open)) {
            throw_if_forked("Requester::call_async");  // a write would have been refused
            call->request = new_call.keep_request();
        }
    } catch (...) {
        give_up();
        throw;
    }
    {
        Lock lock(_mutex);
        error = closure_locked(link);
        if (error == nullptr) {
            const bool is_kept = call->request != nullptr;
            const DDS_ReturnCode_t code = place_locked(*call);
            if (code == DDS_RETCODE_OK) {
                // From here on the call may end at any moment, and take the requester with it: nothing but locals, and what they
                // keep.
                if (is_kept) {
                    schedule_locked(link, Clock::now() + FIRST_RETRY);
                }
                nudge_if_earlier(lock, is_kept ? std::min(_retry_at, deadline.time()) : deadline.time());
                return;
            }
            error =
                error_of([&] { throw_retcode(code, "Requester::call_async: the condition of the reply could not be attached"); });
        } else if (call->request == nullptr) {
            link.requester.close_call(call->open);
        }
    }
    give_up();
    std::rethrow_exception(error);
}

// The link's line is looked at, at the time given or before.
void Dispatcher::Calls::schedule_locked(Link& link, Clock::time_point retry_at) noexcept {
    if (!link.in_lines.is_linked()) {
        _lines.push_back(link);
    }
    _retry_pause = FIRST_RETRY;
    _retry_at = std::min(_retry_at, retry_at);
}

void Dispatcher::Calls::repliers_changed(Link& link) noexcept {
    Lock lock(_mutex);
    if (!link.kept.empty()) {
        schedule_locked(link, Clock::time_point::min());
        nudge_if_earlier(lock, _retry_at);
    }
}

// Wakes the loop up when it sleeps beyond that time. The lock is given up; the guard condition is kept alive by the caller.
void Dispatcher::Calls::nudge_if_earlier(Lock& lock, Clock::time_point time) noexcept {
    const bool nudges = _asleep && time < _alarm;
    if (nudges) {
        _alarm = time;
    }
    lock.unlock();
    if (nudges) {
        _nudge.set_trigger_value(DDS_BOOLEAN_TRUE);
    }
}

// ---- ending calls ---------------------------------------------------------------------------------------------------------------

bool Dispatcher::Calls::take_locked(Call& call, CallEnding& ending) noexcept {
    bool is_there = false;
    ending.error =
        error_of([&] { is_there = call.link->requester.take_reply(call.open, &ending.reply, &ending.count, ending.infos); });
    if (is_there) {
        call.link->requester.count_completed();
    }
    return is_there || ending.error != nullptr;
}

// Completes a call, unlocked. The call is in no list; its requester may be destroyed when this returns.
void Dispatcher::Calls::finish(Lock& lock, Call& call, CallEnding& ending) noexcept {
    const std::shared_ptr<Link> link = call.link->shared_from_this();
    ++link->running;
    ++_running;
    lock.unlock();
    ++callback_depth;
    try {
        call.completion->complete(ending);
    } catch (const std::exception& exception) {
        _failed_callbacks.fetch_add(1, std::memory_order_relaxed);
        details::log_line(details::LOG_ERROR, "callback of Requester::call_async", exception.what());
    } catch (...) {
        _failed_callbacks.fetch_add(1, std::memory_order_relaxed);
        details::log_line(details::LOG_ERROR, "callback of Requester::call_async", "an exception that is no std::exception");
    }
    call.drop_completion();
    call.request.reset();
    --callback_depth;
    lock.lock();
    --link->running;
    --_running;
    recycle_locked(call);
    if (_closers > 0) {
        _changed.notify_all();
    }
}

// ---- closing --------------------------------------------------------------------------------------------------------------------

// @return whether this thread is inside a callback; or in the loop, and so at most inside a listener that a write of the loop has
// called.
bool Dispatcher::Calls::is_inside_locked() const noexcept { return callback_depth > 0 || _looping == std::this_thread::get_id(); }

// Waits for other threads: for the pin, unless this thread may hold it; and for callbacks, unless it is inside one itself.
template <class IsOver>
void Dispatcher::Calls::wait_for_others(Lock& lock, Link* link, IsOver is_over) noexcept {
    if (is_of_a_parent()) {
        return;  // A callback may have run when the process was forked: the future of its call is ready before it has ended.
    }
    const bool is_looping = _looping == std::this_thread::get_id();
    const bool is_inside = is_inside_locked();
    ++_closers;
    _changed.wait(lock, [&] {
        const bool is_free = is_looping || _pinned == nullptr || (link != nullptr && _pinned != link);
        return is_free && (is_inside || is_over());
    });
    --_closers;
}

void Dispatcher::Calls::begin_close_locked(Link& link, const std::exception_ptr& closure) noexcept {
    if (link.closure == nullptr) {
        link.closure = closure;
    }
    while (!link.sent.empty() || !link.kept.empty()) {
        Call& call = link.sent.empty() ? link.kept.front() : link.sent.front();
        remove_locked(call);
        link.closing.push_back(call);
    }
}

void Dispatcher::Calls::close_link(Link& link) noexcept {
    link.begin_close();
    Lock lock(_mutex);
    while (!link.closing.empty()) {
        Call& call = link.closing.front();
        link.closing.pop_front();
        CallEnding ending;
        ending.error = link.closure;
        finish(lock, call, ending);
    }
    wait_for_others(lock, &link, [&] { return link.running == 0; });
}

// @param forever  it is not closed a second time.
void Dispatcher::Calls::close(bool forever) noexcept {
    const std::exception_ptr closure =
        error_of([] { throw AlreadyDeletedException("Requester::call_async: the dispatcher was closed"); });
    Lock lock(_mutex);
    if (_closure == nullptr) {
        _closure = closure;
    }
    while (!_deadlines.empty()) {
        Call& call = *_deadlines.begin();
        CallEnding ending;
        ending.error = _closure;
        remove_locked(call);
        finish(lock, call, ending);
    }
    _nudge.set_trigger_value(DDS_BOOLEAN_TRUE);
    wait_for_others(lock, nullptr, [&] { return _running == 0; });
    const bool is_inside = is_inside_locked();
    std::thread thread;
    if (forever || !is_inside) {
        thread.swap(_thread);
    }
    lock.unlock();
    if (!thread.joinable()) {
        return;
    }
    if (is_inside) {
        thread.detach();
    } else {
        thread.join();
    }
}

}  // namespace norvane
