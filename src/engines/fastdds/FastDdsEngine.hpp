// SPDX-License-Identifier: Apache-2.0
// The engine across processes and machines, and the entry of its module.
#ifndef NORVANE_ENGINES_FASTDDS_FASTDDSENGINE_HPP
#define NORVANE_ENGINES_FASTDDS_FASTDDSENGINE_HPP

#include <cstdint>

#include "middleware/Engine.hpp"

namespace norvane {
namespace fastdds {

/// @return the engine; one for the process, never destroyed.
mw::Engine& fastdds_engine() noexcept;

}  // namespace fastdds
}  // namespace norvane

/// What the module exports: see mw::EngineEntry.
extern "C" norvane::mw::Engine* norvane_engine(std::uint32_t abi);

#endif
