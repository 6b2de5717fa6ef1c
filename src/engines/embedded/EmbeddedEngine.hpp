// SPDX-License-Identifier: Apache-2.0
// The embedded engine: samples travel between the participants of one process that gave the same domain number, on the thread that
// writes. It has no thread and no dependency.
#ifndef NORVANE_ENGINES_EMBEDDED_EMBEDDEDENGINE_HPP
#define NORVANE_ENGINES_EMBEDDED_EMBEDDEDENGINE_HPP

#include "middleware/Engine.hpp"

namespace norvane {
namespace embedded {

/// @return the engine, which lives as long as the process.
mw::Engine& embedded_engine() noexcept;

}  // namespace embedded
}  // namespace norvane

#endif
