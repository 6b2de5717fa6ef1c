// SPDX-License-Identifier: Apache-2.0
// Counts what a thread allocates, and makes an allocation of a chosen number fail.
//
// Linking AllocationProbe.cpp replaces every global operator new and delete of the program, the forms that do not throw included.
// Thread rule: each thread has its own count.
#ifndef NORVANE_TESTS_SUPPORT_ALLOCATIONPROBE_HPP
#define NORVANE_TESTS_SUPPORT_ALLOCATIONPROBE_HPP

namespace norvane::test {

class AllocationProbe {
public:
    /// Counts from here on, and lets one allocation fail. @param number  which, from 1; 0 for none.
    static void fail(long number) noexcept;
    /// Ends it: nothing is counted and nothing fails any more. The figures below stay until the next `fail`.
    static void stop() noexcept;

    /// @return allocations asked for, the failed one included.
    static long count() noexcept;
    /// @return whether the chosen allocation was reached.
    static bool has_failed() noexcept;
    /// @return blocks allocated and not given back, less those given back that are older than the count.
    static long outstanding() noexcept;
};

/// Runs `action` with its 1st, 2nd, 3rd ... allocation failing, until a run needs fewer. Assertions come after
/// AllocationProbe::stop().
/// @return how many runs had a failing allocation.
template <typename Action>
long fail_each_allocation(Action action) {
    for (long number = 1;; ++number) {
        AllocationProbe::fail(number);
        action();
        AllocationProbe::stop();
        if (!AllocationProbe::has_failed()) {
            return number - 1;
        }
    }
}

}  // namespace norvane::test

#endif
