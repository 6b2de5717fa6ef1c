// SPDX-License-Identifier: Apache-2.0
// Samples of one type, made once and used many times.
//
// The pool lives until its owner has released it and every sample is destroyed: the free ones when the owner releases it, the
// others when they come back.
// Thread rule: any thread.
#ifndef NORVANE_MIDDLEWARE_TYPESAMPLEPOOL_HPP
#define NORVANE_MIDDLEWARE_TYPESAMPLEPOOL_HPP

#include <atomic>
#include <cstdint>
#include <memory>

#include "middleware/Engine.hpp"
#include "middleware/FreeSamples.hpp"

namespace norvane {
namespace mw {

class TypeSamplePool final : public SamplePool {
public:
    /// @return a pool with one owner; null when memory is short.
    static TypeSamplePool* make(std::shared_ptr<const DDS_TypeOperations> type) noexcept;
    /// Releases the owner's reference.
    void disown() noexcept;

    Sample* make_copy(const void* data) noexcept override;
    Sample* make_decoded(const std::uint8_t* octets, std::size_t length) noexcept override;
    std::size_t encoded_size(const void* data) noexcept override;
    std::size_t encode(const void* data, std::uint8_t* octets, std::size_t capacity) noexcept override;
    const DDS_TypeOperations& type() const noexcept override { return *_type; }
    void take_back(Sample& sample) noexcept override;

private:
    explicit TypeSamplePool(std::shared_ptr<const DDS_TypeOperations> type) noexcept;
    ~TypeSamplePool() override = default;

    Sample* take() noexcept;
    Sample* make_sample() noexcept;
    void destroy_sample(Sample* sample) noexcept;
    template <typename Operation>
    std::size_t or_zero(const char* what, Operation operation) noexcept;
    void let_go() noexcept;

    const std::shared_ptr<const DDS_TypeOperations> _type;
    const std::size_t _data_offset;
    const std::size_t _alignment;

    FreeSamples _free;
    std::atomic<std::int64_t> _holders{1};  // the owner, and every sample that there is, free or not
};

/// Owns a pool's owner share.
struct DisownPool {
    void operator()(TypeSamplePool* pool) const noexcept { pool->disown(); }
};
typedef std::unique_ptr<TypeSamplePool, DisownPool> OwnedSamplePool;

}  // namespace mw
}  // namespace norvane

#endif
