#include "spectra/speclayer.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>
#include <numeric>

#include "app/text.hpp"
#include "image/bands.hpp"
#include "image/blocks.hpp"
#include "image/dataset.hpp"
#include "image/entries.hpp"
#include "spectra/rawspectrum.hpp"

namespace kscli {
namespace {

char* ownedText(const std::string& text) {
    char* copy = static_cast<char*>(std::malloc(text.size() + 1));
    if (copy == nullptr) throw std::bad_alloc();
    std::memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

std::string textOf(const char* text) { return text != nullptr ? text : ""; }

struct FileCloser {
    void operator()(HostFile* file) const { GDBClose(file); }
};
using OpenFile = std::unique_ptr<HostFile, FileCloser>;

/// A layer read from a file counts as cut off at 3000 nm when the file is a .sli; its copy in memory does not.
OpenFile copyInMemory(HostLayer* layer) {
    OpenFile copy(GDBCreate(KSHOST_TYPE_MEMORY, "", 512, 512, 0, 1, ""));
    if (!copy || GDBVectorCopy(layer->fp, layer->nSegment, copy.get(), 0, 0, 0, 0) == 0) {
        fail("the spectra could not be copied (see above).");
    }
    return copy;
}

/// The quality that the file states. The library calls every value of zero or less "skip", which a dark target or noise
/// about zero does not deserve.
int statedQuality(HostLayer* layer, int shape, const KSSTFld& field, double value) {
    if (value == kMaskedValue || !std::isfinite(value)) return KS_BQ_MASK;
    if (field.nQualFldInd < 0) return KS_BQ_PLOT;
    std::string text = trimmed(textOf(GDBGetValueString(layer, shape, field.nQualFldInd)));
    return _BandQualStrToEnum(text.data());
}

LibrarySpectrum spectrumOf(const KSSpectrum& record, HostLayer* layer, int shape, const KSSTSchema& schema) {
    LibrarySpectrum spectrum;
    spectrum.name = textOf(record.szTarget);
    spectrum.quantity = record.eRadQuant;
    spectrum.sourceFile = textOf(record.szSourceFile);
    if (record.paROI != nullptr) {
        char* text = _ROIStructToStr(record.paROI);
        spectrum.region = textOf(text);
        std::free(text);
    }
    for (int i = 0; i < record.nNumMeasVals; ++i) {
        const double value = record.pMeas->ve[i];
        const bool missing = !std::isfinite(value) || std::abs(value / kMaskedValue - 1) < 1e-6;
        spectrum.wavelengths.push_back(record.pafWlen[i]);
        spectrum.values.push_back(missing ? kMaskedValue : value);
        spectrum.quality.push_back(statedQuality(layer, shape, schema.pMeasFld[i], spectrum.values.back()));
    }
    return spectrum;
}

std::vector<LibrarySpectrum> spectraOf(HostLayer* layer) {
    const Schema schema(KSSTSchemaFromLayer(layer));
    if (!schema) fail("the fields of the spectra layer cannot be understood (see above).");
    std::vector<LibrarySpectrum> spectra;
    for (int shape = GDBGetFirst(layer); shape >= 0; shape = GDBGetNext(layer, shape)) {
        const SpectrumRecord record(KSCreateSpec(schema.get()));
        if (!record || record->pafWlen == nullptr) throw std::bad_alloc();
        if (KSEvalSpecFromShape(layer, shape, schema.get(), record.get()) != 0) {
            fail("spectrum {} of the layer cannot be read (see above).", shape + 1);
        }
        spectra.push_back(spectrumOf(*record, layer, shape, *schema));
    }
    return spectra;
}

// ---- images of one spectrum a line ----

std::vector<std::string> namesOfPixels(const DataSet& image, std::size_t count) {
    std::vector<std::string> names;
    const Entries entries = Entries::ofFile(image.file());
    if (const char* list = entries.find("ENVI:spectra names")) {
        std::string text = list;
        text.erase(std::remove_if(text.begin(), text.end(), [](char c) { return c == '{' || c == '}'; }), text.end());
        Entries tokens(TokenizeDelim(text.c_str(), ","));
        for (const std::string& token : tokens.texts()) names.push_back(trimmed(token));
    }
    if (names.size() == count) return names;
    names.clear();
    const char* what = image->nXSize == 1 ? "line" : "pixel";
    for (std::size_t i = 0; i < count; ++i) names.push_back(fmt::format("{} {}", what, i + 1));
    return names;
}

std::vector<LibrarySpectrum> readImage(const std::string& name) {
    const DataSet image = DataSet::open(name);
    if (image->nXSize != 1 && image->nYSize != 1) {
        fail(
            "{} is an image of {} x {} pixels, not a library. 'ks library take' makes a library of places in an image; "
            "an image is read as one only when it is one pixel wide or high.",
            name, image->nXSize, image->nYSize);
    }
    if (!image.hasWavelengths()) fail("{} gives no wavelengths, so its pixels are no spectra.", name);
    const int level = image.level(-1);
    const SampleReader reader(image, allBands(image), level, SampleReader::NoData::asNaN);
    const std::size_t bands = static_cast<std::size_t>(image.bandCount());
    std::vector<RawSpectrum> raw;
    readBlocks(reader, wholeImage(image), 1, [&](int, Window& window) {
        for (std::size_t pixel = 0; pixel < window.pixelCount(); ++pixel) {
            RawSpectrum one;
            one.unit = WavelengthUnit::nanometres;
            one.quantity = level > 0 ? image->papRadTransSeq[level - 1]->eRadQuant : static_cast<int>(KS_RQ_UNKNOWN);
            for (std::size_t band = 0; band < bands; ++band) {
                one.wavelengths.push_back(image.wavelength(static_cast<int>(band)));
                one.values.push_back(static_cast<double>(window.samples()[pixel * bands + band]));
                one.quality.push_back(image->Sensor.peBandQual[band]);
            }
            raw.push_back(std::move(one));
        }
    });
    const std::vector<std::string> names = namesOfPixels(image, raw.size());
    for (std::size_t i = 0; i < raw.size(); ++i) raw[i].name = names[i];
    std::vector<LibrarySpectrum> spectra = finishSpectra(std::move(raw), name);
    for (LibrarySpectrum& spectrum : spectra) spectrum.sourceFile = name;
    return spectra;
}

}  // namespace

Schema schemaOf(const std::vector<float>& wavelengths, LayerFields fields) {
    std::vector<KSBandResp> responses(wavelengths.size());
    std::vector<int> bands(wavelengths.size());
    std::iota(bands.begin(), bands.end(), 0);
    for (std::size_t i = 0; i < responses.size(); ++i) {
        responses[i] = {};
        responses[i].eRespType = KS_RT_GAUSSIAN;
        responses[i].fCentre = wavelengths[i];
    }
    KSSensor sensor = {};
    sensor.nNumBands = static_cast<int>(responses.size());
    sensor.pBandResp = responses.data();
    Schema schema(KSSTSchemaFromProfile(&sensor, bands.data(), sensor.nNumBands, fields == LayerFields::all ? 1 : 0));
    if (!schema) throw std::bad_alloc();
    return schema;
}

SpectrumRecord recordOf(const LibrarySpectrum& spectrum, const KSSTSchema* schema) {
    SpectrumRecord record(KSCreateSpec(schema));
    if (!record || record->pafWlen == nullptr) throw std::bad_alloc();
    record->szTarget = ownedText(spectrum.name);
    record->eRadQuant = spectrum.quantity;
    record->szSourceFile = ownedText(spectrum.sourceFile);
    if (!spectrum.region.empty()) {
        std::string text = spectrum.region;
        record->paROI = _ROIStrToStruct(text.data());
        record->nNumROIs = record->paROI != nullptr ? 1 : 0;
    }
    for (std::size_t i = 0; i < spectrum.size(); ++i) {
        record->pMeas->ve[i] = spectrum.values[i];
        record->peBandQual[i] = spectrum.quality[i];
    }
    return record;
}

SpectraLayer::SpectraLayer(const std::vector<LibrarySpectrum>& spectra, LayerFields fields) {
    if (spectra.empty()) fail("there are no spectra to write.");
    schema_ = schemaOf(spectra[0].wavelengths, fields);
    layer_ = KSCreateSpectraLayer(schema_.get());
    if (layer_ == nullptr) fail("the layer of spectra could not be made (see above).");
    try {
        for (const LibrarySpectrum& spectrum : spectra) {
            const SpectrumRecord record = recordOf(spectrum, schema_.get());
            if (KSAddShapeFromSpec(layer_, schema_.get(), record.get()) != 0) {
                fail("'{}' could not be added to the layer (see above).", spectrum.name);
            }
        }
    } catch (...) {
        GDBClose(layer_->fp);
        throw;
    }
}

SpectraLayer::~SpectraLayer() { GDBClose(layer_->fp); }

void SpectraLayer::write(const std::string& name, int fileType) const {
    if (KSWriteSpectraLayer(name.c_str(), layer_, fileType) != 0) fail("the library could not be written (see above).");
}

bool isLayerFile(const std::string& name) {
    const OpenFile file(GDBOpen(name.c_str(), "r"));
    if (!file) fail("{} cannot be opened (see above).", name);
    return fp2type(file.get()) == KSHOST_TYPE_SPECTRAL_LIBRARY || GDBChanNum(file.get()) == 0;
}

std::vector<LibrarySpectrum> readLayerFile(const std::string& name) {
    const OpenFile file(GDBOpen(name.c_str(), "r"));
    if (!file) fail("{} cannot be opened as a library (see above).", name);
    HostLayer* const layer = KSReadSpectraLayer(file.get());
    if (layer == nullptr) {
        if (GDBChanNum(file.get()) > 0) return readImage(name);
        fail("{} holds no spectra.", name);
    }
    const OpenFile copy = copyInMemory(layer);
    HostLayer* const copied = GDBGetLayer(copy.get(), GDBSegNext(copy.get(), kLayerSegment, 0));
    if (copied == nullptr) fail("{}: the spectra cannot be read (see above).", name);
    return spectraOf(copied);
}

}  // namespace kscli
