// SPDX-License-Identifier: Apache-2.0
// Samples lent to the application: which loans are out, and the records for the next ones.
//
// Invariants:
// 1. A record is free, out, or in the hands of the thread that fills or empties it.
// 2. A loan that is out is found by its array of samples; its infos must match as well. Both stay where they are until it is back.
// 3. Records are used again: in steady state a loan allocates nothing. Large arrays are not kept.
// Thread rule: none of its own; guarded by the store's lock.
#ifndef NORVANE_MIDDLEWARE_LOANTABLE_HPP
#define NORVANE_MIDDLEWARE_LOANTABLE_HPP

#include <memory>
#include <vector>

#include "middleware/SampleIndex.hpp"
#include "norvane/dds/SampleInfo.hpp"

namespace norvane {
namespace mw {

struct SampleSlot;

/// Samples lent in one go.
struct Loan {
    static constexpr int ROOM = 4;  // enough for the usual loan

    int capacity = ROOM;
    int count = 0;
    void** data = few_data;
    DDS_SampleInfo* infos = few_infos;
    SampleSlot** slots = few_slots;
    Loan* next_free = nullptr;

    void* few_data[ROOM];
    DDS_SampleInfo few_infos[ROOM];
    SampleSlot* few_slots[ROOM];
    std::unique_ptr<void*[]> many_data;
    std::unique_ptr<DDS_SampleInfo[]> many_infos;
    std::unique_ptr<SampleSlot*[]> many_slots;

    /// @return false when memory is short.
    [[nodiscard]] bool make_room(int wanted) noexcept;
    /// Gives large arrays back to the heap.
    void shrink() noexcept;
};

class LoanTable {
public:
    /// @return a record with room for `count` samples, for which `lend` cannot fail; null when memory is short.
    [[nodiscard]] Loan* take(int count) noexcept;
    /// The record is out from here on.
    void lend(Loan& loan) noexcept {
        if (_latest != nullptr) {
            _out.insert(key_of(_latest->data), _latest);
        }
        _latest = &loan;
    }
    /// @return the loan with that array, which is not out any more; null when there is none, or its infos are others.
    [[nodiscard]] Loan* recall(void** data, const DDS_SampleInfo* infos) noexcept;
    /// Keeps an empty record for the next loan.
    void keep(Loan& loan) noexcept;

private:
    static std::uint64_t key_of(void** data) noexcept { return reinterpret_cast<std::uintptr_t>(data); }

    Loan* _free = nullptr;
    Loan* _latest = nullptr;  // lent last, and nearly always back first: it is indexed when another one is lent
    SampleIndex<Loan> _out;   // the others that are out
    std::vector<std::unique_ptr<Loan>> _all;
};

}  // namespace mw
}  // namespace norvane

#endif
