// SPDX-License-Identifier: Apache-2.0
// One sample that is to be written: the data and the write parameters, by reference.
//
// A plain value of two pointers that owns nothing. WriteSample keeps a copy.
#ifndef NORVANE_WRITESAMPLEREF_HPP
#define NORVANE_WRITESAMPLEREF_HPP

#include "norvane/details/DataRef.hpp"

namespace norvane {

/// Refers to data and to the parameters to write it with. Has what details::DataRef or, for a text, details::TextRef has.
/// @par Threads  A plain value.
template <class T>
class WriteSampleRef : public details::RefTo<T, DDS_WriteParams_t> {
public:
    using details::RefTo<T, DDS_WriteParams_t>::RefTo;
    /// Refers to nothing.
    WriteSampleRef() = default;
};

}  // namespace norvane

#endif
