// SPDX-License-Identifier: Apache-2.0
// The calls of a dispatcher. One wait set has the condition of every call that was sent; one ordered set of deadlines has every
// call; requests that could not be sent yet wait in one queue for each requester. The loop is in DispatcherLoop.cpp, all else in
// DispatcherCalls.cpp.
//
// Invariants:
// 1. Lists, deadlines and counters change under the mutex. Order: this mutex, then the middleware's. No callback runs under it.
// 2. A call is in the deadlines exactly while it has not ended and no thread is sending or closing it. The thread that takes it out
//    ends it, or puts it back: so it ends exactly once, also when reply, expiry and closing come together.
// 3. Records are pooled and never freed, and the record itself is attached, in place of its condition: one that the wait set
//    reports may have ended, or be another call by now, but it is a record: `is_sent` is checked, and the take may find nothing.
// 4. A requester is touched under the mutex while it has calls, or unlocked while it is `_pinned`, or by its own thread in `start`
//    and `close`. Closing waits for the pin. So the dispatcher does not use a requester whose link is closed.
// 5. A thread inside a callback waits for no other callback: closing and destroying cannot deadlock.
#ifndef NORVANE_FRONTEND_DISPATCHERCALLS_HPP
#define NORVANE_FRONTEND_DISPATCHERCALLS_HPP

#include <atomic>
#include <boost/intrusive/list.hpp>
#include <boost/intrusive/set.hpp>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "norvane/Dispatcher.hpp"
#include "norvane/dds/WaitSet.hpp"
#include "norvane/details/CallingRequester.hpp"
#include "norvane/details/DispatcherLink.hpp"

namespace norvane {
namespace details {

// @return what `action` throws.
template <class Action>
std::exception_ptr error_of(Action action) noexcept {
    try {
        action();
    } catch (...) {
        return std::current_exception();
    }
    return nullptr;
}

// @return as error_of, of an action that returns the error.
template <class Action>
std::exception_ptr error_from(Action action) noexcept {
    return error_of([&] { std::rethrow_exception(action()); });
}

}  // namespace details

class Dispatcher::Calls : public std::enable_shared_from_this<Calls> {
    typedef details::CallCompletion CallCompletion;
    typedef details::CallEnding CallEnding;
    typedef details::CallingRequester CallingRequester;
    typedef details::Deadline Deadline;
    typedef details::DispatcherLink DispatcherLink;
    typedef details::NewCall NewCall;
    typedef Deadline::Clock Clock;
    typedef std::unique_lock<std::mutex> Lock;

    // A new replier is reported; new room is not, and is polled for. The first retry is early, since a replier may have come just
    // before.
    static constexpr std::chrono::milliseconds FIRST_RETRY{1};
    static constexpr std::chrono::milliseconds LAST_RETRY{32};

public:
    class Link;

    explicit Calls(Loop loop);

    std::int64_t pending() const {
        Lock lock(_mutex);
        return static_cast<std::int64_t>(_deadlines.size());
    }
    std::int64_t failed_callbacks() const noexcept { return _failed_callbacks.load(std::memory_order_relaxed); }

    /// @return whether it was made before this process was forked: then its thread does not exist here.
    bool is_of_a_parent() const noexcept;
    /// @throws IllegalOperationException  it is of a parent. @param method_name  with its class, for the message.
    void throw_if_forked(const char* method_name) const;

    void start_thread();
    int run_once(const Timeout& max_wait);
    void close(bool forever) noexcept;

private:
    struct Call;
    struct EarlierDeadline {
        bool operator()(const Call& left, const Call& right) const noexcept;
    };

    int round(Lock& lock, const Deadline& limit);
    Clock::time_point next_alarm_locked(const Deadline& limit);
    int end_answered(Lock& lock);
    int end_expired(Lock& lock);
    int send_kept(Lock& lock);
    int send_line(Lock& lock, const std::shared_ptr<Link>& link, bool& has_sent);
    void look_at_each_locked() noexcept;

    void start(Link& link, NewCall& new_call, const Timeout& timeout);
    void begin_close_locked(Link& link, const std::exception_ptr& closure) noexcept;
    void close_link(Link& link) noexcept;
    void repliers_changed(Link& link) noexcept;

    std::exception_ptr closure_locked(const Link& link) const noexcept;
    Call& take_record_locked();
    void recycle_locked(Call& call) noexcept;
    DDS_ReturnCode_t place_locked(Call& call) noexcept;
    void schedule_locked(Link& link, Clock::time_point retry_at) noexcept;
    void remove_locked(Call& call) noexcept;
    bool take_locked(Call& call, CallEnding& ending) noexcept;
    void finish(Lock& lock, Call& call, CallEnding& ending) noexcept;
    template <class Action>
    void pinned(Lock& lock, Link& link, Action action) noexcept;
    bool is_inside_locked() const noexcept;
    template <class IsOver>
    void wait_for_others(Lock& lock, Link* link, IsOver is_over) noexcept;
    void nudge_if_earlier(Lock& lock, Clock::time_point time) noexcept;

    struct Call final : DDSCondition {
        // Stands for the condition of its reply.
        DDS_Boolean get_trigger_value() override { return open.condition->get_trigger_value(); }
        DDS_Condition* get_c_condition() override { return open.condition->get_c_condition(); }
        void drop_completion() noexcept;

        Link* link = nullptr;
        details::OpenCall open;
        bool is_sent = false;
        Clock::time_point deadline;
        Timeout timeout = DDS_DURATION_ZERO;
        DDS_ReturnCode_t interruption = DDS_RETCODE_OK;
        std::unique_ptr<details::KeptRequest> request;  // until it is sent
        CallCompletion* completion = nullptr;           // in `room`, or on the heap
        Call* next_free = nullptr;
        boost::intrusive::set_member_hook<> in_deadlines;
        boost::intrusive::list_member_hook<> in_link;
        alignas(std::max_align_t) unsigned char room[DispatcherLink::COMPLETION_ROOM];
    };
    typedef boost::intrusive::list<Call, boost::intrusive::member_hook<Call, boost::intrusive::list_member_hook<>, &Call::in_link>>
        CallList;
    typedef boost::intrusive::multiset<
        Call, boost::intrusive::member_hook<Call, boost::intrusive::set_member_hook<>, &Call::in_deadlines>,
        boost::intrusive::compare<EarlierDeadline>>
        Deadlines;

public:
    class Link final : public DispatcherLink, public std::enable_shared_from_this<Link> {
    public:
        Link(std::shared_ptr<Calls> link_calls, CallingRequester& link_requester)
            : calls(std::move(link_calls)), requester(link_requester) {}

        void start(NewCall& call, const Timeout& timeout) override { calls->start(*this, call, timeout); }
        void repliers_changed() noexcept override { calls->repliers_changed(*this); }
        void begin_close() noexcept override {
            const std::exception_ptr error = details::error_from([&] { return requester.closure("call_async"); });
            Lock lock(calls->_mutex);
            calls->begin_close_locked(*this, error);
        }
        void close() noexcept override {
            const std::shared_ptr<Link> self = shared_from_this();  // a callback may destroy the requester
            calls->close_link(*this);
        }
        std::int64_t kept_calls() const override {
            Lock lock(calls->_mutex);
            return static_cast<std::int64_t>(kept.size());
        }

        const std::shared_ptr<Calls> calls;
        CallingRequester& requester;
        // Guarded by the mutex of the calls.
        CallList sent;
        CallList kept;     // not sent yet
        CallList closing;  // still to be completed
        boost::intrusive::list_member_hook<> in_lines;
        int running = 0;             // callbacks
        std::exception_ptr closure;  // set when it is closed
    };

private:
    typedef boost::intrusive::list<Link, boost::intrusive::member_hook<Link, boost::intrusive::list_member_hook<>, &Link::in_lines>>
        Lines;

    const int _process;  // id of the process in which it was made
    const Loop _loop;
    DDSGuardCondition _nudge;
    DDSWaitSet _waitset;
    DDSWaitSet _probe;  // of one call, while it is looked at whether that one is interrupted
    // Of the thread in the loop.
    DDSConditionSeq _active{0};

    mutable std::mutex _mutex;
    std::condition_variable _changed;
    std::thread _thread;
    std::thread::id _looping;  // of the thread in the loop; default-constructed: none
    std::exception_ptr _closure;
    std::deque<Call> _records;
    Call* _free = nullptr;
    Deadlines _deadlines;
    Lines _lines;  // the requesters that have calls not sent yet
    Link* _pinned = nullptr;
    int _running = 0;  // callbacks
    int _closers = 0;  // threads that wait for callbacks, or for the pin
    bool _asleep = false;
    Clock::time_point _alarm = Clock::time_point::max();  // when the loop wakes up by itself
    Clock::time_point _retry_at = Clock::time_point::max();
    Clock::duration _retry_pause = FIRST_RETRY;
    std::atomic<std::int64_t> _failed_callbacks{0};
};

}  // namespace norvane

#endif
