// SPDX-License-Identifier: Apache-2.0
// The peers of these tests that answer questions ("oracle") and ask them ("asker"). Arguments: service; the text of the answers,
// or the name of who asks; the participant's domain and properties as `words_of` gives them, and any of
//   early    says that it is ready before it has joined, so that the next peer is started meanwhile
//   named    writes under a GUID that is always the same
//   queue=N  of the oracle: so many requests are queued at most
//   calls=N  of the asker: it calls so often at once, without being told to, each time with a new requester
//   busy=N   of the asker: so many threads call without a pause, until the input ends
//   pace=N   of these threads: milliseconds between their calls
#include <algorithm>
#include <atomic>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "network/PeerProcess.hpp"
#include "network/Questions.hpp"

namespace norvane::test {
namespace {

class Told {
public:
    explicit Told(const std::vector<std::string>& arguments) : _arguments(arguments) { say_ready(has("early")); }
    void joined() const { say_ready(!has("early")); }
    bool has(const std::string& word) const { return std::count(_arguments.begin(), _arguments.end(), word) != 0; }
    int number(const std::string& name) const {
        for (const std::string& each : _arguments) {
            if (each.compare(0, name.size() + 1, name + "=") == 0) {
                return std::stoi(each.substr(name.size() + 1));
            }
        }
        return 0;
    }
    const std::string& service() const { return _arguments[0]; }
    const std::string& text() const { return _arguments[1]; }
    ParticipantParams participant() const {
        ParticipantParams params = ParticipantParams().domain_id(number("domain"));
        for (const std::string& each : _arguments) {
            if (each.find('.') < each.find('=') && each.find('=') != std::string::npos) {
                params.property(each.substr(0, each.find('=')), each.substr(each.find('=') + 1));
            }
        }
        return params;
    }
    DDS_DataWriterQos writer_qos() const {
        DDS_DataWriterQos qos = request_reply_writer_qos();
        qos.protocol.virtual_guid = has("named") ? DDS_GUID_t{{7, 7, 7}} : DDS_GUID_AUTO;
        return qos;
    }

private:
    static void say_ready(bool now) {
        if (now) {
            std::cout << "ready" << std::endl;
        }
    }

    const std::vector<std::string> _arguments;
};

// Any line: how many questions it has handled. One of "octets N" gets an answer of so many, one of "silence" none.
int oracle(const std::vector<std::string>& arguments) {
    const Told told(arguments);
    const Participant participant(told.participant());
    const DDS_DataWriterQos qos = told.writer_qos();
    ReplierParams params = ReplierParams(participant).service_name(told.service()).datawriter_qos(qos);
    if (told.number("queue") != 0) {
        params.max_queued_requests(told.number("queue"));
    }
    const Oracle service(params, [&](const Question& question) {
        History::note("executed", question.of, question.number);
        if (question.of == "silence") {
            DDSLog_g_instrumentationMask = 0;  // it fails on purpose
            throw std::runtime_error("no answer");
        }
        const bool is_sized = question.of.compare(0, 7, "octets ") == 0;
        return Answer{question.number, question.of, is_sized ? std::string(std::stoul(question.of.substr(7)), 'x') : told.text()};
    });
    told.joined();
    return answer_lines([&](const std::string&) { return std::to_string(service.stats().handled + service.stats().failed); },
                        false);
}

// "outcome": how the calls at once went; any other line: calls once more, as the one whom it names, and says how that went.
int asker(const std::vector<std::string>& arguments) {
    const Told told(arguments);
    const Participant participant(told.participant());
    const DDS_DataWriterQos qos = told.writer_qos();
    const RequesterParams params = RequesterParams(participant).service_name(told.service()).datawriter_qos(qos);
    Asker requester(params);
    told.joined();
    std::string outcome = "ok";
    for (int call = 0; call < told.number("calls") && outcome == "ok"; ++call) {
        Asker newcomer(params);
        outcome = ask_all(newcomer, told.text(), 1);
    }
    std::atomic<bool> ended{false};
    std::vector<std::thread> busy(static_cast<std::size_t>(told.number("busy")));
    for (std::thread& each : busy) {
        each = std::thread([&] {
            while (!ended) {
                ask_all(requester, told.text(), 1);
                std::this_thread::sleep_for(std::chrono::milliseconds(told.number("pace")));
            }
        });
    }
    const int code =
        answer_lines([&](const std::string& who) { return who == "outcome" ? outcome : ask_all(requester, who, 1); }, false);
    ended = true;
    for (std::thread& each : busy) {
        each.join();
    }
    return code;
}

const KnownRole ORACLE("oracle", oracle);
const KnownRole ASKER("asker", asker);

}  // namespace
}  // namespace norvane::test
