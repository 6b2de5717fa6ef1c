// SPDX-License-Identifier: Apache-2.0
#include "network/PeerProcess.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <stdexcept>

#include "support/History.hpp"

namespace norvane::test {

namespace {

// Several large answers over a wire with a delay may take half a minute.
constexpr int PATIENCE_MS = 100 * 1000;

std::map<std::string, Role>& roles() {
    static std::map<std::string, Role> all;
    return all;
}

}  // namespace

KnownRole::KnownRole(const std::string& name, Role role) { roles()[name] = role; }

int answer_lines(const std::function<std::string(const std::string&)>& answer, bool says_ready) {
    if (says_ready) {
        std::cout << "ready" << std::endl;
    }
    for (std::string line; std::getline(std::cin, line);) {
        std::cout << answer(line) << std::endl;
    }
    return 0;
}

PeerProcess::PeerProcess(const std::string& role, const std::vector<std::string>& arguments) {
    int to_peer[2];
    int from_peer[2];
    // Not inherited: a later peer that holds an earlier one's input open would keep it from ending.
    if (::pipe2(to_peer, O_CLOEXEC) != 0 || ::pipe2(from_peer, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipes");
    }
    std::vector<const char*> words = {"peer", "--role", role.c_str()};
    for (const std::string& argument : arguments) {
        words.push_back(argument.c_str());
    }
    words.push_back(nullptr);
    _process = ::fork();
    if (_process == 0) {
        // Between fork and exec: only what a signal handler may do.
        ::dup2(to_peer[0], STDIN_FILENO);
        ::dup2(from_peer[1], STDOUT_FILENO);
        ::execv("/proc/self/exe", const_cast<char* const*>(words.data()));
        ::_exit(127);
    }
    ::close(to_peer[0]);
    ::close(from_peer[1]);
    _input = to_peer[1];
    _output = from_peer[0];
    EXPECT_EQ("ready", read_line()) << role;
}

PeerProcess::~PeerProcess() {
    ::close(_input);
    if (_process > 0) {
        const int status = wait_for_end();
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the peer ended with status " << status;
    }
    ::close(_output);
}

std::string PeerProcess::ask(const std::string& line) {
    const std::string text = line + "\n";
    EXPECT_EQ(static_cast<ssize_t>(text.size()), ::write(_input, text.data(), text.size()));
    return read_line();
}

void PeerProcess::kill() {
    const pid_t process = _process;
    ::kill(process, SIGKILL);
    wait_for_end();
    History::note("killed", "", 0, "", process);  // after all that it has noted
}

void PeerProcess::stop() const {
    History::note("stopped", "", 0, "", _process);
    ::kill(_process, SIGSTOP);
}
void PeerProcess::go_on() const {
    ::kill(_process, SIGCONT);
    History::note("continued", "", 0, "", _process);
}

Resources resources_of(pid_t process) {
    const std::string folder = "/proc/" + std::to_string(process);
    const auto count = [&](const char* name) { return std::distance(std::filesystem::directory_iterator(folder + name), {}); };
    long pages = 0;
    std::ifstream(folder + "/statm") >> pages >> pages;
    return {pages * ::sysconf(_SC_PAGESIZE) / 1024, count("/task"), count("/fd")};
}

std::string PeerProcess::read_line() {
    for (;;) {
        const std::size_t end = _rest.find('\n');
        if (end != std::string::npos) {
            const std::string line = _rest.substr(0, end);
            _rest.erase(0, end + 1);
            return line;
        }
        pollfd readable = {_output, POLLIN, 0};
        char octets[4096];
        const ssize_t count = ::poll(&readable, 1, PATIENCE_MS) == 1 ? ::read(_output, octets, sizeof octets) : 0;
        if (count <= 0) {
            return "(nothing)";
        }
        _rest.append(octets, static_cast<std::size_t>(count));
    }
}

int PeerProcess::wait_for_end() {
    int status = 0;
    ::waitpid(_process, &status, 0);
    _process = -1;
    return status;
}

int play(const std::string& role, const std::vector<std::string>& arguments) {
    return roles().count(role) == 0 ? 2 : roles()[role](arguments);
}

}  // namespace norvane::test

namespace {

// On a continuous integration machine a tool or permission that is missing is a failure: skipped tests would look like passed ones.
class NothingSkipped final : public ::testing::EmptyTestEventListener {
    void OnTestEnd(const ::testing::TestInfo& test) override {
        const ::testing::TestResult& result = *test.result();
        for (int i = 0; i < result.total_part_count(); ++i) {
            const std::string reason = result.GetTestPartResult(i).message();
            if (result.GetTestPartResult(i).skipped() && reason.find("./test --long") == std::string::npos) {
                ADD_FAILURE() << "skipped although CI is true in the environment: " << reason;
            }
        }
    }
};

}  // namespace

int main(int count, char** words) {
    if (count >= 3 && std::string(words[1]) == "--role") {
        return norvane::test::play(words[2], std::vector<std::string>(words + 3, words + count));
    }
    // A peer that is gone is no reason to go.
    ::signal(SIGPIPE, SIG_IGN);
    ::testing::InitGoogleTest(&count, words);
    const char* const ci = std::getenv("CI");
    if (ci != nullptr && std::string(ci) == "true") {
        ::testing::UnitTest::GetInstance()->listeners().Append(new NothingSkipped);  // owned by it from here on
    }
    return RUN_ALL_TESTS();
}
