// SPDX-License-Identifier: Apache-2.0
// The version of these headers. The build reads it from here.
#ifndef NORVANE_VERSION_HPP
#define NORVANE_VERSION_HPP

namespace norvane {

inline constexpr int VERSION_MAJOR = 0;
inline constexpr int VERSION_MINOR = 1;
inline constexpr int VERSION_PATCH = 0;
inline constexpr char VERSION_TEXT[] = "0.1.0";

}  // namespace norvane

#endif
