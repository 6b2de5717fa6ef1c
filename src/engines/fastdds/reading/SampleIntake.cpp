// SPDX-License-Identifier: Apache-2.0
#include "engines/fastdds/reading/SampleIntake.hpp"

#include <utility>

#include "platform/WakeBatch.hpp"

namespace norvane {
namespace fastdds {

void SampleIntake::store(mw::SampleReference sample, const mw::SampleMetadata& metadata) noexcept {
    if (!sample) {
        _sink->abandon();
        count_loss();
        return;
    }
    sample->metadata = metadata;
    platform::WakeBatch wake;
    if (_sink->commit(std::move(sample), wake)) {
        _owner.announce_soon();
    }
}

void SampleIntake::count_loss() noexcept {
    if (_sink->sample_lost()) {
        _owner.announce_soon();
    }
}

}  // namespace fastdds
}  // namespace norvane
