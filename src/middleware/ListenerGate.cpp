// SPDX-License-Identifier: Apache-2.0
#include "middleware/ListenerGate.hpp"

namespace norvane {
namespace mw {
namespace listener_depth {

thread_local int depth = 0;

}  // namespace listener_depth
}  // namespace mw
}  // namespace norvane
