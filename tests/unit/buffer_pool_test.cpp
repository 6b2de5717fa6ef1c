// SPDX-License-Identifier: Apache-2.0
// The fast buffer pool.
#include "norvane/dds/buffer_pool.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <future>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <utility>
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
    const std::pair<DDS_Long, DDS_Long> sizes_and_alignments[] = {{1, 1}, {24, 16}, {7, 64}, {4096, 4096}, {3, 2}};
    for (const auto& each : sizes_and_alignments) {
        const Pool pool = make_pool(property_of(1, -1, -1), each.first, each.second);
        std::vector<std::pair<void*, std::vector<unsigned char>>> buffers;
        for (unsigned char octet = 0; octet < 20; ++octet) {
            buffers.push_back({get(pool), std::vector<unsigned char>(static_cast<std::size_t>(each.first), octet)});
            EXPECT_EQ(0U, reinterpret_cast<std::uintptr_t>(buffers.back().first) % static_cast<std::size_t>(each.second));
            std::memset(buffers.back().first, octet, buffers.back().second.size());
        }
        for (const auto& buffer : buffers) {
            EXPECT_EQ(0, std::memcmp(buffer.first, buffer.second.data(), buffer.second.size()));
        }
        EXPECT_EQ(each.first, info_of(pool).bufferSize);
        EXPECT_EQ(each.second, info_of(pool).bufferAlignment);
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
    for (const auto& each : cases) {
        const LogCapture capture;
        EXPECT_EQ(each.accepted, make_pool(each.property, each.size, each.alignment) != nullptr);
        EXPECT_EQ(each.accepted ? 0U : 1U, capture.lines().size());
    }
    const Pool pool = make_pool(property_of(1, -1, -1));
    EXPECT_EQ(nullptr, PALUFastBufferPool_getBufferWithSize(pool.get(), 17));
    EXPECT_EQ(nullptr, PALUFastBufferPool_getBufferWithSize(pool.get(), -2));
    EXPECT_NE(nullptr, PALUFastBufferPool_getBufferWithSize(pool.get(), 16));
}

TEST(BufferPool, initialises_each_buffer_once_and_finalises_it_once_wherever_it_is) {
    for (int refused = 0; refused <= 7; ++refused) {  // the initialisation of that number; 0 for none
        SCOPED_TRACE(refused);
        Callbacks callbacks;
        callbacks.refused = refused;
        Pool pool = callbacks.make(property_of(2, -1, -1));
        EXPECT_EQ(refused == 0 || refused > 2, pool != nullptr);
        for (int round = 0; pool != nullptr && round < 5; ++round) {
            void* const buffer = get(pool);
            EXPECT_EQ(1U, callbacks.initialized.count(buffer));
            if (round == 2) {
                PALUFastBufferPool_returnBuffer(pool.get(), buffer);
            }
        }
        EXPECT_TRUE(pool == nullptr || callbacks.finalized.empty());
        EXPECT_TRUE(refused != 0 || callbacks.initialized.size() == 4);
        pool.reset();
        EXPECT_EQ(callbacks.initialized, callbacks.finalized);
    }
}

TEST(BufferPool, clears_buffers_only_when_told_to) {
    for (const bool cleared : {false, true}) {
        PALUFastBufferPoolProperty property = property_of(1, 1, 0);
        property.zeroBufferContent = cleared ? 1 : 0;
        const Pool pool = make_pool(property);
        void* const buffer = get(pool);
        std::memset(buffer, 0x5a, 16);
        PALUFastBufferPool_returnBuffer(pool.get(), buffer);
        ASSERT_EQ(buffer, get(pool));
        EXPECT_EQ(std::string(16, cleared ? '\0' : '\x5a'), std::string(static_cast<char*>(buffer), 16));
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

TEST(BufferPool, threads_at_once_share_its_buffers_and_never_one_of_them) {
    const auto slow = [](void*, void*) {
        std::this_thread::yield();
        return 1;
    };
    const PALUFastBufferPoolProperty property = {{0, 12, 12}, 1, 0, 0, 0};
    for (int trial = 0; trial < 20; ++trial) {
        // Four threads with three buffers each: those that waited while one thread made them all must find them.
        const Pool pool(PALUFastBufferPool_newWithParams(16, 8, slow, nullptr, nullptr, nullptr, &property, nullptr, 0));
        std::vector<std::future<void>> threads;
        for (int number = 1; number <= 4; ++number) {
            threads.push_back(std::async(std::launch::async, [&pool, number] {
                for (int round = 0; round < 1000; ++round) {
                    int* held[3];
                    for (int*& buffer : held) {
                        buffer = static_cast<int*>(get(pool));
                        ASSERT_NE(nullptr, buffer);
                        *buffer = number;
                    }
                    for (int* buffer : held) {
                        EXPECT_EQ(number, *buffer);
                        PALUFastBufferPool_returnBuffer(pool.get(), buffer);
                    }
                }
            }));
        }
        threads.clear();
        EXPECT_EQ(0, info_of(pool).bufferInUse);
    }
}

}  // namespace
}  // namespace norvane::test
