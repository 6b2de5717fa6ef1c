// SPDX-License-Identifier: Apache-2.0
// The logging facility: text, masks, the default sink and the replacement of sinks.
#include "middleware/LogSink.hpp"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <future>
#include <stdexcept>
#include <string>
#include <vector>

#include "middleware/Log.hpp"
#include "norvane/details/EntityUntypedImpl.hpp"
#include "norvane/details/precondition.hpp"
#include "support/Eventually.hpp"
#include "support/LogCapture.hpp"

namespace norvane::test {
namespace {

void print(const VOSTLogMessage& message, const char* argument) {
    VOSTLogMessage_printWithParams(-1, 0x2, 0xf0000, "some/folder/File.cpp", 12, "Class::function", &message, argument);
}

TEST(Log, puts_the_argument_in_place_of_the_first_mark_alone) {
    const std::string longer(3000, 'x');
    const struct {
        const char* format;
        const char* argument;
        std::string text;
    } cases[] = {{"bad: %s!", "depth", "bad: depth!"},
                 {"%s and %s", "%s", "%s and %s"},
                 {"100%d done", "x", "100%d done"},
                 {"got %s", nullptr, "got (null)"},
                 {"<%s>", longer.c_str(), "<" + longer + ">"}};
    LogCapture capture(0, 0);  // the masks are the caller's business
    for (const auto& each : cases) {
        print({7, each.format}, each.argument);
        EXPECT_EQ(each.text, capture.lines().back().text);
        EXPECT_EQ(7U, capture.lines().back().message_id);
    }
}

TEST(Log, default_sink_writes_one_line_in_one_piece_whatever_the_argument_holds) {
    // In the place of standard error, so that each write arrives as one datagram.
    int ends[2];
    ASSERT_EQ(0, ::socketpair(AF_UNIX, SOCK_DGRAM, 0, ends));
    const int saved = ::dup(STDERR_FILENO);
    ::dup2(ends[0], STDERR_FILENO);
    LogSink* const before = set_log_sink(nullptr);
    print(DDS_LOG_BAD_PARAMETER_s, "max_samples");
    print(VOST_LOG_ANY_s, "one\nnorvane error forged: two\x1b[0m");
    print(VOST_LOG_ANY_s, std::string(5000, 'y').c_str());
    set_log_sink(before);
    ::dup2(saved, STDERR_FILENO);
    const auto next_write = [&] {
        char text[8192];
        const ssize_t size = ::recv(ends[1], text, sizeof text, MSG_DONTWAIT);
        return size < 0 ? "nothing written" : std::string(text, static_cast<std::size_t>(size));
    };
    EXPECT_EQ("norvane error Class::function: bad parameter: max_samples [File.cpp:12]\n", next_write());
    EXPECT_EQ("norvane error Class::function: one norvane error forged: two [0m [File.cpp:12]\n", next_write());
    const std::string cut = next_write();
    EXPECT_GT(cut.size(), 1000U);
    EXPECT_EQ("y...\n", cut.substr(cut.size() - 5));
    EXPECT_EQ("nothing written", next_write());
    for (const int descriptor : {saved, ends[0], ends[1]}) {
        ::close(descriptor);
    }
}

TEST(Log, each_part_looks_at_both_masks_before_it_builds_a_text_and_reports_are_thrown_all_the_same) {
    const struct {
        std::uint32_t levels;
        std::uint32_t parts;
        std::string built;    // "e" error, "w" warning, "n" notice, of the middleware; "E" error of an engine
        std::size_t reports;  // of the library itself
    } cases[] = {{0xf, 0x70, "ewnE", 2}, {0x3, 0x70, "eE", 2}, {0x2, 0x20, "e", 0}, {0xc, 0x60, "wn", 0}, {0x2, 0x40, "E", 0},
                 {0x1, 0x70, "", 1},     {0xf, 0x10, "", 2},   {0x2, 0x10, "", 1},  {0x0, 0x0, "", 0}};
    for (const auto& each : cases) {
        LogCapture capture(each.levels, each.parts);
        std::string built;
        const auto text = [&built](const char* letter) { return [&built, letter] { return std::string(built += letter); }; };
        mw::log_error("m", text("e"));
        mw::log_warning("m", text("w"));
        mw::log_notice("m", text("n"));
        mw::log_error<mw::LogPart::ENGINE>("m", text("E"));
        EXPECT_EQ(each.built, built);
        EXPECT_THROW(check_retcode(DDS_RETCODE_ERROR, "A::b", VOST_LOG_ANY_FAILURE_s, "c", false), RuntimeException);
        EXPECT_THROW(NORVANE_CHECK_PRECONDITION(1 > 2, "b"), PreconditionNotMetException);
        EXPECT_EQ(each.built.size() + each.reports, capture.lines().size()) << each.levels << " " << each.parts;
    }
    LogCapture capture;
    mw::log_error("m", "chars");
    mw::log_error<mw::LogPart::ENGINE>("m", []() -> std::string { throw std::runtime_error("no text"); });
    ASSERT_EQ(2U, capture.lines().size());
    EXPECT_EQ(0xf0020U, capture.lines()[0].module);
    EXPECT_EQ(0xf0040U, capture.lines()[1].module);
}

TEST(LogDeathTest, level_variable_sets_the_masks_when_the_program_starts) {
    const struct {
        const char* value;
        std::uint32_t levels;
        std::uint32_t parts;
        const char* message;
    } cases[] = {{"silent", 0x0, 0x0, ""},  {"error", 0x3, 0x70, ""}, {"warning", 0x7, 0x70, ""},
                 {"notice", 0xf, 0x70, ""}, {"", 0x3, 0x70, ""},      {"loud", 0x3, 0x70, "unknown level \"loud\""}};
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // starts the program anew, static initialisers and all
    const char* const outer = std::getenv("NORVANE_LOG_LEVEL");
    const std::string saved = outer != nullptr ? outer : "";
    for (const auto& each : cases) {
        ::setenv("NORVANE_LOG_LEVEL", each.value, 1);
        EXPECT_EXIT(std::_Exit(DDSLog_g_instrumentationMask == each.levels && DDSLog_g_submoduleMask == each.parts ? 42 : 1),
                    testing::ExitedWithCode(42), each.message)
            << each.value;
    }
    outer != nullptr ? ::setenv("NORVANE_LOG_LEVEL", saved.c_str(), 1) : ::unsetenv("NORVANE_LOG_LEVEL");
}

TEST(Log, replacing_a_sink_waits_for_the_threads_inside_the_old_one) {
    struct SlowSink : LogSink {
        void write(const LogRecord&) noexcept override {
            if (entered.exchange(true)) {
                return;  // only the first line is slow
            }
            eventually([this] { return may_leave.load(); });
            left = true;
        }
        std::atomic<bool> entered{false}, may_leave{false}, left{false};
    } slow;
    struct CountingSink : LogSink {
        void write(const LogRecord&) noexcept override { ++lines; }
        std::atomic<int> lines{0};
    } fresh;
    LogSink* const before = set_log_sink(&slow);
    auto logging = std::async(std::launch::async, [] { print(VOST_LOG_ANY_s, "slow"); });
    ASSERT_TRUE(eventually([&] { return slow.entered.load(); }));
    auto replacing = std::async(std::launch::async, [&] {
        EXPECT_EQ(&slow, set_log_sink(&fresh));
        EXPECT_TRUE(slow.left);
    });
    // The new sink is in place while the old one is still busy: no line waits for the replacement.
    EXPECT_TRUE(eventually([&] {
        print(VOST_LOG_ANY_s, "fresh");
        return fresh.lines > 0;
    }));
    slow.may_leave = true;
    replacing.get();
    logging.get();
    EXPECT_EQ(&fresh, set_log_sink(before));
}

}  // namespace
}  // namespace norvane::test
