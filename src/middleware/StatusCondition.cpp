// SPDX-License-Identifier: Apache-2.0
#include "middleware/StatusCondition.hpp"

#include <mutex>

namespace norvane {
namespace mw {

void StatusCondition::retire() noexcept {
    {
        std::lock_guard<platform::BriefMutex> lock(_mutex);
        retire_locked();
    }
    release();
}

void StatusCondition::signal(platform::WakeBatch& wake) noexcept {
    std::lock_guard<platform::BriefMutex> lock(_mutex);
    signal_locked(wake);
}

DDS_ReturnCode_t StatusCondition::set_enabled_statuses(DDS_StatusMask mask) {
    _enabled.store(mask, std::memory_order_relaxed);
    platform::WakeBatch wake;
    signal(wake);
    return DDS_RETCODE_OK;
}

void StatusCondition::dispose() noexcept {
    StatusSource* source = _shares_mutex ? &_source : nullptr;
    delete this;
    if (source != nullptr) {
        source->status_condition_gone();
    }
}

}  // namespace mw
}  // namespace norvane
