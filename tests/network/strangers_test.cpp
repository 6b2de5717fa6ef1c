// SPDX-License-Identifier: Apache-2.0
// Datagrams of programs that are no peers. Each of these ends a process on Fast DDS 2.9, or keeps it busy for good.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "network/PeerProcess.hpp"
#include "network/Questions.hpp"
#include "support/Seed.hpp"
#include "support/ServiceFixture.hpp"
#include "support/TextFixture.hpp"

namespace norvane::test {
namespace {

class Strangers : public TextFixture {
protected:
    /// To each port that a participant of the domain may have.
    void send_to_all(const std::string& datagram) const {
        const int out = ::socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in to = {};
        to.sin_family = AF_INET;
        to.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
        for (int port = 7410 + 250 * _domain; port < 7430 + 250 * _domain; ++port) {
            to.sin_port = ::htons(static_cast<std::uint16_t>(port));
            ::sendto(out, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
        }
        ::close(out);
    }
};
INSTANTIATE_TEST_SUITE_P(Engine, Strangers, ::testing::Values("fastdds"), engine_of_test);

std::string octets(const char* digits) {
    std::string all;
    for (; *digits != '\0'; digits += *digits == ' ' ? 1 : 2) {
        if (*digits != ' ') {
            all += static_cast<char>(std::stoi(std::string(digits, 2), nullptr, 16));
        }
    }
    return all;
}

TEST_P(Strangers, neither_end_a_process_nor_keep_it_from_answering) {
    const struct {
        const char* what;
        const char* head;  // of a submessage, up to the reader
        const char* rest;  // behind the writer
    } ROWS[] = {
        {"statistics that do not end the message", "80013800 00000000",
         "000000000000000000000000 000000000000000000000000"
         "000000000000000000000000 000000000000000000000000 01010000"},
        {"a heartbeat far ahead", "07011c00 00000000", "00000040 01000000 00000040 02000000 ffffff7f"},
        {"a heartbeat far ahead, where a writer can get to", "07011c00 00000000", "80000000 01000000 80000000 00000000 ffffff7f"},
        {"a gap without an end", "08011c00 00000000", "00000000 01000000 00000040 00000000 00000000"},
        {"parameters behind the end of their submessage", "15072c00 00001000 00000000",
         "00000000 05000000 00220000 00220000 00220000 00220000 00220000 00220000"
         "15010800 00000000 00000000 01000000"},
    };
    for (const auto& row : ROWS) {
        SCOPED_TRACE(row.what);
        PeerProcess replier("echo", {std::to_string(_domain), "S", "!"});
        TextRequester requester(RequesterParams(&_participant).service_name("S"));
        EXPECT_EQ("x!", requester.call("x", PATIENCE));
        const DDS_InstanceHandle_t& writer = requester.get_request_datawriter()->get_instance_handle();
        const std::string guid(reinterpret_cast<const char*>(writer.value), sizeof writer.value);
        send_to_all(octets("52545053 0203010f") + guid.substr(0, 12) + octets(row.head) + guid.substr(12) + octets(row.rest));
        EXPECT_NO_THROW(
            EXPECT_EQ("y!", TextRequester(RequesterParams(&_participant).service_name("S")).call("y", std::chrono::seconds(5))));
        if (HasFailure()) {
            replier.kill();
        }
    }
}

// Genuine traffic, a third of which is changed on the way, in both directions. Ten minutes with ./test --long.
TEST(TamperedTraffic, ends_no_process_and_stops_no_newcomer) {
    DDSLog_g_instrumentationMask = 0;
    const unsigned seed = test_seed();
    const auto tampered = [&](unsigned number) {
        return on_loopback(domain_of_test())
            .property("norvane.fastdds.faults", "tamper=0.3;dup=0.1;seed=" + std::to_string(seed + number));
    };
    const auto answers = [](Asker& requester, const Question& question, std::chrono::milliseconds timeout) {
        try {
            return requester.call(question, timeout).number == question.number;
        } catch (const std::exception&) {
            return false;
        }
    };
    PeerProcess replier("oracle", words_of(tampered(0), {"S", "!"}));
    const auto end =
        std::chrono::steady_clock::now() + std::chrono::seconds(std::getenv("NORVANE_TEST_REPEATS") != nullptr ? 3 * repeats() : 2);
    int answered = 0;
    unsigned rounds = 0;
    while (std::chrono::steady_clock::now() < end || (answered == 0 && rounds < 20)) {
        const Participant participant(tampered(++rounds));
        Asker requester(RequesterParams(participant).service_name("S"));
        if (!answers(requester, {0, "x"}, std::chrono::seconds(2))) {
            continue;
        }
        for (std::int32_t number = 1; number <= 50; ++number) {
            answered +=
                answers(requester, {number, number % 5 == 0 ? "octets 200000" : "x"}, std::chrono::milliseconds(50)) ? 1 : 0;
        }
    }
    std::printf("%u rounds, %d of %u calls answered\n", rounds, answered, 50 * rounds);
    EXPECT_GT(answered, 0);
    EXPECT_NE("(nothing)", replier.ask("how many"));
    const Participant newcomer(on_loopback(domain_of_test()));
    EXPECT_TRUE(eventually([&] {
        Asker requester(RequesterParams(newcomer).service_name("S"));
        return answers(requester, {1, "x"}, std::chrono::seconds(1));
    }));
}

}  // namespace
}  // namespace norvane::test
