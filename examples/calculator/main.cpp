// SPDX-License-Identifier: Apache-2.0
// A calculator: a replier and a requester of the service "Calculator" in one process, the replier on a thread of its own.
// Shows that every request gets its own reply, and that an expression that cannot be evaluated is answered too: with an error.
#include <muParser.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "norvane/norvane.hpp"

namespace calculator {

// Requests and replies are copied as bytes: texts have a fixed size.
struct Request {
    char expression[256];
};

struct Reply {
    bool ok;
    double value;       // when ok
    char message[256];  // when not
};

template <std::size_t SIZE>
void put_text(char (&place)[SIZE], const std::string& text) {
    place[text.copy(place, SIZE - 1)] = '\0';
}

Reply evaluate(mu::Parser& parser, const Request& request) {
    Reply reply{};
    try {
        // The end is looked for, since a requester need not have set one.
        parser.SetExpr(std::string(request.expression, strnlen(request.expression, sizeof request.expression)));
        reply.value = parser.Eval();
        reply.ok = std::isfinite(reply.value);
        put_text(reply.message, reply.ok ? "" : "the result is not a finite number (a division by zero?)");
    } catch (const mu::Parser::exception_type& error) {
        put_text(reply.message, error.GetMsg());
    }
    return reply;
}

//! [replier]
void serve(norvane::Replier<Request, Reply>& replier, const std::atomic<bool>& stop) {
    mu::Parser parser;
    while (!stop) {
        if (!replier.wait_for_requests(std::chrono::milliseconds(100))) {
            continue;  // nothing asked: look at the flag again
        }
        for (const auto& request : replier.take_requests()) {
            replier.send_reply(evaluate(parser, request.data()), request.identity());
        }
    }
}
//! [replier]

// The replier with its thread.
class Service {
public:
    explicit Service(DDSDomainParticipant* participant)
        : _replier(norvane::ReplierParams(participant).service_name("Calculator")), _thread([this] { run(); }) {}
    ~Service() {
        _stop = true;
        _thread.join();
    }

private:
    void run() {
        try {
            serve(_replier, _stop);
        } catch (const std::exception& error) {
            std::fprintf(stderr, "calculator: the replier failed: %s\n", error.what());
        }
    }

    norvane::Replier<Request, Reply> _replier;
    std::atomic<bool> _stop{false};
    std::thread _thread;
};

std::string to_text(const DDS_SampleIdentity_t& identity) {
    char octet[3];
    std::string text;
    for (const DDS_Octet value : identity.writer_guid.value) {
        std::snprintf(octet, sizeof octet, "%02x", value);
        text += octet;
    }
    return text + " " + std::to_string(static_cast<long long>(identity.sequence_number.high) << 32 | identity.sequence_number.low);
}

// Calls the service once for each expression. Returns the number of calls that got no reply.
int call_all(DDSDomainParticipant* participant, const std::vector<std::string>& expressions,
             std::chrono::duration<double> max_wait) {
    std::vector<double> microseconds;
    int lost = 0;
    //! [requester]
    norvane::Requester<Request, Reply> requester(norvane::RequesterParams(participant).service_name("Calculator"));
    for (const std::string& expression : expressions) {
        Request request{};
        put_text(request.expression, expression);

        const auto start = std::chrono::steady_clock::now();
        const DDS_SampleIdentity_t id = requester.send_request(request);
        const bool answered = requester.wait_for_replies(max_wait, id);
        const auto replies = requester.take_replies(id);
        const std::chrono::duration<double, std::micro> taken = std::chrono::steady_clock::now() - start;

        std::printf("request %s   %s\n", to_text(id).c_str(), request.expression);
        for (const auto& reply : replies) {
            if (reply.data().ok) {
                std::printf("  reply  %.15g\n", reply.data().value);
            } else {
                std::printf("  error  %s\n", reply.data().message);
            }
        }
        //! [requester]
        if (answered) {
            microseconds.push_back(taken.count());
        } else {
            std::printf("  no reply within %g s\n", max_wait.count());
            ++lost;
        }
    }
    std::sort(microseconds.begin(), microseconds.end());
    std::printf("calls %zu, lost %d, median time ", expressions.size(), lost);
    if (microseconds.empty()) {
        std::printf("unknown\n");
    } else {
        std::printf("%.1f us\n", (microseconds[(microseconds.size() - 1) / 2] + microseconds[microseconds.size() / 2]) / 2);
    }
    return lost;
}

// A membership in the domain, left in good order.
class Membership {
public:
    Membership()
        : _participant(DDSDomainParticipantFactory::get_instance()->create_participant(0, DDS_PARTICIPANT_QOS_DEFAULT, nullptr,
                                                                                       DDS_STATUS_MASK_NONE)) {
        if (_participant == nullptr) {
            throw std::runtime_error("no participant could be made: the log says why");
        }
    }
    ~Membership() {
        _participant->delete_contained_entities();
        DDSDomainParticipantFactory::get_instance()->delete_participant(_participant);
    }
    Membership(const Membership&) = delete;
    Membership& operator=(const Membership&) = delete;
    DDSDomainParticipant* participant() const { return _participant; }

private:
    DDSDomainParticipant* _participant;
};

int run(int argc, char** argv) {
    constexpr std::size_t MAX_LENGTH = sizeof(Request::expression) - 1;
    std::vector<std::string> expressions;
    double max_wait = 10;
    CLI::App app(
        "Evaluates expressions by request and reply: each is sent to the service \"Calculator\", and the reply is printed.");
    app.add_option(
           "expression", expressions,
           "Expressions such as \"6*7\" or \"sqrt(2)\", at most " + std::to_string(MAX_LENGTH) +
               " characters each; without any, a set that shows results and errors. \"--\" goes before one that begins with \"-\".")
        ->check([](const std::string& text) {
            return text.size() <= MAX_LENGTH
                       ? std::string()
                       : "an expression of " + std::to_string(text.size()) + " characters does not fit a request: \"" +
                             text.substr(0, 20) + "...\"; at most " + std::to_string(MAX_LENGTH) + " do";
        });
    app.add_option("--timeout", max_wait, "Longest time to wait for a reply, in seconds")
        ->capture_default_str()
        ->check(CLI::Range(0.001, 86400.0));
    app.footer("The exit code is 0 when every request was answered; an error reply is an answer.");
    CLI11_PARSE(app, argc, argv);
    if (expressions.empty()) {
        expressions = {"6*7", "(1+2)*3-4", "sqrt(2)^2", "10/4", "2*(3+", "1/0", "unknown+1"};
    }

    const Membership membership;
    Service service(membership.participant());
    return call_all(membership.participant(), expressions, std::chrono::duration<double>(max_wait)) == 0 ? 0 : 1;
}

}  // namespace calculator

int main(int argc, char** argv) {
    try {
        return calculator::run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "calculator: %s\n", error.what());
        return 1;
    }
}
