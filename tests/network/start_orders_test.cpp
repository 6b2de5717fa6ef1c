// SPDX-License-Identifier: Apache-2.0
// A service and two requesters, each a process, started in every order: each calls as soon as it lives, and no call is lost.
#include <gtest/gtest.h>

#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "network/PeerProcess.hpp"
#include "network/Questions.hpp"
#include "support/Eventually.hpp"

namespace norvane::test {
namespace {

constexpr int CALLS = 3;

// Arguments: domain; whether to be ready "before" it has joined, so that the next one is started meanwhile, or "after".
class Start {
public:
    explicit Start(const std::vector<std::string>& arguments) : _says_after(arguments[1] == "after") {
        if (!_says_after) {
            std::cout << "ready" << std::endl;
        }
    }
    void joined() const {
        if (_says_after) {
            std::cout << "ready" << std::endl;
        }
    }

private:
    const bool _says_after;
};

// Any line: how many questions it has answered.
int oracle(const std::vector<std::string>& arguments) {
    const Start start(arguments);
    Participant participant(on_loopback(std::stoi(arguments[0])));
    Oracle service(ReplierParams(participant).service_name("Orders"), [](const Question& question) {
        return Answer{question.number, question.of, ""};
    });
    start.joined();
    for (std::string line; std::getline(std::cin, line);) {
        std::cout << service.stats().handled << std::endl;
    }
    return 0;
}

// Calls without being told to. Any line: how that went.
int asker(const std::vector<std::string>& arguments) {
    const Start start(arguments);
    Participant participant(on_loopback(std::stoi(arguments[0])));
    Asker requester(RequesterParams(participant).service_name("Orders"));
    start.joined();
    const std::string outcome = ask_all(requester, arguments[2], CALLS);
    for (std::string line; std::getline(std::cin, line);) {
        std::cout << outcome << std::endl;
    }
    return 0;
}

const bool KNOWN = roles().insert({"oracle", oracle}).second && roles().insert({"asker", asker}).second;

/// One letter a process, in the order of their starts: S(ervice), A, B.
class StartOrders : public ::testing::TestWithParam<std::string> {};
INSTANTIATE_TEST_SUITE_P(Of, StartOrders, ::testing::Values("SAB", "SBA", "ASB", "BSA", "ABS", "BAS"),
                         [](const auto& test) { return test.param; });

TEST_P(StartOrders, every_call_is_answered) {
    ASSERT_TRUE(KNOWN);
    const std::string domain = std::to_string(domain_of_test());
    for (int round = 0; round < repeats(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        std::vector<std::unique_ptr<PeerProcess>> peers;
        for (const char name : GetParam()) {
            const std::vector<std::string> arguments = {domain, round % 2 == 0 ? "before" : "after", std::string(1, name)};
            peers.push_back(std::make_unique<PeerProcess>(name == 'S' ? "oracle" : "asker", arguments));
        }
        for (std::size_t place = 0; place < peers.size(); ++place) {
            if (GetParam()[place] != 'S') {
                EXPECT_EQ("ok", peers[place]->ask("how did it go")) << GetParam()[place];
            }
        }
        PeerProcess& service = *peers[GetParam().find('S')];
        std::string handled;
        // A reply is counted after it was sent: its requester may have it by then.
        EXPECT_TRUE(eventually([&] { return (handled = service.ask("how many")) == std::to_string(2 * CALLS); })) << handled;
        while (!peers.empty()) {
            peers.pop_back();  // the last one first: it holds the others' pipes open
        }
        if (HasFailure()) {
            break;
        }
    }
}

}  // namespace
}  // namespace norvane::test
