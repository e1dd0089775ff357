#include "unmix/endmembers.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <optional>
#include <set>
#include <utility>

#include "app/report.hpp"
#include "image/bands.hpp"
#include "image/bandstatistics.hpp"
#include "image/blocks.hpp"
#include "image/region.hpp"
#include "spectra/bandconversion.hpp"
#include "spectra/sensor.hpp"
#include "spectra/speclib.hpp"
#include "spectra/specselect.hpp"
#include "unmix/condition.hpp"

namespace kscli {
namespace {

constexpr double kMissing = std::numeric_limits<double>::quiet_NaN();

/// A spectrum with a value for each of some bands, or kMissing.
struct Candidate {
    std::string name;
    std::vector<double> values;
};

// ---- spectra of a library ----

/// The index of the spectrum's wavelength that is the band's, as exactly as headers give them, or -1.
int indexOf(const LibrarySpectrum& spectrum, double wavelength) {
    constexpr double kSameNm = 0.05;
    const auto& grid = spectrum.wavelengths;
    const auto above = std::lower_bound(grid.begin(), grid.end(), static_cast<float>(wavelength - kSameNm));
    int best = -1;
    double least = kSameNm;
    for (auto near = above; near != grid.end() && static_cast<double>(*near) <= wavelength + kSameNm; ++near) {
        const double distance = std::abs(static_cast<double>(*near) - wavelength);
        if (distance > least) continue;
        least = distance;
        best = static_cast<int>(near - grid.begin());
    }
    return best;
}

double usableValue(const LibrarySpectrum& spectrum, int index) {
    if (index < 0 || !spectrum.isUsable(static_cast<std::size_t>(index))) return kMissing;
    return spectrum.values[static_cast<std::size_t>(index)];
}

/// Brings the spectra of one library to some bands of an image, and counts what was done.
class Matcher {
public:
    Matcher(const DataSet& image, std::string imageName, const std::vector<int>& bands)
        : image_(image), imageName_(std::move(imageName)), bands_(bands) {}

    Candidate match(const LibrarySpectrum& spectrum) {
        if (!image_.hasWavelengths()) return {spectrum.name, byOrder(spectrum)};
        std::vector<int> indices;
        for (const int band : bands_) indices.push_back(indexOf(spectrum, image_.wavelength(band)));
        std::vector<double> values;
        for (const int index : indices) values.push_back(usableValue(spectrum, index));
        const bool sameGrid = std::none_of(indices.begin(), indices.end(), [](int index) { return index < 0; });
        sameGrid ? ++asTheyAre_ : ++resampled_;
        if (!sameGrid) resample(spectrum, values);
        return {spectrum.name, values};
    }

    void sayWhatWasDone() const {
        if (byOrder_ > 0) {
            warn("{} gives no wavelengths; the {} values of the spectra are taken for its bands in order.", imageName_,
                 image_.bandCount());
        }
        if (resampled_ > 0) {
            note("{} spectr{} resampled to the bands of the image{}.", resampled_, resampled_ == 1 ? "um" : "a",
                 asTheyAre_ > 0 ? fmt::format("; {} have its wavelengths", asTheyAre_) : "");
        }
    }

private:
    std::vector<double> byOrder(const LibrarySpectrum& spectrum) {
        if (static_cast<int>(spectrum.size()) != image_.bandCount()) {
            fail(
                "{} gives no wavelengths, and '{}' has {} values where the image has {} bands: they cannot be matched. "
                "Add wavelengths to the image's header, or take endmembers from the image with --pixel or --roi.",
                imageName_, spectrum.name, spectrum.size(), image_.bandCount());
        }
        ++byOrder_;
        std::vector<double> values;
        for (const int band : bands_) values.push_back(usableValue(spectrum, band));
        return values;
    }

    /// Values as the bands see the spectrum; where it does not enclose a band, the one at just its wavelength stays.
    void resample(const LibrarySpectrum& spectrum, std::vector<double>& values) {
        if (!converter_) converter_.emplace(readSensor(imageName_));
        const LibrarySpectrum converted = converter_->convert(spectrum);
        for (std::size_t i = 0; i < bands_.size(); ++i) {
            const float centre = wholeThousandths(image_.wavelength(bands_[i]));
            const auto found = std::lower_bound(converted.wavelengths.begin(), converted.wavelengths.end(), centre);
            if (found == converted.wavelengths.end() || *found != centre) continue;
            const double value = usableValue(converted, static_cast<int>(found - converted.wavelengths.begin()));
            if (!std::isnan(value)) values[i] = value;
        }
    }

    const DataSet& image_;
    std::string imageName_;
    const std::vector<int>& bands_;
    std::optional<BandConverter> converter_;
    int asTheyAre_ = 0;
    int resampled_ = 0;
    int byOrder_ = 0;
};

/// The level whose values are of the quantity that all spectra have.
std::optional<int> levelOf(const DataSet& image, const std::vector<LibrarySpectrum>& spectra) {
    const int quantity = spectra.front().quantity;
    const bool same = std::all_of(spectra.begin(), spectra.end(), [quantity](const LibrarySpectrum& spectrum) {
        return spectrum.quantity == quantity;
    });
    if (!same || quantity == KS_RQ_UNKNOWN || quantity == KS_RQ_UNCAL) return std::nullopt;
    const int level = KSRadTransQuantToLev(image.get(), quantity);
    return level >= 0 ? std::optional<int>(level) : std::nullopt;
}

bool isKnown(int quantity) { return quantity > KS_RQ_UNKNOWN && quantity <= KS_RQ_REFL; }

/// What the image's values at a level are; stored values without a calibration may be anything.
int quantityAt(const DataSet& image, int level) {
    if (level > 0) return image->papRadTransSeq[level - 1]->eRadQuant;
    return image->nNumRadTrans > 0 ? KS_RQ_UNCAL : KS_RQ_UNKNOWN;
}

/// Values of different quantities make no mixture.
void warnAboutQuantity(const DataSet& image, int level, const std::vector<LibrarySpectrum>& spectra) {
    const int ofImage = quantityAt(image, level);
    for (const LibrarySpectrum& spectrum : spectra) {
        if (!isKnown(spectrum.quantity) || !isKnown(ofImage) || spectrum.quantity == ofImage) continue;
        warn("'{}' is {}, the image at level {} is {}: fractions need values of one kind.", spectrum.name,
             aKSRadQuant[spectrum.quantity].szDesc, level, aKSRadQuant[ofImage].szDesc);
        return;
    }
}

// ---- places in the image ----

std::pair<int, int> parsePixel(const DataSet& image, const std::string& text) {
    int x = 0;
    int y = 0;
    char rest = 0;
    if (std::sscanf(text.c_str(), "%9d,%9d%c", &x, &y, &rest) != 2) {
        fail("'{}' is not a pixel. Write X,Y such as 12,40, counted from 0.", text);
    }
    if (x < 0 || y < 0 || x >= image->nXSize || y >= image->nYSize) {
        fail("pixel {},{} is outside the image, which has {} x {} pixels.", x, y, image->nXSize, image->nYSize);
    }
    return {x, y};
}

Candidate pixelSpectrum(const DataSet& image, const std::vector<int>& bands, int level, const std::string& text) {
    const auto [x, y] = parsePixel(image, text);
    Window window(1, 1, 1, 1, bands);
    window.place(x, y);
    SampleReader(image, bands, level, SampleReader::NoData::asNaN).read(window);
    Candidate candidate{fmt::format("pixel {} {}", x, y), {}};
    candidate.values.assign(window.samples(), window.samples() + window.sampleCount());
    return candidate;
}

Candidate regionSpectrum(const DataSet& image, const std::vector<int>& bands, int level, const NamedRegion& region,
                         const std::string& name) {
    const BandStatistics statistics = bandStatistics(image, bands, level, region.region.get(), false);
    Candidate candidate{name, std::vector<double>(bands.size(), kMissing)};
    for (std::size_t i = 0; i < statistics.bands.size(); ++i) {
        const auto found = std::find(bands.begin(), bands.end(), statistics.bands[i]);
        candidate.values[static_cast<std::size_t>(found - bands.begin())] = statistics.mean[i];
    }
    note("'{}': mean of {} pixel{}{}.", name, statistics.samples, statistics.samples == 1 ? "" : "s",
         statistics.excluded > 0 ? fmt::format(", {} without data left out", statistics.excluded) : "");
    return candidate;
}

void addRegions(const DataSet& image, const std::vector<int>& bands, int level, const std::string& asked,
                std::vector<Candidate>& candidates) {
    const std::vector<NamedRegion> regions = parseRegions(image, asked);
    const std::string stem = std::filesystem::exists(asked) ? std::filesystem::path(asked).stem().string() : asked;
    for (std::size_t i = 0; i < regions.size(); ++i) {
        const std::string numbered = regions.size() > 1 ? fmt::format("{} {}", stem, i + 1) : stem;
        const std::string& name = regions[i].name.empty() ? numbered : regions[i].name;
        candidates.push_back(regionSpectrum(image, bands, level, regions[i], name));
    }
}

// ---- together ----

/// The positions of the bands that all candidates have finite values for.
std::vector<std::size_t> completeBands(const std::vector<Candidate>& candidates, std::size_t bandCount) {
    std::vector<std::size_t> complete;
    for (std::size_t i = 0; i < bandCount; ++i) {
        const bool all = std::all_of(candidates.begin(), candidates.end(), [i](const Candidate& candidate) {
            return std::isfinite(static_cast<float>(candidate.values[i]));
        });
        if (all) complete.push_back(i);
    }
    return complete;
}

/// Says which bands are without values, and of which endmembers.
std::string missingText(const std::vector<Candidate>& candidates, const std::vector<int>& bands) {
    std::string text;
    for (const Candidate& candidate : candidates) {
        std::vector<int> missing;
        for (std::size_t i = 0; i < bands.size(); ++i) {
            if (!std::isfinite(static_cast<float>(candidate.values[i]))) missing.push_back(bands[i]);
        }
        if (missing.empty()) continue;
        text += fmt::format("{}'{}' for {}", text.empty() ? "" : "; ", candidate.name, bandRanges(missing));
    }
    return text;
}

std::vector<std::string> uniqueNames(const std::vector<Candidate>& candidates) {
    std::vector<std::string> names;
    std::set<std::string> taken;
    for (const Candidate& candidate : candidates) {
        const std::string base = candidate.name.empty() ? "endmember" : candidate.name;
        std::string name = base;
        for (int number = 2; !taken.insert(name).second; ++number) name = fmt::format("{} ({})", base, number);
        names.push_back(name);
    }
    return names;
}

Endmembers assemble(const std::vector<Candidate>& candidates, const std::vector<int>& asked, bool mayLeaveOut) {
    const std::vector<std::size_t> kept = completeBands(candidates, asked.size());
    Endmembers result;
    for (const std::size_t i : kept) result.bands.push_back(asked[i]);
    if (kept.size() < asked.size()) {
        const std::string missing = missingText(candidates, asked);
        if (kept.empty())
            fail("there is no band that every endmember has a value for. Without values are: {}.", missing);
        if (!mayLeaveOut) {
            fail("endmembers are without values: {}. Leave these bands out: --bands {}", missing,
                 bandRanges(result.bands));
        }
        warn("{} of {} bands are left out, for which endmembers are without values: {}.", asked.size() - kept.size(),
             asked.size(), missing);
    }
    result.names = uniqueNames(candidates);
    for (const std::size_t i : kept) {
        for (const Candidate& candidate : candidates) {
            result.matrix.push_back(static_cast<float>(candidate.values[i]));
        }
    }
    return result;
}

double medianMagnitude(std::vector<float> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return static_cast<double>(*middle);
}

/// Magnitudes of the image's values in some thousands of its pixels.
std::vector<float> someMagnitudes(const DataSet& image, const Endmembers& endmembers) {
    constexpr int kSamplesAcross = 64;
    const int every = std::max(1, std::max(image->nXSize, image->nYSize) / kSamplesAcross);
    const SampleReader reader(image, endmembers.bands, endmembers.level, SampleReader::NoData::asNaN);
    std::vector<float> magnitudes;
    readBlocks(reader, wholeImage(image, every), 1.0, [&](int, Window& window) {
        for (std::size_t i = 0; i < window.sampleCount(); ++i) {
            if (std::isfinite(window.samples()[i])) magnitudes.push_back(std::fabs(window.samples()[i]));
        }
    });
    return magnitudes;
}

double conditionOf(const Endmembers& endmembers, bool withSum) {
    std::vector<double> matrix(endmembers.matrix.begin(), endmembers.matrix.end());
    if (withSum) {
        double largest = 0;
        for (std::size_t b = 0; b < endmembers.bands.size(); ++b) {
            double sum = 0;
            for (std::size_t e = 0; e < endmembers.names.size(); ++e) sum += static_cast<double>(endmembers.at(b, e));
            if (b == 0 || sum > largest) largest = sum;
        }
        matrix.insert(matrix.end(), endmembers.names.size(), largest * static_cast<double>(endmembers.bands.size()));
    }
    return conditionNumber(matrix, endmembers.names.size());
}

}  // namespace

std::vector<const float*> Endmembers::rows() const {
    std::vector<const float*> rows;
    for (std::size_t b = 0; b < bands.size(); ++b) rows.push_back(matrix.data() + b * names.size());
    return rows;
}

Endmembers gatherEndmembers(const DataSet& image, const std::string& imageName, const EndmemberRequest& request) {
    if (request.spectraFile.empty() && request.pixels.empty() && request.regions.empty()) {
        fail(
            "no endmembers are given: name a library with --endmembers, or places in the image with --pixel or --roi.");
    }
    std::vector<LibrarySpectrum> spectra;
    if (!request.spectraFile.empty()) spectra = selectSpectra(readLibrary(request.spectraFile), request.select);

    int level = image.level(std::max(request.level, 0));
    if (request.level < 0 && !spectra.empty()) {
        if (const auto found = levelOf(image, spectra)) {
            level = *found;
            note("level {} of the image is used, whose quantity is that of the library.", level);
        }
    }
    warnAboutQuantity(image, level, spectra);
    const bool defaultBands = request.bands.empty();
    const std::vector<int> bands = defaultBands ? goodBands(image) : parseBands(image, request.bands);
    if (bands.empty()) fail("{} has no good bands; choose some with --bands.", imageName);

    std::vector<Candidate> candidates;
    Matcher matcher(image, imageName, bands);
    for (const LibrarySpectrum& spectrum : spectra) candidates.push_back(matcher.match(spectrum));
    matcher.sayWhatWasDone();
    for (const std::string& pixel : request.pixels) candidates.push_back(pixelSpectrum(image, bands, level, pixel));
    for (const std::string& region : request.regions) addRegions(image, bands, level, region, candidates);
    Endmembers endmembers = assemble(candidates, bands, defaultBands);
    endmembers.level = level;
    return endmembers;
}

void warnAboutScale(const DataSet& image, const Endmembers& endmembers) {
    constexpr double kFarApart = 20;
    std::vector<float> magnitudes = someMagnitudes(image, endmembers);
    if (magnitudes.empty()) return;
    std::vector<float> ofEndmembers = endmembers.matrix;
    for (float& value : ofEndmembers) value = std::fabs(value);
    const double inImage = medianMagnitude(std::move(magnitudes));
    const double inEndmembers = medianMagnitude(std::move(ofEndmembers));
    if (inImage <= kFarApart * inEndmembers && inEndmembers <= kFarApart * inImage) return;
    warn(
        "the values of the image at level {} are about {:.3g}, those of the endmembers about {:.3g} (medians). If they "
        "are of one kind in different units, the fractions are wrong by that factor: choose another --level{}, or "
        "scale "
        "the library.",
        endmembers.level, inImage, inEndmembers,
        image->nNumRadTrans > 0 ? fmt::format(" (0 to {})", image->nNumRadTrans) : "");
}

void warnAboutLikeness(const Endmembers& endmembers, bool withSum) {
    // Where the library leaves a direction out.
    constexpr double kHopeless = 1e5;
    if (endmembers.count() > static_cast<int>(endmembers.bands.size()) + (withSum ? 1 : 0)) {
        warn("there are more endmembers ({}) than equations ({}): many mixtures explain a pixel equally well.",
             endmembers.count(), endmembers.bands.size() + (withSum ? 1 : 0));
        return;
    }
    const double found = conditionOf(endmembers, withSum);
    if (found < kHopeless) return;
    const bool becauseOfSum = withSum && conditionOf(endmembers, false) < kHopeless;
    warn("the endmembers{} depend on each other (condition number {:.2g}): their fractions cannot be told apart. {}",
         becauseOfSum ? " with the heavy equation for the sum" : "", found,
         becauseOfSum ? "--non-negative computes in double precision, which is enough here."
                      : "Leave out those that resemble others.");
}

}  // namespace kscli
