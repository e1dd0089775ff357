#include "rawspectrum.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <sstream>
#include <utility>

namespace kscli {
namespace {

// Spectra in nanometres that end below this do not exist; in micrometres they reach up to 216.
constexpr double kLongestMicrometres = 300;

WavelengthUnit guessUnit(const RawSpectrum& raw) {
    const double longest = *std::max_element(raw.wavelengths.begin(), raw.wavelengths.end());
    return longest < kLongestMicrometres ? WavelengthUnit::micrometres : WavelengthUnit::nanometres;
}

double toNanometres(double wavelength, WavelengthUnit unit) {
    switch (unit) {
        case WavelengthUnit::micrometres:
            return wavelength * 1000;
        case WavelengthUnit::wavenumbers:
            return 1e7 / wavelength;
        default:
            return wavelength;
    }
}

bool isMissing(double value) { return !std::isfinite(value) || std::abs(value / kMaskedValue - 1) < 1e-6; }

struct Sample {
    float wavelength;
    double value;
    int quality;
    bool isMissing;
};

std::vector<Sample> sortedSamples(const RawSpectrum& raw) {
    std::vector<Sample> samples;
    for (std::size_t i = 0; i < raw.wavelengths.size(); ++i) {
        const double nm = toNanometres(raw.wavelengths[i], raw.unit);
        if (!std::isfinite(nm) || nm <= 0) continue;
        const bool missing = isMissing(raw.values[i]);
        const int quality = missing ? static_cast<int>(KS_BQ_MASK) : raw.quality.empty() ? KS_BQ_PLOT : raw.quality[i];
        samples.push_back({wholeThousandths(nm), missing ? kMaskedValue : raw.values[i], quality, missing});
    }
    std::stable_sort(samples.begin(), samples.end(),
                     [](const Sample& a, const Sample& b) { return a.wavelength < b.wavelength; });
    return samples;
}

// The mean of what is there at one wavelength.
Sample merged(const Sample* first, const Sample* last) {
    Sample result = *first;
    double sum = 0;
    int count = 0;
    for (const Sample* sample = first; sample != last; ++sample) {
        if (sample->isMissing) continue;
        if (count == 0) result = *sample;
        sum += sample->value;
        ++count;
    }
    if (count > 1) result.value = sum / count;
    return result;
}

LibrarySpectrum finish(RawSpectrum raw, std::size_t& mergedCount) {
    LibrarySpectrum spectrum;
    spectrum.name = std::move(raw.name);
    spectrum.quantity = raw.quantity;
    const std::vector<Sample> samples = sortedSamples(raw);
    for (std::size_t i = 0; i < samples.size();) {
        std::size_t end = i + 1;
        while (end < samples.size() && samples[end].wavelength == samples[i].wavelength) ++end;
        const Sample sample = merged(&samples[i], samples.data() + end);
        spectrum.wavelengths.push_back(sample.wavelength);
        spectrum.values.push_back(sample.value);
        spectrum.quality.push_back(sample.quality);
        mergedCount += end - i - 1;
        i = end;
    }
    return spectrum;
}

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

WavelengthUnit wavelengthUnitIn(const std::string& text) {
    const std::string lower = lowerCase(text);
    const auto has = [&](const char* part) { return lower.find(part) != std::string::npos; };
    // A unit symbol stands alone: "spectrum" ends in no micrometre.
    const auto hasSymbol = [&](const std::string& symbol) {
        const auto isLetter = [&](std::size_t at) { return at < lower.size() && lower[at] >= 'a' && lower[at] <= 'z'; };
        for (std::size_t at = lower.find(symbol); at != std::string::npos; at = lower.find(symbol, at + 1)) {
            if ((at == 0 || !isLetter(at - 1)) && !isLetter(at + symbol.size())) return true;
        }
        return false;
    };
    if (has("wavenumber") || has("cm-1") || has("cm^-1") || has("1/cm")) return WavelengthUnit::wavenumbers;
    if (has("nanomet") || hasSymbol("nm")) return WavelengthUnit::nanometres;
    const bool micro =
        has("micromet") || has("micron") || hasSymbol("um") || hasSymbol("\xC2\xB5m") || hasSymbol("\xCE\xBCm");
    return micro ? WavelengthUnit::micrometres : WavelengthUnit::unknown;
}

std::vector<LibrarySpectrum> finishSpectra(std::vector<RawSpectrum> raw, const std::string& file) {
    std::vector<LibrarySpectrum> spectra;
    std::size_t mergedCount = 0;
    bool guessed = false;
    for (RawSpectrum& one : raw) {
        if (one.wavelengths.empty()) fail("{}: the spectrum '{}' has no values.", file, one.name);
        if (one.unit == WavelengthUnit::unknown) {
            one.unit = guessUnit(one);
            guessed = true;
        }
        const bool micrometres = one.unit == WavelengthUnit::micrometres;
        if (std::exchange(guessed, false) && &one == &raw.front()) {
            note("{}: the unit of the wavelengths is not given; they are taken as {}.", file,
                 micrometres ? "micrometres" : "nanometres");
        }
        spectra.push_back(finish(std::move(one), mergedCount));
        if (spectra.back().size() == 0) fail("{}: '{}' has no positive wavelengths.", file, spectra.back().name);
    }
    if (mergedCount > 0) {
        note("{}: {} value{} at a wavelength that was there already; values of one wavelength were averaged.", file,
             mergedCount, mergedCount == 1 ? " is" : "s are");
    }
    return spectra;
}

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
