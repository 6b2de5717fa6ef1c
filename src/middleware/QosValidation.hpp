// SPDX-License-Identifier: Apache-2.0
// Whether QoS records make sense: looked at once, where an entity is made or a default is set.
// Thread rule: free functions without state.
#ifndef NORVANE_MIDDLEWARE_QOSVALIDATION_HPP
#define NORVANE_MIDDLEWARE_QOSVALIDATION_HPP

#include <string>

#include "norvane/dds/qos.hpp"

namespace norvane {
namespace mw {

/// Looks for fields that are out of range or contradict each other. The first fault found counts.
/// @param what  gets the policy and the remedy, for the log; empty when there was no memory for it. Unchanged when all is well.
/// @return DDS_RETCODE_OK; DDS_RETCODE_BAD_PARAMETER for a field that no other setting could make right;
///         DDS_RETCODE_INCONSISTENT_POLICY for two that contradict each other; DDS_RETCODE_UNSUPPORTED for a durability above
///         transient-local.
[[nodiscard]] DDS_ReturnCode_t validate(const DDS_DataWriterQos& qos, std::string& what) noexcept;
[[nodiscard]] DDS_ReturnCode_t validate(const DDS_DataReaderQos& qos, std::string& what) noexcept;

/// Samples to make room for at the start. The default of `initial_samples` gives way to a smaller `max_samples`, so that an
/// application that sets only the latter need not know the former; any other value above it is refused by `validate`.
DDS_Long initial_samples(const DDS_ResourceLimitsQosPolicy& limits) noexcept;

}  // namespace mw
}  // namespace norvane

#endif
