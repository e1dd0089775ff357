// Arguments of recorded calls as text.
#pragma once

#include <cstdio>
#include <string>

#include "fakehost.hpp"

namespace kit {

inline std::string printed(int value) { return std::to_string(value); }
inline std::string printed(std::int64_t value) { return std::to_string(value); }
inline std::string printed(std::size_t value) { return std::to_string(value); }
inline std::string printed(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}
inline std::string printed(const char* text) { return text == nullptr ? "null" : text; }
inline std::string printed(const std::string& text) { return text; }
inline std::string printed(HostFile* fp) { return host().nameOf(fp); }
inline std::string printed(HostStringList list) { return list == nullptr ? "null" : "list"; }
inline std::string printed(const void* pointer) { return pointer == nullptr ? "null" : "pointer"; }

/// An array of numbers: "[1 2 3]".
template <class T>
std::string numbers(const T* values, int count) {
    if (values == nullptr) return "null";
    std::string text = "[";
    for (int i = 0; i < count; ++i) text += (i == 0 ? "" : " ") + std::to_string(values[i]);
    return text + "]";
}

template <class... Args>
std::string arguments(Args... args) {
    std::string text;
    ((text += (text.empty() ? "" : ", ") + printed(args)), ...);
    return text;
}

}  // namespace kit
