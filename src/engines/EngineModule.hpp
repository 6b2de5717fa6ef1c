// SPDX-License-Identifier: Apache-2.0
// Opens an engine that is a shared library of its own. A module that has given its engine is never unloaded.
#ifndef NORVANE_ENGINES_ENGINEMODULE_HPP
#define NORVANE_ENGINES_ENGINEMODULE_HPP

#include <string>

#include "middleware/Engine.hpp"

namespace norvane {
namespace mw {

/// Opens a module and asks it for its engine. Any thread; as often as wanted.
/// @param file     name of the shared library, looked for beside this one, then as the system's loader does.
/// @param failure  gets the reason when the result is null: it names the file, and says what to do.
Engine* open_engine_module(const char* file, std::string& failure);

/// Asks a module's entry for its engine.
/// @param entry  null when the module has none.
Engine* engine_of_entry(EngineEntry entry, const char* file, std::string& failure);

}  // namespace mw
}  // namespace norvane

#endif
