// SPDX-License-Identifier: Apache-2.0
// A read condition that stands for another one. Failing `get_c_condition` makes it one that no wait set accepts.
#ifndef NORVANE_TESTS_SUPPORT_FORWARDINGREADCONDITION_HPP
#define NORVANE_TESTS_SUPPORT_FORWARDINGREADCONDITION_HPP

#include "CallScript.hpp"
#include "norvane/dds/DataReader.hpp"

namespace norvane::test {

class ForwardingReadCondition : public DDSReadCondition, public DDS_ReadCondition {
public:
    /// @param reader  the double that made it. All are borrowed.
    ForwardingReadCondition(DDSReadCondition& real, DDSDataReader& reader, CallScript& script)
        : _real(real), _reader(reader), _script(script) {}

    DDSReadCondition& real() { return _real; }

    DDS_Boolean get_trigger_value() override { return _real.get_trigger_value(); }
    DDS_Condition* get_c_condition() override {
        return _script.forward("DDSReadCondition::get_c_condition", [&] { return _real.get_c_condition(); });
    }
    DDSDataReader* get_datareader() override { return &_reader; }
    DDS_SampleStateMask get_sample_state_mask() override { return _real.get_sample_state_mask(); }
    DDS_ViewStateMask get_view_state_mask() override { return _real.get_view_state_mask(); }
    DDS_InstanceStateMask get_instance_state_mask() override { return _real.get_instance_state_mask(); }
    DDS_ReadCondition* get_c_readcondition() override { return this; }
    DDS_DataReader* get_c_datareader() noexcept override { return _reader.get_c_datareader(); }

private:
    DDSReadCondition& _real;
    DDSDataReader& _reader;
    CallScript& _script;
};

}  // namespace norvane::test

#endif
