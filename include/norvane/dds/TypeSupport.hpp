// SPDX-License-Identifier: Apache-2.0
// What the middleware must be able to do with a data type, and the handles through which types are registered.
//
// A type is a table of operations. A type support is a handle to one; registering it with a participant gives it a name.
// Thread rule: tables are immutable and their operations are called from any thread, for distinct samples at once.
#ifndef NORVANE_DDS_TYPESUPPORT_HPP
#define NORVANE_DDS_TYPESUPPORT_HPP

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "norvane/dds/types.hpp"
#include "norvane/export.hpp"

class DDSDomainParticipant;

/// Kinds of field that a content filter can compare.
enum DDS_FieldKind {
    DDS_FIELD_NONE,      ///< No such field.
    DDS_FIELD_INTEGER,   ///< Signed 64 bits hold it.
    DDS_FIELD_UNSIGNED,  ///< Unsigned 64 bits hold it.
    DDS_FIELD_FLOAT,     ///< A double holds it.
    DDS_FIELD_BOOLEAN,
    DDS_FIELD_STRING,  ///< `data` and `length`, not necessarily terminated.
    DDS_FIELD_OCTETS   ///< `data` and `length`.
};

/// Value of one field of one sample. Borrows from the sample.
struct DDS_FieldValue {
    DDS_FieldKind kind = DDS_FIELD_NONE;
    std::int64_t integer = 0;
    std::uint64_t unsigned_integer = 0;
    double floating = 0;
    bool boolean = false;
    const void* data = nullptr;
    std::size_t length = 0;
};

/// Table of the operations of one data type.
///
/// The table, `name` and `context` outlive every sample. Operations may throw std::exception; the middleware turns that into
/// a return code. Those marked optional may be null.
struct DDS_TypeOperations {
    const char* name;           ///< The type's own name; what it is registered under unless another is given.
    std::uint64_t layout_hash;  ///< Differs when the layout differs. Types of one name and two hashes are incompatible.
    std::size_t size;           ///< Octets of one sample in memory.
    std::size_t alignment;      ///< Power of two.
    const void* context;        ///< For the operations alone; may be null.

    /// Makes an empty sample in `place`.
    void (*construct)(const DDS_TypeOperations& type, void* place);
    /// Makes `destination`, a constructed sample, a deep copy of `source`.
    /// @return false when memory is short.
    bool (*copy)(const DDS_TypeOperations& type, void* destination, const void* source);
    /// Optional: releases the heap memory that a sample holds and leaves it constructed and empty. Must not throw.
    void (*clear)(const DDS_TypeOperations& type, void* sample);
    /// Ends the life of a sample. Must not throw.
    void (*destroy)(const DDS_TypeOperations& type, void* sample);

    /// Optional, all three or none: XCDR1 little-endian with a 4-octet encapsulation header. A type without them stays
    /// inside its process, and an engine that goes further refuses it by name.
    std::size_t (*encoded_size)(const DDS_TypeOperations& type, const void* sample);
    /// @return octets written; 0 when they do not fit or the sample cannot be encoded.
    std::size_t (*encode)(const DDS_TypeOperations& type, const void* sample, std::uint8_t* buffer, std::size_t capacity);
    /// Decodes into a constructed sample. The input is untrusted: every bound is checked.
    /// @return false when it is not an encoding of this type, or memory is short.
    bool (*decode)(const DDS_TypeOperations& type, void* sample, const std::uint8_t* buffer, std::size_t length);

    /// Optional, both or none: fields for content filters.
    /// @param path  member names joined by ".", for example "pose.x".
    /// @return a number from 0 that names the field for `read_field`, with `*kind` set; -1 when there is none.
    int (*find_field)(const DDS_TypeOperations& type, const char* path, DDS_FieldKind* kind);
    /// Reads a field that `find_field` found.
    /// @return false when this sample does not hold it (an absent optional, a null string).
    bool (*read_field)(const DDS_TypeOperations& type, const void* sample, int field, DDS_FieldValue* value);

    /// Optional: null when every value can be encoded. Tells of a sample whether it cannot be, and why. Does not allocate or throw.
    /// @param reason    when it cannot: gets the first value that cannot be encoded, and what is wrong with it, for example
    ///                  "Order.lines[3].name: a NUL inside a string". Cut off to fit, and terminated.
    /// @param capacity  of `reason`; 0 for none.
    /// @return whether the sample cannot be encoded.
    bool (*unencodable)(const DDS_TypeOperations& type, const void* sample, char* reason, std::size_t capacity) = nullptr;
};

/// Handle to a data type, to be registered with a participant.
///
/// The handle belongs to the code that made it; a participant keeps the table it was registered with, not the handle.
class NORVANE_EXPORT DDSTypeSupport {
public:
    virtual ~DDSTypeSupport();

    /// @return the type's own name; never null.
    virtual const char* get_type_name() const = 0;
    /// @return the type's operations, shared for as long as samples live; never null.
    virtual std::shared_ptr<const DDS_TypeOperations> get_type_operations() const = 0;

    /// Registers the type with a participant.
    /// @param participant  not null; borrowed for the call.
    /// @param type_name    name to register under; null means the type's own.
    /// @return DDS_RETCODE_OK, also when the same type has that name already; DDS_RETCODE_BAD_PARAMETER for a null participant
    ///         or an empty or over-long name; DDS_RETCODE_PRECONDITION_NOT_MET when another type has that name.
    DDS_ReturnCode_t register_type(DDSDomainParticipant* participant, const char* type_name = nullptr) const;

protected:
    DDSTypeSupport() = default;
    DDSTypeSupport(const DDSTypeSupport&) = default;
    DDSTypeSupport& operator=(const DDSTypeSupport&) = default;
};

/// The built-in string type. A sample is a `char*`: write data and each entry of a loan point at one.
class NORVANE_EXPORT DDSStringTypeSupport : public DDSTypeSupport {
public:
    static DDSStringTypeSupport& get_instance();
    const char* get_type_name() const override;
    std::shared_ptr<const DDS_TypeOperations> get_type_operations() const override;
};

/// The built-in keyed string type. A sample is a `DDS_KeyedString`.
class NORVANE_EXPORT DDSKeyedStringTypeSupport : public DDSTypeSupport {
public:
    static DDSKeyedStringTypeSupport& get_instance();
    const char* get_type_name() const override;
    std::shared_ptr<const DDS_TypeOperations> get_type_operations() const override;
};

/// The built-in octets type. A sample is a `DDS_Octets`.
class NORVANE_EXPORT DDSOctetsTypeSupport : public DDSTypeSupport {
public:
    static DDSOctetsTypeSupport& get_instance();
    const char* get_type_name() const override;
    std::shared_ptr<const DDS_TypeOperations> get_type_operations() const override;
};

/// The built-in keyed octets type. A sample is a `DDS_KeyedOctets`.
class NORVANE_EXPORT DDSKeyedOctetsTypeSupport : public DDSTypeSupport {
public:
    static DDSKeyedOctetsTypeSupport& get_instance();
    const char* get_type_name() const override;
    std::shared_ptr<const DDS_TypeOperations> get_type_operations() const override;
};

/// Kinds of member of a type that is described at run time.
enum DDS_DynamicMemberKind {
    DDS_DYNAMIC_BOOLEAN,  ///< `bool`
    DDS_DYNAMIC_INT32,    ///< `std::int32_t`
    DDS_DYNAMIC_UINT32,   ///< `std::uint32_t`
    DDS_DYNAMIC_INT64,    ///< `std::int64_t`
    DDS_DYNAMIC_UINT64,   ///< `std::uint64_t`
    DDS_DYNAMIC_FLOAT64,  ///< `double`
    DDS_DYNAMIC_STRING    ///< `char*`, owned by the sample, null when empty
};

/// One member of a type that is described at run time.
struct DDS_DynamicMember {
    std::string name;
    DDS_DynamicMemberKind kind;
};

/// A structure described at run time. A sample is a record with the members one after another, each aligned as in C.
class NORVANE_EXPORT DDSDynamicDataTypeSupport : public DDSTypeSupport {
public:
    /// @param type_name  not empty.
    /// @param members    at least one; names not empty, each used once.
    /// A description that breaks this gives a type support whose `is_valid()` is false, and which no participant accepts.
    DDSDynamicDataTypeSupport(const std::string& type_name, const std::vector<DDS_DynamicMember>& members);
    ~DDSDynamicDataTypeSupport() override;

    const char* get_type_name() const override;
    std::shared_ptr<const DDS_TypeOperations> get_type_operations() const override;

    /// @return whether the description is usable; when not, the log says why.
    bool is_valid() const noexcept;
    /// @return the octet at which the member starts in a sample, or -1 when there is no such member.
    std::ptrdiff_t member_offset(const std::string& member_name) const noexcept;

private:
    struct Description;
    std::shared_ptr<const Description> _description;
};

#endif
