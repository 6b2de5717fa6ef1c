// SPDX-License-Identifier: Apache-2.0
// Wait sets: one thread sleeps until one of several conditions holds.
#ifndef NORVANE_DDS_WAITSET_HPP
#define NORVANE_DDS_WAITSET_HPP

#include "norvane/dds/Condition.hpp"
#include "norvane/dds/sequence.hpp"
#include "norvane/export.hpp"

namespace norvane {
namespace mw {
class WaitSetCore;
}
}  // namespace norvane

/// The conditions of a wait set. A few have room in the sequence itself.
typedef norvane::Sequence<DDSCondition*, 4> DDSConditionSeq;

/// A set of conditions to wait for. A value: a vtable and one pointer.
///
/// Attached conditions are borrowed: deleting a condition detaches it, destroying the set detaches them all. They know the
/// set's core, not the object, so that sets can be swapped.
/// @par Threads  One thread waits at a time. Attaching, detaching and triggering may overlap with it; `swap` and destruction
///               may not.
class NORVANE_EXPORT DDSWaitSet {
public:
    /// @throws std::bad_alloc  memory is short.
    DDSWaitSet();
    virtual ~DDSWaitSet();
    DDSWaitSet(const DDSWaitSet&) = delete;
    DDSWaitSet& operator=(const DDSWaitSet&) = delete;

    /// Waits until an attached condition holds.
    ///
    /// What holds already counts. A condition that another thread made false in between is not reported: the wait goes on.
    /// @param active_conditions  gets the very pointers that were attached and hold; empty unless the result is OK.
    /// @param timeout            DDS_DURATION_ZERO looks once; a negative one is a time-out whatever holds;
    ///                           DDS_DURATION_INFINITE never gives up.
    /// @return DDS_RETCODE_OK with at least one condition; DDS_RETCODE_TIMEOUT; DDS_RETCODE_PRECONDITION_NOT_MET when another
    ///         thread is waiting; DDS_RETCODE_OUT_OF_RESOURCES when the sequence cannot hold the result; or the code with which a
    ///         reader whose condition is attached was interrupted.
    /// @par Blocks  Up to `timeout`.
    virtual DDS_ReturnCode_t wait(DDSConditionSeq& active_conditions, const DDS_Duration_t& timeout);

    /// Attaches a condition. One that is attached already stays so. A thread that waits takes it into account at once.
    /// @param condition  borrowed until detached or deleted.
    /// @return DDS_RETCODE_OK; DDS_RETCODE_BAD_PARAMETER for null or a condition that cannot be waited for;
    ///         DDS_RETCODE_OUT_OF_RESOURCES when memory is short; DDS_RETCODE_ALREADY_DELETED for a deleted condition.
    virtual DDS_ReturnCode_t attach_condition(DDSCondition* condition);

    /// Detaches a condition.
    /// @return DDS_RETCODE_OK; DDS_RETCODE_BAD_PARAMETER for null; DDS_RETCODE_PRECONDITION_NOT_MET when it is not attached.
    virtual DDS_ReturnCode_t detach_condition(DDSCondition* condition);

    /// Lists the attached conditions, in no particular order.
    /// @return DDS_RETCODE_OK; DDS_RETCODE_OUT_OF_RESOURCES when the sequence cannot hold them.
    virtual DDS_ReturnCode_t get_conditions(DDSConditionSeq& attached_conditions);

    /// Exchanges the conditions (and all else) of two sets.
    void swap(DDSWaitSet& other) noexcept;

private:
    norvane::mw::WaitSetCore* _core;  // owned
};

#endif
