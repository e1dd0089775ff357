#include "spectra/librarytake.hpp"

#include <algorithm>
#include <filesystem>
#include <new>

#include "app/report.hpp"
#include "image/bands.hpp"
#include "image/region.hpp"
#include "spectra/speclayer.hpp"

namespace kscli {
namespace {

/// Bands in order of wavelength, each wavelength once, as a library keeps them.
std::vector<int> bandsOfLibrary(const DataSet& image, const std::string& list) {
    std::vector<int> bands = parseBands(image, list);
    const std::size_t asked = bands.size();
    bands.erase(std::remove_if(bands.begin(), bands.end(), [&](int band) { return !(image.wavelength(band) > 0); }),
                bands.end());
    if (bands.empty()) fail("the bands have no wavelengths, and a library needs them.");
    const auto key = [&](int band) { return wholeThousandths(image.wavelength(band)); };
    std::stable_sort(bands.begin(), bands.end(), [&](int a, int b) { return key(a) < key(b); });
    bands.erase(std::unique(bands.begin(), bands.end(), [&](int a, int b) { return key(a) == key(b); }), bands.end());
    if (bands.size() < asked) {
        warn("{} bands without a wavelength of their own are left out.", asked - bands.size());
    }
    return bands;
}

LibrarySpectrum meanOver(const DataSet& image, const std::vector<int>& bands, int level, KSROI* region) {
    std::vector<float> wavelengths;
    for (const int band : bands) wavelengths.push_back(wholeThousandths(image.wavelength(band)));
    const Schema schema = schemaOf(wavelengths);
    const SpectrumRecord record(KSCreateSpec(schema.get()));
    if (!record || record->pafWlen == nullptr) throw std::bad_alloc();
    std::vector<int> map = bands;
    KSSampDesc samples = {};
    samples.nXSampleInt = samples.nYSampleInt = 1;
    samples.nNumBands = static_cast<int>(map.size());
    samples.panBandMap = map.data();
    record->paROI = region;  // lent for the call
    const int failed = KSEvalSpecFromDataSet(image.get(), level, &samples, record.get());
    record->paROI = nullptr;
    if (failed != 0) fail("the spectrum could not be taken (see above).");
    LibrarySpectrum spectrum;
    spectrum.quantity = record->eRadQuant;
    spectrum.wavelengths = std::move(wavelengths);
    spectrum.values.assign(record->pMeas->ve, record->pMeas->ve + map.size());
    spectrum.quality.assign(record->peBandQual, record->peBandQual + map.size());
    return spectrum;
}

std::string nameOf(const NamedRegion& region, const std::string& asked, std::size_t number, std::size_t count) {
    if (!region.name.empty()) return region.name;
    const std::string stem = std::filesystem::exists(asked) ? std::filesystem::path(asked).stem().string() : asked;
    return count > 1 ? fmt::format("{} {}", stem, number) : stem;
}

}  // namespace

std::vector<LibrarySpectrum> takeSpectra(const DataSet& image, const std::string& imageName,
                                         const TakeRequest& request) {
    const std::vector<int> bands = bandsOfLibrary(image, request.bands);
    const int level = image.level(request.level);
    std::vector<LibrarySpectrum> spectra;
    for (const std::string& asked : request.regions) {
        std::vector<NamedRegion> regions = parseRegions(image, asked);
        for (std::size_t i = 0; i < regions.size(); ++i) {
            const KSROI& place = *regions[i].region;
            const std::string name = spectra.size() < request.names.size()
                                         ? request.names[spectra.size()]
                                         : nameOf(regions[i], asked, i + 1, regions.size());
            ValidPixels pixels = validPixels(image, bands, level, &place);
            if (pixels.valid == 0) {
                warn("'{}': no pixel of the region holds data; it gives no spectrum.", name);
                continue;
            }
            KSROI* const region = pixels.region ? pixels.region.get() : regions[i].region.get();
            LibrarySpectrum spectrum = meanOver(image, bands, level, region);
            for (const int empty : pixels.emptyBands) {
                const auto at = static_cast<std::size_t>(std::find(bands.begin(), bands.end(), empty) - bands.begin());
                spectrum.values.at(at) = kMaskedValue;
                spectrum.quality.at(at) = KS_BQ_MASK;
            }
            spectrum.name = name;
            spectrum.sourceFile = imageName;
            // A bitmap is known by a number in a file of bitmaps, which a library does not come with.
            if (place.eROIType != KS_ROI_BITMAP) spectrum.region = regionText(place);
            note("'{}': mean of {} pixel{}{}.", name, pixels.valid, pixels.valid == 1 ? "" : "s",
                 pixels.excluded > 0 ? fmt::format(", {} without data left out", pixels.excluded) : "");
            spectra.push_back(std::move(spectrum));
        }
    }
    if (spectra.empty()) fail("no region gives a spectrum.");
    if (spectra.size() < request.names.size()) {
        warn("{} names are given for {} spectra; the last ones are not used.", request.names.size(), spectra.size());
    }
    return spectra;
}

}  // namespace kscli
