// SPDX-License-Identifier: Apache-2.0
// What the doubles ask before they forward: it notes the names of the calls in order, fails the one that a test chose, and counts
// what was made through them.
//
// Only operations that may fail are asked for, not plain accessors. A call that is failed is not forwarded.
// Thread rule: any thread.
#ifndef NORVANE_TESTS_SUPPORT_CALLSCRIPT_HPP
#define NORVANE_TESTS_SUPPORT_CALLSCRIPT_HPP

#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "norvane/dds/retcode.hpp"

namespace norvane::test {

class CallScript {
public:
    /// Forgets the calls noted so far and the actions left over, and fails the `call`-th from now on, counted from 1; 0 fails none.
    void fail_call(int call, DDS_ReturnCode_t code = DDS_RETCODE_ERROR) {
        std::lock_guard<std::mutex> guard(_mutex);
        _calls.clear();
        _actions.clear();
        _failed.clear();
        _call_to_fail = call;
        _code = code;
    }

    /// Fails every call of that name, until told DDS_RETCODE_OK.
    void fail_every(const std::string& name, DDS_ReturnCode_t code = DDS_RETCODE_ERROR) {
        std::lock_guard<std::mutex> guard(_mutex);
        _codes_by_name[name] = code;
    }

    /// Runs an action, once, when a call of that name comes, before it is forwarded or failed. Several for one name take turns; an
    /// empty one lets a call pass. So something can happen in the middle of an operation without a second thread.
    void at_next(const std::string& name, std::function<void()> action) {
        std::lock_guard<std::mutex> guard(_mutex);
        _actions[name].push_back(std::move(action));
    }

    /// Notes one call.
    /// @return DDS_RETCODE_OK to go on, else the code to fail with.
    DDS_ReturnCode_t next(const std::string& name) {
        std::unique_lock<std::mutex> guard(_mutex);
        std::deque<std::function<void()>>& actions = _actions[name];
        if (!actions.empty()) {
            const std::function<void()> action = std::move(actions.front());
            actions.pop_front();
            guard.unlock();
            if (action) {
                action();
            }
            guard.lock();
        }
        _calls.push_back(name);
        if (static_cast<int>(_calls.size()) == _call_to_fail) {
            _failed = name;
            return _code;
        }
        const auto found = _codes_by_name.find(name);
        return found == _codes_by_name.end() ? DDS_RETCODE_OK : found->second;
    }

    /// Forwards a call that returns a code or a pointer, unless it is to fail.
    template <typename Forward>
    auto forward(const std::string& name, Forward call) -> decltype(call()) {
        const DDS_ReturnCode_t failure = next(name);
        if constexpr (std::is_pointer<decltype(call())>::value) {
            return failure == DDS_RETCODE_OK ? call() : nullptr;
        } else {
            return failure == DDS_RETCODE_OK ? call() : failure;
        }
    }

    /// Notes what was made or given back. @param kind  such as "readers".
    void count(const std::string& kind, int difference) {
        std::lock_guard<std::mutex> guard(_mutex);
        _live[kind] += difference;
    }
    /// @return what is there, such as "2 conditions 1 readers"; empty when nothing is.
    std::string live() const {
        std::lock_guard<std::mutex> guard(_mutex);
        std::string text;
        for (const auto& each : _live) {
            text += each.second == 0 ? "" : (text.empty() ? "" : " ") + std::to_string(each.second) + " " + each.first;
        }
        return text;
    }
    /// What is there was deleted past the doubles.
    void forget_live() {
        std::lock_guard<std::mutex> guard(_mutex);
        _live.clear();
    }

    /// @return the names since the last `fail_call`, in order.
    std::vector<std::string> calls() const {
        std::lock_guard<std::mutex> guard(_mutex);
        return _calls;
    }

    /// @return the name of the call that was failed by its number; empty when the number was not reached.
    std::string failed_call() const {
        std::lock_guard<std::mutex> guard(_mutex);
        return _failed;
    }

private:
    mutable std::mutex _mutex;
    std::vector<std::string> _calls;
    std::map<std::string, int> _live;
    std::string _failed;
    int _call_to_fail = 0;
    DDS_ReturnCode_t _code = DDS_RETCODE_ERROR;
    std::map<std::string, DDS_ReturnCode_t> _codes_by_name;
    std::map<std::string, std::deque<std::function<void()>>> _actions;
};

}  // namespace norvane::test

#endif
