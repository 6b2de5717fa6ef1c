// SPDX-License-Identifier: Apache-2.0
// Texts of content filters: the first line is the filter, each further one a parameter. What is accepted is evaluated.
#include <memory>
#include <string>

#include "middleware/FilterExpression.hpp"

using norvane::mw::FilterExpression;

namespace {

struct Place {
    std::int32_t x = 3;
    char* name = nullptr;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::shared_ptr<const DDS_TypeOperations> TYPE =
        DDSDynamicDataTypeSupport("Place", {{"x", DDS_DYNAMIC_INT32}, {"name", DDS_DYNAMIC_STRING}}).get_type_operations();
    static char NAME[] = "a_name_with%sigils";
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::size_t end = std::min(text.find('\n'), text.size());
    DDS_StringSeq parameters;
    for (std::size_t place = end; place < text.size() && parameters.length() < 100;) {
        const std::size_t next = std::min(text.find('\n', place + 1), text.size());
        parameters.ensure_length(parameters.length() + 1, parameters.length() + 1);
        DDS_String_replace(&parameters[parameters.length() - 1], text.substr(place + 1, next - place - 1).c_str());
        place = next;
    }
    std::unique_ptr<const FilterExpression> filter;
    std::string message;
    const DDS_ReturnCode_t code = FilterExpression::compile(TYPE, text.substr(0, end).c_str(), parameters, filter, message);
    if ((code == DDS_RETCODE_OK) != (filter != nullptr) || (code != DDS_RETCODE_OK && message.empty())) {
        std::abort();
    }
    if (filter) {
        Place sample;
        sample.name = NAME;
        filter->evaluate(norvane::mw::SampleMetadata(), &sample);
        filter->evaluate(norvane::mw::SampleMetadata(), nullptr);
    }
    return 0;
}
