// SPDX-License-Identifier: Apache-2.0
// The index of a store: its names, a selection of samples per key, and which keys are open.
//
// Invariants:
// 1. Every index name stands for the same key, the number of the sample that is answered.
// 2. A key has a record while it has samples or conditions, or is interrupted; its user drops it when that ends.
// 3. A record for which room was reserved can be made without failing.
// Thread rule: none of its own; guarded by the store's lock.
#ifndef NORVANE_MIDDLEWARE_KEYTABLE_HPP
#define NORVANE_MIDDLEWARE_KEYTABLE_HPP

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "middleware/OpenKeys.hpp"
#include "middleware/SampleIndex.hpp"
#include "middleware/SampleSelection.hpp"

namespace norvane {
namespace mw {

class KeyTable {
public:
    bool has_indexes() const noexcept { return !_names.empty(); }
    /// @param name  null: there is none of that name.
    bool has_index(const char* name) const noexcept;
    /// @return false when memory is short.
    bool add_index(const char* name) noexcept;

    /// Makes room for that many records besides those that are in use. @return false when memory is short.
    bool reserve(std::size_t more) noexcept;
    /// @return the record of the key; null when it has none.
    SampleSelection* find(std::uint64_t key) const noexcept { return _records.find(key); }
    /// @return the record of the key; a new one takes up room that was reserved.
    SampleSelection& record(std::uint64_t key) noexcept;
    /// Takes the record back when nothing needs it any more.
    void drop_if_idle(SampleSelection& record) noexcept;

    void admit_open_only(bool open_only) noexcept { _open_only = open_only; }
    bool admits_open_only() const noexcept { return _open_only; }
    bool is_open(std::uint64_t key) const noexcept { return _open_keys.is_open(key); }
    bool is_over(std::uint64_t key) const noexcept { return _open_keys.is_over(key); }
    /// @return false when memory is short: the key stays as it was.
    bool open(std::uint64_t key) noexcept { return _open_keys.open(key); }
    /// @return false when memory is short: the key stays as it was.
    bool close(std::uint64_t key) noexcept { return _open_keys.close(key); }

private:
    SampleSelection* _free = nullptr;
    std::size_t _free_count = 0;
    SampleIndex<SampleSelection> _records;
    bool _open_only = false;
    std::vector<std::string> _names;
    std::vector<std::unique_ptr<SampleSelection[]>> _chunks;
    OpenKeys _open_keys;
};

}  // namespace mw
}  // namespace norvane

#endif
