// SPDX-License-Identifier: Apache-2.0
// The pool of constructed objects, and the handle that owns one of them.
#include "norvane/details/FastObjectPool.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <utility>

namespace norvane::test {
namespace {

// Counts its constructions and destructions; the one numbered `fails` throws.
struct Counted {
    Counted() {
        if (++constructed == fails) {
            throw std::runtime_error("no more of these");
        }
    }
    ~Counted() { ++destroyed; }
    static void reset(int failing = 0) {
        constructed = destroyed = 0;
        fails = failing;
    }
    int used = 0;
    static int constructed;
    static int destroyed;
    static int fails;
};
int Counted::constructed = 0;
int Counted::destroyed = 0;
int Counted::fails = 0;

typedef FastObjectPool<Counted> Pool;
typedef PoolAutoPtr<Counted> Handle;

constexpr PALUFastBufferPoolProperty GROWING = {{2, -1, -1}, 1, 0, 0, 0};

TEST(ObjectPool, that_cannot_make_an_object_throws_bad_alloc_and_nothing_else_escapes) {
    for (const int failing : {1, 2}) {
        Counted::reset(failing);
        EXPECT_THROW(Pool pool(GROWING), std::bad_alloc) << failing;
        EXPECT_EQ(Counted::constructed - 1, Counted::destroyed);
    }
    Counted::reset();
    Pool pool({{2, 2, 0}, 0, 0, 0, 0});
    Handle first(pool.get_auto_ptr());
    const Handle second(pool.get_auto_ptr());
    EXPECT_THROW(pool.get_ptr(), std::bad_alloc);
    first->used = 5;
    first.reset(NULL);
    EXPECT_EQ(1, pool.buffers_in_use());
    Handle again(pool.get_auto_ptr());
    EXPECT_EQ(5, again->used) << "handed out as it was given back";
    EXPECT_EQ(2, Counted::constructed);
}

TEST(PoolHandle, gives_its_object_back_exactly_once_whoever_owned_it_last) {
    Pool pool({{3, -1, -1}, 0, 0, 0, 0});
    const std::pair<const char*, std::function<void(Handle&)>> ways[] = {
        {"destroyed", [](Handle&) {}},
        {"owned pointer reset", [](Handle& handle) { handle.reset(handle.get()); }},
        {"reset to another", [&](Handle& handle) { handle.reset(pool.get_ptr()); }},
        {"copied",
         [&](Handle& handle) {
             Handle target(handle);
             EXPECT_TRUE(handle.get() == NULL && target.get() != NULL && pool.buffers_in_use() == 1);
         }},
        {"assigned over another",
         [&](Handle& handle) {
             Handle target(pool.get_auto_ptr());
             target = handle;
             Handle& same = target;
             target = same;
             EXPECT_TRUE(handle.get() == NULL && target.get() != NULL && pool.buffers_in_use() == 1);
         }},
        {"through the record, to an unbound one",
         [&](Handle& handle) {
             const Counted* const owned = handle.get();
             details::PoolAutoPtrRef<Counted> record = handle;
             Handle target;
             target = record;
             EXPECT_TRUE(handle.get() == NULL && target.get() == owned);
         }},
        {"released",
         [&](Handle& handle) {
             Counted* const owned = handle.release();
             EXPECT_EQ(NULL, handle.get());
             EXPECT_EQ(1, pool.buffers_in_use());
             handle.reset(owned);
         }},
    };
    for (const auto& way : ways) {
        {
            Handle handle(pool.get_ptr(), pool);
            way.second(handle);
            EXPECT_GE(1, pool.buffers_in_use()) << way.first;
        }
        EXPECT_EQ(0, pool.buffers_in_use()) << way.first;
    }
}

}  // namespace
}  // namespace norvane::test
