#include "spectra/speclibtext.hpp"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "app/output.hpp"
#include "app/text.hpp"

namespace fs = std::filesystem;

namespace kscli {
namespace {

constexpr std::size_t kMostHeadingLines = 200;
constexpr int kPercent = -2;  // powers of ten from the unit to what is kept
constexpr int kMicrometres = 3;

bool contains(const std::string& text, const char* part) { return text.find(part) != std::string::npos; }

/// The numbers of a line of at least two columns; empty for any other line.
std::vector<double> numbersOf(const std::string& line, int powerOfSecond = 0) {
    const std::vector<std::string> words = wordsOf(line);
    if (words.size() < 2) return {};
    std::vector<double> numbers;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const auto number = parseNumber(words[i], i == 1 ? powerOfSecond : 0);
        if (!number) return {};
        numbers.push_back(*number);
    }
    return numbers;
}

/// "Record=123:" in the first line, and where the title begins after it.
std::size_t afterRecordNumber(const std::string& line) {
    const std::size_t record = line.find("Record=");
    if (record == std::string::npos) return std::string::npos;
    const std::size_t colon = line.find(':', record);
    const std::size_t digits = record + 7;
    const bool isNumber =
        colon != std::string::npos && colon > digits && line.find_first_not_of("0123456789", digits) >= colon;
    return isNumber ? colon + 1 : std::string::npos;
}

std::string singleSpaced(const std::string& text) {
    std::string result;
    for (const std::string& word : wordsOf(text)) result += (result.empty() ? "" : " ") + word;
    return result;
}

// ---- ECOSTRESS ----

struct Heading {
    std::map<std::string, std::string> values;  // by lower-case key
    std::size_t lines = 0;                      // before the data

    std::string at(const std::string& key) const {
        const auto found = values.find(key);
        return found == values.end() ? "" : found->second;
    }
};

Heading readHeading(const std::vector<std::string>& lines) {
    Heading heading;
    std::string key;
    for (; heading.lines < lines.size() && numbersOf(lines[heading.lines]).empty(); ++heading.lines) {
        const std::string& line = lines[heading.lines];
        const std::size_t colon = line.find(':');
        // A long description goes on over several lines, in which colons are rare.
        const bool startsKey = colon != std::string::npos && colon > 0 && colon <= 30 && line[0] != ' ';
        if (startsKey) {
            key = lowerCase(trimmed(line.substr(0, colon)));
            heading.values.emplace(key, trimmed(line.substr(colon + 1)));
        } else if (!key.empty() && !trimmed(line).empty()) {
            heading.values[key] += " " + trimmed(line);
        }
    }
    return heading;
}

/// File names of a folder from the names of spectra: readable anywhere, each once.
class FileNames {
public:
    std::string next(const std::string& name) {
        std::string stem;
        for (const char c : name) {
            const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                               std::string("-+.").find(c) != std::string::npos;
            if (plain && !(stem.empty() && c == '.')) {
                stem += c;
            } else if (!stem.empty() && stem.back() != '_') {
                stem += '_';
            }
        }
        constexpr std::size_t kLongest = 80;
        stem.resize(std::min(stem.size(), kLongest));
        while (!stem.empty() && stem.back() == '_') stem.pop_back();
        if (stem.empty()) stem = "spectrum";
        std::string unique = stem;
        for (int i = 2; !used_.insert(lowerCase(unique)).second; ++i) unique = fmt::format("{}_{}", stem, i);
        return unique + ".txt";
    }

private:
    std::set<std::string> used_;
};

// ---- USGS ----

bool isReflectance(const std::string& title) {
    // The last word of a title says how it was measured: absolute or relative reflectance, or from a radiance.
    const std::vector<std::string> words = wordsOf(title);
    return !words.empty() && (words.back() == "AREF" || words.back() == "RREF" || words.back() == "RTGC");
}

std::vector<double> valuesOf(const std::vector<std::string>& lines, const std::string& file) {
    std::vector<double> values;
    for (std::size_t i = 1; i < lines.size(); ++i) {
        if (trimmed(lines[i]).empty()) continue;
        const auto value = parseNumber(lines[i]);
        if (!value) fail("{}: line {}, '{}', is not a number.", file, i + 1, trimmed(lines[i]));
        values.push_back(*value);
    }
    return values;
}

std::vector<std::string> readLines(const fs::path& name) {
    std::ifstream stream(name, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    if (!stream) fail("{} cannot be read.", name.string());
    return linesOf(asUtf8(text.str()));
}

struct Wavelengths {
    std::string file;
    std::vector<double> values;
    WavelengthUnit unit = WavelengthUnit::unknown;
};

Wavelengths readWavelengths(const fs::path& file) {
    const std::vector<std::string> lines = readLines(file);
    if (lines.empty()) fail("{} is empty.", file.string());
    WavelengthUnit unit = wavelengthUnitIn(lines[0]);
    if (unit == WavelengthUnit::unknown) unit = wavelengthUnitIn(file.filename().string());
    if (unit == WavelengthUnit::unknown) unit = WavelengthUnit::micrometres;  // as the library is published
    return {file.string(), valuesOf(lines, file.string()), unit};
}

/// The spectrometer that a title or a file of wavelengths names.
std::string spectrometerIn(const std::string& text) {
    std::string upper = text;
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](unsigned char c) { return static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c); });
    for (const char* name : {"ASDNG", "ASDHR", "ASDFR", "ASD", "BECK", "NIC4", "AVIRIS", "HYMAP", "CRISM"}) {
        if (contains(upper, name)) return std::string(name).substr(0, 3);
    }
    return "";
}

/// Wavelength files in the folder of a spectrum and the one above that have as many values.
std::vector<Wavelengths> candidates(const std::string& file, std::size_t count) {
    const fs::path folder = fs::absolute(file).parent_path();
    std::vector<Wavelengths> found;
    for (const fs::path& place : {folder, folder.parent_path()}) {
        std::error_code ec;
        for (const auto& entry : fs::directory_iterator(place, ec)) {
            const std::string name = lowerCase(entry.path().filename().string());
            const bool named = contains(name, "wavelength") && !contains(name, "bandpass") && entry.is_regular_file(ec);
            if (!named || lowerCase(entry.path().extension().string()) != ".txt") continue;
            const std::vector<std::string> lines = readLines(entry.path());
            if (lines.empty() || afterRecordNumber(lines[0]) == std::string::npos) continue;
            Wavelengths wavelengths = readWavelengths(entry.path());
            if (wavelengths.values.size() == count) found.push_back(std::move(wavelengths));
        }
        if (!found.empty() || place == place.parent_path()) break;
    }
    return found;
}

Wavelengths findWavelengths(const std::string& file, const std::string& title, std::size_t count) {
    std::vector<Wavelengths> found = candidates(file, count);
    const std::string spectrometer = spectrometerIn(title);
    if (found.size() > 1 && !spectrometer.empty()) {
        const auto others = std::remove_if(found.begin(), found.end(), [&](const Wavelengths& wavelengths) {
            return spectrometerIn(fs::path(wavelengths.file).filename().string()) != spectrometer;
        });
        found.erase(others, found.end());
    }
    const bool agree = !found.empty() && std::all_of(found.begin(), found.end(), [&](const Wavelengths& wavelengths) {
        return wavelengths.values == found[0].values;
    });
    if (agree) return found[0];
    fail(
        "{}: USGS spectra keep their wavelengths in a file of their own, and {} of {} values stands beside it. Name "
        "the "
        "file with --wavelengths.",
        file, found.empty() ? "none" : "more than one", count);
}

std::string columnTitle(const std::vector<std::string>& lines, std::size_t headingLines, const std::string& file) {
    // In the older files the title follows a line of dashes; in others it is the first line there is.
    std::size_t start = 0;
    for (std::size_t i = 0; i < headingLines; ++i) {
        if (trimmed(lines[i]).compare(0, 5, "-----") == 0) start = i + 1;
    }
    for (std::size_t i = start; i < headingLines; ++i) {
        if (!trimmed(lines[i]).empty()) return singleSpaced(lines[i]);
    }
    return fs::path(file).stem().string();
}

}  // namespace

SpectrumText kindOfSpectrumText(const std::vector<std::string>& lines) {
    if (!lines.empty() && afterRecordNumber(lines[0]) != std::string::npos) return SpectrumText::usgs;
    for (std::size_t i = 0; i < std::min(lines.size(), kMostHeadingLines); ++i) {
        if (lowerCase(trimmed(lines[i])).compare(0, 8, "x units:") == 0) return SpectrumText::ecostress;
    }
    return SpectrumText::columns;
}

RawSpectrum readEcostress(const std::vector<std::string>& lines, const std::string& file) {
    const Heading heading = readHeading(lines);
    const std::string yUnits = lowerCase(heading.at("y units"));
    const bool percent = contains(yUnits, "percent") || contains(yUnits, "%");
    RawSpectrum raw;
    raw.name = heading.at("name");
    if (raw.name.empty()) raw.name = fs::path(file).stem().string();
    raw.unit = wavelengthUnitIn(heading.at("x units"));
    raw.quantity = contains(yUnits, "reflectance") ? KS_RQ_REFL : KS_RQ_UNKNOWN;
    for (std::size_t i = heading.lines; i < lines.size(); ++i) {
        if (trimmed(lines[i]).empty()) continue;
        const std::vector<double> numbers = numbersOf(lines[i], percent ? kPercent : 0);
        if (numbers.empty()) fail("{}: line {}, '{}', is not a pair of numbers.", file, i + 1, trimmed(lines[i]));
        raw.wavelengths.push_back(numbers[0]);
        // A masked value may be written in percent too.
        raw.values.push_back(numbers[1] == kMaskedValue / 100 ? kMaskedValue : numbers[1]);
    }
    if (raw.values.empty()) fail("{}: there are no values under the heading; the file may be cut short.", file);
    const auto promised = parseNumber(heading.at("number of x values"));
    if (promised && *promised != static_cast<double>(raw.values.size())) {
        warn("{}: the heading says {} values, the file has {}.", file, heading.at("number of x values"),
             raw.values.size());
    }
    if (percent) note("{}: values are percent; they are kept as fractions.", file);
    return raw;
}

RawSpectrum readUsgs(const std::vector<std::string>& lines, const std::string& file,
                     const std::string& wavelengthFile) {
    RawSpectrum raw;
    raw.name = singleSpaced(lines[0].substr(afterRecordNumber(lines[0])));
    const std::string lower = lowerCase(raw.name);
    for (const char* start : {"wavelengths", "bandpass", "errorbars", "waves", "resol"}) {
        if (lower.compare(0, std::string(start).size(), start) == 0) {
            throw NotASpectrum(fmt::format("{} holds '{}', not a spectrum.", file, raw.name));
        }
    }
    raw.quantity = isReflectance(raw.name) ? KS_RQ_REFL : KS_RQ_UNKNOWN;
    raw.values = valuesOf(lines, file);
    if (raw.values.empty()) fail("{}: there are no values under the title; the file may be cut short.", file);
    const Wavelengths wavelengths =
        wavelengthFile.empty() ? findWavelengths(file, raw.name, raw.values.size()) : readWavelengths(wavelengthFile);
    if (wavelengths.values.size() != raw.values.size()) {
        fail("{} has {} values, but {} has {} wavelengths.", file, raw.values.size(), wavelengths.file,
             wavelengths.values.size());
    }
    raw.wavelengths = wavelengths.values;
    raw.unit = wavelengths.unit;
    return raw;
}

RawSpectrum readColumns(const std::vector<std::string>& lines, const std::string& file) {
    RawSpectrum raw;
    std::size_t start = 0;
    while (start < lines.size() && numbersOf(lines[start]).empty()) ++start;
    if (start == lines.size()) {
        fail(
            "{} is text, but holds no spectrum that can be read. Known are ECOSTRESS and ASTER text, USGS ASCII, and "
            "tables (CSV) with a column or a row of wavelengths.",
            file);
    }
    for (std::size_t i = start; i < lines.size(); ++i) {
        if (trimmed(lines[i]).empty()) continue;
        const std::vector<double> numbers = numbersOf(lines[i]);
        if (numbers.empty()) fail("{}: line {}, '{}', is not a row of numbers.", file, i + 1, trimmed(lines[i]));
        raw.wavelengths.push_back(numbers[0]);
        raw.values.push_back(numbers[1]);
    }
    raw.name = columnTitle(lines, start, file);
    raw.quantity = isReflectance(raw.name) ? KS_RQ_REFL : KS_RQ_UNKNOWN;
    for (std::size_t i = 0; i < start && raw.unit == WavelengthUnit::unknown; ++i)
        raw.unit = wavelengthUnitIn(lines[i]);
    return raw;
}

std::string ecostressText(const LibrarySpectrum& spectrum) {
    const bool reflectance = spectrum.quantity == KS_RQ_REFL;
    std::string rows;
    std::string first;
    std::string last;
    std::size_t count = 0;
    for (std::size_t i = 0; i < spectrum.size(); ++i) {
        if (spectrum.values[i] == kMaskedValue) continue;  // the format has no mark for them
        last = numberText(shortest(spectrum.wavelengths[i]), -kMicrometres);
        if (first.empty()) first = last;
        rows += fmt::format("{}\t{}\n", last, numberText(spectrum.values[i], reflectance ? -kPercent : 0));
        ++count;
    }
    std::string name = spectrum.name;
    std::replace(name.begin(), name.end(), '\n', ' ');
    return fmt::format(
               "Name: {}\nType: \nClass: \nSubclass: \nParticle Size: \nSample No.: \nOwner: \nWavelength Range: {} - "
               "{} um\nOrigin: {}\nDescription: \nMeasurement: \nFirst Column: X\nSecond Column: Y\nX Units: "
               "Wavelength "
               "(micrometers)\nY Units: {}\nFirst X Value: {}\nLast X Value: {}\nNumber of X Values: {}\nAdditional "
               "Information: none\n\n",
               name, first, last, spectrum.sourceFile,
               reflectance ? "Reflectance (percent)" : aKSRadQuant[spectrum.quantity].szName, first, last, count) +
           rows;
}

void writeEcostress(const std::vector<LibrarySpectrum>& spectra, const std::string& folder) {
    FileNames names;
    for (const LibrarySpectrum& spectrum : spectra) {
        writeText(ecostressText(spectrum), (fs::path(folder) / names.next(spectrum.name)).string());
    }
}

void writeUsgs(const std::vector<LibrarySpectrum>& spectra, const std::string& folder, const std::string& libraryName) {
    const std::string stem = singleSpaced(libraryName);
    std::string text = fmt::format(" {} Record=1: Wavelengths in micrometers {} ch\n", stem, spectra.at(0).size());
    for (const float wavelength : spectra[0].wavelengths)
        text += " " + numberText(shortest(wavelength), -kMicrometres) + "\n";
    writeText(text, (fs::path(folder) / (stem + "_Wavelengths.txt")).string());
    FileNames names;
    names.next(stem + "_Wavelengths");
    for (std::size_t i = 0; i < spectra.size(); ++i) {
        text = fmt::format(" {} Record={}: {}\n", stem, i + 2, singleSpaced(spectra[i].name));
        for (const double value : spectra[i].values) {
            text += " " + (value == kMaskedValue ? std::string("-1.2300000e+034") : numberText(value)) + "\n";
        }
        writeText(text, (fs::path(folder) / names.next(spectra[i].name)).string());
    }
}

}  // namespace kscli
