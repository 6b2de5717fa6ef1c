// SPDX-License-Identifier: Apache-2.0
// What a plan of faults does to which message. (That calls survive it: tests/network/bad_wires_test.cpp.)
#include "engines/fastdds/transport/FaultInjector.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <numeric>
#include <string>

namespace norvane::test {
namespace {

using fastdds::FaultInjector;
using fastdds::FaultPlan;

constexpr std::size_t HEADER = 20;

// A sample without data and a heartbeat.
std::string message(char sender, char number) {
    const std::string ids("\0\0\0\4\0\0\0\3", 8);
    return std::string("RTPS\2\3\1\x0f") + std::string(12, sender) + std::string("\x15\1\x14\0\0\0\x10\0", 8) + ids +
           std::string("\0\0\0\0", 4) + number + std::string("\0\0\0\7\1\x1c\0", 7) + ids + std::string(20, '\0');
}

class Faults {
public:
    explicit Faults(const std::string& plan) : _injector(parsed(plan)) {}
    /// @return what is delivered, without the headers.
    std::string receive(const std::string& message, std::uint32_t port = 7411) {
        std::string all;
        _injector.receive(reinterpret_cast<const std::uint8_t*>(message.data()), static_cast<std::uint32_t>(message.size()), port,
                          [&](const std::uint8_t* octets, std::uint32_t length) {
                              all.append(reinterpret_cast<const char*>(octets) + HEADER, length - HEADER);
                          });
        return all;
    }

private:
    static FaultPlan parsed(const std::string& text) {
        FaultPlan plan;
        std::string refusal;
        EXPECT_TRUE(plan.parse(text, refusal)) << refusal;
        return plan;
    }

    FaultInjector _injector;
};

TEST(FaultInjector, hits_the_same_with_the_same_seed_whatever_else_arrives) {
    const std::string plan = "drop=DATA:0.5; drop=ALL:0.1; dup=0.3; tamper=0.2; seed=";
    Faults alone(plan + "7");
    Faults among_others(plan + "7");
    Faults of_another_seed(plan + "8");
    int others = 0;
    for (char number = 1; number < 100; ++number) {
        const std::string expected = alone.receive(message('a', number));
        among_others.receive(message('b', number));
        among_others.receive(message('d', number), 7410);
        EXPECT_EQ(expected, among_others.receive(message('c', number))) << int{number};
        others += expected != of_another_seed.receive(message('a', number)) ? 1 : 0;
    }
    EXPECT_LT(10, others);
}

TEST(FaultInjector, loses_what_is_named_and_damages_one_octet) {
    const std::string both = message('a', 1).substr(HEADER);
    const std::string heartbeat = both.substr(24);
    const std::string data = both.substr(0, 24);
    struct {
        const char* plan;
        std::string first;
        std::string again;
    } const CASES[] = {
        {"", both, both},
        {"gap", heartbeat, both},
        {"first=DATA", heartbeat, both},
        {"first=HEARTBEAT", data, both},
        {"first=ALL", "", both},
        {"drop=DATA:1;drop=HEARTBEAT:1", "", ""},
        {"drop=DATA(w):1;drop=ACKNACK:1;drop=DATA:0", both, both},
        {"dup=1", both + both, both + both},
    };
    for (const auto& each : CASES) {
        Faults faults(each.plan);
        EXPECT_EQ(each.first, faults.receive(message('a', 1))) << each.plan;
        EXPECT_EQ(each.again, faults.receive(message('a', 1))) << each.plan;
    }
    const std::string damaged = Faults("tamper=1").receive(message('a', 1));
    EXPECT_EQ(both.size(), damaged.size());
    EXPECT_EQ(1, std::inner_product(both.begin(), both.end(), damaged.begin(), 0, std::plus<>(), std::not_equal_to<>()));
}

}  // namespace
}  // namespace norvane::test
