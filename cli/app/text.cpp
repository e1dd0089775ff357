#include "app/text.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <sstream>

namespace kscli {
namespace {

bool isUtf8(const std::string& text) {
    for (std::size_t i = 0; i < text.size();) {
        const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
        std::size_t length = 1;
        if (byte(i) >= 0xF0 && byte(i) < 0xF8) length = 4;
        if (byte(i) >= 0xE0 && byte(i) < 0xF0) length = 3;
        if (byte(i) >= 0xC2 && byte(i) < 0xE0) length = 2;
        if (length == 1 && byte(i) >= 0x80) return false;
        if (i + length > text.size()) return false;
        for (std::size_t k = 1; k < length; ++k) {
            if ((byte(i + k) & 0xC0U) != 0x80U) return false;
        }
        i += length;
    }
    return true;
}

}  // namespace

std::string trimmed(const std::string& text) {
    constexpr const char* kBlank = " \t\r\n\f\v";
    const std::size_t first = text.find_first_not_of(kBlank);
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(kBlank) - first + 1);
}

std::string lowerCase(std::string text) {
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return text;
}

std::string asUtf8(const std::string& text) {
    if (isUtf8(text)) return text;
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80) {
            result += c;
        } else {
            result += static_cast<char>(0xC0U | (byte >> 6U));
            result += static_cast<char>(0x80U | (byte & 0x3FU));
        }
    }
    return result;
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines(1);
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\n' || text[i] == '\r') {
            if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') ++i;
            lines.emplace_back();
        } else {
            lines.back() += text[i];
        }
    }
    if (lines.back().empty()) lines.pop_back();
    return lines;
}

std::vector<std::string> wordsOf(const std::string& line) {
    std::vector<std::string> words;
    std::istringstream stream(line);
    for (std::string word; stream >> word;) words.push_back(word);
    return words;
}

std::optional<double> parseNumber(const std::string& text, int powerOfTen) {
    std::string number = trimmed(text);
    if (!number.empty() && number[0] == '+') number.erase(0, 1);
    // The power goes into the exponent of the text, so that the product is rounded once.
    if (powerOfTen != 0) {
        const std::size_t mark = number.find_first_of("eE");
        int exponent = 0;
        if (mark != std::string::npos) {
            std::size_t digits = mark + 1;
            if (digits < number.size() && number[digits] == '+') ++digits;
            const char* const end = number.data() + number.size();
            const auto [stop, error] = std::from_chars(number.data() + digits, end, exponent);
            if (error != std::errc{} || stop != end) return std::nullopt;
            number.erase(mark);
        }
        const bool startsWithDigit = number.find_first_of("0123456789") != std::string::npos;
        if (startsWithDigit) number += fmt::format("e{}", exponent + powerOfTen);
    }
    double value = 0;
    const char* const end = number.data() + number.size();
    const auto [stop, error] = std::from_chars(number.data(), end, value);
    if (stop != end || number.empty()) return std::nullopt;
    if (error == std::errc::result_out_of_range) return std::nullopt;
    if (error != std::errc{}) return std::nullopt;
    return value;
}

std::string numberText(double value, int powerOfTen) {
    if (!std::isfinite(value) || value == 0) return fmt::format("{}", value);
    std::array<char, 64> buffer{};
    const auto result =
        std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, std::chars_format::scientific);
    const std::string text(buffer.data(), result.ptr);
    const std::size_t mark = text.find('e');
    const int exponent = std::atoi(text.c_str() + mark + 1) + powerOfTen;
    const std::string sign = text[0] == '-' ? "-" : "";
    std::string digits = text.substr(sign.size(), mark - sign.size());
    digits.erase(std::remove(digits.begin(), digits.end(), '.'), digits.end());
    const int count = static_cast<int>(digits.size());
    constexpr int kLeast = -6;
    constexpr int kMost = 16;
    if (exponent < kLeast || exponent > kMost) {
        if (count > 1) digits.insert(1, ".");
        return fmt::format("{}{}e{}", sign, digits, exponent);
    }
    if (exponent < 0) return sign + "0." + std::string(static_cast<std::size_t>(-exponent - 1), '0') + digits;
    if (exponent + 1 >= count) return sign + digits + std::string(static_cast<std::size_t>(exponent + 1 - count), '0');
    digits.insert(static_cast<std::size_t>(exponent) + 1, ".");
    return sign + digits;
}

}  // namespace kscli
