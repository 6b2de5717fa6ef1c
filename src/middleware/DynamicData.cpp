// SPDX-License-Identifier: Apache-2.0
// Structures described at run time: their layout, and the operations that work from it.
//
// A null string member is the empty string: decoding makes none, and a filter reads it as empty.
// Thread rule: as DDS_TypeOperations says; a description never changes.
#include "norvane/dds/TypeSupport.hpp"

#include <cstring>
#include <exception>
#include <set>

#include "middleware/Log.hpp"
#include "middleware/Names.hpp"
#include "middleware/TypeOperations.hpp"
#include "middleware/Xcdr1Reader.hpp"
#include "middleware/Xcdr1Writer.hpp"
#include "norvane/dds/string.hpp"

namespace norvane {
namespace mw {
namespace {

struct Member {
    std::string name;
    DDS_DynamicMemberKind kind;
    std::size_t offset;
};

/// What is to be known of a kind of member.
struct KindTraits {
    std::size_t size;  // and alignment
    DDS_FieldKind field;
    const char* layout;
};

const KindTraits* traits_of(DDS_DynamicMemberKind kind) noexcept {
    static constexpr KindTraits TRAITS[] = {
        {sizeof(bool), DDS_FIELD_BOOLEAN, "bool"},          {sizeof(std::int32_t), DDS_FIELD_INTEGER, "i32"},
        {sizeof(std::uint32_t), DDS_FIELD_UNSIGNED, "u32"}, {sizeof(std::int64_t), DDS_FIELD_INTEGER, "i64"},
        {sizeof(std::uint64_t), DDS_FIELD_UNSIGNED, "u64"}, {sizeof(double), DDS_FIELD_FLOAT, "f64"},
        {sizeof(char*), DDS_FIELD_STRING, "string"}};
    return kind >= DDS_DYNAMIC_BOOLEAN && kind <= DDS_DYNAMIC_STRING ? &TRAITS[kind] : nullptr;
}

template <typename Value>
Value& at(void* sample, std::size_t offset) noexcept {
    return *reinterpret_cast<Value*>(static_cast<unsigned char*>(sample) + offset);
}
template <typename Value>
const Value& at(const void* sample, std::size_t offset) noexcept {
    return *reinterpret_cast<const Value*>(static_cast<const unsigned char*>(sample) + offset);
}

const std::vector<Member>& members_of(const DDS_TypeOperations& type) noexcept {
    return *static_cast<const std::vector<Member>*>(type.context);
}

void construct(const DDS_TypeOperations& type, void* place) { std::memset(place, 0, type.size); }

bool copy(const DDS_TypeOperations& type, void* destination, const void* source) {
    if (type.clear == nullptr) {
        std::memcpy(destination, source, type.size);
        return true;
    }
    for (const Member& member : members_of(type)) {
        if (member.kind != DDS_DYNAMIC_STRING) {
            std::memcpy(&at<char>(destination, member.offset), &at<char>(source, member.offset), traits_of(member.kind)->size);
        } else {
            const char* const string = at<char*>(source, member.offset);
            if (DDS_String_replace(&at<char*>(destination, member.offset), string) == nullptr && string != nullptr) {
                return false;
            }
        }
    }
    return true;
}

void destroy(const DDS_TypeOperations& type, void* sample) {
    for (const Member& member : members_of(type)) {
        if (member.kind == DDS_DYNAMIC_STRING) {
            DDS_String_free(at<char*>(sample, member.offset));
        }
    }
}

void clear(const DDS_TypeOperations& type, void* sample) {
    destroy(type, sample);
    construct(type, sample);
}

std::size_t write(const DDS_TypeOperations& type, const void* sample, Xcdr1Writer writer) {
    for (const Member& member : members_of(type)) {
        switch (member.kind) {
            case DDS_DYNAMIC_BOOLEAN:
                writer.put<std::uint8_t>(at<bool>(sample, member.offset) ? 1 : 0);
                break;
            case DDS_DYNAMIC_INT32:
            case DDS_DYNAMIC_UINT32:
                writer.put(at<std::uint32_t>(sample, member.offset));
                break;
            case DDS_DYNAMIC_INT64:
            case DDS_DYNAMIC_UINT64:
                writer.put(at<std::uint64_t>(sample, member.offset));
                break;
            case DDS_DYNAMIC_FLOAT64:
                writer.put_double(at<double>(sample, member.offset));
                break;
            case DDS_DYNAMIC_STRING:
                writer.put_string(at<char*>(sample, member.offset));
                break;
        }
    }
    return writer.size();
}

std::size_t encoded_size(const DDS_TypeOperations& type, const void* sample) { return write(type, sample, Xcdr1Writer()); }

std::size_t encode(const DDS_TypeOperations& type, const void* sample, std::uint8_t* buffer, std::size_t capacity) {
    return write(type, sample, Xcdr1Writer(buffer, capacity));
}

bool decode_string(Xcdr1Reader& reader, char*& string) noexcept {
    if (!reader.get_owned_string(string)) {
        return false;
    }
    if (*string == '\0') {
        DDS_String_free(string);
        string = nullptr;
    }
    return true;
}

bool decode(const DDS_TypeOperations& type, void* sample, const std::uint8_t* buffer, std::size_t length) {
    Xcdr1Reader reader(buffer, length);
    for (const Member& member : members_of(type)) {
        bool done = false;
        switch (member.kind) {
            case DDS_DYNAMIC_BOOLEAN:
                done = reader.get_boolean(at<bool>(sample, member.offset));
                break;
            case DDS_DYNAMIC_INT32:
            case DDS_DYNAMIC_UINT32:
                done = reader.get(at<std::uint32_t>(sample, member.offset));
                break;
            case DDS_DYNAMIC_INT64:
            case DDS_DYNAMIC_UINT64:
                done = reader.get(at<std::uint64_t>(sample, member.offset));
                break;
            case DDS_DYNAMIC_FLOAT64:
                done = reader.get_double(at<double>(sample, member.offset));
                break;
            case DDS_DYNAMIC_STRING:
                done = decode_string(reader, at<char*>(sample, member.offset));
                break;
        }
        if (!done) {
            return false;
        }
    }
    return reader.is_at_end();
}

int find_field(const DDS_TypeOperations& type, const char* path, DDS_FieldKind* kind) {
    int number = 0;
    for (const Member& member : members_of(type)) {
        if (member.name == path) {
            *kind = traits_of(member.kind)->field;
            return number;
        }
        ++number;
    }
    return -1;
}

bool read_field(const DDS_TypeOperations& type, const void* sample, int field, DDS_FieldValue* value) {
    const Member& member = members_of(type)[static_cast<std::size_t>(field)];
    value->kind = traits_of(member.kind)->field;
    switch (member.kind) {
        case DDS_DYNAMIC_BOOLEAN:
            value->boolean = at<bool>(sample, member.offset);
            break;
        case DDS_DYNAMIC_INT32:
            value->integer = at<std::int32_t>(sample, member.offset);
            break;
        case DDS_DYNAMIC_UINT32:
            value->unsigned_integer = at<std::uint32_t>(sample, member.offset);
            break;
        case DDS_DYNAMIC_INT64:
            value->integer = at<std::int64_t>(sample, member.offset);
            break;
        case DDS_DYNAMIC_UINT64:
            value->unsigned_integer = at<std::uint64_t>(sample, member.offset);
            break;
        case DDS_DYNAMIC_FLOAT64:
            value->floating = at<double>(sample, member.offset);
            break;
        case DDS_DYNAMIC_STRING: {
            const char* const string = at<char*>(sample, member.offset);
            value->data = string != nullptr ? string : "";
            value->length = string != nullptr ? std::strlen(string) : 0;
            break;
        }
    }
    return true;
}
/// @return what is wrong with a description; empty when nothing is.
std::string fault_of(const std::string& type_name, const std::vector<DDS_DynamicMember>& members) {
    if (type_name.empty() || type_name.size() > MAX_NAME_LENGTH || type_name.find('\0') != std::string::npos) {
        return "a type name has 1 to 255 characters";
    }
    if (members.empty()) {
        return "type \"" + type_name + "\" has no members";
    }
    std::set<std::string> names;
    for (const DDS_DynamicMember& member : members) {
        if (member.name.empty() || member.name.find('\0') != std::string::npos) {
            return "type \"" + type_name + "\" has a member without a name";
        }
        if (!names.insert(member.name).second) {
            return "type \"" + type_name + "\" has two members \"" + member.name + "\"";
        }
        if (traits_of(member.kind) == nullptr) {
            return "member \"" + member.name + "\" of type \"" + type_name + "\" is of an unknown kind";
        }
    }
    return std::string();
}

/// Fills in layout and table; a padded record such as a C compiler would make.
void lay_out(const std::vector<DDS_DynamicMember>& described, std::vector<Member>& members, DDS_TypeOperations& type) {
    bool holds_strings = false;
    type.layout_hash = layout_hash("");
    type.alignment = 1;
    for (const DDS_DynamicMember& member : described) {
        const KindTraits& traits = *traits_of(member.kind);
        const std::size_t offset = (type.size + traits.size - 1) / traits.size * traits.size;
        members.push_back({member.name, member.kind, offset});
        type.size = offset + traits.size;
        type.alignment = traits.size > type.alignment ? traits.size : type.alignment;
        const std::string layout = member.name + ":" + traits.layout + " ";
        type.layout_hash = layout_hash(layout.c_str(), type.layout_hash);
        holds_strings = holds_strings || member.kind == DDS_DYNAMIC_STRING;
    }
    type.size = (type.size + type.alignment - 1) / type.alignment * type.alignment;
    type.context = &members;
    type.construct = construct;
    type.copy = copy;
    type.clear = holds_strings ? clear : nullptr;
    type.destroy = destroy;
    type.encoded_size = encoded_size;
    type.encode = encode;
    type.decode = decode;
    type.find_field = find_field;
    type.read_field = read_field;
}

}  // namespace
}  // namespace mw
}  // namespace norvane

struct DDSDynamicDataTypeSupport::Description {
    std::string name;
    std::vector<norvane::mw::Member> members;
    DDS_TypeOperations operations{};
};

DDSDynamicDataTypeSupport::DDSDynamicDataTypeSupport(const std::string& type_name, const std::vector<DDS_DynamicMember>& members) {
    try {
        const std::string fault = norvane::mw::fault_of(type_name, members);
        if (!fault.empty()) {
            norvane::mw::log_error("DDSDynamicDataTypeSupport", fault);
            return;
        }
        const auto description = std::make_shared<Description>();
        description->name = type_name;
        norvane::mw::lay_out(members, description->members, description->operations);
        description->operations.name = description->name.c_str();
        _description = description;
    } catch (const std::exception&) {
        norvane::mw::log_error("DDSDynamicDataTypeSupport", "no memory for the description of the type");
    }
}

DDSDynamicDataTypeSupport::~DDSDynamicDataTypeSupport() = default;

const char* DDSDynamicDataTypeSupport::get_type_name() const { return _description != nullptr ? _description->name.c_str() : ""; }

std::shared_ptr<const DDS_TypeOperations> DDSDynamicDataTypeSupport::get_type_operations() const {
    // An unusable description gives an unusable table, which registration refuses by what it lacks.
    static const DDS_TypeOperations NOTHING = {};
    return {_description, _description != nullptr ? &_description->operations : &NOTHING};
}

bool DDSDynamicDataTypeSupport::is_valid() const noexcept { return _description != nullptr; }

std::ptrdiff_t DDSDynamicDataTypeSupport::member_offset(const std::string& member_name) const noexcept {
    if (_description != nullptr) {
        for (const norvane::mw::Member& member : _description->members) {
            if (member.name == member_name) {
                return static_cast<std::ptrdiff_t>(member.offset);
            }
        }
    }
    return -1;
}
