#include "image/radianceunits.hpp"

#include <algorithm>
#include <cctype>
#include <utility>
#include <vector>

#include "app/text.hpp"
#include "image/entries.hpp"

namespace kscli {
namespace {

/// Letters that stand together, in lower case; the micro sign is a u.
std::vector<std::string> lettersOf(std::string text) {
    for (const char* micro : {"\xC2\xB5", "\xCE\xBC"}) {  // the sign, and the Greek letter
        for (std::size_t at = text.find(micro); at != std::string::npos; at = text.find(micro))
            text.replace(at, 2, "u");
    }
    std::vector<std::string> words(1);
    for (const char c : text) {
        if (std::isalpha(static_cast<unsigned char>(c)) != 0) {
            words.back() += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        } else if (!words.back().empty()) {
            words.emplace_back();
        }
    }
    return words;
}

using Names = std::vector<std::pair<const char*, double>>;

std::optional<double> factorOf(const std::vector<std::string>& words, const Names& names) {
    for (const std::string& word : words) {
        for (const auto& [name, factor] : names) {
            if (word == name) return factor;
        }
    }
    return std::nullopt;
}

bool speaksOfValues(const std::string& key) {
    if (key.find("wavelength") != std::string::npos) return false;
    return key.find("unit") != std::string::npos || key.find("z plot titles") != std::string::npos ||
           key.find("z_plot_titles") != std::string::npos;
}

std::string withoutBraces(std::string text) {
    text.erase(std::remove_if(text.begin(), text.end(), [](char c) { return c == '{' || c == '}'; }), text.end());
    return trimmed(text);
}

}  // namespace

std::optional<double> radianceScale(const std::string& text) {
    static const Names kPower = {{"uw", 1},   {"microwatt", 1},   {"microwatts", 1},
                                 {"mw", 1e3}, {"milliwatt", 1e3}, {"milliwatts", 1e3},
                                 {"w", 1e6},  {"watt", 1e6},      {"watts", 1e6}};
    static const Names kArea = {{"cm", 1}, {"m", 1e-4}};
    static const Names kWidth = {{"nm", 1},        {"nanometer", 1},     {"nanometre", 1},    {"um", 1e-3},
                                 {"micron", 1e-3}, {"micrometer", 1e-3}, {"micrometre", 1e-3}};
    static const Names kAngle = {{"sr", 1}, {"steradian", 1}, {"str", 1}};
    const std::vector<std::string> words = lettersOf(text);
    double scale = 1;
    for (const Names* names : {&kPower, &kArea, &kWidth, &kAngle}) {
        const auto factor = factorOf(words, *names);
        if (!factor) return std::nullopt;
        scale *= *factor;
    }
    return scale;
}

std::optional<RadianceUnits> radianceUnitsOf(const DataSet& image) {
    std::vector<Entries> lists;
    lists.push_back(Entries::ofFile(image.file()));
    // A header's list of two titles would be spread over the channels of an image of two bands.
    for (int band = 0; band < std::min(image.bandCount(), 2); ++band) {
        lists.push_back(Entries::ofChannel(image.file(), image.channel(band)));
    }
    for (const Entries& list : lists) {
        for (const auto& [key, value] : list.items()) {
            if (!speaksOfValues(lowerCase(key))) continue;
            // Of the titles of two axes the second one is that of the values.
            const std::string text = asUtf8(value);
            const std::size_t comma = text.find(',');
            const std::string last = comma == std::string::npos ? text : text.substr(comma + 1);
            if (const auto scale = radianceScale(last)) return RadianceUnits{withoutBraces(last), *scale};
        }
    }
    return std::nullopt;
}

}  // namespace kscli
