// SPDX-License-Identifier: Apache-2.0
// The service that the peers of these tests speak: numbered questions, each of somebody, and answers that say which and whose they
// are.
// Thread rule: plain values and functions.
#ifndef NORVANE_TESTS_NETWORK_QUESTIONS_HPP
#define NORVANE_TESTS_NETWORK_QUESTIONS_HPP

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <boost/describe.hpp>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <future>
#include <string>
#include <vector>

#include "norvane/norvane.hpp"
#include "support/DomainNumber.hpp"
#include "support/History.hpp"

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

/// Asks one question after another, each another one than all before. What happens is in the history, if there is one.
/// @return "ok", or what went wrong.
inline std::string ask_all(Asker& asker, const std::string& who, int count, std::chrono::milliseconds patience = ANSWER_TIME) {
    static std::atomic<std::int32_t> last{0};
    const std::string of = who + " in " + std::to_string(::getpid());
    for (; count > 0; --count) {
        const std::int32_t number = ++last;
        try {
            History::note("asked", of, number, std::to_string(patience.count()));
            const Answer answer = asker.call({number, of}, patience);
            History::note("got", of, number, answer.of + " " + std::to_string(answer.number));
            if (answer.number != number || answer.of != of) {
                return of + " got answer " + std::to_string(answer.number) + " of " + answer.of;
            }
        } catch (const std::exception& failure) {
            History::note("failed", of, number, failure.what());
            return failure.what();
        }
    }
    return "ok";
}

/// Has several threads ask at once, each so many questions. @return "ok", or what went wrong with one of them.
inline std::string ask_at_once(Asker& asker, const std::string& who, int threads, int count) {
    std::vector<std::future<std::string>> callers(static_cast<std::size_t>(threads));
    for (std::future<std::string>& caller : callers) {
        caller = std::async(std::launch::async, [&] { return ask_all(asker, who, count); });
    }
    std::string outcome = "ok";
    for (std::future<std::string>& caller : callers) {
        const std::string one = caller.get();
        outcome = one == "ok" ? outcome : one;
    }
    return outcome;
}

}  // namespace test
}  // namespace norvane

#endif
