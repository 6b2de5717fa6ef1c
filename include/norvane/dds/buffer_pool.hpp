// SPDX-License-Identifier: Apache-2.0
// Fast pool of buffers of one size. A buffer is initialised once, when it is made, and finalised once, when the pool goes.
#ifndef NORVANE_DDS_BUFFER_POOL_HPP
#define NORVANE_DDS_BUFFER_POOL_HPP

#include "norvane/dds/types.hpp"
#include "norvane/export.hpp"

struct PALUFastBufferPool;

/// How a pool grows.
struct PALUFastBufferPoolGrowthProperty {
    DDS_Long initial;    ///< Buffers made with the pool; at least 0.
    DDS_Long maximal;    ///< Buffers made at most; -1 means no limit.
    DDS_Long increment;  ///< Buffers made when none is free: that many; -1 doubles the pool; 0 never grows.
};

/// Settings of a pool.
struct PALUFastBufferPoolProperty {
    PALUFastBufferPoolGrowthProperty growth;
    DDS_Long multiThreadedAccess;  ///< Not zero: any threads may use the pool at once. Zero: no lock.
    DDS_Long zeroBufferContent;    ///< Not zero: a buffer is cleared when it is handed out. Only without an initialise callback.
    DDS_Long ignoreMaximal;        ///< Not zero: `growth.maximal` is not looked at.
    DDS_Long dynamicAlloc;  ///< Not zero: buffers are made one by one as they are needed; `growth.increment` is not looked at.
};

/// State of a pool.
struct PALUFastBufferPoolInfo {
    const void* id;             ///< The pool.
    DDS_Long bufferSize;        ///< Octets.
    DDS_Long bufferAlignment;   ///< Octets.
    DDS_Long bufferAllocated;   ///< Buffers made.
    DDS_Long bufferInUse;       ///< Buffers handed out.
    DDS_Long bufferCountLimit;  ///< -1 for no limit.
};

/// Makes a pool.
/// @param buffer_size       octets of a buffer; at least 1.
/// @param buffer_alignment  power of two.
/// @param initialize        called once on every buffer made, with `initialize_param`; a buffer for which it returns 0 is not used.
///                          May be null.
/// @param finalize          called once on every initialised buffer when the pool is deleted, with `finalize_param`. May be null.
/// @param property          not null; copied.
/// @param alignment_text    kept for the interface; any text, or null.
/// @param flags             kept for the interface; any value.
/// @return the pool; null when an argument is out of range, memory is short, or fewer than `growth.initial` buffers could be made.
NORVANE_EXPORT PALUFastBufferPool* PALUFastBufferPool_newWithParams(
    DDS_Long buffer_size, DDS_Long buffer_alignment, int (*initialize)(void* buffer, void* param), void* initialize_param,
    void (*finalize)(void* buffer, void* param), void* finalize_param, const PALUFastBufferPoolProperty* property,
    const char* alignment_text, int flags);

/// Takes a buffer out of the pool. Growth never moves a buffer.
/// @param pool  not null.
/// @param size  octets wanted; -1 means the pool's own size. More than that gives null.
/// @return a buffer for the caller alone; null when none is free and none can be made.
NORVANE_EXPORT void* PALUFastBufferPool_getBufferWithSize(PALUFastBufferPool* pool, DDS_Long size);

/// Gives a buffer back. Nothing is finalised.
/// @param buffer  of this pool's PALUFastBufferPool_getBufferWithSize; null is ignored.
NORVANE_EXPORT void PALUFastBufferPool_returnBuffer(PALUFastBufferPool* pool, void* buffer);

/// Finalises every buffer, those not given back included, and frees their memory. Null is ignored.
NORVANE_EXPORT void PALUFastBufferPool_delete(PALUFastBufferPool* pool);

/// Tells the state of a pool. Neither may be null.
NORVANE_EXPORT void PALUFastBufferPool_getInfo(PALUFastBufferPool* pool, PALUFastBufferPoolInfo* info);

#endif
