// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/credentials.hpp"

#include <algorithm>
#include <ctime>
#include <fstream>
#include <iterator>

namespace norvane {
namespace fastdds {

namespace {

constexpr const char* PERMISSIONS = "dds.sec.access.builtin.Access-Permissions.permissions";
constexpr std::size_t TIME_LENGTH = 19;  // 2026-01-31T23:59:59: earlier times are smaller texts

std::string now_as_text() {
    const std::time_t now = std::time(nullptr);
    std::tm parts = {};
    char text[TIME_LENGTH + 1] = "";
    return ::gmtime_r(&now, &parts) != nullptr && std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts) == TIME_LENGTH
               ? text
               : "";
}

// @return the time in the next element of that name; empty when there is none. @param place  where to look from; gets where it ends.
std::string next_time(const std::string& document, const std::string& element, std::size_t& place) {
    place = document.find("<" + element + ">", place);
    if (place == std::string::npos) {
        return "";
    }
    place = std::min(document.find_first_not_of(" \t\r\n", place + element.size() + 2), document.size());
    return document.substr(place, TIME_LENGTH);
}

// The document is signed, and not sealed: its text can be read. It may have grants of several programs.
bool has_ended_or_not_begun(const std::string& document) {
    const std::string now = now_as_text();
    bool has_any = false;
    for (std::size_t place = 0; place < document.size();) {
        const std::string begin = next_time(document, "not_before", place);
        const std::string end = place < document.size() ? next_time(document, "not_after", place) : "";
        if (begin.size() != TIME_LENGTH || end.size() != TIME_LENGTH) {
            break;
        }
        has_any = true;
        if (begin <= now && now < end) {
            return false;
        }
    }
    return has_any;
}

}  // namespace

std::string fault_of_credentials(const rtps::PropertyPolicy& policy) {
    const std::string scheme = "file://";
    for (const rtps::Property& property : policy.properties()) {
        if (property.name().compare(0, 8, "dds.sec.") != 0 || property.value().compare(0, scheme.size(), scheme) != 0) {
            continue;
        }
        const std::string file = property.value().substr(scheme.size());
        std::ifstream input(file);
        const std::string document((std::istreambuf_iterator<char>(input)), std::istreambuf_iterator<char>());
        if (document.empty()) {
            return "property " + property.name() + ": \"" + file + "\" is empty, or cannot be read";
        }
        if (property.name() == PERMISSIONS && has_ended_or_not_begun(document)) {
            return "property " + property.name() + ": the permissions in \"" + file + "\" have ended, or not begun (UTC)";
        }
    }
    return "";
}

}  // namespace fastdds
}  // namespace norvane
