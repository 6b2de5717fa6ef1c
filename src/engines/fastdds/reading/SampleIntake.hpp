// SPDX-License-Identifier: Apache-2.0
// Decodes a sample and stores it in the sink of an endpoint. Used under the lock that orders the samples of that endpoint.
#ifndef NORVANE_ENGINES_FASTDDS_READING_SAMPLEINTAKE_HPP
#define NORVANE_ENGINES_FASTDDS_READING_SAMPLEINTAKE_HPP

#include <cstddef>
#include <cstdint>

#include "engines/fastdds/Endpoint.hpp"
#include "middleware/Engine.hpp"

namespace norvane {
namespace fastdds {

class SampleIntake {
public:
    /// Both are borrowed.
    SampleIntake(Endpoint& owner, mw::SamplePool& pool) noexcept : _owner(owner), _pool(pool) {}

    void attach(mw::SampleSink& sink) noexcept { _sink = &sink; }
    mw::SampleSink& sink() const noexcept { return *_sink; }

    /// @return the sample; null if memory is short or the octets are not a sample.
    mw::SampleReference decode(const std::uint8_t* octets, std::size_t length) noexcept {
        return mw::SampleReference(_pool.make_decoded(octets, length));
    }
    /// Stores a sample that the sink has reserved room for. A null one, which could not be decoded, is counted as lost.
    void store(mw::SampleReference sample, const mw::SampleMetadata& metadata) noexcept;
    void count_loss() noexcept;

private:
    Endpoint& _owner;
    mw::SamplePool& _pool;
    mw::SampleSink* _sink = nullptr;
};

}  // namespace fastdds
}  // namespace norvane

#endif
