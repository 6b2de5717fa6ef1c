// SPDX-License-Identifier: Apache-2.0
// Two machines: a service on one that says where it is, and a requester on another. What must be right between them: README.md.
#include <unistd.h>

#include <boost/describe.hpp>
#include <chrono>
#include <cstdio>
#include <exception>
#include <optional>
#include <string>

#include "norvane/norvane.hpp"

struct Where {
    std::string from;
};
BOOST_DESCRIBE_STRUCT(Where, (), (from))

struct Here {
    std::string host;
    std::string asked_from;
};
BOOST_DESCRIBE_STRUCT(Here, (), (host, asked_from))

std::string host_name() {
    char name[256] = {};
    return gethostname(name, sizeof name - 1) == 0 ? name : "somewhere";
}

// Asks ten times. Returns whether all answers were to the questions.
bool ask(DDSDomainParticipant* participant) {
    norvane::Requester<Where, Here> requester(norvane::RequesterParams(participant).service_name("Whereabouts"));
    bool all_right = true;
    for (int number = 0; number < 10; ++number) {
        const std::string from = host_name() + " " + std::to_string(number);
        const auto start = std::chrono::steady_clock::now();
        const Here here = requester.call({from});  // the first one waits until the machines have found each other
        const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - start;
        std::printf("answered by %s after %.3f ms\n", here.host.c_str(), taken.count());
        all_right = all_right && here.asked_from == from;
    }
    return all_right;
}

int main(int argc, char** argv) {
    const std::string role = argc > 1 ? argv[1] : "both";
    if (role != "service" && role != "requester" && role != "both") {
        std::fprintf(stderr, "usage: two_hosts [service | requester | both] [own address] [peer,...]\n");
        return 2;
    }
    try {
        norvane::ParticipantParams params;
        //! [network]
        params.engine("fastdds").property("norvane.fastdds.interfaces", argc > 2 ? argv[2] : "127.0.0.1");
        if (argc > 3) {  // where multicast does not get through
            params.property("norvane.fastdds.initial_peers", argv[3]);
        }
        //! [network]
        norvane::Participant participant(params);
        std::optional<norvane::Service<Where, Here>> service;
        if (role != "requester") {
            service.emplace(norvane::ReplierParams(participant).service_name("Whereabouts"), [](const Where& where) {
                return Here{host_name(), where.from};
            });
        }
        if (role == "service") {
            std::printf("serving until Enter\n");
            std::getchar();
            return service->drain() ? 0 : 1;
        }
        return ask(participant) ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "two_hosts: %s\n", error.what());  // says why, as far as it is known
        return 1;
    }
}
