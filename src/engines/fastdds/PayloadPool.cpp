// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/PayloadPool.hpp"

#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>
#include <new>

#include <fastdds/rtps/common/CacheChange.h>

namespace norvane {
namespace fastdds {

/// The beginning of a block. The octets of the payload follow.
struct alignas(std::max_align_t) PayloadPool::Block {
    Block(std::size_t own_length, std::size_t own_class) noexcept : length(own_length), size_class(own_class) {}

    std::atomic<std::uint32_t> references{1};
    const std::size_t length;      ///< Of the whole block.
    const std::size_t size_class;  ///< CLASSES: longer than the longest class.
    Block* next = nullptr;         ///< In reserve.

    rtps::octet* octets() noexcept { return reinterpret_cast<rtps::octet*>(this + 1); }
    static Block& of(rtps::octet* octets) noexcept { return *(reinterpret_cast<Block*>(octets) - 1); }
};

const std::shared_ptr<PayloadPool>& PayloadPool::get() {
    static const std::shared_ptr<PayloadPool>* const POOL = new std::shared_ptr<PayloadPool>(std::make_shared<PayloadPool>());
    return *POOL;
}

// @return null if memory is short.
PayloadPool::Block* PayloadPool::make(std::size_t length, std::size_t size_class) noexcept {
    void* memory = nullptr;
    if (length < MAPPED) {
        memory = ::operator new(length, std::nothrow);
    } else {
        memory = ::mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        memory = memory != MAP_FAILED ? memory : nullptr;
    }
    return memory != nullptr ? new (memory) Block(length, size_class) : nullptr;
}

void PayloadPool::destroy(Block& block) noexcept {
    const std::size_t length = block.length;
    block.~Block();
    if (length < MAPPED) {
        ::operator delete(&block);
    } else {
        ::munmap(&block, length);
    }
}

// Fast DDS keeps the index of missing fragments in the payload: four octets at the beginning of each fragment, rounded up to a
// multiple of four. Those of a last fragment of one octet lie behind it.
constexpr std::size_t INDEX = 8;

// @return null if memory is short.
PayloadPool::Block* PayloadPool::take(std::size_t octets) noexcept {
    const std::size_t needed = sizeof(Block) + octets + INDEX;
    std::size_t size_class = 0;
    std::size_t length = SMALLEST;
    for (; size_class < CLASSES && length < needed; ++size_class) {
        length *= 2;
    }
    if (size_class == CLASSES) {
        return make(needed, size_class);
    }
    {
        const std::unique_lock<platform::BriefMutex> lock(_mutex, std::try_to_lock);
        Reserve& reserve = _reserves[size_class];
        if (lock && reserve.first != nullptr) {
            Block* const block = reserve.first;
            reserve.first = block->next;
            --reserve.count;
            block->references.store(1, std::memory_order_relaxed);
            return block;
        }
    }
    return make(length, size_class);
}

void PayloadPool::give_back(Block& block) noexcept {
    if (block.size_class < CLASSES) {
        const std::unique_lock<platform::BriefMutex> lock(_mutex, std::try_to_lock);
        Reserve& reserve = _reserves[block.size_class];
        if (lock && reserve.count < std::max<std::size_t>(MOST_OCTETS / block.length, 2)) {
            block.next = reserve.first;
            reserve.first = &block;
            ++reserve.count;
            return;
        }
    }
    destroy(block);
}

bool PayloadPool::get_payload(std::uint32_t size, rtps::CacheChange_t& change) {
    Block* const block = take(size);
    if (block == nullptr) {
        return false;
    }
    rtps::SerializedPayload_t& payload = change.serializedPayload;
    payload.data = block->octets();
    payload.max_size = size;
    change.payload_owner(this);
    return true;
}

bool PayloadPool::get_payload(rtps::SerializedPayload_t& data, rtps::IPayloadPool*& owner, rtps::CacheChange_t& change) {
    rtps::SerializedPayload_t& payload = change.serializedPayload;
    if (owner == this) {
        payload.data = data.data;
        payload.max_size = data.max_size;
        change.payload_owner(this);
    } else {
        if (!get_payload(data.length, change)) {
            return false;
        }
        std::memcpy(payload.data, data.data, data.length);
    }
    payload.length = data.length;
    payload.encapsulation = data.encapsulation;
    if (owner == nullptr) {
        // The data is that of the receiving thread: other readers of the same message share the copy.
        data.data = payload.data;
        data.max_size = payload.max_size;
        owner = this;
        Block::of(payload.data).references.fetch_add(1, std::memory_order_relaxed);
    } else if (owner == this) {
        Block::of(payload.data).references.fetch_add(1, std::memory_order_relaxed);
    }
    return true;
}

bool PayloadPool::release_payload(rtps::CacheChange_t& change) {
    rtps::SerializedPayload_t& payload = change.serializedPayload;
    Block& block = Block::of(payload.data);
    payload.data = nullptr;  // otherwise it would free it
    payload.length = payload.max_size = payload.pos = 0;
    change.payload_owner(nullptr);
    if (block.references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        give_back(block);
    }
    return true;
}

}  // namespace fastdds
}  // namespace norvane
