// ks info: what an image is, as a person or a program wants to read it.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iterator>
#include <memory>

#include "app/command.hpp"
#include "app/output.hpp"
#include "app/report.hpp"
#include "image/bands.hpp"
#include "image/blocks.hpp"
#include "image/dataset.hpp"
#include "image/entries.hpp"

namespace kscli {
namespace {

struct Options {
    std::string cube;
    bool json = false;
    bool allBands = false;
};

// A longer table is shown by its ends unless asked for whole.
constexpr int kMostBandsShown = 12;
constexpr int kBandsShownAtEachEnd = 4;

const char* sensorTypeName(int type) {
    switch (type) {
        case KS_SENSOR_WHISKBROOM:
            return "whiskbroom";
        case KS_SENSOR_PUSHBROOM:
            return "pushbroom";
        case KS_SENSOR_FRAME:
            return "frame";
        default:
            return "unknown";
    }
}

// The unknown values of the record lie outside these ranges.
bool known(double value, double low, double high) { return value >= low && value <= high; }

// The first quoted text of a WKT at or after a word of it.
std::string quotedAfter(const std::string& wkt, const char* word) {
    const std::size_t from = wkt.find(word);
    const std::size_t open = from == std::string::npos ? from : wkt.find('"', from);
    const std::size_t close = open == std::string::npos ? open : wkt.find('"', open + 1);
    return close == std::string::npos ? "" : wkt.substr(open + 1, close - open - 1);
}

// A coordinate system's own name; one without is told by its projection and ellipsoid.
std::string systemName(const std::string& wkt) {
    const std::string name = quotedAfter(wkt, "");
    if (!name.empty() && name != "unnamed" && name != "unknown") return name;
    const std::string projection = quotedAfter(wkt, "PROJECTION[");
    const std::string base = quotedAfter(wkt, "GEOGCS[");
    if (projection.empty() && base.empty()) return "unnamed system";
    return projection + (projection.empty() || base.empty() ? "" : " on ") + base;
}

Json layoutJson(const DataSet& dataSet) {
    KSHostLayout layout = {};
    if (KSHostGetLayout(dataSet.file(), &layout) == 0) return nullptr;
    const auto text = [](const char* value) { return std::string(value != nullptr ? value : ""); };
    return {{"format", text(layout.szFormat)},
            {"interleave", text(layout.szInterleave)},
            {"sample_type", text(layout.szSampleType)},
            {"byte_order", layout.bBigEndian != 0 ? "big" : "little"},
            {"header", text(layout.szHeader)},
            {"sidecar", layout.bSidecar != 0 ? Json(text(layout.szSidecar)) : Json(nullptr)}};
}

Json channelTypesJson(const DataSet& dataSet) {
    Json counts = Json::object();
    for (int band = 0; band < dataSet.bandCount(); ++band) {
        const char* name = sampleTypeName(dataSet->pBandRefs[band].nChanType);
        counts[name] = counts.value(name, 0) + 1;
    }
    return counts;
}

Json sensorJson(const KSSensor& sensor) {
    Json json = {{"model", sensor.szModelName != nullptr ? Json(sensor.szModelName) : Json(nullptr)},
                 {"type", sensorTypeName(sensor.eType)}};
    const auto addFieldOfView = [&json](const char* key, float degrees) {
        if (degrees >= 0) json[key] = shortest(degrees);
    };
    addFieldOfView("fov_left_deg", sensor.fFOVLeft);
    addFieldOfView("fov_right_deg", sensor.fFOVRight);
    addFieldOfView("fov_fore_deg", sensor.fFOVFore);
    addFieldOfView("fov_aft_deg", sensor.fFOVAft);
    return json;
}

Json missionJson(const KSMission& mission) {
    Json json = Json::object();
    if (mission.nYear >= 0) json["year"] = mission.nYear;
    if (mission.nMonth >= 0) json["month"] = mission.nMonth;
    if (mission.nDay >= 0) json["day"] = mission.nDay;
    if (mission.nHour >= 0) json["hour"] = mission.nHour;
    if (mission.nMinute >= 0) json["minute"] = mission.nMinute;
    if (known(mission.dLatitude, -90, 90)) json["latitude"] = mission.dLatitude;
    if (known(mission.dLongitude, -180, 180)) json["longitude"] = mission.dLongitude;
    if (mission.fHeight >= 0) json["height"] = shortest(mission.fHeight);
    if (known(static_cast<double>(mission.fHeading), -360, 360)) json["heading_deg"] = shortest(mission.fHeading);
    if (known(static_cast<double>(mission.fForeAftTilt), -90, 90)) json["tilt_deg"] = shortest(mission.fForeAftTilt);
    return json;
}

Json placeJson(const DataSet& dataSet) {
    Json json = Json::object();
    double transform[6] = {};
    if (KSHostGetGeoTransform(dataSet.file(), transform) != 0) json["geotransform"] = transform;
    const char* wkt = KSHostGetCoordinateSystem(dataSet.file());
    if (wkt != nullptr && *wkt != '\0') {
        json["name"] = systemName(wkt);
        json["wkt"] = wkt;
    }
    return json;
}

// One value when all bands agree, else one per band.
Json noDataJson(const DataSet& dataSet) {
    const auto values = noDataValues(dataSet, allBands(dataSet));
    const auto asJson = [](const std::optional<double>& value) -> Json {
        if (!value) return nullptr;
        return std::isfinite(*value) ? Json(*value) : Json(fmt::format("{}", *value));
    };
    Json list = Json::array();
    bool same = true;
    for (const auto& value : values) {
        list.push_back(asJson(value));
        same = same && list.back() == list.front();
    }
    return same ? list.front() : list;
}

// Takes the list over.
Json textsJson(HostStringList list) {
    Json texts = Json::array();
    for (const std::string& text : Entries(list).texts()) texts.push_back(text);
    return texts;
}

Json bandsJson(const DataSet& dataSet) {
    Json bands = Json::array();
    for (int band = 0; band < dataSet.bandCount(); ++band) {
        const KSBandResp& response = dataSet->Sensor.pBandResp[band];
        const bool hasResponse = response.eRespType != KS_RT_UNKNOWN;
        bands.push_back({{"band", band + 1},
                         {"channel", dataSet.channel(band)},
                         {"wavelength_nm", orNull(shortest(response.fCentre), hasResponse && response.fCentre > 0)},
                         {"fwhm_nm", orNull(shortest(response.fFWHM), hasResponse && response.fFWHM > 0)},
                         {"quality", dataSet.qualityName(band)}});
    }
    return bands;
}

Json quantizedJson(const KSVQubeInfo& cube) {
    if (cube.nNumVQChans < 1 || cube.nCodeVectors < 1) return nullptr;
    return {{"code_vectors", cube.nCodeVectors}, {"bits_per_index", cube.nBitsPerIndex}};
}

Json describe(const DataSet& dataSet, const std::string& name) {
    Json levels = Json::array();
    for (const std::string& text : dataSet.levelDescriptions()) levels.push_back(text);
    return {{"file", name},
            {"width", dataSet->nXSize},
            {"height", dataSet->nYSize},
            {"bands", dataSet.bandCount()},
            {"good_bands", goodBands(dataSet).size()},
            {"layout", layoutJson(dataSet)},
            {"quantized", quantizedJson(dataSet->VQubeInfo)},
            {"channel_types", channelTypesJson(dataSet)},
            {"sensor", sensorJson(dataSet->Sensor)},
            {"mission", missionJson(dataSet->Mission)},
            {"levels", levels},
            {"place", placeJson(dataSet)},
            {"no_data", noDataJson(dataSet)},
            {"history", textsJson(KSHostGetHistory(dataSet.file()))},
            {"remarks", textsJson(KSHostGetRemarks(dataSet.file()))},
            {"band_table", bandsJson(dataSet)}};
}

void printRow(const char* label, const std::string& text) {
    if (!text.empty()) fmt::print("{:<14}{}\n", label, text);
}

std::string joined(const std::vector<std::string>& parts, const char* separator = ", ") {
    std::string text;
    for (const std::string& part : parts) {
        if (!part.empty()) text += (text.empty() ? "" : separator) + part;
    }
    return text;
}

std::string layoutText(const Json& info) {
    const Json& layout = info["layout"];
    if (layout.is_null()) return "unknown";
    std::vector<std::string> types;
    for (const auto& [name, count] : info["channel_types"].items()) {
        const bool mixed = info["channel_types"].size() > 1;
        types.push_back(mixed ? fmt::format("{} x {}", count.get<int>(), name) : name);
    }
    const std::string stored = layout["sample_type"];
    const std::string order = layout["byte_order"].get<std::string>() + "-endian";
    // Named twice only where the library reads another type than the file holds.
    const auto readAs = [&stored](const std::string& read) {
        static const std::pair<const char*, const char*> kSame[] = {
            {"Byte", "uint8"}, {"Int16", "int16"}, {"UInt16", "uint16"}, {"Float32", "float32"}};
        const bool same = std::any_of(std::begin(kSame), std::end(kSame),
                                      [&](const auto& pair) { return stored == pair.first && read == pair.second; });
        return same ? std::string() : "read as " + read;
    };
    return joined({layout["format"].get<std::string>(), layout["interleave"].get<std::string>(), stored,
                   stored == "Byte" || layout["format"] != "ENVI" ? "" : order, readAs(joined(types))});
}

std::string sensorText(const Json& sensor) {
    std::vector<std::string> parts;
    if (!sensor["model"].is_null()) parts.push_back(sensor["model"]);
    if (sensor["type"] != "unknown") parts.push_back(sensor["type"]);
    for (const char* side : {"left", "right", "fore", "aft"}) {
        const std::string key = fmt::format("fov_{}_deg", side);
        if (sensor.contains(key)) {
            parts.push_back(fmt::format("field of view {} {} deg", side, sensor[key].get<double>()));
        }
    }
    return joined(parts);
}

std::string missionText(const Json& mission) {
    std::vector<std::string> parts;
    const auto digits = [&mission](const char* key, int width) {
        return mission.contains(key) ? fmt::format("{:0{}}", mission[key].get<int>(), width)
                                     : std::string(static_cast<std::size_t>(width), '?');
    };
    if (mission.contains("year")) {
        parts.push_back(digits("year", 4) + "-" + digits("month", 2) + "-" + digits("day", 2));
    }
    if (mission.contains("hour")) parts.push_back(digits("hour", 2) + ":" + digits("minute", 2));
    if (mission.contains("latitude")) parts.push_back(fmt::format("latitude {}", mission["latitude"].get<double>()));
    if (mission.contains("longitude")) parts.push_back(fmt::format("longitude {}", mission["longitude"].get<double>()));
    if (mission.contains("height")) parts.push_back(fmt::format("height {}", mission["height"].get<double>()));
    if (mission.contains("heading_deg")) {
        parts.push_back(fmt::format("heading {} deg", mission["heading_deg"].get<double>()));
    }
    if (mission.contains("tilt_deg")) parts.push_back(fmt::format("tilt {} deg", mission["tilt_deg"].get<double>()));
    return joined(parts);
}

std::string placeText(const Json& place) {
    std::vector<std::string> parts;
    if (place.contains("name")) parts.push_back(place["name"]);
    if (place.contains("geotransform")) {
        const std::vector<double> t = place["geotransform"];
        parts.push_back(fmt::format("upper left {:.9g}, {:.9g}", t[0], t[3]));
        parts.push_back(fmt::format("pixel {:.6g} x {:.6g}", std::hypot(t[1], t[4]), std::hypot(t[2], t[5])));
        if (t[2] != 0 || t[4] != 0) {
            parts.push_back(fmt::format("rotated {:.4g} deg", std::atan2(t[4], t[1]) * 180 / std::acos(-1.0)));
        }
    }
    return joined(parts);
}

std::string bandsText(const DataSet& dataSet, const Json& info) {
    const auto [low, high] = wavelengthRange(dataSet);
    const std::string range = low <= high ? fmt::format(", {:.1f} to {:.1f} nm", low, high) : ", no wavelengths";
    return fmt::format("{} ({} good){}", dataSet.bandCount(), info["good_bands"].get<int>(), range);
}

void printBand(const Json& band) {
    const auto nm = [&band](const char* key) {
        return band[key].is_null() ? std::string("-") : fmt::format("{:.3f}", band[key].get<double>());
    };
    fmt::print("{:>7}  {:>13}  {:>9}  {}\n", fmt::format("b{}", band["band"].get<int>()), nm("wavelength_nm"),
               nm("fwhm_nm"), band["quality"].get<std::string>());
}

void printBands(const Json& bands, bool all) {
    const int count = static_cast<int>(bands.size());
    const bool whole = all || count <= kMostBandsShown;
    fmt::print("\n{:>7}  {:>13}  {:>9}  {}\n", "band", "wavelength/nm", "FWHM/nm", "quality");
    for (int i = 0; i < count; ++i) {
        if (!whole && i == kBandsShownAtEachEnd) {
            fmt::print("{:>7}  ({} more; --bands shows all)\n", "...", count - 2 * kBandsShownAtEachEnd);
            i = count - kBandsShownAtEachEnd;
        }
        printBand(bands[static_cast<std::size_t>(i)]);
    }
}

std::string noDataText(const Json& noData) {
    if (noData.is_array()) return "differs between bands";
    return noData.is_string() ? noData.get<std::string>() : fmt::format("{}", noData.get<double>());
}

void printText(const DataSet& dataSet, const Json& info, const Options& options) {
    fmt::print("{}\n", options.cube);
    printRow("size", fmt::format("{} x {} pixels, {} band{}", dataSet->nXSize, dataSet->nYSize, dataSet.bandCount(),
                                 dataSet.bandCount() == 1 ? "" : "s"));
    printRow("stored as", layoutText(info));
    if (const Json& cube = info["quantized"]; !cube.is_null()) {
        printRow("quantized", fmt::format("{} code vectors, {} bits an index", cube["code_vectors"].get<int>(),
                                          cube["bits_per_index"].get<int>()));
    }
    if (!info["layout"].is_null() && !info["layout"]["sidecar"].is_null()) {
        printRow("sidecar", info["layout"]["sidecar"]);
    }
    printRow("sensor", sensorText(info["sensor"]));
    printRow("taken", missionText(info["mission"]));
    for (std::size_t level = 0; level < info["levels"].size(); ++level) {
        printRow(level == 0 ? "levels" : "", fmt::format("{}  {}", level, info["levels"][level].get<std::string>()));
    }
    printRow("place", placeText(info["place"]));
    const Json& noData = info["no_data"];
    if (!noData.is_null()) printRow("no data", noDataText(noData));
    printRow("bands", bandsText(dataSet, info));
    for (const char* list : {"history", "remarks"}) {
        for (std::size_t i = 0; i < info[list].size(); ++i) printRow(i == 0 ? list : "", info[list][i]);
    }
    printBands(info["band_table"], options.allBands);
}

void run(const Options& options) {
    const DataSet dataSet = DataSet::open(options.cube);
    const Json info = describe(dataSet, options.cube);
    if (options.json) {
        printJson(info);
    } else {
        printText(dataSet, info, options);
    }
}

}  // namespace

void addInfo(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("info", "Show what an image is: size, sensor, levels, bands, place");
    command->add_option("CUBE", options->cube, "The image")->required();
    command->add_flag("--json", options->json, "Print JSON, with every band");
    command->add_flag("--bands", options->allBands, "Print every band, however many");
    command->footer("Example:\n  ks info scene.img --bands");
    command->callback([options, &chosen] { chosen = [options] { run(*options); }; });
}

}  // namespace kscli
