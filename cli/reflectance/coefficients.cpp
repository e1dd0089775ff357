#include "reflectance/coefficients.hpp"

#include <algorithm>
#include <cmath>
#include <memory>

#include <kslib.h>

#include "app/report.hpp"
#include "image/bands.hpp"
#include "lut/interp.hpp"
#include "spectra/bandconversion.hpp"

namespace kscli {
namespace {

/// The four values that coefficients are solved from.
struct Quad {
    double a1, a2, b1, b2;

    bool isKnown() const { return std::isfinite(a1) && std::isfinite(a2) && std::isfinite(b1) && std::isfinite(b2); }
};

std::optional<SurfaceCoefficients> solve(const Quad& v, double r1, double r2) {
    if (!v.isKnown()) return std::nullopt;
    const RLUTEntry at1 = {static_cast<float>(v.a1), static_cast<float>(v.b1)};
    const RLUTEntry at2 = {static_cast<float>(v.a2), static_cast<float>(v.b2)};
    return solveSurface(at1, at2, r1, r2);
}

/// The table's spectra at both levels, over increasing wavelengths.
class Spectra {
public:
    Spectra(const TableAxis& axis, const ReflectanceLevels& levels) {
        const bool rising = axis.coordinates.front() < axis.coordinates.back();
        for (std::size_t k = 0; k < axis.coordinates.size(); ++k) {
            const std::size_t i = rising ? k : axis.coordinates.size() - 1 - k;
            wavelengths_.push_back(axis.coordinates[i]);
            values_.push_back({static_cast<double>(levels.at1[i].fFirst), static_cast<double>(levels.at2[i].fFirst),
                               static_cast<double>(levels.at1[i].fSecond), static_cast<double>(levels.at2[i].fSecond)});
        }
    }

    double first() const { return static_cast<double>(wavelengths_.front()); }
    double last() const { return static_cast<double>(wavelengths_.back()); }

    /// Wavelengths of the table in a range.
    std::size_t countIn(double low, double high) const {
        const auto isBefore = [](float a, double b) { return static_cast<double>(a) < b; };
        const auto begin = std::lower_bound(wavelengths_.begin(), wavelengths_.end(), low, isBefore);
        const auto end = std::lower_bound(begin, wavelengths_.end(), high, isBefore);
        return static_cast<std::size_t>(end - begin);
    }
    /// The table's wavelength that is the given one but for rounding, or -1.
    int indexOf(double nm) const {
        const std::size_t next = countIn(0, nm);
        for (const std::size_t i : {next, next - 1}) {
            if (i < wavelengths_.size() && std::abs(static_cast<double>(wavelengths_[i]) - nm) <= kSameNm) {
                return static_cast<int>(i);
            }
        }
        return -1;
    }
    Quad at(int index) const { return values_[static_cast<std::size_t>(index)]; }
    /// Between two wavelengths of the table.
    Quad between(double nm) const {
        const std::size_t upper = countIn(0, nm);
        const double low = static_cast<double>(wavelengths_[upper - 1]);
        const double t = (nm - low) / (static_cast<double>(wavelengths_[upper]) - low);
        const Quad& a = values_[upper - 1];
        const Quad& b = values_[upper];
        return {a.a1 + t * (b.a1 - a.a1), a.a2 + t * (b.a2 - a.a2), a.b1 + t * (b.b1 - a.b1), a.b2 + t * (b.b2 - a.b2)};
    }
    /// One of the four as a spectrum of a library.
    LibrarySpectrum spectrum(double Quad::*member) const {
        LibrarySpectrum result;
        for (std::size_t i = 0; i < values_.size(); ++i) {
            const double value = values_[i].*member;
            result.wavelengths.push_back(wholeThousandths(static_cast<double>(wavelengths_[i])));
            result.values.push_back(std::isfinite(value) ? value : kMaskedValue);
            result.quality.push_back(std::isfinite(value) ? KS_BQ_PLOT : KS_BQ_MASK);
        }
        return result;
    }

private:
    static constexpr double kSameNm = 0.005;  // headers and tables round to hundredths
    std::vector<float> wavelengths_;
    std::vector<Quad> values_;
};

/// The table's values as bands see them that are wide enough to hold several of its wavelengths.
class Weighting {
public:
    Weighting(const Spectra& spectra, std::vector<SensorBand> bands) : converter_(std::move(bands)) {
        if (converter_.bands().empty()) return;
        for (double Quad::*member : {&Quad::a1, &Quad::a2, &Quad::b1, &Quad::b2}) {
            const LibrarySpectrum converted = converter_.convert(spectra.spectrum(member));
            values_.resize(converted.size());
            for (std::size_t i = 0; i < converted.size(); ++i) {
                values_[i].*member = converted.isUsable(i) ? converted.values[i] : std::nan("");
            }
        }
    }
    const Quad& of(std::size_t i) const { return values_[i]; }

private:
    BandConverter converter_;
    std::vector<Quad> values_;
};

SensorBand sensorBandOf(const DataSet& image, int band) {
    SensorBand result;
    result.response = image->Sensor.pBandResp[band];
    if (result.response.eRespType == KS_RT_CUSTOM && result.response.pafSamples != nullptr) {
        result.samples.assign(result.response.pafSamples, result.response.pafSamples + result.response.nNumSamples);
    }
    result.response.pafSamples = nullptr;
    return result;
}

/// Enough wavelengths of the table lie under a band for a mean.
bool isCoarse(const DataSet& image, int band, const Spectra& spectra) {
    constexpr std::size_t kFewest = 3;
    const double nm = image.wavelength(band);
    const double half = image.fwhm(band) / 2;
    return half > 0 && spectra.countIn(nm - half, nm + half) >= kFewest;
}

/// The table was made for just these bands, so that its values are theirs already. To the library a table is similar
/// too when the image has only some of its wavelengths, which bands of any width may have.
bool isMadeFor(const LookupTable& table, const DataSet& image) {
    int similar = 0;
    return table.size(RLUT_WAVELENGTH) == image.bandCount() &&
           RLUTIsDatasetSimilar(table.record(), image.get(), &similar) == 1 && similar != 0;
}

}  // namespace

std::optional<SurfaceCoefficients> solveSurface(const RLUTEntry& at1, const RLUTEntry& at2, double r1, double r2) {
    // The library solves for first values that fall as the ground gets brighter; ours rise, and so go in negated, which
    // negates coefficient 1 and leaves 3 as it is. Its coefficients 2 and 4 are not those of these equations.
    double negated = 0;
    double unused2 = 0;
    double albedo = 0;
    double unused4 = 0;
    if (KSEvalSRCoeffs(-at1.fFirst, -at2.fFirst, at1.fSecond, at2.fSecond, static_cast<float>(r1),
                       static_cast<float>(r2), &negated, &unused2, &albedo, &unused4) != 0) {
        return std::nullopt;
    }
    const double s1 = r1 / (1 - albedo * r1);
    const double s2 = r2 / (1 - albedo * r2);
    const double b1 = static_cast<double>(at1.fSecond);
    const double scattered = (static_cast<double>(at2.fSecond) - b1) / (s2 - s1);
    const SurfaceCoefficients result = {b1 - scattered * s1, -negated + scattered, albedo};
    const bool isUsable = std::isfinite(result.path) && std::isfinite(result.ground) && result.ground > 0;
    return isUsable ? std::optional<SurfaceCoefficients>(result) : std::nullopt;
}

ReflectanceLevels readLevels(const LookupTable& table, std::vector<double> point, bool extrapolate) {
    const RadianceInterpolator interpolator(table);
    std::vector<float> levels;
    for (const float r : table.axis(RLUT_REFLECTANCE).coordinates) {
        if (r > 0) levels.push_back(r);
    }
    const auto [least, most] = std::minmax_element(levels.begin(), levels.end());
    if (levels.empty() || *least == *most) {
        fail("the table must have two reflectances above 0 to solve for; 'ks lut info' shows its axes.");
    }
    ReflectanceLevels result;
    result.r1 = static_cast<double>(*least);
    result.r2 = static_cast<double>(*most);
    point[RLUT_REFLECTANCE] = result.r1;
    result.at1 = interpolator.at(point, extrapolate);
    point[RLUT_REFLECTANCE] = result.r2;
    result.at2 = interpolator.at(point, extrapolate);
    return result;
}

BandCoefficients coefficientsOf(const LookupTable& table, const DataSet& image, const std::vector<int>& bands,
                                const ReflectanceLevels& levels) {
    const Spectra spectra(table.axis(RLUT_WAVELENGTH), levels);
    const bool isTheirs = isMadeFor(table, image);
    BandCoefficients result;
    std::vector<SensorBand> wide;
    std::vector<std::size_t> placeOfWide;
    result.coefficients.resize(bands.size());
    std::vector<Quad> values(bands.size(), Quad{std::nan(""), std::nan(""), std::nan(""), std::nan("")});
    std::vector<bool> reached(bands.size(), true);
    for (std::size_t i = 0; i < bands.size(); ++i) {
        const double nm = image.wavelength(bands[i]);
        const int same = nm > 0 ? spectra.indexOf(nm) : -1;
        if (same >= 0 && (isTheirs || !isCoarse(image, bands[i], spectra))) {
            values[i] = spectra.at(same);
            ++result.matched;
        } else if (!(nm > spectra.first() && nm < spectra.last())) {
            reached[i] = false;
        } else if (isCoarse(image, bands[i], spectra)) {
            wide.push_back(sensorBandOf(image, bands[i]));
            placeOfWide.push_back(i);
        } else {
            values[i] = spectra.between(nm);
            ++result.interpolated;
        }
    }
    const Weighting weighting(spectra, std::move(wide));
    for (std::size_t k = 0; k < placeOfWide.size(); ++k) {
        values[placeOfWide[k]] = weighting.of(k);
        if (weighting.of(k).isKnown()) {
            ++result.weighted;
        } else {
            reached[placeOfWide[k]] = false;
        }
    }
    for (std::size_t i = 0; i < bands.size(); ++i) {
        if (!reached[i]) {
            result.outside.push_back(bands[i]);
        } else if (const auto solved = solve(values[i], levels.r1, levels.r2)) {
            result.coefficients[i] = *solved;
        } else {
            result.unsolvable.push_back(bands[i]);
        }
    }
    if (result.outside.size() == bands.size()) {
        fail("no band of the image lies within the table's wavelengths, {} to {} nm.", spectra.first(), spectra.last());
    }
    if (result.outside.size() + result.unsolvable.size() == bands.size()) {
        fail(
            "in no band do the table's values tell the light from the ground; they must be radiances whose first value "
            "grows with the reflectance ('ks lut info' shows what they are).");
    }
    return result;
}

}  // namespace kscli
