// SPDX-License-Identifier: Apache-2.0
// A calculator: a service and a requester of "Calculator", in one process or in two (--role).
// Shows that every request gets its own reply, and that an expression that cannot be evaluated is answered too: with an error.
#include <muParser.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <boost/describe.hpp>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <exception>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "norvane/norvane.hpp"

namespace calculator {

//! [types]
struct Request {
    std::string expression;
};
BOOST_DESCRIBE_STRUCT(Request, (), (expression))

struct Reply {
    std::string request_id;  // of the request that is answered, as the service saw it
    std::optional<double> value;
    std::string error;  // when there is no value
};
BOOST_DESCRIBE_STRUCT(Reply, (), (request_id, value, error))
//! [types]

std::string to_text(const DDS_GUID_t& writer, const DDS_SequenceNumber_t& number) {
    char octet[3];
    std::string text;
    for (const DDS_Octet value : writer.value) {
        std::snprintf(octet, sizeof octet, "%02x", value);
        text += octet;
    }
    return text + " " + std::to_string(static_cast<long long>(number.high) << 32 | number.low);
}

//! [handler]
// Evaluates on one worker: the parser needs no lock.
class Evaluator {
public:
    Reply operator()(const Request& request, const DDS_SampleInfo& info) {
        Reply reply;
        reply.request_id = to_text(info.original_publication_virtual_guid, info.original_publication_virtual_sequence_number);
        try {
            _parser.SetExpr(request.expression);
            const double value = _parser.Eval();
            if (std::isfinite(value)) {
                reply.value = value;
            } else {
                reply.error = "the result is not a finite number (a division by zero?)";
            }
        } catch (const mu::Parser::exception_type& error) {
            reply.error = error.GetMsg();
        }
        return reply;
    }

private:
    mu::Parser _parser;
};
//! [handler]

void print(const Reply& reply, const std::string& expression) {
    std::printf("request %s   %s\n", reply.request_id.c_str(), expression.c_str());
    if (reply.value.has_value()) {
        std::printf("  reply  %.15g\n", *reply.value);
    } else {
        std::printf("  error  %s\n", reply.error.c_str());
    }
}

// Calls the service once for each expression. Returns the number of calls that got no reply.
int call_all(DDSDomainParticipant* participant, const std::vector<std::string>& expressions,
             std::chrono::duration<double> max_wait) {
    std::vector<double> microseconds;
    int lost = 0;
    norvane::Requester<Request, Reply> requester(norvane::RequesterParams(participant).service_name("Calculator"));
    for (const std::string& expression : expressions) {
        try {
            const auto start = std::chrono::steady_clock::now();
            const Reply reply = requester.call({expression}, max_wait);
            const std::chrono::duration<double, std::micro> taken = std::chrono::steady_clock::now() - start;
            microseconds.push_back(taken.count());
            print(reply, expression);
        } catch (const norvane::TimeoutException& error) {
            std::printf("request unanswered   %s\n  no reply within %g s\n", expression.c_str(), max_wait.count());
            std::fprintf(stderr, "calculator: %s\n", error.what());  // says why, as far as it is known
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

// Serves until the process is told to end, and then loses no reply.
int serve(DDSDomainParticipant* participant) {
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    // Before the service: its threads inherit that the signals are not for them.
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    norvane::Service<Request, Reply> service(norvane::ReplierParams(participant).service_name("Calculator"), Evaluator());
    int signal = 0;
    sigwait(&ends, &signal);
    return service.drain() ? 0 : 1;
}

int run(int argc, char** argv) {
    std::vector<std::string> expressions;
    double max_wait = 10;
    std::string role = "both";
    std::string engine;
    CLI::App app(
        "Evaluates expressions by request and reply: each is sent to the service \"Calculator\", and the reply is printed.");
    app.add_option(
        "expression", expressions,
        "Expressions such as \"6*7\" or \"sqrt(2)\"; without any, a set that shows results and errors. \"--\" goes before "
        "one that begins with \"-\".");
    app.add_option("--timeout", max_wait, "Longest time to wait for a reply, in seconds")
        ->capture_default_str()
        ->check(CLI::Range(0.001, 86400.0));
    app.add_option("--role", role, "What this process is: both, the service (until SIGINT or SIGTERM), or the requester")
        ->capture_default_str()
        ->check(CLI::IsMember(std::set<std::string>{"both", "service", "requester"}));
    app.add_option("--engine", engine, "How to reach the other role: embedded (this process only) or fastdds");
    app.footer("The exit code is 0 when every request was answered; an error reply is an answer.");
    CLI11_PARSE(app, argc, argv);
    if (expressions.empty()) {
        expressions = {"6*7", "(1+2)*3-4", "sqrt(2)^2", "10/4", "2*(3+", "1/0", "unknown+1"};
    }

    // The roles may be two processes, but stay on this machine.
    norvane::Participant participant(
        norvane::ParticipantParams().engine(engine).property("norvane.fastdds.interfaces", "127.0.0.1"));
    if (role == "service") {
        return serve(participant);
    }
    std::optional<norvane::Service<Request, Reply>> service;
    if (role == "both") {
        service.emplace(norvane::ReplierParams(participant).service_name("Calculator"), Evaluator());
    }
    return call_all(participant, expressions, std::chrono::duration<double>(max_wait)) == 0 ? 0 : 1;
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
