// SPDX-License-Identifier: Apache-2.0
#include "engines/EngineModule.hpp"

#include <dlfcn.h>

namespace norvane {
namespace mw {

Engine* engine_of_entry(EngineEntry entry, const char* file, std::string& failure) {
    if (entry == nullptr) {
        failure = std::string(file) + " is no engine module: it does not export \"" + ENGINE_ENTRY_NAME + "\"";
        return nullptr;
    }
    Engine* const engine = entry(ENGINE_ABI);
    if (engine == nullptr) {
        failure = std::string(file) + " was built for another version of norvane: it does not know engine ABI " +
                  std::to_string(ENGINE_ABI) + "; install the one that belongs to this library";
    }
    return engine;
}

Engine* open_engine_module(const char* file, std::string& failure) {
    // Never closed, refused or not: what it has started or registered cannot be taken back.
    void* const module = dlopen(file, RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) {
        const char* const reason = dlerror();
        failure = std::string(file) + " cannot be opened (" + (reason == nullptr ? "no reason given" : reason) +
                  "); build norvane with this engine, and install the module where the loader looks (LD_LIBRARY_PATH)";
        return nullptr;
    }
    return engine_of_entry(reinterpret_cast<EngineEntry>(dlsym(module, ENGINE_ENTRY_NAME)), file, failure);
}

}  // namespace mw
}  // namespace norvane
