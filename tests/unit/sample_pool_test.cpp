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
    explicit Counted(std::size_t content = 0) : owner(content) { ++alive; }
    Counted(const Counted& other) : owner(other.owner) { ++alive; }
    Counted& operator=(const Counted& other) = default;
    ~Counted() { --alive; }
    std::size_t owner;
    std::array<unsigned char, SIZE> rest{};
};

template <std::size_t SIZE>
mw::OwnedSamplePool make_pool() {
    auto type = std::make_shared<DDS_TypeOperations>(details::cxx_operations<Counted<SIZE>>());
    type->copy = details::copy_sample<Counted<SIZE>>;
    return mw::OwnedSamplePool(mw::TypeSamplePool::make(type));
}

/// Takes as many samples as it says, and gives them back. No other thread may have changed one of them meanwhile.
template <std::size_t SIZE>
void use(mw::TypeSamplePool& pool, std::size_t owner, int count) {
    const auto content = std::make_unique<Counted<SIZE>>(owner);
    std::vector<mw::Sample*> samples(static_cast<std::size_t>(count));
    for (mw::Sample*& sample : samples) {
        sample = pool.make_copy(content.get());
    }
    for (mw::Sample* sample : samples) {
        EXPECT_EQ(owner, static_cast<Counted<SIZE>*>(sample->data)->owner);
        mw::release(*sample);
    }
}

template <std::size_t SIZE>
void expect_kept(int least, int most, int in_use) {
    const mw::OwnedSamplePool pool = make_pool<SIZE>();
    use<SIZE>(*pool, 1, in_use);
    const int kept = alive;
    EXPECT_TRUE(least <= kept && kept <= most) << kept << " of " << in_use;
    use<SIZE>(*pool, 2, kept);
    EXPECT_EQ(kept, alive) << "samples were made while others were free";
}

TEST(SamplePool, keeps_what_was_in_use_up_to_some_megabytes) {
    for (const int in_use : {1, 64, 65, 300}) {
        expect_kept<8>(in_use, in_use, in_use);
    }
    expect_kept<1000000>(8, 16, 40);
    EXPECT_EQ(0, alive);
}

TEST(SamplePool, hands_each_sample_to_one_thread_also_while_its_owner_lets_go) {
    for (int round = 0; round < 100; ++round) {
        mw::OwnedSamplePool owned = make_pool<8>();
        mw::TypeSamplePool& pool = *owned;
        std::atomic<bool> under_way{false};
        std::vector<std::thread> threads;
        for (std::size_t thread = 1; thread <= 4; ++thread) {
            // The sample that it holds all the time is its share in the pool.
            const Counted<8> content(thread);
            threads.emplace_back([&pool, &under_way, thread, share = pool.make_copy(&content)] {
                for (int count = 1; count < 60; ++count) {
                    use<8>(pool, thread, count);
                    if (count == 20) {
                        under_way = true;
                    }
                }
                mw::release(*share);
            });
        }
        while (!under_way) {
            std::this_thread::yield();
        }
        owned.reset();
        for (std::thread& thread : threads) {
            thread.join();
        }
        ASSERT_EQ(0, alive) << "in round " << round;
    }
}

}  // namespace
}  // namespace norvane::test
