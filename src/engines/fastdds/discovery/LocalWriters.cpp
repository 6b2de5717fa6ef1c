// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/discovery/LocalWriters.hpp"

#include <exception>
#include <iterator>

namespace norvane {
namespace fastdds {

namespace {

// Of how many changes between the application's numbers and those of Fast DDS a plain peer may still answer.
constexpr std::size_t MOST_NUMBERS = 4096;

}  // namespace

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
    _numbers.erase(rtps_guid);
    _numbers_count.store(_numbers.size());
}

bool LocalWriters::note_numbers(const DDS_GUID_t& rtps_guid, std::int64_t rtps_number, std::int64_t ahead) noexcept {
    const std::lock_guard<std::mutex> lock(_mutex);
    try {
        std::map<std::int64_t, std::int64_t>& numbers = _numbers[rtps_guid];
        _numbers_count.store(_numbers.size());
        numbers[rtps_number] = ahead;
        if (numbers.size() > MOST_NUMBERS) {
            numbers.erase(numbers.begin());
        }
        return true;
    } catch (const std::exception&) {
        return false;
    }
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

std::int64_t LocalWriters::number_of(const DDS_GUID_t& rtps_guid, std::int64_t rtps_number) noexcept {
    if (_numbers_count.load(std::memory_order_relaxed) == 0) {
        return rtps_number;
    }
    const std::lock_guard<std::mutex> lock(_mutex);
    const auto place = _numbers.find(rtps_guid);
    if (place == _numbers.end()) {
        return rtps_number;
    }
    const auto after = place->second.upper_bound(rtps_number);
    return after == place->second.begin() ? rtps_number : rtps_number + std::prev(after)->second;
}

}  // namespace fastdds
}  // namespace norvane
