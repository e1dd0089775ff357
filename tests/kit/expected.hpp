// The reports that a test expects, each with its format whole and the values that fill it, the label first.
#pragma once

#include <cstdarg>

#include "fakehost.hpp"

namespace kit {

/// An argument, state or memory failure: code 83, severity 0.
[[gnu::format(printf, 1, 2)]] Report failure(const char* format, ...);
/// The same as a text of its own, without a label or values.
Report unlabelledFailure(const char* text);
/// A file that should exist does not: code 3, severity 1.
[[gnu::format(printf, 1, 2)]] Report missingFile(const char* format, ...);
/// An unusable metadata value: code 382, severity 1.
[[gnu::format(printf, 1, 2)]] Report badMetadata(const char* format, ...);
/// Debug output.
[[gnu::format(printf, 1, 2)]] Report debugOutput(const char* format, ...);

}  // namespace kit
