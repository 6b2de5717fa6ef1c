// SPDX-License-Identifier: Apache-2.0
// One received sample as its loan shows it: the data and the info, by reference.
//
// A plain value of two pointers that owns nothing: it must not outlive the loan. Sample keeps a copy.
#ifndef NORVANE_SAMPLEREF_HPP
#define NORVANE_SAMPLEREF_HPP

#include <type_traits>

#include "norvane/details/DataRef.hpp"

namespace norvane {

/// Refers to one received sample. Also has what details::DataRef or, for a text, details::TextRef has.
/// @tparam T  the data type; const for a sample that is shared with others, as every loaned one is. Those of strings are `const
///            char*`.
/// @par Threads  A plain value. What it refers to is never changed by the library.
template <class T>
class SampleRef : public details::RefTo<T, typename std::conditional<std::is_const<typename std::remove_pointer<T>::type>::value,
                                                                     const DDS_SampleInfo, DDS_SampleInfo>::type> {
    typedef details::RefTo<T, typename std::conditional<std::is_const<typename std::remove_pointer<T>::type>::value,
                                                        const DDS_SampleInfo, DDS_SampleInfo>::type>
        Base;

public:
    using Base::Base;
    /// Refers to nothing.
    SampleRef() = default;
    /// A reference that may change what it refers to, as one that may not.
    template <class U, typename std::enable_if<details::IS_CONST_VIEW<U, T>, int>::type = 0>
    SampleRef(const SampleRef<U>& other) noexcept : Base(other._data_ptr, other._info_ptr) {}

    /// @return the identity of the sample that this one answers; unknown when it answers none.
    DDS_SampleIdentity_t related_identity() const {
        return details::get_related_sample_identity_from_sample_info(*this->_info_ptr);
    }

private:
    template <class>
    friend class SampleRef;
};

}  // namespace norvane

#endif
