// SPDX-License-Identifier: Apache-2.0
// The common part of Sample and WriteSample: they own a copy of one sample, data and metadata; the copy is complete, or none is
// made.
//
// Copies are deep. One that finds no memory is an OutOfResourcesException, and what was to be assigned to is unchanged.
// Three holders are more lenient with references: see Sample.
// Thread rule: plain values; one thread at a time.
#ifndef NORVANE_SAMPLEHOLDER_HPP
#define NORVANE_SAMPLEHOLDER_HPP

#include "norvane/Exception.hpp"
#include "norvane/SampleBase.hpp"
#include "norvane/details/DataRef.hpp"

namespace norvane {
namespace details {

/// The error of a holder for which memory was short, or that was given null.
struct BadSampleText {
    const char* method_name;
    const char* message;
};
template <class Holder>
inline constexpr BadSampleText BAD_SAMPLE_TEXT = {"", ""};

inline constexpr const char* NO_KEYED_STRING = "DDS::KeyedString failed to allocate memory";
inline constexpr const char* NO_KEYED_OCTETS = "DDS::KeyedOctets failed to allocate memory";
inline constexpr const char* NO_OCTETS = "DDS::Octets failed to allocate memory";
inline constexpr const char* NO_STRING = "DDS_String_alloc failed to allocate memory";

/// @tparam Holder  the class derived from this one: Sample<T> or WriteSample<T>.
/// @tparam I       its metadata: DDS_SampleInfo or DDS_WriteParams_t. @tparam Ref  its reference: SampleRef<T> or
///                 WriteSampleRef<T>.
///
/// Where nothing else is said, a constructor, an assignment and set_data throw OutOfResourcesException when memory is short, and
/// when given null (or a negative size) where the type has a string or octets: the two cannot be told apart. Nothing is changed
/// then, and nothing leaks. (It is std::bad_alloc when not even the message finds memory.) std::string and the application's own
/// types throw what their copy throws (std::bad_alloc).
template <class Holder, class T, class I, class Ref>
class SampleHolder : public HeldBy<T, I>::type {
    typedef typename HeldBy<T, I>::type Base;

public:
    /// `const char*` for the two plain strings, else `const T&`.
    typedef typename Base::Value Value;
    typedef I Info;

    /// Holds an empty value of the default sizes (a T() of a type of the application's own), and default metadata.
    SampleHolder() { throw_if_bad(); }
    /// Strings: holds an empty string with room for `size` characters. Octets: that many octets, all zero.
    explicit SampleHolder(typename Base::Size size) : Base(size) { throw_if_bad(); }
    /// Keyed types: holds an empty key, and an empty string or as many zero octets, as DDS_KeyedString and DDS_KeyedOctets do.
    template <class B = Base>
    SampleHolder(typename B::KeySize key_size, typename B::KeySize value_size) : Base(key_size, value_size) {
        throw_if_bad();
    }
    /// Copies the data; default metadata.
    SampleHolder(Value data) : SampleHolder(data, Info()) {}
    /// Copies data and metadata.
    SampleHolder(Value data, const Info& info) : Base(data, info) {
        if constexpr (Base::CHECKS_COPIES) {
            throw_if_bad();
        }
    }
    /// std::string: copies a text, null for an empty one.
    template <class B = Base>
    SampleHolder(typename B::DataInitType text) : Base(text) {
        this->initialize();
    }
    template <class B = Base>
    SampleHolder(typename B::DataInitType text, const Info& info) : Base(text, info) {
        this->initialize();
    }
    /// Copies what is referred to.
    SampleHolder(Ref ref) : SampleHolder(ref.data(), ref.info()) {}
    /// A copy of a holder that holds null holds null.
    SampleHolder(const SampleHolder& other) : Base(other) {
        if (Base::CHECKS_COPIES && !other.is_bad()) {
            throw_if_bad();
        }
    }

    SampleHolder& operator=(const SampleHolder& other) {
        if (this != &other) {
            SampleHolder(other).swap(*this);
        }
        return *this;
    }
    /// Copies what is referred to.
    Holder& operator=(Ref ref) {
        if constexpr (Base::CHECKS_ASSIGNMENT) {
            SampleHolder(ref).swap(*this);
        } else {
            this->assign(ref.data(), ref.info());
        }
        return static_cast<Holder&>(*this);
    }
    /// Copies the data, and keeps the metadata.
    Holder& operator=(Value data) {
        set_data(data);
        return static_cast<Holder&>(*this);
    }
    template <class B = Base>
    Holder& operator=(typename B::DataInitType text) {
        set_data(text);
        return static_cast<Holder&>(*this);
    }

    /// Copies the data, and keeps the metadata.
    void set_data(Value data) {
        SampleHolder fresh(data);
        this->swap_data(fresh);
    }
    template <class B = Base>
    void set_data(typename B::DataInitType text) {
        SampleHolder fresh(text);
        this->swap_data(fresh);
    }
    /// Copies the metadata, and keeps the data.
    void set_info(const Info& info) { this->_info = info; }

    Info& info() & noexcept { return this->_info; }
    const Info& info() const& noexcept { return this->_info; }
    /// Of a temporary object: a copy.
    Info info() && { return this->_info; }
    /// @return of a received sample: its identity, which a reply to it is bound to. Of one to be written: the `identity` of its
    ///         parameters, which a write fills in.
    DDS_SampleIdentity_t identity() const { return identity_of(this->_info); }

private:
    void throw_if_bad() const {
        if (this->is_bad()) {
            check_retcode(DDS_RETCODE_OUT_OF_RESOURCES, BAD_SAMPLE_TEXT<Holder>.method_name, DDS_LOG_BAD_PARAMETER_s,
                          BAD_SAMPLE_TEXT<Holder>.message, false);
        }
    }
};

}  // namespace details
}  // namespace norvane

#endif
