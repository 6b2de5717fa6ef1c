// SPDX-License-Identifier: Apache-2.0
// Samples of one type, made once and used many times.
//
// Samples are taken under a lock and given back without one: they collect on a stack that the next taker empties in one go.
// The pool lives until its owner and every sample have released it.
// Thread rule: any thread.
#ifndef NORVANE_MIDDLEWARE_TYPESAMPLEPOOL_HPP
#define NORVANE_MIDDLEWARE_TYPESAMPLEPOOL_HPP

#include <atomic>
#include <cstdint>
#include <memory>

#include "middleware/Engine.hpp"
#include "platform/BriefMutex.hpp"
#include "platform/Processor.hpp"

namespace norvane {
namespace mw {

class TypeSamplePool final : public SamplePool {
public:
    /// @return a pool with one owner; null when memory is short.
    static TypeSamplePool* make(std::shared_ptr<const DDS_TypeOperations> type) noexcept;
    /// Releases the owner's reference.
    void disown() noexcept { let_go(); }

    Sample* make_copy(const void* data) noexcept override;
    Sample* make_decoded(const std::uint8_t* octets, std::size_t length) noexcept override;
    std::size_t encoded_size(const void* data) noexcept override;
    std::size_t encode(const void* data, std::uint8_t* octets, std::size_t capacity) noexcept override;
    const DDS_TypeOperations& type() const noexcept override { return *_type; }
    void take_back(Sample& sample) noexcept override;

private:
    explicit TypeSamplePool(std::shared_ptr<const DDS_TypeOperations> type) noexcept;
    ~TypeSamplePool() override;

    Sample* take() noexcept;
    Sample* make_sample() noexcept;
    void destroy_sample(Sample* sample) noexcept;
    template <typename Operation>
    std::size_t or_zero(const char* what, Operation operation) noexcept;
    void let_go() noexcept;

    const std::shared_ptr<const DDS_TypeOperations> _type;
    const std::size_t _data_offset;
    const std::size_t _alignment;
    const std::int64_t _kept;  // free samples kept for later; more go back to the heap

    alignas(platform::CACHE_LINE) platform::BriefMutex _mutex;
    Sample* _free = nullptr;  // guarded by the mutex

    std::atomic<std::int64_t> _made{0};  // samples that there are

    alignas(platform::CACHE_LINE) std::atomic<Sample*> _returned{nullptr};
    std::atomic<std::int64_t> _holders{1};  // the owner, and every sample that is out: so the free ones need not be counted
};

/// Owns a pool's owner share.
struct DisownPool {
    void operator()(TypeSamplePool* pool) const noexcept { pool->disown(); }
};
typedef std::unique_ptr<TypeSamplePool, DisownPool> OwnedSamplePool;

}  // namespace mw
}  // namespace norvane

#endif
