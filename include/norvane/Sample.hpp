// SPDX-License-Identifier: Apache-2.0
// One received sample, kept: a copy of the data and the info that outlives the loan.
#ifndef NORVANE_SAMPLE_HPP
#define NORVANE_SAMPLE_HPP

#include <string>
#include <type_traits>

#include "norvane/SampleHolder.hpp"
#include "norvane/SampleRef.hpp"

namespace norvane {

template <class T>
class Sample;

namespace details {

// Programs look for these texts: the spelling stays as it is.
template <>
inline constexpr BadSampleText BAD_SAMPLE_TEXT<Sample<DDS_KeyedString>> = {"Sample<DDS::KeyedSting>::Sample", NO_KEYED_STRING};
template <>
inline constexpr BadSampleText BAD_SAMPLE_TEXT<Sample<DDS_KeyedOctets>> = {"Sample<DDS::KeyedOctets>::Sample", NO_KEYED_OCTETS};
template <>
inline constexpr BadSampleText BAD_SAMPLE_TEXT<Sample<DDS_Octets>> = {"Sample<DDS::Octets>::Sample", NO_OCTETS};
template <>
inline constexpr BadSampleText BAD_SAMPLE_TEXT<Sample<char*>> = {"Sample<char *>::Sample", NO_STRING};
template <>
inline constexpr BadSampleText BAD_SAMPLE_TEXT<Sample<const char*>> = {"Sample<const char *>::Sample", NO_STRING};

/// Whether a Sample<T> may be made of a reference to U: what a loan of T shows, or any text for a std::string.
template <class U, class T>
inline constexpr bool IS_LOANED_AS = std::is_same<U, const T>::value || IS_TEXT_FOR<U, T>;

}  // namespace details

/// Owns a copy of one received sample: data and DDS_SampleInfo.
///
/// Made from a SampleRef, such as an element of a loan, it stays when the loan has gone back:
/// @code
///     const norvane::LoanedSamples<std::string> replies = requester.take_replies(id);
///     norvane::Sample<std::string> kept = replies[0];
/// @endcode
/// `Sample<DDS_Octets>` takes null, and octets that find no memory, without a word (its sizes are checked all the same);
/// `Sample<char*>` and `Sample<const char*>` do so when they are assigned a reference. They hold null then.
/// For the rest see details::SampleHolder.
/// @tparam T  std::string, `const char*`, `char*`, DDS_KeyedString, DDS_KeyedOctets, DDS_Octets, or a copyable type of the
///            application's.
/// @par Threads  Distinct objects: any. Same object: one at a time.
template <class T>
class Sample : public details::SampleHolder<Sample<T>, T, DDS_SampleInfo, SampleRef<T>> {
    typedef details::SampleHolder<Sample<T>, T, DDS_SampleInfo, SampleRef<T>> Holder;

public:
    using Holder::Holder;
    using Holder::operator=;
    Sample() = default;

    /// Copies a sample on loan.
    template <class U, typename std::enable_if<details::IS_LOANED_AS<U, T>, int>::type = 0>
    Sample(SampleRef<U> loaned) : Holder(loaned.data(), loaned.info()) {}
    template <class U, typename std::enable_if<details::IS_LOANED_AS<U, T>, int>::type = 0>
    Sample& operator=(SampleRef<U> loaned) {
        Sample(loaned).swap(*this);
        return *this;
    }

    /// @return the identity of the sample that this one answers; unknown when it answers none.
    DDS_SampleIdentity_t related_identity() const { return details::get_related_sample_identity_from_sample_info(this->info()); }
};

}  // namespace norvane

#endif
