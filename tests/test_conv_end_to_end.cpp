// Spectral libraries on the embedded host, resampled to tabulated responses and compared with means computed from the
// bytes of the library and the rows of the table.
#include <gtest/gtest.h>
#include <kshost.h>
#include <kshost_app.h>
#include <kslib.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "embedded.hpp"

using namespace kit;

namespace {

constexpr double kMaskedValue = -1.23e34;

// ---- libraries and tables as they are ----

/// A library as its two files say: rows of 64-bit values at wavelengths in nanometres.
struct RawLibrary {
    std::vector<double> wavelengths;
    std::vector<std::vector<double>> spectra;
};

std::string contentsOf(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

RawLibrary readRaw(const std::string& name) {
    const std::string header = contentsOf(name + ".hdr");
    std::string list = header.substr(header.find("\nwavelength = {") + 15);
    list = list.substr(0, list.find('}'));
    std::replace(list.begin(), list.end(), ',', ' ');
    RawLibrary library;
    std::istringstream numbers(list);
    for (double micrometres = 0.0; numbers >> micrometres;) {
        library.wavelengths.push_back(std::round(micrometres * 1e6) / 1e3);
    }
    const std::string bytes = contentsOf(name + ".sli");
    std::vector<double> values(bytes.size() / sizeof(double));
    std::memcpy(values.data(), bytes.data(), values.size() * sizeof(double));
    const auto bands = static_cast<std::ptrdiff_t>(library.wavelengths.size());
    for (auto row = values.begin(); bands > 0 && values.end() - row >= bands; row += bands) {
        library.spectra.emplace_back(row, row + bands);
    }
    return library;
}

void writeRaw(const std::string& name, const RawLibrary& library) {
    std::ofstream header(name + ".hdr");
    header.precision(10);
    header << "ENVI\nsamples = " << library.wavelengths.size() << "\nlines = " << library.spectra.size()
           << "\nbands = 1\nheader offset = 0\nfile type = ENVI Spectral Library\ndata type = 5\ninterleave = bsq\n"
           << "byte order = 0\nwavelength units = Micrometers\nwavelength = {";
    for (std::size_t i = 0; i < library.wavelengths.size(); ++i) {
        header << (i == 0 ? "" : ", ") << library.wavelengths[i] / 1000.0;
    }
    header << "}\nspectra names = {";
    for (std::size_t i = 0; i < library.spectra.size(); ++i) header << (i == 0 ? "" : ", ") << "tree " << i;
    header << "}\n";
    std::ofstream values(name + ".sli", std::ios::binary);
    for (const auto& spectrum : library.spectra) {
        values.write(reinterpret_cast<const char*>(spectrum.data()),
                     static_cast<std::streamsize>(spectrum.size() * sizeof(double)));
    }
}

/// The response of one band in steps of a nanometre, 0 outside.
struct Table {
    std::string name;
    int first = 0;
    std::vector<double> rows;

    double at(int wavelength) const {
        const int row = wavelength - first;
        return row < 0 || row >= static_cast<int>(rows.size()) ? 0.0 : rows[static_cast<std::size_t>(row)];
    }
    double between(double wavelength) const {
        const int below = static_cast<int>(std::floor(wavelength));
        return at(below) + (at(below + 1) - at(below)) * (wavelength - below);
    }
    /// The rows that respond.
    int begin() const {
        int wavelength = first;
        while (at(wavelength) == 0.0) ++wavelength;
        return wavelength;
    }
    int end() const {
        int wavelength = first + static_cast<int>(rows.size());
        while (at(wavelength - 1) == 0.0) --wavelength;
        return wavelength;
    }
};

std::vector<Table> readTables(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    std::istringstream names(line);
    std::string name;
    names >> name;
    std::vector<Table> tables;
    while (names >> name) tables.push_back({name, 0, {}});
    while (std::getline(file, line)) {
        std::istringstream numbers(line);
        int wavelength = 0;
        numbers >> wavelength;
        for (Table& table : tables) {
            if (table.rows.empty()) table.first = wavelength;
            double response = 0.0;
            numbers >> response;
            table.rows.push_back(response);
        }
    }
    return tables;
}

/// The weighted mean of one spectrum, or the masked value.
double meanOver(const Table& table, const std::vector<double>& wavelengths, const std::vector<double>& spectrum) {
    // The table's own points and the two zeroes that follow the last of them.
    const double low = table.begin();
    const double high = table.end() + 1;
    if (!(wavelengths.front() < low) || !(wavelengths.back() > high)) return kMaskedValue;
    double sum = 0.0;
    double weights = 0.0;
    for (std::size_t i = 0; i < wavelengths.size(); ++i) {
        if (wavelengths[i] < low || wavelengths[i] > high || spectrum[i] < 0.0) continue;
        sum += table.between(wavelengths[i]) * spectrum[i];
        weights += table.between(wavelengths[i]);
    }
    return sum > 1e-5 ? sum / weights : kMaskedValue;
}

// ---- the same through the library ----

using ConvEndToEnd = EmbeddedTest;

std::vector<std::string> targets;  // of the spectra that came back last

/// All spectra of a library in bands of a sensor.
std::vector<std::vector<double>> resampled(const std::string& path, const std::vector<KSBandResp>& responses) {
    std::vector<KSBandResp> bands = responses;
    KSSensor sensor{};
    sensor.nNumBands = static_cast<int>(bands.size());
    sensor.pBandResp = bands.data();
    std::vector<int> all;
    for (int b = 0; b < sensor.nNumBands; ++b) all.push_back(b);

    std::vector<std::vector<double>> found;
    targets.clear();
    HostFile* file = GDBOpen(path.c_str(), "r");
    if (file == nullptr) return found;
    HostLayer* layer = KSReadSpectraLayer(file);
    int count = 0;
    KSSpectrum** spectra = layer == nullptr ? nullptr : KSConvLib(layer, &sensor, all.data(), sensor.nNumBands, &count);
    for (int i = 0; spectra != nullptr && i < count; ++i) {
        found.emplace_back(spectra[i]->pMeas->ve, spectra[i]->pMeas->ve + spectra[i]->nNumMeasVals);
        targets.emplace_back(spectra[i]->szTarget == nullptr ? "" : spectra[i]->szTarget);
        KSFreeSpec(spectra[i]);
    }
    std::free(spectra);
    GDBClose(file);
    return found;
}

/// Every band by a sensor of its own: bands of one sensor share their weights. Returns how many bands are covered.
int expectMeans(const std::string& name, const std::vector<Table>& tables) {
    const RawLibrary raw = readRaw(name);
    EXPECT_FALSE(raw.spectra.empty());
    int covered = 0;
    for (const Table& table : tables) {
        std::vector<float> samples;
        for (int wavelength = table.begin(); wavelength < table.end(); ++wavelength) {
            samples.push_back(static_cast<float>(table.at(wavelength)));
        }
        KSBandResp response{};
        response.eRespType = KS_RT_CUSTOM;
        response.fCentre = static_cast<float>(table.begin() + table.end()) / 2.0F;
        response.fParm1 = static_cast<float>(table.begin());
        response.fParm2 = static_cast<float>(table.end() + 1);
        response.nNumSamples = static_cast<int>(samples.size());
        response.pafSamples = samples.data();
        // A centre that is a wavelength of the library would have its value taken as it is.
        response.fCentre += 0.25F;

        const auto actual = resampled(name + ".sli", {response});
        EXPECT_EQ(actual.size(), raw.spectra.size()) << table.name;
        if (actual.size() != raw.spectra.size()) return -1;
        bool isCovered = false;
        for (std::size_t i = 0; i < raw.spectra.size(); ++i) {
            const double expected = meanOver(table, raw.wavelengths, raw.spectra[i]);
            EXPECT_EQ(actual[i].size(), 1U) << table.name;
            // The weights are single precision.
            EXPECT_NEAR(actual[i].at(0), expected, 1e-6 * std::abs(expected)) << table.name << " spectrum " << i;
            if (expected != kMaskedValue) isCovered = true;
        }
        if (isCovered) ++covered;
    }
    return covered;
}

Table tent(const std::string& name, int centre, int reach) {
    Table table{name, centre - reach - 5, {}};
    for (int w = table.first; w <= centre + reach + 5; ++w) {
        table.rows.push_back(std::max(0.0, 1.0 - std::abs(w - centre) / static_cast<double>(reach)));
    }
    return table;
}

TEST_F(ConvEndToEnd, ALibraryComesOutAsItsWeightedMeans) {
    RawLibrary library;
    for (int i = 0; i < 120; ++i) library.wavelengths.push_back(450.0 + 7.5 * i);
    for (int s = 0; s < 6; ++s) {
        std::vector<double> spectrum;
        for (int i = 0; i < 120; ++i) spectrum.push_back(0.3 + 0.2 * std::sin(0.1 * i * (s + 1)));
        spectrum[static_cast<std::size_t>(20 + s)] = -1.0;
        library.spectra.push_back(spectrum);
    }
    library.spectra[2].assign(120, -1.0);
    writeRaw(folder.path("lib"), library);
    EXPECT_EQ(expectMeans(folder.path("lib"),
                          {tent("below", 440, 30), tent("edge", 480, 31), tent("blue", 490, 35), tent("green", 555, 50),
                           tent("again", 570, 50), tent("narrow", 800, 4), tent("above", 1345, 20)}),
              4);
    ASSERT_EQ(targets.size(), 6U);
    EXPECT_EQ(targets[5], "tree 5 (resampled)");
    EXPECT_EQ(reports, std::vector<std::string>{});
}

TEST_F(ConvEndToEnd, SpectraWithTheWavelengthsOfASensorAreTakenAsTheyAre) {
    RawLibrary library;
    for (int i = 0; i < 30; ++i) library.wavelengths.push_back(450.0 + 7.5 * i);
    for (int s = 0; s < 3; ++s) {
        std::vector<double> spectrum;
        for (int i = 0; i < 30; ++i) spectrum.push_back(0.1 + i / 300.0 + s / 7.0);
        library.spectra.push_back(spectrum);
    }
    writeRaw(folder.path("lib"), library);
    std::vector<KSBandResp> responses;
    for (const std::size_t i : {0U, 4U, 5U, 29U}) {
        KSBandResp response{};
        response.eRespType = KS_RT_GAUSSIAN;
        response.fCentre = static_cast<float>(library.wavelengths[i]);
        response.fFWHM = 10.0F;
        responses.push_back(response);
    }
    const auto actual = resampled(folder.path("lib.sli"), responses);
    ASSERT_EQ(actual.size(), 3U);
    for (std::size_t s = 0; s < 3; ++s) {
        const std::vector<double>& from = library.spectra[s];
        EXPECT_EQ(actual[s], (std::vector<double>{from[0], from[4], from[5], from[29]}));
    }
    EXPECT_EQ(targets[2], "tree 2 (selected samples)");
    EXPECT_EQ(reports, std::vector<std::string>{});
}

TEST_F(ConvEndToEnd, ARealLibraryComesOutAsItsWeightedMeans) {
    const char* data = std::getenv("KSLIB_DATA");
    if (data == nullptr) GTEST_SKIP() << "KSLIB_DATA does not name a folder of sample data";
    const std::string from = std::string(data) + "/library-berlin/library_berlin";
    const std::string responses = std::string(data) + "/sensor-response/";
    // A copy: opening for reading makes no files, and the test does not depend on it.
    for (const char* ending : {".sli", ".hdr"}) {
        std::ofstream(folder.path("berlin") + ending, std::ios::binary) << contentsOf(from + ending);
    }
    for (const char* name : {"Landsat_8_Spectral_Response.csv", "Sentinel_2A_Spectral_Response.csv"}) {
        const std::vector<Table> tables = readTables(responses + name);
        ASSERT_GE(tables.size(), 9U) << name;
        EXPECT_GE(expectMeans(folder.path("berlin"), tables), 6) << name;
    }
}

}  // namespace
