// SPDX-License-Identifier: Apache-2.0
// One received sample as its loan shows it: the data and the info, by reference.
//
// A plain value of two pointers that owns nothing: it must not outlive the loan.
#ifndef NORVANE_SAMPLEREF_HPP
#define NORVANE_SAMPLEREF_HPP

#include <string>
#include <type_traits>

#include "norvane/dds/SampleInfo.hpp"
#include "norvane/details/sample_identity.hpp"

namespace norvane {

/// Refers to one sample.
/// @tparam T  the data type; const for a sample that is shared with others, as every loaned one is.
/// @par Threads  A plain value. What it refers to is never changed by the library.
template <class T>
class SampleRef {
public:
    typedef typename std::conditional<std::is_const<T>::value, const DDS_SampleInfo, DDS_SampleInfo>::type Info;

    SampleRef(T& data, Info& info) noexcept : _data_ptr(&data), _info_ptr(&info) {}

    T& data() const noexcept { return *_data_ptr; }
    Info& info() const noexcept { return *_info_ptr; }
    /// @return the identity of the sample: what a reply to it is bound to.
    DDS_SampleIdentity_t identity() const { return details::get_sample_identity_from_sample_info(*_info_ptr); }
    /// @return the identity of the sample that this one answers; unknown when it answers none.
    DDS_SampleIdentity_t related_identity() const { return details::get_related_sample_identity_from_sample_info(*_info_ptr); }

private:
    T* _data_ptr;
    Info* _info_ptr;
};

/// Refers to one string sample.
/// @par Threads  As SampleRef.
template <>
class SampleRef<const char*> {
public:
    typedef const DDS_SampleInfo Info;

    SampleRef(const char* data, Info& info) noexcept : _data_ptr(data), _info_ptr(&info) {}

    /// @return the text, terminated; null when a null string was written.
    const char* data() const noexcept { return _data_ptr; }
    /// @return the text, terminated; empty when a null string was written.
    const char* c_str() const noexcept { return _data_ptr != nullptr ? _data_ptr : ""; }
    operator std::string() const { return c_str(); }
    Info& info() const noexcept { return *_info_ptr; }
    /// @return the identity of the sample: what a reply to it is bound to.
    DDS_SampleIdentity_t identity() const { return details::get_sample_identity_from_sample_info(*_info_ptr); }
    /// @return the identity of the sample that this one answers; unknown when it answers none.
    DDS_SampleIdentity_t related_identity() const { return details::get_related_sample_identity_from_sample_info(*_info_ptr); }

private:
    const char* _data_ptr;
    Info* _info_ptr;
};

}  // namespace norvane

#endif
