// SPDX-License-Identifier: Apache-2.0
#include "middleware/LoanTable.hpp"

#include <algorithm>
#include <climits>
#include <new>
#include <utility>

namespace norvane {
namespace mw {

bool Loan::make_room(int wanted) noexcept {
    if (wanted <= capacity) {
        return true;
    }
    const int fresh = wanted <= INT_MAX / 2 ? std::max(wanted, capacity * 2) : wanted;
    const std::size_t size = static_cast<std::size_t>(fresh);
    std::unique_ptr<void*[]> fresh_data(new (std::nothrow) void*[size]);
    std::unique_ptr<DDS_SampleInfo[]> fresh_infos(new (std::nothrow) DDS_SampleInfo[size]);
    std::unique_ptr<SampleSlot*[]> fresh_slots(new (std::nothrow) SampleSlot*[size]);
    if (fresh_data == nullptr || fresh_infos == nullptr || fresh_slots == nullptr) {
        return false;
    }
    many_data = std::move(fresh_data);
    many_infos = std::move(fresh_infos);
    many_slots = std::move(fresh_slots);
    data = many_data.get();
    infos = many_infos.get();
    slots = many_slots.get();
    capacity = fresh;
    return true;
}

void Loan::shrink() noexcept {
    many_data.reset();
    many_infos.reset();
    many_slots.reset();
    data = few_data;
    infos = few_infos;
    slots = few_slots;
    capacity = ROOM;
}

Loan* LoanTable::take(int count) noexcept {
    if (!_out.reserve(_out.size() + 1)) {
        return nullptr;
    }
    if (_free == nullptr) {
        try {
            std::unique_ptr<Loan> made(new Loan());
            _all.push_back(std::move(made));
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
        _free = _all.back().get();
    }
    Loan* loan = _free;
    if (!loan->make_room(count)) {
        return nullptr;
    }
    _free = loan->next_free;
    return loan;
}

Loan* LoanTable::recall(void** data, const DDS_SampleInfo* infos) noexcept {
    const bool is_latest = _latest != nullptr && _latest->data == data;
    Loan* loan = is_latest ? _latest : _out.find(key_of(data));
    if (loan == nullptr || loan->infos != infos) {
        return nullptr;
    }
    if (is_latest) {
        _latest = nullptr;
    } else {
        _out.erase(key_of(data));
    }
    return loan;
}

void LoanTable::keep(Loan& loan) noexcept {
    constexpr int LARGEST_KEPT = 4096;
    if (loan.capacity > LARGEST_KEPT) {
        loan.shrink();
    }
    loan.next_free = _free;
    _free = &loan;
}

}  // namespace mw
}  // namespace norvane
