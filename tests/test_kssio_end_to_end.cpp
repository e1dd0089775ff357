// Spectra on the embedded host: libraries of thousands of bands written to a file and read back equal, spectra taken
// from a cube, and a spectral library of another program read as a layer.
#include <gtest/gtest.h>
#include <kshost_app.h>
#include <kslib.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "embedded.hpp"
#include "spectra.hpp"
#include "windows.hpp"

using namespace kit;

namespace {

using Names = std::vector<std::string>;
constexpr int kNative = 3;
constexpr int kLibraryType = 29;

using SpectraEndToEnd = EmbeddedTest;

std::string bytesOf(const std::string& path) {
    std::ostringstream bytes;
    bytes << std::ifstream(path, std::ios::binary).rdbuf();
    return bytes.str();
}

/// Everything of one spectrum that a layer keeps.
struct Kept {
    std::string target;
    int quantity = 0;
    std::string sourceFile;
    std::string roiFile;
    std::vector<int> region;
    std::vector<float> wavelengths;
    std::vector<double> values;
    std::vector<int> qualities;

    bool operator==(const Kept& other) const {
        return target == other.target && quantity == other.quantity && sourceFile == other.sourceFile &&
               roiFile == other.roiFile && region == other.region && wavelengths == other.wavelengths &&
               values == other.values && qualities == other.qualities;
    }
};

std::string given(const char* text) { return text == nullptr ? "" : text; }

Kept keptOf(const KSSpectrum& spectrum) {
    Kept kept;
    kept.target = given(spectrum.szTarget);
    kept.quantity = spectrum.eRadQuant;
    kept.sourceFile = given(spectrum.szSourceFile);
    kept.roiFile = given(spectrum.szROIFile);
    if (const KSROI* region = spectrum.paROI; region != nullptr) {
        kept.region = {region->eROIType, region->nXOff, region->nYOff, region->nXSize};
    }
    kept.wavelengths.assign(spectrum.pafWlen, spectrum.pafWlen + spectrum.nNumMeasVals);
    kept.values.assign(spectrum.pMeas->ve, spectrum.pMeas->ve + spectrum.nNumMeasVals);
    kept.qualities.assign(spectrum.peBandQual, spectrum.peBandQual + spectrum.nNumMeasVals);
    return kept;
}

/// Every spectrum of a layer, in the order of its walk.
std::vector<Kept> spectraOf(HostLayer* layer) {
    std::vector<Kept> all;
    const Schema schema(KSSTSchemaFromLayer(layer));
    EXPECT_NE(schema, nullptr);
    if (schema == nullptr) return all;
    for (int shape = GDBGetFirst(layer); shape != -1; shape = GDBGetNext(layer, shape)) {
        const Spectrum spectrum(KSCreateSpec(schema.get()));
        EXPECT_EQ(KSEvalSpecFromShape(layer, shape, schema.get(), spectrum.get()), 0);
        all.push_back(keptOf(*spectrum));
    }
    return all;
}

/// The spectra of the first spectra layer of a file.
std::vector<Kept> spectraOf(const std::string& name) {
    HostFile* file = GDBOpen(name.c_str(), "r");
    EXPECT_NE(file, nullptr) << name;
    if (file == nullptr) return {};
    HostLayer* layer = KSReadSpectraLayer(file);
    EXPECT_NE(layer, nullptr) << name;
    const std::vector<Kept> all = layer == nullptr ? std::vector<Kept>{} : spectraOf(layer);
    GDBClose(file);
    return all;
}

// ---- large libraries ----

struct LargeLibrary : SpectraEndToEnd {
    static constexpr int kBands = 2151;
    static constexpr int kSpectra = 25;
    std::string name = folder.path("library.ks");
    Schema schema;
    std::vector<Kept> made;

    /// Values of every size; what is not positive reads back as to be skipped, so it is made so.
    void fill(KSSpectrum& spectrum, int number, std::mt19937& engine) const {
        std::uniform_real_distribution<double> reals(-0.1, 1.0);
        const double extremes[] = {0.1, 5e-324, 1.7976931348623157e308, 0.0, -0.0, -1.23e34, 1.0 / 3};
        spectrum.szTarget = heapText("Schnee \xC3\xA4lter " + std::to_string(number));
        spectrum.eRadQuant = number % 7;
        spectrum.szSourceFile = heapText("/data/cube " + std::to_string(number) + ".img");
        spectrum.szROIFile = heapText(number == 3 ? std::string(70000, 'r') : "");
        if (number % 2 == 0) {
            spectrum.paROI = KSCreateROI();
            *spectrum.paROI = {KS_ROI_POINT, number, 2 * number, 3, -1, nullptr, -1};
            spectrum.nNumROIs = 1;
        }
        for (int b = 0; b < kBands; ++b) {
            const double value = b % 50 == 0 ? extremes[(b / 50) % 7] : reals(engine);
            spectrum.pMeas->ve[b] = value;
            spectrum.peBandQual[b] = value > 0.0 ? b % 5 : KS_BQ_SKIP;
        }
    }
    HostLayer* make() {
        KSDataSet* field = heapDataSet(kBands);
        std::vector<int> bands(kBands);
        for (int b = 0; b < kBands; ++b) {
            field->Sensor.pBandResp[b].fCentre = 350.0F + static_cast<float>(b) + 0.001F * static_cast<float>(b % 7);
            bands[static_cast<std::size_t>(b)] = b;
        }
        schema.reset(KSSTSchemaFromProfile(&field->Sensor, bands.data(), kBands, 1));
        freeWhole(field);
        if (schema == nullptr) return nullptr;
        HostLayer* layer = KSCreateSpectraLayer(schema.get());
        if (layer == nullptr) return nullptr;
        std::mt19937 engine(7);
        for (int i = 0; i < kSpectra; ++i) {
            const Spectrum spectrum(KSCreateSpec(schema.get()));
            fill(*spectrum, i, engine);
            EXPECT_EQ(KSAddShapeFromSpec(layer, schema.get(), spectrum.get()), 0);
            made.push_back(keptOf(*spectrum));
        }
        return layer;
    }
    void expectMade(const std::vector<Kept>& spectra) const {
        ASSERT_EQ(spectra.size(), made.size());
        for (std::size_t i = 0; i < made.size(); ++i) {
            EXPECT_EQ(spectra[i].target, made[i].target);
            EXPECT_TRUE(spectra[i] == made[i]) << "spectrum " << i;
        }
    }
};

// Wavelengths here are whole thousandths, but singles: a field's name gives them back to the last of its digits.
void roundWavelengths(std::vector<Kept>& spectra) {
    for (Kept& kept : spectra) {
        for (float& wavelength : kept.wavelengths) wavelength = std::round(wavelength * 1000.0F) / 1000.0F;
    }
}

TEST_F(LargeLibrary, InMemoryReadsBackEqual) {
    HostLayer* layer = make();
    ASSERT_NE(layer, nullptr);
    EXPECT_EQ(GDBGetNumFields(layer), 4307);
    EXPECT_EQ(layer->nFlags & 0x100U, 0U);
    std::vector<Kept> spectra = spectraOf(layer);
    GDBClose(layer->fp);
    roundWavelengths(spectra);
    roundWavelengths(made);
    expectMade(spectra);
    EXPECT_EQ(folder.names(), Names{});
    EXPECT_EQ(reports, Names{});
}

TEST_F(LargeLibrary, WrittenToANativeFileReadsBackEqual) {
    HostLayer* layer = make();
    ASSERT_NE(layer, nullptr);
    ASSERT_EQ(KSWriteSpectraLayer(name.c_str(), layer, kNative), 0);
    GDBClose(layer->fp);
    EXPECT_EQ(folder.names(), (Names{"library.ks"}));

    const std::string before = bytesOf(name);
    std::vector<Kept> spectra = spectraOf(name);
    EXPECT_TRUE(bytesOf(name) == before) << "reading changes nothing";
    EXPECT_EQ(folder.names(), (Names{"library.ks"}));
    roundWavelengths(spectra);
    roundWavelengths(made);
    expectMade(spectra);
    EXPECT_EQ(reports, Names{});
}

TEST_F(LargeLibrary, ACopyOfACopyIsEqual) {
    HostLayer* layer = make();
    ASSERT_NE(layer, nullptr);
    ASSERT_EQ(KSWriteSpectraLayer(name.c_str(), layer, kNative), 0);
    GDBClose(layer->fp);
    HostFile* file = GDBOpen(name.c_str(), "r");
    ASSERT_NE(file, nullptr);
    const std::string second = folder.path("second.ks");
    HostLayer* found = KSReadSpectraLayer(file);
    ASSERT_NE(found, nullptr);
    ASSERT_EQ(KSWriteSpectraLayer(second.c_str(), found, kNative), 0);
    GDBClose(file);
    EXPECT_TRUE(spectraOf(second) == spectraOf(name));
    EXPECT_EQ(reports, Names{});
}

// ---- files ----

/// A written library of two spectra.
std::string smallLibrary(const TempFolder& folder) {
    const std::string name = folder.path("small.ks");
    const Schema schema = schemaOf(allMetadata(), {400, 500}, {400, 500});
    HostLayer* layer = KSCreateSpectraLayer(schema.get());
    EXPECT_NE(layer, nullptr);
    if (layer == nullptr) return name;
    for (const char* target : {"Snow", "Ice"}) {
        const Spectrum spectrum(KSCreateSpec(schema.get()));
        spectrum->szTarget = heapText(target);
        for (int i = 0; i < 2; ++i) {
            spectrum->pMeas->ve[i] = 0.25 + i;
            spectrum->peBandQual[i] = KS_BQ_PLOT;
        }
        EXPECT_EQ(KSAddShapeFromSpec(layer, schema.get(), spectrum.get()), 0);
    }
    EXPECT_EQ(KSWriteSpectraLayer(name.c_str(), layer, kNative), 0);
    GDBClose(layer->fp);
    return name;
}

using SpectraFiles = SpectraEndToEnd;

TEST_F(SpectraFiles, AnExistingFileIsNotWrittenOver) {
    const std::string name = smallLibrary(folder);
    const std::string before = bytesOf(name);
    const Schema schema = schemaOf({KS_FLD_TARGET}, {400});
    HostLayer* layer = KSCreateSpectraLayer(schema.get());
    ASSERT_NE(layer, nullptr);
    EXPECT_EQ(KSWriteSpectraLayer(name.c_str(), layer, kNative), 1);
    GDBClose(layer->fp);
    ASSERT_FALSE(reports.empty());
    EXPECT_EQ(reports.back(), "83/0 KSWriteSpectraLayer (): fpFilO == NULL, error ib GDBCreate.\n");
    EXPECT_TRUE(bytesOf(name) == before);
    EXPECT_EQ(KSHostErrorCount(), 1);
    KSHostResetErrorCount();
}

TEST_F(SpectraFiles, AShapeCanBeAddedToAFileLater) {
    const std::string name = smallLibrary(folder);
    HostFile* file = GDBOpen(name.c_str(), "r+");
    ASSERT_NE(file, nullptr);
    HostLayer* layer = KSReadSpectraLayer(file);
    ASSERT_NE(layer, nullptr);
    const Schema schema(KSSTSchemaFromLayer(layer));
    ASSERT_NE(schema, nullptr);
    const Spectrum spectrum(KSCreateSpec(schema.get()));
    spectrum->szTarget = heapText("Firn");
    spectrum->peBandQual[0] = spectrum->peBandQual[1] = KS_BQ_MASK;
    spectrum->pMeas->ve[0] = spectrum->pMeas->ve[1] = 0.5;
    EXPECT_EQ(KSAddShapeFromSpec(layer, schema.get(), spectrum.get()), 0);
    GDBClose(file);
    const std::vector<Kept> all = spectraOf(name);
    ASSERT_EQ(all.size(), 3U);
    EXPECT_EQ(all[0].target, "Snow");
    EXPECT_EQ(all[2].target, "Firn");
    EXPECT_EQ(all[2].qualities, (std::vector<int>{KS_BQ_MASK, KS_BQ_MASK}));
    EXPECT_EQ(reports, Names{});
}

TEST_F(SpectraFiles, OtherLayersBeforeItArePassed) {
    const std::string name = folder.path("mixed.ks");
    HostFile* file = GDBCreate(kNative, name.c_str(), 512, 512, 0, 1, "");
    ASSERT_NE(file, nullptr);
    HostLayer* other = GDBCreateLayer(file, "places", "", "");
    ASSERT_NE(other, nullptr);
    GDBDefineNewField(other, "Target", 3);
    EXPECT_EQ(KSReadSpectraLayer(file), nullptr);
    HostLayer* spectra = GDBCreateLayer(file, "spectra", "", "");
    ASSERT_NE(spectra, nullptr);
    GDBDefineNewField(spectra, "m450", 2);
    GDBDefineNewField(spectra, "Target", 3);
    EXPECT_EQ(KSReadSpectraLayer(file), spectra);
    GDBClose(file);
    file = GDBOpen(name.c_str(), "r");
    ASSERT_NE(file, nullptr);
    spectra = KSReadSpectraLayer(file);
    ASSERT_NE(spectra, nullptr);
    EXPECT_EQ(GDBGetNumFields(spectra), 2);
    GDBClose(file);
    EXPECT_EQ(reports, Names{});
}

// ---- from a cube ----

using SpectraOfCubes = SpectraEndToEnd;

TEST_F(SpectraOfCubes, AreTakenKeptAndReadBack) {
    constexpr int kBands = 4;
    const std::string cube = folder.path("cube.img");
    KSDataSet* dataSet = heapDataSet(kBands);
    dataSet->szFileName = heapText(cube);
    dataSet->nXSize = 6;
    dataSet->nYSize = 5;
    for (int b = 0; b < kBands; ++b) dataSet->pBandRefs[b].nChanType = 3;
    appendTransform(*dataSet, heapTransform(KS_RQ_REFL, {0.5F, 0.25F, 0.125F, 2}, {0, 1, -1, 0}));
    ASSERT_EQ(KSCreate(dataSet), 0);
    KSWinEx window = allocatedWindow(KS_INTLV_PIXEL, 6, 5, {0, 1, 2, 3});
    const auto stored = [](int x, int y, int b) { return 100 * (b + 1) + 10 * y + x; };
    for (int y = 0; y < 5; ++y) {
        for (int x = 0; x < 6; ++x) {
            for (int b = 0; b < kBands; ++b) component(window, x, y, b) = static_cast<float>(stored(x, y, b));
        }
    }
    ASSERT_EQ(KSWriteWinEx(dataSet, &window), 0);
    KSFreeWinEx(&window);
    ASSERT_EQ(KSClose(dataSet), 0);

    dataSet = KSOpen(cube.c_str(), "r");
    ASSERT_NE(dataSet, nullptr);
    std::vector<int> bands = {0, 1, 2, 3};
    const KSSampDesc sampling = {1, 1, kBands, bands.data()};
    const Schema schema(KSSTSchemaFromProfile(&dataSet->Sensor, bands.data(), kBands, 1));
    ASSERT_NE(schema, nullptr);
    HostLayer* layer = KSCreateSpectraLayer(schema.get());
    ASSERT_NE(layer, nullptr);
    std::vector<Kept> taken;
    for (const int level : {0, 1}) {
        const Spectrum spectrum(KSCreateSpec(schema.get()));
        spectrum->szTarget = heapText("corner");
        spectrum->paROI = KSCreateROI();
        *spectrum->paROI = {KS_ROI_RECTANGLE, 2, 1, 2, 3, nullptr, -1};
        spectrum->nNumROIs = 1;
        ASSERT_EQ(KSEvalSpecFromDataSet(dataSet, level, &sampling, spectrum.get()), 0);
        EXPECT_EQ(spectrum->nNumSamples, 6);
        EXPECT_EQ(spectrum->eRadQuant, level == 0 ? KS_RQ_UNCAL : KS_RQ_REFL);
        EXPECT_EQ(spectrum->szSourceFile, cube);
        const KSRadTrans& transform = *dataSet->papRadTransSeq[0];
        for (int b = 0; b < kBands; ++b) {
            double sum = 0.0;
            for (int y = 1; y <= 3; ++y) sum += stored(2, y, b) + stored(3, y, b);
            double mean = sum / 6;
            if (level == 1)
                mean = mean * static_cast<double>(transform.pafGains[b]) + static_cast<double>(transform.pafOffsets[b]);
            EXPECT_NEAR(spectrum->pMeas->ve[b], mean, 1e-4) << "band " << b;
            EXPECT_GT(spectrum->pSD->ve[b], 0.0);
        }
        ASSERT_EQ(KSAddShapeFromSpec(layer, schema.get(), spectrum.get()), 0);
        taken.push_back(keptOf(*spectrum));
    }
    const std::string name = folder.path("taken.ks");
    ASSERT_EQ(KSWriteSpectraLayer(name.c_str(), layer, kNative), 0);
    GDBClose(layer->fp);
    while (dataSet->nNumRadTrans > 0) KSDelRadTrans(dataSet);
    EXPECT_EQ(KSClose(dataSet), 0);

    EXPECT_TRUE(spectraOf(name) == taken);
    EXPECT_EQ(reports, Names{});
}

// ---- a library of another program ----

/// What the public sample holds, read here without the library: 75 spectra at 177 wavelengths, doubles.
struct BerlinLibrary : SpectraEndToEnd {
    static constexpr std::size_t kWavelengths = 177;
    static constexpr std::size_t kSpectra = 75;
    std::string name;
    std::vector<double> samples;

    void SetUp() override {
        SpectraEndToEnd::SetUp();
        const char* data = std::getenv("KSLIB_DATA");
        if (data == nullptr) GTEST_SKIP() << "KSLIB_DATA does not name a folder of sample data";
        name = std::string(data) + "/library-berlin/library_berlin.sli";
        if (!std::filesystem::exists(name)) GTEST_SKIP() << name << " is not there";
        const std::string bytes = bytesOf(name);
        ASSERT_EQ(bytes.size(), kWavelengths * kSpectra * sizeof(double));
        samples.resize(kWavelengths * kSpectra);
        bytes.copy(reinterpret_cast<char*>(samples.data()), bytes.size());
    }
    void expectTheLibrary(const std::vector<Kept>& spectra) const {
        ASSERT_EQ(spectra.size(), kSpectra);
        EXPECT_EQ(spectra[0].target, "red clay tile 1");
        EXPECT_EQ(spectra[14].target, "brown shingle");
        EXPECT_EQ(spectra[74].target, "water 2");
        for (std::size_t i = 0; i < kSpectra; ++i) {
            ASSERT_EQ(spectra[i].wavelengths.size(), kWavelengths);
            EXPECT_NEAR(spectra[i].wavelengths.front(), 460.0, 1e-3);
            EXPECT_NEAR(spectra[i].wavelengths[4], 479.0, 1e-3);
            EXPECT_NEAR(spectra[i].wavelengths.back(), 2409.0, 1e-3);
            const auto row = samples.begin() + static_cast<std::ptrdiff_t>(i * kWavelengths);
            EXPECT_EQ(spectra[i].values, (std::vector<double>{row, row + kWavelengths})) << "spectrum " << i;
            for (std::size_t b = 0; b < kWavelengths; ++b) {
                EXPECT_EQ(spectra[i].qualities[b], spectra[i].values[b] > 0.0 ? KS_BQ_PLOT : KS_BQ_SKIP);
            }
        }
    }
};

TEST_F(BerlinLibrary, ReadsAsALayer) {
    const std::vector<Kept> spectra = spectraOf(name);
    expectTheLibrary(spectra);
}

TEST_F(BerlinLibrary, KeepsItsSpectraInANativeFileAndInALibraryOfItsOwnKind) {
    HostFile* file = GDBOpen(name.c_str(), "r");
    ASSERT_NE(file, nullptr);
    HostLayer* layer = KSReadSpectraLayer(file);
    ASSERT_NE(layer, nullptr);
    EXPECT_EQ(GDBLayer2Type(layer), kLibraryType);
    const std::string native = folder.path("berlin.ks");
    const std::string library = folder.path("berlin.sli");
    EXPECT_EQ(KSWriteSpectraLayer(native.c_str(), layer, kNative), 0);
    EXPECT_EQ(KSWriteSpectraLayer(library.c_str(), layer, kLibraryType), 0);
    GDBClose(file);
    expectTheLibrary(spectraOf(native));
    expectTheLibrary(spectraOf(library));
}

}  // namespace
