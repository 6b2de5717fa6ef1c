// SPDX-License-Identifier: Apache-2.0
// One reference to a counted sample. For engines alone. Thread rule: a plain value.
#ifndef NORVANE_ENGINES_SAMPLEREFERENCE_HPP
#define NORVANE_ENGINES_SAMPLEREFERENCE_HPP

#include <memory>

#include "middleware/Engine.hpp"

namespace norvane {
namespace mw {

struct ReleaseSample {
    void operator()(Sample* sample) const noexcept { release(*sample); }
};
typedef std::unique_ptr<Sample, ReleaseSample> SampleReference;

}  // namespace mw
}  // namespace norvane

#endif
