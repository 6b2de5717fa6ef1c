// SPDX-License-Identifier: Apache-2.0
// Samples of a pool: none is in two hands, none is lost, and they outlive the owner of the pool.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>
#include <thread>
#include <vector>

#include "middleware/TypeSamplePool.hpp"
#include "norvane/details/cxx_type.hpp"

namespace norvane::test {
namespace {

std::atomic<int> alive{0};

template <std::size_t SIZE>
struct Counted {
    Counted() { ++alive; }
    explicit Counted(std::size_t content) : owner(content) { ++alive; }
    Counted(const Counted& other) : owner(other.owner) { ++alive; }
    Counted& operator=(const Counted& other) = default;
    ~Counted() { --alive; }
    std::size_t owner = 0;
    std::array<unsigned char, SIZE> rest{};
};

template <std::size_t SIZE>
mw::OwnedSamplePool make_pool() {
    auto type = std::make_shared<DDS_TypeOperations>(details::cxx_operations<Counted<SIZE>>());
    type->copy = details::copy_sample<Counted<SIZE>>;
    return mw::OwnedSamplePool(mw::TypeSamplePool::make(type));
}

/// Takes as many samples as it says, and gives them back unless one of them was changed by another thread.
template <std::size_t SIZE>
bool takes_and_gives_back(mw::TypeSamplePool& pool, std::size_t owner, std::size_t count) {
    const auto content = std::make_unique<Counted<SIZE>>(owner);
    std::vector<mw::Sample*> samples(count);
    for (mw::Sample*& sample : samples) {
        sample = pool.make_copy(content.get());
    }
    bool intact = true;
    for (mw::Sample* sample : samples) {
        intact = intact && static_cast<Counted<SIZE>*>(sample->data)->owner == owner;
        mw::release(*sample);
    }
    return intact;
}

template <std::size_t SIZE>
int kept_after(std::size_t in_use) {
    const mw::OwnedSamplePool pool = make_pool<SIZE>();
    EXPECT_TRUE(takes_and_gives_back<SIZE>(*pool, 1, in_use));
    const int kept = alive;
    EXPECT_TRUE(takes_and_gives_back<SIZE>(*pool, 2, static_cast<std::size_t>(kept)));
    EXPECT_EQ(kept, alive) << "samples were made while others were free, with " << in_use << " in use";
    return kept;
}

TEST(SamplePool, keeps_what_was_in_use_up_to_some_megabytes) {
    for (const int in_use : {1, 64, 65, 300}) {
        EXPECT_EQ(in_use, kept_after<8>(static_cast<std::size_t>(in_use)));
    }
    EXPECT_GE(16, kept_after<1000000>(40));
    EXPECT_EQ(8, kept_after<4000000>(10));
    EXPECT_EQ(0, alive);
}

TEST(SamplePool, hands_each_sample_to_one_thread_also_while_its_owner_lets_go) {
    constexpr std::size_t THREADS = 4;
    for (int round = 0; round < 100; ++round) {
        mw::OwnedSamplePool owned = make_pool<8>();
        mw::TypeSamplePool& pool = *owned;
        std::atomic<std::size_t> under_way{0};
        std::atomic<int> torn{0};
        std::vector<std::thread> threads;
        for (std::size_t thread = 1; thread <= THREADS; ++thread) {
            // The sample that it holds all the time is its share in the pool.
            const Counted<8> content(thread);
            threads.emplace_back([&pool, &under_way, &torn, thread, share = pool.make_copy(&content)] {
                for (std::size_t count = 1; count < 60; ++count) {
                    torn += takes_and_gives_back<8>(pool, thread, count) ? 0 : 1;
                    under_way += count == 20 ? 1 : 0;
                }
                mw::release(*share);
            });
        }
        while (under_way < 1) {
            std::this_thread::yield();
        }
        owned.reset();
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(0, torn);
        ASSERT_EQ(0, alive) << "in round " << round;
    }
}

}  // namespace
}  // namespace norvane::test
