// SPDX-License-Identifier: Apache-2.0
// The check of pointer arguments and internal assumptions. The one macro of the library besides the export mark: it needs the
// expression's text.
#ifndef NORVANE_DETAILS_PRECONDITION_HPP
#define NORVANE_DETAILS_PRECONDITION_HPP

#include "norvane/export.hpp"

namespace norvane {
namespace details {

/// Reports a precondition that does not hold: logs it at level 0x1, marks it, calls the breakpoint hook, and throws.
/// @param condition  text of the condition, null pointers written NULL; becomes the exception's message.
/// @param function   bare name of the function.
/// @throws PreconditionNotMetException  always.
[[noreturn]] NORVANE_EXPORT void fail_precondition(const char* condition, const char* function, const char* file, int line);

}  // namespace details
}  // namespace norvane

/// Does nothing when `condition` holds; else norvane::details::fail_precondition.
#define NORVANE_CHECK_PRECONDITION(condition, function)                                      \
    do {                                                                                     \
        if (!(condition)) {                                                                  \
            ::norvane::details::fail_precondition(#condition, function, __FILE__, __LINE__); \
        }                                                                                    \
    } while (false)

#endif
