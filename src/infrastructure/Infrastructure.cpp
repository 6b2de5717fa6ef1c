// SPDX-License-Identifier: Apache-2.0
// Value semantics of the built-in records, the identities of received samples, and the container of loaned strings.
//
// A copy that runs out of memory leaves a null pointer but copies the length: `is_allocated` is then false.
#include "norvane/dds/builtin_types.hpp"

#include <string>
#include <utility>

#include "norvane/LoanedSamples.hpp"
#include "norvane/dds/TypeSupport.hpp"
#include "norvane/details/sample_identity.hpp"

namespace {

unsigned char* copy_of(const unsigned char* octets, int length) {
    return octets != nullptr ? DDS_OctetBuffer_dup(octets, length) : nullptr;
}

void release(unsigned char*& octets) {
    if (octets != nullptr) {
        DDS_OctetBuffer_free(octets);
        octets = nullptr;
    }
}

}  // namespace

DDS_Octets::DDS_Octets() : length(0), value(nullptr) {}

DDS_Octets::DDS_Octets(int size) : length(size < 0 ? 0 : size), value(size < 0 ? nullptr : DDS_OctetBuffer_alloc(size)) {}

DDS_Octets::DDS_Octets(const DDS_Octets& other) : length(other.length), value(copy_of(other.value, other.length)) {}

DDS_Octets& DDS_Octets::operator=(const DDS_Octets& other) {
    if (this != &other) {
        release(value);
        value = copy_of(other.value, other.length);
        length = other.length;
    }
    return *this;
}

DDS_Octets::~DDS_Octets() {
    if (value != nullptr) {
        DDS_OctetBuffer_free(value);
    }
}

void DDS_Octets::swap(DDS_Octets& other) noexcept {
    std::swap(length, other.length);
    std::swap(value, other.value);
}

unsigned int DDS_Octets::is_allocated() const noexcept { return value != nullptr ? 1 : 0; }

DDS_KeyedString::DDS_KeyedString() : key(nullptr), value(nullptr) {}

DDS_KeyedString::DDS_KeyedString(int key_size, int value_size)
    : key(key_size < 0 ? nullptr : DDS_String_alloc(static_cast<std::size_t>(key_size))),
      value(value_size < 0 ? nullptr : DDS_String_alloc(static_cast<std::size_t>(value_size))) {}

DDS_KeyedString::DDS_KeyedString(const DDS_KeyedString& other) : key(nullptr), value(nullptr) {
    DDS_String_replace(&key, other.key);
    DDS_String_replace(&value, other.value);
}

DDS_KeyedString& DDS_KeyedString::operator=(const DDS_KeyedString& other) {
    if (this != &other) {
        DDS_String_replace(&key, other.key);
        DDS_String_replace(&value, other.value);
    }
    return *this;
}

DDS_KeyedString::~DDS_KeyedString() {
    if (key != nullptr) {
        DDS_String_free(key);
    }
    if (value != nullptr) {
        DDS_String_free(value);
    }
}

void DDS_KeyedString::swap(DDS_KeyedString& other) noexcept { DDS::swap(*this, other); }

unsigned int DDS_KeyedString::is_allocated() const noexcept { return key != nullptr && value != nullptr ? 1 : 0; }

DDS_KeyedOctets::DDS_KeyedOctets() : key(nullptr), length(0), value(nullptr) {}

DDS_KeyedOctets::DDS_KeyedOctets(int key_size, int size)
    : key(key_size < 0 ? nullptr : DDS_String_alloc(static_cast<std::size_t>(key_size))),
      length(size < 0 ? 0 : size),
      value(size < 0 ? nullptr : DDS_OctetBuffer_alloc(size)) {}

DDS_KeyedOctets::DDS_KeyedOctets(const DDS_KeyedOctets& other) : key(nullptr), length(other.length), value(nullptr) {
    DDS_String_replace(&key, other.key);
    value = copy_of(other.value, other.length);
}

DDS_KeyedOctets& DDS_KeyedOctets::operator=(const DDS_KeyedOctets& other) {
    if (this != &other) {
        DDS_String_replace(&key, other.key);
        release(value);
        value = copy_of(other.value, other.length);
        length = other.length;
    }
    return *this;
}

DDS_KeyedOctets::~DDS_KeyedOctets() {
    if (key != nullptr) {
        DDS_String_free(key);
    }
    if (value != nullptr) {
        DDS_OctetBuffer_free(value);
    }
}

void DDS_KeyedOctets::swap(DDS_KeyedOctets& other) noexcept { DDS::swap(*this, other); }

unsigned int DDS_KeyedOctets::is_allocated() const noexcept { return key != nullptr && value != nullptr ? 1 : 0; }

namespace DDS {

void swap(DDS_KeyedString& ks1, DDS_KeyedString& ks2) noexcept {
    std::swap(ks1.key, ks2.key);
    std::swap(ks1.value, ks2.value);
}

void swap(DDS_KeyedOctets& ko1, DDS_KeyedOctets& ko2) noexcept {
    std::swap(ko1.key, ko2.key);
    std::swap(ko1.length, ko2.length);
    std::swap(ko1.value, ko2.value);
}

}  // namespace DDS

namespace norvane {
namespace details {

DDS_SampleIdentity_t get_sample_identity_from_sample_info(const DDS_SampleInfo& info) {
    DDS_SampleIdentity_t identity;
    DDS_GUID_copy(&identity.writer_guid, &info.original_publication_virtual_guid);
    identity.sequence_number = info.original_publication_virtual_sequence_number;
    return identity;
}

DDS_SampleIdentity_t get_related_sample_identity_from_sample_info(const DDS_SampleInfo& info) {
    DDS_SampleIdentity_t identity;
    DDS_GUID_copy(&identity.writer_guid, &info.related_original_publication_virtual_guid);
    identity.sequence_number = info.related_original_publication_virtual_sequence_number;
    return identity;
}

DDSDynamicDataTypeSupport* dynamic_data_type_support_cast(DDSTypeSupport* type_support) {
    return dynamic_cast<DDSDynamicDataTypeSupport*>(type_support);
}

template LoanedSamples<std::string> create_loaned_samples<std::string>(void**, int, DDS_SampleInfoSeq&, DDSStringDataReader*);

}  // namespace details

template class LoanedSamples<std::string>;

}  // namespace norvane
