// SPDX-License-Identifier: Apache-2.0
// The registry of QoS profiles.
#include "middleware/QosProfiles.hpp"

#include <cstring>
#include <exception>

#include "middleware/Log.hpp"

namespace norvane {
namespace mw {
namespace {

bool is_name_character(char character) noexcept {
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
           (character >= '0' && character <= '9') || character == '_' || character == '-' || character == '.';
}

/// Words of letters, digits, "_", "-" and ".", joined by "::".
bool is_well_formed(const char* name) noexcept {
    bool in_word = false;
    for (; *name != '\0'; ++name) {
        if (is_name_character(*name)) {
            in_word = true;
        } else if (in_word && name[0] == ':' && name[1] == ':') {
            in_word = false;
            ++name;
        } else {
            return false;
        }
    }
    return in_word;
}

bool check_name(const char* method, const char* kind, const char* name) {
    if (name != nullptr && is_well_formed(name)) {
        return true;
    }
    log_error(method, [&] {
        return std::string("malformed ") + kind + " name \"" + (name != nullptr ? name : "(null)") +
               "\": a name is words of letters, digits, \"_\", \"-\" and \".\", joined by \"::\"";
    });
    return false;
}

/// @return the end of the set "[abc]" that starts at `set`, past its "]"; null when it has no end or nothing in it.
const char* end_of_set(const char* set) noexcept {
    const char* const end = set[1] != '\0' ? std::strchr(set + 2, ']') : nullptr;
    return end != nullptr ? end + 1 : nullptr;
}

bool is_pattern(const char* pattern) noexcept {
    while (*pattern != '\0') {
        if (*pattern != '[') {
            ++pattern;
        } else if ((pattern = end_of_set(pattern)) == nullptr) {
            return false;
        }
    }
    return true;
}

/// "*" any run, "?" any one character, "[abc]" one of these. Never slower than the product of both lengths.
bool matches(const char* pattern, const char* text) noexcept {
    const char* star = nullptr;
    const char* star_text = nullptr;
    while (*text != '\0') {
        const char* next = pattern + 1;
        bool fits = false;
        if (*pattern == '*') {
            star = next;
            star_text = text;
            pattern = next;
            continue;
        }
        if (*pattern == '[') {
            next = end_of_set(pattern);
            fits = std::memchr(pattern + 1, *text, static_cast<std::size_t>(next - pattern - 2)) != nullptr;
        } else {
            fits = *pattern == '?' || *pattern == *text;
        }
        if (fits) {
            pattern = next;
            ++text;
        } else if (star != nullptr) {
            // The run takes one character more; an earlier star need not be tried again.
            pattern = star;
            text = ++star_text;
        } else {
            return false;
        }
    }
    while (*pattern == '*') {
        ++pattern;
    }
    return *pattern == '\0';
}

DDS_ReturnCode_t copy(DDS_DataWriterQos& destination, const DDS_DataWriterQos& source) {
    return DDS_DataWriterQos_copy(&destination, &source);
}
DDS_ReturnCode_t copy(DDS_DataReaderQos& destination, const DDS_DataReaderQos& source) {
    return DDS_DataReaderQos_copy(&destination, &source);
}

DDS_ReturnCode_t no_memory(const char* method) noexcept {
    log_error(method, "no memory for the QoS profile");
    return DDS_RETCODE_OUT_OF_RESOURCES;
}

}  // namespace

DDS_ReturnCode_t QosProfiles::add_profile(const char* library_name, const char* profile_name) noexcept {
    const char* const method = "DDSDomainParticipantFactory::add_qos_profile";
    try {
        if (!check_name(method, "QoS library", library_name) || !check_name(method, "QoS profile", profile_name)) {
            return DDS_RETCODE_BAD_PARAMETER;
        }
        Library fresh;
        fresh.try_emplace(profile_name);
        std::string key = library_name;
        const std::lock_guard<std::mutex> lock(_mutex);
        const auto library = _libraries.find(key);
        if (library != _libraries.end()) {
            library->second.merge(fresh);
        } else {
            _libraries.emplace(std::move(key), std::move(fresh));
        }
        return DDS_RETCODE_OK;
    } catch (const std::exception&) {
        return no_memory(method);
    }
}

DDS_ReturnCode_t QosProfiles::remove_profile(const char* library_name, const char* profile_name) noexcept {
    const char* const method = "DDSDomainParticipantFactory::remove_qos_profile";
    try {
        const std::lock_guard<std::mutex> lock(_mutex);
        if (find_locked(method, library_name, profile_name) == nullptr) {
            return DDS_RETCODE_BAD_PARAMETER;
        }
        const auto library = _libraries.find(library_name);
        library->second.erase(library->second.find(profile_name));
        if (library->second.empty()) {
            _libraries.erase(library);
        }
        return DDS_RETCODE_OK;
    } catch (const std::exception&) {
        return no_memory(method);
    }
}

DDS_ReturnCode_t QosProfiles::add(const char* library_name, const char* profile_name, const char* topic_filter,
                                  const DDS_DataWriterQos& qos) noexcept {
    return add_settings("DDSDomainParticipantFactory::add_datawriter_qos_to_profile", library_name, profile_name, topic_filter, qos,
                        &Profile::writers);
}

DDS_ReturnCode_t QosProfiles::add(const char* library_name, const char* profile_name, const char* topic_filter,
                                  const DDS_DataReaderQos& qos) noexcept {
    return add_settings("DDSDomainParticipantFactory::add_datareader_qos_to_profile", library_name, profile_name, topic_filter, qos,
                        &Profile::readers);
}

DDS_ReturnCode_t QosProfiles::get(DDS_DataWriterQos& qos, const char* library_name, const char* profile_name,
                                  const char* topic_name) noexcept {
    return get_settings("DDSDomainParticipantFactory::get_datawriter_qos_from_profile_for_topic", qos, library_name, profile_name,
                        topic_name, &Profile::writers);
}

DDS_ReturnCode_t QosProfiles::get(DDS_DataReaderQos& qos, const char* library_name, const char* profile_name,
                                  const char* topic_name) noexcept {
    return get_settings("DDSDomainParticipantFactory::get_datareader_qos_from_profile_for_topic", qos, library_name, profile_name,
                        topic_name, &Profile::readers);
}

template <typename Qos>
DDS_ReturnCode_t QosProfiles::add_settings(const char* method, const char* library_name, const char* profile_name,
                                           const char* topic_filter, const Qos& qos,
                                           std::list<Settings<Qos>> Profile::*kind) noexcept {
    try {
        if (topic_filter != nullptr && !is_pattern(topic_filter)) {
            log_error(method, [&] { return std::string("topic filter \"") + topic_filter + "\": a \"[\" without its \"]\""; });
            return DDS_RETCODE_BAD_PARAMETER;
        }
        std::list<Settings<Qos>> fresh(1);
        if (topic_filter != nullptr) {
            fresh.front().topic_filter = topic_filter;
        }
        const DDS_ReturnCode_t code = copy(fresh.front().qos, qos);
        if (code != DDS_RETCODE_OK) {
            return no_memory(method);
        }
        const std::lock_guard<std::mutex> lock(_mutex);
        Profile* const profile = find_locked(method, library_name, profile_name);
        if (profile == nullptr) {
            return DDS_RETCODE_BAD_PARAMETER;
        }
        (profile->*kind).splice((profile->*kind).begin(), fresh);  // last added, first looked at
        return DDS_RETCODE_OK;
    } catch (const std::exception&) {
        return no_memory(method);
    }
}

template <typename Qos>
DDS_ReturnCode_t QosProfiles::get_settings(const char* method, Qos& qos, const char* library_name, const char* profile_name,
                                           const char* topic_name, std::list<Settings<Qos>> Profile::*kind) noexcept {
    try {
        const std::lock_guard<std::mutex> lock(_mutex);
        const Profile* const profile = find_locked(method, library_name, profile_name);
        if (profile == nullptr) {
            return DDS_RETCODE_BAD_PARAMETER;
        }
        for (const Settings<Qos>& settings : profile->*kind) {
            if (!settings.topic_filter || (topic_name != nullptr && matches(settings.topic_filter->c_str(), topic_name))) {
                return copy(qos, settings.qos);
            }
        }
        return copy(qos, Qos());
    } catch (const std::exception&) {
        return no_memory(method);
    }
}

QosProfiles::Profile* QosProfiles::find_locked(const char* method, const char* library_name, const char* profile_name) {
    if (!check_name(method, "QoS library", library_name) || !check_name(method, "QoS profile", profile_name)) {
        return nullptr;
    }
    const auto library = _libraries.find(library_name);
    if (library == _libraries.end()) {
        log_error(method, [&] { return std::string("unknown QoS library \"") + library_name + "\""; });
        return nullptr;
    }
    const auto profile = library->second.find(profile_name);
    if (profile == library->second.end()) {
        log_error(method,
                  [&] { return std::string("unknown QoS profile \"") + profile_name + "\" in library \"" + library_name + "\""; });
        return nullptr;
    }
    return &profile->second;
}

}  // namespace mw
}  // namespace norvane
