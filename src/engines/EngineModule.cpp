// SPDX-License-Identifier: Apache-2.0
#include "engines/EngineModule.hpp"

#include <dlfcn.h>
#include <unistd.h>

namespace norvane {
namespace mw {

namespace {

// Modules are installed beside the library; where the library is, its own code knows best.
std::string beside_this_library(const char* file) {
    Dl_info here;
    if (dladdr(reinterpret_cast<const void*>(&open_engine_module), &here) == 0 || here.dli_fname == nullptr) {
        return file;
    }
    const std::string library = here.dli_fname;
    const std::size_t slash = library.rfind('/');
    const std::string path = slash == std::string::npos ? file : library.substr(0, slash + 1) + file;
    return ::access(path.c_str(), R_OK) == 0 ? path : file;
}

}  // namespace

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
    void* const module = dlopen(beside_this_library(file).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) {
        const char* const reason = dlerror();
        failure = std::string(file) + " cannot be opened (" + (reason == nullptr ? "no reason given" : reason) +
                  "); build norvane with this engine, and install the module beside the library, or where the loader looks "
                  "(LD_LIBRARY_PATH)";
        return nullptr;
    }
    return engine_of_entry(reinterpret_cast<EngineEntry>(dlsym(module, ENGINE_ENTRY_NAME)), file, failure);
}

}  // namespace mw
}  // namespace norvane
