// SPDX-License-Identifier: Apache-2.0
// The doubles of one kind that a double of their maker has handed out. One that is deleted stays until the maker goes: it may still
// be used to
// return a loan.
// Thread rule: any thread.
#ifndef NORVANE_TESTS_SUPPORT_DOUBLES_HPP
#define NORVANE_TESTS_SUPPORT_DOUBLES_HPP

#include <atomic>
#include <list>
#include <mutex>

#include "norvane/dds/retcode.hpp"

namespace norvane::test {

/// @tparam Interface  what a double stands for. @tparam Double  derived from it, with `real()`.
template <typename Interface, typename Double>
class Doubles {
public:
    /// @param live  the count of those that are there; borrowed.
    explicit Doubles(std::atomic<int>& live) : _live(live) {}

    /// @param real  null gives null. @param rest  what else a double is made with.
    template <typename... Rest>
    Interface* wrap(Interface* real, Rest&... rest) {
        if (real == nullptr) {
            return nullptr;
        }
        std::lock_guard<std::mutex> guard(_mutex);
        ++_live;
        return &_made.emplace_back(*real, rest...);
    }
    /// @return the real one of a double; anything else as it is.
    static Interface* unwrap(Interface* given) {
        Double* const wrapped = dynamic_cast<Double*>(given);
        return wrapped != nullptr ? &wrapped->real() : given;
    }
    /// @return `code`, the outcome of deleting one of them, which is counted.
    DDS_ReturnCode_t deleted(DDS_ReturnCode_t code) {
        _live -= code == DDS_RETCODE_OK ? 1 : 0;
        return code;
    }

private:
    std::atomic<int>& _live;
    std::mutex _mutex;
    std::list<Double> _made;
};

}  // namespace norvane::test

#endif
