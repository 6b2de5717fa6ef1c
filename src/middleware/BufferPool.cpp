// SPDX-License-Identifier: Apache-2.0
// The fast buffer pool. Buffers live in chunks that never move; each has a small header in front of it, since a free buffer
// holds a live object and has no room for a link.
//
// Invariants:
// 1. Free buffers form one list, last returned first: what was used last is still in the cache.
// 2. Taking and giving back hold `_mutex` alone, and only for the list. Growth holds `_growth`, and `_mutex` just to link.
// 3. A buffer whose initialisation failed is in no list, and is never finalised.
// Thread rule: any thread at once when the pool was made for it; otherwise one thread.
#include "norvane/dds/buffer_pool.hpp"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <new>

#include "middleware/Log.hpp"
#include "middleware/alignment.hpp"
#include "platform/BriefMutex.hpp"

namespace {

using norvane::mw::round_up;

enum class BufferState : std::uint32_t { UNUSABLE, FREE, IN_USE };

struct BufferHeader {
    BufferHeader* next_free;
    BufferState state;
};

struct Chunk {
    Chunk* next;
    DDS_Long buffers;
};

/// Holds a mutex for its scope, unless the pool is for one thread.
template <typename Mutex>
class ScopedLock {
public:
    ScopedLock(Mutex& mutex, bool wanted) : _mutex(wanted ? &mutex : nullptr) {
        if (_mutex != nullptr) {
            _mutex->lock();
        }
    }
    ~ScopedLock() {
        if (_mutex != nullptr) {
            _mutex->unlock();
        }
    }
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

private:
    Mutex* _mutex;
};

}  // namespace

struct PALUFastBufferPool {
public:
    PALUFastBufferPool(DDS_Long buffer_size, DDS_Long buffer_alignment, int (*initialize)(void*, void*), void* initialize_param,
                       void (*finalize)(void*, void*), void* finalize_param, const PALUFastBufferPoolProperty& property)
        : _property(property),
          _limit(property.ignoreMaximal != 0 ? DDS_LENGTH_UNLIMITED : property.growth.maximal),
          _shared(property.multiThreadedAccess != 0),
          _cleared(property.zeroBufferContent != 0 && initialize == nullptr),
          _buffer_size(static_cast<std::size_t>(buffer_size)),
          _buffer_alignment(static_cast<std::size_t>(buffer_alignment)),
          _alignment(_buffer_alignment > alignof(BufferHeader) ? _buffer_alignment : alignof(BufferHeader)),
          _header_gap(round_up(sizeof(BufferHeader), _alignment)),
          _stride(_header_gap + round_up(_buffer_size, _alignment)),
          _initialize(initialize),
          _initialize_param(initialize_param),
          _finalize(finalize),
          _finalize_param(finalize_param) {}

    ~PALUFastBufferPool() {
        while (_chunks != nullptr) {
            Chunk* const chunk = _chunks;
            _chunks = chunk->next;
            for (DDS_Long index = 0; _finalize != nullptr && index < chunk->buffers; ++index) {
                void* const buffer = buffer_of(*chunk, index);
                if (header_of(buffer).state != BufferState::UNUSABLE) {
                    _finalize(buffer, _finalize_param);
                }
            }
            free_chunk(chunk);
        }
    }
    PALUFastBufferPool(const PALUFastBufferPool&) = delete;
    PALUFastBufferPool& operator=(const PALUFastBufferPool&) = delete;

    bool make_initial() {
        const DDS_Long initial = _property.growth.initial;
        return initial == 0 || (make_chunk(initial, nullptr) && _allocated == initial);
    }

    void* get(DDS_Long size) {
        if (size < -1 || (size > 0 && static_cast<std::size_t>(size) > _buffer_size)) {
            return nullptr;
        }
        void* buffer = take_free();
        if (buffer == nullptr) {
            buffer = grow();
        }
        if (buffer != nullptr && _cleared) {
            std::memset(buffer, 0, _buffer_size);
        }
        return buffer;
    }

    void give_back(void* buffer) {
        BufferHeader& header = header_of(buffer);
        {
            const ScopedLock<norvane::platform::BriefMutex> lock(_mutex, _shared);
            if (header.state == BufferState::IN_USE) {
                header.state = BufferState::FREE;
                header.next_free = _free;
                _free = &header;
                --_in_use;
                return;
            }
        }
        norvane::mw::log_error("PALUFastBufferPool_returnBuffer", "the buffer is in the pool already; nothing was done");
    }

    void tell(PALUFastBufferPoolInfo& info) {
        const ScopedLock<norvane::platform::BriefMutex> lock(_mutex, _shared);
        info.id = this;
        info.bufferSize = static_cast<DDS_Long>(_buffer_size);
        info.bufferAlignment = static_cast<DDS_Long>(_buffer_alignment);
        info.bufferAllocated = _allocated;
        info.bufferInUse = _in_use;
        info.bufferCountLimit = _limit;
    }

private:
    static constexpr DDS_Long MOST = 0x7fffffff;

    BufferHeader& header_of(void* buffer) const noexcept {
        return *reinterpret_cast<BufferHeader*>(static_cast<unsigned char*>(buffer) - _header_gap);
    }
    void* buffer_at(BufferHeader& header) const noexcept { return reinterpret_cast<unsigned char*>(&header) + _header_gap; }
    void* buffer_of(Chunk& chunk, DDS_Long index) const noexcept {
        return reinterpret_cast<unsigned char*>(&chunk) + round_up(sizeof(Chunk), _alignment) + _header_gap +
               static_cast<std::size_t>(index) * _stride;
    }

    Chunk* allocate_chunk(DDS_Long buffers) const noexcept {
        const std::size_t size = round_up(sizeof(Chunk), _alignment) + static_cast<std::size_t>(buffers) * _stride;
        void* const memory = _alignment > __STDCPP_DEFAULT_NEW_ALIGNMENT__
                                 ? ::operator new(size, std::align_val_t(_alignment), std::nothrow)
                                 : ::operator new(size, std::nothrow);
        return memory != nullptr ? new (memory) Chunk{nullptr, buffers} : nullptr;
    }
    void free_chunk(Chunk* chunk) const noexcept {
        if (_alignment > __STDCPP_DEFAULT_NEW_ALIGNMENT__) {
            ::operator delete(chunk, std::align_val_t(_alignment));
        } else {
            ::operator delete(chunk);
        }
    }

    void* take_free() {
        const ScopedLock<norvane::platform::BriefMutex> lock(_mutex, _shared);
        BufferHeader* const header = _free;
        if (header == nullptr) {
            return nullptr;
        }
        _free = header->next_free;
        header->state = BufferState::IN_USE;
        ++_in_use;
        return buffer_at(*header);
    }

    void* grow() {
        const ScopedLock<std::mutex> turn(_growth, _shared);
        // Another thread may have grown the pool, or returned a buffer, while this one waited for the lock.
        if (void* const buffer = take_free()) {
            return buffer;
        }
        void* buffer = nullptr;
        // A large chunk may be more than memory has left; a smaller one still serves this caller.
        for (DDS_Long wanted = growth_step(); wanted > 0 && !make_chunk(wanted, &buffer); wanted /= 2) {
        }
        return buffer;
    }

    DDS_Long growth_step() const noexcept {
        const DDS_Long room = (_limit == DDS_LENGTH_UNLIMITED ? MOST : _limit) - _allocated;
        DDS_Long step = _property.growth.increment;
        if (_property.dynamicAlloc != 0) {
            step = 1;
        } else if (step == -1) {
            step = _allocated > 0 ? _allocated : 1;
        }
        return step < room ? step : room;
    }

    /// Makes buffers; hands one out when `taken` is not null.
    /// @return false when memory is short; otherwise true, even when no buffer could be initialised.
    bool make_chunk(DDS_Long buffers, void** taken) {
        Chunk* const chunk = allocate_chunk(buffers);
        if (chunk == nullptr) {
            return false;
        }
        BufferHeader* first = nullptr;
        BufferHeader* last = nullptr;
        DDS_Long made = 0;
        // Backwards, so that the list hands them out in the order of their addresses.
        for (DDS_Long index = buffers - 1; index >= 0; --index) {
            void* const buffer = buffer_of(*chunk, index);
            BufferHeader* const header = new (&header_of(buffer)) BufferHeader{first, BufferState::UNUSABLE};
            if (_initialize != nullptr && _initialize(buffer, _initialize_param) == 0) {
                continue;
            }
            header->state = BufferState::FREE;
            first = header;
            last = last != nullptr ? last : header;
            ++made;
        }
        if (made == 0) {
            free_chunk(chunk);
            return true;
        }
        chunk->next = _chunks;
        _chunks = chunk;
        const ScopedLock<norvane::platform::BriefMutex> lock(_mutex, _shared);
        _allocated += made;
        if (taken != nullptr) {
            *taken = buffer_at(*first);
            first->state = BufferState::IN_USE;
            ++_in_use;
            first = first->next_free;
        }
        if (first != nullptr) {
            last->next_free = _free;
            _free = first;
        }
        return true;
    }

    const PALUFastBufferPoolProperty _property;
    const DDS_Long _limit;
    const bool _shared;
    const bool _cleared;
    const std::size_t _buffer_size;
    const std::size_t _buffer_alignment;
    const std::size_t _alignment;   // of headers and buffers
    const std::size_t _header_gap;  // from a header to its buffer
    const std::size_t _stride;      // from one buffer to the next
    int (*const _initialize)(void*, void*);
    void* const _initialize_param;
    void (*const _finalize)(void*, void*);
    void* const _finalize_param;

    std::mutex _growth;        // taken before _mutex
    Chunk* _chunks = nullptr;  // under _growth
    DDS_Long _allocated = 0;   // written under both
    norvane::platform::BriefMutex _mutex;
    BufferHeader* _free = nullptr;  // under _mutex
    DDS_Long _in_use = 0;           // under _mutex
};

PALUFastBufferPool* PALUFastBufferPool_newWithParams(DDS_Long buffer_size, DDS_Long buffer_alignment,
                                                     int (*initialize)(void* buffer, void* param), void* initialize_param,
                                                     void (*finalize)(void* buffer, void* param), void* finalize_param,
                                                     const PALUFastBufferPoolProperty* property, const char*, int) {
    const char* fault = nullptr;
    if (property == nullptr) {
        fault = "property is null";
    } else if (buffer_size < 1) {
        fault = "buffer_size is below 1";
    } else if (buffer_alignment < 1 || (buffer_alignment & (buffer_alignment - 1)) != 0) {
        fault = "buffer_alignment is not a power of two";
    } else if (property->growth.initial < 0) {
        fault = "growth.initial is negative";
    } else if (property->ignoreMaximal == 0 && property->growth.maximal < -1) {
        fault = "growth.maximal is below -1";
    } else if (property->ignoreMaximal == 0 && property->growth.maximal != -1 &&
               property->growth.initial > property->growth.maximal) {
        fault = "growth.initial is above growth.maximal";
    } else if (property->dynamicAlloc == 0 && property->growth.increment < -1) {
        fault = "growth.increment is below -1";
    }
    if (fault != nullptr) {
        norvane::mw::log_error("PALUFastBufferPool_newWithParams", fault);
        return nullptr;
    }
    PALUFastBufferPool* const pool = new (std::nothrow)
        PALUFastBufferPool(buffer_size, buffer_alignment, initialize, initialize_param, finalize, finalize_param, *property);
    if (pool != nullptr && !pool->make_initial()) {
        delete pool;
        return nullptr;
    }
    return pool;
}

void* PALUFastBufferPool_getBufferWithSize(PALUFastBufferPool* pool, DDS_Long size) { return pool->get(size); }

void PALUFastBufferPool_returnBuffer(PALUFastBufferPool* pool, void* buffer) {
    if (buffer != nullptr) {
        pool->give_back(buffer);
    }
}

void PALUFastBufferPool_delete(PALUFastBufferPool* pool) { delete pool; }

void PALUFastBufferPool_getInfo(PALUFastBufferPool* pool, PALUFastBufferPoolInfo* info) { pool->tell(*info); }
