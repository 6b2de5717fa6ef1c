// SPDX-License-Identifier: Apache-2.0
// The open writers of this process by RTPS GUID, with their virtual GUIDs. Thread rule: any thread at once; the mutex is a leaf.
#ifndef NORVANE_ENGINES_FASTDDS_DISCOVERY_LOCALWRITERS_HPP
#define NORVANE_ENGINES_FASTDDS_DISCOVERY_LOCALWRITERS_HPP

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "engines/fastdds/Endpoint.hpp"
#include "engines/fastdds/identity.hpp"

namespace norvane {
namespace fastdds {

class LocalWriters {
public:
    /// Never destroyed: participants with static storage leave after main.
    static LocalWriters& get() noexcept;

    /// @throws std::bad_alloc
    void add(const DDS_GUID_t& rtps_guid, const std::shared_ptr<Endpoint>& writer);
    void remove(const DDS_GUID_t& rtps_guid) noexcept;

    /// @return null if there is none of that GUID.
    std::shared_ptr<Endpoint> find(const DDS_GUID_t& rtps_guid) noexcept;
    /// @return its virtual GUID; the argument if the writer is not known or has no other.
    DDS_GUID_t name_of(const DDS_GUID_t& rtps_guid) noexcept;

private:
    std::mutex _mutex;
    std::unordered_map<DDS_GUID_t, std::weak_ptr<Endpoint>, GuidHash> _writers;
    std::unordered_map<DDS_GUID_t, DDS_GUID_t, GuidHash> _names;  // virtual GUIDs that differ from the RTPS GUID
    std::atomic<std::size_t> _name_count{0};                      // usually 0: no need to lock
};

}  // namespace fastdds
}  // namespace norvane

#endif
