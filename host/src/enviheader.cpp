// ENVI text headers. Reading forgives what real headers contain: keys in any case, comments, empty values, duplicates,
// lists that are never closed, Latin-1. Writing is strict, and what it writes reads back as the same metadata lists.
#include "enviheader.hpp"

#include <gdal_priv.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <optional>

#include "import.hpp"
#include "raster.hpp"
#include "rasterformats.hpp"
#include "text.hpp"

namespace kshost {
namespace {

// ---- reading ----

/// The keys that a header may be recognised by; a line that sets one of them cannot be part of an open list.
constexpr std::array<std::string_view, 26> kCommonKeys = {"samples",
                                                          "lines",
                                                          "bands",
                                                          "header offset",
                                                          "file type",
                                                          "data type",
                                                          "interleave",
                                                          "byte order",
                                                          "sensor type",
                                                          "map info",
                                                          "default bands",
                                                          "wavelength units",
                                                          "wavelength",
                                                          "fwhm",
                                                          "bbl",
                                                          "band names",
                                                          "x start",
                                                          "y start",
                                                          "data gain values",
                                                          "data offset values",
                                                          "reflectance scale factor",
                                                          "data ignore value",
                                                          "acquisition time",
                                                          "coordinate system string",
                                                          "projection info",
                                                          "description"};

/// Lower case, runs of blanks as one.
std::string normalKey(std::string_view text) {
    std::string key;
    for (const char c : lowered(trimmed(text))) {
        const bool blank = c == ' ' || c == '\t';
        if (!blank) key += c;
        if (blank && key.back() != ' ') key += ' ';
    }
    return key;
}

bool isComment(std::string_view line) { return startsWith(trimmed(line), ";"); }

/// The key of a "key = value" line; empty for any other line.
std::string keyOfLine(std::string_view line) {
    const size_t equals = line.find('=');
    return equals == std::string_view::npos || isComment(line) ? std::string() : normalKey(line.substr(0, equals));
}

bool setsCommonKey(std::string_view line) {
    const std::string key = keyOfLine(line);
    return std::find(kCommonKeys.begin(), kCommonKeys.end(), key) != kCommonKeys.end();
}

bool opensAnotherList(std::string_view line) {
    const size_t equals = line.find('=');
    return setsCommonKey(line) && startsWith(trimmed(line.substr(equals + 1)), "{");
}

class HeaderReader {
public:
    explicit HeaderReader(std::string_view text) : lines_(splitLines(text)) {}

    EnviHeader read() {
        for (size_t i = 0; i < lines_.size();) {
            const std::string_view line = lines_[i];
            const std::string key = keyOfLine(line);
            if (key.empty()) {
                remarkOnLine(i++);
                continue;
            }
            const std::string_view start = trimmed(line.substr(line.find('=') + 1));
            const size_t end = startsWith(start, "{") ? endOfList(i, start, key) : i + 1;
            std::string value(start);
            for (size_t k = i + 1; k < end; ++k) {
                if (!isComment(lines_[k])) value.append("\n").append(lines_[k]);
            }
            store(key, valueWithoutTail(std::string(trimmed(value))));
            i = end;
        }
        return std::move(header_);
    }

private:
    void remarkOnLine(size_t i) {
        const std::string_view line = trimmed(lines_[i]);
        const bool title = i == 0 && lowered(line) == "envi";
        if (line.empty() || isComment(line) || title) return;
        header_.remarks.push_back("header line " + std::to_string(i + 1) + " has no key; ignored");
    }

    /// The line after the list that opens on line `first`. A list that is never closed ends before the next known key.
    size_t endOfList(size_t first, std::string_view start, const std::string& key) {
        if (start.find('}') != std::string_view::npos) return first + 1;
        size_t stop = first + 1;
        for (; stop < lines_.size() && !opensAnotherList(lines_[stop]); ++stop) {
            if (!isComment(lines_[stop]) && lines_[stop].find('}') != std::string_view::npos) return stop + 1;
        }
        header_.remarks.push_back("the list \"" + key + "\" is never closed; it is taken to end before the next key");
        size_t end = first + 1;
        while (end < stop && !setsCommonKey(lines_[end])) ++end;
        return end;
    }

    /// A list without what follows its last brace, and with that brace.
    static std::string valueWithoutTail(std::string value) {
        if (!startsWith(value, "{")) return value;
        const size_t close = value.rfind('}');
        return close == std::string::npos ? value + "}" : value.substr(0, close + 1);
    }

    void store(const std::string& key, std::string value) {
        const auto same = std::find_if(header_.entries.begin(), header_.entries.end(),
                                       [&](const auto& entry) { return entry.first == key; });
        if (same == header_.entries.end()) {
            header_.entries.emplace_back(key, std::move(value));
            return;
        }
        header_.remarks.push_back("the key \"" + key + "\" stands more than once; the last one counts");
        same->second = std::move(value);
    }

    std::vector<std::string_view> lines_;
    EnviHeader header_;
};

// ---- writing ----

constexpr std::string_view kCarriedTime = "ENVI:acquisition time";
constexpr std::string_view kBandNames = "ENVI:band names";

int dataTypeOf(const RasterFacts& facts) {
    constexpr std::array<std::pair<std::string_view, int>, 7> kNamed = {
        {{"Byte", 1}, {"Int16", 2}, {"Int32", 3}, {"Float32", 4}, {"Float64", 5}, {"UInt16", 12}, {"UInt32", 13}}};
    for (const auto& [name, code] : kNamed) {
        if (facts.sampleType == name) return code;
    }
    const int type = facts.channelTypes.empty() ? 4 : facts.channelTypes.front();
    return type == 1 ? 1 : type == 2 ? 2 : type == 3 ? 12 : 4;
}

/// Text that cannot end its list early, start another or look like a separator.
std::string listSafe(std::string_view text) {
    std::string safe(trimmed(text));
    for (char& c : safe) {
        if (c == ',') c = ';';
        if (c == '{') c = '(';
        if (c == '}') c = ')';
        if (c == '\n' || c == '\r') c = ' ';
    }
    return safe;
}

/// A header list of one element a channel; an element may be empty.
std::string braced(const std::vector<std::string>& elements) {
    std::string list = "{";
    for (size_t i = 0; i < elements.size(); ++i) {
        if (i > 0) list += i % 8 == 0 ? ",\n " : ", ";
        list += elements[i];
    }
    // A comma after the last element is not an element of its own; after an empty one it keeps that one.
    if (!elements.empty() && elements.back().empty()) list += ",";
    return list + "}";
}

/// A value as carried from another header, made unable to disturb the lines after it.
std::string carriedValue(std::string value) {
    value = std::string(trimmed(value));
    const bool list = startsWith(value, "{");
    std::string safe;
    for (size_t i = 0; i < value.size(); ++i) {
        const char c = value[i];
        if (c == '\r' || (c == '\n' && !list)) {
            safe += ' ';
        } else if (c == '}' && list && i + 1 < value.size()) {
            safe += ')';
        } else {
            safe += c;
        }
    }
    if (list && (safe.size() < 2 || safe.back() != '}')) safe += "}";
    return safe;
}

class HeaderWriter {
public:
    HeaderWriter(const RasterFacts& facts, const StringList& fileList, const std::vector<StringList>& channelLists,
                 const Georeference& georeference)
        : facts_(facts), file_(fileList), channels_(channelLists), georeference_(georeference) {
        channels_.resize(static_cast<size_t>(std::max(facts.channels, 0)));
    }

    std::string write() {
        writeStructure();
        writeSensor();
        writePlace();
        writeProfiles();
        writeQualities();
        writeTransform();
        writeCarried();
        return text_;
    }

private:
    void line(std::string_view key, std::string_view value) {
        text_.append(key).append(" = ").append(value).append("\n");
    }

    static std::string valueOr(const StringList& list, std::string_view key, std::string_view otherwise = {}) {
        const char* value = list.find(key);
        return std::string(value != nullptr ? std::string_view(value) : otherwise);
    }

    void writeStructure() {
        text_ = "ENVI\n";
        line("samples", std::to_string(facts_.width));
        line("lines", std::to_string(facts_.height));
        line("bands", std::to_string(facts_.channels));
        line("header offset", "0");
        line("file type", "ENVI Standard");
        line("data type", std::to_string(dataTypeOf(facts_)));
        line("interleave", facts_.interleave.empty() ? "bip" : lowered(facts_.interleave));
        line("byte order", facts_.bigEndian ? "1" : "0");
    }

    void writeSensor() {
        const std::string model = listSafe(valueOr(file_, "SensorModelName"));
        if (!model.empty()) line("sensor type", model);
        const std::string time = acquisitionTime();
        if (!time.empty()) line("acquisition time", time);
    }

    /// The carried text where it names the same minute, since it may be finer; else what the list says.
    std::string acquisitionTime() const {
        const auto part = [&](const char* key) {
            const std::optional<double> value = wholeNumber(valueOr(file_, key));
            return value && *value >= 0.0 && *value <= 9999.0 ? static_cast<int>(*value) : -1;
        };
        const AcquisitionTime time = {part("NominalTime_Year"), part("NominalTime_Month"), part("NominalTime_Day"),
                                      part("NominalTime_Hour"), part("NominalTime_Minute")};
        const std::string carried = carriedValue(valueOr(file_, kCarriedTime));
        if (time.year < 0 || time.month < 0 || time.day < 0) return carried;
        const std::optional<AcquisitionTime> carriedTime = parseTime(carried);
        return carriedTime && *carriedTime == time ? carried : isoText(time);
    }

    void writePlace();

    /// One text a channel for a key; empty where a channel has none.
    std::vector<std::string> channelTexts(std::string_view key) const {
        std::vector<std::string> texts;
        for (const StringList& list : channels_) texts.push_back(listSafe(valueOr(list, key)));
        return texts;
    }

    void writeChannelList(std::string_view key, const std::vector<std::string>& texts) {
        if (std::any_of(texts.begin(), texts.end(), [](const std::string& text) { return !text.empty(); })) {
            line(key, braced(texts));
        }
    }

    /// Numbers are written only where every channel has one: other programs read a list of any other length by
    /// position.
    void writeNumbers(std::string_view key, const std::vector<std::string>& texts) {
        if (!texts.empty() && std::all_of(texts.begin(), texts.end(), [](const auto& t) { return wholeNumber(t); })) {
            line(key, braced(texts));
        }
    }

    void writeProfiles() {
        const std::vector<std::string> centres = channelTexts("ResponseProfile_Centre");
        const bool any = std::any_of(centres.begin(), centres.end(), [](const auto& t) { return !t.empty(); });
        if (any) line("wavelength units", "Nanometers");
        writePartly("wavelength", centres);
        writePartly("fwhm", channelTexts("ResponseProfile_FWHM"));
        writeChannelList("band names", channelTexts(kBandNames));
    }

    /// Where only some channels have a number, 0 stands for "none": it keeps the others at their places.
    void writePartly(std::string_view key, std::vector<std::string> texts) {
        const bool any =
            std::any_of(texts.begin(), texts.end(), [](const auto& t) { return wholeNumber(t).has_value(); });
        if (!any) return;
        for (std::string& text : texts) {
            if (!wholeNumber(text)) text = "0";
        }
        writeNumbers(key, texts);
    }

    void writeQualities() {
        std::vector<std::string> flags;
        for (const std::string& quality : channelTexts("Quality")) {
            flags.push_back(quality == "skip" || quality == "mask" ? "0" : "1");
        }
        if (std::find(flags.begin(), flags.end(), "0") != flags.end()) line("bbl", braced(flags));
    }

    void writeTransform();

    void writeCarried() {
        constexpr std::string_view kPrefix = "ENVI:";
        constexpr std::array<std::string_view, 2> kWritten = {kCarriedTime, kBandNames};
        const auto carried = [&](std::string_view entry, std::string_view key) {
            return startsWith(entry, kPrefix) && std::find(kWritten.begin(), kWritten.end(), key) == kWritten.end();
        };
        std::vector<std::string> done;
        for (const std::string& entry : file_.entries()) {
            const std::string key = entry.substr(0, entry.find('='));
            if (!carried(entry, key)) continue;
            done.push_back(key);
            writeForeign(key.substr(kPrefix.size()), carriedValue(valueOr(file_, key)));
        }
        for (const StringList& list : channels_) {
            for (const std::string& entry : list.entries()) {
                const std::string key = entry.substr(0, entry.find('='));
                if (!carried(entry, key) || std::find(done.begin(), done.end(), key) != done.end()) continue;
                done.push_back(key);
                writeForeign(key.substr(kPrefix.size()), braced(channelTexts(key)));
            }
        }
    }

    /// A key that the header already holds is the image's own structure and is not overruled.
    void writeForeign(const std::string& name, const std::string& value) {
        const std::string key = normalKey(name);
        if (key.empty() || key.find_first_of("\n\r;") == 0 || isStructural(key)) return;
        line(listSafe(key), value);
    }

    static bool isStructural(const std::string& key) {
        constexpr std::array<std::string_view, 8> kStructure = {"samples",   "lines",     "bands",      "header offset",
                                                                "file type", "data type", "interleave", "byte order"};
        return std::find(kStructure.begin(), kStructure.end(), key) != kStructure.end();
    }

    const RasterFacts& facts_;
    const StringList& file_;
    std::vector<StringList> channels_;
    const Georeference& georeference_;
    std::string text_;
};

/// GDAL's own two lines for a place, taken from the header of an image of one sample that it writes in memory.
Items placeLines(const Georeference& georeference) {
    if (!georeference.transform && georeference.wkt.empty()) return {};
    registerFormats();
    const GdalMessages quiet;  // a place that ENVI cannot say is left out
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("ENVI");
    if (driver == nullptr) return {};
    static std::atomic<int> count{0};
    const std::string name = "/vsimem/kshost-place-" + std::to_string(count++) + ".img";
    GDALDataset* image = driver->Create(name.c_str(), 1, 1, 1, GDT_Byte, nullptr);
    if (image == nullptr) return {};
    std::array<double, 6> transform = georeference.transform.value_or(std::array<double, 6>{0, 1, 0, 0, 0, 1});
    if (georeference.transform) image->SetGeoTransform(transform.data());
    if (!georeference.wkt.empty()) image->SetProjection(georeference.wkt.c_str());
    GDALClose(image);
    const std::string headerName = name.substr(0, name.size() - 3) + "hdr";
    vsi_l_offset size = 0;
    const GByte* bytes = VSIGetMemFileBuffer(headerName.c_str(), &size, FALSE);
    std::string text;
    if (bytes != nullptr) text.assign(bytes, bytes + size);
    driver->Delete(name.c_str());
    VSIUnlink(headerName.c_str());
    Items lines;
    const EnviHeader header = parseEnviHeader(text);
    for (const char* key : {"map info", "projection info", "coordinate system string"}) {
        const std::string* value = header.find(key);
        if (value == nullptr || (!georeference.transform && std::string_view(key) == "map info")) continue;
        lines.emplace_back(key, *value);
    }
    return lines;
}

void HeaderWriter::writePlace() {
    for (const auto& [key, value] : placeLines(georeference_)) line(key, value);
    // The header has room for one value only: it must hold for every channel.
    const std::map<int, double>& noData = georeference_.noData;
    if (noData.empty() || noData.size() != channels_.size()) return;
    const double value = noData.begin()->second;
    const bool common = std::all_of(noData.begin(), noData.end(), [&](const auto& entry) {
        return entry.second == value || (std::isnan(entry.second) && std::isnan(value));
    });
    if (common) line("data ignore value", shortestText(value));
}

/// One gain and offset for the whole chain of a channel's transforms.
struct Composition {
    double gain = 1.0;
    double offset = 0.0;
};

Composition composed(const StringList& list, int transforms) {
    Composition whole;
    for (int k = 1; k <= transforms; ++k) {
        const char* gainText = list.find("RadiometricTrans_Gain_" + std::to_string(k));
        const char* offsetText = list.find("RadiometricTrans_Offset_" + std::to_string(k));
        const double gain = gainText != nullptr ? leadingNumber(gainText) : 1.0;
        const double offset = offsetText != nullptr ? leadingNumber(offsetText) : 0.0;
        whole.gain *= gain;
        whole.offset = whole.offset * gain + offset;
    }
    return whole;
}

/// The text of a chain of one transform as it stands, so that no digit is lost or added; else the composed number.
std::string transformText(const StringList& list, int transforms, const char* key, double value) {
    const char* text = transforms == 1 ? list.find(key) : nullptr;
    return text != nullptr && wholeNumber(text) ? std::string(trimmed(text)) : shortestText(value);
}

void HeaderWriter::writeTransform() {
    constexpr double kMaxTransforms = 1000;  // a number that a file states is not to be trusted without a limit
    const double stated = leadingNumber(valueOr(file_, "NumberOfRadTrans", "0"));
    if (!(stated >= 1.0) || stated > kMaxTransforms || channels_.empty()) return;
    const int transforms = static_cast<int>(stated);
    std::vector<std::string> gains, offsets;
    bool reflectance = true;
    const Composition first = composed(channels_.front(), transforms);
    for (const StringList& list : channels_) {
        const Composition whole = composed(list, transforms);
        gains.push_back(transformText(list, transforms, "RadiometricTrans_Gain_1", whole.gain));
        offsets.push_back(transformText(list, transforms, "RadiometricTrans_Offset_1", whole.offset));
        reflectance = reflectance && whole.offset == 0.0 && whole.gain == first.gain && whole.gain > 0.0 &&
                      valueOr(list, "RadiometricTrans_Quantity_" + std::to_string(transforms)) == "refl";
    }
    writeNumbers("data gain values", gains);
    const bool plain = std::all_of(offsets.begin(), offsets.end(), [](const auto& text) { return text == "0"; });
    if (!plain) writeNumbers("data offset values", offsets);
    if (reflectance) line("reflectance scale factor", significantText(1.0 / first.gain, 12));
}

}  // namespace

const std::string* EnviHeader::find(const std::string& key) const {
    for (const auto& [name, value] : entries) {
        if (name == key) return &value;
    }
    return nullptr;
}

EnviHeader parseEnviHeader(const std::string& bytes) {
    constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";
    std::string text = asUtf8(bytes);
    if (startsWith(text, kByteOrderMark)) text.erase(0, kByteOrderMark.size());
    std::replace(text.begin(), text.end(), '\0', ' ');
    return HeaderReader(text).read();
}

std::vector<std::string> enviListItems(const std::string& value) {
    std::string_view inside = trimmed(value);
    if (!startsWith(inside, "{"))
        return inside.empty() ? std::vector<std::string>() : std::vector<std::string>{std::string(inside)};
    inside.remove_prefix(1);
    if (!inside.empty() && inside.back() == '}') inside.remove_suffix(1);
    std::vector<std::string> items;
    while (true) {
        const size_t comma = inside.find(',');
        const std::string_view item = trimmed(inside.substr(0, comma));
        if (comma != std::string_view::npos || !item.empty()) items.emplace_back(item);
        if (comma == std::string_view::npos) return items;
        inside.remove_prefix(comma + 1);
    }
}

std::string enviListItem(std::string_view text) {
    std::string safe = listSafe(text);
    // At the start of a line it would begin a comment.
    if (startsWith(safe, ";")) safe.front() = ':';
    return safe;
}

std::string enviListText(const std::vector<std::string>& texts) {
    std::vector<std::string> safe;
    for (const std::string& text : texts) safe.push_back(enviListItem(text));
    return braced(safe);
}

std::string composeEnviHeader(const RasterFacts& facts, const StringList& fileList,
                              const std::vector<StringList>& channelLists, const Georeference& georeference) {
    return HeaderWriter(facts, fileList, channelLists, georeference).write();
}

}  // namespace kshost
