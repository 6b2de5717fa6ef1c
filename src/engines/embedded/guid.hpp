// SPDX-License-Identifier: Apache-2.0
// The source of generated GUIDs.
#ifndef NORVANE_ENGINES_EMBEDDED_GUID_HPP
#define NORVANE_ENGINES_EMBEDDED_GUID_HPP

#include "engines/GuidHash.hpp"
#include "norvane/dds/types.hpp"

namespace norvane {
namespace embedded {

using mw::GuidHash;

/// @return a GUID that this process has not made before: eight random octets, drawn once per process, then a count.
/// @throws std::exception  the system has no random octets to give.
DDS_GUID_t next_guid();

}  // namespace embedded
}  // namespace norvane

#endif
