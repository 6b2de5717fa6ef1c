// SPDX-License-Identifier: Apache-2.0
// The span in which a requester or replier makes its endpoints: the participant learns that they have a holder.
// Thread rule: one thread, that which makes the endpoints.
#ifndef NORVANE_FRONTEND_HOLDINGSPAN_HPP
#define NORVANE_FRONTEND_HOLDINGSPAN_HPP

#include <new>

#include "norvane/dds/DomainParticipant.hpp"

namespace norvane {
namespace details {

class HoldingSpan {
public:
    /// @param participant  null is left to the check of the parameters. @param holder  see DDSDomainParticipant::begin_holding.
    /// @throws std::bad_alloc  memory is short.
    HoldingSpan(DDSDomainParticipant* participant, const char* holder) : _participant(participant) {
        if (_participant != nullptr && _participant->begin_holding(holder) != DDS_RETCODE_OK) {
            throw std::bad_alloc();
        }
    }
    HoldingSpan(const HoldingSpan&) = delete;
    HoldingSpan& operator=(const HoldingSpan&) = delete;
    ~HoldingSpan() {
        if (_participant != nullptr) {
            _participant->end_holding();
        }
    }

private:
    DDSDomainParticipant* const _participant;
};

}  // namespace details
}  // namespace norvane

#endif
