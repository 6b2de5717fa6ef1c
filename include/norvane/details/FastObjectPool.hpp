// SPDX-License-Identifier: Apache-2.0
// A pool of constructed objects, and the handle that owns one of them.
//
// An object is constructed when its buffer is made and destroyed with the pool; in between it is handed out and taken back as it
// is.
// Thread rule: the pool serialises its users when its settings say so; a handle belongs to one thread at a time.
#ifndef NORVANE_DETAILS_FASTOBJECTPOOL_HPP
#define NORVANE_DETAILS_FASTOBJECTPOOL_HPP

#include <cstddef>
#include <new>

#include "norvane/dds/buffer_pool.hpp"
#include "norvane/details/precondition.hpp"

namespace norvane {

template <typename T>
class FastObjectPool;

namespace details {

/// Carries the ownership of a PoolAutoPtr through a call by value.
template <typename T>
struct PoolAutoPtrRef {
    PoolAutoPtrRef(T* ptr, FastObjectPool<T>& pool) : _ptr(ptr), _related_pool(pool) {}

    T* _ptr;
    FastObjectPool<T>& _related_pool;
};

}  // namespace details

/// Owns one object of a pool and gives it back when it goes. Copying transfers the ownership.
template <typename T>
class PoolAutoPtr {
public:
    typedef T element_type;

    /// Owns nothing, and is bound to no pool until one is transferred in.
    PoolAutoPtr() noexcept : _ptr(nullptr), _related_pool(nullptr) {}
    /// @param ptr  of `pool`, or null.
    PoolAutoPtr(element_type* ptr, FastObjectPool<T>& pool) noexcept : _ptr(ptr), _related_pool(&pool) {}
    PoolAutoPtr(PoolAutoPtr<T>& other) noexcept : _ptr(other.release()), _related_pool(other._related_pool) {}
    PoolAutoPtr(details::PoolAutoPtrRef<T> ref) noexcept : _ptr(ref._ptr), _related_pool(&ref._related_pool) {}
    ~PoolAutoPtr() { reset(nullptr); }

    PoolAutoPtr& operator=(PoolAutoPtr<T>& other) noexcept {
        if (this != &other) {
            take_over(other.release(), other._related_pool);
        }
        return *this;
    }
    PoolAutoPtr& operator=(details::PoolAutoPtrRef<T> ref) noexcept {
        take_over(ref._ptr, &ref._related_pool);
        return *this;
    }

    /// @throws PreconditionNotMetException  the handle is empty.
    element_type& operator*() const {
        NORVANE_CHECK_PRECONDITION(_ptr != NULL, "operator*");
        return *_ptr;
    }
    /// @throws PreconditionNotMetException  the handle is empty.
    element_type* operator->() const {
        NORVANE_CHECK_PRECONDITION(_ptr != NULL, "operator->");
        return _ptr;
    }
    /// @return the owned object or null; ownership kept.
    element_type* get() noexcept { return _ptr; }

    /// Gives the ownership up without giving the object back.
    element_type* release() noexcept {
        element_type* released = _ptr;
        _ptr = nullptr;
        return released;
    }

    /// Gives the owned object back and owns `ptr` instead. The owned pointer itself changes nothing.
    /// @param ptr  of the same pool, or null.
    void reset(element_type* ptr) noexcept {
        if (ptr == _ptr) {
            return;
        }
        if (_ptr != nullptr) {
            _related_pool->return_ptr(_ptr);
        }
        _ptr = ptr;
    }

    operator details::PoolAutoPtrRef<T>() {
        // The pool must be read before release() is relied on: a handle without a pool cannot be transferred by value.
        NORVANE_CHECK_PRECONDITION(_related_pool != NULL, "operator PoolAutoPtrRef");
        return details::PoolAutoPtrRef<T>(release(), *_related_pool);
    }

private:
    // The old object goes back to the pool it came from, before the handle is bound to another one.
    void take_over(element_type* ptr, FastObjectPool<T>* pool) noexcept {
        reset(nullptr);
        _ptr = ptr;
        _related_pool = pool;
    }

    T* _ptr;
    FastObjectPool<T>* _related_pool;
};

/// Objects of one type, made once and used many times.
template <typename T>
class FastObjectPool {
public:
    typedef T element_type;

    /// @throws std::bad_alloc  the pool could not be made.
    explicit FastObjectPool(const PALUFastBufferPoolProperty& property) { initialize(property); }
    /// A pool of two objects that grows without limit, for one thread.
    /// @throws std::bad_alloc  the pool could not be made.
    FastObjectPool() {
        const PALUFastBufferPoolProperty property = {{2, -1, -1}, 0, 0, 0, 0};
        initialize(property);
    }
    FastObjectPool(const FastObjectPool&) = delete;
    FastObjectPool& operator=(const FastObjectPool&) = delete;
    /// Destroys every object. None may be in use.
    ~FastObjectPool() { PALUFastBufferPool_delete(buffer_pool); }

    /// Takes an object out of the pool, in the state in which its last user left it.
    /// @return never null.
    /// @throws std::bad_alloc  none is free and none can be made.
    element_type* get_ptr() {
        void* buffer = PALUFastBufferPool_getBufferWithSize(buffer_pool, -1);
        if (buffer == nullptr) {
            throw std::bad_alloc();
        }
        return static_cast<element_type*>(buffer);
    }

    /// As `get_ptr`, owned by a handle.
    PoolAutoPtr<T> get_auto_ptr() {
        PoolAutoPtr<T> taken(get_ptr(), *this);
        return details::PoolAutoPtrRef<T>(taken);
    }

    /// Gives an object back.
    /// @param p  of this pool's `get_ptr`.
    void return_ptr(element_type* p) { PALUFastBufferPool_returnBuffer(buffer_pool, p); }

    int buffers_in_use() const { return state().bufferInUse; }
    int buffers_allocated() const { return state().bufferAllocated; }
    void info(PALUFastBufferPoolInfo& info) const { info = state(); }

    /// The callbacks that make and end the object in a buffer.
    template <typename U>
    class BufferMemoryAdapter {
    public:
        /// @return 1, or 0 when the constructor threw: nothing may escape into the buffer pool.
        static int buffer_initialize(void* buffer, void* /*param*/) {
            try {
                new (buffer) U();
                return 1;
            } catch (...) {
                return 0;
            }
        }
        static void buffer_finalize(void* buffer, void* /*param*/) { static_cast<U*>(buffer)->~U(); }
    };

private:
    void initialize(const PALUFastBufferPoolProperty& property) {
        buffer_pool = PALUFastBufferPool_newWithParams(static_cast<DDS_Long>(sizeof(T)), static_cast<DDS_Long>(alignof(T)),
                                                       &BufferMemoryAdapter<T>::buffer_initialize, nullptr,
                                                       &BufferMemoryAdapter<T>::buffer_finalize, nullptr, &property, "8", 1);
        if (buffer_pool == nullptr) {
            throw std::bad_alloc();
        }
    }

    PALUFastBufferPoolInfo state() const {
        PALUFastBufferPoolInfo info;
        PALUFastBufferPool_getInfo(buffer_pool, &info);
        return info;
    }

    PALUFastBufferPool* buffer_pool;  // owned
};

}  // namespace norvane

#endif
