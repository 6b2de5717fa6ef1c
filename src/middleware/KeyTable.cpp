// SPDX-License-Identifier: Apache-2.0
#include "middleware/KeyTable.hpp"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

namespace norvane {
namespace mw {

bool KeyTable::has_index(const char* name) const noexcept {
    return name != nullptr && std::any_of(_names.begin(), _names.end(),
                                          [name](const std::string& known) { return std::strcmp(known.c_str(), name) == 0; });
}

bool KeyTable::add_index(const char* name) noexcept {
    try {
        _names.emplace_back(name);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

bool KeyTable::reserve(std::size_t more) noexcept {
    if (!_records.reserve(_records.size() + more)) {
        return false;
    }
    if (_free_count >= more) {
        return true;
    }
    constexpr std::size_t SMALLEST = 16;
    constexpr std::size_t LARGEST = 4096;
    const std::size_t made = std::max(more - _free_count, std::min(std::max(_records.size(), SMALLEST), LARGEST));
    try {
        std::unique_ptr<SampleSelection[]> chunk(new SampleSelection[made]);
        _chunks.push_back(std::move(chunk));
    } catch (const std::bad_alloc&) {
        return false;
    }
    SampleSelection* chunk = _chunks.back().get();
    for (std::size_t index = 0; index < made; ++index) {
        chunk[index].next_free = _free;
        _free = &chunk[index];
    }
    _free_count += made;
    return true;
}

SampleSelection& KeyTable::record(std::uint64_t key) noexcept {
    SampleSelection* found = _records.find(key);
    if (found == nullptr) {
        found = _free;
        _free = found->next_free;
        --_free_count;
        found->key = key;
        _records.insert(key, found);
    }
    return *found;
}

void KeyTable::drop_if_idle(SampleSelection& record) noexcept {
    if (record.all.empty() && record.conditions.empty() && record.interruption.load(std::memory_order_relaxed) == DDS_RETCODE_OK) {
        _records.erase(record.key);
        record.next_free = _free;
        _free = &record;
        ++_free_count;
    }
}

}  // namespace mw
}  // namespace norvane
