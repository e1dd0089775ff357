#include "speckit.hpp"

#include <cstdlib>
#include <sstream>

namespace clitest {

LibrarySpectrum makeSpectrum(const std::string& name, const std::vector<float>& wavelengths,
                             const std::vector<double>& values) {
    LibrarySpectrum spectrum;
    spectrum.name = name;
    spectrum.wavelengths = wavelengths;
    spectrum.values = values;
    for (const double value : values) {
        spectrum.quality.push_back(value == kscli::kMaskedValue ? KS_BQ_MASK : KS_BQ_PLOT);
    }
    return spectrum;
}

std::string tableOf(const Library& library) {
    std::ostringstream text;
    text.precision(17);
    text << "wavelength_nm";
    for (const LibrarySpectrum& spectrum : library) text << "," << spectrum.name;
    for (std::size_t i = 0; i < library[0].size(); ++i) {
        text << "\n" << static_cast<double>(library[0].wavelengths[i]);
        for (const LibrarySpectrum& spectrum : library) {
            text << ",";
            if (spectrum.values[i] != kscli::kMaskedValue) text << spectrum.values[i];
        }
    }
    text << "\n";
    return text.str();
}

void expectSame(const Library& actual, const Library& expected, bool withQuantity) {
    ASSERT_EQ(actual.size(), expected.size());
    for (std::size_t i = 0; i < actual.size(); ++i) {
        EXPECT_EQ(actual[i].name, expected[i].name);
        EXPECT_EQ(actual[i].wavelengths, expected[i].wavelengths) << expected[i].name;
        EXPECT_EQ(actual[i].values, expected[i].values) << expected[i].name;
        EXPECT_EQ(actual[i].quality, expected[i].quality) << expected[i].name;
        const int quantity = withQuantity ? expected[i].quantity : actual[i].quantity;
        EXPECT_EQ(actual[i].quantity, quantity) << expected[i].name;
    }
}

std::string sampleData(const std::string& name) {
    const char* folder = std::getenv("KSLIB_DATA");
    if (folder == nullptr) return "";
    const fs::path file = fs::path(folder) / name;
    return fs::exists(file) ? file.string() : "";
}

}  // namespace clitest
