// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/discovery/LocalWriters.hpp"

namespace norvane {
namespace fastdds {

LocalWriters& LocalWriters::get() noexcept {
    static LocalWriters* const ALL = new LocalWriters;
    return *ALL;
}

void LocalWriters::add(const DDS_GUID_t& rtps_guid, const std::shared_ptr<Endpoint>& writer) {
    const std::lock_guard<std::mutex> lock(_mutex);
    _writers[rtps_guid] = writer;
    if (rtps_guid != writer->info().guid) {
        _names[rtps_guid] = writer->info().guid;
        _name_count.store(_names.size());
    }
}

void LocalWriters::remove(const DDS_GUID_t& rtps_guid) noexcept {
    const std::lock_guard<std::mutex> lock(_mutex);
    _writers.erase(rtps_guid);
    _names.erase(rtps_guid);
    _name_count.store(_names.size());
}

std::shared_ptr<Endpoint> LocalWriters::find(const DDS_GUID_t& rtps_guid) noexcept {
    const std::lock_guard<std::mutex> lock(_mutex);
    const auto place = _writers.find(rtps_guid);
    return place == _writers.end() ? nullptr : place->second.lock();
}

DDS_GUID_t LocalWriters::name_of(const DDS_GUID_t& rtps_guid) noexcept {
    if (_name_count.load(std::memory_order_relaxed) == 0) {
        return rtps_guid;
    }
    const std::lock_guard<std::mutex> lock(_mutex);
    const auto place = _names.find(rtps_guid);
    return place == _names.end() ? rtps_guid : place->second;
}

}  // namespace fastdds
}  // namespace norvane
