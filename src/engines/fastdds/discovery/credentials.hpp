// SPDX-License-Identifier: Apache-2.0
// Finds faults in credentials that Fast DDS refuses without always giving a reason.
// Thread rule: plain functions on values.
#ifndef NORVANE_ENGINES_FASTDDS_DISCOVERY_CREDENTIALS_HPP
#define NORVANE_ENGINES_FASTDDS_DISCOVERY_CREDENTIALS_HPP

#include <string>

#include <fastdds/rtps/attributes/PropertyPolicy.h>

#include "engines/fastdds/identity.hpp"

namespace norvane {
namespace fastdds {

/// @return what is wrong with the files that the properties name, by property and file; empty if no fault is found.
/// @throws std::bad_alloc
std::string fault_of_credentials(const rtps::PropertyPolicy& policy);

}  // namespace fastdds
}  // namespace norvane

#endif
