// SPDX-License-Identifier: Apache-2.0
// The loop of a dispatcher: completes calls whose reply has come or whose time is over, and sends requests that had to wait.
// Thread rule: one thread at a time, which releases the lock while it waits, sends, and completes calls.
#include <algorithm>

#include "frontend/DispatcherCalls.hpp"
#include "norvane/Exception.hpp"

namespace norvane {

using details::error_from;
using details::error_of;

namespace {

DDS_Duration_t left_until(details::Deadline::Clock::time_point time) {
    typedef details::Deadline::Clock Clock;
    if (time == Clock::time_point::max()) {
        return DDS_DURATION_INFINITE;
    }
    // Compared first: "at once" is the earliest time there is, from which nothing can be subtracted.
    const Clock::time_point now = Clock::now();
    return time > now ? details::normalized_duration(0, std::chrono::nanoseconds(time - now).count()) : DDS_DURATION_ZERO;
}

}  // namespace

// ---- the loop -------------------------------------------------------------------------------------------------------------------

void Dispatcher::Calls::start_thread() {
    _thread = std::thread([calls = shared_from_this()] {
        Lock lock(calls->_mutex);
        calls->_looping = std::this_thread::get_id();
        const Deadline never{Timeout(DDS_DURATION_INFINITE)};
        while (calls->_closure == nullptr) {
            calls->round(lock, never);
        }
        calls->_looping = std::thread::id();
    });
}

int Dispatcher::Calls::run_once(const Timeout& max_wait) {
    const Deadline limit(max_wait);
    Lock lock(_mutex);
    if (_loop != CALLERS || _looping != std::thread::id()) {
        lock.unlock();
        throw PreconditionNotMetException(
            _loop != CALLERS ? "Dispatcher::run_once: this dispatcher has a thread of its own; make it with Dispatcher::CALLERS"
                             : "Dispatcher::run_once: a thread is in the loop already");
    }
    if (_closure != nullptr) {
        std::rethrow_exception(_closure);
    }
    _looping = std::this_thread::get_id();
    const int ended = round(lock, limit);
    _looping = std::thread::id();
    if (ended == 0 && _closure != nullptr) {
        std::rethrow_exception(_closure);
    }
    return ended;
}

details::Deadline::Clock::time_point Dispatcher::Calls::next_alarm_locked(const Deadline& limit) {
    Clock::time_point due = _retry_at;
    if (!_deadlines.empty()) {
        due = std::min(due, _deadlines.begin()->deadline);
    }
    // An alarm that is left from a call that has ended stays set. It wakes the loop for nothing, once; without it, each call made
    // while no other is pending would have to nudge the loop.
    if (due < _alarm || _alarm <= Clock::now()) {
        _alarm = due;
    }
    _alarm = std::min(_alarm, limit.time());
    return _alarm;
}

// Waits until at least one call has ended, and ends all that can end.
int Dispatcher::Calls::round(Lock& lock, const Deadline& limit) {
    int ended = 0;
    bool time_is_up = false;
    while (ended == 0 && !time_is_up && _closure == nullptr) {
        const Clock::time_point alarm = next_alarm_locked(limit);
        _asleep = true;
        lock.unlock();
        const DDS_ReturnCode_t code = _waitset.wait(_active, left_until(alarm));
        lock.lock();
        _asleep = false;
        if (code == DDS_RETCODE_OK) {
            ended += end_answered(lock);
        } else if (code != DDS_RETCODE_TIMEOUT) {
            look_at_each_locked();
            ended += end_answered(lock);
        }
        ended += send_kept(lock);
        ended += end_expired(lock);
        time_is_up = !limit.is_infinite() && Clock::now() >= limit.time();
    }
    return ended;
}

int Dispatcher::Calls::end_answered(Lock& lock) {
    int ended = 0;
    for (DDS_Long index = 0; index < _active.length(); ++index) {
        if (_active[index] == &_nudge) {
            _nudge.set_trigger_value(DDS_BOOLEAN_FALSE);
            continue;
        }
        Call& call = static_cast<Call&>(*_active[index]);
        CallEnding ending;
        if (call.is_sent && take_locked(call, ending)) {
            remove_locked(call);
            finish(lock, call, ending);
            ++ended;
        }
    }
    return ended;
}

int Dispatcher::Calls::end_expired(Lock& lock) {
    // Read once: calls that callbacks make now, however short their time, wait for the next round.
    const Clock::time_point now = Clock::now();
    int ended = 0;
    while (!_deadlines.empty() && _deadlines.begin()->deadline <= now) {
        Call& call = *_deadlines.begin();
        CallEnding ending;
        // A reply that has come counts, although the time is over.
        const bool is_answered = call.is_sent && take_locked(call, ending);
        const bool was_sent = call.is_sent;
        remove_locked(call);
        if (!is_answered) {
            pinned(lock, *call.link, [&] {
                CallingRequester& requester = call.link->requester;
                ending.error = error_from([&] {
                    if (call.interruption == DDS_RETCODE_OK) {
                        return requester.timeout_of(call.timeout, was_sent ? &call.open : nullptr);
                    }
                    requester.throw_if_closed("call_async");
                    throw_retcode(call.interruption, "Requester::call_async: the wait for the reply was interrupted");
                });
            });
        }
        finish(lock, call, ending);
        ++ended;
    }
    return ended;
}

// A failed wait has no reason: a reader, or one call, was interrupted, or memory was too short to list the answered calls. The
// calls that are interrupted expire at once; of those that are answered, some are listed.
void Dispatcher::Calls::look_at_each_locked() noexcept {
    _active.length(0);
    for (Deadlines::iterator next = _deadlines.begin(); next != _deadlines.end();) {
        Call& call = *next++;
        if (!call.is_sent) {
            continue;
        }
        DDSConditionSeq active(0);
        _waitset.detach_condition(&call);
        _probe.attach_condition(&call);
        const DDS_ReturnCode_t outcome = _probe.wait(active, DDS_DURATION_ZERO);
        _probe.detach_condition(&call);
        _waitset.attach_condition(&call);
        if (outcome == DDS_RETCODE_OK) {
            const DDS_Long count = _active.length();
            if (_active.length(count + 1)) {
                _active[count] = &call;
            }
        } else if (outcome != DDS_RETCODE_TIMEOUT) {
            call.interruption = outcome;
            _deadlines.erase(_deadlines.iterator_to(call));
            call.deadline = Clock::time_point::min();
            _deadlines.insert(_deadlines.begin(), call);
        }
    }
}

// Runs an action of the requester unlocked, while the requester cannot go.
template <class Action>
void Dispatcher::Calls::pinned(Lock& lock, Link& link, Action action) noexcept {
    _pinned = &link;
    lock.unlock();
    action();
    lock.lock();
    _pinned = nullptr;
    if (_closers > 0) {
        _changed.notify_all();
    }
}

// ---- requests that wait to be sent ----------------------------------------------------------------------------------------------

int Dispatcher::Calls::send_kept(Lock& lock) {
    if (_lines.empty() || Clock::now() < _retry_at) {
        return 0;
    }
    int ended = 0;
    bool has_sent = false;
    _retry_at = Clock::time_point::max();
    for (std::size_t count = _lines.size(); count > 0 && !_lines.empty(); --count) {
        const std::shared_ptr<Link> link = _lines.front().shared_from_this();
        _lines.pop_front();
        ended += send_line(lock, link, has_sent);
        // A call that was made meanwhile may have put it back.
        if (link->kept.empty() && link->in_lines.is_linked()) {
            _lines.erase(Lines::s_iterator_to(*link));
        } else if (!link->kept.empty() && !link->in_lines.is_linked()) {
            _lines.push_back(*link);
        }
    }
    if (_lines.empty()) {
        _retry_at = Clock::time_point::max();
        _retry_pause = FIRST_RETRY;
    } else {
        _retry_pause = has_sent ? FIRST_RETRY : std::min<Clock::duration>(2 * _retry_pause, LAST_RETRY);
        _retry_at = std::min(_retry_at, Clock::now() + _retry_pause);
    }
    return ended;
}

// Sends what can be sent, in order. While it is being sent a call is in no list.
int Dispatcher::Calls::send_line(Lock& lock, const std::shared_ptr<Link>& link, bool& has_sent) {
    int ended = 0;
    while (!link->kept.empty()) {
        Call& call = link->kept.front();
        link->kept.pop_front();
        _deadlines.erase(_deadlines.iterator_to(call));
        bool is_open = false;
        CallEnding ending;
        pinned(lock, *link, [&] {
            ending.error = error_of([&] { is_open = link->requester.try_open_call(call.request->sample(), call.open); });
            if (is_open) {
                call.request.reset();
            }
        });
        if (ending.error == nullptr && closure_locked(*link) != nullptr) {
            ending.error = closure_locked(*link);
            if (is_open) {
                link->requester.close_call(call.open);
            }
        } else if (ending.error == nullptr && !is_open) {
            link->kept.push_front(call);
            _deadlines.insert(call);
            return ended;
        } else if (ending.error == nullptr) {
            has_sent = true;
            const DDS_ReturnCode_t code = place_locked(call);
            if (code == DDS_RETCODE_OK) {
                continue;
            }
            ending.error =
                error_of([&] { throw_retcode(code, "Requester::call_async: the condition of the reply could not be attached"); });
        }
        finish(lock, call, ending);
        ++ended;
    }
    return ended;
}

}  // namespace norvane
