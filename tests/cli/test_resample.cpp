// ks resample: compared with means that are computed here, band by band, from the definition of each response.
#include <algorithm>
#include <cmath>
#include <fstream>
#include <functional>
#include <sstream>

#include "speckit.hpp"

namespace clitest {
namespace {

using kscli::kMaskedValue;
using kscli::readLibrary;

/// A response: how much light of a wavelength counts, from low to high.
struct Band {
    double centre;
    double low;
    double high;
    std::function<double(double)> weight;
};

Band gaussian(double centre, double fwhm) {
    return {centre, centre - fwhm / 2, centre + fwhm / 2,
            [=](double w) { return std::exp(-4 * std::log(2.0) * (w - centre) * (w - centre) / (fwhm * fwhm)); }};
}
Band box(double centre, double fwhm) {
    return {centre, centre - fwhm / 2, centre + fwhm / 2, [](double) { return 1.0; }};
}
Band triangle(double centre, double fwhm) {
    return {centre, centre - fwhm, centre + fwhm, [=](double w) { return 1 - std::abs(w - centre) / fwhm; }};
}
Band trapezoid(double centre, double fwhm, double top) {
    const double base = 2 * fwhm - top;
    return {centre, centre - base / 2, centre + base / 2, [=](double w) {
                const double d = std::abs(w - centre);
                return d <= top / 2 ? 1 : (base / 2 - d) / (base / 2 - top / 2);
            }};
}

double meanUnder(const Band& band, const LibrarySpectrum& spectrum) {
    double sum = 0;
    double total = 0;
    for (std::size_t i = 0; i < spectrum.size(); ++i) {
        const double w = static_cast<double>(spectrum.wavelengths[i]);
        if (spectrum.values[i] == kMaskedValue || w < band.low || w > band.high) continue;
        sum += band.weight(w) * spectrum.values[i];
        total += band.weight(w);
    }
    return sum / total;
}

/// A spectrum in steps of 1 nm.
LibrarySpectrum fineSpectrum(const std::string& name, const std::function<double(double)>& value) {
    LibrarySpectrum spectrum = makeSpectrum(name, {}, {});
    for (int nm = 400; nm <= 700; ++nm) {
        spectrum.wavelengths.push_back(static_cast<float>(nm));
        spectrum.values.push_back(value(nm));
        spectrum.quality.push_back(KS_BQ_PLOT);
    }
    return spectrum;
}

class Resample : public CliTest {
protected:
    Library in(const std::string& name) const { return readLibrary(path(name)); }
    void writeLibrary(const std::string& name, const Library& library) const { write(name, tableOf(library)); }
    /// Resamples lib.csv to sensor.csv.
    Library resampled() const {
        const Result result = ks({"resample", "lib.csv", "out.kslib", "--sensor", "sensor.csv", "--force"});
        EXPECT_EQ(result.status, 0) << result.err;
        return in("out.kslib");
    }
};

const char* const kOverlapping =
    "name,wavelength_nm,fwhm_nm,shape,top_nm\nA,500,40,gaussian,\nB,510,40,gaussian,\nC,520,30,box,\n"
    "D,540,20,triangular,\nE,560.5,20,trapezoidal,10\n";

std::vector<Band> overlapping() {
    return {gaussian(500, 40), gaussian(510, 40), box(520, 30), triangle(540, 20), trapezoid(560.5, 20, 10)};
}

void expectMeans(const Library& actual, const std::vector<Band>& bands, const Library& spectra, double tolerance) {
    ASSERT_EQ(actual.size(), spectra.size());
    for (std::size_t s = 0; s < spectra.size(); ++s) {
        ASSERT_EQ(actual[s].size(), bands.size());
        EXPECT_EQ(actual[s].name, spectra[s].name);
        const auto [low, high] = std::minmax_element(spectra[s].values.begin(), spectra[s].values.end());
        const double span = std::max(std::abs(*low), std::abs(*high));
        for (std::size_t b = 0; b < bands.size(); ++b) {
            EXPECT_FLOAT_EQ(actual[s].wavelengths[b], static_cast<float>(bands[b].centre));
            EXPECT_NEAR(actual[s].values[b], meanUnder(bands[b], spectra[s]), tolerance * span)
                << spectra[s].name << " band " << b;
            EXPECT_EQ(actual[s].quality[b], KS_BQ_PLOT);
        }
    }
}

TEST_F(Resample, BandsThatOverlapHaveWeightsOfTheirOwn) {
    write("sensor.csv", kOverlapping);
    const Library spectra = {fineSpectrum("waves", [](double nm) { return 0.5 + 0.4 * std::sin(nm / 7); }),
                             fineSpectrum("steep", [](double nm) { return std::exp((nm - 400) / 30); })};
    writeLibrary("lib.csv", spectra);
    expectMeans(resampled(), overlapping(), spectra, 1e-7);
}

TEST_F(Resample, SmallZeroAndNegativeValuesCountLikeAnyOther) {
    write("sensor.csv", kOverlapping);
    const Library spectra = {fineSpectrum("tiny", [](double nm) { return 1e-9 * (2 + std::sin(nm / 7)); }),
                             fineSpectrum("tiniest", [](double nm) { return 1e-250 * (2 + std::sin(nm / 7)); }),
                             fineSpectrum("zero", [](double) { return 0.0; }),
                             fineSpectrum("constant", [](double) { return -3.5; }),
                             fineSpectrum("negative", [](double nm) { return -0.5 - 0.4 * std::sin(nm / 7); }),
                             fineSpectrum("noise", [](double nm) { return 0.01 * std::sin(nm * 1.3); }),
                             fineSpectrum("huge", [](double nm) { return 1e100 * std::sin(nm / 9); })};
    writeLibrary("lib.csv", spectra);
    expectMeans(resampled(), overlapping(), spectra, 1e-7);
}

TEST_F(Resample, BandsThatAreNotCoveredAreMaskedAndSaidOnce) {
    write("sensor.csv", "name,wavelength_nm,fwhm_nm\nblue,401,10\ngreen,550,10\nred,697,10\nthermal,10895,590\n");
    const Library spectra = {fineSpectrum("a", [](double) { return 1.0; }),
                             fineSpectrum("b", [](double) { return 2.0; })};
    writeLibrary("lib.csv", spectra);
    const Result result = ks({"resample", "lib.csv", "out.kslib", "--sensor", "sensor.csv"});
    ASSERT_EQ(result.status, 0);
    EXPECT_EQ(count(result.err, "not covered"), 1) << result.err;
    for (const char* name : {"blue (401.0 nm)", "red (697.0 nm)", "thermal (10895.0 nm)"}) {
        EXPECT_EQ(count(result.err, name), 1) << result.err;
    }
    EXPECT_FALSE(contains(result.err, "green"));
    const Library out = in("out.kslib");
    EXPECT_EQ(out[1].values, (std::vector<double>{kMaskedValue, 2, kMaskedValue, kMaskedValue}));
    EXPECT_EQ(out[1].quality, (std::vector<int>{KS_BQ_MASK, KS_BQ_PLOT, KS_BQ_MASK, KS_BQ_MASK}));

    write("sensor.csv", "wavelength_nm,fwhm_nm\n10895,590\n");
    const Result none = ks({"resample", "lib.csv", "none.kslib", "--sensor", "sensor.csv"});
    EXPECT_EQ(none.status, 1);
    EXPECT_TRUE(contains(none.err, "nothing to write")) << none.err;
}

TEST_F(Resample, TablesOfResponsesAreTakenAsTheyAre) {
    // An even step of 2 nm, one band that begins at the table's start, one that never responds.
    write("sensor.csv",
          "Wavelength\tB1\tB2\tdead\n450\t0.5\t0\t0\n452\t1\t0\t0\n454\t0.25\t0\t0\n456\t0\t0.1\t0\n458\t0\t0.9\t0\n"
          "460\t0\t1\t0\n462\t0\t0.2\t0\n464\t0\t0\t0\n");
    const Library spectra = {fineSpectrum("waves", [](double nm) { return 0.5 + 0.4 * std::sin(nm / 3); })};
    writeLibrary("lib.csv", spectra);
    const auto tabulated = [](std::vector<std::pair<double, double>> points) {
        return [points](double w) {
            for (std::size_t i = 1; i < points.size(); ++i) {
                if (w > points[i].first) continue;
                const double share = (w - points[i - 1].first) / (points[i].first - points[i - 1].first);
                return points[i - 1].second + share * (points[i].second - points[i - 1].second);
            }
            return 0.0;
        };
    };
    const Band b1{451.6, 450, 456, tabulated({{450, 0.5}, {452, 1}, {454, 0.25}, {456, 0}})};
    const Band b2{459.2, 454, 464, tabulated({{454, 0}, {456, 0.1}, {458, 0.9}, {460, 1}, {462, 0.2}, {464, 0}})};
    const Result result = ks({"resample", "lib.csv", "out.kslib", "--sensor", "sensor.csv"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(contains(result.err, "'dead' responds nowhere")) << result.err;
    const Library out = in("out.kslib");
    ASSERT_EQ(out[0].size(), 2U);
    EXPECT_NEAR(out[0].values[0], meanUnder(b1, spectra[0]), 1e-7);
    EXPECT_NEAR(out[0].values[1], meanUnder(b2, spectra[0]), 1e-7);
    // The centre is the centroid: 456 * 0.1 + 458 * 0.9 + 460 * 1 + 462 * 0.2 over 2.2.
    EXPECT_NEAR(static_cast<double>(out[0].wavelengths[1]), (456 * 0.1 + 458 * 0.9 + 460 + 462 * 0.2) / 2.2, 1e-3);
}

TEST_F(Resample, BandsNarrowerThanTheSpacingAreInterpolated) {
    write("sensor.csv", "wavelength_nm,fwhm_nm\n443,4\n450,4\n455,12\n");
    write("lib.csv", "wavelength_nm,line,kink\n420,42,0\n430,43,0\n440,44,0\n450,45,1\n460,46,0\n470,47,0\n");
    const Result result = ks({"resample", "lib.csv", "out.csv", "--sensor", "sensor.csv"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(contains(result.err, "interpolated")) << result.err;
    const Library out = in("out.csv");
    // A straight line is its own mean under a symmetric response.
    EXPECT_NEAR(out[0].values[0], 44.3, 1e-6);
    EXPECT_EQ(out[0].values[1], 45);
    EXPECT_NEAR(out[0].values[2], 45.5, 1e-6);
    // Measured at 450, and so taken; 0.3 at 443 by interpolation.
    EXPECT_NEAR(out[1].values[0], 0.3, 1e-6);
    EXPECT_EQ(out[1].values[1], 1);
}

TEST_F(Resample, NothingIsInterpolatedAcrossAGapInTheWavelengths) {
    write("sensor.csv", "wavelength_nm,fwhm_nm\n455,4\n600,30\n");
    write("lib.csv", "wavelength_nm,a\n440,1\n450,2\n460,3\n470,4\n700,5\n710,6\n720,7\n");
    const Result result = ks({"resample", "lib.csv", "out.csv", "--sensor", "sensor.csv"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_NEAR(in("out.csv")[0].values[0], 2.5, 1e-6);
    EXPECT_EQ(in("out.csv")[0].values[1], kMaskedValue);
    EXPECT_TRUE(contains(result.err, "missing or marked as bad: 600.0 nm")) << result.err;
}

TEST_F(Resample, ValuesThatAreMissingOrMarkedCountAsAbsent) {
    write("sensor.csv", "wavelength_nm,fwhm_nm,shape\n450,20,box\n550,20,box\n650,20,box\n");
    Library spectra = {fineSpectrum("gaps", [](double nm) { return nm; })};
    for (std::size_t i = 0; i < spectra[0].size(); ++i) {
        const float nm = spectra[0].wavelengths[i];
        const bool missing = nm < 445 || (nm > 548 && nm < 552) || (nm > 630 && nm < 670);
        if (missing) spectra[0].values[i] = kMaskedValue;
    }
    writeLibrary("lib.csv", spectra);
    const Result result = ks({"resample", "lib.csv", "out.kslib", "--sensor", "sensor.csv"});
    ASSERT_EQ(result.status, 0);
    const Library out = in("out.kslib");
    EXPECT_EQ(out[0].values[0], kMaskedValue);
    EXPECT_NEAR(out[0].values[1], meanUnder(box(550, 20), spectra[0]), 1e-9 * 550);
    EXPECT_EQ(out[0].values[2], kMaskedValue);
    EXPECT_TRUE(contains(result.err, "values under the band are missing")) << result.err;
    EXPECT_FALSE(contains(result.err, "interpolated")) << result.err;
}

TEST_F(Resample, SpectraOfDifferentWavelengthsComeTogether) {
    write("sensor.csv", "wavelength_nm,fwhm_nm,shape\n450,20,box\n550,20,box\n");
    writeLibrary("a.csv", {fineSpectrum("a", [](double nm) { return nm; })});
    write("b.csv", "wavelength_nm,b\n500,1\n520,1\n540,2\n545,4\n550,6\n555,8\n560,10\n600,1\n");
    const Result result = ks({"resample", "a.csv", "b.csv", "out.kslib", "--sensor", "sensor.csv"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(contains(result.err, "in 1 of 2 spectra")) << result.err;
    const Library out = in("out.kslib");
    ASSERT_EQ(out.size(), 2U);
    EXPECT_NEAR(out[0].values[0], 450, 1e-6);
    EXPECT_EQ(out[1].values[0], kMaskedValue);
    EXPECT_NEAR(out[1].values[1], (2 + 4 + 6 + 8 + 10) / 5.0, 1e-9);
}

TEST_F(Resample, AnImageGivesItsBands) {
    Cube cube;
    cube.bands = 4;
    // Detectors that overlap, so that the wavelengths turn back.
    cube.header =
        "wavelength units = micrometers\nwavelength = {0.5, 0.6, 0.55, 0.65}\nfwhm = {0.01, 0.02, 0.03, 0.04}\n";
    writeCube(dir() / "cube.img", cube);
    const Library spectra = {fineSpectrum("waves", [](double nm) { return 0.5 + 0.4 * std::sin(nm / 7); })};
    writeLibrary("lib.csv", spectra);
    ASSERT_EQ(ks({"resample", "lib.csv", "out.kslib", "--sensor", "cube.img"}).status, 0);
    expectMeans(in("out.kslib"), {gaussian(500, 10), gaussian(550, 30), gaussian(600, 20), gaussian(650, 40)}, spectra,
                1e-6);
    cube.header = "wavelength units = nm\nwavelength = {500, 520, 550, 590}\n";
    writeCube(dir() / "widthless.img", cube);
    const Result result = ks({"resample", "lib.csv", "out2.kslib", "--sensor", "widthless.img"});
    ASSERT_EQ(result.status, 0);
    EXPECT_TRUE(contains(result.err, "widths of bands are missing")) << result.err;
    expectMeans(in("out2.kslib"), {gaussian(500, 20), gaussian(520, 25), gaussian(550, 35), gaussian(590, 40)}, spectra,
                1e-6);
}

TEST_F(Resample, SensorsInMicrometres) {
    write("sensor.csv", "center;fwhm\n0,5;0,02\n0,6;0,03\n");
    const Library spectra = {fineSpectrum("waves", [](double nm) { return 0.5 + 0.4 * std::sin(nm / 7); })};
    writeLibrary("lib.csv", spectra);
    expectMeans(resampled(), {gaussian(500, 20), gaussian(600, 30)}, spectra, 1e-6);
}

TEST_F(Resample, RefusesWhatDescribesNoSensor) {
    writeLibrary("lib.csv", {fineSpectrum("a", [](double) { return 1.0; })});
    const auto error = [&](const std::string& sensor) {
        write("sensor.csv", sensor);
        const Result result = ks({"resample", "lib.csv", "out.kslib", "--sensor", "sensor.csv"});
        EXPECT_EQ(result.status, 1) << sensor;
        return result.err;
    };
    EXPECT_TRUE(contains(error("a,b\n1,2\n"), "does not describe a sensor"));
    EXPECT_TRUE(contains(error("wavelength,fwhm\n500,0\n"), "line 2"));
    EXPECT_TRUE(contains(error("wavelength,fwhm,shape\n500,10,round\n"), "'round'"));
    EXPECT_TRUE(contains(error("wavelength,fwhm,shape,top\n500,10,trapezoidal,12\n"), "flat top"));
    EXPECT_TRUE(contains(error("wavelength,B1\n500,1\n490,1\n"), "increase"));
    EXPECT_EQ(ks({"resample", "lib.csv", "out.kslib", "--sensor", "missing.csv"}).status, 1);
    EXPECT_EQ(ks({"resample", "lib.csv", "out.kslib"}).status, 1);
    EXPECT_EQ(files(), (std::vector<std::string>{"lib.csv", "sensor.csv"}));
    EXPECT_TRUE(contains(ks({"resample", "--help"}).out, "Example:\n  ks resample"));
}

// ---- sample data ----

struct Response {
    std::string name;
    std::vector<double> wavelengths;
    std::vector<double> values;

    double at(double w) const {
        if (w < wavelengths.front() || w > wavelengths.back()) return 0;
        const std::size_t i = std::min(static_cast<std::size_t>(w - wavelengths.front()), values.size() - 2);
        return values[i] + (w - wavelengths[i]) * (values[i + 1] - values[i]);
    }
    bool isInside(double first, double last) const {
        for (std::size_t i = 0; i < values.size(); ++i) {
            // The library asks for values beyond the response, by as much as a step of the table more on the right.
            if (values[i] != 0 && (wavelengths[i] - 1 <= first || wavelengths[i] + 2 >= last)) return false;
        }
        return true;
    }
    double centroid() const {
        double sum = 0;
        double total = 0;
        for (std::size_t i = 0; i < values.size(); ++i) sum += values[i] * wavelengths[i], total += values[i];
        return sum / total;
    }
};

std::vector<Response> readResponses(const std::string& file) {
    std::ifstream stream(file);
    std::string line;
    std::getline(stream, line);
    std::istringstream header(line);
    std::vector<Response> responses;
    std::string name;
    header >> name;
    while (header >> name) responses.push_back({name, {}, {}});
    while (std::getline(stream, line)) {
        std::istringstream cells(line);
        double wavelength = 0;
        cells >> wavelength;
        for (Response& response : responses) {
            double value = 0;
            cells >> value;
            response.wavelengths.push_back(wavelength);
            response.values.push_back(value);
        }
    }
    std::sort(responses.begin(), responses.end(),
              [](const Response& a, const Response& b) { return a.centroid() < b.centroid(); });
    return responses;
}

class ResampleData : public Resample {
protected:
    void compare(const std::string& library, const std::string& sensor) const {
        const std::string output = "out.kslib";
        const Result result = ks({"resample", library, output, "--sensor", sensor, "--force"});
        ASSERT_EQ(result.status, 0) << result.err;
        const Library before = readLibrary(library);
        const Library after = in(output);
        const std::vector<Response> responses = readResponses(sensor);
        ASSERT_EQ(after.size(), before.size());
        int compared = 0;
        for (std::size_t s = 0; s < before.size(); ++s) {
            ASSERT_EQ(after[s].size(), responses.size());
            for (std::size_t b = 0; b < responses.size(); ++b) {
                compared += compareBand(before[s], responses[b], after[s], b);
            }
        }
        EXPECT_GT(compared, 0);
        for (const char* name : {"trip.sli", "trip.csv"}) {
            ASSERT_EQ(ks({"library", "export", output, name, "--force"}).status, 0);
            expectSame(in(name), after, std::string(name) == "trip.sli");
        }
    }

private:
    static int compareBand(const LibrarySpectrum& spectrum, const Response& response, const LibrarySpectrum& result,
                           std::size_t band) {
        const double first = static_cast<double>(spectrum.wavelengths.front());
        const double last = static_cast<double>(spectrum.wavelengths.back());
        EXPECT_NEAR(static_cast<double>(result.wavelengths[band]), response.centroid(), 2e-3) << response.name;
        if (!response.isInside(first, last)) {
            EXPECT_EQ(result.values[band], kMaskedValue) << spectrum.name << " " << response.name;
            return 0;
        }
        double sum = 0;
        double total = 0;
        int values = 0;
        for (std::size_t i = 0; i < spectrum.size(); ++i) {
            const double weight = response.at(static_cast<double>(spectrum.wavelengths[i]));
            sum += weight * spectrum.values[i];
            total += weight;
            values += weight != 0;
        }
        if (values < 3) return 0;  // too few for a mean: interpolated, or masked in a gap of the wavelengths
        EXPECT_NE(result.values[band], kMaskedValue) << spectrum.name << " " << response.name;
        EXPECT_NEAR(result.values[band], sum / total, 1e-6 * std::abs(sum / total))
            << spectrum.name << " " << response.name;
        return 1;
    }
};

TEST_F(ResampleData, LibrariesToLandsat8AndSentinel2A) {
    const std::string landsat = sampleData("sensor-response/Landsat_8_Spectral_Response.csv");
    const std::string sentinel = sampleData("sensor-response/Sentinel_2A_Spectral_Response.csv");
    if (landsat.empty() || sentinel.empty()) GTEST_SKIP() << "KSLIB_DATA does not name a folder with sensor-response";
    int libraries = 0;
    for (const char* name : {"library-berlin/library_berlin.sli", "library-snow-mixtures/ecostress_snow_mixtures",
                             "library-aster-text/jhu.becknic.vegetation.trees.conifers.solid.conifer.spectrum.txt",
                             "library-aster-text/usgs.perknic.rock.igneous.felsic.solid.rhy149.spectrum.txt"}) {
        const std::string library = sampleData(name);
        if (library.empty()) continue;
        compare(library, landsat);
        compare(library, sentinel);
        ++libraries;
    }
    EXPECT_GT(libraries, 0);
}

TEST_F(ResampleData, ALibraryToItsOwnBandsStaysAsItIs) {
    const std::string library = sampleData("library-berlin/library_berlin.sli");
    const std::string sensor = sampleData("sensor-response/enmap_berlin_srf.csv");
    if (library.empty() || sensor.empty()) GTEST_SKIP() << "KSLIB_DATA does not name a folder with library-berlin";
    const Result result = ks({"resample", library, "out.kslib", "--sensor", sensor});
    ASSERT_EQ(result.status, 0) << result.err;
    const Library before = readLibrary(library);
    const Library after = in("out.kslib");
    ASSERT_EQ(after.size(), before.size());
    // The first and the last band reach beyond the library.
    for (std::size_t i = 1; i + 1 < before[0].size(); ++i) {
        EXPECT_NEAR(after[0].values[i], before[0].values[i], 1e-3 * before[0].values[i]) << i;
    }
}

}  // namespace
}  // namespace clitest
