#include "expected.hpp"

#include <cstdio>

namespace kit {
namespace {

[[gnu::format(printf, 4, 0)]] Report report(bool debug, int code, int severity, const char* format, va_list values) {
    va_list again;
    va_copy(again, values);
    const char* label = va_arg(again, const char*);
    va_end(again);
    char text[1024];
    std::vsnprintf(text, sizeof text, format, values);
    return {debug, code, severity, format, label, text};
}

}  // namespace

Report failure(const char* format, ...) {
    va_list values;
    va_start(values, format);
    const Report expected = report(false, 83, 0, format, values);
    va_end(values);
    return expected;
}

Report unlabelledFailure(const char* text) { return {false, 83, 0, text, "", text}; }

Report missingFile(const char* format, ...) {
    va_list values;
    va_start(values, format);
    const Report expected = report(false, 3, 1, format, values);
    va_end(values);
    return expected;
}

Report badMetadata(const char* format, ...) {
    va_list values;
    va_start(values, format);
    const Report expected = report(false, 382, 1, format, values);
    va_end(values);
    return expected;
}

Report debugOutput(const char* format, ...) {
    va_list values;
    va_start(values, format);
    const Report expected = report(true, 0, 0, format, values);
    va_end(values);
    return expected;
}

}  // namespace kit
