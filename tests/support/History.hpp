// SPDX-License-Identifier: Apache-2.0
// What the processes of a test did: calls as they were made, executed and ended, and processes that were killed or stopped. One file
// for all of them; a record is one write, so that what a process did before it was killed is there.
//
// A record is a line: nanoseconds, process, event, caller, number of the call, detail, with tabs between them. Thread rule: any
// thread at once.
#ifndef NORVANE_TESTS_SUPPORT_HISTORY_HPP
#define NORVANE_TESTS_SUPPORT_HISTORY_HPP

#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <utility>

namespace norvane::test {

class History {
public:
    /// Begins a history, for this process and those that it starts from now on.
    History() {
        ::close(::mkstemp(_path.data()));
        ::setenv(VARIABLE, _path.c_str(), 1);
    }
    ~History() {
        ::unsetenv(VARIABLE);
        ::unlink(_path.c_str());
    }
    History(const History&) = delete;
    History& operator=(const History&) = delete;

    /// Writes a record, if there is a history: "asked", with the milliseconds that the call may take; "executed"; "got", with caller
    /// and number of the answer; "failed", with the reason; "killed", "stopped" and "continued" of a process.
    static void note(const std::string& event, const std::string& caller = "", std::int64_t number = 0,
                     const std::string& detail = "", pid_t process = ::getpid()) {
        const char* const path = std::getenv(VARIABLE);
        if (path == nullptr) {
            return;
        }
        std::ostringstream line;
        line << std::chrono::steady_clock::now().time_since_epoch().count() << '\t' << process << '\t' << event << '\t' << caller
             << '\t' << number << '\t' << detail << '\n';
        if (!(std::ofstream(path, std::ios::app) << line.str() << std::flush)) {
            std::abort();  // a history with gaps proves nothing
        }
    }

    struct Judgement {
        int asked = 0;
        int answered = 0;
        std::string faults;  ///< The first few, a line each.
    };
    /// A call is at fault that got the answer of another; was answered without having been executed; was executed twice by one
    /// process, or without having been made; or did not end in its time, unless its process was killed. Time for which its process
    /// was stopped does not count. @param sure  what the names of callers begin with whose calls must not fail either.
    Judgement judge(const std::string& sure) const {
        constexpr std::int64_t MS = 1'000'000, SLACK = 2000 * MS;
        struct Call {
            std::int64_t deadline;
            std::set<pid_t> executed_by;
        };
        std::map<Id, Call> calls;
        std::map<pid_t, std::set<Id>> open;
        std::map<pid_t, std::int64_t> stopped;
        Judgement all;
        const auto fault = [&](const Id& id, const std::string& what) {
            if (all.faults.size() < 2000) {
                all.faults += "call " + std::to_string(id.second) + " of " + id.first + " " + what + "\n";
            }
        };
        std::ifstream file(_path);
        std::string word;
        for (std::string line; std::getline(file, line);) {
            std::istringstream words(line);
            std::int64_t ns = 0;
            pid_t process = 0;
            std::string event, detail;
            Id id;
            words >> ns >> process >> event;
            std::getline(words.ignore(), id.first, '\t');
            words >> id.second;
            std::getline(words.ignore(), detail);
            const auto call = calls.find(id);
            if (event == "asked") {
                ++all.asked;
                calls[id].deadline = ns + std::stoll(detail) * MS + SLACK;
                open[process].insert(id);
            } else if (event == "executed" && call == calls.end()) {
                fault(id, "was executed, and never made");
            } else if (event == "executed") {
                if (!call->second.executed_by.insert(process).second) {
                    fault(id, "was executed twice");
                }
            } else if (event == "got" || event == "failed") {
                open[process].erase(id);
                const bool is_own = detail == id.first + " " + std::to_string(id.second);
                all.answered += event == "got" ? 1 : 0;
                if (event == "failed" ? id.first.compare(0, sure.size(), sure) == 0 : !is_own) {
                    fault(id, event + ": " + detail);
                } else if (event == "got" && call->second.executed_by.empty()) {
                    fault(id, "was answered, and not executed");
                } else if (ns > call->second.deadline) {
                    fault(id, "ended " + std::to_string((ns - call->second.deadline + SLACK) / MS) + " ms late");
                }
            } else if (event == "killed") {
                open.erase(process);
            } else if (event == "stopped") {
                stopped[process] = ns;
            } else if (stopped.count(process) != 0) {
                for (const Id& each : open[process]) {
                    calls[each].deadline += ns - stopped[process];
                }
                stopped.erase(process);
            }
        }
        for (const auto& [process, ids] : open) {
            for (const Id& id : ids) {
                fault(id, "has not ended");
            }
        }
        return all;
    }

private:
    typedef std::pair<std::string, std::int64_t> Id;  // caller and number

    static constexpr const char* VARIABLE = "NORVANE_TEST_HISTORY";

    std::string _path = "/tmp/norvane_history_XXXXXX";
};

}  // namespace norvane::test

#endif
