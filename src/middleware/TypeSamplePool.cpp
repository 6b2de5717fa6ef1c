// SPDX-License-Identifier: Apache-2.0
#include "middleware/TypeSamplePool.hpp"

#include <algorithm>
#include <exception>
#include <new>

#include "middleware/Log.hpp"
#include "middleware/alignment.hpp"
#include "platform/Processor.hpp"

namespace norvane {
namespace mw {

namespace {

// Free memory that is kept after a burst, unless fewer than KEPT_AT_LEAST samples fit into it.
constexpr std::size_t KEPT_OCTETS = 16 * 1024 * 1024;
constexpr std::size_t KEPT_AT_LEAST = 8;

}  // namespace

TypeSamplePool* TypeSamplePool::make(std::shared_ptr<const DDS_TypeOperations> type) noexcept {
    return new (std::nothrow) TypeSamplePool(std::move(type));
}

TypeSamplePool::TypeSamplePool(std::shared_ptr<const DDS_TypeOperations> type) noexcept
    : _type(std::move(type)),
      _data_offset(round_up(sizeof(Sample), _type->alignment)),
      _alignment(std::max(_type->alignment, platform::CACHE_LINE)),
      _free(std::max(KEPT_AT_LEAST, KEPT_OCTETS / (_data_offset + _type->size))) {}

void TypeSamplePool::disown() noexcept {
    Sample* kept = _free.close();
    while (kept != nullptr) {
        Sample* next = kept->next;
        destroy_sample(kept);
        let_go();
        kept = next;
    }
    let_go();
}

Sample* TypeSamplePool::make_sample() noexcept {
    // Each on cache lines of its own: writer and readers of neighbouring samples are different threads.
    const std::size_t size = round_up(_data_offset + _type->size, platform::CACHE_LINE);
    void* place = ::operator new(size, std::align_val_t(_alignment), std::nothrow);
    if (place == nullptr) {
        return nullptr;
    }
    Sample* sample = new (place) Sample();
    sample->pool = this;
    sample->data = static_cast<unsigned char*>(place) + _data_offset;
    try {
        _type->construct(*_type, sample->data);
    } catch (...) {
        sample->~Sample();
        ::operator delete(place, std::align_val_t(_alignment));
        return nullptr;
    }
    _holders.fetch_add(1, std::memory_order_relaxed);
    return sample;
}

void TypeSamplePool::destroy_sample(Sample* sample) noexcept {
    _type->destroy(*_type, sample->data);
    sample->~Sample();
    ::operator delete(static_cast<void*>(sample), std::align_val_t(_alignment));
}

// The metadata is what the sample had before: engines assign it whole.
Sample* TypeSamplePool::take() noexcept {
    Sample* sample = _free.take();
    if (sample == nullptr) {
        return make_sample();
    }
    sample->references.store(1, std::memory_order_relaxed);
    return sample;
}

Sample* TypeSamplePool::make_copy(const void* data) noexcept {
    Sample* sample = take();
    if (sample == nullptr) {
        return nullptr;
    }
    try {
        if (_type->copy(*_type, sample->data, data)) {
            return sample;
        }
    } catch (const std::exception& failure) {
        log_error("TypeSamplePool::make_copy",
                  [&] { return std::string("copying a sample of type ") + _type->name + " threw: " + failure.what(); });
    } catch (...) {
        log_error("TypeSamplePool::make_copy", [&] { return std::string("copying a sample of type ") + _type->name + " threw"; });
    }
    release(*sample);
    return nullptr;
}

Sample* TypeSamplePool::make_decoded(const std::uint8_t* octets, std::size_t length) noexcept {
    if (_type->decode == nullptr) {
        return nullptr;
    }
    Sample* sample = take();
    if (sample == nullptr) {
        return nullptr;
    }
    try {
        if (_type->decode(*_type, sample->data, octets, length)) {
            return sample;
        }
    } catch (...) {
        log_error("TypeSamplePool::make_decoded",
                  [&] { return std::string("decoding a sample of type ") + _type->name + " threw"; });
    }
    release(*sample);
    return nullptr;
}

std::size_t TypeSamplePool::encoded_size(const void* data) noexcept {
    return or_zero("measuring", [&] { return _type->encoded_size(*_type, data); });
}

std::size_t TypeSamplePool::encode(const void* data, std::uint8_t* octets, std::size_t capacity) noexcept {
    return or_zero("encoding", [&] { return _type->encode(*_type, data, octets, capacity); });
}

template <typename Operation>
std::size_t TypeSamplePool::or_zero(const char* what, Operation operation) noexcept {
    if (_type->encode == nullptr) {
        return 0;
    }
    try {
        return operation();
    } catch (const std::exception& failure) {
        log_error("TypeSamplePool::encode",
                  [&] { return std::string(what) + " a sample of type " + _type->name + " threw: " + failure.what(); });
    } catch (...) {
        log_error("TypeSamplePool::encode", [&] { return std::string(what) + " a sample of type " + _type->name + " threw"; });
    }
    return 0;
}

void TypeSamplePool::take_back(Sample& sample) noexcept {
    if (_type->clear != nullptr) {
        _type->clear(*_type, sample.data);
    }
    if (!_free.put(sample)) {
        destroy_sample(&sample);
        let_go();
    }
}

void TypeSamplePool::let_go() noexcept {
    if (_holders.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete this;
    }
}

}  // namespace mw
}  // namespace norvane
