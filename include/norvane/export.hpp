// SPDX-License-Identifier: Apache-2.0
// Marks what the shared library shows to the outside. Everything else is hidden.
#ifndef NORVANE_EXPORT_HPP
#define NORVANE_EXPORT_HPP

#if defined(__GNUC__)
#define NORVANE_EXPORT __attribute__((visibility("default")))
#else
#define NORVANE_EXPORT
#endif

#endif
