// SPDX-License-Identifier: Apache-2.0
// What the doubles have in common that stand for an entity: they forward every operation to it. Those that a test may fail are asked
// for in a script first, with the name of class and operation.
#ifndef NORVANE_TESTS_SUPPORT_FORWARDING_HPP
#define NORVANE_TESTS_SUPPORT_FORWARDING_HPP

#include <string>
#include <utility>

#include "CallScript.hpp"
#include "Thrown.hpp"
#include "norvane/dds/Condition.hpp"
#include "norvane/dds/Status.hpp"

namespace norvane::test {

template <typename Interface>
class Forwarding : public Interface {
public:
    typedef Interface Real;
    typedef DDS_ReturnCode_t Code;

    /// Both are borrowed.
    Forwarding(Real& real, CallScript& script) : _real(real), _script(script) {}

    Real& real() { return _real; }

    DDSStatusCondition* get_statuscondition() override { return _real.get_statuscondition(); }
    DDS_StatusMask get_status_changes() override { return _real.get_status_changes(); }
    DDS_InstanceHandle_t get_instance_handle() override { return _real.get_instance_handle(); }

protected:
    template <typename Result, typename... Parameters, typename... Arguments>
    Result call(const char* name, Result (Real::*operation)(Parameters...), Arguments&&... arguments) {
        return _script.forward(class_name(typeid(Real)) + "::" + name,
                               [&] { return (_real.*operation)(std::forward<Arguments>(arguments)...); });
    }

    Real& _real;
    CallScript& _script;
};

}  // namespace norvane::test

#endif
