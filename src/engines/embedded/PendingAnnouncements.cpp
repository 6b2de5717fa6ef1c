// SPDX-License-Identifier: Apache-2.0
#include "engines/embedded/PendingAnnouncements.hpp"

#include <new>
#include <utility>

namespace norvane {
namespace embedded {

PendingAnnouncements::~PendingAnnouncements() {
    for (std::size_t index = 0; index < _few_count; ++index) {
        _few[index].~shared_ptr();
    }
}

bool PendingAnnouncements::make_room(std::size_t count) noexcept {
    if (count > FEW) {
        try {
            _more.reserve(count - FEW);
        } catch (const std::bad_alloc&) {
            return false;
        }
    }
    return true;
}

void PendingAnnouncements::add(std::shared_ptr<Endpoint> endpoint) noexcept {
    if (_few_count < FEW) {
        new (&_few[_few_count]) std::shared_ptr<Endpoint>(std::move(endpoint));
        ++_few_count;
    } else {
        _more.push_back(std::move(endpoint));
    }
}

void PendingAnnouncements::run() noexcept {
    for (std::size_t index = 0; index < _few_count; ++index) {
        _few[index]->announce();
    }
    for (const std::shared_ptr<Endpoint>& endpoint : _more) {
        endpoint->announce();
    }
}

}  // namespace embedded
}  // namespace norvane
