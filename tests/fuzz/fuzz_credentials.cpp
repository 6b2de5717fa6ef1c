// SPDX-License-Identifier: Apache-2.0
// The document of permissions that a participant is given.
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "engines/fastdds/discovery/credentials.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const int file = ::memfd_create("permissions", 0);
    if (::write(file, data, size) == static_cast<ssize_t>(size)) {
        norvane::fastdds::rtps::PropertyPolicy policy;
        policy.properties().emplace_back("dds.sec.access.builtin.Access-Permissions.permissions",
                                         "file:///proc/self/fd/" + std::to_string(file));
        norvane::fastdds::fault_of_credentials(policy);
    }
    ::close(file);
    return 0;
}
