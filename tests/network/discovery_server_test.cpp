// SPDX-License-Identifier: Apache-2.0
// Participants that look for each other at a discovery server, the one of Fast DDS's own tools, and nowhere else.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "network/PeerProcess.hpp"
#include "network/Questions.hpp"
#include "support/Eventually.hpp"

namespace norvane::test {
namespace {

using std::chrono::milliseconds;

// The program of the package fastdds-tools, until the input ends. Arguments: its number, its port.
int discovery_server(const std::vector<std::string>& arguments) {
    int output[2];
    if (::pipe2(output, O_CLOEXEC) != 0) {
        return 1;
    }
    const pid_t server = ::fork();
    if (server == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);  // whatever becomes of us
        ::dup2(output[1], STDOUT_FILENO);
        ::execlp("fast-discovery-server", "fast-discovery-server", "-i", arguments[0].c_str(), "-l", "127.0.0.1", "-p",
                 arguments[1].c_str(), static_cast<char*>(nullptr));
        ::_exit(127);
    }
    ::close(output[1]);
    std::string said;
    for (char octet = 0; said.find("Server is running") == std::string::npos && ::read(output[0], &octet, 1) == 1;) {
        said += octet;
    }
    answer_lines([&](const std::string&) { return said; }, said.find("Server is running") != std::string::npos);
    int status = -1;
    ::kill(server, SIGINT);
    if (!eventually([&] { return ::waitpid(server, &status, WNOHANG) == server; })) {
        return 1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

const KnownRole SERVER("discovery_server", discovery_server);

// One that nobody listens at now.
std::string free_port() {
    sockaddr_in address = {};
    socklen_t size = sizeof address;
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    const int socket = ::socket(AF_INET, SOCK_DGRAM, 0);
    EXPECT_EQ(0, ::bind(socket, reinterpret_cast<sockaddr*>(&address), size));
    EXPECT_EQ(0, ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size));
    ::close(socket);
    return std::to_string(::ntohs(address.sin_port));
}

TEST(DiscoveryServer, brings_those_together_who_look_at_it_and_is_not_needed_by_those_who_have_met) {
    if (std::system("command -v fast-discovery-server >/dev/null") != 0) {
        GTEST_SKIP() << "this machine does not have fast-discovery-server (package fastdds-tools)";
    }
    const std::string ports[] = {free_port(), free_port()};
    const std::string servers = "127.0.0.1:" + ports[0] + ", 127.0.0.1:" + ports[1];
    const ParticipantParams params = on_loopback(domain_of_test()).property("norvane.fastdds.discovery_server", servers);
    const auto oracle = words_of(params, {"Registered", ""});
    const auto first = start_peer("oracle", oracle);
    Participant participant(params);
    Asker asker(RequesterParams(participant).service_name("Registered"));
    const auto finds = [&](int repliers) { return eventually([&] { return asker.matched_repliers() == repliers; }); };

    EXPECT_FALSE(asker.wait_for_service(milliseconds(1000))) << "they have met without a server";
    // One of the two is enough, and not the first.
    auto server = start_peer("discovery_server", {"1", ports[1]});
    EXPECT_EQ("ok", ask_all(asker, "first", 3));
    server.reset();
    EXPECT_EQ("ok", ask_all(asker, "first", 3));
    // Another takes its place: newcomers are found, and who dies is missed.
    server = start_peer("discovery_server", {"0", ports[0]});
    const auto second = start_peer("oracle", oracle);
    EXPECT_TRUE(finds(2));
    first->kill();
    EXPECT_TRUE(finds(1));
    EXPECT_EQ("ok", ask_all(asker, "second", 3));
}

}  // namespace
}  // namespace norvane::test
