// SPDX-License-Identifier: Apache-2.0
// What ThreadSanitizer takes for a race in the programs of the tests, and is none.

/// The C++ library counts the holders of an exception atomically, but was not built for ThreadSanitizer, which therefore takes the
/// end of an
/// exception that two threads have held for a race.
extern "C" [[gnu::visibility("default")]] const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions() { return "race:std::__exception_ptr::exception_ptr::_M_release\n"; }
