// SPDX-License-Identifier: Apache-2.0
#include "StageProcess.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>

#include "Placement.hpp"

namespace bench {

namespace {

constexpr const char* SERVE_OPTION = "--serve-stage";
constexpr int CHILD_SOCKET = 3;
constexpr int ANSWER_DEADLINE_MS = 20000;
constexpr int EXIT_DEADLINE_MS = 5000;

/// The child's answer to one request to measure.
struct Answer {
    bool measured;
    Values values;
    char complaint[512];
};

/// Confines the calling process to the last `count` processors of those it may use: the first one serves most interrupts.
void confine_process(int count) {
    cpu_set_t chosen = allowed_processors();
    for (int processor = 0; CPU_COUNT(&chosen) > count; ++processor) {
        CPU_CLR(processor, &chosen);
    }
    if (CPU_COUNT(&chosen) < count) {
        throw std::runtime_error("needs " + std::to_string(count) + " processors");
    }
    if (sched_setaffinity(0, sizeof chosen, &chosen) != 0) {
        throw std::runtime_error("the process could not be confined to " + std::to_string(count) + " processors");
    }
}

[[noreturn]] void become_stage(const Question& question, std::size_t stage) {
    // A benchmark that is interrupted must not leave children behind.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (question.stages[stage].spin == Spin::OFF) {
        setenv("NORVANE_SPIN", "off", 1);
    } else {
        unsetenv("NORVANE_SPIN");
    }
    const std::string index = std::to_string(stage);
    execl("/proc/self/exe", "norvane_benchmark", SERVE_OPTION, question.name.c_str(), index.c_str(), static_cast<char*>(nullptr));
    _exit(127);
}

const Stage& find_stage(const std::string& question_name, const std::string& index) {
    for (const Question* question : Question::all()) {
        if (question->name == question_name) {
            return question->stages.at(std::stoul(index));
        }
    }
    throw std::runtime_error("no question \"" + question_name + "\"");
}

void answer_with(const Answer& answer) {
    if (send(CHILD_SOCKET, &answer, sizeof answer, MSG_NOSIGNAL) != static_cast<ssize_t>(sizeof answer)) {
        throw std::runtime_error("the parent is gone");
    }
}

}  // namespace

StageProcess::StageProcess(const Question& question, std::size_t stage) {
    int sockets[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sockets) != 0) {
        throw std::runtime_error("no socket pair for the child");
    }
    _child = fork();
    if (_child == 0) {
        // dup2 onto the same number would leave close-on-exec set.
        if (sockets[1] == CHILD_SOCKET ? fcntl(CHILD_SOCKET, F_SETFD, 0) < 0 : dup2(sockets[1], CHILD_SOCKET) < 0) {
            _exit(127);
        }
        become_stage(question, stage);
    }
    close(sockets[1]);
    _socket = sockets[0];
    if (_child < 0) {
        close(_socket);
        throw std::runtime_error("the child could not be started");
    }
    try {
        measure();
    } catch (...) {
        end();
        throw;
    }
}

StageProcess::~StageProcess() { end(); }

void StageProcess::end() noexcept {
    // The child sees the closed socket, tears its probe down, and exits.
    shutdown(_socket, SHUT_RDWR);
    close(_socket);
    for (int waited_ms = 0; waitpid(_child, nullptr, WNOHANG) == 0; ++waited_ms) {
        if (waited_ms == EXIT_DEADLINE_MS) {
            kill(_child, SIGKILL);
            waitpid(_child, nullptr, 0);
            return;
        }
        usleep(1000);
    }
}

Values StageProcess::measure() {
    const char request = 'm';
    pollfd readable = {_socket, POLLIN, 0};
    Answer answer;
    if (send(_socket, &request, 1, MSG_NOSIGNAL) != 1 || poll(&readable, 1, ANSWER_DEADLINE_MS) < 0) {
        throw std::runtime_error("the measuring process is gone");
    }
    if (readable.revents == 0) {
        throw std::runtime_error("the measuring process hangs");
    }
    if (recv(_socket, &answer, sizeof answer, 0) != static_cast<ssize_t>(sizeof answer)) {
        throw std::runtime_error("the measuring process died");
    }
    if (!answer.measured) {
        throw std::runtime_error(answer.complaint);
    }
    return answer.values;
}

bool StageProcess::serve(int argc, char** argv, int* exit_code) {
    if (argc != 4 || std::strcmp(argv[1], SERVE_OPTION) != 0) {
        return false;
    }
    *exit_code = 1;
    try {
        const Stage& stage = find_stage(argv[2], argv[3]);
        std::unique_ptr<Probe> probe;
        char request;
        while (recv(CHILD_SOCKET, &request, 1, 0) == 1) {
            Answer answer = {};
            try {
                if (!probe) {
                    confine_process(stage.processors == Processors::ONE ? 1 : 2);
                    probe = stage.make_probe();
                }
                answer.values = probe->measure();
                answer.measured = true;
            } catch (const std::exception& failure) {
                std::strncpy(answer.complaint, failure.what(), sizeof answer.complaint - 1);
            }
            answer_with(answer);
        }
        *exit_code = 0;
    } catch (const std::exception&) {
        // The parent is gone, or finds the socket closed and reports that.
    }
    return true;
}

}  // namespace bench
