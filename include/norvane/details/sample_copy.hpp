// SPDX-License-Identifier: Apache-2.0
// Copies of samples on loan.
#ifndef NORVANE_DETAILS_SAMPLE_COPY_HPP
#define NORVANE_DETAILS_SAMPLE_COPY_HPP

#include <optional>
#include <string>
#include <type_traits>

namespace norvane {

template <class T>
class LoanedSamples;
template <class T>
class Sample;

namespace details {

/// @return the data of a sample as a value. @param ref  the sample, as a loan of T shows it.
template <class T, class Ref>
T copy_of(const Ref& ref) {
    if constexpr (std::is_same<T, std::string>::value) {
        return ref.c_str();
    } else {
        return ref.data();
    }
}

/// @return a copy of the first sample of a loan; nothing when it is empty.
template <class T>
std::optional<Sample<T>> first_of(const LoanedSamples<T>& loan) {
    return loan.empty() ? std::nullopt : std::optional<Sample<T>>(loan[0]);
}

}  // namespace details
}  // namespace norvane

#endif
