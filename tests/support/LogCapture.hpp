// SPDX-License-Identifier: Apache-2.0
// Keeps the log lines of its scope, with the masks as the test wants them, and restores sink and masks at the end.
// Thread rule: lines may come from any thread; one capture at a time.
#ifndef NORVANE_TESTS_SUPPORT_LOGCAPTURE_HPP
#define NORVANE_TESTS_SUPPORT_LOGCAPTURE_HPP

#include <algorithm>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "norvane/dds/log.hpp"

namespace norvane::test {

class LogCapture : public LogSink {
public:
    struct Line {
        std::uint32_t level;
        std::uint32_t module;
        std::uint32_t message_id;
        std::string method;
        std::string text;
    };

    /// @param levels, parts  the two masks; at first all levels and parts.
    explicit LogCapture(std::uint32_t levels = 0xffffffffU, std::uint32_t parts = 0xffffffffU)
        : _levels(DDSLog_g_instrumentationMask.exchange(levels)),
          _parts(DDSLog_g_submoduleMask.exchange(parts)),
          _sink(set_log_sink(this)) {}
    ~LogCapture() override {
        set_log_sink(_sink);
        DDSLog_g_submoduleMask = _parts;
        DDSLog_g_instrumentationMask = _levels;
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    void write(const LogRecord& record) noexcept override {
        std::lock_guard<std::mutex> guard(_mutex);
        _lines.push_back({record.level, record.module, record.message_id, record.method, record.text});
    }

    std::vector<Line> lines() const {
        std::lock_guard<std::mutex> guard(_mutex);
        return _lines;
    }

    /// @return the lines of the library itself (module word 0xf0000), those of the middleware and the engines left out.
    std::vector<Line> library_lines() const {
        std::vector<Line> found = lines();
        found.erase(std::remove_if(found.begin(), found.end(), [](const Line& line) { return line.module != 0xf0000U; }),
                    found.end());
        return found;
    }

    /// @return how many lines hold `part` in their text.
    int count(const std::string& part) const {
        const std::vector<Line> found = lines();
        return static_cast<int>(
            std::count_if(found.begin(), found.end(), [&](const Line& line) { return line.text.find(part) != std::string::npos; }));
    }

    void clear() {
        std::lock_guard<std::mutex> guard(_mutex);
        _lines.clear();
    }

private:
    mutable std::mutex _mutex;
    std::vector<Line> _lines;
    std::uint32_t _levels;
    std::uint32_t _parts;
    LogSink* _sink;
};

}  // namespace norvane::test

#endif
