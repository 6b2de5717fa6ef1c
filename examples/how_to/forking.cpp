// SPDX-License-Identifier: Apache-2.0
// How to fork: a child makes participants of its own, and leaves those of its parent alone.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <string>

#include "norvane/norvane.hpp"

typedef norvane::Requester<std::string, std::string> TextRequester;
typedef norvane::Service<std::string, std::string> TextService;

bool call_in_a_participant_of_ones_own() {
    norvane::Participant participant;
    TextService service(norvane::ReplierParams(participant).service_name("Echo"), [](const std::string& text) { return text; });
    TextRequester requester(norvane::RequesterParams(participant).service_name("Echo"));
    return requester.call("hello") == "hello";
}

//! [fork]
// Returns whether the child ended well. `work` makes its participants itself.
template <class Work>
bool run_in_a_child(Work work) {
    const pid_t child = ::fork();
    if (child == 0) {
        bool done = false;
        try {
            done = work();
        } catch (const std::exception& error) {
            std::fprintf(stderr, "child: %s\n", error.what());
        }
        ::_exit(done ? 0 : 1);  // not exit: it would destroy what belongs to the parent
    }
    int status = 0;
    return child > 0 && ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}
//! [fork]

int main() {
    try {
        norvane::Participant participant;  // of the parent
        TextService service(norvane::ReplierParams(participant).service_name("Upper"),
                            [](const std::string& text) { return text; });
        TextRequester requester(norvane::RequesterParams(participant).service_name("Upper"));
        const bool before = requester.call("before") == "before";
        const bool in_child = run_in_a_child(call_in_a_participant_of_ones_own);
        return before && in_child && requester.call("after") == "after" ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "how_to_forking: %s\n", error.what());
        return 1;
    }
}
