// SPDX-License-Identifier: Apache-2.0
// The open writers of this process, by the GUIDs that Fast DDS knows them by: which they are, and how their names and numbers differ from those that the
// application knows. Thread rule: any thread at once; the mutex is a leaf.
#ifndef NORVANE_ENGINES_FASTDDS_DISCOVERY_LOCALWRITERS_HPP
#define NORVANE_ENGINES_FASTDDS_DISCOVERY_LOCALWRITERS_HPP

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "engines/fastdds/Endpoint.hpp"
#include "engines/fastdds/identity.hpp"

namespace norvane {
namespace fastdds {

class LocalWriters {
public:
    /// Never destroyed: participants of static life leave after main.
    static LocalWriters& get() noexcept;

    /// @throws std::bad_alloc
    void add(const DDS_GUID_t& rtps_guid, const std::shared_ptr<Endpoint>& writer);
    void remove(const DDS_GUID_t& rtps_guid) noexcept;
    /// Notes that from a number of Fast DDS on the application's are higher by so much.
    /// @return false when there is no memory to know it: what a plain peer answers is then taken for the answer to another number.
    bool note_numbers(const DDS_GUID_t& rtps_guid, std::int64_t rtps_number, std::int64_t ahead) noexcept;

    /// @return null when there is none of that GUID.
    std::shared_ptr<Endpoint> find(const DDS_GUID_t& rtps_guid) noexcept;
    /// @return its virtual GUID; the GUID itself when there is none, or it has no other.
    DDS_GUID_t name_of(const DDS_GUID_t& rtps_guid) noexcept;
    /// @return the number that the application knows a sample by; the number itself where there is no such writer, or it knows no other.
    std::int64_t number_of(const DDS_GUID_t& rtps_guid, std::int64_t rtps_number) noexcept;

private:
    std::mutex _mutex;
    std::unordered_map<DDS_GUID_t, std::weak_ptr<Endpoint>, GuidHash> _writers;
    std::unordered_map<DDS_GUID_t, DDS_GUID_t, GuidHash> _names;  // virtual GUIDs that are not the RTPS GUID
    // From which number of Fast DDS on how much higher those of the application are, where they ever were: plain peers know the former.
    std::unordered_map<DDS_GUID_t, std::map<std::int64_t, std::int64_t>, GuidHash> _numbers;
    // As a rule there is nothing to look for.
    std::atomic<std::size_t> _name_count{0};
    std::atomic<std::size_t> _numbers_count{0};
};

}  // namespace fastdds
}  // namespace norvane

#endif
