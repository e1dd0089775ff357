// Texts taken apart, and numbers as people write them, whatever the locale.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kscli {

std::string trimmed(const std::string& text);
std::string lowerCase(std::string text);
/// UTF-8 as it is; anything else is taken as Latin-1.
std::string asUtf8(const std::string& text);
std::vector<std::string> linesOf(const std::string& text);
std::vector<std::string> wordsOf(const std::string& line);

/// A decimal number, times ten to a power, rounded once; nothing when the text is anything else.
std::optional<double> parseNumber(const std::string& text, int powerOfTen = 0);
/// The shortest text that parseNumber reads back as value with the negated power.
std::string numberText(double value, int powerOfTen = 0);

}  // namespace kscli
