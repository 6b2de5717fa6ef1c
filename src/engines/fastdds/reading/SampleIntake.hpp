// SPDX-License-Identifier: Apache-2.0
// The way of a sample from its encoding into the sink of an endpoint. Used with the lock that orders the samples of that endpoint.
#ifndef NORVANE_ENGINES_FASTDDS_READING_SAMPLEINTAKE_HPP
#define NORVANE_ENGINES_FASTDDS_READING_SAMPLEINTAKE_HPP

#include <cstddef>
#include <cstdint>
#include <memory>

#include "engines/fastdds/Endpoint.hpp"

namespace norvane {
namespace fastdds {

struct ReleaseSample {
    void operator()(mw::Sample* sample) const noexcept { mw::release(*sample); }
};
/// One reference to a sample.
typedef std::unique_ptr<mw::Sample, ReleaseSample> SampleReference;

class SampleIntake {
public:
    /// Both are borrowed.
    SampleIntake(Endpoint& owner, mw::SamplePool& pool) noexcept : _owner(owner), _pool(pool) {}

    void attach(mw::SampleSink& sink) noexcept { _sink = &sink; }
    mw::SampleSink& sink() const noexcept { return *_sink; }

    /// @return the sample; null when memory is short, or the octets are not one.
    SampleReference decode(const std::uint8_t* octets, std::size_t length) noexcept {
        return SampleReference(_pool.make_decoded(octets, length));
    }
    /// Stores a sample that the sink has kept room for. One that is null, since it could not be decoded, is counted as lost.
    void store(SampleReference sample, const mw::SampleMetadata& metadata) noexcept;
    void count_loss() noexcept;

private:
    Endpoint& _owner;
    mw::SamplePool& _pool;
    mw::SampleSink* _sink = nullptr;
};

}  // namespace fastdds
}  // namespace norvane

#endif
