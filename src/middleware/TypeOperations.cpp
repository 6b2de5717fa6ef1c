// SPDX-License-Identifier: Apache-2.0
// The check of a table of type operations, and the part of a type support that all of them share.
#include "middleware/TypeOperations.hpp"

#include <cstring>
#include <exception>

#include "middleware/Log.hpp"
#include "middleware/Names.hpp"
#include "norvane/dds/DomainParticipant.hpp"

namespace norvane {
namespace mw {
namespace {

const char* fault_of(const DDS_TypeOperations& type) noexcept {
    const int encoding = (type.encoded_size != nullptr) + (type.encode != nullptr) + (type.decode != nullptr);
    const int fields = (type.find_field != nullptr) + (type.read_field != nullptr);
    if (type.name == nullptr || *type.name == '\0') {
        return "has no name";
    }
    if (std::strlen(type.name) > MAX_NAME_LENGTH) {
        return "has a name of more than 255 characters";
    }
    if (type.size == 0) {
        return "has samples of size 0";
    }
    if (type.alignment == 0 || (type.alignment & (type.alignment - 1)) != 0) {
        return "has an alignment that is not a power of two";
    }
    if (type.construct == nullptr || type.copy == nullptr || type.destroy == nullptr) {
        return "lacks one of the operations construct, copy and destroy";
    }
    if (encoding != 0 && encoding != 3) {
        return "has only some of the operations encoded_size, encode and decode: all three or none";
    }
    if (fields == 1) {
        return "has only one of the operations find_field and read_field: both or none";
    }
    return nullptr;
}

}  // namespace

bool is_usable(const DDS_TypeOperations& type, std::string& what) noexcept {
    const char* const fault = fault_of(type);
    if (fault == nullptr) {
        return true;
    }
    try {
        const char* const name = type.name != nullptr ? type.name : "";
        what = "type \"" + std::string(name, ::strnlen(name, MAX_NAME_LENGTH)) + "\" " + fault;
    } catch (const std::exception&) {
        what.clear();
    }
    return false;
}

}  // namespace mw
}  // namespace norvane

DDSTypeSupport::~DDSTypeSupport() = default;

DDS_ReturnCode_t DDSTypeSupport::register_type(DDSDomainParticipant* participant, const char* type_name) const {
    if (participant == nullptr) {
        norvane::mw::log_error("DDSTypeSupport::register_type", "participant is null");
        return DDS_RETCODE_BAD_PARAMETER;
    }
    try {
        return participant->register_type(type_name != nullptr ? type_name : get_type_name(), get_type_operations());
    } catch (const std::exception& exception) {
        norvane::mw::log_error("DDSTypeSupport::register_type",
                               [&] { return std::string("the type support threw: ") + exception.what(); });
        return DDS_RETCODE_ERROR;
    }
}
