// SPDX-License-Identifier: Apache-2.0
// What the front-ends must know of a data type: its middleware types, its name, and how it is registered.
//
// Which type goes which way is decided here, in one place and from the type alone: the same in every translation unit.
// Thread rule: everything here may be used from any thread at once.
#ifndef NORVANE_DDS_TYPE_TRAITS_HPP
#define NORVANE_DDS_TYPE_TRAITS_HPP

#include <string>
#include <type_traits>

#include "norvane/SampleRef.hpp"
#include "norvane/dds/DataReader.hpp"
#include "norvane/dds/TypeSupport.hpp"
#include "norvane/dds/builtin_types.hpp"
#include "norvane/details/described_type.hpp"
#include "norvane/details/plain_type.hpp"
#include "norvane/details/topic_type.hpp"
#include "norvane/generated_types.hpp"

namespace norvane {

template <class T>
class LoanedSamples;

/// The middleware types that go with a data type of the application's own.
///
/// A request or reply type is one of these:
/// - a struct described with `BOOST_DESCRIBE_STRUCT(Type, (bases), (every member))`, or, if members are private, inside it with
///   `BOOST_DESCRIBE_CLASS`. A member is an integer of up to 64 bits, float, double, bool,
///   std::byte, an enumeration, std::string, a std::vector, std::array or C array of such, or another described struct; a member
///   (but no element) may be a std::optional of such. It is encoded as XCDR1, little-endian: an enumeration in 32 bits, an optional
///   member by the parameter header of its index. Enumerations that are described (BOOST_DESCRIBE_ENUM) take no other value than
///   their enumerators. A sample with another one, or with a NUL inside a std::string, is refused with BadParameterException, which
///   names the member; one received is dropped. A member may not be more aligned than its type is;
/// - a built-in type: std::string, DDS_KeyedString, DDS_Octets, DDS_KeyedOctets;
/// - a class generated from IDL (is_generated_type);
/// - any other trivially copyable struct with a default constructor. It stays in its process: an engine that goes further refuses
///   it by name.
template <class T>
struct dds_type_traits {
    typedef Sequence<T> Seq;
    typedef DDSDataReader DataReader;
    typedef SampleRef<const T> SampleIteratorValueType;
    typedef SampleRef<const T> ConstSampleIteratorValueType;
    typedef LoanedSamples<T> LoanedSamplesType;
};

/// Of the strings as the middleware holds them.
template <>
struct dds_type_traits<const char*> {
    typedef DDS_StringSeq Seq;
    typedef SampleRef<const char*> SampleIteratorValueType;
    typedef SampleRef<const char*> ConstSampleIteratorValueType;
    typedef DDSStringDataReader DataReader;
};

/// Of the built-in string type.
template <>
struct dds_type_traits<std::string> : dds_type_traits<const char*> {
    typedef LoanedSamples<std::string> LoanedSamplesType;
};

template <>
struct dds_type_traits<DDS_SampleInfo> {
    typedef DDS_SampleInfoSeq Seq;
};

namespace details {

template <class T>
inline constexpr bool IS_STRING = std::is_same<T, std::string>::value;

/// The type support of a built-in type; void where T is none.
template <class T>
struct BuiltinTypeSupport {
    typedef void type;
};
template <>
struct BuiltinTypeSupport<std::string> {
    typedef DDSStringTypeSupport type;
};
template <>
struct BuiltinTypeSupport<DDS_KeyedString> {
    typedef DDSKeyedStringTypeSupport type;
};
template <>
struct BuiltinTypeSupport<DDS_Octets> {
    typedef DDSOctetsTypeSupport type;
};
template <>
struct BuiltinTypeSupport<DDS_KeyedOctets> {
    typedef DDSKeyedOctetsTypeSupport type;
};

template <class T, const DDS_TypeOperations& TABLE>
DDSTypeSupport& cxx_type_support() {
    static CxxTypeSupport<T, TABLE> type;
    return type;
}

/// @return the type support of a type, which lives as long as the process.
template <class T>
DDSTypeSupport& type_support() {
    typedef typename BuiltinTypeSupport<T>::type Builtin;
    if constexpr (!std::is_void<Builtin>::value) {
        return Builtin::get_instance();
    } else if constexpr (IS_DESCRIBED<T>) {
        if constexpr (is_described_sample<T>()) {
            return cxx_type_support<T, DESCRIBED_OPERATIONS<T>>();
        } else {
            refuse_described<T>();
            return DDSStringTypeSupport::get_instance();  // never: it does not compile
        }
    } else if constexpr (is_generated_type<T>) {
        return cxx_type_support<T, GENERATED_OPERATIONS<T>>();
    } else if constexpr (IS_PLAIN_SAMPLE<T>) {
        return cxx_type_support<T, PLAIN_OPERATIONS<T>>();
    } else {
        static_assert(IS_PLAIN_SAMPLE<T>,
                      "norvane: describe the request or reply type with BOOST_DESCRIBE_STRUCT(Type, (), (member, ...)) beside its "
                      "definition, or "
                      "make it std::string, DDS_Octets, DDS_KeyedString, DDS_KeyedOctets, a class generated from IDL, or a "
                      "trivially copyable "
                      "struct with a default constructor.");
        return DDSStringTypeSupport::get_instance();  // never: it does not compile
    }
}

/// Whether a type support that the application gives must be of that very type. A plain struct's need only be of samples of the
/// same size and alignment: samples of other types hold memory that only their own type support can release.
template <class T>
inline constexpr bool IS_TAKEN_EXACTLY = !std::is_trivially_copyable<T>::value;

/// @param given  from the parameters; null means the type's own.
template <class T>
DDSTypeSupport& chosen_type_support(DDSTypeSupport* given) {
    return given != nullptr ? *given : type_support<T>();
}

/// Registers a type: the front-ends' EntityUntypedImpl::RegisterTypeFunc. Throws rather than returning null, so that the error
/// names the type.
/// @throws as register_type_support.
template <class T>
const char* register_sample_type(DDSTypeSupport* given, DDSDomainParticipant* participant) {
    return register_type_support(chosen_type_support<T>(given), *type_support<T>().get_type_operations(), IS_TAKEN_EXACTLY<T>,
                                 *participant);
}

/// @return octets of one sample in a loan; a string's is a `char*`.
template <class T>
constexpr int sample_size() noexcept {
    return IS_STRING<T> ? static_cast<int>(sizeof(char*)) : static_cast<int>(sizeof(T));
}

}  // namespace details
}  // namespace norvane

#endif
