// SPDX-License-Identifier: Apache-2.0
// The engines that there are. To add one: its name here, and its entry header or its module.
#include "middleware/Engine.hpp"

#include "engines/EngineModule.hpp"
#include "engines/embedded/EmbeddedEngine.hpp"

namespace norvane {
namespace mw {

Engine* select_engine(const std::string& name, std::string& failure) {
    if (name == "embedded") {
        return &embedded::embedded_engine();
    }
    if (name == "fastdds") {
        return open_engine_module("libnorvane_fastdds" NORVANE_MODULE_SUFFIX, failure);
    }
    failure = "there is no engine \"" + name + "\"; known are \"embedded\" and \"fastdds\"";
    return nullptr;
}

}  // namespace mw
}  // namespace norvane
