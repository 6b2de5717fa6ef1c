// SPDX-License-Identifier: Apache-2.0
#include "norvane/CallTimeoutException.hpp"

namespace norvane {

CallTimeoutException::CallTimeoutException(const std::string& message, TimeoutReason reason)
    : TimeoutException(message), _reason(reason) {}
CallTimeoutException::CallTimeoutException(const CallTimeoutException& other) = default;
CallTimeoutException::~CallTimeoutException() = default;
void CallTimeoutException::raise() { throw *this; }
void CallTimeoutException::rethrow(const std::string& additional_info) const {
    throw CallTimeoutException(additional_info + " caused by " + what(), _reason);
}

}  // namespace norvane
