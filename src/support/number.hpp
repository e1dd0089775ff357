// Numbers in metadata texts: read from a leading number and written in fixed notation, whatever the program's locale
// says about decimal points.
#pragma once

#include <charconv>
#include <climits>
#include <cstdlib>

#include <locale.h>

namespace ks {

/// The leading integer of a text, clamped to int; 0 when there is none.
inline int parseInt(const char* text) {
    const long value = std::strtol(text, nullptr, 10);
    if (value > INT_MAX) return INT_MAX;
    if (value < INT_MIN) return INT_MIN;
    return static_cast<int>(value);
}

/// The leading number of a text; 0 when there is none.
inline double parseReal(const char* text) {
    static const locale_t kNeutral = newlocale(LC_ALL_MASK, "C", nullptr);
    return strtod_l(text, nullptr, kNeutral);
}

/// A number as text: an integer, or a real with a fixed number of decimals.
class NumberText {
public:
    explicit NumberText(int value) { *std::to_chars(text_, end(), value).ptr = '\0'; }
    NumberText(double value, int decimals) {
        *std::to_chars(text_, end(), value, std::chars_format::fixed, decimals).ptr = '\0';
    }
    const char* text() const { return text_; }

private:
    // The largest double takes 309 digits before the point.
    char* end() { return text_ + sizeof text_ - 1; }
    char text_[352];
};

}  // namespace ks
