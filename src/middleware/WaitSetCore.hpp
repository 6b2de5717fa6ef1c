// SPDX-License-Identifier: Apache-2.0
// The wait set behind a DDSWaitSet: its attachments, the ready list, and the word that its waiter sleeps on.
//
// Invariants:
// 1. Both lists change only under the mutex.
// 2. An attachment whose condition may be true is in the ready list; a wait removes those that are not.
// 3. No lost wake-up: a notifier sets the trigger, puts the attachment into the ready list, then changes the word. The waiter reads
//    the word, checks the ready list, then sleeps on the value it read. The lowest bit is set while a thread sleeps; the notifier
//    that clears it wakes that thread. A time-out leaves the bit set, so the next sleeper must accept it.
// 4. Cores are reused and never freed: a notifier may access the word of a wait set that has been deleted.
#ifndef NORVANE_MIDDLEWARE_WAITSETCORE_HPP
#define NORVANE_MIDDLEWARE_WAITSETCORE_HPP

#include <atomic>

#include "middleware/ConditionCore.hpp"
#include "norvane/dds/WaitSet.hpp"
#include "platform/Processor.hpp"

namespace norvane {
namespace mw {

class alignas(platform::CACHE_LINE) WaitSetCore {
public:
    /// @return a core without conditions; null when memory is short.
    static WaitSetCore* acquire() noexcept;
    /// Detaches everything, and keeps the core for the next `acquire`.
    static void give_back(WaitSetCore* core) noexcept;

    [[nodiscard]] DDS_ReturnCode_t wait(DDSConditionSeq& active, const DDS_Duration_t& timeout) noexcept;
    [[nodiscard]] DDS_ReturnCode_t list(DDSConditionSeq& attached) noexcept;

    // For conditions, which hold their own mutex.
    /// @param may_hold  whether the condition is to be looked at by the next wait.
    void link(Attachment& attachment, bool may_hold) noexcept;
    void unlink(Attachment& attachment) noexcept;
    void mark_ready(Attachment& attachment, platform::WakeBatch& wake) noexcept;

private:
    typedef IntrusiveList<Attachment, &Attachment::in_set> Attachments;
    typedef IntrusiveList<Attachment, &Attachment::in_ready> ReadyList;
    enum class Look { NOTHING, ACTIVE, INTERRUPTED, NO_MEMORY };

    WaitSetCore() = default;

    Look look(DDSConditionSeq& active, DDS_ReturnCode_t& interruption) noexcept;
    bool make_room_for_ready_locked(DDSConditionSeq& active) const noexcept;
    void drop_idle_locked() noexcept;
    void drop_ready_locked(Attachment& attachment) noexcept;
    /// Waits for a moment without sleeping. @return whether the word has changed.
    bool linger(std::uint32_t seen) noexcept;
    bool has_changed_after_yield(std::uint32_t seen, SpinHistory& history) const noexcept;
    bool spin_until_changed(std::uint32_t seen, SpinHistory& history) const noexcept;
    [[nodiscard]] DDS_ReturnCode_t wait_alone(DDSConditionSeq& active, const DDS_Duration_t& timeout) noexcept;
    void change_word(platform::WakeBatch& wake) noexcept;
    void detach_all() noexcept;

    static constexpr std::uint32_t SLEEPING = 1;

    platform::FutexWord _word{0};
    std::atomic<bool> _waiting{false};
    WaitSetCore* _next_free = nullptr;

    alignas(platform::CACHE_LINE) platform::BriefMutex _mutex;
    Attachments _attachments;
    ReadyList _ready;
    DDS_Long _attachment_count = 0;
    DDS_Long _ready_count = 0;
};

}  // namespace mw
}  // namespace norvane

#endif
