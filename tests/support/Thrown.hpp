// SPDX-License-Identifier: Apache-2.0
// What a call throws, as text, so that tables of cases can name it.
#ifndef NORVANE_TESTS_SUPPORT_THROWN_HPP
#define NORVANE_TESTS_SUPPORT_THROWN_HPP

#include <cxxabi.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <typeinfo>

#include "norvane/CallTimeoutException.hpp"
#include "norvane/dds/log.hpp"

namespace norvane::test {

/// @return the class's name without its namespace.
inline std::string class_name(const std::type_info& type) {
    const std::unique_ptr<char, void (*)(void*)> name(abi::__cxa_demangle(type.name(), nullptr, nullptr, nullptr), &std::free);
    const std::string whole = name != nullptr ? name.get() : type.name();
    return whole.substr(whole.rfind(':') + 1);
}

/// What came out of a call. Without an exception both are empty.
struct Thrown {
    std::string type;  ///< Name of the exact class, without its namespace; of a CallTimeoutException its reason, too.
    std::string message;
};

template <typename Call>
Thrown thrown_by(Call call) {
    try {
        call();
        return {};
    } catch (const CallTimeoutException& timeout) {
        constexpr const char* REASONS[] = {"NO_REPLIER", "INCOMPATIBLE_QOS", "INCOMPATIBLE_TYPE", "NOT_MATCHED_YET",
                                           "NO_ROOM",    "SILENT",           "REPLIER_LEFT"};
        return {class_name(typeid(timeout)) + " " + REASONS[static_cast<int>(timeout.reason())], timeout.what()};
    } catch (const std::exception& exception) {
        return {class_name(typeid(exception)), exception.what()};
    }
}

/// @param words  somewhere in the message.
inline void expect_thrown(const std::string& type, const std::string& words, const Thrown& thrown) {
    EXPECT_EQ(type, thrown.type) << thrown.message;
    EXPECT_NE(std::string::npos, thrown.message.find(words)) << thrown.message;
}

/// @return the template with its argument in place.
inline std::string expanded(const VOSTLogMessage& message, const std::string& argument) {
    std::string text = message.format;
    const std::string::size_type place = text.find("%s");
    return place == std::string::npos ? text : text.replace(place, 2, argument);
}

}  // namespace norvane::test

#endif
