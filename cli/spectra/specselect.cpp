#include "spectra/specselect.hpp"

#include <algorithm>
#include <cmath>
#include <sstream>

#include "app/report.hpp"
#include "app/text.hpp"

namespace kscli {
namespace {

constexpr double kMostGridPoints = 100000;

std::vector<std::string> splitAt(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);) parts.push_back(trimmed(part));
    return parts;
}

struct Range {
    std::size_t first;
    std::size_t last;
};

/// "3" or "3-8", numbers from 1.
std::optional<Range> parseRange(const std::string& text) {
    const std::size_t dash = text.find('-', 1);
    const auto first = parseNumber(text.substr(0, dash));
    const auto last = dash == std::string::npos ? first : parseNumber(text.substr(dash + 1));
    const auto isCount = [](const std::optional<double>& number) {
        return number && *number >= 1 && *number < 1e9 && std::floor(*number) == *number;
    };
    if (!isCount(first) || !isCount(last) || *first > *last) return std::nullopt;
    return Range{static_cast<std::size_t>(*first) - 1, static_cast<std::size_t>(*last) - 1};
}

class Selection {
public:
    explicit Selection(const std::vector<LibrarySpectrum>& spectra) : spectra_(spectra), chosen_(spectra.size()) {}

    /// False when no spectrum has the name.
    bool addNamed(const std::string& name) {
        bool any = false;
        for (std::size_t i = 0; i < spectra_.size(); ++i) {
            if (lowerCase(spectra_[i].name) != lowerCase(name)) continue;
            chosen_[i] = any = true;
        }
        return any;
    }
    void addItem(const std::string& item) {
        if (addNamed(item)) return;
        const auto range = parseRange(item);
        if (!range)
            fail("no spectrum is called '{}'; 'ks library list' shows what there is. Items are {}.", item, kSelectHelp);
        if (range->last >= spectra_.size()) {
            fail("there is no spectrum {}; they are numbered from 1 to {}.", range->last + 1, spectra_.size());
        }
        for (std::size_t i = range->first; i <= range->last; ++i) chosen_[i] = true;
    }
    const std::vector<bool>& chosen() const { return chosen_; }

private:
    const std::vector<LibrarySpectrum>& spectra_;
    std::vector<bool> chosen_;
};

}  // namespace

const char* const kSelectHelp = "numbers from 1, ranges of them such as 3-8, or names";

std::vector<LibrarySpectrum> selectSpectra(std::vector<LibrarySpectrum> spectra,
                                           const std::vector<std::string>& lists) {
    if (lists.empty()) return spectra;
    Selection selection(spectra);
    for (const std::string& list : lists) {
        // Names may hold commas.
        if (selection.addNamed(list)) continue;
        for (const std::string& item : splitAt(list, ',')) selection.addItem(item);
    }
    std::vector<LibrarySpectrum> result;
    for (std::size_t i = 0; i < spectra.size(); ++i) {
        if (selection.chosen()[i]) result.push_back(std::move(spectra[i]));
    }
    return result;
}

const char* const kGridHelp = "START:STOP:STEP in nm, or a library whose wavelengths are taken";

std::vector<float> parseGrid(const std::string& text) {
    const std::vector<std::string> parts = splitAt(text, ':');
    const auto start = parseNumber(parts.empty() ? "" : parts[0]);
    if (parts.size() != 3 || !start) return readLibrary(text).at(0).wavelengths;
    const auto stop = parseNumber(parts[1]);
    const auto step = parseNumber(parts[2]);
    if (!stop || !step || !(*start > 0) || !(*stop >= *start) || !(*step >= 0.001) ||
        (*stop - *start) / *step > kMostGridPoints) {
        fail("'{}' is no grid of wavelengths; write {}, for example 400:2500:10.", text, kGridHelp);
    }
    std::vector<float> grid;
    const double count = std::floor((*stop - *start) / *step + 1e-9);
    for (double i = 0; i <= count; ++i) {
        const float wavelength = wholeThousandths(*start + i * *step);
        if (grid.empty() || wavelength > grid.back()) grid.push_back(wavelength);
    }
    return grid;
}

LibrarySpectrum interpolated(const LibrarySpectrum& spectrum, const std::vector<float>& grid) {
    LibrarySpectrum result = spectrum;
    result.wavelengths = grid;
    result.values.assign(grid.size(), kMaskedValue);
    result.quality.assign(grid.size(), KS_BQ_MASK);
    for (std::size_t k = 0; k < grid.size(); ++k) {
        const auto above = std::lower_bound(spectrum.wavelengths.begin(), spectrum.wavelengths.end(), grid[k]);
        if (above == spectrum.wavelengths.end()) continue;
        const std::size_t i = static_cast<std::size_t>(above - spectrum.wavelengths.begin());
        if (*above == grid[k]) {
            result.values[k] = spectrum.values[i];
            result.quality[k] = spectrum.quality[i];
        } else if (i > 0 && spectrum.isUsable(i - 1) && spectrum.isUsable(i) && !spectrum.isGapBefore(i)) {
            const double left = static_cast<double>(spectrum.wavelengths[i - 1]);
            const double share =
                (static_cast<double>(grid[k]) - left) / (static_cast<double>(spectrum.wavelengths[i]) - left);
            result.values[k] = spectrum.values[i - 1] + share * (spectrum.values[i] - spectrum.values[i - 1]);
            result.quality[k] = KS_BQ_PLOT;
        }
    }
    return result;
}

}  // namespace kscli
