// SPDX-License-Identifier: Apache-2.0
// The service that the peers of these tests speak: numbered questions, each of somebody, and answers that say which and whose they
// are.
// Thread rule: plain values and functions.
#ifndef NORVANE_TESTS_NETWORK_QUESTIONS_HPP
#define NORVANE_TESTS_NETWORK_QUESTIONS_HPP

#include <algorithm>
#include <boost/describe.hpp>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

#include "norvane/norvane.hpp"
#include "support/DomainNumber.hpp"

namespace norvane {
namespace test {

struct Question {
    std::int32_t number = 0;
    std::string of;
};
BOOST_DESCRIBE_STRUCT(Question, (), (number, of))

struct Answer {
    std::int32_t number = 0;
    std::string of;
    std::string text;
};
BOOST_DESCRIBE_STRUCT(Answer, (), (number, of, text))

}  // namespace test

// As IDL calls them: programs in other languages know them by these names.
template <>
inline constexpr const char* type_name<test::Question> = "questions::Question";
template <>
inline constexpr const char* type_name<test::Answer> = "questions::Answer";

namespace test {

typedef Requester<Question, Answer> Asker;
typedef Service<Question, Answer> Oracle;

constexpr std::chrono::seconds ANSWER_TIME(20);

/// On Fast DDS, and on this machine only.
inline ParticipantParams on_loopback(int domain) {
    return ParticipantParams().domain_id(domain).engine("fastdds").property("norvane.fastdds.interfaces", "127.0.0.1");
}

/// @return `words`, and what tells the peers of QuestionPeers.cpp of their participant.
inline std::vector<std::string> words_of(const ParticipantParams& params, std::vector<std::string> words) {
    words.push_back("domain=" + std::to_string(params.domain_id()));
    for (const auto& property : params.properties()) {
        words.push_back(property.first + "=" + property.second);
    }
    return words;
}

/// @return the domain number of this process, which no other test process has.
inline int domain_of_test() {
    static const int domain = claim_domain();
    return domain;
}

/// How often a test repeats what may fail now and then: the environment variable NORVANE_TEST_REPEATS, else 20; else 2 under
/// AddressSanitizer, where a process takes four times as long to start and to end, and what is looked for is something else.
inline int repeats() {
#ifdef __SANITIZE_ADDRESS__
    constexpr int UNLESS_SAID = 2;
#else
    constexpr int UNLESS_SAID = 20;
#endif
    const char* const wanted = std::getenv("NORVANE_TEST_REPEATS");
    return wanted != nullptr ? std::max(1, std::atoi(wanted)) : UNLESS_SAID;
}

/// Asks one question after another. @return "ok", or what went wrong.
inline std::string ask_all(Asker& asker, const std::string& who, int count) {
    try {
        for (std::int32_t number = 1; number <= count; ++number) {
            const Answer answer = asker.call({number, who}, ANSWER_TIME);
            if (answer.number != number || answer.of != who) {
                return "question " + std::to_string(number) + " of " + who + " got answer " + std::to_string(answer.number) +
                       " of " + answer.of;
            }
        }
        return "ok";
    } catch (const std::exception& failure) {
        return failure.what();
    }
}

}  // namespace test
}  // namespace norvane

#endif
