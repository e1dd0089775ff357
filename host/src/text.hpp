// Small text helpers of the host: trimming, case, and numbers that read and print alike under every locale.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kshost {

std::string_view trimmed(std::string_view text);
std::string lowered(std::string_view text);
bool startsWith(std::string_view text, std::string_view prefix);
std::vector<std::string_view> splitLines(std::string_view text);

/// The number that a whole text is: finite, blanks around it and a plus sign allowed, nothing else.
std::optional<double> wholeNumber(std::string_view text);
/// The number at the beginning of a text, as the C library reads it; 0 when there is none.
double leadingNumber(std::string_view text);

/// The shortest text that reads back as the same value.
std::string shortestText(double value);
/// With a given number of significant digits, trailing zeros dropped: for values that a conversion has rounded.
std::string significantText(double value, int digits);
/// As "%.<decimals>f" prints it in the C locale.
std::string fixedText(double value, int decimals);

/// The text itself when it is UTF-8, else the text read as Latin-1.
std::string asUtf8(std::string_view bytes);

}  // namespace kshost
