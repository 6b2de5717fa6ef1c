// SPDX-License-Identifier: Apache-2.0
// One sample that is to be written: a copy of the data, and the parameters to write it with.
#ifndef NORVANE_WRITESAMPLE_HPP
#define NORVANE_WRITESAMPLE_HPP

#include <string>
#include <type_traits>

#include "norvane/SampleHolder.hpp"
#include "norvane/WriteSampleRef.hpp"

namespace norvane {

template <class T>
class WriteSample;

namespace details {

// Programs look for these texts: the spelling stays as it is.
template <>
inline constexpr BadSampleText BAD_SAMPLE_TEXT<WriteSample<DDS_KeyedString>> = {"WriteSample<DDS::KeyedSting>::WriteSample",
                                                                                NO_KEYED_STRING};
template <>
inline constexpr BadSampleText BAD_SAMPLE_TEXT<WriteSample<DDS_KeyedOctets>> = {"WriteSample<DDS::KeyedOctets>::WriteSample",
                                                                                NO_KEYED_OCTETS};
template <>
inline constexpr BadSampleText BAD_SAMPLE_TEXT<WriteSample<DDS_Octets>> = {"WriteSample<DDS::Octets>::WriteSample", NO_OCTETS};
template <>
inline constexpr BadSampleText BAD_SAMPLE_TEXT<WriteSample<char*>> = {"WriteSample<char *>::Sample", NO_STRING};
template <>
inline constexpr BadSampleText BAD_SAMPLE_TEXT<WriteSample<const char*>> = {"WriteSample<const char *>::Sample", NO_STRING};

}  // namespace details

/// Owns a copy of one sample to be written: data and DDS_WriteParams_t. See details::SampleHolder.
/// @tparam T  std::string, `const char*`, `char*`, DDS_KeyedString, DDS_KeyedOctets, DDS_Octets, or a copyable type of the
///            application's.
/// @par Threads  Distinct objects: any. Same object: one at a time.
template <class T>
class WriteSample : public details::SampleHolder<WriteSample<T>, T, DDS_WriteParams_t, WriteSampleRef<T>> {
    typedef details::SampleHolder<WriteSample<T>, T, DDS_WriteParams_t, WriteSampleRef<T>> Holder;

public:
    using Holder::Holder;
    using Holder::operator=;
    WriteSample() = default;

    /// Copies a text and its parameters. Only where T is std::string.
    template <class U, typename std::enable_if<details::IS_TEXT_FOR<U, T>, int>::type = 0>
    WriteSample(WriteSampleRef<U> text) : Holder(text.data(), text.info()) {}
    template <class U, typename std::enable_if<details::IS_TEXT_FOR<U, T>, int>::type = 0>
    WriteSample& operator=(WriteSampleRef<U> text) {
        WriteSample(text).swap(*this);
        return *this;
    }
};

}  // namespace norvane

#endif
