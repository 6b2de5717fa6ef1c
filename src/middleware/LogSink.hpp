// SPDX-License-Identifier: Apache-2.0
// What the logging facility offers inside the middleware besides norvane/dds/log.hpp. Lines are written through Log.hpp.
// Thread rule: any thread.
#ifndef NORVANE_MIDDLEWARE_LOGSINK_HPP
#define NORVANE_MIDDLEWARE_LOGSINK_HPP

#include "norvane/dds/log.hpp"

namespace norvane {
namespace mw {

/// Sets both masks to what a level name stands for: "silent", "error", "warning" or "notice".
/// @param name  not null.
/// @return false when there is no such level; the masks stay as they are then.
bool set_log_level(const char* name) noexcept;

}  // namespace mw
}  // namespace norvane

#endif
