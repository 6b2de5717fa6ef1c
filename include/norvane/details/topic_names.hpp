// SPDX-License-Identifier: Apache-2.0
// How the two topics of a service are named, and found or made.
#ifndef NORVANE_DETAILS_TOPIC_NAMES_HPP
#define NORVANE_DETAILS_TOPIC_NAMES_HPP

#include <string>

#include "norvane/export.hpp"

class DDSDomainParticipant;
class DDSTopicDescription;

namespace norvane {
namespace details {

/// @return the service name followed by "Request".
NORVANE_EXPORT std::string create_request_topic_name_from_service_name(std::string service_name);
/// @return the service name followed by "Reply".
NORVANE_EXPORT std::string create_reply_topic_name_from_service_name(std::string service_name);

/// Finds the topic description of that name, or makes a topic. One look-up, at most one creation.
/// @param type_name  type of a topic that has to be made; an existing one is not compared with it.
/// @param allow_cft  whether an existing content-filtered topic will do.
/// @return never null; the participant's.
/// @throws PreconditionNotMetException  a content-filtered topic has that name, and will not do.
/// @throws RuntimeException             the topic could not be made.
NORVANE_EXPORT DDSTopicDescription* get_or_create_topic(DDSDomainParticipant* participant, const char* name, const char* type_name,
                                                        bool allow_cft);

}  // namespace details
}  // namespace norvane

#endif
