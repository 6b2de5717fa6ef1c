// SPDX-License-Identifier: Apache-2.0
// What a condition is to wait sets: a trigger, an interruption, and the list of sets it is attached to.
//
// Invariants:
// 1. The attachments of a condition change only under its mutex; so does `_deleted`.
// 2. A wait set counts a reference on every condition attached to it, so that it can still lock it when it detaches.
// 3. Trigger and interruption are atomics that are set before `signal_locked` is called.
// Lock order: the condition's mutex, then the wait set's.
#ifndef NORVANE_MIDDLEWARE_CONDITIONCORE_HPP
#define NORVANE_MIDDLEWARE_CONDITIONCORE_HPP

#include <atomic>
#include <cstdint>

#include "middleware/IntrusiveList.hpp"
#include "middleware/SpinHistory.hpp"
#include "norvane/dds/Condition.hpp"
#include "platform/BriefMutex.hpp"
#include "platform/WakeBatch.hpp"

namespace norvane {
namespace mw {

class WaitSetCore;

/// One condition in one wait set.
struct Attachment {
    DDS_Condition* condition = nullptr;
    WaitSetCore* set = nullptr;        // null while the record is unused
    DDSCondition* reported = nullptr;  // the pointer that was attached, which need not be the condition's own object
    Attachment* next_set = nullptr;    // further sets of the same condition
    ListHook in_set;                   // guarded by the set's mutex, as all below
    ListHook in_ready;
    bool ready = false;  // in the set's list of those to look at
};

}  // namespace mw
}  // namespace norvane

struct DDS_Condition {
public:
    explicit DDS_Condition(norvane::platform::BriefMutex& mutex) noexcept : _mutex(mutex) {}
    DDS_Condition(const DDS_Condition&) = delete;
    DDS_Condition& operator=(const DDS_Condition&) = delete;
    virtual ~DDS_Condition() = default;

    /// Whether it holds. Reads atomics only.
    virtual bool is_triggered() const noexcept = 0;
    /// The code that waits return at once; DDS_RETCODE_OK when there is none. Reads atomics only.
    virtual DDS_ReturnCode_t interruption() const noexcept { return DDS_RETCODE_OK; }
    /// Where a wait remembers whether spinning paid.
    virtual norvane::mw::SpinHistory* spin_history() noexcept { return nullptr; }

    void retain() noexcept { _references.fetch_add(1, std::memory_order_relaxed); }
    /// Gives a reference up; with the last one the condition is disposed of. The mutex is not held.
    void release() noexcept {
        if (_references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            dispose();
        }
    }

    /// @return DDS_RETCODE_OK also when it is attached already; ALREADY_DELETED; OUT_OF_RESOURCES.
    [[nodiscard]] DDS_ReturnCode_t attach_to(norvane::mw::WaitSetCore& set, DDSCondition* reported) noexcept;
    /// @return whether it was attached.
    bool detach_from(norvane::mw::WaitSetCore& set) noexcept;

    /// Tells the wait sets that the trigger or the interruption may have come true. The mutex is held.
    void signal_locked(norvane::platform::WakeBatch& wake) noexcept;
    bool is_attached_locked() const noexcept { return _attachments != nullptr; }
    /// Detaches the condition from every wait set; it cannot be attached again. The mutex is held.
    /// The references of the wait sets are released; the creator's remains.
    void retire_locked() noexcept;

protected:
    /// The last reference is gone.
    virtual void dispose() noexcept = 0;

    bool only_reference() const noexcept { return _references.load(std::memory_order_acquire) == 1; }
    /// Restores the state after construction, for a pooled condition. There must be no other reference to it.
    void revive() noexcept {
        _references.store(1, std::memory_order_relaxed);
        _deleted = false;
    }
    bool is_deleted_locked() const noexcept { return _deleted; }

    norvane::platform::BriefMutex& _mutex;

private:
    norvane::mw::Attachment* find_attachment_locked(const norvane::mw::WaitSetCore& set) noexcept;
    norvane::mw::Attachment* take_record_locked() noexcept;
    void unlink_locked(norvane::mw::Attachment& attachment) noexcept;

    std::atomic<std::uint32_t> _references{1};
    bool _deleted = false;
    norvane::mw::Attachment* _attachments = nullptr;
    norvane::mw::Attachment _first_record;  // nearly always the only one: no allocation
};

#endif
