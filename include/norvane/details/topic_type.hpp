// SPDX-License-Identifier: Apache-2.0
// Types and topics must agree: a sample of one type that is read as another is memory that means nothing.
#ifndef NORVANE_DETAILS_TOPIC_TYPE_HPP
#define NORVANE_DETAILS_TOPIC_TYPE_HPP

#include <cstdint>
#include <memory>
#include <string>

#include "norvane/Exception.hpp"
#include "norvane/dds/DomainParticipant.hpp"

namespace norvane {
namespace details {

inline std::string describe_type(const char* name, std::uint64_t layout_hash) {
    std::string text = std::string("'") + name + "' (layout ";
    for (int shift = 60; shift >= 0; shift -= 4) {
        text += "0123456789abcdef"[layout_hash >> shift & 0xfU];
    }
    return text + ")";
}

/// Registers a type under its own name.
/// @param type_support  the type itself, or what the application gives in its place.
/// @param own           operations of the C++ type whose samples will be written or read.
/// @param exact         whether `type_support` must be of that very type; else a sample of the same size and alignment will do.
/// @return the name; never null; as long-lived as `type_support`.
/// @throws BadParameterException        samples of `type_support` are not samples of the C++ type.
/// @throws PreconditionNotMetException  the participant knows another type under that name.
/// @throws the class of the middleware's code, when it refuses the type otherwise.
inline const char* register_type_support(const DDSTypeSupport& type_support, const DDS_TypeOperations& own, bool exact,
                                         DDSDomainParticipant& participant) {
    const std::shared_ptr<const DDS_TypeOperations> given = type_support.get_type_operations();
    const bool suits = given->size == own.size && given->alignment == own.alignment &&
                       (!exact || (given->layout_hash == own.layout_hash && std::string(given->name) == own.name));
    if (!suits) {
        check_retcode(DDS_RETCODE_BAD_PARAMETER, "register_type_support", DDS_LOG_BAD_PARAMETER_s,
                      "type support of " + describe_type(type_support.get_type_name(), given->layout_hash) +
                          " for samples of type " + describe_type(own.name, own.layout_hash),
                      false);
    }
    const char* name = type_support.get_type_name();
    const DDS_ReturnCode_t retcode = type_support.register_type(&participant);
    if (retcode != DDS_RETCODE_OK) {
        std::string text = "register type " + describe_type(name, given->layout_hash);
        const std::shared_ptr<const DDS_TypeOperations> known = participant.lookup_type(name);
        if (retcode == DDS_RETCODE_PRECONDITION_NOT_MET && known != nullptr) {
            text += ", which the participant knows as " + describe_type(name, known->layout_hash);
        }
        check_retcode(retcode, "register_type_support", VOST_LOG_ANY_FAILURE_s, text, true);
    }
    return name;
}

/// Checks that a topic carries a type: a topic that was there already is used as it is, whatever its type.
/// @param description  a topic or content-filtered topic.
/// @throws PreconditionNotMetException  it carries another one; the message names topic, expected and found type.
inline void require_topic_type(DDSTopicDescription& description, const DDSTypeSupport& type_support, const char* method_name) {
    const char* expected_name = type_support.get_type_name();
    const std::uint64_t expected_hash = type_support.get_type_operations()->layout_hash;
    const std::string found_name = description.get_type_name();
    const std::shared_ptr<const DDS_TypeOperations> found = description.get_participant()->lookup_type(found_name.c_str());
    if (found != nullptr && found->layout_hash == expected_hash && found_name == expected_name) {
        return;
    }
    DDSContentFilteredTopic* filtered = DDSContentFilteredTopic::narrow(&description);
    const char* topic_name = filtered != nullptr ? filtered->get_related_topic()->get_name() : description.get_name();
    check_retcode(DDS_RETCODE_PRECONDITION_NOT_MET, method_name, VOST_LOG_ANY_s,
                  std::string("topic '") + topic_name + "' carries another type: expected " +
                      describe_type(expected_name, expected_hash) + ", found " +
                      describe_type(found_name.c_str(), found != nullptr ? found->layout_hash : 0),
                  false);
}

}  // namespace details
}  // namespace norvane

#endif
