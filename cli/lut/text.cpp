#include "lut/text.hpp"

#include <fmt/format.h>

namespace kscli {

std::string unitsAfter(const std::string& units) { return units.empty() ? "" : " " + units; }

std::string withUnits(const std::string& name, const std::string& units) {
    return units.empty() ? name : fmt::format("{} ({})", name, units);
}

std::string counted(std::int64_t count, const std::string& thing) {
    return fmt::format("{} {}{}", count, thing, count == 1 ? "" : "s");
}

std::string tableText(const LookupTable& table) {
    const std::string& name = table.description().name;
    return fmt::format("{}{}{}", name, name.empty() ? "" : ", ", fmt::join(table.wholeBox().count, " x "));
}

std::string axisText(const TableAxis& axis) {
    if (axis.assumed) return fmt::format("{}{}, assumed", axis.coordinates[0], unitsAfter(axis.units));
    if (axis.size() == 1) return fmt::format("{}{}", axis.coordinates[0], unitsAfter(axis.units));
    constexpr int kShortList = 7;
    if (axis.size() <= kShortList) {
        return fmt::format("{}{}", fmt::join(axis.coordinates, ", "), unitsAfter(axis.units));
    }
    return fmt::format("{} to {}{}", axis.coordinates.front(), axis.coordinates.back(), unitsAfter(axis.units));
}

std::string placeText(const LookupTable& table, const std::vector<std::int64_t>& index) {
    std::string text;
    for (int d = 0; d < table.dimensions(); ++d) {
        if (table.size(d) == 1) continue;
        const auto i = static_cast<std::size_t>(index[static_cast<std::size_t>(d)]);
        text += fmt::format("{}{} {}", text.empty() ? "" : ", ", table.axis(d).nameOr(d), table.axis(d).coordinates[i]);
    }
    return text.empty() ? "the only cell" : text;
}

Json placeJson(const LookupTable& table, const std::vector<std::int64_t>& index) {
    Json place = Json::object();
    for (int d = 0; d < table.dimensions(); ++d) {
        const auto i = static_cast<std::size_t>(index[static_cast<std::size_t>(d)]);
        place[table.axis(d).nameOr(d)] = shortest(table.axis(d).coordinates[i]);
    }
    return place;
}

}  // namespace kscli
