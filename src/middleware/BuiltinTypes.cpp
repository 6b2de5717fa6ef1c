// SPDX-License-Identifier: Apache-2.0
// The four built-in types: string, keyed string, octets, keyed octets. Their tables are constants, so handles to them own nothing.
//
// A null string is a legal state: it is copied as null, encoded as the empty string, and not there for a filter.
// Octets whose length and pointer disagree are rejected: neither copied nor encoded.
// Thread rule: as DDS_TypeOperations says.
#include "norvane/dds/builtin_types.hpp"

#include <cstring>
#include <new>
#include <stdexcept>
#include <string>

#include "middleware/TypeOperations.hpp"
#include "middleware/Xcdr1Reader.hpp"
#include "middleware/Xcdr1Writer.hpp"

namespace norvane {
namespace mw {
namespace {

bool decode_octets(Xcdr1Reader& reader, unsigned char*& value, int& length) noexcept {
    const std::uint8_t* octets;
    std::size_t count;
    if (!reader.get_sequence(octets, count) || count > INT32_MAX) {
        return false;
    }
    unsigned char* const fresh = DDS_OctetBuffer_dup(octets, static_cast<int>(count));
    if (fresh == nullptr) {
        return false;
    }
    DDS_OctetBuffer_free(value);
    value = fresh;
    length = static_cast<int>(count);
    return true;
}

bool are_octets(const unsigned char* value, int length) noexcept { return length >= 0 && (value != nullptr || length == 0); }

void encode_octets(Xcdr1Writer& writer, const unsigned char* value, int length) noexcept {
    if (are_octets(value, length)) {
        writer.put_sequence(value, static_cast<std::size_t>(length));
    } else {
        writer.spoil();
    }
}

void require_octets(const unsigned char* value, int length) {
    if (!are_octets(value, length)) {
        throw std::invalid_argument("octets of length " + std::to_string(length) + (value != nullptr ? "" : " without a value"));
    }
}

bool read_string(const char* string, DDS_FieldValue& value) noexcept {
    if (string == nullptr) {
        return false;
    }
    value.kind = DDS_FIELD_STRING;
    value.data = string;
    value.length = std::strlen(string);
    return true;
}

bool read_octets(const unsigned char* octets, int length, DDS_FieldValue& value) noexcept {
    if (octets == nullptr || length < 0) {
        return false;
    }
    value.kind = DDS_FIELD_OCTETS;
    value.data = octets;
    value.length = static_cast<std::size_t>(length);
    return true;
}

bool read_length(int length, DDS_FieldValue& value) noexcept {
    value.kind = DDS_FIELD_INTEGER;
    value.integer = length;
    return true;
}

struct Field {
    const char* name;
    DDS_FieldKind kind;
};

// Each record below says of one type what its table needs: layout text, fields, and how its sample is handled.

struct StringType {
    typedef char* Sample;
    static constexpr const char* NAME = "DDS::String";
    static constexpr const char* LAYOUT = "string";
    static constexpr Field FIELDS[] = {{"value", DDS_FIELD_STRING}};

    static bool copy(Sample& destination, const Sample& source) noexcept {
        DDS_String_replace(&destination, source);
        return source == nullptr || destination != nullptr;
    }
    static void destroy(Sample& sample) noexcept { DDS_String_free(sample); }
    static void encode(const Sample& sample, Xcdr1Writer& writer) noexcept { writer.put_string(sample); }
    static bool decode(Sample& sample, Xcdr1Reader& reader) noexcept { return reader.get_owned_string(sample); }
    static bool read(const Sample& sample, int, DDS_FieldValue& value) noexcept { return read_string(sample, value); }
};

struct KeyedStringType {
    typedef DDS_KeyedString Sample;
    static constexpr const char* NAME = "DDS::KeyedString";
    static constexpr const char* LAYOUT = "key:string value:string";
    static constexpr Field FIELDS[] = {{"key", DDS_FIELD_STRING}, {"value", DDS_FIELD_STRING}};

    static bool copy(Sample& destination, const Sample& source) {
        destination = source;
        return (source.key == nullptr || destination.key != nullptr) && (source.value == nullptr || destination.value != nullptr);
    }
    static void destroy(Sample& sample) noexcept { sample.~Sample(); }
    static void encode(const Sample& sample, Xcdr1Writer& writer) noexcept {
        writer.put_string(sample.key);
        writer.put_string(sample.value);
    }
    static bool decode(Sample& sample, Xcdr1Reader& reader) noexcept {
        return reader.get_owned_string(sample.key) && reader.get_owned_string(sample.value);
    }
    static bool read(const Sample& sample, int field, DDS_FieldValue& value) noexcept {
        return read_string(field == 0 ? sample.key : sample.value, value);
    }
};

struct OctetsType {
    typedef DDS_Octets Sample;
    static constexpr const char* NAME = "DDS::Octets";
    static constexpr const char* LAYOUT = "value:octets";
    static constexpr Field FIELDS[] = {{"length", DDS_FIELD_INTEGER}, {"value", DDS_FIELD_OCTETS}};

    static bool copy(Sample& destination, const Sample& source) {
        require_octets(source.value, source.length);
        destination = source;
        return source.value == nullptr || destination.value != nullptr;
    }
    static void destroy(Sample& sample) noexcept { sample.~Sample(); }
    static void encode(const Sample& sample, Xcdr1Writer& writer) noexcept { encode_octets(writer, sample.value, sample.length); }
    static bool decode(Sample& sample, Xcdr1Reader& reader) noexcept { return decode_octets(reader, sample.value, sample.length); }
    static bool read(const Sample& sample, int field, DDS_FieldValue& value) noexcept {
        return field == 0 ? read_length(sample.length, value) : read_octets(sample.value, sample.length, value);
    }
};

struct KeyedOctetsType {
    typedef DDS_KeyedOctets Sample;
    static constexpr const char* NAME = "DDS::KeyedOctets";
    static constexpr const char* LAYOUT = "key:string value:octets";
    static constexpr Field FIELDS[] = {{"key", DDS_FIELD_STRING}, {"length", DDS_FIELD_INTEGER}, {"value", DDS_FIELD_OCTETS}};

    static bool copy(Sample& destination, const Sample& source) {
        require_octets(source.value, source.length);
        destination = source;
        return (source.key == nullptr || destination.key != nullptr) && (source.value == nullptr || destination.value != nullptr);
    }
    static void destroy(Sample& sample) noexcept { sample.~Sample(); }
    static void encode(const Sample& sample, Xcdr1Writer& writer) noexcept {
        writer.put_string(sample.key);
        encode_octets(writer, sample.value, sample.length);
    }
    static bool decode(Sample& sample, Xcdr1Reader& reader) noexcept {
        return reader.get_owned_string(sample.key) && decode_octets(reader, sample.value, sample.length);
    }
    static bool read(const Sample& sample, int field, DDS_FieldValue& value) noexcept {
        return field == 0   ? read_string(sample.key, value)
               : field == 1 ? read_length(sample.length, value)
                            : read_octets(sample.value, sample.length, value);
    }
};

/// The table of operations of one of the types above.
template <typename Type>
struct Table {
    typedef typename Type::Sample Sample;

    static void construct(const DDS_TypeOperations&, void* place) { new (place) Sample(); }
    static bool copy(const DDS_TypeOperations&, void* destination, const void* source) {
        return Type::copy(*static_cast<Sample*>(destination), *static_cast<const Sample*>(source));
    }
    static void clear(const DDS_TypeOperations&, void* sample) {
        Type::destroy(*static_cast<Sample*>(sample));
        new (sample) Sample();
    }
    static void destroy(const DDS_TypeOperations&, void* sample) { Type::destroy(*static_cast<Sample*>(sample)); }
    static std::size_t encoded_size(const DDS_TypeOperations&, const void* sample) {
        Xcdr1Writer writer;
        Type::encode(*static_cast<const Sample*>(sample), writer);
        return writer.size();
    }
    static std::size_t encode(const DDS_TypeOperations&, const void* sample, std::uint8_t* buffer, std::size_t capacity) {
        Xcdr1Writer writer(buffer, capacity);
        Type::encode(*static_cast<const Sample*>(sample), writer);
        return writer.size();
    }
    static bool decode(const DDS_TypeOperations&, void* sample, const std::uint8_t* buffer, std::size_t length) {
        Xcdr1Reader reader(buffer, length);
        return Type::decode(*static_cast<Sample*>(sample), reader) && reader.is_at_end();
    }
    static int find_field(const DDS_TypeOperations&, const char* path, DDS_FieldKind* kind) {
        int number = 0;
        for (const Field& field : Type::FIELDS) {
            if (std::strcmp(field.name, path) == 0) {
                *kind = field.kind;
                return number;
            }
            ++number;
        }
        return -1;
    }
    static bool read_field(const DDS_TypeOperations&, const void* sample, int field, DDS_FieldValue* value) {
        return Type::read(*static_cast<const Sample*>(sample), field, *value);
    }

    static constexpr DDS_TypeOperations OPERATIONS = {Type::NAME,     layout_hash(Type::LAYOUT),
                                                      sizeof(Sample), alignof(Sample),
                                                      nullptr,        construct,
                                                      copy,           clear,
                                                      destroy,        encoded_size,
                                                      encode,         decode,
                                                      find_field,     read_field};

    /// @return the constant table, with static storage.
    static std::shared_ptr<const DDS_TypeOperations> handle() noexcept { return {std::shared_ptr<void>(), &OPERATIONS}; }
};

}  // namespace
}  // namespace mw
}  // namespace norvane

using norvane::mw::KeyedOctetsType;
using norvane::mw::KeyedStringType;
using norvane::mw::OctetsType;
using norvane::mw::StringType;
using norvane::mw::Table;

DDSStringTypeSupport& DDSStringTypeSupport::get_instance() {
    static DDSStringTypeSupport instance;
    return instance;
}
const char* DDSStringTypeSupport::get_type_name() const { return StringType::NAME; }
std::shared_ptr<const DDS_TypeOperations> DDSStringTypeSupport::get_type_operations() const { return Table<StringType>::handle(); }

DDSKeyedStringTypeSupport& DDSKeyedStringTypeSupport::get_instance() {
    static DDSKeyedStringTypeSupport instance;
    return instance;
}
const char* DDSKeyedStringTypeSupport::get_type_name() const { return KeyedStringType::NAME; }
std::shared_ptr<const DDS_TypeOperations> DDSKeyedStringTypeSupport::get_type_operations() const {
    return Table<KeyedStringType>::handle();
}

DDSOctetsTypeSupport& DDSOctetsTypeSupport::get_instance() {
    static DDSOctetsTypeSupport instance;
    return instance;
}
const char* DDSOctetsTypeSupport::get_type_name() const { return OctetsType::NAME; }
std::shared_ptr<const DDS_TypeOperations> DDSOctetsTypeSupport::get_type_operations() const { return Table<OctetsType>::handle(); }

DDSKeyedOctetsTypeSupport& DDSKeyedOctetsTypeSupport::get_instance() {
    static DDSKeyedOctetsTypeSupport instance;
    return instance;
}
const char* DDSKeyedOctetsTypeSupport::get_type_name() const { return KeyedOctetsType::NAME; }
std::shared_ptr<const DDS_TypeOperations> DDSKeyedOctetsTypeSupport::get_type_operations() const {
    return Table<KeyedOctetsType>::handle();
}
