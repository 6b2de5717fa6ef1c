// SPDX-License-Identifier: Apache-2.0
// The seed of every random test: the environment variable NORVANE_TEST_SEED, else a new one each time. It is printed, so that a run
// can be repeated.
#ifndef NORVANE_TESTS_SUPPORT_SEED_HPP
#define NORVANE_TESTS_SUPPORT_SEED_HPP

#include <cstdio>
#include <cstdlib>
#include <random>

namespace norvane::test {

inline unsigned test_seed() {
    const char* const given = std::getenv("NORVANE_TEST_SEED");
    const unsigned seed = given != nullptr ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : std::random_device()();
    std::printf("NORVANE_TEST_SEED=%u\n", seed);
    return seed;
}

}  // namespace norvane::test

#endif
