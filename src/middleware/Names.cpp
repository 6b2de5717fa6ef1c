// SPDX-License-Identifier: Apache-2.0
#include "middleware/Names.hpp"

#include <cstring>
#include <string>

#include "middleware/Log.hpp"

namespace norvane {
namespace mw {

bool is_name_usable(const char* method, const char* what, const char* name) noexcept {
    if (name == nullptr || *name == '\0') {
        log_error(method, [what] { return std::string("the ") + what + " name is null or empty"; });
        return false;
    }
    if (std::strlen(name) > MAX_NAME_LENGTH) {
        log_error(method, [&] {
            return std::string("the ") + what + " name has " + std::to_string(std::strlen(name)) + " characters, " +
                   std::to_string(MAX_NAME_LENGTH) + " are allowed: " + name;
        });
        return false;
    }
    return true;
}

}  // namespace mw
}  // namespace norvane
