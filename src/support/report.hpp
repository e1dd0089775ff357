// How the library says what went wrong: one report where a failure is detected, then the failing result.
// The whole message stands at the check that uses it, and reaches the host with its arguments, label first. These are
// macros because only a call that names the format itself can be checked by the compiler and still hand the format on.
#pragma once

#include "kshost.h"

namespace ks {
inline constexpr int kOk = 0;
inline constexpr int kFailed = 1;
}  // namespace ks

/// An argument, state or memory failure. The value is kFailed.
#define KS_FAIL(...) (IMPError(83, 0, __VA_ARGS__), ks::kFailed)
/// The same through the debug output.
#define KS_DEBUG_FAIL(...) (Debug(__VA_ARGS__), ks::kFailed)
/// A text that cannot be read as what it should be.
#define KS_FAIL_TEXT(...) (IMPError(107, 0, __VA_ARGS__), ks::kFailed)
/// An unusable metadata value in a file.
#define KS_FAIL_METADATA(...) (IMPError(382, 1, __VA_ARGS__), ks::kFailed)
