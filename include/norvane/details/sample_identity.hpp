// SPDX-License-Identifier: Apache-2.0
// Identities of received samples, and the cast to a dynamic-data type support.
#ifndef NORVANE_DETAILS_SAMPLE_IDENTITY_HPP
#define NORVANE_DETAILS_SAMPLE_IDENTITY_HPP

#include "norvane/dds/SampleInfo.hpp"
#include "norvane/export.hpp"

class DDSDynamicDataTypeSupport;
class DDSTypeSupport;

namespace norvane {
namespace details {

/// @return the identity of a received sample.
NORVANE_EXPORT DDS_SampleIdentity_t get_sample_identity_from_sample_info(const DDS_SampleInfo& info);
/// @return the identity of the sample that a received sample answers, as the middleware stored it.
NORVANE_EXPORT DDS_SampleIdentity_t get_related_sample_identity_from_sample_info(const DDS_SampleInfo& info);
/// @return the type support as a dynamic-data one; null when it is null or another.
NORVANE_EXPORT DDSDynamicDataTypeSupport* dynamic_data_type_support_cast(DDSTypeSupport* type_support);

}  // namespace details
}  // namespace norvane

#endif
