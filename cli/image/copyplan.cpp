#include "image/copyplan.hpp"

#include <charconv>
#include <cmath>
#include <limits>
#include <set>

#include "image/bands.hpp"
#include "image/entries.hpp"

namespace kscli {
namespace {

bool startsWith(const std::string& text, const std::string& start) { return text.compare(0, start.size(), start) == 0; }

bool isWholeSelection(const DataSet& source, const CopyPlan& plan) { return plan.bands == allBands(source); }

bool isWholeArea(const DataSet& source, const CopyPlan& plan) {
    return plan.every == 1 && plan.area.columns == source->nXSize && plan.area.rows == source->nYSize;
}

// "RadiometricTrans_Gain_2" is {"RadiometricTrans_Gain_", 2}.
std::optional<std::pair<std::string, int>> asTransformKey(const std::string& key) {
    for (const char* start : {"RadiometricTrans_Quantity_", "RadiometricTrans_Gain_", "RadiometricTrans_Offset_"}) {
        if (!startsWith(key, start)) continue;
        const std::string digits = key.substr(std::string(start).size());
        int number = 0;
        const auto [stop, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
        if (error == std::errc{} && stop == digits.data() + digits.size() && number >= 1) return {{start, number}};
    }
    return std::nullopt;
}

// GDAL's "Band_12" items name a band by number.
bool isNumberedBandKey(const std::string& key) {
    return startsWith(key, "Band_") && key.size() > 5 && key.find_first_not_of("0123456789", 5) == std::string::npos;
}

// Statistics of the source's samples.
bool isStatisticsKey(const std::string& key) { return startsWith(key, "STATISTICS_"); }

// A header's own calibration, which samples of a higher level already went through.
bool isCalibrationKey(const std::string& key) {
    static const std::set<std::string> keys = {"ENVI:data gain values",
                                               "ENVI:data offset values",
                                               "ENVI:data reflectance gain values",
                                               "ENVI:data reflectance offset values",
                                               "ENVI:reflectance scale factor",
                                               "data_gain_values",
                                               "data_offset_values",
                                               "reflectance_scale_factor"};
    return keys.count(key) != 0;
}

// A header's own words for the place of its first pixel; the host keeps the place itself.
bool isPlaceKey(const std::string& key) {
    static const std::set<std::string> keys = {"ENVI:map info", "ENVI:geo points", "ENVI:pixel size",
                                               "ENVI:rpc info", "map_info",        "ENVI:x start",
                                               "ENVI:y start",  "x_start",         "y_start"};
    return keys.count(key) != 0;
}

// "{32,17,4}" for the copy's bands; nothing when one of them is not among these.
std::optional<std::string> remapDefaultBands(const DataSet& source, const CopyPlan& plan, const std::string& value) {
    std::string remapped;
    int number = 0;
    bool inNumber = false;
    const auto finishNumber = [&]() -> bool {
        if (!inNumber) return true;
        inNumber = false;
        const int band = KSChanToBand(source.get(), number);
        for (std::size_t i = 0; i < plan.bands.size(); ++i) {
            if (plan.bands[i] != band) continue;
            remapped += fmt::format("{}{}", remapped.empty() ? "{" : ",", i + 1);
            return true;
        }
        return false;
    };
    for (char c : value) {
        if (c >= '0' && c <= '9' && number < 100000000) {
            number = (inNumber ? number * 10 : 0) + (c - '0');
            inNumber = true;
        } else if (c == '.' || c == '-') {
            return std::nullopt;
        } else if (!finishNumber()) {
            return std::nullopt;
        }
    }
    if (!finishNumber() || remapped.empty()) return std::nullopt;
    return remapped + "}";
}

}  // namespace

std::optional<int> sampleTypeNamed(const std::string& name) {
    for (int type : {kUInt8, kInt16, kUInt16, kFloat32}) {
        if (name == sampleTypeName(type)) return type;
    }
    return std::nullopt;
}

TypeRange rangeOf(int sampleType) {
    switch (sampleType) {
        case kUInt8:
            return {0, 255};
        case kInt16:
            return {-32768, 32767};
        case kUInt16:
            return {0, 65535};
        default:
            return {-INFINITY, INFINITY};
    }
}

int typeHoldingAll(const DataSet& dataSet, const std::vector<int>& bands) {
    double low = 0;
    double high = 0;
    for (int band : bands) {
        const TypeRange range = rangeOf(dataSet->pBandRefs[band].nChanType);
        low = std::min(low, range.low);
        high = std::max(high, range.high);
    }
    for (int type : {kUInt8, kInt16, kUInt16}) {
        if (rangeOf(type).low <= low && high <= rangeOf(type).high) return type;
    }
    return kFloat32;
}

std::vector<std::optional<double>> noDataOfCopy(const DataSet& source, const CopyPlan& plan) {
    auto values = noDataValues(source, plan.bands);
    const TypeRange range = rangeOf(plan.sampleType);
    for (auto& value : values) {
        if (!value || plan.sampleType == kFloat32) continue;
        const bool fits = *value >= range.low && *value <= range.high && std::floor(*value) == *value;
        if (!fits) value.reset();
    }
    return values;
}

SampleFitter::SampleFitter(const DataSet& source, const CopyPlan& plan)
    : range_(rangeOf(plan.sampleType)), integers_(plan.sampleType != kFloat32) {
    for (const auto& value : noDataOfCopy(source, plan)) forNaN_.push_back(static_cast<float>(value.value_or(0.0)));
}

std::size_t SampleFitter::fit(float* samples, std::size_t pixels) const {
    if (!integers_) return 0;
    std::size_t changed = 0;
    const std::size_t bandCount = forNaN_.size();
    const float low = static_cast<float>(range_.low);
    const float high = static_cast<float>(range_.high);
    for (std::size_t pixel = 0; pixel < pixels; ++pixel, samples += bandCount) {
        for (std::size_t band = 0; band < bandCount; ++band) {
            const float value = samples[band];
            const float kept = std::isnan(value) ? forNaN_[band] : std::clamp(std::nearbyint(value), low, high);
            changed += kept == value ? 0U : 1U;
            samples[band] = kept;
        }
    }
    return changed;
}

Items fileEntriesOfCopy(const DataSet& source, const CopyPlan& plan) {
    const bool wholeSelection = isWholeSelection(source, plan);
    const bool wholeArea = isWholeArea(source, plan);
    Items entries;
    for (auto& [key, value] : Entries::ofFile(source.file()).items()) {
        if (key == "NumberOfRadTrans") {
            entries.emplace_back(key, fmt::format("{}", source->nNumRadTrans - plan.level));
        } else if (key == "ENVI:default bands" && !wholeSelection) {
            const auto remapped = remapDefaultBands(source, plan, value);
            if (remapped) entries.emplace_back(key, *remapped);
        } else if ((isNumberedBandKey(key) || key == "default_bands") && !wholeSelection) {
            continue;
        } else if (isPlaceKey(key) && !wholeArea) {
            continue;
        } else if (isCalibrationKey(key) && plan.level > 0) {
            continue;
        } else {
            entries.emplace_back(key, value);
        }
    }
    return entries;
}

Items channelEntriesOfCopy(const DataSet& source, const CopyPlan& plan, int band) {
    const bool sameSamples = isWholeArea(source, plan) && plan.level == 0;
    Items entries;
    for (auto& [key, value] : Entries::ofChannel(source.file(), source.channel(band)).items()) {
        if (const auto transform = asTransformKey(key)) {
            const int number = transform->second - plan.level;
            if (number >= 1) entries.emplace_back(transform->first + fmt::format("{}", number), value);
        } else if (isStatisticsKey(key) && !sameSamples) {
            continue;
        } else if (isCalibrationKey(key) && plan.level > 0) {
            continue;
        } else {
            entries.emplace_back(key, value);
        }
    }
    return entries;
}

}  // namespace kscli
