// SPDX-License-Identifier: Apache-2.0
// What the references to samples have in common: two pointers, to the data and to its metadata. They own neither.
#ifndef NORVANE_DETAILS_DATAREF_HPP
#define NORVANE_DETAILS_DATAREF_HPP

#include <string>
#include <type_traits>
#include <utility>

#include "norvane/dds/SampleInfo.hpp"
#include "norvane/dds/WriteParams.hpp"
#include "norvane/details/sample_identity.hpp"

namespace norvane {
namespace details {

inline DDS_SampleIdentity_t identity_of(const DDS_SampleInfo& info) { return get_sample_identity_from_sample_info(info); }
inline DDS_SampleIdentity_t identity_of(const DDS_WriteParams_t& params) noexcept { return params.identity; }

/// The two pointers. Either may be nil; nothing but the operations on nil and `swap` may be used then.
template <class Pointer, class InfoType>
class RefFields {
public:
    typedef InfoType Info;

    RefFields() noexcept : _data_ptr(nullptr), _info_ptr(nullptr) {}
    RefFields(Pointer data, Info* info) noexcept : _data_ptr(data), _info_ptr(info) {}

    bool is_nil_data() const noexcept { return _data_ptr == nullptr; }
    bool is_nil_info() const noexcept { return _info_ptr == nullptr; }
    Info& info() const noexcept { return *_info_ptr; }
    /// Refers to other metadata from now on; what it referred to stays as it is.
    void set_info(Info& info) noexcept { _info_ptr = &info; }
    void set_info(const Info&& info) = delete;  // only its address is kept: use a variable
    /// @return of a received sample: its identity, which a reply to it is bound to. Of one to be written: the `identity` of its
    ///         parameters, which a write fills in.
    DDS_SampleIdentity_t identity() const { return identity_of(*_info_ptr); }

    /// Exchanges what the two refer to.
    void swap(RefFields& other) noexcept {
        std::swap(_data_ptr, other._data_ptr);
        std::swap(_info_ptr, other._info_ptr);
    }

protected:
    Pointer _data_ptr;
    Info* _info_ptr;
};

/// Refers to a record.
template <class T, class Info>
class DataRef : public RefFields<T*, Info> {
public:
    using RefFields<T*, Info>::RefFields;
    DataRef() = default;
    DataRef(T& data, Info& info) noexcept : RefFields<T*, Info>(&data, &info) {}

    T& data() const noexcept { return *this->_data_ptr; }
    /// Refers to other data from now on; what it referred to stays as it is.
    void set_data(T& data) noexcept { this->_data_ptr = &data; }
    void set_data(const T&& data) = delete;  // only its address is kept: use a variable
};

/// Refers to a text: the pointer to the data is the text.
template <class CharPtr, class Info>
class TextRef : public RefFields<CharPtr, Info> {
public:
    using RefFields<CharPtr, Info>::RefFields;
    TextRef() = default;
    TextRef(CharPtr text, Info& info) noexcept : RefFields<CharPtr, Info>(text, &info) {}

    /// @return the text, terminated; null when it is nil, as for a null string. The reference is to the pointer in this object; of
    ///         a temporary object it is the pointer itself.
    CharPtr& data() & noexcept { return this->_data_ptr; }
    const CharPtr& data() const& noexcept { return this->_data_ptr; }
    CharPtr data() const&& noexcept { return this->_data_ptr; }
    /// @return the text, terminated; empty when it is null.
    const char* c_str() const noexcept { return this->_data_ptr != nullptr ? this->_data_ptr : ""; }
    operator std::string() const { return c_str(); }
    /// Refers to another text from now on, or to none.
    void set_data(CharPtr text) noexcept { this->_data_ptr = text; }
};

template <class T>
inline constexpr bool IS_TEXT = std::is_same<T, char*>::value || std::is_same<T, const char*>::value;

/// Whether a reference to U may become one that only looks: a T.
template <class U, class T>
inline constexpr bool IS_CONST_VIEW = std::is_same<T, const U>::value ||
                                      (std::is_same<T, const char*>::value && std::is_same<U, char*>::value);

/// Whether a reference to U is one to a text that a std::string, T, may be made of. A holder that did not know it would take the
/// text by the conversion to std::string, and lose the metadata without an error.
template <class U, class T>
inline constexpr bool IS_TEXT_FOR = std::is_same<T, std::string>::value&& IS_TEXT<U>;

template <class T, class Info>
using RefTo = typename std::conditional<IS_TEXT<T>, TextRef<T, Info>, DataRef<T, Info>>::type;

}  // namespace details
}  // namespace norvane

#endif
