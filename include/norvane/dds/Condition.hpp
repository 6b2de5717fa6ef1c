// SPDX-License-Identifier: Apache-2.0
// Conditions: what a wait set can wait for.
#ifndef NORVANE_DDS_CONDITION_HPP
#define NORVANE_DDS_CONDITION_HPP

#include "norvane/dds/types.hpp"
#include "norvane/export.hpp"

class DDSDataReader;
class DDSEntity;
struct DDS_DataReader;

/// What a wait set attaches: made by the middleware only. A class that stands for another condition hands out that condition's.
struct DDS_Condition;

/// A condition: true or false, and something to wait for.
class NORVANE_EXPORT DDSCondition {
public:
    virtual ~DDSCondition();
    /// @return whether the condition holds now. Never blocks.
    virtual DDS_Boolean get_trigger_value() = 0;
    /// @return what wait sets attach; null for a condition that cannot be waited for.
    virtual DDS_Condition* get_c_condition() = 0;

protected:
    DDSCondition() = default;
    DDSCondition(const DDSCondition&) = delete;
    DDSCondition& operator=(const DDSCondition&) = delete;
};

/// The record behind a read condition, as the untyped read knows it.
struct NORVANE_EXPORT DDS_ReadCondition {
    virtual ~DDS_ReadCondition();
    /// @return the record of the reader that the condition selects from.
    virtual DDS_DataReader* get_c_datareader() noexcept = 0;
};

/// Selects samples of one reader by their states. True while the reader holds such a sample.
class NORVANE_EXPORT DDSReadCondition : public DDSCondition {
public:
    /// @return the reader that made the condition; null once it is deleted.
    virtual DDSDataReader* get_datareader() = 0;
    /// @return the masks as they were given.
    virtual DDS_SampleStateMask get_sample_state_mask() = 0;
    virtual DDS_ViewStateMask get_view_state_mask() = 0;
    virtual DDS_InstanceStateMask get_instance_state_mask() = 0;
    /// @return the record for the untyped read; not null.
    virtual DDS_ReadCondition* get_c_readcondition() = 0;
};

/// True while one of the enabled statuses of an entity has changed since it was last looked at. Belongs to the entity.
class NORVANE_EXPORT DDSStatusCondition : public DDSCondition {
public:
    /// @return the statuses that count. At start all.
    virtual DDS_StatusMask get_enabled_statuses() = 0;
    /// Chooses the statuses that count. Zero: none.
    virtual DDS_ReturnCode_t set_enabled_statuses(DDS_StatusMask mask) = 0;
    virtual DDSEntity* get_entity() = 0;
};

/// True when the application says so. A value of the application's own; destroying it detaches it.
/// @par Threads  Same object: any, but destruction must not overlap with another use.
class NORVANE_EXPORT DDSGuardCondition : public DDSCondition {
public:
    /// @throws std::bad_alloc  memory is short.
    DDSGuardCondition();
    ~DDSGuardCondition() override;
    DDS_Boolean get_trigger_value() override;
    DDS_Condition* get_c_condition() override;
    /// Sets the value; true wakes the wait sets that it is attached to. Never blocks.
    DDS_ReturnCode_t set_trigger_value(DDS_Boolean value);

private:
    DDS_Condition* _condition;  // owned
};

namespace DDS {
typedef DDSReadCondition ReadCondition;
}

#endif
