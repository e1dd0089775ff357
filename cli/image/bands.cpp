#include "image/bands.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <optional>

#include "app/report.hpp"
#include "app/text.hpp"

namespace kscli {
namespace {

constexpr double kRedNm = 640;
constexpr double kGreenNm = 550;
constexpr double kBlueNm = 460;
// A wavelength this far outside the image's range is a mistake, not a wish for its outermost band.
constexpr double kTooFarNm = 50;
// Natural colours need a band within this distance of each of red, green and blue.
constexpr double kVisibleToleranceNm = 60;

[[noreturn]] void badList(const std::string& token) {
    fail("'{}' does not name a band. Write {}.", token, kBandListHelp);
}

template <class T>
std::optional<T> number(const std::string& text) {
    T value{};
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc{} || stop != end) return std::nullopt;
    return value;
}

std::vector<std::string> split(const std::string& text, char delimiter) {
    std::vector<std::string> parts(1);
    for (char c : text) {
        if (c == delimiter) {
            parts.emplace_back();
        } else {
            parts.back() += c;
        }
    }
    for (std::string& part : parts) part = trimmed(part);
    return parts;
}

bool isBandNumber(const std::string& token) { return token.size() > 1 && (token[0] == 'b' || token[0] == 'B'); }

int bandByNumber(const DataSet& dataSet, const std::string& token) {
    const auto value = number<int>(isBandNumber(token) ? token.substr(1) : token);
    if (!value) badList(token);
    if (*value < 1 || *value > dataSet.bandCount()) {
        fail("band {} does not exist; this image has bands b1 to b{}.", token, dataSet.bandCount());
    }
    return *value - 1;
}

double wavelengthOf(const std::string& token) {
    const bool hasUnit = token.size() > 2 && token.compare(token.size() - 2, 2, "nm") == 0;
    const auto value = number<double>(hasUnit ? trimmed(token.substr(0, token.size() - 2)) : token);
    if (!value || !std::isfinite(*value) || *value <= 0) badList(token);
    return *value;
}

void requireWavelengths(const DataSet& dataSet) {
    if (!dataSet.hasWavelengths()) {
        fail("this image gives no wavelengths; name its bands by number, b1 to b{}.", dataSet.bandCount());
    }
}

int bandByWavelength(const DataSet& dataSet, const std::string& token) {
    const double nm = wavelengthOf(token);
    requireWavelengths(dataSet);
    const auto [low, high] = wavelengthRange(dataSet);
    if (nm < low - kTooFarNm || nm > high + kTooFarNm) {
        fail("there is no band near {} nm; this image covers {:.1f} to {:.1f} nm.", nm, low, high);
    }
    return nearestBand(dataSet, allBands(dataSet), nm);
}

void appendRange(const DataSet& dataSet, const std::string& from, const std::string& to, std::vector<int>& bands) {
    if (isBandNumber(from)) {
        const int first = bandByNumber(dataSet, from);
        const int last = bandByNumber(dataSet, to);
        if (first > last) fail("the range {}-{} runs backwards.", from, to);
        for (int band = first; band <= last; ++band) bands.push_back(band);
        return;
    }
    const double low = wavelengthOf(from);
    const double high = wavelengthOf(to);
    requireWavelengths(dataSet);
    if (low > high) fail("the range {}-{} runs backwards.", from, to);
    const std::size_t before = bands.size();
    for (int band = 0; band < dataSet.bandCount(); ++band) {
        const double nm = dataSet.wavelength(band);
        if (nm >= low && nm <= high) bands.push_back(band);
    }
    if (bands.size() == before) {
        const auto [least, most] = wavelengthRange(dataSet);
        fail("there is no band between {} and {} nm; this image covers {:.1f} to {:.1f} nm.", low, high, least, most);
    }
}

void appendToken(const DataSet& dataSet, const std::string& token, std::vector<int>& bands) {
    const std::size_t dash = token.find('-', 1);
    if (token == "all" || token == "good") {
        const std::vector<int> chosen = token == "all" ? allBands(dataSet) : goodBands(dataSet);
        if (chosen.empty()) fail("this image has no good bands.");
        bands.insert(bands.end(), chosen.begin(), chosen.end());
    } else if (token.empty()) {
        badList(token);
    } else if (dash != std::string::npos) {
        appendRange(dataSet, trimmed(token.substr(0, dash)), trimmed(token.substr(dash + 1)), bands);
    } else if (isBandNumber(token)) {
        bands.push_back(bandByNumber(dataSet, token));
    } else {
        bands.push_back(bandByWavelength(dataSet, token));
    }
}

std::vector<int> namedByImage(const DataSet& dataSet) {
    int channels[3] = {0, 0, 0};
    const int count = KSHostGetDefaultChannels(dataSet.file(), channels);
    std::vector<int> bands;
    for (int i = 0; i < count && i < 3; ++i) {
        const int band = KSChanToBand(dataSet.get(), channels[i]);
        if (band < 0) return {};
        bands.push_back(band);
    }
    if (bands.size() == 2) bands.resize(1);
    return bands;
}

std::vector<int> naturalColours(const DataSet& dataSet) {
    const std::vector<int> candidates = goodBands(dataSet);
    std::vector<int> bands;
    for (double nm : {kRedNm, kGreenNm, kBlueNm}) {
        const int band = nearestBand(dataSet, candidates, nm);
        if (band < 0 || std::abs(dataSet.wavelength(band) - nm) > kVisibleToleranceNm) return {};
        bands.push_back(band);
    }
    const bool distinct = bands[0] != bands[1] && bands[1] != bands[2] && bands[0] != bands[2];
    return distinct ? bands : std::vector<int>{};
}

}  // namespace

const char* const kBandListHelp =
    "band numbers (b12, b1-b20), wavelengths in nm (640, 400-700), 'good' or 'all', separated by commas";

std::vector<int> allBands(const DataSet& dataSet) {
    std::vector<int> bands(static_cast<std::size_t>(dataSet.bandCount()));
    for (int band = 0; band < dataSet.bandCount(); ++band) bands[static_cast<std::size_t>(band)] = band;
    return bands;
}

std::vector<int> goodBands(const DataSet& dataSet) {
    std::vector<int> bands;
    for (int band = 0; band < dataSet.bandCount(); ++band) {
        if (dataSet.isGood(band)) bands.push_back(band);
    }
    return bands;
}

std::pair<double, double> wavelengthRange(const DataSet& dataSet) {
    double low = INFINITY;
    double high = -INFINITY;
    for (int band = 0; band < dataSet.bandCount(); ++band) {
        const double nm = dataSet.wavelength(band);
        if (!(nm > 0)) continue;
        low = std::min(low, nm);
        high = std::max(high, nm);
    }
    return {low, high};
}

int nearestBand(const DataSet& dataSet, const std::vector<int>& candidates, double wavelengthNm) {
    int nearest = -1;
    double least = INFINITY;
    for (int band : candidates) {
        const double nm = dataSet.wavelength(band);
        if (!(nm > 0) || !(std::abs(nm - wavelengthNm) < least)) continue;
        least = std::abs(nm - wavelengthNm);
        nearest = band;
    }
    return nearest;
}

std::vector<int> parseBands(const DataSet& dataSet, const std::string& list) {
    std::vector<int> written;
    for (const std::string& token : split(list, ',')) appendToken(dataSet, token, written);
    std::vector<int> bands;
    std::vector<bool> seen(static_cast<std::size_t>(dataSet.bandCount()), false);
    for (int band : written) {
        if (seen[static_cast<std::size_t>(band)]) continue;
        seen[static_cast<std::size_t>(band)] = true;
        bands.push_back(band);
    }
    return bands;
}

std::vector<int> displayBands(const DataSet& dataSet) {
    std::vector<int> bands = namedByImage(dataSet);
    if (bands.size() == 1 && !naturalColours(dataSet).empty()) {
        note("the image names {} alone for display; --bands {},{},{} shows natural colours.",
             bandName(dataSet, bands[0]), kRedNm, kGreenNm, kBlueNm);
    }
    if (bands.empty()) bands = naturalColours(dataSet);
    if (!bands.empty()) return bands;
    bands = goodBands(dataSet);
    if (bands.empty()) bands = allBands(dataSet);
    bands.resize(bands.size() >= 3 ? 3 : 1);
    return bands;
}

std::string bandName(const DataSet& dataSet, int band) {
    const double nm = dataSet.wavelength(band);
    return nm > 0 ? fmt::format("b{} ({:.1f} nm)", band + 1, nm) : fmt::format("b{}", band + 1);
}

std::string bandRanges(const std::vector<int>& bands) {
    std::string text;
    for (std::size_t first = 0; first < bands.size();) {
        std::size_t last = first;
        while (last + 1 < bands.size() && bands[last + 1] == bands[last] + 1) ++last;
        text += fmt::format("{}b{}", text.empty() ? "" : ", ", bands[first] + 1);
        if (last > first) text += fmt::format("-b{}", bands[last] + 1);
        first = last + 1;
    }
    return text;
}

}  // namespace kscli
