// SPDX-License-Identifier: Apache-2.0
// A read condition: a mask of states over a whole store or over one key of its index. Pooled by the store.
#ifndef NORVANE_MIDDLEWARE_READCONDITION_HPP
#define NORVANE_MIDDLEWARE_READCONDITION_HPP

#include <atomic>

#include "middleware/ConditionCore.hpp"
#include "middleware/IntrusiveList.hpp"
#include "norvane/dds/Condition.hpp"

namespace norvane {
namespace mw {

class SampleStore;
struct SampleSelection;

class ReadCondition final : public DDSReadCondition, public DDS_ReadCondition, public DDS_Condition {
public:
    explicit ReadCondition(SampleStore& store) noexcept;

    /// Starts a new life. The store's mutex is held.
    void select(SampleSelection& selection, DDS_SampleStateMask sample_states, DDS_ViewStateMask view_states,
                DDS_InstanceStateMask instance_states) noexcept;

    /// @return the record as a condition of the store; null when it is another store's, or not one of ours at all.
    static ReadCondition* of(DDS_ReadCondition* record, const SampleStore& store) noexcept;

    SampleSelection& selection() noexcept { return *_selection; }
    /// States that can be found: none when the view or instance mask leaves out the one there is.
    DDS_SampleStateMask effective_states() const noexcept { return _effective_states; }
    bool is_live() const noexcept { return _live.load(std::memory_order_acquire); }

    DDS_Boolean get_trigger_value() override;
    DDS_Condition* get_c_condition() override { return this; }
    DDSDataReader* get_datareader() override;
    DDS_SampleStateMask get_sample_state_mask() override { return _sample_states; }
    DDS_ViewStateMask get_view_state_mask() override { return _view_states; }
    DDS_InstanceStateMask get_instance_state_mask() override { return _instance_states; }
    DDS_ReadCondition* get_c_readcondition() override { return this; }
    DDS_DataReader* get_c_datareader() noexcept override;

    bool is_triggered() const noexcept override;
    DDS_ReturnCode_t interruption() const noexcept override;
    SpinHistory* spin_history() noexcept override;

    ListHook in_selection;
    ReadCondition* next_free = nullptr;

private:
    friend class SampleStore;
    void dispose() noexcept override;

    SampleStore& _store;
    SampleSelection* _selection = nullptr;
    SampleSelection* _whole = nullptr;
    DDS_SampleStateMask _sample_states = 0;
    DDS_ViewStateMask _view_states = 0;
    DDS_InstanceStateMask _instance_states = 0;
    DDS_SampleStateMask _effective_states = 0;
    std::atomic<bool> _live{false};
};

}  // namespace mw
}  // namespace norvane

#endif
