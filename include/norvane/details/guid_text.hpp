// SPDX-License-Identifier: Apache-2.0
// A GUID as text, for names, filters and properties.
#ifndef NORVANE_DETAILS_GUID_TEXT_HPP
#define NORVANE_DETAILS_GUID_TEXT_HPP

#include <cstddef>
#include <string>

#include "norvane/dds/types.hpp"

namespace norvane {
namespace details {

constexpr std::size_t GUID_TEXT_LENGTH = 2 * sizeof(DDS_GUID_t::value);

/// Appends the GUID as lower-case hexadecimal digits.
inline void append_guid_text(std::string& text, const DDS_GUID_t& guid) {
    constexpr const char* DIGITS = "0123456789abcdef";
    for (const DDS_Octet octet : guid.value) {
        text.push_back(DIGITS[octet >> 4]);
        text.push_back(DIGITS[octet & 0xf]);
    }
}

}  // namespace details
}  // namespace norvane

#endif
