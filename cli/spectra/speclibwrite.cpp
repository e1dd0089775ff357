#include "spectra/speclibwrite.hpp"

#include <algorithm>
#include <filesystem>

#include <kshost_app.h>

#include "app/output.hpp"
#include "app/report.hpp"
#include "app/staging.hpp"
#include "spectra/speclayer.hpp"
#include "spectra/speclibtable.hpp"
#include "spectra/speclibtext.hpp"

namespace fs = std::filesystem;

namespace kscli {
namespace {

constexpr float kLongestOfLayers = 3000;  // nm

struct Format {
    const char* name;
    const char* extension;  // that stands for it; empty: none
    int fileType;           // of the host; 0: written here
    bool keepsAllFields;    // qualities, and where spectra were taken
    bool keepsQuantity;
};
constexpr Format kFormats[] = {
    {"native", "", KSHOST_TYPE_NATIVE, true, true},
    {"sli", ".sli", KSHOST_TYPE_SPECTRAL_LIBRARY, false, true},
    {"table", ".csv", 0, false, false},
    {"rows", "", KSHOST_TYPE_CSV, true, true},
    {"geojson", ".geojson", KSHOST_TYPE_GEOJSON, true, true},
    {"dbf", ".dbf", KSHOST_TYPE_DBF, true, true},
    {"ecostress", ".txt", 0, false, true},
    {"usgs", "", 0, false, false},
};

const Format& formatOf(const std::string& output, const std::string& asked) {
    const std::string extension = lowerExtension(output);
    for (const Format& format : kFormats) {
        if (asked.empty() ? *format.extension != '\0' && extension == format.extension : asked == format.name) {
            return format;
        }
    }
    for (const char* other : {".hdr", ".img", ".tif", ".tiff", ".bip", ".bil", ".bsq", ".nc", ".h5", ".png", ".svg",
                              ".json", ".xls", ".xlsx", ".shp"}) {
        if (extension == other) {
            fail("{}: libraries are not written as {}. {}", output, extension, kLibraryFormatHelp);
        }
    }
    return kFormats[0];
}

bool isFolder(const Format& format, const std::string& output) {
    const std::string name = format.name;
    return name == "usgs" || (name == "ecostress" && lowerExtension(output) != ".txt");
}

bool anyValue(const std::vector<LibrarySpectrum>& spectra, bool (*test)(const LibrarySpectrum&, std::size_t)) {
    return std::any_of(spectra.begin(), spectra.end(), [&](const LibrarySpectrum& spectrum) {
        for (std::size_t i = 0; i < spectrum.size(); ++i) {
            if (test(spectrum, i)) return true;
        }
        return false;
    });
}

void sayWhichFieldsAreLost(const std::vector<LibrarySpectrum>& spectra, const Format& format,
                           const std::string& output) {
    const bool quality = anyValue(spectra, [](const LibrarySpectrum& spectrum, std::size_t i) {
        return spectrum.quality[i] != (spectrum.values[i] == kMaskedValue ? KS_BQ_MASK : KS_BQ_PLOT);
    });
    const bool quantity = std::any_of(spectra.begin(), spectra.end(), [](const LibrarySpectrum& spectrum) {
        return spectrum.quantity != KS_RQ_UNKNOWN;
    });
    std::string lost;
    if (quality && !format.keepsAllFields) lost = "marks of bad values";
    if (quantity && !format.keepsQuantity) lost += (lost.empty() ? "" : " and ") + std::string("the measured quantity");
    const bool place = std::any_of(spectra.begin(), spectra.end(), [](const LibrarySpectrum& spectrum) {
        return !spectrum.sourceFile.empty() || !spectrum.region.empty();
    });
    if (place && !format.keepsAllFields)
        lost += (lost.empty() ? "" : " and ") + std::string("where spectra were taken");
    if (!lost.empty()) note("{}: this format does not keep {}.", output, lost);
}

void sayWhatIsLost(const std::vector<LibrarySpectrum>& spectra, const Format& format, const std::string& output) {
    sayWhichFieldsAreLost(spectra, format, output);
    const std::string name = format.name;
    if (name == "sli" && spectra[0].wavelengths.back() > kLongestOfLayers) {
        note("{}: programs that read a .sli as a layer see it up to {} nm; 'ks' reads it whole.", output,
             kLongestOfLayers);
    }
    if (name == "ecostress" && anyValue(spectra, [](const LibrarySpectrum& spectrum, std::size_t i) {
            return spectrum.values[i] == kMaskedValue;
        })) {
        note("{}: this format has no mark for missing values; their wavelengths are left out.", output);
    }
}

void requireOneGrid(const std::vector<LibrarySpectrum>& spectra) {
    if (haveOneGrid(spectra)) return;
    const auto other = std::find_if(spectra.begin(), spectra.end(), [&](const LibrarySpectrum& spectrum) {
        return !sameWavelengths(spectrum, spectra[0]);
    });
    fail(
        "the spectra have different wavelengths, and a library has one set for all: '{}' has {}, '{}' has {}. Write "
        "them to libraries of their own, bring them to common wavelengths with --grid, or to a sensor's bands with 'ks "
        "resample'.",
        spectra[0].name, gridText(spectra[0]), other->name, gridText(*other));
}

void writeFolder(const std::vector<LibrarySpectrum>& spectra, const Format& format, const std::string& output,
                 const std::string& path) {
    fs::create_directory(path);
    if (std::string(format.name) == "usgs") {
        writeUsgs(spectra, path, fs::path(output).filename().stem().string());
    } else {
        writeEcostress(spectra, path);
    }
}

}  // namespace

const char* const kLibraryFormatHelp =
    "sli (ENVI spectral library), table (CSV, one column a spectrum), rows (CSV, one row a spectrum, with qualities), "
    "geojson, dbf, ecostress or usgs (text; a folder of one file a spectrum), native; default: as the name ends: .sli, "
    ".csv "
    "(table), .geojson, .dbf, .txt (ecostress, one spectrum), else native";

std::vector<std::string> libraryFormatNames() {
    std::vector<std::string> names;
    for (const Format& format : kFormats) names.emplace_back(format.name);
    return names;
}

void checkLibraryOutput(const std::string& output, const std::string& format) { formatOf(output, format); }

void writeLibrary(const std::vector<LibrarySpectrum>& spectra, const std::string& output, const std::string& asked,
                  bool force) {
    const Format& format = formatOf(output, asked);
    if (spectra.empty()) fail("there are no spectra to write.");
    const bool folder = isFolder(format, output);
    if (std::string(format.name) != "ecostress") requireOneGrid(spectra);
    if (std::string(format.name) == "ecostress" && !folder && spectra.size() > 1) {
        fail(
            "{}: a text file of this format holds one spectrum, and there are {}. Name a folder with --as ecostress, "
            "or "
            "choose one with --select.",
            output, spectra.size());
    }
    Staging staging(output, force);
    if (format.fileType == KSHOST_TYPE_SPECTRAL_LIBRARY) staging.alsoMakes(companionsOf(output));
    if (format.fileType != 0) {
        // What the format has no place for is said below, and not handed to it to be dropped.
        const LayerFields fields = format.keepsAllFields ? LayerFields::all : LayerFields::valuesOnly;
        SpectraLayer(spectra, fields).write(staging.path(), format.fileType);
    } else if (folder) {
        writeFolder(spectra, format, output, staging.path());
    } else {
        writeText(std::string(format.name) == "table" ? spectraTable(spectra) : ecostressText(spectra[0]),
                  staging.path());
    }
    requireComplete("the library");
    staging.publish();
    sayWhatIsLost(spectra, format, output);
}

}  // namespace kscli
