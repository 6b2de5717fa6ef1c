// SPDX-License-Identifier: Apache-2.0
// Properties of a participant: lines of name and value, separated by "=".
#include <string>

#include "engines/fastdds/attributes.hpp"

using namespace norvane::fastdds;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    DDS_DomainParticipantQos qos;
    for (std::size_t place = 0; place < text.size() && qos.property.value.length() < 100;) {
        const std::size_t end = std::min(text.find('\n', place), text.size());
        const std::string line = text.substr(place, end - place);
        const std::size_t sign = std::min(line.find('='), line.size());
        // Fast DDS's own reader of XML is not what is looked for here.
        if (line.compare(0, sign, "profiles_file") != 0) {
            DDSPropertyQosPolicyHelper::add_property(qos.property, ("norvane.fastdds." + line.substr(0, sign)).c_str(),
                                                     line.substr(std::min(sign + 1, line.size())).c_str(), DDS_BOOLEAN_FALSE);
        }
        place = end + 1;
    }
    ParticipantChoice choice;
    std::string failure;
    if (choose(qos, choice, failure) != failure.empty()) {
        std::abort();
    }
    return 0;
}
