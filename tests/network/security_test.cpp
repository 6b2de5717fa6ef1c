// SPDX-License-Identifier: Apache-2.0
// Secured domains, with credentials as examples/security makes them: who may call whom, what is refused, and what somebody on the
// wire can read.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "network/NetworkNamespace.hpp"
#include "network/PeerProcess.hpp"
#include "network/Questions.hpp"
#include "support/Eventually.hpp"
#include "support/LogCapture.hpp"
#include "support/Thrown.hpp"

// Fast DDS 2.9 forgets the certificate of each peer that it turns away, and the identity of a participant that it refuses. Nobody
// else uses libcrypto.
extern "C" [[gnu::visibility("default")]] const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() { return "leak:libcrypto\nleak:security::PKIDH\n"; }

namespace norvane::test {
namespace {

namespace files = std::filesystem;

// The folder of those who have none.
const std::string OPEN = "-";

//! [security]
// What a participant is told to be `name`, whose credentials lie in `folder` (an absolute path).
void secure(ParticipantParams& params, const std::string& folder, const std::string& name) {
    const std::string in_folder = "file://" + folder + "/";
    params.property("dds.sec.auth.plugin", "builtin.PKI-DH")
        .property("dds.sec.auth.builtin.PKI-DH.identity_ca", in_folder + "authority.pem")
        .property("dds.sec.auth.builtin.PKI-DH.identity_certificate", in_folder + name + ".pem")
        .property("dds.sec.auth.builtin.PKI-DH.private_key", in_folder + name + ".key")
        .property("dds.sec.access.plugin", "builtin.Access-Permissions")
        .property("dds.sec.access.builtin.Access-Permissions.permissions_ca", in_folder + "authority.pem")
        .property("dds.sec.access.builtin.Access-Permissions.governance", in_folder + "governance.p7s")
        .property("dds.sec.access.builtin.Access-Permissions.permissions", in_folder + name + ".p7s")
        .property("dds.sec.crypto.plugin", "builtin.AES-GCM-GMAC");
}
//! [security]

ParticipantParams on_domain(int domain, const std::string& folder, const std::string& name) {
    ParticipantParams params = on_loopback(domain);
    if (folder != OPEN) {
        secure(params, folder, name);
    }
    return params;
}

std::vector<std::string> guarded(int domain, const std::string& folder, const std::string& name, const std::string& text) {
    return words_of(on_domain(domain, folder, name), {"Sealed", text});
}

// Everything that this network's devices carry, read by a thread of its own.
class Wiretap {
public:
    static constexpr const char* MISSED_SOME = "not all of it";

    Wiretap() : _reading([this] { read(); }) {}

    /// Once. @return which of the words it has seen, with blanks; or MISSED_SOME, when packets came faster than they were read.
    std::string seen_of(const std::vector<std::string>& words) {
        _is_over = true;
        _reading.join();
        tpacket_stats statistics = {};
        socklen_t size = sizeof statistics;
        ::getsockopt(_socket, SOL_PACKET, PACKET_STATISTICS, &statistics, &size);
        ::close(_socket);
        std::string seen;
        for (const std::string& word : words) {
            seen += _octets.find(word) == std::string::npos ? "" : word + " ";
        }
        return statistics.tp_drops == 0 ? seen : MISSED_SOME;
    }

private:
    void read() {
        char frame[65536 + 100];
        pollfd readable = {_socket, POLLIN, 0};
        // What has arrived before the end is read to the last frame.
        for (bool last_round = false; !last_round;) {
            last_round = _is_over;
            while (::poll(&readable, 1, last_round ? 0 : 20) == 1) {
                const ssize_t size = ::recv(_socket, frame, sizeof frame, 0);
                _octets.append(frame, static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
            }
        }
    }

    const int _socket = ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL));
    std::string _octets;  // the thread's until it has ended
    std::atomic<bool> _is_over{false};
    std::thread _reading;
};

// A line: the folder of a requester and a replier that call each other here. Answers with what the wire tells of it.
int tapped_room(const std::vector<std::string>& arguments) {
    const bool is_alone = leave_the_network();
    return answer_lines([&](const std::string& folder) -> std::string {
        std::string outcome = is_alone ? Wiretap::MISSED_SOME : "no namespace";
        for (int attempt = 0; attempt < 5 && outcome == Wiretap::MISSED_SOME; ++attempt) {
            Wiretap wire;
            std::string called;
            {
                PeerProcess service("oracle", guarded(8, folder, "server", arguments[2]));
                called = PeerProcess("asker", guarded(8, folder, "client", "")).ask(arguments[1]);
            }
            outcome = wire.seen_of(arguments);
            outcome = called == "ok" ? outcome : called;
        }
        return outcome;
    });
}

const KnownRole TAPPED_ROOM("tapped_room", tapped_room);

class Security : public ::testing::Test {
protected:
    void SetUp() override {
        if (std::system("command -v openssl >/dev/null") != 0) {
            GTEST_SKIP() << "this machine does not have openssl (package openssl), which makes the credentials";
        }
        std::string pattern = ::testing::TempDir() + "norvane_credentials_XXXXXX";
        ASSERT_NE(nullptr, ::mkdtemp(pattern.data()));
        _place = pattern;
    }
    void TearDown() override { files::remove_all(_place); }

    /// A folder with an authority of its own, and the credentials that it gave to "server" and "client" of the service.
    std::string authority(const std::string& name) const {
        const std::string folder = _place + "/" + name;
        for (const char* const who : {"server replier", "client requester"}) {
            const std::string command = std::string(NORVANE_TESTS_CREDENTIALS) + " " + folder + " " + who + " Sealed";
            EXPECT_EQ(0, std::system(command.c_str())) << command;
        }
        return folder;
    }

    std::string _place;
};

// Three on one domain, with one service name: two authorities who give their people the same names, and those who have nothing to
// show.
TEST_F(Security, those_whom_one_authority_signed_meet_each_other_and_nobody_else) {
    constexpr int CALLS = 10;
    const int domain = domain_of_test();
    const std::vector<std::string> parties = {authority("one"), authority("another"), OPEN};
    std::vector<std::unique_ptr<PeerProcess>> services;
    std::vector<std::unique_ptr<Participant>> participants;
    std::vector<std::unique_ptr<Asker>> askers;
    for (const std::string& party : parties) {
        services.push_back(start_peer("oracle", guarded(domain, party, "server", party)));
        participants.push_back(std::make_unique<Participant>(on_domain(domain, party, "client")));
        askers.push_back(std::make_unique<Asker>(RequesterParams(*participants.back()).service_name("Sealed")));
    }
    for (std::size_t place = 0; place < parties.size(); ++place) {
        SCOPED_TRACE(parties[place]);
        for (std::int32_t number = 1; number <= CALLS; ++number) {
            // The last one takes many packets.
            const std::string text(number < CALLS ? 10 : 1000000, 'x');
            const Answer answer = askers[place]->call({number, text}, ANSWER_TIME);
            EXPECT_EQ(number, answer.number);
            EXPECT_EQ(text.size(), answer.of.size());
            EXPECT_EQ(parties[place], answer.text) << "an answer of another party";
        }
    }
    // By now all have been found by their own, and long since by the others, had they been willing.
    for (const auto& asker : askers) {
        EXPECT_EQ(1, asker->matched_repliers());
    }
    for (const auto& service : services) {
        EXPECT_TRUE(eventually([&] { return service->ask("how many") == std::to_string(CALLS); }));
    }
}

TEST_F(Security, the_wire_tells_nothing_of_what_is_said) {
    // A type's name is what discovery tells. (Topics are not secret: they are in the permissions, which programs show each other
    // openly.)
    const std::string discovered = "questions::Question";
    PeerProcess room("tapped_room", {discovered, "a-question", "an-answer", "RTPS"});
    const std::string open = room.ask(OPEN);
    if (open == "no namespace") {
        GTEST_SKIP() << "this machine gives its users no network namespace (unshare)";
    }
    EXPECT_EQ(discovered + " a-question an-answer RTPS ", open);
    EXPECT_EQ("RTPS ", room.ask(authority("one")));
}

TEST_F(Security, what_is_missing_forged_ended_or_not_permitted_is_refused_and_named) {
    const std::string folder = authority("one");
    const std::string server = folder + "/server.p7s";
    const auto refusal_of = [](const ParticipantParams& params) {
        return thrown_by([&] {
                   const Participant participant(params);
                   const Replier<Question, Answer> replier(ReplierParams(participant).service_name("Sealed"));
               })
            .type;
    };
    // @param because  what is logged, once.
    const auto refuses = [&](const std::string& because, const ParticipantParams& params) {
        const LogCapture log;
        EXPECT_EQ("RuntimeException", refusal_of(params)) << because;
        EXPECT_EQ(1, log.count(because)) << because;
    };
    const auto as = [&](const std::string& name) { return on_domain(domain_of_test(), folder, name); };
    const std::string property = "property dds.sec.access.builtin.Access-Permissions.permissions: ";
    EXPECT_EQ("", refusal_of(as("server")));
    refuses("topic \"SealedReply\": Fast DDS makes no writer", as("client"));  // it may only ask
    // Not half of it: Fast DDS would do without any, and not say so.
    refuses("property dds.sec.auth.plugin is missing",
            on_loopback(domain_of_test()).property("dds.sec.crypto.plugin", "builtin.AES-GCM-GMAC"));
    const auto sign = [&](const std::string& changes) {
        const std::string command = "cd " + folder + " && sed '" + changes + "' server.xml >changed.xml && openssl smime -sign" +
                                    " -text -in changed.xml -out server.p7s -signer authority.pem -inkey authority.key 2>/dev/null";
        EXPECT_EQ(0, std::system(command.c_str()));
    };
    sign("s/<not_before>20../<not_before>2000/; s/<not_after>20../<not_after>2001/");
    refuses(property + "the permissions in \"" + server + "\" have ended, or not begun", as("server"));
    sign("");
    EXPECT_EQ(0, std::system(("sed -i 's/>DENY</>ALLOW</' " + server).c_str()));
    refuses("Fast DDS makes no participant", as("server"));
    files::remove(server);
    refuses(property + "\"" + server + "\" is empty, or cannot be read", as("server"));
}

}  // namespace
}  // namespace norvane::test
