// SPDX-License-Identifier: Apache-2.0
// The logging facility: text, masks, the default sink and the replacement of sinks.
#include "middleware/LogSink.hpp"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "middleware/Log.hpp"
#include "support/AllocationProbe.hpp"
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
        const LogCapture::Line line = capture.lines().back();
        EXPECT_EQ(each.text, line.text);
        EXPECT_EQ(7U, line.message_id);
        EXPECT_EQ("Class::function", line.method);
        EXPECT_EQ(0xf0000U, line.module);
        EXPECT_EQ(0x2U, line.level);
    }
}

TEST(Log, line_without_memory_goes_out_shortened) {
    struct FirstOctets : LogSink {
        void write(const LogRecord& record) noexcept override { length = std::char_traits<char>::length(record.text); }
        std::size_t length = 0;
    } sink;
    const std::string longer(3000, 'x');
    LogSink* const before = set_log_sink(&sink);
    AllocationProbe::fail(0);
    print(VOST_LOG_ANY_s, longer.c_str());
    AllocationProbe::stop();
    EXPECT_EQ(0, AllocationProbe::outstanding());
    const std::size_t whole = sink.length;
    AllocationProbe::fail(1);
    print(VOST_LOG_ANY_s, longer.c_str());
    AllocationProbe::stop();
    set_log_sink(before);
    EXPECT_TRUE(AllocationProbe::has_failed());
    EXPECT_EQ(0, AllocationProbe::outstanding());
    EXPECT_GT(sink.length, 100U);
    EXPECT_LT(sink.length, longer.size());
    EXPECT_EQ(longer.size(), whole);
}

// Stands in for standard error. Each write arrives as one datagram.
class StandardError {
public:
    StandardError() {
        EXPECT_EQ(0, ::socketpair(AF_UNIX, SOCK_DGRAM, 0, _ends));
        _saved = ::dup(STDERR_FILENO);
        ::dup2(_ends[0], STDERR_FILENO);
    }
    ~StandardError() {
        ::dup2(_saved, STDERR_FILENO);
        for (const int descriptor : {_saved, _ends[0], _ends[1]}) {
            ::close(descriptor);
        }
    }
    std::string next_write() {
        char text[8192];
        const ssize_t size = ::recv(_ends[1], text, sizeof text, MSG_DONTWAIT);
        return size < 0 ? "nothing written" : std::string(text, static_cast<std::size_t>(size));
    }

private:
    int _ends[2];
    int _saved;
};

TEST(Log, default_sink_writes_one_line_in_one_piece_whatever_the_argument_holds) {
    const std::string longer(5000, 'y');
    std::vector<std::string> written;
    {
        LogSink* const before = set_log_sink(nullptr);
        StandardError error;
        print(DDS_LOG_BAD_PARAMETER_s, "max_samples");
        print(VOST_LOG_ANY_s, "one\nnorvane error forged: two\x1b[0m");
        print(VOST_LOG_ANY_s, longer.c_str());
        for (int index = 0; index < 4; ++index) {
            written.push_back(error.next_write());
        }
        set_log_sink(before);
    }
    EXPECT_EQ("norvane error Class::function: bad parameter: max_samples [File.cpp:12]\n", written[0]);
    EXPECT_EQ("norvane error Class::function: one norvane error forged: two [0m [File.cpp:12]\n", written[1]);
    EXPECT_GT(written[2].size(), 1000U);
    EXPECT_EQ("y...\n", written[2].substr(written[2].size() - 5));
    EXPECT_EQ("nothing written", written[3]);
}

TEST(Log, functions_of_the_middleware_look_at_both_masks_before_they_build_a_text) {
    const struct {
        std::uint32_t levels;
        std::uint32_t parts;
        std::string expected;  // "e" error, "w" warning, "n" notice, of the middleware; "E" error of an engine
    } cases[] = {{0xf, 0x70, "ewnE"}, {0x3, 0x70, "eE"}, {0x2, 0x20, "e"}, {0xc, 0x60, "wn"},
                 {0x2, 0x40, "E"},    {0x1, 0x70, ""},   {0xf, 0x10, ""}};
    for (const auto& each : cases) {
        LogCapture capture(each.levels, each.parts);
        std::string built;
        const auto text = [&built](const char* letter) { return [&built, letter] { return std::string(built += letter); }; };
        mw::log_error("m", text("e"));
        mw::log_warning("m", text("w"));
        mw::log_notice("m", text("n"));
        mw::log_error<mw::LogPart::ENGINE>("m", text("E"));
        EXPECT_EQ(each.expected, built);
        EXPECT_EQ(each.expected.size(), capture.lines().size());
    }
    LogCapture capture;
    mw::log_error("m", "chars");
    mw::log_error("m", std::string("string"));
    mw::log_error<mw::LogPart::ENGINE>("m", []() -> std::string { throw std::runtime_error("no text"); });
    const std::vector<LogCapture::Line> lines = capture.lines();
    ASSERT_EQ(3U, lines.size());
    EXPECT_EQ("chars", lines[0].text);
    EXPECT_EQ(0xf0020U, lines[0].module);
    EXPECT_EQ("string", lines[1].text);
    EXPECT_EQ(0xf0040U, lines[2].module);
}

TEST(LogDeathTest, level_variable_sets_the_masks_when_the_program_starts) {
    const struct {
        const char* value;
        std::uint32_t levels;
        std::uint32_t parts;
        const char* message;
    } cases[] = {{nullptr, 0x3, 0x70, ""},
                 {"silent", 0x0, 0x0, ""},
                 {"error", 0x3, 0x70, ""},
                 {"warning", 0x7, 0x70, ""},
                 {"notice", 0xf, 0x70, ""},
                 {"", 0x3, 0x70, ""},
                 {"loud", 0x3, 0x70, "unknown level \"loud\""}};
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // starts the program anew, static initialisers and all
    const char* const outer = std::getenv("NORVANE_LOG_LEVEL");
    const std::string saved = outer != nullptr ? outer : "";
    for (const auto& each : cases) {
        each.value != nullptr ? ::setenv("NORVANE_LOG_LEVEL", each.value, 1) : ::unsetenv("NORVANE_LOG_LEVEL");
        EXPECT_EXIT(std::_Exit(DDSLog_g_instrumentationMask == each.levels && DDSLog_g_submoduleMask == each.parts ? 42 : 1),
                    testing::ExitedWithCode(42), each.message)
            << (each.value != nullptr ? each.value : "not set");
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
    std::thread logging([] { print(VOST_LOG_ANY_s, "slow"); });
    ASSERT_TRUE(eventually([&] { return slow.entered.load(); }));
    bool left_first = false;
    LogSink* replaced = nullptr;
    std::thread replacing([&] {
        replaced = set_log_sink(&fresh);
        left_first = slow.left;
    });
    // The new sink is in place while the old one is still busy: no line waits for the replacement.
    EXPECT_TRUE(eventually([&] {
        print(VOST_LOG_ANY_s, "fresh");
        return fresh.lines > 0;
    }));
    slow.may_leave = true;
    replacing.join();
    logging.join();
    EXPECT_TRUE(left_first);
    EXPECT_EQ(&slow, replaced);
    EXPECT_EQ(&fresh, set_log_sink(before));
}

}  // namespace
}  // namespace norvane::test
