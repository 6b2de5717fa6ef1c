// SPDX-License-Identifier: Apache-2.0
// Two processes that exchange requests and replies of 64 octets over UDP for some seconds, to be looked at with a profiler.
// usage: norvane_network_profile <seconds> <calls in flight>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <stdexcept>

#include "benchmarks/Stopwatch.hpp"
#include "benchmarks/network/Link.hpp"
#include "benchmarks/network/OwnService.hpp"
#include "benchmarks/network/Parcel.hpp"

namespace {

constexpr bench::Link LINK = {bench::Transport::UDP, 0};

// Until it is ended.
[[noreturn]] void answer() {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const bench::OwnReplier replier(LINK);
    for (;;) {
        ::pause();
    }
}

// @return calls that were answered.
std::uint64_t call_for(double seconds, std::uint64_t in_flight) {
    bench::OwnRequesters requesters(LINK);
    bench::Parcel parcel = bench::make_parcel(64);
    std::uint64_t sent = 0;
    std::uint64_t answered = 0;
    const auto start = bench::Clock::now();
    while (bench::ns_since(start) < seconds * 1e9) {
        for (; sent < answered + in_flight; ++sent) {
            parcel.number = sent;
            requesters.send(parcel);
        }
        answered += requesters.collect(answered);
    }
    std::cout << answered << " calls, " << in_flight << " in flight: " << static_cast<double>(answered) / seconds << " a second\n";
    return answered;
}

}  // namespace

int main(int count, char** words) {
    const double seconds = count == 3 ? std::strtod(words[1], nullptr) : 0;
    const long in_flight = count == 3 ? std::strtol(words[2], nullptr, 10) : 0;
    if (!(seconds > 0) || in_flight < 1) {
        std::cerr << "usage: norvane_network_profile <seconds> <calls in flight>\n";
        return 2;
    }
    // Both are children: a link is between children of one process.
    if (::fork() == 0) {
        answer();
    }
    const pid_t requester = ::fork();
    if (requester == 0) {
        try {
            return call_for(seconds, static_cast<std::uint64_t>(in_flight)) > 0 ? 0 : 1;
        } catch (const std::exception& failure) {
            std::cerr << failure.what() << "\n";
            return 1;
        }
    }
    int status = -1;
    ::waitpid(requester, &status, 0);
    return status == 0 ? 0 : 1;
}
