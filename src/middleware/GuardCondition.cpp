// SPDX-License-Identifier: Apache-2.0
// The guard condition behind DDSGuardCondition, and the out-of-line members of the condition classes.
#include <mutex>
#include <new>

#include "middleware/ConditionCore.hpp"
#include "norvane/dds/Condition.hpp"

namespace {

struct GuardMutex {
    norvane::platform::BriefMutex own_mutex;
};

class GuardCore final : private GuardMutex, public DDS_Condition {
public:
    GuardCore() noexcept : DDS_Condition(own_mutex) {}

    bool is_triggered() const noexcept override { return _value.load(std::memory_order_relaxed); }

    void set(bool value) noexcept {
        norvane::platform::WakeBatch wake;
        std::lock_guard<norvane::platform::BriefMutex> lock(_mutex);
        _value.store(value, std::memory_order_relaxed);
        if (value) {
            signal_locked(wake);
        }
    }

    void retire() noexcept {
        {
            std::lock_guard<norvane::platform::BriefMutex> lock(_mutex);
            retire_locked();
        }
        release();
    }

private:
    void dispose() noexcept override { delete this; }

    std::atomic<bool> _value{false};
};

}  // namespace

DDSCondition::~DDSCondition() = default;
DDS_ReadCondition::~DDS_ReadCondition() = default;

DDSGuardCondition::DDSGuardCondition() : _condition(new GuardCore()) {}

DDSGuardCondition::~DDSGuardCondition() { static_cast<GuardCore*>(_condition)->retire(); }

DDS_Boolean DDSGuardCondition::get_trigger_value() { return _condition->is_triggered() ? DDS_BOOLEAN_TRUE : DDS_BOOLEAN_FALSE; }

DDS_Condition* DDSGuardCondition::get_c_condition() { return _condition; }

DDS_ReturnCode_t DDSGuardCondition::set_trigger_value(DDS_Boolean value) {
    static_cast<GuardCore*>(_condition)->set(value != DDS_BOOLEAN_FALSE);
    return DDS_RETCODE_OK;
}
