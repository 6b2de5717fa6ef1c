// SPDX-License-Identifier: Apache-2.0
#include "middleware/WaitSetCore.hpp"

#include <mutex>
#include <new>

#include "middleware/DeferringEngines.hpp"
#include "middleware/Log.hpp"
#include "middleware/clock.hpp"
#include "platform/Clock.hpp"

namespace norvane {
namespace mw {

namespace {

// Never destroyed: wait sets with static storage may outlive every other static object.
struct FreeCores {
    platform::BriefMutex mutex;
    WaitSetCore* first = nullptr;
};

FreeCores& free_cores() noexcept {
    static FreeCores cores;
    static_assert(std::is_trivially_destructible<FreeCores>::value, "must stay usable while other statics are destroyed");
    return cores;
}

}  // namespace

WaitSetCore* WaitSetCore::acquire() noexcept {
    FreeCores& free = free_cores();
    {
        std::lock_guard<platform::BriefMutex> lock(free.mutex);
        if (free.first != nullptr) {
            WaitSetCore* core = free.first;
            free.first = core->_next_free;
            core->_next_free = nullptr;
            return core;
        }
    }
    return new (std::nothrow) WaitSetCore();
}

void WaitSetCore::give_back(WaitSetCore* core) noexcept {
    core->detach_all();
    FreeCores& free = free_cores();
    std::lock_guard<platform::BriefMutex> lock(free.mutex);
    core->_next_free = free.first;
    free.first = core;
}

void WaitSetCore::detach_all() noexcept {
    for (;;) {
        DDS_Condition* condition = nullptr;
        {
            std::lock_guard<platform::BriefMutex> lock(_mutex);
            if (_attachments.empty()) {
                return;
            }
            condition = _attachments.front().condition;
            condition->retain();  // the lock order forbids locking it here, and it may be deleted before it is locked
        }
        condition->detach_from(*this);
        condition->release();
    }
}

void WaitSetCore::link(Attachment& attachment, bool may_hold) noexcept {
    std::lock_guard<platform::BriefMutex> lock(_mutex);
    _attachments.push_back(attachment);
    ++_attachment_count;
    attachment.ready = may_hold;
    if (may_hold) {
        _ready.push_back(attachment);
        ++_ready_count;
    }
}

void WaitSetCore::unlink(Attachment& attachment) noexcept {
    std::lock_guard<platform::BriefMutex> lock(_mutex);
    _attachments.erase(Attachments::s_iterator_to(attachment));
    --_attachment_count;
    if (attachment.ready) {
        drop_ready_locked(attachment);
    }
}

void WaitSetCore::mark_ready(Attachment& attachment, platform::WakeBatch& wake) noexcept {
    {
        std::lock_guard<platform::BriefMutex> lock(_mutex);
        if (attachment.ready) {
            return;  // a thread that is about to sleep has yet to check it
        }
        _ready.push_back(attachment);
        ++_ready_count;
        attachment.ready = true;
    }
    change_word(wake);
}

void WaitSetCore::change_word(platform::WakeBatch& wake) noexcept {
    std::uint32_t old = _word.load(std::memory_order_relaxed);
    while (!_word.compare_exchange_weak(old, (old & ~SLEEPING) + 2, std::memory_order_release, std::memory_order_relaxed)) {
    }
    if ((old & SLEEPING) != 0) {
        wake.add(_word);
    }
}

bool WaitSetCore::make_room_for_ready_locked(DDSConditionSeq& active) const noexcept {
    return active.ensure_length(_ready_count, _ready_count > active.maximum() ? _ready_count : active.maximum());
}

void WaitSetCore::drop_idle_locked() noexcept {
    for (ReadyList::iterator next = _ready.begin(); next != _ready.end();) {
        Attachment& attachment = *next++;
        if (attachment.condition->interruption() == DDS_RETCODE_OK && !attachment.condition->is_triggered()) {
            drop_ready_locked(attachment);
        }
    }
}

void WaitSetCore::drop_ready_locked(Attachment& attachment) noexcept {
    _ready.erase(ReadyList::s_iterator_to(attachment));
    --_ready_count;
    attachment.ready = false;
}

WaitSetCore::Look WaitSetCore::look(DDSConditionSeq& active, DDS_ReturnCode_t& interruption) noexcept {
    std::lock_guard<platform::BriefMutex> lock(_mutex);
    if (_ready.empty()) {
        return Look::NOTHING;
    }
    if (!make_room_for_ready_locked(active)) {
        // A condition that is no longer true takes up no room in the result.
        drop_idle_locked();
        if (!make_room_for_ready_locked(active)) {
            active.length(0);
            return Look::NO_MEMORY;
        }
    }
    DDS_Long found = 0;
    for (ReadyList::iterator next = _ready.begin(); next != _ready.end();) {
        Attachment& attachment = *next++;
        interruption = attachment.condition->interruption();
        if (interruption != DDS_RETCODE_OK) {
            active.length(0);
            return Look::INTERRUPTED;
        }
        if (attachment.condition->is_triggered()) {
            active[found++] = attachment.reported;
        } else {
            drop_ready_locked(attachment);
        }
    }
    active.length(found);
    return found > 0 ? Look::ACTIVE : Look::NOTHING;
}

bool WaitSetCore::linger(std::uint32_t seen) noexcept {
    DDS_Condition* condition = nullptr;
    {
        std::lock_guard<platform::BriefMutex> lock(_mutex);
        if (_attachments.empty()) {
            return false;
        }
        condition = _attachments.front().condition;
        condition->retain();  // it may be deleted, and its reader too, meanwhile
    }
    SpinHistory* history = condition->spin_history();
    // The yield first: a spin would keep a peer that waits for this processor off it.
    const bool changed = history != nullptr && (has_changed_after_yield(seen, *history) ||
                                                (history->should_spin() && spin_until_changed(seen, *history)));
    condition->release();
    return changed;
}

// On one processor the peer then goes on until it has to wait as well. Otherwise it is preempted, at each write, by the thread that the
// write wakes, and each side makes two system calls for each sample: one to sleep, and one to wake the other.
bool WaitSetCore::has_changed_after_yield(std::uint32_t seen, SpinHistory& history) const noexcept {
    const std::int64_t start = platform::monotonic_ns();
    if (!history.should_yield(start)) {
        return false;
    }
    platform::yield_processor();
    const bool changed = _word.load(std::memory_order_relaxed) != seen;
    history.yielded(changed, start, platform::monotonic_ns());
    return changed;
}

bool WaitSetCore::spin_until_changed(std::uint32_t seen, SpinHistory& history) const noexcept {
    constexpr int LOOKS_PER_CLOCK_READ = 32;
    const std::int64_t give_up = platform::monotonic_ns() + SpinHistory::BOUND_NS;
    do {
        for (int look = 0; look < LOOKS_PER_CLOCK_READ; ++look) {
            if (_word.load(std::memory_order_relaxed) != seen) {
                history.spun(true);
                return true;
            }
            platform::relax_processor();
        }
    } while (platform::monotonic_ns() < give_up);
    history.spun(false);
    return false;
}

DDS_ReturnCode_t WaitSetCore::wait(DDSConditionSeq& active, const DDS_Duration_t& timeout) noexcept {
    active.length(0);
    if (timeout.sec < 0) {
        return DDS_RETCODE_TIMEOUT;
    }
    if (_waiting.exchange(true, std::memory_order_acquire)) {
        log_error("DDSWaitSet::wait", "another thread is waiting in this wait set: use one wait set per thread");
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    }
    const DDS_ReturnCode_t code = wait_alone(active, timeout);
    _waiting.store(false, std::memory_order_release);
    return code;
}

DDS_ReturnCode_t WaitSetCore::wait_alone(DDSConditionSeq& active, const DDS_Duration_t& timeout) noexcept {
    std::int64_t deadline = 0;
    bool deadline_known = false;
    bool time_is_up = timeout == DDS_DURATION_ZERO;
    bool has_lingered = false;
    for (;;) {
        std::uint32_t seen = _word.load(std::memory_order_acquire);
        DDS_ReturnCode_t interruption = DDS_RETCODE_OK;
        switch (look(active, interruption)) {
            case Look::ACTIVE:
                return DDS_RETCODE_OK;
            case Look::INTERRUPTED:
                return interruption;
            case Look::NO_MEMORY:
                return DDS_RETCODE_OUT_OF_RESOURCES;
            case Look::NOTHING:
                break;
        }
        if (time_is_up) {
            DeferringEngines::send_deferred();
            return DDS_RETCODE_TIMEOUT;
        }
        if (!deadline_known) {
            deadline = deadline_after(timeout);
            deadline_known = true;
        }
        if (!has_lingered) {
            has_lingered = true;
            DeferringEngines::send_deferred();
            if (linger(seen)) {
                continue;
            }
        }
        if ((seen & SLEEPING) == 0 &&
            !_word.compare_exchange_strong(seen, seen | SLEEPING, std::memory_order_acquire, std::memory_order_relaxed)) {
            continue;
        }
        time_is_up = !platform::wait_on(_word, seen | SLEEPING, deadline);
    }
}

DDS_ReturnCode_t WaitSetCore::list(DDSConditionSeq& attached) noexcept {
    std::lock_guard<platform::BriefMutex> lock(_mutex);
    if (!attached.ensure_length(_attachment_count,
                                _attachment_count > attached.maximum() ? _attachment_count : attached.maximum())) {
        return DDS_RETCODE_OUT_OF_RESOURCES;
    }
    DDS_Long index = 0;
    for (const Attachment& attachment : _attachments) {
        attached[index++] = attachment.reported;
    }
    return DDS_RETCODE_OK;
}

}  // namespace mw
}  // namespace norvane

using norvane::mw::Attachment;
using norvane::mw::WaitSetCore;
using norvane::platform::BriefMutex;
using norvane::platform::WakeBatch;

Attachment* DDS_Condition::find_attachment_locked(const WaitSetCore& set) noexcept {
    for (Attachment* attachment = _attachments; attachment != nullptr; attachment = attachment->next_set) {
        if (attachment->set == &set) {
            return attachment;
        }
    }
    return nullptr;
}

Attachment* DDS_Condition::take_record_locked() noexcept {
    return _first_record.set == nullptr ? &_first_record : new (std::nothrow) Attachment();
}

DDS_ReturnCode_t DDS_Condition::attach_to(WaitSetCore& set, DDSCondition* reported) noexcept {
    WakeBatch wake;
    std::lock_guard<BriefMutex> lock(_mutex);
    if (_deleted) {
        return DDS_RETCODE_ALREADY_DELETED;
    }
    if (find_attachment_locked(set) != nullptr) {
        return DDS_RETCODE_OK;
    }
    Attachment* attachment = take_record_locked();
    if (attachment == nullptr) {
        return DDS_RETCODE_OUT_OF_RESOURCES;
    }
    attachment->condition = this;
    attachment->set = &set;
    attachment->reported = reported;
    attachment->next_set = _attachments;
    _attachments = attachment;
    retain();
    set.link(*attachment, false);
    if (is_triggered() || interruption() != DDS_RETCODE_OK) {
        set.mark_ready(*attachment, wake);
    }
    return DDS_RETCODE_OK;
}

bool DDS_Condition::detach_from(WaitSetCore& set) noexcept {
    {
        std::lock_guard<BriefMutex> lock(_mutex);
        Attachment* attachment = find_attachment_locked(set);
        if (attachment == nullptr) {
            return false;
        }
        unlink_locked(*attachment);
    }
    release();
    return true;
}

void DDS_Condition::unlink_locked(Attachment& attachment) noexcept {
    attachment.set->unlink(attachment);
    for (Attachment** link = &_attachments; *link != nullptr; link = &(*link)->next_set) {
        if (*link == &attachment) {
            *link = attachment.next_set;
            break;
        }
    }
    if (&attachment == &_first_record) {
        attachment.set = nullptr;
    } else {
        delete &attachment;
    }
}

void DDS_Condition::signal_locked(WakeBatch& wake) noexcept {
    for (Attachment* attachment = _attachments; attachment != nullptr; attachment = attachment->next_set) {
        attachment->set->mark_ready(*attachment, wake);
    }
}

void DDS_Condition::retire_locked() noexcept {
    _deleted = true;
    while (_attachments != nullptr) {
        unlink_locked(*_attachments);
        _references.fetch_sub(1, std::memory_order_acq_rel);  // the set's; the creator's is still there
    }
}

DDSWaitSet::DDSWaitSet() : _core(WaitSetCore::acquire()) {
    if (_core == nullptr) {
        throw std::bad_alloc();
    }
}

DDSWaitSet::~DDSWaitSet() { WaitSetCore::give_back(_core); }

DDS_ReturnCode_t DDSWaitSet::wait(DDSConditionSeq& active_conditions, const DDS_Duration_t& timeout) {
    return _core->wait(active_conditions, timeout);
}

DDS_ReturnCode_t DDSWaitSet::attach_condition(DDSCondition* condition) {
    DDS_Condition* core = condition != nullptr ? condition->get_c_condition() : nullptr;
    return core != nullptr ? core->attach_to(*_core, condition) : DDS_RETCODE_BAD_PARAMETER;
}

DDS_ReturnCode_t DDSWaitSet::detach_condition(DDSCondition* condition) {
    DDS_Condition* core = condition != nullptr ? condition->get_c_condition() : nullptr;
    if (core == nullptr) {
        return DDS_RETCODE_BAD_PARAMETER;
    }
    return core->detach_from(*_core) ? DDS_RETCODE_OK : DDS_RETCODE_PRECONDITION_NOT_MET;
}

DDS_ReturnCode_t DDSWaitSet::get_conditions(DDSConditionSeq& attached_conditions) { return _core->list(attached_conditions); }

void DDSWaitSet::swap(DDSWaitSet& other) noexcept { std::swap(_core, other._core); }
