// SPDX-License-Identifier: Apache-2.0
// The logging facility: templates, masks, the print function, the installed sink and the default one.
//
// Thread rule: any thread at once. A sink is called under no lock: a caller counts itself into the sink's slot, and a replacement
// waits until that slot is empty.
#include "middleware/LogSink.hpp"

#include <cerrno>
#include <charconv>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <mutex>
#include <new>

#include <unistd.h>

#include "middleware/Log.hpp"

// Each sentence takes its argument where the core's exceptions put it too, so the two always read alike.
const VOSTLogMessage VOST_LOG_CREATION_FAILURE_s = {0x4e560001, "could not create: %s"};
const VOSTLogMessage VOST_LOG_CREATE_s = {0x4e560002, "creation failed: %s"};
const VOSTLogMessage VOST_LOG_GET_FAILURE_s = {0x4e560003, "could not get: %s"};
const VOSTLogMessage VOST_LOG_DESTRUCTION_FAILURE_s = {0x4e560004, "could not delete: %s"};
const VOSTLogMessage VOST_LOG_REMOVE_FAILURE_s = {0x4e560005, "could not remove: %s"};
const VOSTLogMessage VOST_LOG_PRECONDITION_FAILURE_s = {0x4e560006, "precondition failed: %s"};
const VOSTLogMessage VOST_LOG_ANY_FAILURE_s = {0x4e560007, "failed: %s"};
const VOSTLogMessage VOST_LOG_ANY_s = {0x4e560008, "%s"};
const VOSTLogMessage DDS_LOG_BAD_PARAMETER_s = {0x4e560009, "bad parameter: %s"};

// Constant start values: a line may be logged before this file's initialisers have run.
std::atomic<std::uint32_t> DDSLog_g_instrumentationMask{0x3};
std::atomic<std::uint32_t> DDSLog_g_submoduleMask{0x70};
std::atomic<int> VOSTLog_g_detectPrecondition{0};
std::atomic<int> VOSTLog_g_preconditionDetected{0};

namespace norvane {

LogSink::~LogSink() = default;

namespace mw {
namespace {

constexpr std::size_t LINE_SIZE = 2048;

/// Builds a line in a fixed buffer. What does not fit is cut, and the cut is marked.
class LineBuffer {
public:
    void append(const char* text, std::size_t length) noexcept {
        const std::size_t room = CAPACITY - _length;
        const std::size_t taken = length < room ? length : room;
        for (std::size_t index = 0; index < taken; ++index) {
            // Names and filters come from outside: a line break in one must not pass for a line of its own.
            const unsigned char octet = static_cast<unsigned char>(text[index]);
            _text[_length + index] = octet < 0x20 || octet == 0x7f ? ' ' : text[index];
        }
        _length += taken;
        _cut = _cut || taken < length;
    }
    void append(const char* text) noexcept { append(text, std::strlen(text)); }
    void append(int number) noexcept {
        char digits[std::numeric_limits<int>::digits10 + 2];  // all decimals and a sign
        const std::to_chars_result result = std::to_chars(digits, digits + sizeof digits, number);
        append(digits, static_cast<std::size_t>(result.ptr - digits));
    }

    /// Ends the line and writes it in one piece, so that lines of several threads and processes do not mix.
    void write_to(int descriptor) noexcept {
        if (_cut) {
            std::memcpy(_text + _length - 3, "...", 3);
        }
        _text[_length++] = '\n';
        const int saved_errno = errno;
        while (::write(descriptor, _text, _length) < 0 && errno == EINTR) {
        }
        errno = saved_errno;
    }

private:
    static constexpr std::size_t CAPACITY = LINE_SIZE - 1;
    char _text[LINE_SIZE];
    std::size_t _length = 0;
    bool _cut = false;
};

const char* level_name(std::uint32_t level) noexcept {
    switch (level) {
        case 0x1:
            return "precondition";
        case LOG_LEVEL_ERROR:
            return "error";
        case LOG_LEVEL_WARNING:
            return "warning";
        case LOG_LEVEL_NOTICE:
            return "notice";
        default:
            return "log";
    }
}

/// One line per message on standard error: "norvane error Class::function: text [File.cpp:12]".
class DefaultLogSink : public LogSink {
public:
    void write(const LogRecord& record) noexcept override {
        LineBuffer line;
        line.append("norvane ");
        line.append(level_name(record.level));
        line.append(" ");
        line.append(record.method);
        line.append(": ");
        line.append(record.text);
        line.append(" [");
        const char* const slash = std::strrchr(record.file, '/');
        line.append(slash != nullptr ? slash + 1 : record.file);
        line.append(":");
        line.append(record.line);
        line.append("]");
        line.write_to(STDERR_FILENO);
    }
};

/// The installed sink and the threads inside its `write`.
///
/// Two slots suffice: a replacement ends only when the old slot is empty, and replacements go one at a time.
class LogState {
public:
    void hand_over(const LogRecord& record) noexcept {
        std::unique_lock<std::mutex> lock(_mutex);
        SinkSlot& slot = _slots[_current];
        LogSink* const sink = slot.sink;
        ++slot.inside;
        lock.unlock();
        (sink != nullptr ? *sink : static_cast<LogSink&>(_default_sink)).write(record);
        lock.lock();
        if (--slot.inside == 0) {
            _emptied.notify_all();
        }
    }

    LogSink* replace(LogSink* sink) {
        const std::lock_guard<std::mutex> turn(_replacing);
        std::unique_lock<std::mutex> lock(_mutex);
        SinkSlot& old_slot = _slots[_current];
        _current = 1 - _current;
        _slots[_current].sink = sink;
        _emptied.wait(lock, [&old_slot] { return old_slot.inside == 0; });
        return old_slot.sink;
    }

private:
    struct SinkSlot {
        LogSink* sink = nullptr;  // null: the default
        int inside = 0;           // threads in the sink's write
    };
    DefaultLogSink _default_sink;
    std::mutex _replacing;  // taken before _mutex
    std::mutex _mutex;      // guards what follows
    std::condition_variable _emptied;
    SinkSlot _slots[2];
    int _current = 0;
};

LogState& log_state() noexcept {
    // Never destroyed: destructors of the program's own static objects may still log.
    alignas(LogState) static unsigned char storage[sizeof(LogState)];
    static LogState* const state = new (storage) LogState;
    return *state;
}

std::atomic<void (*)()> assert_callback{nullptr};

bool read_log_level_variable() noexcept {
    const char* const name = std::getenv("NORVANE_LOG_LEVEL");
    if (name == nullptr || *name == '\0') {
        return false;
    }
    if (!set_log_level(name)) {
        log_error("norvane", [name] {
            return "NORVANE_LOG_LEVEL: unknown level \"" + std::string(name) + "\"; known are silent, error, warning and notice";
        });
    }
    return true;
}

[[maybe_unused]] const bool LOG_LEVEL_FROM_VARIABLE = read_log_level_variable();

}  // namespace

bool set_log_level(const char* name) noexcept {
    struct Level {
        const char* name;
        std::uint32_t levels;
        std::uint32_t parts;
    };
    static constexpr Level LEVELS[] = {{"silent", 0x0, 0x0}, {"error", 0x3, 0x70}, {"warning", 0x7, 0x70}, {"notice", 0xf, 0x70}};
    for (const Level& level : LEVELS) {
        if (std::strcmp(name, level.name) == 0) {
            DDSLog_g_instrumentationMask = level.levels;
            DDSLog_g_submoduleMask = level.parts;
            return true;
        }
    }
    return false;
}

}  // namespace mw

LogSink* set_log_sink(LogSink* sink) { return mw::log_state().replace(sink); }

void (*set_assert_callback(void (*callback)()))() { return mw::assert_callback.exchange(callback); }

}  // namespace norvane

void VOSTLog_onAssertBreakpoint() {
    void (*const callback)() = norvane::mw::assert_callback.load();
    if (callback != nullptr) {
        callback();
    }
}

void VOSTLogMessage_printWithParams(int, std::uint32_t level, std::uint32_t module, const char* file, int line, const char* method,
                                    const VOSTLogMessage* message, const char* argument) {
    if (argument == nullptr) {
        argument = "(null)";
    }
    const char* const format = message->format;
    const char* const mark = std::strstr(format, "%s");
    const std::size_t head = mark != nullptr ? static_cast<std::size_t>(mark - format) : std::strlen(format);
    const char* const tail = mark != nullptr ? mark + 2 : "";
    const std::size_t middle = mark != nullptr ? std::strlen(argument) : 0;
    const std::size_t length = head + middle + std::strlen(tail);

    char brief[512];
    char* text = brief;
    char* owned = nullptr;
    std::size_t capacity = sizeof brief;
    if (length >= sizeof brief) {
        owned = static_cast<char*>(::operator new(length + 1, std::nothrow));
        if (owned != nullptr) {
            text = owned;
            capacity = length + 1;
        }
    }
    std::size_t used = 0;
    const auto append = [&](const char* piece, std::size_t size) {
        const std::size_t room = capacity - 1 - used;
        const std::size_t taken = size < room ? size : room;
        std::memcpy(text + used, piece, taken);
        used += taken;
    };
    append(format, head);
    append(argument, middle);
    append(tail, std::strlen(tail));
    text[used] = '\0';

    norvane::mw::log_state().hand_over({level, module, message->messageId, file, line, method, text});
    ::operator delete(owned);
}
