// Turns what a foreign raster says into the library's metadata lists. Pure: facts in, lists out.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "facts.hpp"
#include "stringlist.hpp"

namespace kshost {

struct ImportedMetadata {
    StringList file;                   // level 1
    std::vector<StringList> channels;  // level 2, channel number - 1
    std::vector<std::string> remarks;  // what was guessed, converted or ignored; each said once
};

ImportedMetadata importMetadata(const RasterFacts& facts);

/// A moment of acquisition, in universal time; -1 for what its text does not say.
struct AcquisitionTime {
    int year, month, day, hour, minute;
    bool operator==(const AcquisitionTime& o) const {
        return year == o.year && month == o.month && day == o.day && hour == o.hour && minute == o.minute;
    }
};
/// Reads ISO 8601 dates and times, with or without separators, with a blank or T between, with or without a zone.
std::optional<AcquisitionTime> parseTime(std::string_view text);
/// The form in which headers are written; to the minute.
std::string isoText(const AcquisitionTime& time);

}  // namespace kshost
