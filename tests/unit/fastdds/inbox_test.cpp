// SPDX-License-Identifier: Apache-2.0
// Fast DDS's thread of timers stands still while it is told to, and while endpoints of peers go.
#include <gtest/gtest.h>

#include <fastdds/rtps/RTPSDomain.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "engines/fastdds/quirks_2_9/EventThread.hpp"
#include "engines/fastdds/quirks_2_9/Inbox.hpp"
#include "support/Eventually.hpp"

namespace norvane::test {
namespace {

using fastdds::EventThread;
using fastdds::Inbox;
namespace rtps = eprosima::fastrtps::rtps;

// A participant that does nothing but count, every millisecond, in its thread of timers.
class Clockwork : public ::testing::Test {
protected:
    void SetUp() override {
        rtps::RTPSParticipantAttributes attributes;
        attributes.builtin.use_WriterLivelinessProtocol = false;
        const std::uint32_t domain = static_cast<std::uint32_t>(100 + ::getpid() % 100);
        participant = rtps::RTPSDomain::createParticipant(domain, false, attributes);
        ASSERT_NE(nullptr, participant);
        thread = std::make_unique<EventThread>(*participant);
        timer = std::make_unique<rtps::TimedEvent>(
            participant->get_resource_event(), [this] { return ++ticks > 0; }, 1);
        timer->restart_timer();
        ASSERT_TRUE(goes());
    }

    void TearDown() override {
        timer.reset();
        thread.reset();
        rtps::RTPSDomain::removeRTPSParticipant(participant);
    }

    bool goes() const {
        const int before = ticks;
        return eventually([&] { return ticks >= before + 2; });
    }

    // (For ten times as long as it takes to tick.)
    bool stands_still() const {
        const int before = ticks;
        return !eventually([&] { return ticks != before; }, std::chrono::milliseconds(10));
    }

    // @return how many times it has stood still by then.
    std::uint64_t pause_for_a_moment() const {
        const std::uint64_t time = thread->pause();
        thread->wait_until_paused(time);
        thread->resume(time);
        return time;
    }

    rtps::RTPSParticipant* participant = nullptr;
    std::atomic<int> ticks{0};
    std::unique_ptr<EventThread> thread;
    std::unique_ptr<rtps::TimedEvent> timer;
};

TEST_F(Clockwork, stands_still_from_the_first_pause_to_the_last_resume) {
    const std::uint64_t first = thread->pause();
    thread->wait_until_paused(first);
    EXPECT_TRUE(stands_still());
    // Who asks while it stands waits for the next time.
    const std::uint64_t second = thread->pause();
    const std::uint64_t also_second = thread->pause();
    EXPECT_EQ(second, also_second);
    EXPECT_LT(first, second);
    EXPECT_TRUE(stands_still());
    thread->resume(first);
    thread->wait_until_paused(second);
    EXPECT_TRUE(stands_still());
    thread->resume(second);
    EXPECT_TRUE(stands_still()) << "one of two has resumed";
    thread->resume(also_second);
    EXPECT_TRUE(goes());
}

TEST_F(Clockwork, goes_on_when_nobody_resumes) {
    thread->wait_until_paused(thread->pause());
    EXPECT_TRUE(goes());
    // And obeys the next one.
    const std::uint64_t next = thread->pause();
    thread->wait_until_paused(next);
    EXPECT_TRUE(stands_still());
    thread->resume(next);
    EXPECT_TRUE(goes());
}

typedef std::vector<std::uint8_t> Octets;

constexpr std::uint8_t DATA = 0x15;
constexpr std::uint8_t HEARTBEAT = 0x07;
constexpr std::uint8_t SEALED = 0x30;
constexpr std::uint8_t WITH_DATA = 0x05;
constexpr std::uint8_t WITH_KEY = 0x0b;  // and inline QoS, which says that it is gone
constexpr std::uint8_t PLAIN = 0x01;

constexpr std::uint32_t READERS = 0x000004c2;         // who tells of them
constexpr std::uint32_t READERS_SEALED = 0xff0004c2;  // and where security hides it
constexpr std::uint32_t WRITERS = 0x000003c2;
constexpr std::uint32_t PARTICIPANTS = 0x000100c2;
constexpr std::uint32_t OF_THE_APPLICATION = 0x00000103;

// A message of a single part, from that writer.
Octets message(std::uint8_t kind, std::uint8_t flags, std::uint32_t writer) {
    Octets octets = {'R', 'T', 'P', 'S', 2, 3, 1, 15};
    octets.resize(20, 1);
    Octets body(kind == DATA ? 8U : 4U, 0);
    for (int shift = 24; shift >= 0; shift -= 8) {
        body.push_back(static_cast<std::uint8_t>(writer >> shift));
    }
    body.resize(40, 0);
    octets.insert(octets.end(), {kind, flags, static_cast<std::uint8_t>(body.size()), 0});
    octets.insert(octets.end(), body.begin(), body.end());
    return octets;
}

TEST_F(Clockwork, stands_still_while_a_message_that_may_end_an_endpoint_is_handed_on) {
    constexpr std::uint32_t DISCOVERY = 7410;
    const Octets END = message(DATA, WITH_KEY, READERS);
    const struct {
        const char* what;
        std::vector<Octets> before;
        Octets octets;
        std::uint32_t port;
        bool still;
    } CASES[] = {
        {"the end of a reader", {}, END, DISCOVERY, true},
        {"of a writer", {}, message(DATA, WITH_KEY, WRITERS), DISCOVERY, true},
        {"of a reader, with security", {}, message(DATA, WITH_KEY, READERS_SEALED), DISCOVERY, true},
        {"what nobody can look into", {}, message(SEALED, PLAIN, 0), DISCOVERY, true},
        {"what the end may have waited for", {END}, message(HEARTBEAT, PLAIN, READERS), DISCOVERY, true},
        {"what the end may have waited for, sent again", {END}, message(DATA, WITH_DATA, READERS), DISCOVERY, true},
        {"on a port for data", {}, END, DISCOVERY + 1, false},
        {"a new reader", {}, message(DATA, WITH_DATA, READERS), DISCOVERY, false},
        {"a heartbeat", {}, message(HEARTBEAT, PLAIN, READERS), DISCOVERY, false},
        {"a participant", {END}, message(DATA, WITH_DATA, PARTICIPANTS), DISCOVERY, false},
        {"data", {END}, message(DATA, WITH_DATA, OF_THE_APPLICATION), DISCOVERY, false},
        {"half a message", {END}, Octets(END.begin(), END.begin() + 22), DISCOVERY, false},
    };
    for (const auto& each : CASES) {
        SCOPED_TRACE(each.what);
        Inbox inbox;
        inbox.attach(*thread, {DISCOVERY});
        for (const Octets& octets : each.before) {
            inbox.take_in(octets.data(), static_cast<std::uint32_t>(octets.size()), DISCOVERY, [] {});
        }
        const std::uint64_t before = pause_for_a_moment();
        int handed_on = 0;
        inbox.take_in(each.octets.data(), static_cast<std::uint32_t>(each.octets.size()), each.port, [&] {
            ++handed_on;
            EXPECT_TRUE(!each.still || stands_still());
        });
        EXPECT_EQ(1, handed_on);
        EXPECT_EQ(each.still ? 2U : 1U, pause_for_a_moment() - before);
        EXPECT_TRUE(goes());
        inbox.detach();
    }
}

}  // namespace
}  // namespace norvane::test
