// SPDX-License-Identifier: Apache-2.0
// The argument of a front-end as the sample that the core writes, checked.
#ifndef NORVANE_DETAILS_SAMPLE_ARGUMENT_HPP
#define NORVANE_DETAILS_SAMPLE_ARGUMENT_HPP

#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>

#include "norvane/Exception.hpp"
#include "norvane/dds/builtin_types.hpp"
#include "norvane/dds/types.hpp"
#include "norvane/details/encodability.hpp"

namespace norvane {
namespace details {

/// Octets whose length and pointer disagree are refused.
inline void require_octets(const unsigned char* value, int length, const char* method_name) {
    if (length < 0 || (length > 0 && value == nullptr)) {
        check_retcode(DDS_RETCODE_BAD_PARAMETER, method_name, DDS_LOG_BAD_PARAMETER_s,
                      "octets of length " + std::to_string(length) + (value != nullptr ? "" : " without a value"), false);
    }
}

template <class T>
void require_encodable([[maybe_unused]] const T& value, [[maybe_unused]] const char* method_name) {
    if constexpr (!is_always_encodable<T>()) {
        char reason[256];
        BoundedText text(reason, sizeof reason);
        if (find_unencodable(value, ValuePlace{nullptr, type_name<T>}, text)) {
            check_retcode(DDS_RETCODE_BAD_PARAMETER, method_name, DDS_LOG_BAD_PARAMETER_s, reason, false);
        }
    }
}

/// A sample in the form in which the core writes it. Borrows from the value, for the call.
template <class T>
class SampleArgument {
public:
    /// @throws BadParameterException  the sample is octets with a length but no value, or a negative length; or it cannot be
    ///                                encoded: the message names the member. (Checked here, so that it is refused alike where
    ///                                nothing is encoded.)
    SampleArgument(const T& value, [[maybe_unused]] const char* method_name) : _value(&value) {
        if constexpr (std::is_same<T, DDS_Octets>::value || std::is_same<T, DDS_KeyedOctets>::value) {
            require_octets(value.value, value.length, method_name);
        } else if constexpr (IS_DESCRIBED<T>) {
            require_encodable(value, method_name);
        }
    }
    const void* sample() const noexcept { return _value; }

private:
    const T* _value;
};

/// A string's sample is a pointer to its text.
template <>
class SampleArgument<std::string> {
public:
    /// @throws BadParameterException  the string holds a NUL, where its text would end on the way.
    SampleArgument(const std::string& value, const char* method_name) : _text(value.c_str()) {
        if (std::strlen(_text) != value.size()) {
            check_retcode(DDS_RETCODE_BAD_PARAMETER, method_name, DDS_LOG_BAD_PARAMETER_s, "string with a NUL inside", false);
        }
    }
    /// @throws BadParameterException  the text is null: not every engine could tell it from an empty one.
    SampleArgument(const char* text, const char* method_name) : _text(text) {
        if (text == nullptr) {
            check_retcode(DDS_RETCODE_BAD_PARAMETER, method_name, DDS_LOG_BAD_PARAMETER_s, "null string", false);
        }
    }
    const void* sample() const noexcept { return &_text; }

private:
    const char* _text;
};

}  // namespace details
}  // namespace norvane

#endif
