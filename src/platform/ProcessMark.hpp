// SPDX-License-Identifier: Apache-2.0
// The process in which an object was made. A child made by fork() has copies of its parent's objects, but none of the threads, and
// perhaps locks, that they rely on.
// Thread rule: any thread.
#ifndef NORVANE_PLATFORM_PROCESSMARK_HPP
#define NORVANE_PLATFORM_PROCESSMARK_HPP

#include <atomic>

namespace norvane {
namespace platform {

/// Forks between the first process that had a ProcessMark and this one.
extern std::atomic<unsigned> fork_count;

class ProcessMark {
public:
    /// Marks the calling process.
    ProcessMark() noexcept;
    /// @return whether the calling process is a child of the marked one, or a child of that. One relaxed load.
    bool is_of_a_parent() const noexcept { return fork_count.load(std::memory_order_relaxed) != _forks; }

private:
    const unsigned _forks;
};

}  // namespace platform
}  // namespace norvane

#endif
