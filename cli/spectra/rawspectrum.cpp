#include "spectra/rawspectrum.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "app/report.hpp"
#include "app/text.hpp"

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

}  // namespace kscli
