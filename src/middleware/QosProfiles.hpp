// SPDX-License-Identifier: Apache-2.0
// The registry of QoS profiles behind the participant factory: libraries, their profiles, and in each profile writer and reader
// settings for the topics that match a pattern.
//
// It does not read files: a loader would parse a file and make the calls below.
// Thread rule: any operation from any thread.
#ifndef NORVANE_MIDDLEWARE_QOSPROFILES_HPP
#define NORVANE_MIDDLEWARE_QOSPROFILES_HPP

#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "norvane/dds/qos.hpp"

namespace norvane {
namespace mw {

/// Results, and what is logged, are those of DDSDomainParticipantFactory's operations of like names.
class QosProfiles {
public:
    [[nodiscard]] DDS_ReturnCode_t add_profile(const char* library_name, const char* profile_name) noexcept;
    [[nodiscard]] DDS_ReturnCode_t remove_profile(const char* library_name, const char* profile_name) noexcept;

    /// @param topic_filter  null for every topic.
    [[nodiscard]] DDS_ReturnCode_t add(const char* library_name, const char* profile_name, const char* topic_filter,
                                       const DDS_DataWriterQos& qos) noexcept;
    [[nodiscard]] DDS_ReturnCode_t add(const char* library_name, const char* profile_name, const char* topic_filter,
                                       const DDS_DataReaderQos& qos) noexcept;

    /// @param topic_name  null for the settings without a topic filter.
    [[nodiscard]] DDS_ReturnCode_t get(DDS_DataWriterQos& qos, const char* library_name, const char* profile_name,
                                       const char* topic_name) noexcept;
    [[nodiscard]] DDS_ReturnCode_t get(DDS_DataReaderQos& qos, const char* library_name, const char* profile_name,
                                       const char* topic_name) noexcept;

private:
    template <typename Qos>
    struct Settings {
        std::optional<std::string> topic_filter;  // none: every topic
        Qos qos;
    };
    // Lists, since a QoS record must not be copied implicitly: such a copy cannot report that memory is short.
    struct Profile {
        std::list<Settings<DDS_DataWriterQos>> writers;
        std::list<Settings<DDS_DataReaderQos>> readers;
    };
    typedef std::map<std::string, Profile, std::less<>> Library;

    template <typename Qos>
    [[nodiscard]] DDS_ReturnCode_t add_settings(const char* method, const char* library_name, const char* profile_name,
                                                const char* topic_filter, const Qos& qos,
                                                std::list<Settings<Qos>> Profile::*kind) noexcept;
    template <typename Qos>
    [[nodiscard]] DDS_ReturnCode_t get_settings(const char* method, Qos& qos, const char* library_name, const char* profile_name,
                                                const char* topic_name, std::list<Settings<Qos>> Profile::*kind) noexcept;
    /// @return the profile; null, with a line logged, when a name is malformed or unknown.
    Profile* find_locked(const char* method, const char* library_name, const char* profile_name);

    std::mutex _mutex;
    std::map<std::string, Library, std::less<>> _libraries;  // none of them is empty
};

}  // namespace mw
}  // namespace norvane

#endif
