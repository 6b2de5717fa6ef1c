// SPDX-License-Identifier: Apache-2.0
// The replaced allocator: malloc, with a count for each thread.
#include "AllocationProbe.hpp"

#include <cstdlib>
#include <new>

namespace {

struct ProbeState {
    bool active;
    long failing;
    long count;
    long outstanding;
};

thread_local ProbeState probe_state;

void* allocate(std::size_t size, std::size_t alignment) noexcept {
    if (probe_state.active && ++probe_state.count == probe_state.failing) {
        return nullptr;
    }
    void* block = nullptr;
    if (alignment <= __STDCPP_DEFAULT_NEW_ALIGNMENT__) {
        block = std::malloc(size == 0 ? 1 : size);
    } else if (posix_memalign(&block, alignment, size) != 0) {
        block = nullptr;
    }
    probe_state.outstanding += probe_state.active && block != nullptr ? 1 : 0;
    return block;
}

void* allocate_or_throw(std::size_t size, std::size_t alignment) {
    void* const block = allocate(size, alignment);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void release(void* block) noexcept {
    probe_state.outstanding -= probe_state.active && block != nullptr ? 1 : 0;
    std::free(block);
}

constexpr std::size_t PLAIN = __STDCPP_DEFAULT_NEW_ALIGNMENT__;

}  // namespace

void* operator new(std::size_t size) { return allocate_or_throw(size, PLAIN); }
void* operator new[](std::size_t size) { return allocate_or_throw(size, PLAIN); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocate(size, PLAIN); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return allocate(size, PLAIN); }
void* operator new(std::size_t size, std::align_val_t alignment) {
    return allocate_or_throw(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
    return allocate_or_throw(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return allocate(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return allocate(size, static_cast<std::size_t>(alignment));
}

void operator delete(void* block) noexcept { release(block); }
void operator delete[](void* block) noexcept { release(block); }
void operator delete(void* block, std::size_t) noexcept { release(block); }
void operator delete[](void* block, std::size_t) noexcept { release(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { release(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { release(block); }
void operator delete(void* block, std::align_val_t) noexcept { release(block); }
void operator delete[](void* block, std::align_val_t) noexcept { release(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { release(block); }
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept { release(block); }
void operator delete(void* block, std::align_val_t, const std::nothrow_t&) noexcept { release(block); }
void operator delete[](void* block, std::align_val_t, const std::nothrow_t&) noexcept { release(block); }

namespace norvane::test {

void AllocationProbe::fail(long number) noexcept { probe_state = {true, number, 0, 0}; }
void AllocationProbe::stop() noexcept { probe_state.active = false; }

long AllocationProbe::count() noexcept { return probe_state.count; }
bool AllocationProbe::has_failed() noexcept { return probe_state.failing > 0 && probe_state.count >= probe_state.failing; }
long AllocationProbe::outstanding() noexcept { return probe_state.outstanding; }

}  // namespace norvane::test
