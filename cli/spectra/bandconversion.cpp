#include "spectra/bandconversion.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <new>
#include <optional>

#include "app/report.hpp"
#include "spectra/speclayer.hpp"

namespace kscli {
namespace {

// A mean of one or two values leans to where they happen to lie.
constexpr int kFewestForMean = 3;

struct CoefficientsDeleter {
    void operator()(KSConvCoeffs* coefficients) const {
        KSFreeConvCoeffs(coefficients);
        std::free(coefficients);
    }
};
using Coefficients = std::unique_ptr<KSConvCoeffs, CoefficientsDeleter>;

/// Weights of one band on some wavelengths, and a call of the library with them.
class OneBand {
public:
    OneBand(const SensorBand& band, const KSSTSchema* schema) {
        KSBandResp response = band.record();
        KSSensor sensor = {};
        sensor.nNumBands = 1;
        sensor.pBandResp = &response;
        coefficients_.reset(KSGenSpPrConvCoeffs(schema, &sensor));
        if (!coefficients_) fail("the response of band {} cannot be used (see above).", band.label());
    }

    int start() const { return coefficients_->panStartInd[0]; }
    int end() const { return coefficients_->panEndInd[0]; }
    bool isCovered() const { return start() >= 0 && end() >= 0; }
    /// Inputs that count.
    int weighted() const {
        int count = 0;
        for (int i = start(); isCovered() && i <= end(); ++i) count += coefficients_->pafCoeffs[i] != 0;
        return count;
    }

    /// The weighted mean of the values; nothing when they carry no weight. They are changed for a moment.
    std::optional<double> mean(KSSpectrum* input, KSSpectrum* output) const {
        double* const values = input->pMeas->ve;
        const double low = *std::min_element(values + start(), values + end() + 1);
        if (low >= 0) {
            const double direct = call(input, output);
            if (direct != kMaskedValue) return direct;
        }
        return shiftedMean(input, output, low);
    }

private:
    double call(KSSpectrum* input, KSSpectrum* output) const {
        const int band = 0;
        if (KSConvSpec(input, output, coefficients_.get(), 0, &band, 1) != 0) throw std::bad_alloc();
        return output->pMeas->ve[0];
    }

    /// The library leaves negative values out and takes a small sum for none. A mean moves and stretches with its
    /// values, so these are brought to one to two times a large number, and the mean back.
    std::optional<double> shiftedMean(KSSpectrum* input, KSSpectrum* output, double low) const {
        constexpr double kLarge = 1099511627776.0;  // 2^40
        double* const first = input->pMeas->ve + start();
        double* const last = input->pMeas->ve + end() + 1;
        const double span = *std::max_element(first, last) - low;
        const std::vector<double> kept(first, last);
        for (double* value = first; value != last; ++value) {
            *value = (span > 0 ? (*value - low) / span + 1 : 1) * kLarge;
        }
        const double result = call(input, output);
        std::copy(kept.begin(), kept.end(), first);
        if (result == kMaskedValue) return std::nullopt;
        return low + span * (result / kLarge - 1);
    }

    Coefficients coefficients_;
};

std::vector<float> usableWavelengths(const LibrarySpectrum& spectrum) {
    std::vector<float> wavelengths;
    for (std::size_t i = 0; i < spectrum.size(); ++i) {
        if (spectrum.isUsable(i)) wavelengths.push_back(spectrum.wavelengths[i]);
    }
    return wavelengths;
}

SpectrumRecord newRecord(const KSSTSchema* schema) {
    SpectrumRecord record(KSCreateSpec(schema));
    if (!record || record->pafWlen == nullptr) throw std::bad_alloc();
    return record;
}

double interpolate(const LibrarySpectrum& spectrum, double wavelength) {
    const auto& grid = spectrum.wavelengths;
    const auto above = std::lower_bound(grid.begin(), grid.end(), wavelength,
                                        [](float a, double b) { return static_cast<double>(a) < b; });
    if (above == grid.end()) return spectrum.values.back();
    const std::size_t i = static_cast<std::size_t>(above - grid.begin());
    if (i == 0) return spectrum.values[0];
    const double left = static_cast<double>(grid[i - 1]);
    const double share = (wavelength - left) / (static_cast<double>(grid[i]) - left);
    return spectrum.values[i - 1] + share * (spectrum.values[i] - spectrum.values[i - 1]);
}

/// The mean over a spectrum that is interpolated to a fine grid under a band.
std::optional<double> meanOfInterpolated(const SensorBand& band, const LibrarySpectrum& spectrum, KSSpectrum* output) {
    constexpr int kSteps = 128;
    const double step = (band.high() - band.low()) / kSteps;
    std::vector<float> wavelengths;
    // One step past either end, for the library wants the band enclosed.
    for (int i = -1; i <= kSteps + 1; ++i) {
        const float wavelength = static_cast<float>(band.low() + i * step);
        if (wavelengths.empty() || wavelength > wavelengths.back()) wavelengths.push_back(wavelength);
    }
    const Schema schema = schemaOf(wavelengths);
    const SpectrumRecord input = newRecord(schema.get());
    for (std::size_t i = 0; i < wavelengths.size(); ++i) {
        input->pMeas->ve[i] = interpolate(spectrum, static_cast<double>(wavelengths[i]));
    }
    const OneBand oneBand(band, schema.get());
    return oneBand.isCovered() ? oneBand.mean(input.get(), output) : std::nullopt;
}

/// Every value from the last one below a band to the first one above it is usable, and none is left out between them.
bool isUsableAround(const LibrarySpectrum& spectrum, const SensorBand& band) {
    std::size_t first = 0;
    while (first + 1 < spectrum.size() && static_cast<double>(spectrum.wavelengths[first + 1]) <= band.low()) ++first;
    for (std::size_t i = first; i < spectrum.size(); ++i) {
        if (!spectrum.isUsable(i) || (i > first && spectrum.isGapBefore(i))) return false;
        if (static_cast<double>(spectrum.wavelengths[i]) >= band.high()) return true;
    }
    return false;
}

}  // namespace

/// The weights of all bands on the usable wavelengths of a spectrum; most spectra of a library share them.
class BandConverter::Grid {
public:
    Grid(std::vector<float> wavelengths, const std::vector<SensorBand>& bands)
        : wavelengths_(std::move(wavelengths)), schema_(schemaOf(wavelengths_)), input_(newRecord(schema_.get())) {
        for (const SensorBand& band : bands) bands_.emplace_back(band, schema_.get());
        const Schema one = schemaOf({1.0F});
        output_ = newRecord(one.get());
    }

    const std::vector<float>& wavelengths() const { return wavelengths_; }
    const OneBand& band(std::size_t i) const { return bands_[i]; }
    KSSpectrum* input() const { return input_.get(); }
    KSSpectrum* output() const { return output_.get(); }
    bool encloses(const SensorBand& band) const {
        return static_cast<double>(wavelengths_.front()) < band.low() &&
               static_cast<double>(wavelengths_.back()) > band.high();
    }
    /// Where the centre of a band is one of the wavelengths, or -1.
    int indexOf(const SensorBand& band) const {
        const auto found = std::lower_bound(wavelengths_.begin(), wavelengths_.end(), band.response.fCentre);
        const bool equal = found != wavelengths_.end() && *found == band.response.fCentre;
        return equal ? static_cast<int>(found - wavelengths_.begin()) : -1;
    }

private:
    std::vector<float> wavelengths_;
    Schema schema_;
    SpectrumRecord input_;
    SpectrumRecord output_;
    std::vector<OneBand> bands_;
};

BandConverter::BandConverter(std::vector<SensorBand> bands) : bands_(std::move(bands)), tallies_(bands_.size()) {}
BandConverter::~BandConverter() = default;

double BandConverter::convertBand(std::size_t index, const LibrarySpectrum& spectrum, Grid& grid) {
    const SensorBand& band = bands_[index];
    if (!grid.encloses(band)) {
        const bool reachesEnds = static_cast<double>(spectrum.wavelengths.front()) < band.low() &&
                                 static_cast<double>(spectrum.wavelengths.back()) > band.high();
        ++(reachesEnds ? tallies_[index].missing : tallies_[index].uncovered);
        return kMaskedValue;
    }
    const OneBand& weights = grid.band(index);
    if (weights.weighted() >= kFewestForMean) {
        if (const auto mean = weights.mean(grid.input(), grid.output())) return *mean;
    }
    // Measured at just this wavelength, about as coarsely as the band sees.
    if (const int same = grid.indexOf(band); same >= 0) return grid.input()->pMeas->ve[same];
    std::optional<double> mean;
    if (isUsableAround(spectrum, band)) mean = meanOfInterpolated(band, spectrum, grid.output());
    ++(mean ? tallies_[index].interpolated : tallies_[index].missing);
    return mean.value_or(kMaskedValue);
}

LibrarySpectrum BandConverter::convert(const LibrarySpectrum& spectrum) {
    ++converted_;
    LibrarySpectrum result;
    result.name = spectrum.name;
    result.quantity = spectrum.quantity;
    result.sourceFile = spectrum.sourceFile;
    result.region = spectrum.region;
    std::vector<float> usable = usableWavelengths(spectrum);
    if (!usable.empty() && (!grid_ || grid_->wavelengths() != usable)) {
        grid_ = std::make_unique<Grid>(std::move(usable), bands_);
        usable = grid_->wavelengths();
    }
    if (!usable.empty()) {
        std::size_t next = 0;
        for (std::size_t i = 0; i < spectrum.size(); ++i) {
            if (spectrum.isUsable(i)) grid_->input()->pMeas->ve[next++] = spectrum.values[i];
        }
    }
    for (std::size_t i = 0; i < bands_.size(); ++i) {
        double value = kMaskedValue;
        if (usable.empty()) {
            ++tallies_[i].missing;
        } else {
            value = convertBand(i, spectrum, *grid_);
        }
        result.wavelengths.push_back(bands_[i].response.fCentre);
        result.values.push_back(value);
        result.quality.push_back(value == kMaskedValue ? KS_BQ_MASK : KS_BQ_PLOT);
    }
    return result;
}

}  // namespace kscli
