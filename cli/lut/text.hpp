// Look-up tables in words.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "app/output.hpp"
#include "lut/table.hpp"

namespace kscli {

/// "path radiance, 5 x 5 x 246".
std::string tableText(const LookupTable& table);
/// "20, 40, 60 degrees", "400 to 2500 nm", "2.5 km", "0 km, assumed".
std::string axisText(const TableAxis& axis);
/// "Solar zenith angle 30, Wavelength 550"; axes of one index are left out.
std::string placeText(const LookupTable& table, const std::vector<std::int64_t>& index);
/// The coordinates of a place, by label.
Json placeJson(const LookupTable& table, const std::vector<std::int64_t>& index);
/// " degrees", or nothing.
std::string unitsAfter(const std::string& units);
/// "Wavelength [nm]".
std::string withUnits(const std::string& name, const std::string& units);
/// A count with a word in the right number: "1 cell", "3 cells".
std::string counted(std::int64_t count, const std::string& thing);

}  // namespace kscli
