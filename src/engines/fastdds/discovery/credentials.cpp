// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/discovery/credentials.hpp"

#include <tinyxml2.h>

#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>

namespace norvane {
namespace fastdds {

namespace {

constexpr const char* PERMISSIONS = "dds.sec.access.builtin.Access-Permissions.permissions";
constexpr std::size_t TIME_LENGTH = 19;  // 2026-01-31T23:59:59: earlier times compare less as text

std::string now_as_text() {
    const std::time_t now = std::time(nullptr);
    std::tm parts = {};
    char text[TIME_LENGTH + 1] = "";
    return ::gmtime_r(&now, &parts) != nullptr && std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts) == TIME_LENGTH
               ? text
               : "";
}

// The document is signed but not encrypted: its XML is readable. It may have grants for several programs.
bool has_ended_or_not_begun(const std::string& document) {
    const std::size_t begin = document.find("<dds");
    const std::size_t end = document.rfind("</dds>");
    tinyxml2::XMLDocument xml(true, tinyxml2::COLLAPSE_WHITESPACE);
    if (begin == std::string::npos || end == std::string::npos || end < begin ||
        xml.Parse(document.data() + begin, end + std::strlen("</dds>") - begin) != tinyxml2::XML_SUCCESS) {
        return false;  // Fast DDS reports such a document itself
    }
    const std::string now = now_as_text();
    const auto time_of = [](tinyxml2::XMLHandle validity, const char* element) {
        const tinyxml2::XMLElement* const found = validity.FirstChildElement(element).ToElement();
        const char* const text = found != nullptr ? found->GetText() : nullptr;
        return std::string(text != nullptr ? text : "").substr(0, TIME_LENGTH);
    };
    bool has_any = false;
    tinyxml2::XMLHandle grant =
        tinyxml2::XMLHandle(xml).FirstChildElement("dds").FirstChildElement("permissions").FirstChildElement("grant");
    for (; grant.ToElement() != nullptr; grant = grant.NextSiblingElement("grant")) {
        const tinyxml2::XMLHandle validity = grant.FirstChildElement("validity");
        const std::string from = time_of(validity, "not_before");
        const std::string until = time_of(validity, "not_after");
        if (from.size() != TIME_LENGTH || until.size() != TIME_LENGTH || (from <= now && now < until)) {
            return false;
        }
        has_any = true;
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
