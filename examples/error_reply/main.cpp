// SPDX-License-Identifier: Apache-2.0
// Errors as replies: a handler that throws is answered, too. The reply type has a place for the result and one for the error.
#include <boost/describe.hpp>
#include <cmath>
#include <cstdio>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>

#include "norvane/norvane.hpp"

//! [types]
struct Question {
    double number = 0;
};
BOOST_DESCRIBE_STRUCT(Question, (), (number))

struct Answer {
    std::optional<double> root;  // none: see error
    std::string error;
};
BOOST_DESCRIBE_STRUCT(Answer, (), (root, error))
//! [types]

//! [service]
Answer root_of(const Question& question) {
    if (question.number < 0) {
        throw std::domain_error("a negative number has no root");
    }
    return {std::sqrt(question.number), ""};
}

Answer error_of(std::exception_ptr error) {
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& known) {
        return {std::nullopt, known.what()};
    } catch (...) {
        return {std::nullopt, "unknown error"};
    }
}
//! [service]

int run() {
    norvane::Participant participant;
    //! [options]
    norvane::Service<Question, Answer> service(norvane::ReplierParams(participant).service_name("Roots"), root_of,
                                               norvane::ServiceOptions<Answer>().on_error(error_of));
    //! [options]
    //! [requester]
    norvane::Requester<Question, Answer> requester(norvane::RequesterParams(participant).service_name("Roots"));
    for (const double number : {9.0, -1.0}) {
        const Answer answer = requester.call({number});
        if (answer.root.has_value()) {
            std::printf("the root of %g is %g\n", number, *answer.root);
        } else {
            std::printf("the root of %g: %s\n", number, answer.error.c_str());
        }
    }
    //! [requester]
    service.stop();  // what a service counts is complete once it has stopped
    return service.stats().handled == 1 && service.stats().failed == 1 ? 0 : 1;
}

int main() {
    try {
        return run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "error_reply: %s\n", error.what());
        return 1;
    }
}
