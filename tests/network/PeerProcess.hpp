// SPDX-License-Identifier: Apache-2.0
// Another process in a test: this very program in another role, told what to do line by line. It ends with its owner, one way or
// another.
// Thread rule: one thread at a time.
#ifndef NORVANE_TESTS_NETWORK_PEERPROCESS_HPP
#define NORVANE_TESTS_NETWORK_PEERPROCESS_HPP

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace norvane::test {

/// What a process does instead of tests. It reads lines from the standard input, answers each with one, and ends with the input.
typedef int (*Role)(const std::vector<std::string>& arguments);

/// Makes a role known. At namespace scope.
struct KnownRole {
    KnownRole(const std::string& name, Role role);
};

/// What most roles do at last: says that it is ready, unless that was said, and answers each line.
/// @return the exit code.
int answer_lines(const std::function<std::string(const std::string&)>& answer, bool says_ready = true);

/// What a process occupies.
struct Resources {
    long memory_kb;  ///< Resident.
    long threads;
    long descriptors;
};
Resources resources_of(pid_t process);

class PeerProcess {
public:
    /// Starts it, and waits until it has said that it is ready.
    PeerProcess(const std::string& role, const std::vector<std::string>& arguments);
    /// Ends it in good order, unless it was killed. A peer that ends otherwise than well fails the test.
    ~PeerProcess();
    PeerProcess(const PeerProcess&) = delete;
    PeerProcess& operator=(const PeerProcess&) = delete;

    /// @return its answer; "(nothing)" when none comes in time.
    std::string ask(const std::string& line);
    /// Ends it without a word to anybody.
    void kill();
    /// Stops it for a while, so that it does not answer at all.
    void stop() const;
    void go_on() const;
    pid_t id() const { return _process; }

private:
    std::string read_line();
    int wait_for_end();

    pid_t _process = -1;
    int _input = -1;
    int _output = -1;
    std::string _rest;
};

inline std::unique_ptr<PeerProcess> start_peer(const std::string& role, const std::vector<std::string>& arguments) {
    return std::make_unique<PeerProcess>(role, arguments);
}

}  // namespace norvane::test

#endif
