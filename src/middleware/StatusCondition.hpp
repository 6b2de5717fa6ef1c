// SPDX-License-Identifier: Apache-2.0
// The status condition of an entity: true while an enabled status has changed. Created with the entity; deleted with its last
// reference.
#ifndef NORVANE_MIDDLEWARE_STATUSCONDITION_HPP
#define NORVANE_MIDDLEWARE_STATUSCONDITION_HPP

#include <atomic>

#include "middleware/ConditionCore.hpp"
#include "norvane/dds/Status.hpp"

namespace norvane {
namespace mw {

/// The entity behind a status condition.
class StatusSource {
public:
    virtual DDSEntity* entity() noexcept = 0;
    /// Statuses that have changed. Reads atomics only.
    virtual DDS_StatusMask changes() const noexcept = 0;
    /// The condition has been destroyed. Called without a lock; only for a condition that shares the source's mutex.
    virtual void status_condition_gone() noexcept {}

protected:
    ~StatusSource() = default;
};

namespace status_condition {
// A base of its own, so that the mutex is there before the condition that refers to it.
struct OwnMutex {
    platform::BriefMutex own_mutex;
};
}  // namespace status_condition

class StatusCondition final : private status_condition::OwnMutex, public DDSStatusCondition, public DDS_Condition {
public:
    /// @param shared_mutex  the mutex under which the source signals; null for one of its own.
    explicit StatusCondition(StatusSource& source, platform::BriefMutex* shared_mutex = nullptr) noexcept
        : DDS_Condition(shared_mutex != nullptr ? *shared_mutex : own_mutex),
          _source(source),
          _shares_mutex(shared_mutex != nullptr) {}

    /// The entity is being deleted: detaches the condition everywhere and releases the entity's reference.
    void retire() noexcept;
    /// A status has changed.
    void signal(platform::WakeBatch& wake) noexcept;

    DDS_Boolean get_trigger_value() override { return is_triggered() ? DDS_BOOLEAN_TRUE : DDS_BOOLEAN_FALSE; }
    DDS_Condition* get_c_condition() override { return this; }
    DDS_StatusMask get_enabled_statuses() override { return _enabled.load(std::memory_order_relaxed); }
    DDS_ReturnCode_t set_enabled_statuses(DDS_StatusMask mask) override;
    DDSEntity* get_entity() override { return _source.entity(); }

    bool is_triggered() const noexcept override { return (_source.changes() & _enabled.load(std::memory_order_relaxed)) != 0; }

private:
    ~StatusCondition() override = default;
    void dispose() noexcept override;

    StatusSource& _source;
    const bool _shares_mutex;
    std::atomic<DDS_StatusMask> _enabled{DDS_STATUS_MASK_ALL};
};

/// What an entity without statuses of its own has: a condition that is never true.
class QuietStatus final : public StatusSource {
public:
    explicit QuietStatus(DDSEntity& entity) : _entity(entity), _condition(new StatusCondition(*this)) {}
    ~QuietStatus() { _condition->retire(); }
    QuietStatus(const QuietStatus&) = delete;
    QuietStatus& operator=(const QuietStatus&) = delete;

    DDSStatusCondition* condition() noexcept { return _condition; }
    DDSEntity* entity() noexcept override { return &_entity; }
    DDS_StatusMask changes() const noexcept override { return 0; }

private:
    DDSEntity& _entity;
    StatusCondition* _condition;
};

}  // namespace mw
}  // namespace norvane

#endif
