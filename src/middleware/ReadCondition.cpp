// SPDX-License-Identifier: Apache-2.0
#include "middleware/ReadCondition.hpp"

#include <typeinfo>

#include "middleware/SampleStore.hpp"

namespace norvane {
namespace mw {

ReadCondition::ReadCondition(SampleStore& store) noexcept : DDS_Condition(store.mutex()), _store(store), _whole(&store.whole()) {}

void ReadCondition::select(SampleSelection& selection, DDS_SampleStateMask sample_states, DDS_ViewStateMask view_states,
                           DDS_InstanceStateMask instance_states) noexcept {
    revive();
    _selection = &selection;
    _sample_states = sample_states;
    _view_states = view_states;
    _instance_states = instance_states;
    const bool selects_the_instance = (view_states & DDS_NEW_VIEW_STATE) != 0 && (instance_states & DDS_ALIVE_INSTANCE_STATE) != 0;
    _effective_states = selects_the_instance ? sample_states & (DDS_READ_SAMPLE_STATE | DDS_NOT_READ_SAMPLE_STATE) : 0;
    _live.store(true, std::memory_order_release);
}

ReadCondition* ReadCondition::of(DDS_ReadCondition* record, const SampleStore& store) noexcept {
    // An application may derive from the record: only what the middleware made is cast.
    if (record == nullptr || typeid(*record) != typeid(ReadCondition)) {
        return nullptr;
    }
    ReadCondition* condition = static_cast<ReadCondition*>(record);
    return &condition->_store == &store ? condition : nullptr;
}

DDS_Boolean ReadCondition::get_trigger_value() { return is_live() && is_triggered() ? DDS_BOOLEAN_TRUE : DDS_BOOLEAN_FALSE; }

DDSDataReader* ReadCondition::get_datareader() { return is_live() ? _store.owner().store_reader() : nullptr; }

DDS_DataReader* ReadCondition::get_c_datareader() noexcept { return _store.owner().c_reader(); }

bool ReadCondition::is_triggered() const noexcept {
    return ((_effective_states & DDS_NOT_READ_SAMPLE_STATE) != 0 && _selection->unread_count.load(std::memory_order_relaxed) > 0) ||
           ((_effective_states & DDS_READ_SAMPLE_STATE) != 0 && _selection->read_count.load(std::memory_order_relaxed) > 0);
}

DDS_ReturnCode_t ReadCondition::interruption() const noexcept {
    const int code = _selection->interruption.load(std::memory_order_relaxed);
    return static_cast<DDS_ReturnCode_t>(code != DDS_RETCODE_OK ? code : _whole->interruption.load(std::memory_order_relaxed));
}

SpinHistory* ReadCondition::spin_history() noexcept { return &_store.spin_history(); }

void ReadCondition::dispose() noexcept { _store.dispose(*this); }

}  // namespace mw
}  // namespace norvane
