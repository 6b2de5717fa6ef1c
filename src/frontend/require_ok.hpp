// SPDX-License-Identifier: Apache-2.0
// `check_retcode` for the fast way: success must not pay for the std::string of its message.
#ifndef NORVANE_FRONTEND_REQUIRE_OK_HPP
#define NORVANE_FRONTEND_REQUIRE_OK_HPP

#include "norvane/Exception.hpp"

namespace norvane {
namespace details {

/// @throws as check_retcode, for every code but DDS_RETCODE_OK and DDS_RETCODE_NO_DATA; a time-out is an error.
inline void require_ok(DDS_ReturnCode_t retcode, const char* method_name, const VOSTLogMessage& error_msg, const char* msg) {
    if (retcode != DDS_RETCODE_OK) {
        check_retcode(retcode, method_name, error_msg, msg, true);
    }
}

}  // namespace details
}  // namespace norvane

#endif
