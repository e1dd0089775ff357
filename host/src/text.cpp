// Small text helpers of the host. Numbers go through <charconv>, which no locale reaches.
#include "text.hpp"

#include <charconv>
#include <cmath>
#include <limits>

namespace kshost {
namespace {

constexpr std::string_view kBlanks = " \t\r\n\v\f";

std::string_view withoutPlus(std::string_view text) {
    if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
    return text;
}

/// Length of the UTF-8 sequence at the start of a text, or 0 when there is none.
size_t sequenceLength(std::string_view text) {
    const auto byteAt = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byteAt(0);
    if (lead < 0x80) return 1;
    const size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
    if (lead < 0xc2 || lead > 0xf4 || text.size() < length) return 0;
    for (size_t i = 1; i < length; ++i) {
        if ((byteAt(i) & 0xc0) != 0x80) return 0;
    }
    const unsigned char second = byteAt(1);
    const bool overlong = (lead == 0xe0 && second < 0xa0) || (lead == 0xf0 && second < 0x90);
    const bool outside = (lead == 0xed && second > 0x9f) || (lead == 0xf4 && second > 0x8f);
    return overlong || outside ? 0 : length;
}

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        const size_t length = sequenceLength(text);
        if (length == 0) return false;
        text.remove_prefix(length);
    }
    return true;
}

template <class... Format>
std::string printed(double value, Format... format) {
    char buffer[400];  // the largest double has 309 digits before the point
    const auto end = std::to_chars(buffer, buffer + sizeof buffer, value, format...);
    return end.ec == std::errc() ? std::string(buffer, end.ptr) : std::string("nan");
}

}  // namespace

std::string_view trimmed(std::string_view text) {
    const size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string lowered(std::string_view text) {
    std::string result(text);
    for (char& c : result) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return result;
}

bool startsWith(std::string_view text, std::string_view prefix) { return text.substr(0, prefix.size()) == prefix; }

std::vector<std::string_view> splitLines(std::string_view text) {
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const size_t end = text.find_first_of("\r\n");
        lines.push_back(text.substr(0, end));
        if (end == std::string_view::npos) break;
        const bool pair = text[end] == '\r' && end + 1 < text.size() && text[end + 1] == '\n';
        text.remove_prefix(end + (pair ? 2 : 1));
    }
    return lines;
}

std::optional<double> wholeNumber(std::string_view text) {
    text = withoutPlus(trimmed(text));
    double value = 0;
    const auto end = std::from_chars(text.data(), text.data() + text.size(), value);
    if (end.ec != std::errc() || end.ptr != text.data() + text.size() || !std::isfinite(value)) return std::nullopt;
    return value;
}

double leadingNumber(std::string_view text) {
    text = withoutPlus(trimmed(text));
    double value = 0;
    const auto end = std::from_chars(text.data(), text.data() + text.size(), value);
    return end.ec == std::errc() ? value : 0.0;
}

std::string shortestText(double value) {
    // People read headers: exponents only where zeros would bury the digits.
    const double size = std::fabs(value);
    return size >= 1e-9 && size < 1e15 ? printed(value, std::chars_format::fixed) : printed(value);
}

std::string significantText(double value, int digits) { return printed(value, std::chars_format::general, digits); }

std::string fixedText(double value, int decimals) { return printed(value, std::chars_format::fixed, decimals); }

std::string asUtf8(std::string_view bytes) {
    if (isUtf8(bytes)) return std::string(bytes);
    std::string result;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80) {
            result += c;
        } else {
            result += static_cast<char>(0xc0 | (byte >> 6));
            result += static_cast<char>(0x80 | (byte & 0x3f));
        }
    }
    return result;
}

}  // namespace kshost
