// SPDX-License-Identifier: Apache-2.0
// The fast buffer pool.
#include "norvane/dds/buffer_pool.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/AllocationProbe.hpp"
#include "support/LogCapture.hpp"

namespace norvane::test {
namespace {

struct PoolDeleter {
    void operator()(PALUFastBufferPool* pool) const { PALUFastBufferPool_delete(pool); }
};
typedef std::unique_ptr<PALUFastBufferPool, PoolDeleter> Pool;

PALUFastBufferPoolProperty property_of(DDS_Long initial, DDS_Long maximal, DDS_Long increment) {
    return {{initial, maximal, increment}, 0, 0, 0, 0};
}

Pool make_pool(const PALUFastBufferPoolProperty& property, DDS_Long size = 16, DDS_Long alignment = 8) {
    return Pool(PALUFastBufferPool_newWithParams(size, alignment, nullptr, nullptr, nullptr, nullptr, &property, "8", 1));
}

void* get(const Pool& pool) { return PALUFastBufferPool_getBufferWithSize(pool.get(), -1); }

PALUFastBufferPoolInfo info_of(const Pool& pool) {
    PALUFastBufferPoolInfo info;
    PALUFastBufferPool_getInfo(pool.get(), &info);
    return info;
}

// Counts initialisations and finalisations of each buffer; refuses the initialisation numbered `refused`.
struct Callbacks {
    std::multiset<void*> initialized;
    std::multiset<void*> finalized;
    int calls = 0;
    int refused = 0;

    static int initialize(void* buffer, void* param) {
        Callbacks& self = *static_cast<Callbacks*>(param);
        if (++self.calls == self.refused) {
            return 0;
        }
        self.initialized.insert(buffer);
        return 1;
    }
    static void finalize(void* buffer, void* param) { static_cast<Callbacks*>(param)->finalized.insert(buffer); }

    Pool make(const PALUFastBufferPoolProperty& property) {
        return Pool(PALUFastBufferPool_newWithParams(16, 8, initialize, this, finalize, this, &property, nullptr, 0));
    }
};

TEST(BufferPool, grows_as_its_property_says) {
    const struct {
        PALUFastBufferPoolProperty property;
        std::vector<DDS_Long> allocated;  // after each buffer taken; -1 where none can be had
    } cases[] = {{{{2, -1, -1}, 0, 0, 0, 0}, {2, 2, 4, 4, 8}}, {{{0, -1, -1}, 0, 0, 0, 0}, {1, 2, 4, 4, 8}},
                 {{{1, -1, 3}, 0, 0, 0, 0}, {1, 4, 4, 4, 7}},  {{{2, 5, -1}, 0, 0, 0, 0}, {2, 2, 4, 4, 5, -1}},
                 {{{2, -1, 0}, 0, 0, 0, 0}, {2, 2, -1}},       {{{2, 3, 4}, 0, 0, 0, 0}, {2, 2, 3, -1}},
                 {{{1, 1, 1}, 0, 0, 1, 0}, {1, 2, 3}},         {{{2, -1, 0}, 0, 0, 0, 1}, {2, 2, 3, 4}},
                 {{{0, 2, 7}, 1, 0, 0, 1}, {1, 2, -1}},        {{{0, 0, -1}, 1, 0, 0, 0}, {-1}}};
    int number = 0;
    for (const auto& each : cases) {
        SCOPED_TRACE(number++);
        const Pool pool = make_pool(each.property);
        ASSERT_NE(nullptr, pool);
        EXPECT_EQ(each.property.growth.initial, info_of(pool).bufferAllocated);
        EXPECT_EQ(each.property.ignoreMaximal != 0 ? -1 : each.property.growth.maximal, info_of(pool).bufferCountLimit);
        DDS_Long taken = 0;
        std::set<void*> buffers;
        for (const DDS_Long allocated : each.allocated) {
            void* const buffer = get(pool);
            EXPECT_EQ(allocated >= 0, buffer != nullptr);
            if (buffer != nullptr) {
                EXPECT_TRUE(buffers.insert(buffer).second);
                EXPECT_EQ(allocated, info_of(pool).bufferAllocated);
                EXPECT_EQ(++taken, info_of(pool).bufferInUse);
            }
        }
        // What comes back goes out again, before anything is made.
        if (!buffers.empty()) {
            void* const returned = *buffers.begin();
            PALUFastBufferPool_returnBuffer(pool.get(), returned);
            EXPECT_EQ(taken - 1, info_of(pool).bufferInUse);
            EXPECT_EQ(returned, get(pool));
        }
    }
}

TEST(BufferPool, buffers_are_aligned_apart_and_never_moved) {
    const struct {
        DDS_Long size;
        DDS_Long alignment;
    } cases[] = {{1, 1}, {16, 8}, {24, 16}, {7, 64}, {4096, 4096}, {3, 2}};
    for (const auto& each : cases) {
        const Pool pool = make_pool(property_of(1, -1, -1), each.size, each.alignment);
        ASSERT_NE(nullptr, pool);
        std::vector<unsigned char*> buffers;
        for (int index = 0; index < 20; ++index) {
            buffers.push_back(static_cast<unsigned char*>(get(pool)));
            ASSERT_NE(nullptr, buffers.back());
            EXPECT_EQ(0U, reinterpret_cast<std::uintptr_t>(buffers.back()) % static_cast<std::size_t>(each.alignment));
            std::memset(buffers.back(), index, static_cast<std::size_t>(each.size));
        }
        for (int index = 0; index < 20; ++index) {
            const std::vector<unsigned char> expected(static_cast<std::size_t>(each.size), static_cast<unsigned char>(index));
            EXPECT_EQ(0, std::memcmp(expected.data(), buffers[static_cast<std::size_t>(index)], expected.size()));
            PALUFastBufferPool_returnBuffer(pool.get(), buffers[static_cast<std::size_t>(index)]);
        }
        EXPECT_EQ(each.size, info_of(pool).bufferSize);
        EXPECT_EQ(each.alignment, info_of(pool).bufferAlignment);
        EXPECT_EQ(pool.get(), info_of(pool).id);
    }
}

TEST(BufferPool, refuses_settings_out_of_range_and_requests_beyond_a_buffer) {
    const struct {
        DDS_Long size;
        DDS_Long alignment;
        PALUFastBufferPoolProperty property;
        bool accepted;
    } cases[] = {{0, 8, property_of(1, -1, 1), false},   {16, 12, property_of(1, -1, 1), false},
                 {16, 8, property_of(-1, -1, 1), false}, {16, 8, property_of(3, 2, 1), false},
                 {16, 8, property_of(1, -2, 1), false},  {16, 8, property_of(1, -1, -2), false},
                 {16, 8, {{3, 2, 1}, 0, 0, 1, 0}, true}, {16, 8, {{1, -1, -2}, 0, 0, 0, 1}, true}};
    LogCapture capture;
    int number = 0;
    for (const auto& each : cases) {
        EXPECT_EQ(each.accepted, make_pool(each.property, each.size, each.alignment) != nullptr) << number;
        ++number;
    }
    EXPECT_EQ(nullptr, PALUFastBufferPool_newWithParams(16, 8, nullptr, nullptr, nullptr, nullptr, nullptr, "8", 1));
    EXPECT_EQ(7U, capture.lines().size());

    const Pool pool = make_pool(property_of(1, -1, -1));
    EXPECT_EQ(nullptr, PALUFastBufferPool_getBufferWithSize(pool.get(), 17));
    EXPECT_EQ(nullptr, PALUFastBufferPool_getBufferWithSize(pool.get(), -2));
    EXPECT_NE(nullptr, PALUFastBufferPool_getBufferWithSize(pool.get(), 16));
}

TEST(BufferPool, initialises_each_buffer_once_and_finalises_it_once_wherever_it_is) {
    Callbacks callbacks;
    {
        const Pool pool = callbacks.make(property_of(2, -1, -1));
        EXPECT_EQ(2U, callbacks.initialized.size());
        std::vector<void*> buffers;
        for (int round = 0; round < 3; ++round) {
            while (buffers.size() < 5) {
                buffers.push_back(get(pool));
                EXPECT_EQ(1U, callbacks.initialized.count(buffers.back()));
            }
            PALUFastBufferPool_returnBuffer(pool.get(), buffers.back());
            buffers.pop_back();
        }
        EXPECT_EQ(8U, callbacks.initialized.size());
        EXPECT_TRUE(callbacks.finalized.empty());
    }
    EXPECT_EQ(callbacks.initialized, callbacks.finalized);
    EXPECT_EQ(8U, callbacks.finalized.size());
}

TEST(BufferPool, buffer_that_cannot_be_initialised_is_neither_used_nor_finalised) {
    for (int refused = 1; refused <= 7; ++refused) {
        Callbacks callbacks;
        callbacks.refused = refused;
        {
            const Pool pool = callbacks.make(property_of(2, -1, -1));
            EXPECT_EQ(refused > 2, pool != nullptr) << refused;
            for (int index = 0; pool != nullptr && index < 3; ++index) {
                EXPECT_EQ(1U, callbacks.initialized.count(get(pool))) << refused;
            }
        }
        EXPECT_EQ(callbacks.initialized, callbacks.finalized) << refused;
    }
    Callbacks callbacks;
    callbacks.refused = 2;
    const Pool pool = callbacks.make(property_of(1, -1, 1));
    EXPECT_NE(nullptr, get(pool));
    EXPECT_EQ(nullptr, get(pool));
    EXPECT_NE(nullptr, get(pool)) << "one refusal must not end the growth for good";
}

TEST(BufferPool, clears_buffers_only_when_told_to_and_when_they_hold_no_object) {
    for (const bool cleared : {false, true}) {
        for (const bool live : {false, true}) {
            PALUFastBufferPoolProperty property = property_of(1, 1, 0);
            property.zeroBufferContent = cleared ? 1 : 0;
            Callbacks callbacks;
            const Pool pool = live ? callbacks.make(property) : make_pool(property);
            unsigned char* const buffer = static_cast<unsigned char*>(get(pool));
            std::memset(buffer, 0x5a, 16);
            PALUFastBufferPool_returnBuffer(pool.get(), buffer);
            ASSERT_EQ(buffer, get(pool));
            const std::string expected(16, cleared && !live ? '\0' : '\x5a');
            EXPECT_EQ(0, std::memcmp(expected.data(), buffer, 16));
        }
    }
}

TEST(BufferPool, want_of_memory_gives_null_and_leaves_nothing_behind) {
    const long runs = fail_each_allocation([] {
        const PALUFastBufferPoolProperty property = property_of(2, -1, 4);
        PALUFastBufferPool* const pool =
            PALUFastBufferPool_newWithParams(16, 8, nullptr, nullptr, nullptr, nullptr, &property, nullptr, 0);
        int got = 0;
        for (int index = 0; pool != nullptr && index < 3; ++index) {
            got += PALUFastBufferPool_getBufferWithSize(pool, -1) != nullptr ? 1 : 0;
        }
        PALUFastBufferPool_delete(pool);
        AllocationProbe::stop();
        EXPECT_EQ(0, AllocationProbe::outstanding());
        // Growth by four failed, growth by two did not.
        EXPECT_EQ(AllocationProbe::has_failed() && AllocationProbe::count() < 3 ? 0 : 3, got);
    });
    EXPECT_EQ(3, runs);
}

TEST(BufferPool, buffer_given_back_twice_is_reported_and_stays_one_buffer) {
    LogCapture capture;
    const Pool pool = make_pool(property_of(2, -1, -1));
    void* const buffer = get(pool);
    PALUFastBufferPool_returnBuffer(pool.get(), nullptr);
    PALUFastBufferPool_returnBuffer(pool.get(), buffer);
    EXPECT_TRUE(capture.lines().empty());
    PALUFastBufferPool_returnBuffer(pool.get(), buffer);
    EXPECT_EQ(1U, capture.lines().size());
    EXPECT_EQ(0, info_of(pool).bufferInUse);
    EXPECT_NE(get(pool), get(pool));
}

TEST(BufferPool, buffer_given_back_while_the_pool_grows_is_not_lost) {
    struct Returning {
        PALUFastBufferPool* pool = nullptr;
        void* held = nullptr;
        static int initialize(void*, void* param) {
            Returning& self = *static_cast<Returning*>(param);
            PALUFastBufferPool_returnBuffer(self.pool, self.held);
            self.held = nullptr;
            return 1;
        }
    } returning;
    PALUFastBufferPoolProperty property = property_of(1, 3, 2);
    property.multiThreadedAccess = 1;
    const Pool pool(
        PALUFastBufferPool_newWithParams(8, 8, Returning::initialize, &returning, nullptr, nullptr, &property, nullptr, 0));
    void* const first = get(pool);
    returning.pool = pool.get();
    returning.held = first;
    const std::set<void*> all = {get(pool), get(pool), get(pool)};
    EXPECT_EQ(3U, all.size());
    EXPECT_EQ(1U, all.count(first));
    EXPECT_EQ(nullptr, get(pool));
}

TEST(BufferPool, threads_at_once_share_its_buffers_and_never_one_of_them) {
    const auto slow = [](void*, void*) {
        for (int round = 0; round < 10; ++round) {
            std::this_thread::yield();
        }
        return 1;
    };
    PALUFastBufferPoolProperty property = property_of(0, 12, 12);
    property.multiThreadedAccess = 1;
    std::atomic<int> clashes{0};
    for (int trial = 0; trial < 20; ++trial) {
        // Four threads with three buffers each: those that waited while one thread made them all must find them.
        const Pool pool(PALUFastBufferPool_newWithParams(16, 8, slow, nullptr, nullptr, nullptr, &property, nullptr, 0));
        std::vector<std::thread> threads;
        for (int number = 1; number <= 4; ++number) {
            threads.emplace_back([&, number] {
                for (int round = 0; round < 1000; ++round) {
                    int spare;
                    int* held[3];
                    for (int*& buffer : held) {
                        buffer = static_cast<int*>(get(pool));
                        *(buffer != nullptr ? buffer : &spare) = number;
                    }
                    for (int* buffer : held) {
                        clashes += buffer != nullptr && *buffer == number ? 0 : 1;
                        PALUFastBufferPool_returnBuffer(pool.get(), buffer);
                    }
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(0, info_of(pool).bufferInUse);
    }
    EXPECT_EQ(0, clashes);
}

}  // namespace
}  // namespace norvane::test
