// Turns what a foreign raster says into the library's metadata lists. The formats differ only in where a fact stands:
// an ENVI header, arrays along the band axis, items of each band. They are gathered into one table of bands first, and
// the lists are made from that.
#include "import.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <optional>

#include "enviheader.hpp"
#include "text.hpp"

namespace kshost {
namespace {

using Texts = std::vector<std::string>;  // one a channel, empty where there is none; or no texts at all

// ---- units of wavelength ----

enum class Unit { kMissing, kMetres, kWavenumber, kUnusable };

struct WavelengthUnit {
    Unit kind;
    double inNm = 1.0;  // one unit of kMetres in nanometres
};

WavelengthUnit unitOf(std::string_view text) {
    std::string unit;
    for (const char c : lowered(text)) {
        if (c != ' ' && c != '\t' && c != '{' && c != '}') unit += c;
    }
    const auto isOneOf = [&](auto... names) { return ((unit == names) || ...); };
    if (isOneOf("", "unknown", "none", "n/a")) return {Unit::kMissing};
    if (isOneOf("nm", "nanometers", "nanometer", "nanometres", "nanometre")) return {Unit::kMetres, 1.0};
    if (isOneOf("um", "\u00b5m", "\u03bcm", "micrometers", "micrometer", "micrometres", "micrometre", "microns",
                "micron")) {
        return {Unit::kMetres, 1e3};
    }
    if (isOneOf("mm", "millimeters", "millimetres")) return {Unit::kMetres, 1e6};
    if (isOneOf("m", "meters", "metres")) return {Unit::kMetres, 1e9};
    if (isOneOf("a", "angstroms", "angstrom", "\u00c5", "\u00e5")) return {Unit::kMetres, 0.1};
    if (isOneOf("wavenumber", "wavenumbers", "cm-1", "cm^-1", "1/cm")) return {Unit::kWavenumber};
    return {Unit::kUnusable};
}

// ---- the table of bands ----

struct BandTable {
    Texts centres, widths;  // in `unit`
    std::string unit;
    Texts flags;  // 0: a bad band
    Texts gains, offsets;
    bool gainsAreGdals = false;  // a scale without a word on what it leads to
    std::optional<double> reflectanceFactor;
};

const std::string* itemOf(const Items& items, std::string_view key) {
    for (const auto& [name, value] : items) {
        if (lowered(name) == key) return &value;
    }
    return nullptr;
}

constexpr std::array<std::string_view, 4> kBandKeys = {"wavelength", "wavelength_units", "fwhm", "bbl"};

bool isBandKey(const std::string& key) {
    return std::find(kBandKeys.begin(), kBandKeys.end(), lowered(key)) != kBandKeys.end();
}

bool hasAny(const Texts& texts) {
    return std::any_of(texts.begin(), texts.end(), [](const std::string& text) { return !text.empty(); });
}

Texts textsOf(const std::vector<double>& values) {
    Texts texts;
    for (const double value : values) texts.push_back(shortestText(value));
    return texts;
}

// Header keys that describe how the image is stored or that become something else than a carried entry.
constexpr std::array<std::string_view, 20> kConsumedKeys = {"samples",
                                                            "lines",
                                                            "bands",
                                                            "header offset",
                                                            "file type",
                                                            "data type",
                                                            "interleave",
                                                            "byte order",
                                                            "map info",
                                                            "coordinate system string",
                                                            "projection info",
                                                            "data ignore value",
                                                            "wavelength",
                                                            "wavelength units",
                                                            "fwhm",
                                                            "bbl",
                                                            "data gain values",
                                                            "data offset values",
                                                            "reflectance scale factor",
                                                            "sensor type"};

// Lists that say something about the image, also when they happen to have as many elements as the image has bands.
constexpr std::array<std::string_view, 9> kFileLists = {"description", "default bands", "default stretch",
                                                        "class names", "class lookup",  "spectra names",
                                                        "pixel size",  "geo points",    "read procedures"};

template <size_t n>
bool contains(const std::array<std::string_view, n>& keys, const std::string& key) {
    return std::find(keys.begin(), keys.end(), key) != keys.end();
}

class Importer {
public:
    explicit Importer(const RasterFacts& facts)
        : facts_(facts), channels_(static_cast<size_t>(std::max(facts.channels, 0))) {
        result_.channels.resize(channels_);
        if (facts.driver == "ENVI") header_ = parseEnviHeader(facts.headerText);
    }

    ImportedMetadata import() {
        for (std::string& text : header_.remarks) remark(std::move(text));
        BandTable table = gather();
        makeSensor();
        makeTime();
        makeProfiles(table);
        makeQualities(table);
        makeTransform(table);
        carryHeader();
        carryItems();
        return std::move(result_);
    }

private:
    bool isEnvi() const { return facts_.driver == "ENVI"; }
    void remark(std::string text) { result_.remarks.push_back(std::move(text)); }
    std::string headerValue(const char* key) const {
        const std::string* value = header_.find(key);
        return value != nullptr ? std::string(trimmed(*value)) : std::string();
    }

    /// A header list with one element a channel; any other length is of no use, since nothing says which bands it
    /// means.
    Texts headerList(const char* key) {
        const std::string value = headerValue(key);
        Texts items = enviListItems(value);
        if (value.empty() || items.size() == channels_) return items;
        remark("\"" + std::string(key) + "\" has " + std::to_string(items.size()) + " values for " +
               std::to_string(channels_) + " bands; ignored");
        return {};
    }

    Texts bandItemTexts(std::string_view key) const {
        Texts texts(channels_);
        for (size_t i = 0; i < std::min(channels_, facts_.bandItems.size()); ++i) {
            if (const std::string* value = itemOf(facts_.bandItems[i], key)) texts[i] = *value;
        }
        return hasAny(texts) ? texts : Texts();
    }

    template <class Values>
    bool fits(const Values& values) const {
        return !values.empty() && values.size() == channels_;
    }

    BandTable gather() {
        BandTable table;
        if (isEnvi()) gatherFromHeader(table);
        if (fits(facts_.wavelengths)) {
            table.centres = textsOf(facts_.wavelengths);
            table.unit = facts_.wavelengthUnit;
        }
        if (fits(facts_.fwhm)) table.widths = textsOf(facts_.fwhm);
        if (fits(facts_.good)) {
            table.flags.clear();
            for (const bool good : facts_.good) table.flags.emplace_back(good ? "1" : "0");
        }
        if (!isEnvi()) gatherFromItems(table);
        gatherScales(table);
        return table;
    }

    void gatherFromHeader(BandTable& table) {
        table.centres = headerList("wavelength");
        table.unit = headerValue("wavelength units");
        table.widths = headerList("fwhm");
        table.flags = headerList("bbl");
        table.gains = headerList("data gain values");
        table.offsets = headerList("data offset values");
        const std::string factor = headerValue("reflectance scale factor");
        if (!factor.empty()) {
            const std::optional<double> value = wholeNumber(factor);
            if (value && *value > 0.0) {
                table.reflectanceFactor = value;
            } else {
                remark("the reflectance scale factor \"" + factor + "\" is not usable; ignored");
            }
        }
        compareWithItems(table.centres);
    }

    /// GDAL repeats the header's wavelengths as band items; other values come from an .aux.xml that no longer fits.
    void compareWithItems(const Texts& centres) {
        const Texts items = bandItemTexts("wavelength");
        for (size_t i = 0; i < std::min(centres.size(), items.size()); ++i) {
            const std::optional<double> own = wholeNumber(centres[i]);
            const std::optional<double> other = wholeNumber(items[i]);
            if (!own || !other || std::fabs(*own - *other) <= 1e-6 * std::fabs(*own)) continue;
            remark("the .aux.xml beside the image contradicts the wavelengths of the header (band " +
                   std::to_string(i + 1) + ": " + items[i] + " instead of " + centres[i] + "); the header counts");
            return;
        }
    }

    void gatherFromItems(BandTable& table) {
        if (!hasAny(table.centres)) {
            table.centres = bandItemTexts("wavelength");
            const Texts units = bandItemTexts("wavelength_units");
            const auto unit = std::find_if(units.begin(), units.end(), [](const auto& text) { return !text.empty(); });
            if (unit != units.end()) table.unit = *unit;
        }
        if (!hasAny(table.widths)) table.widths = bandItemTexts("fwhm");
        if (!hasAny(table.flags)) table.flags = bandItemTexts("bbl");
    }

    void gatherScales(BandTable& table) {
        if (hasAny(table.gains) || hasAny(table.offsets)) return;
        const auto differs = [](double neutral) { return [=](double value) { return value != neutral; }; };
        const bool scaled =
            fits(facts_.scales) && std::any_of(facts_.scales.begin(), facts_.scales.end(), differs(1.0));
        const bool shifted =
            fits(facts_.offsets) && std::any_of(facts_.offsets.begin(), facts_.offsets.end(), differs(0.0));
        if (scaled) table.gains = textsOf(facts_.scales);
        if (shifted) table.offsets = textsOf(facts_.offsets);
        table.gainsAreGdals = scaled || shifted;
    }

    void makeSensor() {
        std::string model = headerValue("sensor type");
        for (const char* key : {"instrument", "sensor", "sensor_type"}) {
            const std::string* item = model.empty() ? globalItem(key) : nullptr;
            if (item != nullptr) model = std::string(trimmed(*item));
        }
        if (!model.empty() && lowered(model) != "unknown") result_.file.set("SensorModelName", model);
    }

    /// An item of the image by its own name or as a global attribute of a netCDF file.
    const std::string* globalItem(const char* key) const {
        const std::string* value = itemOf(facts_.fileItems, key);
        return value != nullptr ? value : itemOf(facts_.fileItems, "nc_global#" + std::string(key));
    }

    void makeTime() {
        const std::string carried = headerValue("acquisition time");
        std::string text = carried;
        for (const char* key : {"start_time", "acquisition_time", "time_coverage_start"}) {
            const std::string* item = text.empty() ? globalItem(key) : nullptr;
            if (item != nullptr) text = *item;
        }
        if (text.empty()) return;
        const std::optional<AcquisitionTime> time = parseTime(text);
        if (!time) {
            remark("the acquisition time \"" + text + "\" is not understood; ignored");
        } else {
            setTime(*time);
        }
        // Seconds, and spellings of its own, have no other place.
        if (!carried.empty() && (!time || isoText(*time) != carried)) {
            result_.file.set("ENVI:acquisition time", carried);
        }
    }

    void setTime(const AcquisitionTime& time) {
        const std::array<std::pair<const char*, int>, 5> parts = {{{"NominalTime_Year", time.year},
                                                                   {"NominalTime_Month", time.month},
                                                                   {"NominalTime_Day", time.day},
                                                                   {"NominalTime_Hour", time.hour},
                                                                   {"NominalTime_Minute", time.minute}}};
        for (const auto& [key, value] : parts) {
            if (value >= 0) result_.file.set(key, std::to_string(value));
        }
    }

    /// Empties what is not a positive number. 0 stands for "none" in headers that must keep the others' places.
    void dropUnusable(Texts& texts, const char* what) {
        size_t count = 0;
        std::string first;
        for (size_t i = 0; i < texts.size(); ++i) {
            const std::optional<double> value = wholeNumber(texts[i]);
            if (value && *value > 0.0) continue;
            if (!texts[i].empty() && !(value && *value == 0.0) && ++count == 1) {
                first = "band " + std::to_string(i + 1) + ": \"" + texts[i] + "\"";
            }
            texts[i].clear();
        }
        if (count > 0) {
            remark(std::to_string(count) + " of " + std::to_string(texts.size()) + " values of \"" + what +
                   "\" are not usable (" + first + "); ignored");
        }
    }

    void makeProfiles(BandTable& table) {
        dropUnusable(table.centres, "wavelength");
        dropUnusable(table.widths, "fwhm");
        if (!hasAny(table.centres) && !hasAny(table.widths)) return;
        WavelengthUnit unit = unitOf(table.unit);
        if (unit.kind == Unit::kUnusable) {
            remark("the wavelength unit \"" + table.unit + "\" is not one of length; wavelengths ignored");
            return;
        }
        if (unit.kind == Unit::kMissing) unit = guessedUnit(table.centres);
        if (unit.kind == Unit::kMissing) return;  // widths alone say nothing about their unit
        table.centres.resize(channels_);
        table.widths.resize(channels_);
        for (size_t i = 0; i < channels_; ++i) {
            StringList& list = result_.channels[i];
            const std::string width = widthInNm(table.widths[i], table.centres[i], unit);
            if (!table.centres[i].empty()) {
                list.set("ResponseProfile_Type", "gaussian");
                list.set("ResponseProfile_Centre", centreInNm(table.centres[i], unit));
            }
            if (!width.empty()) list.set("ResponseProfile_FWHM", width);
        }
    }

    /// Imaging spectrometers see 0.2 to some 15 micrometres: a number below 100 cannot be nanometres, one above cannot
    /// be micrometres.
    WavelengthUnit guessedUnit(const Texts& centres) {
        constexpr double kLargestInMicrometres = 100.0;
        double least = HUGE_VAL, greatest = -HUGE_VAL;
        for (const std::string& text : centres) {
            if (text.empty()) continue;
            const double value = leadingNumber(text);
            least = std::min(least, value);
            greatest = std::max(greatest, value);
        }
        if (greatest < least) return {Unit::kMissing};
        const bool micrometres = greatest < kLargestInMicrometres;
        remark("the header names no wavelength unit; " + significantText(least, 6) + " to " +
               significantText(greatest, 6) + " taken as " + (micrometres ? "micrometres" : "nanometres"));
        return {Unit::kMetres, micrometres ? 1e3 : 1.0};
    }

    static constexpr int kConvertedDigits = 12;  // more than instruments resolve, fewer than a conversion's rounding

    static std::string centreInNm(const std::string& text, const WavelengthUnit& unit) {
        if (unit.kind == Unit::kWavenumber) return significantText(1e7 / leadingNumber(text), kConvertedDigits);
        return unit.inNm == 1.0 ? text : significantText(leadingNumber(text) * unit.inNm, kConvertedDigits);
    }

    /// A width in wavenumbers becomes the distance between its two edges in wavelength.
    static std::string widthInNm(const std::string& text, const std::string& centre, const WavelengthUnit& unit) {
        if (text.empty()) return {};
        const double width = leadingNumber(text);
        if (unit.kind != Unit::kWavenumber) {
            return unit.inNm == 1.0 ? text : significantText(width * unit.inNm, kConvertedDigits);
        }
        const double middle = leadingNumber(centre);
        if (!(middle > width / 2)) return {};
        return significantText(1e7 / (middle - width / 2) - 1e7 / (middle + width / 2), kConvertedDigits);
    }

    void makeQualities(const BandTable& table) {
        size_t unusable = 0;
        for (size_t i = 0; i < std::min(channels_, table.flags.size()); ++i) {
            const std::optional<double> flag = wholeNumber(table.flags[i]);
            if (flag && *flag == 0.0) result_.channels[i].set("Quality", "mask");
            if (!flag && !table.flags[i].empty()) ++unusable;
        }
        if (unusable > 0) {
            remark(std::to_string(unusable) + " of " + std::to_string(table.flags.size()) +
                   " values of \"bbl\" are not numbers; those bands count as good");
        }
    }

    /// Empties what is not a number, or is 0 where that would wipe a band out.
    void dropNonNumbers(Texts& texts, const char* what, bool zeroAllowed) {
        size_t count = 0;
        for (std::string& text : texts) {
            const std::optional<double> value = wholeNumber(text);
            if (value && (zeroAllowed || *value != 0.0)) continue;
            if (!text.empty()) ++count;
            text.clear();
        }
        if (count > 0) {
            remark(std::to_string(count) + " of " + std::to_string(texts.size()) + " values of \"" + what +
                   "\" are not usable; ignored");
        }
    }

    static bool allAre(const Texts& texts, double neutral) {
        return std::all_of(texts.begin(), texts.end(),
                           [=](const auto& text) { return text.empty() || leadingNumber(text) == neutral; });
    }

    bool gainsAreReflectance(const BandTable& table) const {
        if (!table.reflectanceFactor || !hasAny(table.gains) || !allAre(table.offsets, 0.0)) return false;
        for (size_t i = 0; i < table.gains.size(); ++i) {
            const bool bad = i < table.flags.size() && wholeNumber(table.flags[i]) == 0.0;
            const double unity = leadingNumber(table.gains[i]) * *table.reflectanceFactor;
            if (!bad && !(std::fabs(unity - 1.0) <= 1e-6)) return false;
        }
        return true;
    }

    void makeTransform(BandTable& table) {
        dropNonNumbers(table.gains, "data gain values", false);
        dropNonNumbers(table.offsets, "data offset values", true);
        const bool reflectance = gainsAreReflectance(table);
        const bool neutral = allAre(table.gains, 1.0) && allAre(table.offsets, 0.0);
        if (!neutral || (reflectance && hasAny(table.gains))) {
            if (table.reflectanceFactor && !reflectance) {
                remark("the reflectance scale factor does not agree with the gains and offsets; the gains count");
            }
            if (table.gainsAreGdals && !reflectance) {
                remark("the file scales its values without naming the quantity");
            }
            const char* unnamed = table.gainsAreGdals ? "adj_no_units" : "apprad";
            setTransform(reflectance ? "refl" : unnamed, table.gains, table.offsets);
        } else if (table.reflectanceFactor) {
            setTransform("refl", Texts(channels_, shortestText(1.0 / *table.reflectanceFactor)), {});
        }
    }

    void setTransform(const char* quantity, Texts gains, Texts offsets) {
        gains.resize(channels_);
        offsets.resize(channels_);
        result_.file.set("NumberOfRadTrans", "1");
        for (size_t i = 0; i < channels_; ++i) {
            StringList& list = result_.channels[i];
            list.set("RadiometricTrans_Quantity_1", quantity);
            list.set("RadiometricTrans_Gain_1", gains[i].empty() ? "1" : gains[i]);
            list.set("RadiometricTrans_Offset_1", offsets[i].empty() ? "0" : offsets[i]);
        }
    }

    void carryHeader() {
        for (const auto& [key, value] : header_.entries) {
            if (contains(kConsumedKeys, key) || key == "acquisition time") continue;
            const bool list = startsWith(value, "{");
            const Texts items = list && !contains(kFileLists, key) ? enviListItems(value) : Texts();
            const std::string carried = "ENVI:" + key;
            if (fits(items)) {
                for (size_t i = 0; i < channels_; ++i) {
                    if (!items[i].empty()) result_.channels[i].set(carried, items[i]);
                }
            } else if (key == "band names") {
                if (!value.empty()) headerList("band names");  // for the remark
            } else {
                result_.file.set(carried, value);
            }
        }
    }

    /// Items that the library has no other word for keep their own keys. A key of the library's own, written by an
    /// earlier program, counts more than what was derived.
    void carryItems() {
        for (const auto& [key, value] : facts_.fileItems) {
            if (!isEnvi() || !repeatsHeader(key)) carry(result_.file, key, value);
        }
        for (size_t i = 0; i < std::min(channels_, facts_.bandItems.size()); ++i) {
            for (const auto& [key, value] : facts_.bandItems[i]) {
                if (!isBandKey(key)) carry(result_.channels[i], key, value);
            }
        }
    }

    static void carry(StringList& list, const std::string& key, const std::string& value) {
        if (!key.empty() && key.find('=') == std::string::npos) list.set(key, value);
    }

    /// GDAL lists an ENVI header's wavelengths as Band_1, Band_2, ... of the image.
    static bool repeatsHeader(const std::string& key) {
        const std::string name = lowered(key);
        if (name == "wavelength_units") return true;
        return startsWith(name, "band_") && name.size() > 5 &&
               name.find_first_not_of("0123456789", 5) == std::string::npos;
    }

    const RasterFacts& facts_;
    size_t channels_;
    EnviHeader header_;
    ImportedMetadata result_;
};

// ---- times ----

/// Reads fixed counts of digits from a text, front to back.
class DigitReader {
public:
    explicit DigitReader(std::string_view text) : rest_(text) {}

    std::optional<int> digits(size_t count) {
        if (rest_.size() < count || rest_.substr(0, count).find_first_not_of("0123456789") != std::string_view::npos) {
            return std::nullopt;
        }
        int value = 0;
        for (const char c : rest_.substr(0, count)) value = value * 10 + (c - '0');
        rest_.remove_prefix(count);
        return value;
    }
    bool skip(std::string_view anyOf) {
        if (rest_.empty() || anyOf.find(rest_.front()) == std::string_view::npos) return false;
        rest_.remove_prefix(1);
        return true;
    }
    void skipAll(std::string_view anyOf) {
        while (skip(anyOf)) {
        }
    }
    char front() const { return rest_.empty() ? '\0' : rest_.front(); }

private:
    std::string_view rest_;
};

bool within(int value, int least, int greatest) { return value >= least && value <= greatest; }

/// Minutes east of universal time that a zone such as "+02:00" says; 0 for none, "Z" or "UTC".
int zoneMinutes(DigitReader& reader) {
    reader.skipAll(" ");
    const char sign = reader.front();
    if (!reader.skip("+-")) return 0;
    const int hours = reader.digits(2).value_or(0);
    reader.skip(":");
    const int minutes = hours * 60 + reader.digits(2).value_or(0);
    return sign == '-' ? -minutes : minutes;
}

AcquisitionTime shifted(const AcquisitionTime& time, int minutes) {
    std::tm parts = {};
    parts.tm_year = time.year - 1900;
    parts.tm_mon = time.month - 1;
    parts.tm_mday = time.day;
    parts.tm_hour = time.hour;
    parts.tm_min = time.minute + minutes;
    const std::time_t moment = timegm(&parts);
    gmtime_r(&moment, &parts);
    return {parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min};
}

}  // namespace

ImportedMetadata importMetadata(const RasterFacts& facts) { return Importer(facts).import(); }

std::optional<AcquisitionTime> parseTime(std::string_view text) {
    text = trimmed(text);
    if (startsWith(text, "{")) text.remove_prefix(1);
    DigitReader reader(trimmed(text));
    const auto year = reader.digits(4);
    reader.skip("-/");
    const auto month = reader.digits(2);
    reader.skip("-/");
    const auto day = reader.digits(2);
    if (!year || !month || !day || !within(*month, 1, 12) || !within(*day, 1, 31)) return std::nullopt;
    AcquisitionTime time = {*year, *month, *day, -1, -1};
    if (!reader.skip("Tt ")) return time;
    reader.skipAll(" ");
    const auto hour = reader.digits(2);
    reader.skip(":");
    const auto minute = reader.digits(2);
    if (!hour || !minute || !within(*hour, 0, 23) || !within(*minute, 0, 59)) return time;
    time.hour = *hour;
    time.minute = *minute;
    reader.skip(":");
    if (reader.digits(2) && reader.skip(".,")) reader.skipAll("0123456789");
    const int zone = zoneMinutes(reader);
    return zone == 0 ? time : shifted(time, -zone);
}

std::string isoText(const AcquisitionTime& time) {
    char text[80];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d", time.year, time.month, time.day);
    if (time.hour < 0 || time.minute < 0) return text;
    char clock[40];
    std::snprintf(clock, sizeof clock, "T%02d:%02d:00Z", time.hour, time.minute);
    return std::string(text) + clock;
}

}  // namespace kshost
